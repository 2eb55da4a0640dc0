// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "theme/themeconfig.h"

#include <QList>
#include <QString>

class SettingsStore;

/**
 * The rules that keep the saved-theme list, the active configuration and the active theme name consistent.
 *
 * The active configuration is never tied to a list entry by identity: entries are matched by name for the active
 * name and by configuration for the unsaved state. Every operation reads the settings when it runs and writes whole
 * values back. Main thread only.
 */
namespace ThemeLibrary {

/** The text of the item that stands for an active configuration no saved theme holds. */
QString currentUnsavedText();

/** True when no entry of `saved` has a configuration equal to `active` (so always for an empty list). */
bool isCurrentConfigUnsaved(const ThemeConfig& active, const QList<NamedTheme>& saved);

/** isCurrentConfigUnsaved() for what `settings` holds now. */
bool isCurrentConfigUnsaved(const SettingsStore& settings);

/** Makes `theme` the active one: "activeThemeConfig" becomes its configuration, then "activeThemeName" its name. */
void chooseThemeFromMenu(SettingsStore& settings, const NamedTheme& theme);

} // namespace ThemeLibrary
