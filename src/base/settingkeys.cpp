// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/settingkeys.h"


namespace SettingKeys {

// Function-local statics: created on first use, exactly once even when first used from two threads at once.
#define ORDALIS_SETTING_KEY(function, Type, defaultValue)                                                           \
    const SettingKey<Type>& function()                                                                              \
    {                                                                                                               \
        static const SettingKey<Type> key(QStringLiteral(#function), defaultValue);                                   \
        return key;                                                                                                 \
    }

ORDALIS_SETTING_KEY(showOnScreenRecording, bool, true)
ORDALIS_SETTING_KEY(hideOnScreenRecordingEnd, bool, false)
ORDALIS_SETTING_KEY(launchAtLogin, bool, false)
ORDALIS_SETTING_KEY(enableGlobalHotkey, bool, true)
ORDALIS_SETTING_KEY(hyperKeyModifiers, std::uint64_t, 0)
ORDALIS_SETTING_KEY(hyperKeyShowAsCapsLock, bool, true)
ORDALIS_SETTING_KEY(glowDecay, double, 0.15)
ORDALIS_SETTING_KEY(autoHideOnHover, bool, false)
ORDALIS_SETTING_KEY(autoHideOpacity, double, 0.1)
ORDALIS_SETTING_KEY(escapeToHideOnHover, bool, false)
ORDALIS_SETTING_KEY(keyboardVisible, bool, false)
ORDALIS_SETTING_KEY(hiddenWithoutTrayExplained, bool, false)
ORDALIS_SETTING_KEY(windowX, std::optional<double>, std::nullopt)
ORDALIS_SETTING_KEY(windowY, std::optional<double>, std::nullopt)
ORDALIS_SETTING_KEY(windowWidth, double, 900)
ORDALIS_SETTING_KEY(automaticallyChecksForUpdates, bool, false)
ORDALIS_SETTING_KEY(updateCheckInterval, double, 86400)
ORDALIS_SETTING_KEY(lastUpdateCheckTime, std::optional<double>, std::nullopt)
ORDALIS_SETTING_KEY(pauseWhenLocked, bool, true)
ORDALIS_SETTING_KEY(pauseForPasswordPrompts, bool, true)
ORDALIS_SETTING_KEY(pauseForPrivateApps, bool, true)
ORDALIS_SETTING_KEY(privateAppClasses, QStringList,
    QStringList({ QStringLiteral("KeePassXC"), QStringLiteral("Bitwarden"), QStringLiteral("1Password"),
        QStringLiteral("Seahorse") }))
ORDALIS_SETTING_KEY(showOnScreen, QString, QStringLiteral("pointer"))
ORDALIS_SETTING_KEY(showTrackpad, bool, false)
ORDALIS_SETTING_KEY(placesBySetup, QString, QString())

#undef ORDALIS_SETTING_KEY

} // namespace SettingKeys
