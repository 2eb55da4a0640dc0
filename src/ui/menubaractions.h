// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/inputbackend.h"

#include <QStringList>

/** What the tray menu asks of the application. The application implements it; tests give a fake. */
class MenuBarActions
{
public:
    virtual ~MenuBarActions() = default;
    virtual bool isKeyboardVisible() const = 0;
    /** true shows the keyboard (showKeyboard), false hides it (hideKeyboard). */
    virtual void setKeyboardVisible(bool visible) = 0;
    virtual void openSettings() = 0;
    /** A check the user asked for. */
    virtual void checkForUpdates() = 0;
    virtual void quit() = 0;

    /** How keys reach Ordalis now, for the menu's access line. */
    virtual InputBackend::Source keySource() const { return InputBackend::Source::none; }
    /** Whether "Allow Key Access…" can be offered. */
    virtual bool canRequestKeyAccess() const { return false; }
    /** The user chose "Allow Key Access…". */
    virtual void requestKeyAccess() { }
    /** Whether keys are kept from the screen, for any reason. */
    virtual bool isPaused() const { return false; }
    /** Whether the user paused showing keys ("Pause Showing Keys", D-Bus, --pause). */
    virtual bool isPausedByHand() const { return false; }
    virtual void setPausedByHand(bool /*paused*/) { }
    /** Why keys are kept from the screen, for the tooltip ("screen locked"); empty when they are not. */
    virtual QStringList pauseReasons() const { return {}; }
};
