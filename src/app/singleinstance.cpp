// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/singleinstance.h"

#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Milliseconds a later start waits for the running instance; it answers from its event loop at once.
constexpr int connectTimeout = 1000;
// A request is one short line; anything longer is not ours.
constexpr qint64 maxRequestLength = 64;

} // namespace

QString SingleInstance::defaultServerName()
{
    QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (folder.isEmpty() || !QDir(folder).exists())
        folder = QDir::tempPath();
    return QDir(folder).filePath(u"ordalis-%1"_s.arg(::getuid()));
}

SingleInstance::SingleInstance(const QString& serverName, QObject* parent)
    : QObject(parent)
    , m_serverName(serverName)
{
}

SingleInstance::~SingleInstance() = default;

SingleInstance::Role SingleInstance::claim()
{
    // Asked first: listening would quietly take the name over from a running instance.
    if (sendShow())
        return Role::secondary;
    // Nobody answers at that name: anything there was left behind by an instance that is gone.
    QLocalServer::removeServer(m_serverName);
    return listen() ? Role::primary : Role::alone;
}

bool SingleInstance::listen()
{
    auto* server = new QLocalServer(this);
    server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server->listen(m_serverName)) {
        delete server;
        return false;
    }
    m_server = server;
    connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::onNewConnection);
    return true;
}

bool SingleInstance::sendShow()
{
    QLocalSocket socket;
    socket.connectToServer(m_serverName);
    if (!socket.waitForConnected(connectTimeout))
        return false;
    socket.write(showMessage);
    socket.write("\n");
    const bool sent = socket.waitForBytesWritten(connectTimeout);
    socket.disconnectFromServer();
    return sent;
}

void SingleInstance::onNewConnection()
{
    while (QLocalSocket* socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { onReadable(socket); });
        // The message may have come with the connection.
        if (socket->bytesAvailable() > 0)
            onReadable(socket);
    }
}

void SingleInstance::onReadable(QLocalSocket* socket)
{
    while (socket->canReadLine()) {
        if (socket->readLine(maxRequestLength).trimmed() == showMessage)
            emit showRequested();
    }
    if (socket->bytesAvailable() > maxRequestLength)
        socket->abort();
}
