// SPDX-License-Identifier: GPL-3.0-or-later
// The real program in the two kinds of session a user has. In a Wayland session (a headless weston with XWayland)
// its window goes through XWayland while keys come from the devices: with none readable it asks once for key access,
// the user's Return on "Allow Key Access…" starts the key helper (its test build, reading a named pipe that stands
// in for a keyboard), a key pressed on that keyboard lights its cap, and a helper that keeps dying lets go of the
// keys, is restarted once, then reported. Under a plain X server the same binary reads keys from X11.
#include "dbustestsupport.h"
#include "ordalisprogram.h"
#include "x11testsupport.h"

#include <QColor>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTest>

#include <fcntl.h>
#include <linux/input.h>
#include <signal.h>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <xcb/xcb.h>

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

/** The colour of one pixel of `window` on `display`; invalid when it cannot be read. */
QColor pixel(const QString& display, const QString& window, QPoint at)
{
    xcb_connection_t* c = xcb_connect(display.toLatin1().constData(), nullptr);
    QColor colour;
    if (!xcb_connection_has_error(c)) {
        xcb_get_image_reply_t* image = xcb_get_image_reply(c,
            xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, xcb_window_t(window.toUInt()), std::int16_t(at.x()),
                std::int16_t(at.y()), 1, 1, ~0U),
            nullptr);
        if (image && xcb_get_image_data_length(image) >= 4) {
            quint32 value;
            std::memcpy(&value, xcb_get_image_data(image), 4);
            colour = QColor::fromRgb(QRgb(value));
        }
        std::free(image);
    }
    xcb_disconnect(c);
    return colour;
}

/** Writes what a keyboard sends: the key event and the report that closes it. */
void type(int fd, int code, int value)
{
    input_event events[2] {};
    events[0].type = EV_KEY;
    events[0].code = quint16(code);
    events[0].value = value;
    events[1].type = EV_SYN;
    events[1].code = SYN_REPORT;
    QVERIFY(::write(fd, events, sizeof events) == ssize_t(sizeof events));
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

    // A keyboard for the helper's test build: a named pipe with the keys it has (A, Z, space) and none held. It
    // stays open here for writing, so what is written waits for the helper.
    const QString devices = m_home.path(u"devices"_s);
    QVERIFY(QDir().mkpath(devices));
    const QByteArray keyboard = QFile::encodeName(devices + u"/event0"_s);
    QCOMPARE(::mkfifo(keyboard.constData(), 0600), 0);
    const int device = ::open(keyboard.constData(), O_RDWR | O_CLOEXEC);
    QVERIFY(device >= 0);
    QByteArray header(2 * 96 + 1, '\0');
    for (int code : { KEY_A, KEY_Z, KEY_SPACE })
        header[code / 8] = char(header[code / 8] | 1 << code % 8);
    QCOMPARE(::write(device, header.constData(), std::size_t(header.size())), ssize_t(header.size()));

    // Started as pkexec would start the helper, but without a password; it notes its process id.
    const QString pids = m_home.path(u"helper-pids"_s);
    const QString launcher = m_home.path(u"launcher.sh"_s);
    QFile script(launcher);
    QVERIFY(script.open(QIODevice::WriteOnly));
    script.write(u"#!/bin/sh\necho $$ >> '%1'\nexec '%2' --device-dir '%3'\n"_s
                     .arg(pids, QStringLiteral(ORDALIS_KEYHELPER_TESTING_BINARY), devices)
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

    // A key pressed on the keyboard lights its cap (amber in the default theme) and goes dark when let go.
    const QString panel
        = onDisplay(display, u"xdotool"_s, { u"search"_s, u"--name"_s, u"Ordalis Keyboard"_s }).split(u'\n').first();
    const QPoint capA(128, 190);
    const auto lit = [&] { return pixel(display, panel, capA).red() > 150; };
    const auto dark = [&] { const QColor c = pixel(display, panel, capA); return c.isValid() && c.red() < 80; };
    QTRY_VERIFY_WITH_TIMEOUT(dark(), deadline);
    type(device, KEY_A, 1);
    QTRY_VERIFY_WITH_TIMEOUT(lit(), deadline);
    type(device, KEY_A, 0);
    QTRY_VERIFY_WITH_TIMEOUT(dark(), deadline);

    // A helper that dies with a key held lets go of it and is started once more; when that one dies too, keys stop
    // and the user is told, once.
    type(device, KEY_A, 1);
    QTRY_VERIFY_WITH_TIMEOUT(lit(), deadline);
    QCOMPARE(helperPids(pids).size(), 1);
    ::kill(pid_t(helperPids(pids).constLast()), SIGKILL);
    QTRY_VERIFY_WITH_TIMEOUT(dark(), deadline);
    QTRY_COMPARE_WITH_TIMEOUT(helperPids(pids).size(), 2, deadline);
    QTRY_COMPARE_WITH_TIMEOUT(keySource(bus), u"helper"_s, deadline);
    ::kill(pid_t(helperPids(pids).constLast()), SIGKILL);
    QTRY_COMPARE_WITH_TIMEOUT(keySource(bus), u"none"_s, deadline);
    QTRY_VERIFY_WITH_TIMEOUT(hasWindow(display, u"Ordalis cannot see which keys you press"_s), deadline);
    QTest::qWait(3000);
    QCOMPARE(helperPids(pids).size(), 2);
    ::close(device);

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
