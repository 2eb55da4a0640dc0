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

/** An Xvfb of our own on the first free display, which it picks itself (-displayfd). */
class Xvfb final
{
public:
    Xvfb()
    {
        if (QStandardPaths::findExecutable(u"Xvfb"_s).isEmpty())
            return;
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0)
            return;
        m_pid = ::fork();
        if (m_pid == 0) {
            // dup2 clears close-on-exec on the copy, unless it is the same descriptor.
            if (fds[1] == 3)
                ::fcntl(3, F_SETFD, 0);
            else
                ::dup2(fds[1], 3);
            const int devNull = ::open("/dev/null", O_WRONLY);
            ::dup2(devNull, STDOUT_FILENO);
            ::dup2(devNull, STDERR_FILENO);
            ::execlp("Xvfb", "Xvfb", "-displayfd", "3", "-nolisten", "tcp", "-screen", "0", "800x600x24", nullptr);
            ::_exit(127);
        }
        ::close(fds[1]);
        if (m_pid > 0)
            m_display = readDisplay(fds[0]);
        ::close(fds[0]);
    }

    ~Xvfb()
    {
        if (m_pid > 0) {
            ::kill(m_pid, SIGTERM);
            ::waitpid(m_pid, nullptr, 0);
        }
    }

    Q_DISABLE_COPY_MOVE(Xvfb)

    /** ":N", or empty when no server could be started. */
    QByteArray display() const { return m_display; }

private:
    static QByteArray readDisplay(int fd)
    {
        QByteArray number;
        pollfd pfd { fd, POLLIN, 0 };
        char c = 0;
        while (::poll(&pfd, 1, 20000) > 0 && ::read(fd, &c, 1) == 1 && c != '\n')
            number.append(c);
        return number.isEmpty() ? QByteArray() : ':' + number;
    }

    pid_t m_pid = -1;
    QByteArray m_display;
};

/** A second X client: a focused window standing for "the application the user is typing into". */
class OtherClient final
{
public:
    OtherClient()
    {
        m_c = xcb_connect(nullptr, nullptr);
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_c)).data;
        m_root = screen->root;
        m_window = xcb_generate_id(m_c);
        const std::uint32_t events = XCB_EVENT_MASK_KEY_PRESS;
        xcb_create_window(m_c, XCB_COPY_FROM_PARENT, m_window, m_root, 0, 0, 100, 100, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
            screen->root_visual, XCB_CW_EVENT_MASK, &events);
        xcb_map_window(m_c, m_window);
        xcb_set_input_focus(m_c, XCB_INPUT_FOCUS_POINTER_ROOT, m_window, XCB_CURRENT_TIME);
        std::free(xcb_get_input_focus_reply(m_c, xcb_get_input_focus(m_c), nullptr));
    }

    ~OtherClient() { xcb_disconnect(m_c); }

    Q_DISABLE_COPY_MOVE(OtherClient)

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

    /** Grabs Escape in every lock state, as a desktop shell holding it would; true if all were granted. */
    bool grabEscape(bool grab)
    {
        bool granted = true;
        for (int mods : { 0, int(XCB_MOD_MASK_LOCK), int(XCB_MOD_MASK_2), XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2 }) {
            if (!grab) {
                xcb_ungrab_key(m_c, 9, m_root, mods);
                continue;
            }
            xcb_generic_error_t* error = xcb_request_check(
                m_c, xcb_grab_key_checked(m_c, 1, m_root, mods, 9, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
            granted = granted && !error;
            std::free(error);
        }
        // A round trip, so that the server has seen all of the above before anyone else asks for the same grab.
        std::free(xcb_get_input_focus_reply(m_c, xcb_get_input_focus(m_c), nullptr));
        return granted;
    }

    /**
     * Takes `keycode` out of the modifier map; returns the map as it was, for setModifierMap().
     *
     * WORKAROUND: xdotool (3.20160805) presses and releases the first key of a modifier's row together with any
     * key that is in that row, so "keyup Shift_R" would release Shift_L as well. A key outside the map is sent
     * alone, and the raw events the back end reads do not depend on the map.
     */
    QByteArray removeFromModifierMap(xcb_keycode_t keycode)
    {
        xcb_get_modifier_mapping_reply_t* reply
            = xcb_get_modifier_mapping_reply(m_c, xcb_get_modifier_mapping(m_c), nullptr);
        const int perModifier = reply->keycodes_per_modifier;
        const xcb_keycode_t* keys = xcb_get_modifier_mapping_keycodes(reply);
        const QByteArray original(reinterpret_cast<const char*>(keys), 8 * perModifier);
        std::free(reply);
        QByteArray changed = original;
        changed.replace(char(keycode), char(0));
        setModifierMap(changed);
        return original;
    }

    /** Locks or unlocks Caps Lock as a remote tool would, without any key. */
    void lockCaps(bool on)
    {
        std::free(xcb_xkb_use_extension_reply(m_c, xcb_xkb_use_extension(m_c, 1, 0), nullptr));
        xcb_xkb_latch_lock_state(
            m_c, XCB_XKB_ID_USE_CORE_KBD, XCB_MOD_MASK_LOCK, on ? XCB_MOD_MASK_LOCK : 0, 0, 0, 0, 0, 0);
        std::free(xcb_get_input_focus_reply(m_c, xcb_get_input_focus(m_c), nullptr));
    }

    void setModifierMap(const QByteArray& map)
    {
        const auto* keys = reinterpret_cast<const xcb_keycode_t*>(map.constData());
        std::free(xcb_set_modifier_mapping_reply(m_c, xcb_set_modifier_mapping(m_c, map.size() / 8, keys), nullptr));
    }

private:
    xcb_connection_t* m_c = nullptr;
    xcb_window_t m_root = 0;
    xcb_window_t m_window = 0;
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
    void lettersArrowsAndMediaKeys();
    void bothShiftsAndSuper_data();
    void bothShiftsAndSuper();
    void heldKeyIsReportedOnce();
    void capsLockKeyAndLock();
    void swallowedShortcuts();
    void grabHeldByAnotherClient();

private:
    /** Runs xdotool with `args` (several commands may be chained in one call). */
    [[nodiscard]] static bool type(const QStringList& args) { return QProcess::execute(u"xdotool"_s, args) == 0; }

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
    QCOMPARE(m_backend->name(), u"x11"_s);
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
    connect(b, &InputBackend::flagsChanged, this, [this](ModifierFlags f, KeyCode k) {
        m_lines << u"flags %1 %2"_s.arg(f, 0, 16).arg(k);
        m_flags = f;
    });
    connect(b, &InputBackend::capsLockKey, this, [this](bool pressed) {
        m_lines << (pressed ? u"caps down"_s : u"caps up"_s);
        if (pressed)
            m_held.insert(57);
        else
            m_held.remove(57);
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
    QCOMPARE(createInputBackend()->name(), u"evdev"_s);
    qputenv("ORDALIS_INPUT", "x11");
    QCOMPARE(createInputBackend()->name(), u"x11"_s);
    qunsetenv("ORDALIS_INPUT");
}

void TestX11Backend::lettersArrowsAndMediaKeys()
{
    QVERIFY(type({ u"keydown"_s, u"a"_s }));
    QTRY_COMPARE_WITH_TIMEOUT(m_lines, QStringList { u"down 0"_s }, timeout);
    QVERIFY(type({ u"keyup"_s, u"a"_s }));
    QTRY_COMPARE_WITH_TIMEOUT(m_lines, (QStringList { u"down 0"_s, u"up 0"_s }), timeout);
    QVERIFY(type({ u"key"_s, u"s"_s, u"Left"_s }));
    QTRY_COMPARE_WITH_TIMEOUT(
        m_lines.mid(2), (QStringList { u"down 1"_s, u"up 1"_s, u"down 123"_s, u"up 123"_s }), timeout);
    m_lines.clear();
    QVERIFY(type({ u"key"_s, u"XF86AudioPlay"_s, u"XF86AudioRaiseVolume"_s }));
    QTRY_COMPARE_WITH_TIMEOUT(m_lines,
        (QStringList { u"media 100 down"_s, u"media 100 up"_s, u"media 111 down"_s, u"media 111 up"_s }), timeout);
}

void TestX11Backend::bothShiftsAndSuper_data()
{
    QTest::addColumn<QStringList>("steps");

    // Each step: the xdotool command, the key, and the report it must cause.
    QTest::newRow("Both Shifts, then the right one released, leave the left one's bits")
        << QStringList { u"keydown Shift_L|flags 20002 56"_s, u"keydown Shift_R|flags 20006 60"_s,
               u"keyup Shift_R|flags 20002 60"_s, u"keyup Shift_L|flags 0 56"_s };
    QTest::newRow("Super with Shift held adds the Command bits, and a letter under both is an ordinary key")
        << QStringList { u"keydown Shift_L|flags 20002 56"_s, u"keydown Super_L|flags 12000a 55"_s,
               u"keydown z|down 6"_s, u"keyup z|up 6"_s, u"keyup Super_L|flags 20002 55"_s,
               u"keyup Shift_L|flags 0 56"_s };
}

void TestX11Backend::bothShiftsAndSuper()
{
    QFETCH(QStringList, steps);
    OtherClient other;
    const QByteArray modifierMap = other.removeFromModifierMap(62); // Shift_R
    const auto restore = qScopeGuard([&] { other.setModifierMap(modifierMap); });

    QStringList expected;
    for (const QString& step : std::as_const(steps)) {
        const QStringList parts = step.split(u'|');
        QVERIFY(type(parts.first().split(u' ')));
        expected << parts.last();
        QTRY_COMPARE_WITH_TIMEOUT(m_lines, expected, timeout);
    }
}

void TestX11Backend::heldKeyIsReportedOnce()
{
    // Held well past the server's auto-repeat delay: raw events are not repeated.
    QVERIFY(type({ u"keydown"_s, u"d"_s, u"sleep"_s, u"1.2"_s, u"keyup"_s, u"d"_s }));
    QTRY_COMPARE_WITH_TIMEOUT(m_lines, (QStringList { u"down 2"_s, u"up 2"_s }), timeout);
}

void TestX11Backend::capsLockKeyAndLock()
{
    QVERIFY(!m_backend->capsLockOn());
    // xdotool sends the release of Caps Lock twice; it is reported once.
    QVERIFY(type({ u"key"_s, u"Caps_Lock"_s }));
    QTRY_VERIFY_WITH_TIMEOUT(m_lines.contains(u"caps up"_s) && m_lines.contains(u"flags 10000 57"_s), timeout);
    QVERIFY(m_backend->capsLockOn());
    QCOMPARE(m_lines.filter(u"caps"_s), (QStringList { u"caps down"_s, u"caps up"_s }));

    // The lock bit goes with every later modifier report.
    QVERIFY(type({ u"keydown"_s, u"Control_L"_s, u"keyup"_s, u"Control_L"_s }));
    QTRY_VERIFY_WITH_TIMEOUT(m_lines.endsWith(u"flags 10000 59"_s), timeout);
    QVERIFY(m_lines.contains(u"flags 50001 59"_s));

    // A lock set without the key (another client, a remote tool) shows as well.
    m_lines.clear();
    OtherClient other;
    other.lockCaps(false);
    QTRY_COMPARE_WITH_TIMEOUT(m_lines, QStringList { u"flags 0 57"_s }, timeout);
    other.lockCaps(true);
    QTRY_COMPARE_WITH_TIMEOUT(m_lines, (QStringList { u"flags 0 57"_s, u"flags 10000 57"_s }), timeout);

    m_lines.clear();
    QVERIFY(type({ u"key"_s, u"Caps_Lock"_s }));
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
    QVERIFY(type({ u"key"_s, u"Escape"_s }));
    QTRY_COMPARE_WITH_TIMEOUT(m_lines, (QStringList { u"down 53"_s, u"up 53"_s }), timeout);
    QVERIFY(type({ u"keydown"_s, u"Escape"_s, u"keydown"_s, u"a"_s, u"keyup"_s, u"a"_s, u"keyup"_s, u"Escape"_s }));
    QTRY_COMPARE_WITH_TIMEOUT(
        m_lines.mid(2), (QStringList { u"down 53"_s, u"down 0"_s, u"up 0"_s, u"up 53"_s }), timeout);
    m_lines.clear();
    // Held past the auto-repeat delay, the grabbed key neither repeats nor goes up early, although the core events
    // of the grab repeat it as release-press pairs.
    QVERIFY(type({ u"keydown"_s, u"Escape"_s, u"sleep"_s, u"1.2"_s, u"keyup"_s, u"Escape"_s }));
    QTRY_COMPARE_WITH_TIMEOUT(m_lines, (QStringList { u"down 53"_s, u"up 53"_s }), timeout);
    m_lines.clear();
    QVERIFY(type(
        { u"keydown"_s, u"Super_L"_s, u"keydown"_s, u"comma"_s, u"keyup"_s, u"comma"_s, u"keyup"_s, u"Super_L"_s }));
    QTRY_COMPARE_WITH_TIMEOUT(
        m_lines, (QStringList { u"flags 100008 55"_s, u"down 43"_s, u"up 43"_s, u"flags 0 55"_s }), timeout);

    // The focused application saw neither Escape nor Super+comma, but the other keys.
    QVERIFY(type({ u"key"_s, u"b"_s }));
    QTRY_VERIFY_WITH_TIMEOUT(other.keyPresses().contains(56), timeout);
    QCOMPARE(other.keyPresses(), (QList<int> { 133, 56 }));
    QTRY_VERIFY_WITH_TIMEOUT(m_lines.endsWith(u"up 11"_s), timeout);

    // Once let go, Escape reaches the application again, and still shows.
    m_backend->setSwallowedShortcuts(false, false);
    QVERIFY(!m_backend->escapeGrabbed());
    QVERIFY(!m_backend->settingsShortcutGrabbed());
    m_lines.clear();
    QVERIFY(type({ u"key"_s, u"Escape"_s }));
    QTRY_COMPARE_WITH_TIMEOUT(m_lines, (QStringList { u"down 53"_s, u"up 53"_s }), timeout);
    QTRY_VERIFY_WITH_TIMEOUT(other.keyPresses().contains(9), timeout);
}

void TestX11Backend::grabHeldByAnotherClient()
{
    OtherClient other;
    QVERIFY(other.grabEscape(true));
    // Refused quietly: no error on the way, nothing grabbed, and Escape still shows.
    m_backend->setSwallowedShortcuts(true, false);
    QVERIFY(!m_backend->escapeGrabbed());
    QVERIFY(type({ u"key"_s, u"Escape"_s }));
    QTRY_COMPARE_WITH_TIMEOUT(m_lines, (QStringList { u"down 53"_s, u"up 53"_s }), timeout);

    // Asking again after the holder let go gets the grab.
    other.grabEscape(false);
    m_backend->setSwallowedShortcuts(true, false);
    QVERIFY(m_backend->escapeGrabbed());
    m_backend->setSwallowedShortcuts(false, false);
}

int main(int argc, char** argv)
{
    // Before anything connects to a display: the test brings its own and never touches the user's.
    Xvfb server;
    const bool haveServer = !server.display().isEmpty();
    QTemporaryDir runtimeDir;
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtimeDir.path()));
    if (haveServer) {
        qputenv("DISPLAY", server.display());
        qputenv("QT_QPA_PLATFORM", "xcb");
    } else {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QGuiApplication app(argc, argv);
    TestX11Backend test(haveServer);
    return QTest::qExec(&test, argc, argv);
}

#include "testx11backend.moc"
