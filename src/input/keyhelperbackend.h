// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/inputbackend.h"
#include "input/keyeventprocessor.h"

#include <QString>
#include <QStringList>

#include <memory>

class KeyHelperStream;
class QProcess;

/**
 * Keys read from the keyboard devices by ordalis-keyhelper, a small program that runs with the privilege to read
 * them once the user has agreed: it is started through pkexec, whose polkit action asks for the user's password
 * and keeps the answer for the session. The helper only reads devices and writes fixed-size records; everything it
 * writes goes through KeyHelperStream into the same key processing as reading the devices directly.
 *
 * Nothing starts by itself: requestAccess() launches the helper, and access() is granted once it has greeted.
 * A helper that ends while keys flow lets go of every key it held and is started once more; if that one ends too,
 * keys stop and accessRequestFailed() says so. The helper runs as another user, so it cannot be sent a signal: it is
 * stopped by closing its standard input, which it watches. Main thread only.
 */
class KeyHelperBackend final : public InputBackend
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(KeyHelperBackend)

public:
    /** How the helper is started: `program` run with `arguments`. */
    struct Launch
    {
        QString program;
        QStringList arguments;
    };

    enum class State {
        /** Not running, never asked for, or stopped. */
        idle,
        /** Started; waiting for the password dialog or the helper's greeting. */
        starting,
        /** Keys flow. */
        running,
        /** Refused, cancelled, or ended twice; requestAccess() tries again. */
        failed,
    };
    Q_ENUM(State)

    /**
     * The helper: the installed one, else the one beside the program (a build tree), started through pkexec. The
     * environment variable ORDALIS_KEYHELPER_LAUNCHER names another program to start it with, which is handed the
     * helper's path as its one argument (tests use a launcher that needs no password). None when either is missing.
     */
    static std::optional<Launch> defaultLaunch();

    /** Uses defaultLaunch(); with none, access() is unavailable. */
    explicit KeyHelperBackend(QObject* parent = nullptr);
    KeyHelperBackend(std::optional<Launch> launch, QObject* parent = nullptr);
    ~KeyHelperBackend() override;

    QString name() const override;
    /** Granted while the helper runs, denied while it could be started, unavailable when it cannot. */
    Access access() const override;
    QString accessHelp() const override;
    /** True while the helper runs: reading needs no more than that. */
    bool start() override;
    /** Stops the helper; nothing is restarted. */
    void stop() override;
    Source source() const override;
    bool capsLockOn() const override;
    bool canRequestAccess() const override;
    /** Starts the helper unless it runs or is starting; a helper that failed before gets a fresh restart. */
    void requestAccess() override;

    State state() const { return m_state; }
    /** The helper's process id while it runs or starts; 0 otherwise. */
    qint64 processId() const;

private:
    void launch();
    void readOutput();
    void onFinished(int exitCode, bool crashed);
    void onFailedToStart();
    void setState(State state);
    /** Gives up: keys are not read, and the user hears `what` once, with how to try again. */
    void fail(const QString& what);
    /** Closes the helper's input so it ends, and forgets the process. */
    void endProcess();

    std::optional<Launch> m_launch;
    KeyEventProcessor m_processor;
    std::unique_ptr<QProcess> m_process;
    std::unique_ptr<KeyHelperStream> m_stream;
    State m_state = State::idle;
    /** Whether a helper that ends while keys flow is started again. */
    bool m_mayRestart = true;
    bool m_readScheduled = false;
};
