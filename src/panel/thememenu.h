// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QList>
#include <QString>

#include <functional>

class QMenu;
class SettingsStore;

/**
 * The Theme submenu, shown by the tray menu and by the keyboard's context menu alike:
 *
 *   Theme: <active theme name>  > one entry per saved theme, in list order; choosing one makes it active
 *                                 (checked: those named like the active theme, several may share the name)
 *                                 ----, "Current (unsaved)" (checked, dimmed) while no saved theme holds the
 *                                 active configuration
 *
 * entries() describes it from the settings as they stand; addTo() shows that description in a QMenu.
 */
namespace ThemeMenu {

struct Entry
{
    /** Empty for a separator. */
    QString title;
    bool checked = false;
    bool enabled = true;
    /** What choosing the entry does; empty for an entry that only tells. */
    std::function<void()> action;
};

/** "Theme: " and the active theme's name. */
QString title(const SettingsStore& settings);

/** The entries as the settings stand now; their actions write `settings`, which must outlive them. */
QList<Entry> entries(SettingsStore& settings);

/**
 * Appends the submenu to `menu` and returns it. Only checked entries are checkable, so the others read as plain
 * commands. `afterChoice` runs after an entry's action (choosing the checked entry again changes no setting, but
 * the click has unchecked its item, so a menu that stays around rebuilds itself then).
 */
QMenu* addTo(QMenu& menu, SettingsStore& settings, std::function<void()> afterChoice = {});

} // namespace ThemeMenu
