// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>

#include <array>

class QSocketNotifier;

/**
 * Turns SIGTERM, SIGINT and SIGHUP into a Qt signal on the main thread (through a self-pipe), so the program can
 * shut down in order instead of dying inside a signal handler. One instance per process.
 */
class UnixSignalWatcher final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(UnixSignalWatcher)

public:
    explicit UnixSignalWatcher(QObject* parent = nullptr);
    ~UnixSignalWatcher() override;

signals:
    /** One of the watched signals arrived; `signalNumber` is its number. */
    void terminationRequested(int signalNumber);

private:
    void onReadable();

    QSocketNotifier* m_notifier = nullptr;
};
