// SPDX-License-Identifier: GPL-3.0-or-later
#include "panel/thememenu.h"

#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "theme/themelibrary.h"
#include "theme/themesettings.h"

#include <QCoreApplication>
#include <QMenu>

namespace ThemeMenu {

QString title(const SettingsStore& settings)
{
    return QCoreApplication::translate("ThemeMenu", "Theme: %1").arg(settings.value(SettingKeys::activeThemeName()));
}

QList<Entry> entries(SettingsStore& settings)
{
    const QString activeName = settings.value(SettingKeys::activeThemeName());
    const ThemeConfig active = settings.value(SettingKeys::activeThemeConfig());
    const QList<NamedTheme> saved = settings.value(SettingKeys::savedThemes());

    QList<Entry> result;
    // The checkmark follows the name; "Current (unsaved)" follows the configuration, so both can show at once.
    for (const NamedTheme& theme : saved) {
        result.append(Entry { theme.name, theme.name == activeName, true,
            [&settings, theme] { ThemeLibrary::chooseThemeFromMenu(settings, theme); } });
    }
    if (ThemeLibrary::isCurrentConfigUnsaved(active, saved)) {
        result.append(Entry {});
        result.append(Entry { ThemeLibrary::currentUnsavedText(), true, false, {} });
    }
    return result;
}

QMenu* addTo(QMenu& menu, SettingsStore& settings, std::function<void()> afterChoice)
{
    QMenu* themes = menu.addMenu(title(settings));
    for (const Entry& entry : entries(settings)) {
        if (entry.title.isEmpty()) {
            themes->addSeparator();
            continue;
        }
        QAction* item = themes->addAction(entry.title);
        item->setCheckable(entry.checked);
        item->setChecked(entry.checked);
        item->setEnabled(entry.enabled);
        if (entry.action) {
            QObject::connect(item, &QAction::triggered, item, [action = entry.action, afterChoice] {
                action();
                if (afterChoice)
                    afterChoice();
            });
        }
    }
    return themes;
}

} // namespace ThemeMenu
