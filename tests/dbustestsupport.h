// SPDX-License-Identifier: GPL-3.0-or-later
// A private D-Bus session bus for one test run, so that tests never touch the user's own bus.
#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>

#include <csignal>
#include <memory>

#include <sys/prctl.h>

namespace DBusTest {

using namespace Qt::StringLiterals;

/** A dbus-daemon of the test's own; ends with it, also when a timeout kills the test. */
class PrivateBus
{
public:
    PrivateBus()
    {
        if (QStandardPaths::findExecutable(u"dbus-daemon"_s).isEmpty())
            return;
        m_daemon.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
        // It complains that it may not raise its file limit, which does not matter here.
        m_daemon.setStandardErrorFile(QProcess::nullDevice());
        m_daemon.start(u"dbus-daemon"_s, { u"--session"_s, u"--nofork"_s, u"--nopidfile"_s, u"--print-address"_s });
        if (!m_daemon.waitForStarted(20000))
            return;
        QByteArray line;
        while (!line.endsWith('\n') && m_daemon.waitForReadyRead(20000))
            line += m_daemon.readAllStandardOutput();
        m_address = QString::fromUtf8(line.trimmed());
    }
    ~PrivateBus()
    {
        for (const QString& name : std::as_const(m_connections))
            QDBusConnection::disconnectFromBus(name);
        if (m_daemon.state() == QProcess::NotRunning)
            return;
        m_daemon.terminate();
        m_daemon.waitForFinished(20000);
    }
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    /** The bus address for DBUS_SESSION_BUS_ADDRESS; empty when no daemon could be started. */
    QString address() const { return m_address; }

    /** A new connection to this bus; Qt keeps connections by name, so every one gets a name of its own. */
    QDBusConnection connect()
    {
        const QString name = u"private bus %1 connection %2"_s.arg(m_address).arg(m_connections.size());
        m_connections.append(name);
        return QDBusConnection::connectToBus(m_address, name);
    }

private:
    QProcess m_daemon;
    QString m_address;
    QStringList m_connections;
};

inline constexpr char ordalisService[] = "com.quietmakers.Ordalis";
inline constexpr char ordalisPath[] = "/com/quietmakers/Ordalis";
inline constexpr char ordalisInterface[] = "com.quietmakers.Ordalis";

/**
 * Calls `method` of Ordalis's object, serving this thread's events meanwhile: the service may live in this very
 * thread, where a plain blocking call would wait for itself.
 */
inline QDBusMessage callOn(
    const QDBusConnection& bus, const QString& interface, const QString& method, const QVariantList& arguments = {})
{
    QDBusMessage message = QDBusMessage::createMethodCall(
        QString::fromLatin1(ordalisService), QString::fromLatin1(ordalisPath), interface, method);
    message.setArguments(arguments);
    return bus.call(message, QDBus::BlockWithGui, 20000);
}

inline QDBusMessage call(const QDBusConnection& bus, const QString& method, const QVariantList& arguments = {})
{
    return callOn(bus, QString::fromLatin1(ordalisInterface), method, arguments);
}

/** Ordalis's Visible property as a Properties.Get call reads it; invalid when the call fails. */
inline QVariant visible(const QDBusConnection& bus)
{
    const QDBusMessage reply = callOn(
        bus, u"org.freedesktop.DBus.Properties"_s, u"Get"_s, { QString::fromLatin1(ordalisInterface), u"Visible"_s });
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return {};
    return reply.arguments().constFirst().value<QDBusVariant>().variant();
}

} // namespace DBusTest
