// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>

#include <memory>

class Clock;
class HotkeyManager;
class InputBackend;
class KeyboardMonitor;
class QTimer;
class SettingsStore;
class UnixSignalWatcher;

/**
 * The running program: owns the process-wide services and shuts them down in order when the session ends or a
 * termination signal arrives.
 */
class Application final : public QObject
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

    /** Stops everything in order and leaves the event loop with exit code 0. */
    void quit();

private:
    /** Starts key capture once the back end can read keys; until then retries every 2.0 s. */
    void startInputWhenPermitted();

    // Signals are caught first, so a termination during start-up still ends in order.
    UnixSignalWatcher* m_signals = nullptr;
    std::unique_ptr<SettingsStore> m_settings;
    std::unique_ptr<Clock> m_clock;
    std::unique_ptr<InputBackend> m_backend;
    KeyboardMonitor* m_monitor = nullptr;
    HotkeyManager* m_hotkeys = nullptr;
    QTimer* m_accessPoll = nullptr;
    bool m_accessHelpShown = false;
    bool m_inputStarted = false;
};
