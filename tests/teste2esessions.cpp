// SPDX-License-Identifier: GPL-3.0-or-later
// The real program in the two kinds of session a user has. In a Wayland session (a headless weston with XWayland)
// its window goes through XWayland while keys come from the devices: with none readable it asks once for key access,
// the user's Return on "Allow Key Access…" starts the key helper, and a helper that keeps dying is restarted once,
// then reported. Under a plain X server the same binary reads keys from X11.
#include "dbustestsupport.h"
#include "ordalisprogram.h"
#include "x11testsupport.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTest>

#include <signal.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int deadline = 20000;

QString keySource(const QDBusConnection& bus)
{
    const QDBusMessage reply = DBusTest::callOn(bus, u"org.freedesktop.DBus.Properties"_s, u"Get"_s,
        { QString::fromLatin1(DBusTest::ordalisInterface), u"KeySource"_s });
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return {};
    return reply.arguments().constFirst().value<QDBusVariant>().variant().toString();
}

/** Runs an X client tool on `display`; its standard output. */
QString onDisplay(const QString& display, const QString& program, const QStringList& arguments)
{
    QProcess tool;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"DISPLAY"_s, display);
    tool.setProcessEnvironment(env);
    tool.start(program, arguments);
    tool.waitForFinished(deadline);
    return QString::fromUtf8(tool.readAllStandardOutput());
}

bool hasWindow(const QString& display, const QString& title)
{
    return onDisplay(display, u"xwininfo"_s, { u"-root"_s, u"-tree"_s }).contains(u'"' + title + u'"');
}

QList<qint64> helperPids(const QString& file)
{
    QFile pids(file);
    QList<qint64> result;
    if (pids.open(QIODevice::ReadOnly)) {
        for (const QByteArray& line : pids.readAll().split('\n')) {
            if (!line.isEmpty())
                result.append(line.toLongLong());
        }
    }
    return result;
}

} // namespace

class TestE2ESessions final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void waylandSessionReadsTheDevices();
    void x11SessionReadsX11();

private:
    /** Starts Ordalis with `env` on the private bus and waits for its D-Bus name. */
    bool startOrdalis(QProcessEnvironment env);

    OrdalisProgram::Home m_home;
    DBusTest::PrivateBus m_bus;
    X11Test::Helper m_ordalis;
};

void TestE2ESessions::initTestCase()
{
    for (const QString& tool : { u"weston"_s, u"Xwayland"_s, u"Xvfb"_s, u"xdotool"_s, u"xwininfo"_s }) {
        if (QStandardPaths::findExecutable(tool).isEmpty())
            QSKIP(qPrintable(tool + u" is missing (scripts/install-deps.sh installs it)"_s));
    }
    QVERIFY(m_home.create());
    QVERIFY(!m_bus.address().isEmpty());
}

bool TestE2ESessions::startOrdalis(QProcessEnvironment env)
{
    env.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, m_bus.address());
    m_ordalis = OrdalisProgram::start(env, m_home.path(u"out.txt"_s), m_home.path(u"err.txt"_s));
    if (!m_ordalis)
        return false;
    QDBusConnection bus = m_bus.connect();
    return QTest::qWaitFor([&] { return !keySource(bus).isEmpty(); }, deadline);
}

void TestE2ESessions::waylandSessionReadsTheDevices()
{
    // weston starts XWayland on the first X client and says on which display.
    const QString log = m_home.path(u"weston.log"_s);
    QProcessEnvironment env = m_home.environment();
    X11Test::Helper weston = X11Test::launch(u"weston"_s,
        { u"--backend=headless-backend.so"_s, u"--xwayland"_s, u"--socket=ordalis-test"_s, u"--idle-time=0"_s,
            u"--log="_s + log },
        env);
    QVERIFY(weston);
    QString display;
    QVERIFY(QTest::qWaitFor(
        [&] {
            QFile file(log);
            const QRegularExpressionMatch match
                = QRegularExpression(u"xserver listening on display (:\\d+)"_s)
                      .match(QString::fromUtf8(file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray()));
            display = match.captured(1);
            return !display.isEmpty();
        },
        deadline));

    // A stand-in for the helper that greets, notes its process id and waits for its input to close, as the helper
    // does; it needs no password and ignores the helper's path it is handed.
    const QString pids = m_home.path(u"helper-pids"_s);
    const QString launcher = m_home.path(u"launcher.sh"_s);
    QFile script(launcher);
    QVERIFY(script.open(QIODevice::WriteOnly));
    script.write(u"#!/bin/sh\necho $$ >> '%1'\nprintf '\\001\\000\\000\\000\\001\\000\\000\\000'\nexec cat >/dev/null\n"_s
                     .arg(pids)
                     .toUtf8());
    script.close();
    QVERIFY(script.setPermissions(script.permissions() | QFileDevice::ExeOwner));

    env.insert(u"XDG_SESSION_TYPE"_s, u"wayland"_s);
    env.insert(u"WAYLAND_DISPLAY"_s, u"ordalis-test"_s);
    env.insert(u"DISPLAY"_s, display);
    env.insert(u"ORDALIS_KEYHELPER_LAUNCHER"_s, launcher);
    env.remove(u"ORDALIS_INPUT"_s);
    QVERIFY(startOrdalis(env));
    QDBusConnection bus = m_bus.connect();

    // The window goes through XWayland; no keyboard is readable, so keys do not come until the user allows it.
    QTRY_VERIFY_WITH_TIMEOUT(hasWindow(display, u"Ordalis Keyboard"_s), deadline);
    QCOMPARE(keySource(bus), u"none"_s);
    const QString request = u"Ordalis needs permission to see which keys you press"_s;
    QTRY_VERIFY_WITH_TIMEOUT(hasWindow(display, request), deadline);

    // The user presses Return on the request: its default button allows key access. A headless XWayland has no
    // keyboard focus of its own and no pointer to move, so the key is sent to the request's window directly.
    const QString window = onDisplay(display, u"xdotool"_s, { u"search"_s, u"--name"_s, request }).split(u'\n').first();
    QVERIFY(!window.isEmpty());
    onDisplay(display, u"xdotool"_s, { u"key"_s, u"--window"_s, window, u"Return"_s });
    QTRY_COMPARE_WITH_TIMEOUT(keySource(bus), u"helper"_s, deadline);
    QVERIFY(!hasWindow(display, request));

    // A helper that dies is started once more; when that one dies too, keys stop and the user is told.
    QCOMPARE(helperPids(pids).size(), 1);
    ::kill(pid_t(helperPids(pids).constLast()), SIGKILL);
    QTRY_COMPARE_WITH_TIMEOUT(helperPids(pids).size(), 2, deadline);
    QTRY_COMPARE_WITH_TIMEOUT(keySource(bus), u"helper"_s, deadline);
    ::kill(pid_t(helperPids(pids).constLast()), SIGKILL);
    QTRY_COMPARE_WITH_TIMEOUT(keySource(bus), u"none"_s, deadline);
    QTRY_VERIFY_WITH_TIMEOUT(hasWindow(display, u"Ordalis cannot see which keys you press"_s), deadline);
    QTest::qWait(3000);
    QCOMPARE(helperPids(pids).size(), 2);

    m_ordalis->terminate();
    QVERIFY(m_ordalis->waitForFinished(deadline));
}

void TestE2ESessions::x11SessionReadsX11()
{
    QProcessEnvironment env = m_home.environment();
    // On the first free display, which it names on its standard output.
    X11Test::Helper xvfb = X11Test::launch(u"Xvfb"_s,
        { u"-displayfd"_s, u"1"_s, u"-screen"_s, u"0"_s, u"1280x800x24"_s, u"-nolisten"_s, u"tcp"_s }, env);
    QVERIFY(xvfb);
    QByteArray number;
    while (!number.endsWith('\n') && xvfb->waitForReadyRead(deadline))
        number += xvfb->readAllStandardOutput();
    QVERIFY(!number.trimmed().isEmpty());
    const QString display = u":"_s + QString::fromLatin1(number.trimmed());
    env.insert(u"DISPLAY"_s, display);
    env.remove(u"WAYLAND_DISPLAY"_s);
    env.insert(u"XDG_SESSION_TYPE"_s, u"x11"_s);
    env.remove(u"ORDALIS_INPUT"_s);
    QVERIFY(startOrdalis(env));
    QDBusConnection bus = m_bus.connect();
    QTRY_COMPARE_WITH_TIMEOUT(keySource(bus), u"x11"_s, deadline);
    QVERIFY(!hasWindow(display, u"Ordalis needs permission to see which keys you press"_s));
    m_ordalis->terminate();
    QVERIFY(m_ordalis->waitForFinished(deadline));
}

QTEST_GUILESS_MAIN(TestE2ESessions)
#include "teste2esessions.moc"
