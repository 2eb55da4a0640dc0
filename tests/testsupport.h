// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// Shared by the tests: the names of every setting.

#include "base/settingkeys.h"
#include "input/triggermodifier.h"
#include "theme/themesettings.h"

#include <QStringList>

namespace TestSupport {

/** The entry name of every setting the program keeps. */
inline QStringList allSettingNames()
{
    using namespace SettingKeys;
    return {
        activeThemeConfig().name(), activeThemeName().name(), savedThemes().name(), showOnScreenRecording().name(),
        hideOnScreenRecordingEnd().name(), launchAtLogin().name(), triggerModifier().name(),
        enableGlobalHotkey().name(), hyperKeyModifiers().name(), hyperKeyShowAsCapsLock().name(),
        glowDecay().name(), autoHideOnHover().name(), autoHideOpacity().name(), escapeToHideOnHover().name(),
        keyboardVisible().name(), hiddenWithoutTrayExplained().name(), windowX().name(), windowY().name(),
        windowWidth().name(), automaticallyChecksForUpdates().name(), updateCheckInterval().name(),
        lastUpdateCheckTime().name(),
    };
}

} // namespace TestSupport
