// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>
#include <QString>

#include <memory>
#include <optional>

class AppDelegate;
class Clock;
class DBusService;
class InputBackend;
class RemoteControl;
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
    /** How to start, as the command line asked. */
    struct Options
    {
        /** Empty means the user's default settings file. */
        QString settingsPath;
        /** A saved theme to make active before anything is drawn. */
        std::optional<QString> themeName;
        /** Shows the keyboard after the start, whatever the last run left. */
        bool showKeyboard = false;
        /** Opens the settings window after the start. */
        bool openSettings = false;
        /** Offers the D-Bus service on the session bus, when there is one. */
        bool offerDBus = true;
    };

    /** Starts everything. */
    explicit Application(const Options& options, QObject* parent = nullptr);
    /** Starts everything. `settingsPath` empty means the user's default settings file. */
    explicit Application(const QString& settingsPath = {}, QObject* parent = nullptr);
    ~Application() override;

    SettingsStore& settings() const { return *m_settings; }
    AppDelegate& delegate() const { return *m_delegate; }
    /** Carries out what later starts and D-Bus callers ask. */
    RemoteControl& remoteControl() const { return *m_control; }

    /** Leaves the event loop with exit code 0; the destructor then stops everything in order. */
    void quit();

private:
    // Signals are caught first, so a termination during start-up still ends in order.
    UnixSignalWatcher* m_signals = nullptr;
    std::unique_ptr<SettingsStore> m_settings;
    std::unique_ptr<Clock> m_clock;
    std::unique_ptr<InputBackend> m_backend;
    // It uses all of the above.
    std::unique_ptr<AppDelegate> m_delegate;
    std::unique_ptr<RemoteControl> m_control;
    std::unique_ptr<DBusService> m_dbus;
};
