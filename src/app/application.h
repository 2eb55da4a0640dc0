// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "panel/panelactions.h"

#include <QObject>

#include <memory>

class Clock;
class HotkeyManager;
class InputBackend;
class KeyboardMonitor;
class KeyboardPanel;
class QTimer;
class SettingsStore;
class UnixSignalWatcher;

/**
 * The running program: owns the process-wide services and shuts them down in order when the session ends or a
 * termination signal arrives. Owns the keyboard panel too, made the first time the keyboard shows and kept after.
 */
class Application final : public QObject, public PanelActions
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Application)

public:
    /** `settingsPath` empty means the user's default settings file. */
    explicit Application(const QString& settingsPath = {}, QObject* parent = nullptr);
    ~Application() override;

    SettingsStore& settings() const { return *m_settings; }
    KeyboardMonitor& keyboardMonitor() const { return *m_monitor; }
    HotkeyManager& hotkeys() const { return *m_hotkeys; }
    /** The keyboard panel; nullptr until the keyboard was first shown. */
    KeyboardPanel* keyboardPanel() const { return m_panel.get(); }

    /** Whether the keyboard is showing. */
    bool isVisible() const override;
    /** Shows the keyboard (making the panel the first time) and remembers it for the next start. */
    void showKeyboard() override;
    /** Hides the keyboard and remembers it for the next start. */
    void hideKeyboard() override;
    void toggleKeyboard();
    /** There is no settings window yet: does nothing. */
    void openSettings() override;

    /** Stops everything in order and leaves the event loop with exit code 0. */
    void quit();

private:
    /** Starts key capture once the back end can read keys; until then retries every 2.0 s. */
    void startInputWhenPermitted();
    /** A single tap of the trigger while the pointer is over the panel switches auto-hide, unless it just appeared. */
    void onSingleTapWhileHovering();

    // Signals are caught first, so a termination during start-up still ends in order.
    UnixSignalWatcher* m_signals = nullptr;
    std::unique_ptr<SettingsStore> m_settings;
    std::unique_ptr<Clock> m_clock;
    std::unique_ptr<InputBackend> m_backend;
    KeyboardMonitor* m_monitor = nullptr;
    HotkeyManager* m_hotkeys = nullptr;
    QTimer* m_accessPoll = nullptr;
    // After the clock and the monitor it uses, so that it goes before them.
    std::unique_ptr<KeyboardPanel> m_panel;
    bool m_accessHelpShown = false;
    bool m_inputStarted = false;
};
