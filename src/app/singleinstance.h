// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>
#include <QString>

class QLocalServer;
class QLocalSocket;

/**
 * One Ordalis per user session. The first instance listens on a local socket named after the user; a later one
 * finds it there, asks it to show the keyboard and ends. A socket left behind by an instance that crashed answers
 * nobody and is replaced.
 *
 * Main thread only.
 */
class SingleInstance final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SingleInstance)

public:
    enum class Role {
        /** This is the instance: it listens, and showRequested() tells when a later start asked for the keyboard. */
        primary,
        /** Another instance runs and was asked to show the keyboard; this one should end. */
        secondary,
        /** Neither listening nor reaching another instance worked; this one runs on its own. */
        alone,
    };
    Q_ENUM(Role)

    /** The message a later start sends. */
    static constexpr char showMessage[] = "show";

    /** "ordalis-<uid>" in $XDG_RUNTIME_DIR, or in the temporary folder without one. */
    static QString defaultServerName();

    explicit SingleInstance(const QString& serverName = defaultServerName(), QObject* parent = nullptr);
    ~SingleInstance() override;

    QString serverName() const { return m_serverName; }

    /** Becomes the listening instance, or tells the running one to show the keyboard. Call once. */
    Role claim();

signals:
    /** A later start asked for the keyboard. */
    void showRequested();

private:
    bool listen();
    bool sendShow();
    void onNewConnection();
    void onReadable(QLocalSocket* socket);

    QString m_serverName;
    QLocalServer* m_server = nullptr;
};
