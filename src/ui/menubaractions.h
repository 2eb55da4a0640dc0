// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

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
};
