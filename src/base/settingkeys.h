// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/settingsstore.h"

#include <QStringList>

/**
 * The settings of plain types. Each key is created on first use, once, and lives for the rest of the process.
 * Settings holding themes and the trigger modifier are declared beside their types (theme/themesettings.h,
 * input/triggermodifier.h).
 */
namespace SettingKeys {

const SettingKey<bool>& showOnScreenRecording();
const SettingKey<bool>& hideOnScreenRecordingEnd();
const SettingKey<bool>& launchAtLogin();
const SettingKey<bool>& enableGlobalHotkey();
/** Modifier-flag mask that Caps Lock is remapped to (a "HyperKey"); 0 when none. */
const SettingKey<std::uint64_t>& hyperKeyModifiers();
const SettingKey<bool>& hyperKeyShowAsCapsLock();
/** Seconds a released key takes to return to rest. */
const SettingKey<double>& glowDecay();
const SettingKey<bool>& autoHideOnHover();
/** Panel opacity while hovered with auto-hide on, 0..1. */
const SettingKey<double>& autoHideOpacity();
const SettingKey<bool>& escapeToHideOnHover();
/** Whether the keyboard was showing; restores it at the next start. */
const SettingKey<bool>& keyboardVisible();
/** Whether the user was told, on a desktop without a tray, how to bring a hidden keyboard back. */
const SettingKey<bool>& hiddenWithoutTrayExplained();
/** Left edge of the panel in screen points; none until the panel was placed. */
const SettingKey<std::optional<double>>& windowX();
/** Bottom edge of the panel in screen points (y grows downwards); none until the panel was placed. */
const SettingKey<std::optional<double>>& windowY();
const SettingKey<double>& windowWidth();
/** Whether the updater checks by itself; off until the user turns it on. */
const SettingKey<bool>& automaticallyChecksForUpdates();
/** Seconds between automatic update checks (see UpdateCheckIntervals for how other values read). */
const SettingKey<double>& updateCheckInterval();
/** Whether keys are hidden while the session is locked (logind, the desktop's screen saver). */
const SettingKey<bool>& pauseWhenLocked();
/** Whether keys are hidden while a password or authentication prompt of the desktop is open. */
const SettingKey<bool>& pauseForPasswordPrompts();
/** Whether keys are hidden while a window of one of privateAppClasses has the focus. */
const SettingKey<bool>& pauseForPrivateApps();
/** Window classes (WM_CLASS or app ids, compared without letter case) whose focus hides keys. */
const SettingKey<QStringList>& privateAppClasses();
/**
 * Which screen the keyboard shows on: "pointer" (the screen with the pointer, when shown), "primary", or a screen's
 * name (as Qt names it, e.g. "HDMI-1").
 */
const SettingKey<QString>& showOnScreen();
/**
 * The keyboard's place per screen set-up: a JSON object text mapping a set-up key (the sorted names and sizes of
 * the connected screens) to {"x", "y", "width", "screen"}. Written by the panel.
 */
const SettingKey<QString>& placesBySetup();
/** Whether the laptop's trackpad is drawn below the keys, showing clicks and scrolling. */
const SettingKey<bool>& showTrackpad();
/** When the last update check started, in seconds since 1970-01-01 UTC; none before the first check. */
const SettingKey<std::optional<double>>& lastUpdateCheckTime();

} // namespace SettingKeys
