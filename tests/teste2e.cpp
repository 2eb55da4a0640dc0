// SPDX-License-Identifier: GPL-3.0-or-later
// The real ordalis, end to end, as a user meets it. One harness for all of it: a private Xvfb (with openbox and a
// trayer tray) started before anything connects to a display, a private D-Bus session bus, a home folder of its own
// for each start, keys and clicks from xdotool (XTEST), xev standing for the application the user types into, and
// the screen read back. The command-line scenarios need no display; the Wayland one brings its own headless weston.
// Each scenario skips when a tool it needs is missing. ORDALIS_LONG_RUN_SECONDS=1800 makes the typing session a
// half-hour soak with a memory check.
#include "base/clock.h"
#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "dbustestsupport.h"
#include "keyboard/keyboardscene.h"
#include "theme/themesettings.h"
#include "theme/themestyle.h"

#include <QDBusConnectionInterface>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPixmap>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QScreen>
#include <QSet>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <linux/input.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xcb/shape.h>
#include <xcb/xcb.h>

using namespace Qt::StringLiterals;

namespace {

/** Milliseconds any one thing may take to show up on a busy two-core machine. */
constexpr int deadline = 20000;

template <typename T> struct FreeDeleter
{
    void operator()(T* p) const { std::free(p); }
};

template <typename T> using Reply = std::unique_ptr<T, FreeDeleter<T>>;

/** A helper program that is asked to end, and waited for, when it goes. */
constexpr auto ending = [](QProcess* process) {
    process->terminate();
    process->waitForFinished(deadline);
    delete process;
};
using Helper = std::unique_ptr<QProcess, std::decay_t<decltype(ending)>>;

/**
 * Starts a helper program that ends with the test, also when a timeout kills the test; null when it did not start.
 * Its output goes to the files named, or is kept for reading; its errors are passed on unless a file is named.
 */
Helper launch(const QString& program, const QStringList& args, const QProcessEnvironment& env, const QString& out = {},
    const QString& err = {})
{
    Helper process(new QProcess);
    process->setProcessEnvironment(env);
    process->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    if (!out.isEmpty())
        process->setStandardOutputFile(out);
    if (err.isEmpty())
        process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    else
        process->setStandardErrorFile(err);
    process->start(program, args);
    return process->waitForStarted(deadline) ? std::move(process) : nullptr;
}

xcb_connection_t* connection()
{
    return qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
}

xcb_window_t root()
{
    return xcb_setup_roots_iterator(xcb_get_setup(connection())).data->root;
}

xcb_atom_t atom(const char* name)
{
    const Reply<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(connection(), xcb_intern_atom(connection(), 0, quint16(qstrlen(name)), name), nullptr));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

/** The bytes of a property, empty when it is missing. */
QByteArray propertyBytes(xcb_window_t window, const char* name)
{
    const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection(),
        xcb_get_property(connection(), 0, window, atom(name), XCB_GET_PROPERTY_TYPE_ANY, 0, 4096), nullptr));
    if (!reply)
        return {};
    return { static_cast<const char*>(xcb_get_property_value(reply.get())),
        xcb_get_property_value_length(reply.get()) };
}

/** Where `window` lies on the screen. */
QRect geometry(xcb_window_t window)
{
    xcb_connection_t* c = connection();
    const Reply<xcb_get_geometry_reply_t> size(xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr));
    const Reply<xcb_translate_coordinates_reply_t> place(
        xcb_translate_coordinates_reply(c, xcb_translate_coordinates(c, window, root(), 0, 0), nullptr));
    return size && place ? QRect(place->dst_x, place->dst_y, size->width, size->height) : QRect();
}

bool xdotool(const QStringList& args)
{
    return QProcess::execute(u"xdotool"_s, args) == 0;
}

/** Waits until the screen at `point` shows `colour` to within rounding; says what it shows when it never does. */
bool waitForColour(const QPoint& point, const QColor& colour)
{
    QColor shown;
    const auto near = [&] {
        shown = QGuiApplication::primaryScreen()->grabWindow(0, point.x(), point.y(), 1, 1).toImage().pixelColor(0, 0);
        return std::abs(shown.red() - colour.red()) <= 2 && std::abs(shown.green() - colour.green()) <= 2
            && std::abs(shown.blue() - colour.blue()) <= 2;
    };
    if (QTest::qWaitFor(near, deadline))
        return true;
    qWarning("%d,%d shows %s, not %s", point.x(), point.y(), qPrintable(shown.name()), qPrintable(colour.name()));
    return false;
}

/**
 * Starts a private Xvfb on the first free display and points DISPLAY and the Qt platform at it (offscreen when it
 * could not start, so the tests skip). Call it before the QGuiApplication exists; keep the result for the whole run.
 */
Helper startXServer(int width, int height)
{
    Helper server = QStandardPaths::findExecutable(u"Xvfb"_s).isEmpty()
        ? nullptr
        : launch(u"Xvfb"_s,
            { u"-displayfd"_s, u"1"_s, u"-nolisten"_s, u"tcp"_s, u"-screen"_s, u"0"_s,
                u"%1x%2x24"_s.arg(width).arg(height) },
            QProcessEnvironment::systemEnvironment());
    QByteArray display;
    while (server && !display.endsWith('\n') && server->waitForReadyRead(deadline))
        display += server->readAllStandardOutput();
    display = display.trimmed();
    qputenv("DISPLAY", display.isEmpty() ? QByteArray() : ':' + display);
    qputenv("QT_QPA_PLATFORM", display.isEmpty() ? "offscreen" : "xcb");
    return server;
}

constexpr QSize screenSize(1280, 800);

struct Run
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

Run run(const QString& program, const QStringList& args, const QProcessEnvironment& env)
{
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(program, args);
    if (!process.waitForFinished(deadline) || process.exitStatus() != QProcess::NormalExit) {
        process.kill();
        process.waitForFinished();
        return { -1, {}, "did not end normally" };
    }
    return { process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError() };
}

bool have(const QStringList& tools)
{
    return std::ranges::all_of(tools, [](const QString& t) { return !QStandardPaths::findExecutable(t).isEmpty(); });
}

/** A home with every XDG folder inside it: what one start of Ordalis may write stays there. */
struct Home
{
    QTemporaryDir dir;

    Home()
    {
        for (const char* folder : { "home", "config", "cache", "data", "state", "run", "tmp", "output" })
            QDir().mkpath(path(QString::fromLatin1(folder)));
        ::chmod(QFile::encodeName(path(u"run"_s)).constData(), 0700);
    }
    QString path(const QString& relative) const { return dir.filePath(relative); }
    QString settingsPath() const { return path(u"config/ordalis/settings.json"_s); }
    QProcessEnvironment environment() const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"HOME"_s, path(u"home"_s));
        for (const char* kind : { "CONFIG", "CACHE", "DATA", "STATE" })
            env.insert(u"XDG_%1_HOME"_s.arg(QLatin1StringView(kind)), path(QString::fromLatin1(kind).toLower()));
        env.insert(u"XDG_RUNTIME_DIR"_s, path(u"run"_s));
        env.insert(u"TMPDIR"_s, path(u"tmp"_s));
        env.insert(u"XDG_SESSION_TYPE"_s, u"x11"_s);
        env.insert(u"LANG"_s, u"C.UTF-8"_s);
        for (const QString& name : { u"QT_QPA_PLATFORM"_s, u"QT_LOGGING_RULES"_s, u"ORDALIS_INPUT"_s,
                 u"WAYLAND_DISPLAY"_s, u"DBUS_SESSION_BUS_ADDRESS"_s })
            env.remove(name);
        return env;
    }
};

/** The 32-bit items of a property. */
QList<quint32> items(xcb_window_t window, const char* name)
{
    const QByteArray bytes = propertyBytes(window, name);
    QList<quint32> items(bytes.size() / 4);
    if (!items.isEmpty())
        std::memcpy(items.data(), bytes.constData(), size_t(items.size()) * 4);
    return items;
}

Reply<xcb_get_window_attributes_reply_t> attributes(xcb_window_t window)
{
    return Reply<xcb_get_window_attributes_reply_t>(
        xcb_get_window_attributes_reply(connection(), xcb_get_window_attributes(connection(), window), nullptr));
}

/** The first viewable window below `parent` (at any depth) that `match` accepts, or 0. */
template <typename Match> xcb_window_t findWindow(const Match& match, xcb_window_t parent = 0)
{
    const Reply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(connection(), xcb_query_tree(connection(), parent ? parent : root()), nullptr));
    const xcb_window_t* children = tree ? xcb_query_tree_children(tree.get()) : nullptr;
    for (int i = 0; tree && i < xcb_query_tree_children_length(tree.get()); ++i) {
        const auto a = attributes(children[i]);
        if (a && a->map_state == XCB_MAP_STATE_VIEWABLE && match(children[i]))
            return children[i];
        if (const xcb_window_t found = findWindow(match, children[i]))
            return found;
    }
    return 0;
}

xcb_window_t named(const QByteArray& name)
{
    return findWindow([&](xcb_window_t w) { return propertyBytes(w, "_NET_WM_NAME") == name; });
}

xcb_window_t panel()
{
    return named("Ordalis Keyboard");
}

/** Ordalis's icon in trayer's panel, or 0. */
xcb_window_t trayIcon()
{
    return findWindow([](xcb_window_t w) {
        return propertyBytes(w, "WM_CLASS").startsWith("ordalis\0") && geometry(w).width() <= 64;
    });
}

/** Ordalis's tray menu while it is open, or 0: an unmanaged window of ours, taller than a tooltip. */
xcb_window_t trayMenu()
{
    return findWindow([](xcb_window_t w) {
        return attributes(w)->override_redirect && propertyBytes(w, "WM_CLASS").startsWith("ordalis\0")
            && geometry(w).height() >= 100;
    });
}

xcb_window_t focus()
{
    const Reply<xcb_get_input_focus_reply_t> reply(
        xcb_get_input_focus_reply(connection(), xcb_get_input_focus(connection()), nullptr));
    return reply ? reply->focus : 0;
}

bool ownsSelection(const char* name)
{
    const Reply<xcb_get_selection_owner_reply_t> reply(
        xcb_get_selection_owner_reply(connection(), xcb_get_selection_owner(connection(), atom(name)), nullptr));
    return reply && reply->owner != XCB_NONE;
}

/** Where the window takes pointer input, in its own coordinates: empty when it lets every click through. */
QRegion inputShape(xcb_window_t window)
{
    const Reply<xcb_shape_get_rectangles_reply_t> reply(xcb_shape_get_rectangles_reply(
        connection(), xcb_shape_get_rectangles(connection(), window, XCB_SHAPE_SK_INPUT), nullptr));
    QRegion shape;
    const xcb_rectangle_t* rects = reply ? xcb_shape_get_rectangles_rectangles(reply.get()) : nullptr;
    for (int i = 0; reply && i < xcb_shape_get_rectangles_rectangles_length(reply.get()); ++i)
        shape += QRect(rects[i].x, rects[i].y, rects[i].width, rects[i].height);
    return shape;
}

bool movePointer(const QPoint& to, const QStringList& then = {})
{
    const Reply<xcb_query_pointer_reply_t> at(
        xcb_query_pointer_reply(connection(), xcb_query_pointer(connection(), root()), nullptr));
    // "--sync" waits for the pointer to move, which it never does when it is there already.
    if (at && QPoint(at->root_x, at->root_y) == to)
        return then.isEmpty() || xdotool(then);
    return xdotool(
        QStringList { u"mousemove"_s, u"--sync"_s, QString::number(to.x()), QString::number(to.y()) } + then);
}

/** A point on the face of `code` in the panel at `rect`, clear of its label, laid out as the panel lays it out. */
QPoint facePoint(const QString& settingsPath, const QRect& rect, KeyCode code)
{
    SettingsStore settings(settingsPath);
    ManualClock clock;
    KeyboardScene scene(settings, clock, nullptr);
    scene.setSize(QSizeF(rect.size()));
    const QRectF face = scene.keyRect(code);
    // A fifth of the way down: above the label, and inside the cap even while it is pressed.
    return rect.topLeft() + QPointF(face.center().x(), face.top() + 0.2 * face.height()).toPoint();
}

ThemeStyle styleIn(const QString& settingsPath)
{
    return ThemeStyle(SettingsStore(settingsPath).value(SettingKeys::activeThemeConfig()));
}

qint64 residentKb(qint64 pid)
{
    QFile status(u"/proc/%1/status"_s.arg(pid));
    const QList<QByteArray> lines
        = status.open(QIODevice::ReadOnly) ? status.readAll().split('\n') : QList<QByteArray>();
    for (const QByteArray& line : lines) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

QStringList filesBelow(const QString& folder)
{
    QStringList files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << it.next();
    return files;
}

} // namespace

/** Runs a step that checks things itself, and ends the test function when the step failed. */
#define STEP(step)                                                                                                     \
    do {                                                                                                               \
        step;                                                                                                          \
        if (QTest::currentTestFailed())                                                                                \
            return;                                                                                                    \
    } while (false)

#define REQUIRE_X11()                                                                                                  \
    do {                                                                                                               \
        if (!m_desktop)                                                                                                \
            QSKIP("needs Xvfb, openbox, trayer, xdotool and xev");                                                     \
    } while (false)

class TestE2e final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void answersWithoutADisplay();
    void controlsTheRunningInstance();
    void startsAtOnceLeaveOne();
    void panelOverTheUsersWindow();
    void secretLeavesNoTrace();
    void pausedKeysAreNotDrawn();
    void typingSession();
    void labelsFollowTheLayout();
    void trackpadShowsClicksAndScrolls();
    void followsTheScreens();
    void waylandSessionReadsTheDevices();

private:
    void startOrdalis(const QStringList& args = {}, const QProcessEnvironment& extra = {});
    /** Ends Ordalis as the session does and checks it ended well. */
    void stopOrdalis();
    void startOtherApp();
    /** The keycodes of the KeyPress events the user's application received so far. */
    QList<int> otherAppKeys();
    QByteArray otherAppOutput();
    QString keySource();
    Run ordalis(const QStringList& args) const
    {
        QProcessEnvironment env = m_home->environment();
        env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
        env.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, m_bus.address());
        return run(QStringLiteral(ORDALIS_BINARY), args, env);
    }
    static bool tripleTap()
    {
        return xdotool({ u"key"_s, u"--delay"_s, u"100"_s, u"Control_L"_s, u"Control_L"_s, u"Control_L"_s });
    }
    void setSetting(auto key, const auto& value) { SettingsStore(m_home->settingsPath()).setValue(key, value); }

    bool m_desktop = false;
    QTemporaryDir m_desktopHome;
    DBusTest::PrivateBus m_bus;
    Helper m_windowManager;
    Helper m_tray;
    std::unique_ptr<Home> m_home;
    Helper m_ordalis;
    Helper m_otherApp;
    QByteArray m_otherAppOutput;
    xcb_window_t m_otherWindow = 0;
};

void TestE2e::initTestCase()
{
    if (QGuiApplication::platformName() != u"xcb"_s || !have({ u"openbox"_s, u"trayer"_s, u"xdotool"_s, u"xev"_s }))
        return;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"HOME"_s, m_desktopHome.path());
    m_windowManager = launch(u"openbox"_s, { u"--sm-disable"_s }, env);
    QVERIFY(m_windowManager);
    QTRY_COMPARE_WITH_TIMEOUT(
        propertyBytes(items(root(), "_NET_SUPPORTING_WM_CHECK").value(0), "_NET_WM_NAME"), "Openbox", deadline);
    m_tray = launch(u"trayer"_s,
        { u"--edge"_s, u"bottom"_s, u"--align"_s, u"right"_s, u"--widthtype"_s, u"request"_s, u"--height"_s, u"32"_s,
            u"--SetDockType"_s, u"true"_s, u"--expand"_s, u"true"_s },
        QProcessEnvironment::systemEnvironment());
    QVERIFY(m_tray);
    QTRY_VERIFY_WITH_TIMEOUT(ownsSelection("_NET_SYSTEM_TRAY_S0"), deadline);
    m_desktop = true;
}

void TestE2e::init()
{
    m_home = std::make_unique<Home>();
    QVERIFY(m_home->dir.isValid());
}

void TestE2e::cleanup()
{
    m_ordalis.reset();
    m_otherApp.reset();
    m_otherAppOutput.clear();
    m_otherWindow = 0;
    if (m_desktop)
        movePointer(QPoint(640, 2));
    m_home.reset();
}

void TestE2e::startOrdalis(const QStringList& args, const QProcessEnvironment& extra)
{
    QVERIFY(!m_ordalis);
    QProcessEnvironment env = m_home->environment();
    env.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, m_bus.address());
    for (const QString& name : extra.keys())
        env.insert(name, extra.value(name));
    m_ordalis = launch(
        QStringLiteral(ORDALIS_BINARY), args, env, m_home->path(u"output/stdout"_s), m_home->path(u"output/stderr"_s));
    QVERIFY(m_ordalis);
}

void TestE2e::stopOrdalis()
{
    m_ordalis->terminate();
    QVERIFY(m_ordalis->waitForFinished(deadline));
    QCOMPARE(m_ordalis->exitStatus(), QProcess::NormalExit);
    if (m_ordalis->exitCode() != 0) {
        QFile errors(m_home->path(u"output/stderr"_s));
        QVERIFY2(false, errors.open(QIODevice::ReadOnly) ? errors.readAll().left(8000).constData() : "no output");
    }
    m_ordalis.reset();
}

QString TestE2e::keySource()
{
    const QDBusMessage reply = DBusTest::callOn(m_bus.connect(), u"org.freedesktop.DBus.Properties"_s, u"Get"_s,
        { QString::fromLatin1(DBusTest::ordalisInterface), u"KeySource"_s });
    return reply.arguments().isEmpty() ? QString()
                                       : reply.arguments().constFirst().value<QDBusVariant>().variant().toString();
}

void TestE2e::startOtherApp()
{
    // xev, line-buffered, covering the screen; it names its window first.
    m_otherApp = launch(u"stdbuf"_s,
        { u"-oL"_s, u"xev"_s, u"-geometry"_s, u"%1x%2+0+0"_s.arg(screenSize.width()).arg(screenSize.height()),
            u"-event"_s, u"keyboard"_s, u"-event"_s, u"button"_s },
        QProcessEnvironment::systemEnvironment());
    QVERIFY(m_otherApp);
    static const QRegularExpression outer(u"Outer window is (0x[0-9a-f]+)"_s);
    QVERIFY(QTest::qWaitFor(
        [&] {
            const QRegularExpressionMatch match = outer.match(QString::fromLatin1(otherAppOutput()));
            m_otherWindow = match.captured(1).toUInt(nullptr, 16);
            return m_otherWindow != 0;
        },
        deadline));
    // WORKAROUND: openbox 3.6.1 announces itself before it is ready and may drop the first activation.
    QTRY_VERIFY_WITH_TIMEOUT(
        xdotool({ u"windowactivate"_s, u"--sync"_s, QString::number(m_otherWindow) }) && focus() == m_otherWindow,
        deadline);
}

QByteArray TestE2e::otherAppOutput()
{
    m_otherAppOutput += m_otherApp->readAllStandardOutput();
    return m_otherAppOutput;
}

QList<int> TestE2e::otherAppKeys()
{
    static const QRegularExpression press(
        u"KeyPress event.*?keycode (\\d+)"_s, QRegularExpression::DotMatchesEverythingOption);
    QList<int> keys;
    for (const QRegularExpressionMatch& m : press.globalMatch(QString::fromLatin1(otherAppOutput())))
        keys << m.captured(1).toInt();
    return keys;
}

void TestE2e::answersWithoutADisplay()
{
    const struct
    {
        QStringList arguments;
        int exitCode;
        QByteArray out;
        QByteArray err;
    } cases[] = {
        { { u"--help"_s }, 0, "--render FILE", {} },
        { { u"--version"_s }, 0, "Ordalis 0.1.0\n", {} },
        { { u"--shw"_s }, 2, {}, "ordalis: Unknown option 'shw'." },
        { { u"--render=/nonexistent/x.png"_s }, 1, {}, "ordalis: cannot write /nonexistent/x.png" },
    };
    // A platform that cannot start: anything that made a QApplication here would abort.
    QProcessEnvironment env = m_home->environment();
    env.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
    env.remove(u"DISPLAY"_s);
    for (const auto& expected : cases) {
        const Run result = run(QStringLiteral(ORDALIS_BINARY), expected.arguments, env);
        QVERIFY2(result.err.startsWith(expected.err), result.err.constData());
        QCOMPARE(result.exitCode, expected.exitCode);
        QVERIFY2(expected.out.isEmpty() ? result.out.isEmpty() : result.out.contains(expected.out),
            result.out.constData());
    }
    QVERIFY(!QDir(m_home->path(u"config/ordalis"_s)).exists());
}

void TestE2e::controlsTheRunningInstance()
{
    if (m_bus.address().isEmpty())
        QSKIP("dbus-daemon is not installed or did not start");
    QDBusConnection client = m_bus.connect();
    const QString service = QString::fromLatin1(DBusTest::ordalisService);
    const auto stored = [this] { return SettingsStore(m_home->settingsPath()).value(SettingKeys::activeThemeName()); };

    // Nothing runs: --theme checks the name, chooses the theme and starts.
    QProcessEnvironment offscreen;
    offscreen.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    STEP(startOrdalis({ u"--theme"_s, u"Black"_s }, offscreen));
    QVERIFY(QTest::qWaitFor([&] { return client.interface()->isServiceRegistered(service).value(); }, deadline));
    QTRY_COMPARE_WITH_TIMEOUT(stored(), u"Black"_s, deadline);
    // No tray on the offscreen platform, so the keyboard shows from the start.
    QCOMPARE(DBusTest::visible(client), QVariant(true));

    // Later starts command it.
    const struct
    {
        QStringList arguments;
        bool visibleAfter;
    } commands[] = {
        { { u"--hide"_s }, false },
        { { u"--show"_s }, true },
        { { u"--toggle"_s }, false },
        { {}, true }, // a plain start shows the keyboard of the running one
        { { u"--settings"_s }, true },
    };
    for (const auto& command : commands) {
        const Run result = ordalis(command.arguments);
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(DBusTest::visible(client), QVariant(command.visibleAfter));
    }

    QCOMPARE(ordalis({ u"--theme=Light Rose"_s }).exitCode, 0);
    QTRY_COMPARE_WITH_TIMEOUT(stored(), u"Light Rose"_s, deadline);
    const Run unknown = ordalis({ u"--theme"_s, u"Nope"_s });
    QCOMPARE(unknown.exitCode, 2);
    QVERIFY2(unknown.err.startsWith("ordalis: no saved theme is named \"Nope\"; saved themes: Spacegray"),
        unknown.err.constData());
    QCOMPARE(stored(), u"Light Rose"_s);

    // A picture needs no display, and does not disturb the running one.
    const Run render = ordalis({ u"--render"_s, m_home->path(u"k.png"_s), u"--width=703"_s, u"--keys=a,space"_s });
    QVERIFY2(render.exitCode == 0, render.err.constData());
    const QImage picture(m_home->path(u"k.png"_s));
    QCOMPARE(picture.width(), 703);
    // Taken once the press has settled: A shows fully pressed.
    const QColor pressed = styleIn(m_home->settingsPath()).keyPressedBackground.toQColor();
    QCOMPARE(picture.pixelColor(facePoint(m_home->settingsPath(), picture.rect(), 0)).name(), pressed.name());

    // --quit returns once that instance has ended; then there is nobody to hide.
    QCOMPARE(ordalis({ u"--quit"_s }).exitCode, 0);
    QVERIFY(m_ordalis->waitForFinished(2000));
    QCOMPARE(m_ordalis->exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_ordalis->exitCode(), 0);
    QVERIFY(!client.interface()->isServiceRegistered(service).value());
    QCOMPARE(ordalis({ u"--hide"_s }).exitCode, 0);
}

void TestE2e::startsAtOnceLeaveOne()
{
    QProcessEnvironment env = m_home->environment();
    env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    // The race is between asking for a running instance and listening: starts at the same moment hit it or not.
    for (int round = 1; round <= 25; ++round) {
        std::vector<Helper> starts;
        for (int i = 0; i < 4; ++i)
            starts.push_back(launch(QStringLiteral(ORDALIS_BINARY), {}, env));
        const auto running = [&] {
            return std::ranges::count_if(starts, [](const Helper& p) { return p->state() != QProcess::NotRunning; });
        };
        // All but one hand over to that one and end well; it stays, and is the one a later start finds.
        QTRY_VERIFY2_WITH_TIMEOUT(
            running() == 1, qPrintable(u"round %1: %2 stay"_s.arg(round).arg(running())), deadline);
        for (const Helper& p : starts)
            QVERIFY(
                p->state() != QProcess::NotRunning || (p->exitStatus() == QProcess::NormalExit && p->exitCode() == 0));
        QCOMPARE(run(QStringLiteral(ORDALIS_BINARY), {}, env).exitCode, 0);
        QCOMPARE(running(), 1);
    }
    QCOMPARE(QDir(m_home->path(u"config/ordalis"_s)).entryList({ u"*unreadable*"_s }, QDir::Files), QStringList());
}

void TestE2e::panelOverTheUsersWindow()
{
    REQUIRE_X11();
    STEP(startOtherApp());
    setSetting(SettingKeys::keyboardVisible(), true);
    // As in a Wayland session with XWayland whose compositor is gone: Ordalis must choose X11 by itself.
    QProcessEnvironment wayland;
    wayland.insert(u"XDG_SESSION_TYPE"_s, u"wayland"_s);
    wayland.insert(u"WAYLAND_DISPLAY"_s, u"ordalis-test-no-such-display"_s);
    wayland.insert(u"ORDALIS_INPUT"_s, u"x11"_s);
    STEP(startOrdalis({}, wayland));
    xcb_window_t window = 0;
    QTRY_VERIFY_WITH_TIMEOUT((window = panel()) != 0, deadline);
    const QRect rect = geometry(window);

    // Above the user's window without taking its focus, on every desktop, in no task bar; 900 wide, centred.
    const auto above = [&] {
        const QList<quint32> stacking = items(root(), "_NET_CLIENT_LIST_STACKING");
        return stacking.indexOf(window) > stacking.indexOf(m_otherWindow);
    };
    QCOMPARE(focus(), m_otherWindow);
    QVERIFY(above());
    const QList<quint32> states = items(window, "_NET_WM_STATE");
    for (const char* state : { "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER", "_NET_WM_STATE_ABOVE" })
        QVERIFY2(states.contains(atom(state)), state);
    QCOMPARE(items(window, "_NET_WM_DESKTOP"), QList<quint32> { 0xFFFFFFFF });
    QCOMPARE(rect.size(), QSize(900, 350));
    QVERIFY((rect.center() - QRect(QPoint(), screenSize).center()).manhattanLength() <= 2);

    // A click on the panel leaves the focus where it was and does not reach the window below.
    QVERIFY(movePointer(rect.topLeft() + QPoint(20, 20), { u"click"_s, u"1"_s }));
    QTest::qWait(200);
    QCOMPARE(focus(), m_otherWindow);
    QCOMPARE(otherAppOutput().count("ButtonPress event"), 0);

    // Auto-hide: over the panel it fades and lets clicks through to the window below, never unmapped; leaving
    // brings it back.
    QVERIFY(movePointer(QPoint(640, 2)));
    setSetting(SettingKeys::autoHideOnHover(), true);
    QVERIFY(movePointer(rect.topLeft() + QPoint(12, rect.height() / 2)));
    QTRY_VERIFY_WITH_TIMEOUT(inputShape(window).isEmpty(), deadline);
    const auto opacity
        = [&] { return items(window, "_NET_WM_WINDOW_OPACITY").value(0, 0xFFFFFFFF) / double(0xFFFFFFFF); };
    QTRY_VERIFY2_WITH_TIMEOUT(
        std::abs(opacity() - SettingsStore(m_home->settingsPath()).value(SettingKeys::autoHideOpacity())) <= 1.0 / 255,
        qPrintable(QString::number(opacity())), deadline);
    QVERIFY(xdotool({ u"click"_s, u"1"_s }));
    QTRY_COMPARE_WITH_TIMEOUT(otherAppOutput().count("ButtonPress event"), 1, deadline);
    QVERIFY(attributes(window)->map_state == XCB_MAP_STATE_VIEWABLE);
    QVERIFY(above());
    // The window system's leave, as the input goes through, does not end the hover.
    QTest::qWait(300);
    QVERIFY(inputShape(window).isEmpty());
    QVERIFY(movePointer(QPoint(640, 2)));
    QTRY_VERIFY_WITH_TIMEOUT(!inputShape(window).isEmpty(), deadline);
    QTRY_COMPARE_WITH_TIMEOUT(opacity(), 1.0, deadline);
    setSetting(SettingKeys::autoHideOnHover(), false);

    // Dragging the background moves it with the pointer; the corner handle resizes it; both are remembered.
    QVERIFY(movePointer(rect.center(), { u"mousedown"_s, u"1"_s }));
    for (const QPoint& step : { QPoint(15, 10), QPoint(30, 20), QPoint(40, 30) })
        QVERIFY(movePointer(rect.center() + step));
    QVERIFY(xdotool({ u"mouseup"_s, u"1"_s }));
    const QRect moved = rect.translated(40, 30);
    QTRY_COMPARE_WITH_TIMEOUT(geometry(window), moved, deadline);
    const QPoint handle = moved.bottomRight() - QPoint(7, 7);
    QVERIFY(movePointer(handle, { u"mousedown"_s, u"1"_s }));
    for (int travel = 12; travel <= 60; travel += 12)
        QVERIFY(movePointer(handle + QPoint(travel, 3)));
    QVERIFY(xdotool({ u"mouseup"_s, u"1"_s }));
    const ThemeConfig config = SettingsStore(m_home->settingsPath()).value(SettingKeys::activeThemeConfig());
    const QRect resized(moved.topLeft(), QSize(960, qRound(960 / KeyboardScene::aspectRatio(config))));
    QTRY_COMPARE_WITH_TIMEOUT(geometry(window), resized, deadline);
    QCOMPARE(inputShape(window).boundingRect(), QRect(QPoint(0, 0), resized.size()));
    QTRY_COMPARE_WITH_TIMEOUT(SettingsStore(m_home->settingsPath()).value(SettingKeys::windowWidth()), 960.0, deadline);
    QCOMPARE(SettingsStore(m_home->settingsPath()).value(SettingKeys::windowX()).value_or(0), double(moved.x()));
    // Laid out again for the new size.
    QVERIFY(waitForColour(
        facePoint(m_home->settingsPath(), resized, 0), styleIn(m_home->settingsPath()).keyBackground.toQColor()));

    // Escape and Super+comma over the panel. Each check ends with a B, which always reaches the user's window: what
    // came before it has arrived too.
    setSetting(SettingKeys::escapeToHideOnHover(), true);
    QTRY_COMPARE_WITH_TIMEOUT(keySource(), u"x11"_s, deadline);
    const auto typedThenB = [&](const QString& keys) {
        const qsizetype before = otherAppKeys().count(56);
        return xdotool({ u"key"_s, u"--delay"_s, u"100"_s, keys, u"b"_s })
            && QTest::qWaitFor([&] { return otherAppKeys().count(56) > before; }, deadline);
    };
    const auto pointerTo = [&](const QPoint& to) {
        const bool arrived = movePointer(to);
        QTest::qWait(300);
        return arrived && focus() == m_otherWindow;
    };
    constexpr int escape = 9, comma = 59;
    const QPoint overPanel = resized.center() + QPoint(0, resized.height() / 3);

    // Away from the panel, Escape is the user's.
    QVERIFY(pointerTo(QPoint(640, 2)));
    QVERIFY(typedThenB(u"Escape"_s));
    QCOMPARE(otherAppKeys().count(escape), 1);
    QVERIFY(panel() != 0);

    // Over it, Escape hides the keyboard and the user's window never sees it.
    QVERIFY(pointerTo(overPanel));
    QVERIFY(typedThenB(u"Escape"_s));
    QTRY_VERIFY_WITH_TIMEOUT(panel() == 0, deadline);
    QCOMPARE(otherAppKeys().count(escape), 1);
    QTRY_VERIFY_WITH_TIMEOUT(!SettingsStore(m_home->settingsPath()).value(SettingKeys::keyboardVisible()), deadline);

    // Shown again under the pointer, and the pointer leaves: Escape is the user's again.
    QVERIFY(tripleTap());
    QTRY_VERIFY_WITH_TIMEOUT(panel() != 0, deadline);
    QVERIFY(pointerTo(QPoint(640, 2)));
    QVERIFY(typedThenB(u"Escape"_s));
    QCOMPARE(otherAppKeys().count(escape), 2);
    QVERIFY(panel() != 0);

    // Over it, Super+comma opens the settings, and the user's window sees Super, not the comma. The settings window
    // takes the focus, so B is sent to the user's window directly, after whatever the comma did.
    QVERIFY(pointerTo(overPanel + QPoint(5, 0)));
    QVERIFY(xdotool({ u"key"_s, u"super+comma"_s }));
    QTRY_VERIFY_WITH_TIMEOUT(named("Ordalis Settings") != 0, deadline);
    QVERIFY(xdotool({ u"key"_s, u"--window"_s, QString::number(m_otherWindow), u"b"_s }));
    QTRY_COMPARE_WITH_TIMEOUT(otherAppKeys().count(56), 4, deadline);
    QVERIFY(otherAppKeys().contains(133));
    QCOMPARE(otherAppKeys().count(comma), 0);
    QVERIFY(panel() != 0);
}

void TestE2e::secretLeavesNoTrace()
{
    REQUIRE_X11();
    constexpr char secret[] = "hunter2-Zq9";
    {
        // Every option a user can switch on, on; launch at login is switched on while it runs.
        SettingsStore settings(m_home->settingsPath());
        using namespace SettingKeys;
        for (const auto& key : { keyboardVisible(), autoHideOnHover(), escapeToHideOnHover(), showOnScreenRecording(),
                 hideOnScreenRecordingEnd(), enableGlobalHotkey(), hyperKeyShowAsCapsLock(),
                 automaticallyChecksForUpdates() })
            settings.setValue(key, true);
        settings.setValue(hyperKeyModifiers(), std::uint64_t(0x1E0000));
    }
    const auto tmpEntries = [] {
        const QStringList names = QDir(u"/tmp"_s).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
        return QSet<QString>(names.cbegin(), names.cend());
    };
    const QSet<QString> tmpBefore = tmpEntries();
    QProcessEnvironment debug;
    debug.insert(u"QT_LOGGING_RULES"_s, u"*.debug=true"_s);
    STEP(startOrdalis({}, debug));
    QTRY_VERIFY_WITH_TIMEOUT(panel() != 0, deadline);
    QVERIFY(movePointer(QPoint(640, 2)));
    const QString autostart = m_home->path(u"config/autostart/com.quietmakers.Ordalis.desktop"_s);
    setSetting(SettingKeys::launchAtLogin(), true);
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(autostart), deadline);

    // The secret typed as a password, then key by key with Shift held by hand, around it Caps Lock (remapped),
    // Escape and the triple tap, which saves the settings while keys are read.
    const QStringList typeSecret { u"type"_s, u"--delay"_s, u"40"_s, QString::fromLatin1(secret) };
    QVERIFY(xdotool(typeSecret));
    QVERIFY(xdotool({ u"key"_s, u"--delay"_s, u"40"_s, u"Return"_s, u"Caps_Lock"_s, u"h"_s, u"Caps_Lock"_s, u"Escape"_s,
        u"h"_s, u"u"_s, u"n"_s, u"t"_s, u"e"_s, u"r"_s, u"2"_s, u"minus"_s, u"keydown"_s, u"Shift_R"_s, u"key"_s,
        u"z"_s, u"keyup"_s, u"Shift_R"_s, u"key"_s, u"q"_s, u"9"_s }));
    QVERIFY(tripleTap());
    QTRY_VERIFY_WITH_TIMEOUT(panel() == 0, deadline);
    QVERIFY(xdotool(typeSecret));
    QVERIFY(tripleTap());
    QTRY_VERIFY_WITH_TIMEOUT(panel() != 0, deadline);
    QVERIFY(xdotool(typeSecret));
    STEP(stopOrdalis());

    // Everything it could have written: its home, its output, anything new in /tmp.
    QStringList searched = filesBelow(m_home->dir.path());
    for (const QString& name : tmpEntries() - tmpBefore)
        searched << (QFileInfo(u"/tmp/"_s + name).isDir() ? filesBelow(u"/tmp/"_s + name)
                                                          : QStringList { u"/tmp/"_s + name });
    QVERIFY(searched.contains(m_home->settingsPath()) && searched.contains(autostart));
    // The secret as its letters, and as a run of the key codes of "hunter" (layout, Linux or X).
    const auto noCase = QRegularExpression::CaseInsensitiveOption;
    QList<QRegularExpression> forms { QRegularExpression(u"h\\W{0,3}u\\W{0,3}n\\W{0,3}t\\W{0,3}e\\W{0,3}r"_s, noCase) };
    for (QString codes : { u"4 32 45 17 14 15"_s, u"35 22 49 20 18 19"_s, u"43 30 57 28 26 27"_s })
        forms << QRegularExpression(u"(?<!\\d)"_s + codes.replace(u' ', u"\\D{1,24}"_s) + u"(?!\\d)"_s);
    // Its own lines name no key at all; Qt's debug lines (one per key event, without the key) are left out first,
    // as they would space Ordalis's own lines too widely for the forms above.
    static const QRegularExpression keyNames(
        u"\\b(KEY_[A-Z0-9]+|Key_[A-Za-z0-9]+|keycode|key code|keysym|Shift_[LR]|Control_[LR]|Caps_Lock)\\b"_s, noCase);
    static const QRegularExpression qtLine(u"^(qt\\.[\\w.]+:|\\s).*\\n?"_s, QRegularExpression::MultilineOption);
    for (const QString& path : std::as_const(searched)) {
        QFile file(path);
        if (file.size() > 16 * 1024 * 1024 || !file.open(QIODevice::ReadOnly))
            continue;
        const QByteArray content = file.readAll();
        QString text = QString::fromLatin1(content);
        if (path.contains(u"/output/"_s)) {
            QVERIFY2(!keyNames.match(text).hasMatch(), qPrintable(path + u": "_s + keyNames.match(text).captured()));
            text += u'\n' + QString(text).remove(qtLine);
        }
        for (const QRegularExpression& form : forms)
            QVERIFY2(!form.match(text).hasMatch(), qPrintable(path + u": "_s + form.match(text).captured()));
    }
}

void TestE2e::pausedKeysAreNotDrawn()
{
    REQUIRE_X11();
    setSetting(SettingKeys::keyboardVisible(), true);
    const QString report = m_home->path(u"output/latency.txt"_s);
    STEP(startOrdalis({ u"--latency-report"_s, report }));
    QTRY_VERIFY_WITH_TIMEOUT(panel() != 0, deadline);
    QTRY_COMPARE_WITH_TIMEOUT(keySource(), u"x11"_s, deadline);
    const auto paused = [this] {
        const QDBusMessage reply = DBusTest::callOn(m_bus.connect(), u"org.freedesktop.DBus.Properties"_s, u"Get"_s,
            { QString::fromLatin1(DBusTest::ordalisInterface), u"Paused"_s });
        return !reply.arguments().isEmpty() && reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
    };
    QVERIFY(!paused());
    QTest::qWait(500);

    // Paused from the command line: the secret, Shift and the triple tap typed now light nothing, draw nothing and
    // hide nothing.
    QCOMPARE(ordalis({ u"--pause"_s }).exitCode, 0);
    QTRY_VERIFY_WITH_TIMEOUT(paused(), deadline);
    QVERIFY(xdotool({ u"type"_s, u"--delay"_s, u"40"_s, u"hunter2-Zq9"_s }));
    QVERIFY(tripleTap());
    QTest::qWait(500);
    QVERIFY(panel() != 0);
    QCOMPARE(ordalis({ u"--resume"_s }).exitCode, 0);
    QTRY_VERIFY_WITH_TIMEOUT(!paused(), deadline);
    STEP(stopOrdalis());

    QFile file(report);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    QVERIFY2(text.contains(u"latency: 0 presses"_s), qPrintable(text));
    // The first frames, the lock coming and going: a handful, where drawing the keys would take hundreds.
    static const QRegularExpression repaints(u"window repaints: (\\d+)"_s);
    const QRegularExpressionMatch match = repaints.match(text);
    QVERIFY2(match.hasMatch() && match.captured(1).toInt() <= 8, qPrintable(text));
}

void TestE2e::typingSession()
{
    REQUIRE_X11();
    // A short burst by default; ORDALIS_LONG_RUN_SECONDS makes it a soak whose memory must stay flat.
    const int seconds = qMax(8, qEnvironmentVariableIntValue("ORDALIS_LONG_RUN_SECONDS"));
    const bool soak = seconds >= 60;
    setSetting(SettingKeys::hyperKeyModifiers(), std::uint64_t(0x1E0000));
    // With a tray the keyboard starts hidden, long enough for a panel that was going to show to have done so.
    STEP(startOrdalis());
    QTRY_VERIFY_WITH_TIMEOUT(trayIcon() != 0, deadline);
    QVERIFY(!QTest::qWaitFor([] { return panel() != 0; }, 3000));

    // The triple tap shows it, and a held key lights its cap.
    QVERIFY(tripleTap());
    QTRY_VERIFY_WITH_TIMEOUT(panel() != 0, deadline);
    QVERIFY(movePointer(QPoint(640, 2)));
    const QPoint a = facePoint(m_home->settingsPath(), geometry(panel()), 0);
    const ThemeStyle style = styleIn(m_home->settingsPath());
    QVERIFY(waitForColour(a, style.keyBackground.toQColor()));
    QVERIFY(xdotool({ u"keydown"_s, u"a"_s }));
    const bool lit = waitForColour(a, style.keyPressedBackground.toQColor());
    QVERIFY(xdotool({ u"keyup"_s, u"a"_s }));
    QVERIFY(lit);

    // Ten keys a second, as typed in a working day; never Control, the trigger.
    static const QStringList keys { u"a"_s, u"s"_s, u"d"_s, u"f"_s, u"j"_s, u"k"_s, u"e"_s, u"r"_s, u"1"_s, u"space"_s,
        u"Return"_s, u"BackSpace"_s, u"Left"_s, u"comma"_s, u"shift+a"_s, u"Shift_R+k"_s, u"alt+f"_s, u"Caps_Lock"_s,
        u"F5"_s };
    QRandomGenerator random(QRandomGenerator::system()->generate());
    qint64 typed = 0;
    qint64 startKb = -1;
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < qint64(seconds) * 1000) {
        QStringList command { u"key"_s, u"--delay"_s, u"90"_s };
        for (int i = 0; i < 10; ++i)
            command << keys[random.bounded(qsizetype(keys.size()))];
        QVERIFY(xdotool(command));
        typed += 10;
        QCOMPARE(m_ordalis->state(), QProcess::Running);
        if (soak && startKb < 0 && timer.elapsed() > 15000)
            startKb = residentKb(m_ordalis->processId());
    }
    const qint64 endKb = residentKb(m_ordalis->processId());
    qInfo("%lld keys in %d s; resident memory after the warm-up %lld kB, at the end %lld kB", typed, seconds, startKb,
        endKb);
    // Room for allocator noise, not for a leak per key.
    if (soak)
        QVERIFY2(endKb - startKb <= 5 * 1024, qPrintable(u"grew by %1 kB"_s.arg(endKb - startKb)));

    // The tray menu's first item hides the keyboard; its last, where Up goes first, ends Ordalis.
    for (const QString& item : { u"Down"_s, u"Up"_s }) {
        QVERIFY(movePointer(geometry(trayIcon()).center(), { u"click"_s, u"3"_s }));
        QTRY_VERIFY_WITH_TIMEOUT(trayMenu() != 0, deadline);
        QVERIFY(xdotool({ u"key"_s, u"--delay"_s, u"100"_s, item, u"Return"_s }));
        QTRY_VERIFY_WITH_TIMEOUT(trayMenu() == 0 && panel() == 0, deadline);
    }
    QVERIFY(m_ordalis->waitForFinished(deadline));
    QCOMPARE(m_ordalis->exitCode(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(trayIcon() == 0, deadline);
}

void TestE2e::trackpadShowsClicksAndScrolls()
{
    REQUIRE_X11();
    setSetting(SettingKeys::keyboardVisible(), true);
    setSetting(SettingKeys::showTrackpad(), true);
    // A slow fade, so that a pulse is still lit when the screen is read.
    setSetting(SettingKeys::glowDecay(), 2.0);
    STEP(startOrdalis());
    xcb_window_t window = 0;
    QTRY_VERIFY_WITH_TIMEOUT((window = panel()) != 0, deadline);
    QTRY_COMPARE_WITH_TIMEOUT(keySource(), u"x11"_s, deadline);
    QVERIFY(movePointer(QPoint(640, 2)));
    const QRect rect = geometry(window);

    // Where the panel draws the trackpad's parts, laid out as it lays them out.
    SettingsStore settings(m_home->settingsPath());
    ManualClock clock;
    KeyboardScene scene(settings, clock, nullptr);
    scene.setSize(QSizeF(rect.size()));
    const QRectF pad = scene.trackpadRect();
    QVERIFY(!pad.isEmpty());
    // A fifth of the way across a part: clear of the arrow a pulse carries in its middle.
    const auto at = [&](TrackpadView::Part part) {
        const QRectF area = TrackpadView::partRect(pad, part, scene.unitSize());
        return rect.topLeft() + QPointF(area.left() + area.width() / 5, area.center().y()).toPoint();
    };
    const QColor lit = scene.scaledStyle().keyPressedBackground.toQColor();
    const auto grab = [&] {
        return QGuiApplication::primaryScreen()
            ->grabWindow(0, rect.x() + int(pad.x()), rect.y() + int(pad.y()), int(pad.width()), int(pad.height()))
            .toImage();
    };
    QTest::qWait(500);
    const QImage rest = grab();

    // Control held with the right button down, a wheel notch up and a left click: each shows.
    QVERIFY(xdotool({ u"keydown"_s, u"Control_L"_s, u"mousedown"_s, u"3"_s, u"click"_s, u"4"_s, u"click"_s, u"1"_s }));
    QVERIFY(waitForColour(at(TrackpadView::Part::right), lit));
    QVERIFY(waitForColour(at(TrackpadView::Part::scrollUp), lit));
    grab().save(m_home->path(u"output/trackpad-held.png"_s));
    QVERIFY(grab() != rest);
    QVERIFY(xdotool({ u"mouseup"_s, u"3"_s, u"keyup"_s, u"Control_L"_s }));

    // Everything let go and every pulse faded: the trackpad is as it was.
    // Within a few levels: a repainted part may round its shadow's edge a step differently than the first frame.
    const auto likeRest = [&] {
        const QImage now = grab().convertToFormat(QImage::Format_RGB32);
        const QImage before = rest.convertToFormat(QImage::Format_RGB32);
        if (now.size() != before.size())
            return false;
        for (int y = 0; y < now.height(); ++y) {
            for (int x = 0; x < now.width(); ++x) {
                const QRgb a = now.pixel(x, y), b = before.pixel(x, y);
                if (std::abs(qRed(a) - qRed(b)) > 8 || std::abs(qGreen(a) - qGreen(b)) > 8
                    || std::abs(qBlue(a) - qBlue(b)) > 8)
                    return false;
            }
        }
        return true;
    };
    QTRY_VERIFY_WITH_TIMEOUT(likeRest(), deadline);
    STEP(stopOrdalis());
}

void TestE2e::labelsFollowTheLayout()
{
    REQUIRE_X11();
    if (!have({ u"setxkbmap"_s }))
        QSKIP("needs setxkbmap");
    const auto setLayout = [](const QString& layout) {
        return QProcess::execute(u"setxkbmap"_s, { u"-layout"_s, layout }) == 0;
    };
    QVERIFY(setLayout(u"us"_s));
    setSetting(SettingKeys::keyboardVisible(), true);
    STEP(startOrdalis());
    xcb_window_t window = 0;
    QTRY_VERIFY_WITH_TIMEOUT((window = panel()) != 0, deadline);
    const QRect rect = geometry(window);
    const auto cap = [&](KeyCode code) {
        const QPoint face = facePoint(m_home->settingsPath(), rect, code);
        // The whole cap around the point facePoint picks a fifth of the way down.
        const QRect area(face - QPoint(20, 8), QSize(40, 40));
        return QGuiApplication::primaryScreen()->grabWindow(0, area.x(), area.y(), area.width(), area.height()).toImage();
    };
    constexpr KeyCode zKey = 6, returnKey = 36;
    QTRY_VERIFY_WITH_TIMEOUT(!cap(zKey).isNull(), deadline);
    QTest::qWait(500);
    const QImage usZ = cap(zKey);
    const QImage usReturn = cap(returnKey);

    // German: Y where the US layout has Z, and the tall Return of an ISO keyboard.
    QVERIFY(setLayout(u"de"_s));
    QTRY_VERIFY_WITH_TIMEOUT(cap(zKey) != usZ, deadline);
    QTRY_VERIFY_WITH_TIMEOUT(cap(returnKey) != usReturn, deadline);
    cap(zKey).save(m_home->path(u"output/z-de.png"_s));

    // Back to US: the very same pixels as before.
    QVERIFY(setLayout(u"us"_s));
    QTRY_COMPARE_WITH_TIMEOUT(cap(zKey), usZ, deadline);
    QTRY_COMPARE_WITH_TIMEOUT(cap(returnKey), usReturn, deadline);
    STEP(stopOrdalis());
}

void TestE2e::followsTheScreens()
{
    REQUIRE_X11();
    if (!have({ u"xrandr"_s }))
        QSKIP("needs xrandr");
    const auto xrandr = [](const QStringList& args) {
        return run(u"xrandr"_s, args, QProcessEnvironment::systemEnvironment()).exitCode == 0;
    };
    // Two monitors side by side on the one X screen, each narrower than the keyboard's 900 pixels; the screen's own
    // monitor comes back when both are gone.
    const QRect left(0, 0, 640, 800);
    const QRect right(640, 0, 640, 800);
    const auto addRight
        = [&] { return xrandr({ u"--setmonitor"_s, u"right"_s, u"640/170x800/210+640+0"_s, u"none"_s }); };
    const auto at = [&](xcb_window_t w) {
        const QRect r = geometry(w);
        return u"%1,%2 %3x%4"_s.arg(r.x()).arg(r.y()).arg(r.width()).arg(r.height());
    };
    const auto restore = qScopeGuard([&] {
        xrandr({ u"--delmonitor"_s, u"right"_s });
        xrandr({ u"--delmonitor"_s, u"left"_s });
    });
    QVERIFY(xrandr({ u"--setmonitor"_s, u"left"_s, u"640/170x800/210+0+0"_s, u"screen"_s }));
    QVERIFY(addRight());
    QVERIFY(movePointer(right.center()));
    setSetting(SettingKeys::keyboardVisible(), true);
    STEP(startOrdalis());
    xcb_window_t window = 0;
    QTRY_VERIFY_WITH_TIMEOUT((window = panel()) != 0, deadline);

    // Shown on the pointer's monitor, narrowed to fit it.
    QTRY_VERIFY2_WITH_TIMEOUT(right.contains(geometry(window)), qPrintable(at(window)), deadline);
    const QRect onRight = geometry(window);
    QCOMPARE(onRight.width(), 640);

    // Its monitor goes: at once it is wholly on the other one.
    QVERIFY(xrandr({ u"--delmonitor"_s, u"right"_s }));
    QTRY_VERIFY2_WITH_TIMEOUT(left.contains(geometry(window)), qPrintable(at(window)), 1000);

    // Back again, it returns to its place on that set-up; shown again, it stays there.
    QVERIFY(addRight());
    QTRY_COMPARE_WITH_TIMEOUT(geometry(window), onRight, 1000);
    QCOMPARE(ordalis({ u"--hide"_s }).exitCode, 0);
    QTRY_VERIFY_WITH_TIMEOUT(panel() == 0, deadline);
    QCOMPARE(ordalis({ u"--show"_s }).exitCode, 0);
    QTRY_VERIFY_WITH_TIMEOUT((window = panel()) != 0, deadline);
    QTRY_COMPARE_WITH_TIMEOUT(geometry(window), onRight, deadline);

    // Shown with the pointer on the other monitor, it goes there; each set-up kept its own place.
    QCOMPARE(ordalis({ u"--hide"_s }).exitCode, 0);
    QTRY_VERIFY_WITH_TIMEOUT(panel() == 0, deadline);
    QVERIFY(movePointer(left.center()));
    QCOMPARE(ordalis({ u"--show"_s }).exitCode, 0);
    QTRY_VERIFY_WITH_TIMEOUT((window = panel()) != 0, deadline);
    QTRY_COMPARE_WITH_TIMEOUT(geometry(window), onRight.translated(-640, 0), deadline);

    // Both go, leaving the screen's own wide monitor: it takes back the width it had before it was narrowed.
    QVERIFY(xrandr({ u"--delmonitor"_s, u"right"_s }));
    QVERIFY(xrandr({ u"--delmonitor"_s, u"left"_s }));
    QTRY_VERIFY2_WITH_TIMEOUT(geometry(window).width() == 900 && QRect(QPoint(), screenSize).contains(geometry(window)),
        qPrintable(at(window)), 1000);
    STEP(stopOrdalis());
    const QJsonObject places
        = QJsonDocument::fromJson(SettingsStore(m_home->settingsPath()).value(SettingKeys::placesBySetup()).toUtf8())
              .object();
    QVERIFY2(places.size() >= 2, qPrintable(places.keys().join(u' ')));
}

void TestE2e::waylandSessionReadsTheDevices()
{
    if (!have({ u"weston"_s, u"Xwayland"_s, u"xdotool"_s, u"xwininfo"_s }) || m_bus.address().isEmpty())
        QSKIP("needs weston, Xwayland, xdotool, xwininfo and dbus-daemon");
    // weston starts XWayland on the first X client and says on which display.
    const QString log = m_home->path(u"weston.log"_s);
    QProcessEnvironment env = m_home->environment();
    const Helper weston = launch(u"weston"_s,
        { u"--backend=headless-backend.so"_s, u"--xwayland"_s, u"--socket=ordalis-test"_s, u"--idle-time=0"_s,
            u"--log="_s + log },
        env);
    QVERIFY(weston);
    QString display;
    static const QRegularExpression listening(u"xserver listening on display (:\\d+)"_s);
    QVERIFY(QTest::qWaitFor(
        [&] {
            QFile file(log);
            return file.open(QIODevice::ReadOnly)
                && !(display = listening.match(QString::fromUtf8(file.readAll())).captured(1)).isEmpty();
        },
        deadline));
    QProcessEnvironment onDisplay = QProcessEnvironment::systemEnvironment();
    onDisplay.insert(u"DISPLAY"_s, display);
    const auto hasWindow = [&](const QString& title) {
        return run(u"xwininfo"_s, { u"-root"_s, u"-tree"_s }, onDisplay).out.contains((u'"' + title + u'"').toUtf8());
    };
    const auto windowId = [&](const QString& title) {
        return QString::fromLatin1(
            run(u"xdotool"_s, { u"search"_s, u"--name"_s, title }, onDisplay).out.split('\n').first());
    };

    // A keyboard for the key helper's test build: a named pipe with the keys it has (A, Z, space), kept open here.
    const QString devices = m_home->path(u"devices"_s);
    QVERIFY(QDir().mkpath(devices));
    const QByteArray keyboard = QFile::encodeName(devices + u"/event0"_s);
    QCOMPARE(::mkfifo(keyboard.constData(), 0600), 0);
    const int device = ::open(keyboard.constData(), O_RDWR | O_CLOEXEC);
    QVERIFY(device >= 0);
    QByteArray header(2 * 96 + 1, '\0');
    for (int code : { KEY_A, KEY_Z, KEY_SPACE })
        header[code / 8] = char(header[code / 8] | 1 << code % 8);
    QCOMPARE(::write(device, header.constData(), std::size_t(header.size())), ssize_t(header.size()));
    const auto type = [device](int value) {
        input_event events[2] {};
        events[0] = { {}, EV_KEY, KEY_A, value };
        events[1] = { {}, EV_SYN, SYN_REPORT, 0 };
        return ::write(device, events, sizeof events) == ssize_t(sizeof events);
    };
    // Started as pkexec would start the helper, without a password.
    const QString launcher = m_home->path(u"launcher.sh"_s);
    QFile script(launcher);
    QVERIFY(script.open(QIODevice::WriteOnly));
    script.write(
        u"#!/bin/sh\nexec '%1' --device-dir '%2'\n"_s.arg(QStringLiteral(ORDALIS_KEYHELPER_TESTING_BINARY), devices)
            .toUtf8());
    script.close();
    QVERIFY(script.setPermissions(script.permissions() | QFileDevice::ExeOwner));
    QProcessEnvironment session;
    session.insert(u"XDG_SESSION_TYPE"_s, u"wayland"_s);
    session.insert(u"WAYLAND_DISPLAY"_s, u"ordalis-test"_s);
    session.insert(u"DISPLAY"_s, display);
    session.insert(u"ORDALIS_KEYHELPER_LAUNCHER"_s, launcher);
    STEP(startOrdalis({}, session));

    // The window goes through XWayland; no keyboard is readable, so keys wait until the user allows them.
    QTRY_VERIFY_WITH_TIMEOUT(hasWindow(u"Ordalis Keyboard"_s), deadline);
    QTRY_COMPARE_WITH_TIMEOUT(keySource(), u"none"_s, deadline);
    const QString request = u"Ordalis needs permission to see which keys you press"_s;
    QTRY_VERIFY_WITH_TIMEOUT(hasWindow(request), deadline);
    // Return on the request allows key access. A headless XWayland has no keyboard focus of its own, so the key
    // is sent to the request's window directly.
    run(u"xdotool"_s, { u"key"_s, u"--window"_s, windowId(request), u"Return"_s }, onDisplay);
    QTRY_COMPARE_WITH_TIMEOUT(keySource(), u"helper"_s, deadline);
    QVERIFY(!hasWindow(request));

    // A key pressed on the keyboard lights its cap (amber in the default theme) and goes dark when let go.
    const xcb_window_t panelWindow = windowId(u"Ordalis Keyboard"_s).toUInt();
    const auto red = [&] {
        xcb_connection_t* c = xcb_connect(display.toLatin1().constData(), nullptr);
        const Reply<xcb_get_image_reply_t> image(xcb_get_image_reply(
            c, xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, panelWindow, 128, 190, 1, 1, ~0U), nullptr));
        quint32 value = 0;
        const bool ok = image && xcb_get_image_data_length(image.get()) >= 4;
        if (ok)
            std::memcpy(&value, xcb_get_image_data(image.get()), 4);
        xcb_disconnect(c);
        return ok ? qRed(value) : -1;
    };
    const auto lit = [&] { return red() > 150; };
    const auto dark = [&] { return red() >= 0 && red() < 80; };
    QTRY_VERIFY_WITH_TIMEOUT(dark(), deadline);
    QVERIFY(type(1));
    QTRY_VERIFY_WITH_TIMEOUT(lit(), deadline);
    QVERIFY(type(0));
    QTRY_VERIFY_WITH_TIMEOUT(dark(), deadline);

    ::close(device);
    STEP(stopOrdalis());
}

int main(int argc, char** argv)
{
    const int seconds = qEnvironmentVariableIntValue("ORDALIS_LONG_RUN_SECONDS");
    if (seconds > 0 && qEnvironmentVariableIsEmpty("QTEST_FUNCTION_TIMEOUT"))
        qputenv("QTEST_FUNCTION_TIMEOUT", QByteArray::number((qint64(seconds) + 300) * 1000));
    const Helper server = startXServer(screenSize.width(), screenSize.height());
    QTemporaryDir runtimeDir;
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtimeDir.path()));
    QGuiApplication app(argc, argv);
    TestE2e test;
    return QTest::qExec(&test, argc, argv);
}

#include "teste2e.moc"
