// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>

#include <memory>

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

    /** Stops everything in order and leaves the event loop with exit code 0. */
    void quit();

private:
    // Signals are caught first, so a termination during start-up still ends in order.
    UnixSignalWatcher* m_signals = nullptr;
    std::unique_ptr<SettingsStore> m_settings;
};
