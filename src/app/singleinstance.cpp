// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/singleinstance.h"

#include "app/remotecontrol.h"

#include <QDir>
#include <QFile>
#include <QLocalServer>
#include <QLocalSocket>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// The longest reply read; an error reply names the saved themes, which stay far below this.
constexpr qsizetype maxReplyLength = 64 * 1024;

/** Marks a connection that asked to quit: whatever else comes on it is ignored. */
constexpr char quittingProperty[] = "ordalisQuitting";

class Descriptor
{
public:
    explicit Descriptor(int fd)
        : m_fd(fd)
    {
    }
    ~Descriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return m_fd; }

private:
    int m_fd;
};

bool sendAll(int fd, const QByteArray& bytes)
{
    qsizetype sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(fd, bytes.constData() + sent, size_t(bytes.size() - sent), MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        sent += n;
    }
    return true;
}

/** Reads into `buffer` once: the byte count, 0 at the end of the stream, -1 on an error or timeout. */
ssize_t receive(int fd, char* buffer, size_t size)
{
    for (;;) {
        const ssize_t n = ::recv(fd, buffer, size, 0);
        if (n < 0 && errno == EINTR)
            continue;
        return n;
    }
}

} // namespace

std::optional<QString> SingleInstance::Answer::error() const
{
    if (status != Status::replied || (reply != "error" && !reply.startsWith("error ")))
        return std::nullopt;
    return QString::fromUtf8(reply.mid(6));
}

QString SingleInstance::defaultServerName()
{
    QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (folder.isEmpty() || !QDir(folder).exists())
        folder = QDir::tempPath();
    return QDir(folder).filePath(u"ordalis-%1"_s.arg(::getuid()));
}

SingleInstance::Answer SingleInstance::ask(const QString& serverName, const QByteArray& request, bool waitForEnd)
{
    Answer answer;
    const QByteArray path = QFile::encodeName(serverName);
    sockaddr_un address {};
    if (path.isEmpty() || size_t(path.size()) >= sizeof address.sun_path)
        return answer;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.constData(), size_t(path.size()));

    const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (socket.get() < 0)
        return answer;
    // Every blocking call below, the connection included, gives up after this long.
    const timeval timeout { replyTimeout / 1000, (replyTimeout % 1000) * 1000 };
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    int connected = -1;
    do
        connected = ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    while (connected != 0 && errno == EINTR);
    // Refused (a socket left behind) or missing: nobody is there.
    if (connected != 0)
        return answer;

    answer.status = Answer::Status::noReply;
    if (!sendAll(socket.get(), request + '\n'))
        return answer;

    QByteArray received;
    char buffer[4096];
    qsizetype lineEnd = -1;
    while (lineEnd < 0) {
        const ssize_t n = receive(socket.get(), buffer, sizeof buffer);
        if (n == 0) {
            answer.status = Answer::Status::closedWithoutReply;
            return answer;
        }
        if (n < 0)
            return answer;
        received.append(buffer, n);
        lineEnd = received.indexOf('\n');
        if (lineEnd < 0 && received.size() > maxReplyLength)
            return answer;
    }
    answer.status = Answer::Status::replied;
    answer.reply = received.left(lineEnd);
    if (answer.reply.endsWith('\r'))
        answer.reply.chop(1);

    // Until the other side closes: it does so as its process ends.
    while (waitForEnd && receive(socket.get(), buffer, sizeof buffer) > 0) { }
    return answer;
}

SingleInstance::SingleInstance(const QString& serverName, QObject* parent)
    : QObject(parent)
    , m_serverName(serverName)
{
}

SingleInstance::~SingleInstance() = default;

SingleInstance::Role SingleInstance::claim(const QByteArray& request)
{
    // Two starts at the same moment would both find nobody there, and the later to listen would take the name from
    // the other: claims are made one at a time. The kernel lets go of the lock when its holder ends, however it ends.
    const Descriptor lock(
        ::open(QFile::encodeName(m_serverName + u".lock"_s).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    while (lock.get() >= 0 && ::flock(lock.get(), LOCK_EX) != 0 && errno == EINTR) { }
    // Asked first: listening would quietly take the name over from a running instance.
    m_answer = ask(m_serverName, request);
    if (m_answer.reached())
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

void SingleInstance::stopListening()
{
    // Connections already made stay open (they belong to the server object) until this object goes.
    if (m_server)
        m_server->close();
}

void SingleInstance::onNewConnection()
{
    while (QLocalSocket* socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { onReadable(socket); });
        // The request may have come with the connection.
        if (socket->bytesAvailable() > 0)
            onReadable(socket);
    }
}

void SingleInstance::onReadable(QLocalSocket* socket)
{
    const auto reply = [socket](const QByteArray& line) {
        // A sender from before replies existed has closed the connection already.
        if (socket->state() != QLocalSocket::ConnectedState)
            return;
        socket->write(line + '\n');
        socket->flush();
    };
    while (!socket->property(quittingProperty).toBool() && socket->canReadLine()) {
        const QByteArray line = socket->readLine(maxRequestLength + 3);
        if (!line.endsWith('\n')) {
            reply("error request too long");
            socket->disconnectFromServer();
            return;
        }
        bool quitting = false;
        reply(serve(line, quitting));
        if (quitting) {
            socket->setProperty(quittingProperty, true);
            stopListening();
        }
    }
    if (socket->property(quittingProperty).toBool()) {
        socket->readAll();
        return;
    }
    // No line break within the longest request: not one of ours.
    if (socket->bytesAvailable() > maxRequestLength + 2) {
        reply("error request too long");
        socket->disconnectFromServer();
    }
}

QByteArray SingleInstance::serve(const QByteArray& line, bool& quitting)
{
    const std::optional<RemoteCommand> command = RemoteCommand::fromLine(line);
    if (!command)
        return "error unknown request";
    if (command->kind == RemoteCommand::Kind::show)
        emit showRequested();
    std::optional<QString> error;
    if (m_handler)
        error = m_handler(*command);
    else if (command->kind != RemoteCommand::Kind::show)
        error = u"this instance takes no such request"_s;
    if (error)
        return "error " + error->simplified().toUtf8();
    quitting = command->kind == RemoteCommand::Kind::quit;
    return "ok";
}
