// SPDX-License-Identifier: GPL-3.0-or-later
// Runs the X11 back end against a private Xvfb and types with xdotool (XTEST), as a user would.
#include "input/inputbackendfactory.h"
#include "input/x11backend.h"

#include <QGuiApplication>
#include <QProcess>
#include <QScopeGuard>
#include <QSet>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>
// WORKAROUND: xcb/xkb.h names a struct field `explicit`, which is a keyword in C++ (libxcb 1.15).
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

using namespace Qt::StringLiterals;

namespace {

constexpr int timeout = 10000;

/** Starts an Xvfb of our own on the first free display, which it picks itself (-displayfd); -1 when it cannot. */
pid_t startXvfb(QByteArray& display)
{
    int fds[2];
    if (QStandardPaths::findExecutable(u"Xvfb"_s).isEmpty() || ::pipe(fds) != 0)
        return -1;
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(fds[1], 3);
        const int devNull = ::open("/dev/null", O_WRONLY);
        ::dup2(devNull, STDOUT_FILENO);
        ::dup2(devNull, STDERR_FILENO);
        ::execlp("Xvfb", "Xvfb", "-displayfd", "3", "-nolisten", "tcp", "-screen", "0", "800x600x24", nullptr);
        ::_exit(127);
    }
    ::close(fds[1]);
    pollfd pfd { fds[0], POLLIN, 0 };
    char c = 0;
    while (pid > 0 && ::poll(&pfd, 1, 20000) > 0 && ::read(fds[0], &c, 1) == 1 && c != '\n')
        display.append(c);
    ::close(fds[0]);
    if (!display.isEmpty())
        display.prepend(':');
    return pid;
}

/** A second X client: a focused window standing for "the application the user is typing into". */
class OtherClient final
{
public:
    OtherClient()
        : m_c(xcb_connect(nullptr, nullptr))
    {
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_c)).data;
        m_root = screen->root;
        const xcb_window_t window = xcb_generate_id(m_c);
        const std::uint32_t events = XCB_EVENT_MASK_KEY_PRESS;
        xcb_create_window(m_c, XCB_COPY_FROM_PARENT, window, m_root, 0, 0, 100, 100, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
            screen->root_visual, XCB_CW_EVENT_MASK, &events);
        xcb_map_window(m_c, window);
        xcb_set_input_focus(m_c, XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
        roundTrip();
    }

    ~OtherClient() { xcb_disconnect(m_c); }

    /** Takes the KeyPress events received so far, as X keycodes. */
    QList<int> keyPresses()
    {
        while (xcb_generic_event_t* event = xcb_poll_for_event(m_c)) {
            if ((event->response_type & 0x7f) == XCB_KEY_PRESS)
                m_presses << reinterpret_cast<xcb_key_press_event_t*>(event)->detail;
            std::free(event);
        }
        return m_presses;
    }

    /** Grabs Escape with any modifiers, as a desktop shell holding it would, or lets it go; true if granted. */
    bool grabEscape(bool grab)
    {
        xcb_generic_error_t* error = xcb_request_check(m_c,
            grab ? xcb_grab_key_checked(m_c, 1, m_root, XCB_MOD_MASK_ANY, 9, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)
                 : xcb_ungrab_key_checked(m_c, 9, m_root, XCB_MOD_MASK_ANY));
        std::free(error);
        return !error;
    }

    /** Locks or unlocks Caps Lock as a remote tool would, without any key. */
    void lockCaps(bool on)
    {
        std::free(xcb_xkb_use_extension_reply(m_c, xcb_xkb_use_extension(m_c, 1, 0), nullptr));
        xcb_xkb_latch_lock_state(
            m_c, XCB_XKB_ID_USE_CORE_KBD, XCB_MOD_MASK_LOCK, on ? XCB_MOD_MASK_LOCK : 0, 0, 0, 0, 0, 0);
        roundTrip();
    }

private:
    // So that the server has seen every request before anyone else acts on it.
    void roundTrip() { std::free(xcb_get_input_focus_reply(m_c, xcb_get_input_focus(m_c), nullptr)); }

    xcb_connection_t* m_c;
    xcb_window_t m_root = 0;
    QList<int> m_presses;
};

} // namespace

class TestX11Backend final : public QObject
{
    Q_OBJECT

public:
    explicit TestX11Backend(bool haveServer)
        : m_haveServer(haveServer)
    {
    }

private slots:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();

    void factoryChoosesX11OnXcb();
    void typing_data();
    void typing();
    void capsLockKeyAndLock();
    void swallowedShortcuts();
    void grabHeldByAnotherClient();

private:
    /** Types `command` (xdotool words, several commands in a row) and waits for exactly `reports`. */
    bool typed(const QString& command, const QStringList& reports)
    {
        m_lines.clear();
        if (QProcess::execute(u"xdotool"_s, command.split(u' ')) != 0)
            return false;
        if (QTest::qWaitFor([&] { return m_lines == reports; }, timeout))
            return true;
        qWarning("after \"%s\": %s", qPrintable(command), qPrintable(m_lines.join(u", ")));
        return false;
    }

    bool m_haveServer;
    std::unique_ptr<X11Backend> m_backend;
    QStringList m_lines;
    QSet<KeyCode> m_held;
    ModifierFlags m_flags = 0;
};

void TestX11Backend::initTestCase()
{
    if (!m_haveServer) {
        // Then the test runs on the offscreen platform, where the back end must decline quietly.
        X11Backend offscreen;
        QCOMPARE(offscreen.access(), InputBackend::Access::unavailable);
        QVERIFY(!offscreen.start());
        QVERIFY(!offscreen.capsLockOn());
        offscreen.setSwallowedShortcuts(true, true);
        QVERIFY(!offscreen.escapeGrabbed());
        QSKIP("Xvfb is not installed or did not start");
    }
    if (QStandardPaths::findExecutable(u"xdotool"_s).isEmpty())
        QSKIP("xdotool is not installed");
    QCOMPARE(QGuiApplication::platformName(), u"xcb"_s);

    m_backend = std::make_unique<X11Backend>();
    QCOMPARE(m_backend->access(), InputBackend::Access::granted);
    QVERIFY(m_backend->accessHelp().isEmpty());

    X11Backend* b = m_backend.get();
    connect(b, &InputBackend::keyDown, this, [this](KeyCode k) {
        m_lines << u"down %1"_s.arg(k);
        m_held.insert(k);
    });
    connect(b, &InputBackend::keyUp, this, [this](KeyCode k) {
        m_lines << u"up %1"_s.arg(k);
        m_held.remove(k);
    });
    connect(b, &InputBackend::capsLockKey, this, [this](bool pressed) {
        m_lines << (pressed ? u"caps down"_s : u"caps up"_s);
        if (pressed)
            m_held.insert(57);
        else
            m_held.remove(57);
    });
    connect(b, &InputBackend::flagsChanged, this, [this](ModifierFlags f, KeyCode k) {
        m_lines << u"flags %1 %2"_s.arg(f, 0, 16).arg(k);
        m_flags = f;
    });
    connect(b, &InputBackend::mediaKey, this,
        [this](KeyCode k, bool pressed) { m_lines << u"media %1 %2"_s.arg(k).arg(pressed ? u"down"_s : u"up"_s); });
    QVERIFY(m_backend->start());
    QVERIFY(m_backend->start());
}

void TestX11Backend::cleanup()
{
    // Every test ends with nothing held, and reports nothing more after that.
    QVERIFY2(m_held.isEmpty(), qPrintable(m_lines.join(u", ")));
    QCOMPARE(m_flags & ModifierFlag::heldModifiers, ModifierFlags(0));
    m_lines.clear();
}

void TestX11Backend::cleanupTestCase()
{
    if (m_backend) {
        m_backend->stop();
        QVERIFY(!m_backend->escapeGrabbed());
    }
    m_backend.reset();
}

void TestX11Backend::factoryChoosesX11OnXcb()
{
    QCOMPARE(createInputBackend()->name(), u"x11"_s);
    qputenv("ORDALIS_INPUT", "evdev");
    QCOMPARE(createInputBackend()->name(), u"devices"_s);
    qputenv("ORDALIS_INPUT", "x11");
    QCOMPARE(createInputBackend()->name(), u"x11"_s);
    qunsetenv("ORDALIS_INPUT");
    // Through XWayland the X server hears only of keys typed into X windows: a Wayland session reads the devices.
    qputenv("WAYLAND_DISPLAY", "wayland-0");
    QCOMPARE(createInputBackend()->name(), u"devices"_s);
    qunsetenv("WAYLAND_DISPLAY");
    qputenv("XDG_SESSION_TYPE", "wayland");
    QCOMPARE(createInputBackend()->name(), u"devices"_s);
    qunsetenv("XDG_SESSION_TYPE");
}

void TestX11Backend::typing_data()
{
    // Each step: the xdotool commands, '|', and the reports they must cause.
    QTest::addColumn<QStringList>("steps");

    QTest::newRow("Letters and arrows") << QStringList { u"keydown a|down 0"_s, u"keyup a|up 0"_s,
        u"key s Left|down 1,up 1,down 123,up 123"_s };
    QTest::newRow("Media keys show on their F-key")
        << QStringList { u"key XF86AudioPlay XF86AudioRaiseVolume|media 100 down,media 100 up,media 111 down,"
                         "media 111 up"_s };
    // Held well past the server's auto-repeat delay: raw events are not repeated.
    QTest::newRow("A held key is reported once") << QStringList { u"keydown d sleep 1.2 keyup d|down 2,up 2"_s };
    QTest::newRow("Super with Shift held adds the Command bits, and a letter under both is an ordinary key")
        << QStringList { u"keydown Shift_L|flags 20002 56"_s, u"keydown Super_L|flags 12000a 55"_s,
               u"key z|down 6,up 6"_s, u"keyup Super_L|flags 20002 55"_s, u"keyup Shift_L|flags 0 56"_s };
}

void TestX11Backend::typing()
{
    QFETCH(QStringList, steps);
    for (const QString& step : std::as_const(steps))
        QVERIFY(typed(step.section(u'|', 0, 0), step.section(u'|', 1).split(u',')));
}

void TestX11Backend::capsLockKeyAndLock()
{
    QVERIFY(!m_backend->capsLockOn());
    // xdotool sends the release of Caps Lock twice; it is reported once.
    QVERIFY(QProcess::execute(u"xdotool"_s, { u"key"_s, u"Caps_Lock"_s }) == 0);
    QTRY_VERIFY_WITH_TIMEOUT(m_lines.contains(u"caps up"_s) && m_lines.contains(u"flags 10000 57"_s), timeout);
    QVERIFY(m_backend->capsLockOn());
    QCOMPARE(m_lines.filter(u"caps"_s), (QStringList { u"caps down"_s, u"caps up"_s }));

    // The lock bit goes with every later modifier report.
    QVERIFY(typed(u"keydown Control_L keyup Control_L"_s, { u"flags 50001 59"_s, u"flags 10000 59"_s }));

    // A lock set without the key (another client, a remote tool) shows as well.
    m_lines.clear();
    OtherClient other;
    other.lockCaps(false);
    QTRY_COMPARE_WITH_TIMEOUT(m_lines, QStringList { u"flags 0 57"_s }, timeout);
    other.lockCaps(true);
    QTRY_COMPARE_WITH_TIMEOUT(m_lines, (QStringList { u"flags 0 57"_s, u"flags 10000 57"_s }), timeout);

    m_lines.clear();
    QVERIFY(QProcess::execute(u"xdotool"_s, { u"key"_s, u"Caps_Lock"_s }) == 0);
    QTRY_VERIFY_WITH_TIMEOUT(m_lines.contains(u"caps up"_s) && m_lines.contains(u"flags 0 57"_s), timeout);
    QVERIFY(!m_backend->capsLockOn());
    QCOMPARE(m_lines.filter(u"caps"_s), (QStringList { u"caps down"_s, u"caps up"_s }));
}

void TestX11Backend::swallowedShortcuts()
{
    OtherClient other;
    m_backend->setSwallowedShortcuts(true, true);
    QVERIFY(m_backend->escapeGrabbed());
    QVERIFY(m_backend->settingsShortcutGrabbed());

    // The grab keeps the raw release of Escape from us, and every raw event while Escape is down; the core
    // events of the grab stand in for them.
    QVERIFY(typed(
        u"keydown Escape keydown a keyup a keyup Escape"_s, { u"down 53"_s, u"down 0"_s, u"up 0"_s, u"up 53"_s }));
    // Held past the auto-repeat delay, the grabbed key neither repeats nor goes up early, although the core events
    // of the grab repeat it as release-press pairs.
    QVERIFY(typed(u"keydown Escape sleep 1.2 keyup Escape"_s, { u"down 53"_s, u"up 53"_s }));
    QVERIFY(typed(u"keydown Super_L key comma keyup Super_L"_s,
        { u"flags 100008 55"_s, u"down 43"_s, u"up 43"_s, u"flags 0 55"_s }));

    // The focused application saw neither Escape nor Super+comma, but the other keys.
    QVERIFY(typed(u"key b"_s, { u"down 11"_s, u"up 11"_s }));
    QTRY_VERIFY_WITH_TIMEOUT(other.keyPresses().contains(56), timeout);
    QCOMPARE(other.keyPresses(), (QList<int> { 133, 56 }));

    // Once let go, Escape reaches the application again, and still shows.
    m_backend->setSwallowedShortcuts(false, false);
    QVERIFY(!m_backend->escapeGrabbed());
    QVERIFY(!m_backend->settingsShortcutGrabbed());
    QVERIFY(typed(u"key Escape"_s, { u"down 53"_s, u"up 53"_s }));
    QTRY_VERIFY_WITH_TIMEOUT(other.keyPresses().contains(9), timeout);
}

void TestX11Backend::grabHeldByAnotherClient()
{
    OtherClient other;
    QVERIFY(other.grabEscape(true));
    // Refused quietly: no error on the way, nothing grabbed, and Escape still shows.
    m_backend->setSwallowedShortcuts(true, false);
    QVERIFY(!m_backend->escapeGrabbed());
    QVERIFY(typed(u"key Escape"_s, { u"down 53"_s, u"up 53"_s }));

    // Asking again after the holder let go gets the grab.
    QVERIFY(other.grabEscape(false));
    m_backend->setSwallowedShortcuts(true, false);
    QVERIFY(m_backend->escapeGrabbed());
    m_backend->setSwallowedShortcuts(false, false);
}

int main(int argc, char** argv)
{
    // Before anything connects to a display: the test brings its own and never touches the user's.
    QByteArray display;
    const pid_t xvfb = startXvfb(display);
    const auto stopXvfb = qScopeGuard([xvfb] {
        if (xvfb > 0 && ::kill(xvfb, SIGTERM) == 0)
            ::waitpid(xvfb, nullptr, 0);
    });
    QTemporaryDir runtimeDir;
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtimeDir.path()));
    qputenv("QT_QPA_PLATFORM", display.isEmpty() ? "offscreen" : "xcb");
    if (!display.isEmpty())
        qputenv("DISPLAY", display);
    QGuiApplication app(argc, argv);
    TestX11Backend test(!display.isEmpty());
    return QTest::qExec(&test, argc, argv);
}

#include "testx11backend.moc"
