// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/themelibrary.h"

#include "app/settingkeys.h"
#include "app/settingsstore.h"

#include <QCoreApplication>

#include <algorithm>

namespace ThemeLibrary {

QString currentUnsavedText()
{
    return QCoreApplication::translate("ThemeLibrary", "Current (unsaved)");
}

bool isCurrentConfigUnsaved(const ThemeConfig& active, const QList<NamedTheme>& saved)
{
    return std::none_of(saved.begin(), saved.end(), [&](const NamedTheme& theme) { return theme.config == active; });
}

bool isCurrentConfigUnsaved(const SettingsStore& settings)
{
    return isCurrentConfigUnsaved(
        settings.value(SettingKeys::activeThemeConfig()), settings.value(SettingKeys::savedThemes()));
}

void chooseThemeFromMenu(SettingsStore& settings, const NamedTheme& theme)
{
    settings.setValue(SettingKeys::activeThemeConfig(), theme.config);
    settings.setValue(SettingKeys::activeThemeName(), theme.name);
}

} // namespace ThemeLibrary
