// SPDX-License-Identifier: GPL-3.0-or-later
#include "dbustestsupport.h"
#include "input/privatemoments.h"
#include "testsupport.h"

#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <cstring>

#include <sys/prctl.h>
#include <xcb/xcb.h>

using namespace Qt::StringLiterals;

namespace {

const QString sessionPath = u"/org/freedesktop/login1/session/_32"_s;

/** logind's manager and session, or a screen saver at `path`: answers with `locked` however it is asked. */
class FakeLockService final : public QDBusVirtualObject
{
public:
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        QVariant answer;
        if (message.member() == "GetSessionByPID"_L1)
            answer = QVariant::fromValue(QDBusObjectPath(sessionPath));
        else if (message.member() == "Get"_L1 && message.path() == sessionPath)
            answer = QVariant::fromValue(QDBusVariant(locked));
        else if (message.member() == "GetActive"_L1 && message.path() == path)
            answer = locked;
        else
            return false;
        return connection.send(message.createReply(answer));
    }

    QString path;
    bool locked = false;
};

struct LockSource
{
    bool systemBus;
    QString service;
    QString path;
    QString interface;
};

/** An Xvfb of the test's own with a connection to it, standing in for the window manager and its clients. */
class XServer
{
public:
    XServer()
    {
        if (QStandardPaths::findExecutable(u"Xvfb"_s).isEmpty())
            return;
        m_server.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
        m_server.setStandardErrorFile(QProcess::nullDevice());
        m_server.start(u"Xvfb"_s, { u"-displayfd"_s, u"1"_s, u"-nolisten"_s, u"tcp"_s });
        while (!display.endsWith('\n') && m_server.waitForReadyRead(20000))
            display += m_server.readAllStandardOutput();
        display = ':' + display.trimmed();
        c = xcb_connect(display.constData(), nullptr);
        root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    }
    ~XServer() { stop(); }
    void stop()
    {
        if (c)
            xcb_disconnect(c);
        c = nullptr;
        m_server.terminate();
        m_server.waitForFinished(20000);
    }
    xcb_window_t window(const QByteArray& wmClass)
    {
        const xcb_window_t window = xcb_generate_id(c);
        xcb_create_window(c, XCB_COPY_FROM_PARENT, window, root, 0, 0, 10, 10, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
            XCB_COPY_FROM_PARENT, 0, nullptr);
        setClass(window, wmClass);
        return window;
    }
    /** "instance\0class\0", as toolkits write it. */
    void setClass(xcb_window_t window, const QByteArray& wmClass)
    {
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
            std::uint32_t(wmClass.size()), wmClass.constData());
        xcb_flush(c);
    }
    void setRootWindows(const char* property, const QList<xcb_window_t>& windows)
    {
        xcb_intern_atom_reply_t* atom
            = xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, std::uint16_t(std::strlen(property)), property), nullptr);
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, root, atom->atom, XCB_ATOM_WINDOW, 32,
            std::uint32_t(windows.size()), windows.constData());
        std::free(atom);
        xcb_flush(c);
    }

    QByteArray display;
    xcb_connection_t* c = nullptr;
    xcb_window_t root = 0;

private:
    QProcess m_server;
};

} // namespace

Q_DECLARE_METATYPE(LockSource)

class TestPrivateMoments : public QObject
{
    Q_OBJECT

private slots:
    void passwordPrompts_data()
    {
        QTest::addColumn<QString>("instance");
        QTest::addColumn<QString>("windowClass");
        QTest::addColumn<bool>("prompt");
        QTest::newRow("gnome polkit agent")
            << u"polkit-gnome-authentication-agent-1"_s << u"Polkit-gnome-authentication-agent-1"_s << true;
        QTest::newRow("kde polkit agent by class") << u"x"_s << u"polkit-kde-authentication-agent-1"_s << true;
        QTest::newRow("lxqt policykit agent") << u"lxqt-policykit-agent"_s << QString() << true;
        QTest::newRow("xfce-polkit upper case") << u"XFCE-POLKIT"_s << QString() << true;
        QTest::newRow("gcr-prompter") << u"gcr-prompter"_s << u"Gcr-prompter"_s << true;
        QTest::newRow("pinentry variant") << u"pinentry-gtk-2"_s << u"Pinentry-gtk-2"_s << true;
        QTest::newRow("pinentry app id") << QString() << u"org.gnupg.pinentry-qt"_s << true;
        QTest::newRow("x11-ssh-askpass") << u"x11-ssh-askpass"_s << u"X11-ssh-askpass"_s << true;
        QTest::newRow("ksshaskpass") << u"ksshaskpass"_s << u"ksshaskpass"_s << true;
        QTest::newRow("polkit without agent") << u"polkit-explorer"_s << QString() << false;
        QTest::newRow("askpass not at the end") << u"ssh-askpass-helper"_s << QString() << false;
        QTest::newRow("a terminal") << u"xterm"_s << u"XTerm"_s << false;
        QTest::newRow("no class") << QString() << QString() << false;
    }

    void passwordPrompts()
    {
        QFETCH(QString, instance);
        QFETCH(QString, windowClass);
        QFETCH(bool, prompt);
        QCOMPARE(PrivateMoments::isPasswordPrompt(instance, windowClass), prompt);
    }

    void privateAppMatch_data()
    {
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<QString>("instance");
        QTest::addColumn<QString>("windowClass");
        QTest::addColumn<QString>("match");
        const QStringList defaults { u"KeePassXC"_s, u"Bitwarden"_s, u"1Password"_s, u"Seahorse"_s };
        QStringList many(PrivateMoments::maxAppClasses, u"other"_s);
        QTest::newRow("class, other case") << defaults << u"keepassxc"_s << u"KEEPASSXC"_s << u"KeePassXC"_s;
        QTest::newRow("instance") << defaults << u"1password"_s << u"Other"_s << u"1Password"_s;
        QTest::newRow("entry trimmed") << QStringList { u"  Firefox\t"_s } << u"Navigator"_s << u"firefox"_s
                                       << u"Firefox"_s;
        QTest::newRow("no partial names") << defaults << u"keepass"_s << u"KeePassXC-Browser"_s << QString();
        QTest::newRow("empty entry, empty class")
            << QStringList { QString(), u"  "_s } << QString() << QString() << QString();
        QTest::newRow("huge entry") << QStringList { QString(PrivateMoments::maxAppClassLength + 1, u'a') }
                                    << QString(PrivateMoments::maxAppClassLength + 1, u'a') << QString() << QString();
        QTest::newRow("longest entry") << QStringList { QString(PrivateMoments::maxAppClassLength, u'a') }
                                       << QString(PrivateMoments::maxAppClassLength, u'a') << QString()
                                       << QString(PrivateMoments::maxAppClassLength, u'a');
        QTest::newRow("last entry looked at")
            << (QStringList(many.first(many.size() - 1)) << u"Late"_s) << u"late"_s << QString() << u"Late"_s;
        QTest::newRow("entry past the limit")
            << (QStringList(many) << u"Late"_s) << u"late"_s << QString() << QString();
    }

    void privateAppMatch()
    {
        QFETCH(QStringList, entries);
        QFETCH(QString, instance);
        QFETCH(QString, windowClass);
        QFETCH(QString, match);
        QCOMPARE(PrivateMoments::privateAppMatch(entries, instance, windowClass), match);
    }

    void lockSources_data()
    {
        QTest::addColumn<LockSource>("source");
        QTest::newRow("logind") << LockSource { true, u"org.freedesktop.login1"_s, sessionPath,
            u"org.freedesktop.login1.Session"_s };
        QTest::newRow("freedesktop screen saver") << LockSource { false, u"org.freedesktop.ScreenSaver"_s,
            u"/org/freedesktop/ScreenSaver"_s, u"org.freedesktop.ScreenSaver"_s };
        QTest::newRow("short screen saver path") << LockSource { false, u"org.freedesktop.ScreenSaver"_s,
            u"/ScreenSaver"_s, u"org.freedesktop.ScreenSaver"_s };
        QTest::newRow("gnome screen saver") << LockSource { false, u"org.gnome.ScreenSaver"_s,
            u"/org/gnome/ScreenSaver"_s, u"org.gnome.ScreenSaver"_s };
    }

    void lockSources()
    {
        QFETCH(LockSource, source);
        DBusTest::PrivateBus sessionBus;
        DBusTest::PrivateBus systemBus;
        if (sessionBus.address().isEmpty() || systemBus.address().isEmpty())
            QSKIP("no dbus-daemon");
        QDBusConnection service = (source.systemBus ? systemBus : sessionBus).connect();
        FakeLockService fake;
        fake.path = source.path;
        fake.locked = true;
        QVERIFY(service.registerVirtualObject(u"/"_s, &fake, QDBusConnection::SubPath));
        QVERIFY(service.registerService(source.service));

        TestSupport::TemporaryStore settings;
        PrivateMomentWatcher watcher(*settings, { systemBus.connect(), sessionBus.connect(), false });
        QSignalSpy changed(&watcher, &PrivateMomentWatcher::changed);
        watcher.start();
        // Locked before we looked: the first answer says so.
        QTRY_COMPARE(watcher.active(), quint8(PrivateMoment::screenLocked));
        QCOMPARE(watcher.reasons(), QStringList { u"screen locked"_s });
        QCOMPARE(changed.count(), 1);

        const auto report = [&](const QVariant& locked) {
            const bool logind = source.interface.endsWith("Session"_L1);
            QDBusMessage signal = QDBusMessage::createSignal(source.path,
                logind ? u"org.freedesktop.DBus.Properties"_s : source.interface,
                logind ? u"PropertiesChanged"_s : u"ActiveChanged"_s);
            signal.setArguments(logind
                    ? QVariantList { source.interface, QVariantMap { { u"LockedHint"_s, locked } }, QStringList() }
                    : QVariantList { locked });
            QVERIFY(service.send(signal));
        };
        report(false);
        QTRY_COMPARE(watcher.active(), 0);
        QVERIFY(watcher.reasons().isEmpty());
        report(true);
        QTRY_COMPARE(watcher.active(), quint8(PrivateMoment::screenLocked));

        // Reports of another type are passed over (both would read as unlocked if taken).
        report(u"no"_s);
        report(0);
        QTest::qWait(50);
        QCOMPARE(watcher.active(), quint8(PrivateMoment::screenLocked));
        QCOMPARE(changed.count(), 3);

        // Switched off, the lock counts for nothing at once; back on, it counts again.
        settings->setValue(SettingKeys::pauseWhenLocked(), false);
        QCOMPARE(watcher.active(), 0);
        settings->setValue(SettingKeys::pauseWhenLocked(), true);
        QCOMPARE(watcher.reasons(), QStringList { u"screen locked"_s });
        QCOMPARE(changed.count(), 5);

        // Gone while locked: unlocked. Back, it is asked again.
        QVERIFY(service.unregisterService(source.service));
        QTRY_COMPARE(watcher.active(), 0);
        QVERIFY(service.registerService(source.service));
        QTRY_COMPARE(watcher.active(), quint8(PrivateMoment::screenLocked));
        QCOMPARE(changed.count(), 7);
    }

    void keyringPrompter_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("system prompter") << u"org.gnome.keyring.SystemPrompter"_s;
        QTest::newRow("private prompter") << u"org.gnome.keyring.PrivatePrompter"_s;
    }

    void keyringPrompter()
    {
        QFETCH(QString, name);
        DBusTest::PrivateBus sessionBus;
        if (sessionBus.address().isEmpty())
            QSKIP("no dbus-daemon");
        TestSupport::TemporaryStore settings;
        PrivateMomentWatcher watcher(*settings, { QDBusConnection(QString()), sessionBus.connect(), false });
        QSignalSpy changed(&watcher, &PrivateMomentWatcher::changed);
        watcher.start();
        QDBusConnection prompter = sessionBus.connect();
        QVERIFY(prompter.registerService(name));
        QTRY_COMPARE(watcher.reasons(), QStringList { u"password prompt open"_s });
        settings->setValue(SettingKeys::pauseForPasswordPrompts(), false);
        QCOMPARE(watcher.active(), 0);
        settings->setValue(SettingKeys::pauseForPasswordPrompts(), true);
        QVERIFY(prompter.unregisterService(name));
        QTRY_COMPARE(watcher.active(), 0);
        QCOMPARE(changed.count(), 4);
    }

    void x11Windows()
    {
        XServer x;
        if (!x.c || xcb_connection_has_error(x.c))
            QSKIP("no Xvfb");
        const QByteArray display = qgetenv("DISPLAY");
        qputenv("DISPLAY", x.display);
        const xcb_window_t vault = x.window("keepassxc\0KeePassXC\0"_ba);
        const xcb_window_t terminal = x.window("xterm\0XTerm\0"_ba);
        const xcb_window_t pinentry = x.window("pinentry-gtk-2\0Pinentry-gtk-2\0"_ba);
        x.setRootWindows("_NET_CLIENT_LIST", { vault, terminal });
        x.setRootWindows("_NET_ACTIVE_WINDOW", { vault });

        TestSupport::TemporaryStore settings;
        const QDBusConnection noBus(QString {});
        PrivateMomentWatcher watcher(*settings, { noBus, noBus, true });
        watcher.start();
        qputenv("DISPLAY", display);
        constexpr auto privateApp = quint8(PrivateMoment::privateApp);
        constexpr auto prompt = quint8(PrivateMoment::passwordPrompt);
        QCOMPARE(watcher.active(), privateApp);
        QCOMPARE(watcher.reasons(), QStringList { u"KeePassXC has the focus"_s });

        x.setRootWindows("_NET_ACTIVE_WINDOW", { terminal });
        QTRY_COMPARE(watcher.active(), 0);
        settings->setValue(SettingKeys::privateAppClasses(), { u" XTERM "_s });
        QCOMPARE(watcher.reasons(), QStringList { u"XTERM has the focus"_s });
        x.setClass(terminal, "urxvt\0URxvt\0"_ba);
        QTRY_COMPARE(watcher.active(), 0);

        // A prompt counts from when it is listed, whether focused or not, until it leaves the list.
        x.setRootWindows("_NET_CLIENT_LIST", { vault, terminal, pinentry });
        QTRY_COMPARE(watcher.active(), prompt);
        QCOMPARE(watcher.reasons(), QStringList { u"password prompt open"_s });
        x.setClass(pinentry, "gvim\0Gvim\0"_ba);
        QTRY_COMPARE(watcher.active(), 0);
        x.setClass(pinentry, "gcr-prompter\0Gcr-prompter\0"_ba);
        QTRY_COMPARE(watcher.active(), prompt);
        x.setRootWindows("_NET_CLIENT_LIST", { vault });
        QTRY_COMPARE(watcher.active(), 0);

        // A destroyed window is neither open nor focused, whatever the window manager left behind.
        settings->remove(SettingKeys::privateAppClasses());
        x.setRootWindows("_NET_CLIENT_LIST", { vault, pinentry });
        x.setRootWindows("_NET_ACTIVE_WINDOW", { vault });
        QTRY_COMPARE(watcher.active(), privateApp | prompt);
        QCOMPARE(watcher.reasons(), (QStringList { u"password prompt open"_s, u"KeePassXC has the focus"_s }));
        xcb_destroy_window(x.c, vault);
        xcb_destroy_window(x.c, pinentry);
        xcb_flush(x.c);
        QTRY_COMPARE(watcher.active(), 0);

        // So is every window of a server that went away.
        x.setRootWindows("_NET_ACTIVE_WINDOW", { terminal });
        x.setClass(terminal, "keepassxc\0KeePassXC\0"_ba);
        QTRY_COMPARE(watcher.active(), privateApp);
        x.stop();
        QTRY_COMPARE(watcher.active(), 0);
    }
};

QTEST_GUILESS_MAIN(TestPrivateMoments)
#include "testprivatemoments.moc"
