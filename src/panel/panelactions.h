// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

class QMenu;

/**
 * What the panel asks of whoever owns it: its context menu shows or hides the keyboard and opens the settings
 * through this. Main thread only.
 */
class PanelActions
{
public:
    virtual ~PanelActions() = default;

    /** Whether the keyboard is showing. */
    virtual bool isVisible() const = 0;
    virtual void showKeyboard() = 0;
    /** Hides the keyboard as the user asked for it, remembered for the next start. */
    virtual void hideKeyboard() = 0;
    virtual void openSettings() = 0;
    /** Whether the user paused showing keys; the menu item follows it. */
    virtual bool isPausedByHand() const { return false; }
    virtual void setPausedByHand(bool /*paused*/) { }
    /** A menu that replaces the keyboard's own right-click menu (the tray menu, when there is no tray); or none. */
    virtual QMenu* fullMenu() const { return nullptr; }

protected:
    PanelActions() = default;
    PanelActions(const PanelActions&) = default;
    PanelActions& operator=(const PanelActions&) = default;
};
