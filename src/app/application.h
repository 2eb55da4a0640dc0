// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>

#include <memory>

class AppDelegate;
class Clock;
class InputBackend;
class SettingsStore;
class UnixSignalWatcher;

/**
 * The running program: owns the settings, the clock, the input back end and the coordinator that works with them,
 * and shuts down in order when the session ends or a termination signal arrives.
 */
class Application final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Application)

public:
    /** Starts everything. `settingsPath` empty means the user's default settings file. */
    explicit Application(const QString& settingsPath = {}, QObject* parent = nullptr);
    ~Application() override;

    SettingsStore& settings() const { return *m_settings; }
    AppDelegate& delegate() const { return *m_delegate; }

    /** Leaves the event loop with exit code 0; the destructor then stops everything in order. */
    void quit();

private:
    // Signals are caught first, so a termination during start-up still ends in order.
    UnixSignalWatcher* m_signals = nullptr;
    std::unique_ptr<SettingsStore> m_settings;
    std::unique_ptr<Clock> m_clock;
    std::unique_ptr<InputBackend> m_backend;
    // Last: it uses all of the above.
    std::unique_ptr<AppDelegate> m_delegate;
};
