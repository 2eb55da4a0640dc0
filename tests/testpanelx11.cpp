// SPDX-License-Identifier: GPL-3.0-or-later
// Runs the real ordalis on a private Xvfb with openbox, types with xdotool (XTEST) as a user would, and looks at the
// screen. Skips when Xvfb, openbox or xdotool are missing.
#include "app/clock.h"
#include "app/settingkeys.h"
#include "app/settingsstore.h"
#include "keyboard/keyboardscene.h"
#include "theme/hsbcolor.h"
#include "theme/themestyle.h"

#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QImage>
#include <QPixmap>
#include <QProcess>
#include <QScreen>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <cstdlib>
#include <memory>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/shape.h>
#include <xcb/xcb.h>

using namespace Qt::StringLiterals;

namespace {

/** Milliseconds any one thing may take to show up on a busy two-core machine. */
constexpr int deadline = 20000;
constexpr int screenWidth = 1280;
constexpr int screenHeight = 800;
/** Key codes of A and S in the keyboard's table. */
constexpr KeyCode keyA = 0;
constexpr KeyCode keyS = 1;

template <typename T> struct FreeDeleter
{
    void operator()(T* p) const { std::free(p); }
};
template <typename T> using Reply = std::unique_ptr<T, FreeDeleter<T>>;

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
            // Gone with the test, also when a timeout kills it.
            ::prctl(PR_SET_PDEATHSIG, SIGTERM);
            // dup2 clears close-on-exec on the copy, unless it is the same descriptor.
            if (fds[1] == 3)
                ::fcntl(3, F_SETFD, 0);
            else
                ::dup2(fds[1], 3);
            const int devNull = ::open("/dev/null", O_WRONLY);
            ::dup2(devNull, STDOUT_FILENO);
            ::dup2(devNull, STDERR_FILENO);
            const QByteArray screen = QByteArray::number(screenWidth) + 'x' + QByteArray::number(screenHeight) + "x24";
            ::execlp(
                "Xvfb", "Xvfb", "-displayfd", "3", "-nolisten", "tcp", "-screen", "0", screen.constData(), nullptr);
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

/** The test's own X connection: the window the user is typing into, and a look at everyone's properties. */
class X11Client final
{
public:
    X11Client()
        : m_c(xcb_connect(nullptr, nullptr))
    {
        m_root = xcb_setup_roots_iterator(xcb_get_setup(m_c)).data->root;
    }
    ~X11Client() { xcb_disconnect(m_c); }
    Q_DISABLE_COPY_MOVE(X11Client)

    xcb_connection_t* connection() const { return m_c; }
    xcb_window_t root() const { return m_root; }

    xcb_atom_t atom(const char* name)
    {
        const Reply<xcb_intern_atom_reply_t> reply(
            xcb_intern_atom_reply(m_c, xcb_intern_atom(m_c, 0, quint16(qstrlen(name)), name), nullptr));
        return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    }

    /** The 32-bit items of a property, empty when it is missing. */
    QList<quint32> property(xcb_window_t window, const char* name)
    {
        const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            m_c, xcb_get_property(m_c, 0, window, atom(name), XCB_GET_PROPERTY_TYPE_ANY, 0, 4096), nullptr));
        if (!reply || reply->format != 32)
            return {};
        const auto* items = static_cast<const quint32*>(xcb_get_property_value(reply.get()));
        return QList<quint32>(items, items + xcb_get_property_value_length(reply.get()) / 4);
    }

    QByteArray text(xcb_window_t window, const char* name)
    {
        const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            m_c, xcb_get_property(m_c, 0, window, atom(name), XCB_GET_PROPERTY_TYPE_ANY, 0, 4096), nullptr));
        if (!reply || reply->format != 8)
            return {};
        return QByteArray(
            static_cast<const char*>(xcb_get_property_value(reply.get())), xcb_get_property_value_length(reply.get()));
    }

    /** The managed window called `name`, or 0. */
    xcb_window_t findClient(const QByteArray& name)
    {
        for (quint32 window : property(m_root, "_NET_CLIENT_LIST")) {
            if (text(window, "_NET_WM_NAME") == name)
                return window;
        }
        return 0;
    }

    /** Where `window` lies on the screen. */
    QRect geometry(xcb_window_t window)
    {
        const Reply<xcb_get_geometry_reply_t> size(xcb_get_geometry_reply(m_c, xcb_get_geometry(m_c, window), nullptr));
        const Reply<xcb_translate_coordinates_reply_t> place(
            xcb_translate_coordinates_reply(m_c, xcb_translate_coordinates(m_c, window, m_root, 0, 0), nullptr));
        if (!size || !place)
            return {};
        return { place->dst_x, place->dst_y, size->width, size->height };
    }

    bool isViewable(xcb_window_t window)
    {
        const Reply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(m_c, xcb_get_window_attributes(m_c, window), nullptr));
        return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
    }

    xcb_window_t focus()
    {
        const Reply<xcb_get_input_focus_reply_t> reply(
            xcb_get_input_focus_reply(m_c, xcb_get_input_focus(m_c), nullptr));
        return reply ? reply->focus : 0;
    }

    /** Where the window's input shape reaches, in its own coordinates. */
    QRect inputShapeBounds(xcb_window_t window)
    {
        const Reply<xcb_shape_get_rectangles_reply_t> reply(
            xcb_shape_get_rectangles_reply(m_c, xcb_shape_get_rectangles(m_c, window, XCB_SHAPE_SK_INPUT), nullptr));
        QRect bounds;
        if (!reply)
            return bounds;
        const xcb_rectangle_t* rects = xcb_shape_get_rectangles_rectangles(reply.get());
        for (int i = 0; i < xcb_shape_get_rectangles_rectangles_length(reply.get()); ++i)
            bounds |= QRect(rects[i].x, rects[i].y, rects[i].width, rects[i].height);
        return bounds;
    }

    /** Rectangles of the window's input shape: none when it lets every click through. */
    int inputShapeRectangles(xcb_window_t window)
    {
        const Reply<xcb_shape_get_rectangles_reply_t> reply(
            xcb_shape_get_rectangles_reply(m_c, xcb_shape_get_rectangles(m_c, window, XCB_SHAPE_SK_INPUT), nullptr));
        return reply ? int(reply->rectangles_len) : -1;
    }

    /** A managed, light grey window that takes button presses, mapped and waited for. */
    xcb_window_t createWindow(const QByteArray& name, const QRect& rect)
    {
        const xcb_window_t window = xcb_generate_id(m_c);
        const std::uint32_t values[] = { 0xd8d8d8, XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_STRUCTURE_NOTIFY };
        xcb_create_window(m_c, XCB_COPY_FROM_PARENT, window, m_root, std::int16_t(rect.x()), std::int16_t(rect.y()),
            std::uint16_t(rect.width()), std::uint16_t(rect.height()), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
            XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
        xcb_change_property(m_c, XCB_PROP_MODE_REPLACE, window, atom("_NET_WM_NAME"), atom("UTF8_STRING"), 8,
            std::uint32_t(name.size()), name.constData());
        // Placed where asked (USPosition, USSize), not where the window manager would like.
        std::uint32_t hints[18] = { 1 | 2, 0, 0, 0, 0 };
        hints[1] = std::uint32_t(rect.x());
        hints[2] = std::uint32_t(rect.y());
        hints[3] = std::uint32_t(rect.width());
        hints[4] = std::uint32_t(rect.height());
        xcb_change_property(
            m_c, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, 32, 18, hints);
        return window;
    }

    /**
     * Maps `window` and waits until it is viewable. WORKAROUND: openbox 3.6.1 announces itself before it is ready
     * and may drop a map request that comes too early; the request is repeated until it is served.
     */
    bool mapAndWait(xcb_window_t window, int timeout)
    {
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < timeout) {
            xcb_map_window(m_c, window);
            xcb_flush(m_c);
            QElapsedTimer attempt;
            attempt.start();
            while (attempt.elapsed() < 1000) {
                if (isViewable(window))
                    return true;
                QTest::qWait(20);
            }
        }
        return false;
    }

    /** Asks for events of `mask` on `window`. */
    void select(xcb_window_t window, std::uint32_t mask)
    {
        xcb_change_window_attributes(m_c, window, XCB_CW_EVENT_MASK, &mask);
        roundTrip();
    }

    /** Waits until the server has handled everything sent so far, so that the events it caused are here. */
    void roundTrip() { std::free(xcb_get_input_focus_reply(m_c, xcb_get_input_focus(m_c), nullptr)); }

    /** Takes the events received so far: how many presses on `pressed`, how many unmaps of `unmapped`. */
    void takeEvents(xcb_window_t pressed, int* presses, xcb_window_t unmapped, int* unmaps)
    {
        roundTrip();
        while (xcb_generic_event_t* event = xcb_poll_for_event(m_c)) {
            const int type = event->response_type & 0x7f;
            if (type == XCB_BUTTON_PRESS && reinterpret_cast<xcb_button_press_event_t*>(event)->event == pressed)
                ++*presses;
            if (type == XCB_UNMAP_NOTIFY && reinterpret_cast<xcb_unmap_notify_event_t*>(event)->window == unmapped)
                ++*unmaps;
            std::free(event);
        }
    }

private:
    xcb_connection_t* m_c;
    xcb_window_t m_root = 0;
};

/** A helper process that ends with the test, also when a timeout kills the test. */
void tieToTest(QProcess& process)
{
    process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
}

bool run(const QString& program, const QStringList& args)
{
    return QProcess::execute(program, args) == 0;
}

/** Whether two colours agree to within rounding. */
bool near(const QColor& a, const QColor& b)
{
    return std::abs(a.red() - b.red()) <= 2 && std::abs(a.green() - b.green()) <= 2
        && std::abs(a.blue() - b.blue()) <= 2;
}

QString describe(const QColor& colour)
{
    return colour.name(QColor::HexRgb);
}

} // namespace

class TestPanelX11 final : public QObject
{
    Q_OBJECT

public:
    explicit TestPanelX11(bool haveServer)
        : m_haveServer(haveServer)
    {
    }

private slots:
    void initTestCase();
    void cleanupTestCase();

    void panelShowsWithoutTakingFocus();
    void heldKeyLightsInSpacegray();
    void themeChangeInTheFileIsFollowed();
    void hoverLetsClicksThroughWithoutUnmapping();
    void dragsMoveAndResizeThePanel();

private:
    void selectTheme(const QString& name);
    /** The colour on screen at `point`, read afresh. */
    static QColor screenColour(const QPoint& point);
    /** Waits until the screen at `point` shows `colour`; the milliseconds it took, or -1 at the deadline. */
    static qint64 waitForColour(const QPoint& point, const QColor& colour, int timeout = deadline);
    /** A point on the face of `code`, clear of its label, in screen coordinates. */
    QPoint facePoint(KeyCode code) const;
    /** Saves the panel with some of its surroundings next to the test executable. */
    void saveScreenshot(const QString& name) const;

    bool m_haveServer;
    QTemporaryDir m_home;
    std::unique_ptr<SettingsStore> m_settings;
    ManualClock m_clock;
    std::unique_ptr<X11Client> m_x;
    QProcess m_windowManager;
    QProcess m_ordalis;
    xcb_window_t m_other = 0;
    xcb_window_t m_panel = 0;
    QRect m_panelRect;
};

void TestPanelX11::initTestCase()
{
    if (!m_haveServer)
        QSKIP("Xvfb is not installed or did not start");
    for (const QString& tool : { u"openbox"_s, u"xdotool"_s }) {
        if (QStandardPaths::findExecutable(tool).isEmpty())
            QSKIP(qPrintable(tool + u" is not installed"_s));
    }
    QCOMPARE(QGuiApplication::platformName(), u"xcb"_s);
    QVERIFY(m_home.isValid());
    m_x = std::make_unique<X11Client>();

    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"HOME"_s, m_home.path());
    env.insert(u"XDG_CONFIG_HOME"_s, m_home.filePath(u"config"_s));
    m_windowManager.setProcessEnvironment(env);
    tieToTest(m_windowManager);
    m_windowManager.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_windowManager.start(u"openbox"_s, { u"--sm-disable"_s });
    QVERIFY(m_windowManager.waitForStarted(deadline));
    QTRY_VERIFY_WITH_TIMEOUT(!m_x->property(m_x->root(), "_NET_SUPPORTING_WM_CHECK").isEmpty(), deadline);
    QTRY_COMPARE_WITH_TIMEOUT(
        m_x->text(m_x->property(m_x->root(), "_NET_SUPPORTING_WM_CHECK").value(0), "_NET_WM_NAME"), "Openbox",
        deadline);

    // The application the user is working in: it covers the screen and has the focus.
    m_other = m_x->createWindow("Other", QRect(0, 0, screenWidth, screenHeight));
    QVERIFY(m_x->mapAndWait(m_other, deadline));
    QVERIFY(run(u"xdotool"_s, { u"windowactivate"_s, u"--sync"_s, QString::number(m_other) }));
    QTRY_COMPARE_WITH_TIMEOUT(m_x->focus(), m_other, deadline);

    m_settings = std::make_unique<SettingsStore>(m_home.filePath(u"config/ordalis/settings.json"_s));
    selectTheme(u"Spacegray"_s);
    m_settings->setValue(SettingKeys::keyboardVisible(), true);

    // As in a Wayland session with XWayland: Ordalis must choose X11 by itself.
    env.remove(u"QT_QPA_PLATFORM"_s);
    env.insert(u"XDG_SESSION_TYPE"_s, u"wayland"_s);
    env.insert(u"WAYLAND_DISPLAY"_s, u"ordalis-test-no-such-display"_s);
    env.insert(u"XDG_RUNTIME_DIR"_s, m_home.path());
    m_ordalis.setProcessEnvironment(env);
    tieToTest(m_ordalis);
    m_ordalis.setProcessChannelMode(QProcess::ForwardedChannels);
    m_ordalis.start(QStringLiteral(ORDALIS_BINARY), {});
    QVERIFY(m_ordalis.waitForStarted(deadline));
    QTRY_VERIFY_WITH_TIMEOUT((m_panel = m_x->findClient("Ordalis Keyboard")) != 0, deadline);
    QTRY_VERIFY_WITH_TIMEOUT(m_x->isViewable(m_panel), deadline);
    m_panelRect = m_x->geometry(m_panel);
    qInfo("panel at %d,%d size %dx%d", m_panelRect.x(), m_panelRect.y(), m_panelRect.width(), m_panelRect.height());
}

void TestPanelX11::cleanupTestCase()
{
    if (m_ordalis.state() != QProcess::NotRunning) {
        m_ordalis.terminate();
        m_ordalis.waitForFinished(deadline);
    }
    if (m_windowManager.state() != QProcess::NotRunning) {
        m_windowManager.terminate();
        m_windowManager.waitForFinished(deadline);
    }
}

void TestPanelX11::selectTheme(const QString& name)
{
    for (const NamedTheme& theme : builtInThemes()) {
        if (theme.name == name) {
            m_settings->setValue(SettingKeys::activeThemeConfig(), theme.config);
            m_settings->setValue(SettingKeys::activeThemeName(), theme.name);
            return;
        }
    }
    QFAIL("no such theme");
}

QColor TestPanelX11::screenColour(const QPoint& point)
{
    const QImage pixel = QGuiApplication::primaryScreen()->grabWindow(0, point.x(), point.y(), 1, 1).toImage();
    return pixel.isNull() ? QColor() : pixel.pixelColor(0, 0);
}

qint64 TestPanelX11::waitForColour(const QPoint& point, const QColor& colour, int timeout)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < timeout) {
        if (near(screenColour(point), colour))
            return timer.elapsed();
        QTest::qWait(5);
    }
    return -1;
}

QPoint TestPanelX11::facePoint(KeyCode code) const
{
    // The same drawing as the panel's, at the panel's size, tells where the key lies.
    KeyboardScene scene(*m_settings, const_cast<ManualClock&>(m_clock), nullptr);
    scene.setSize(QSizeF(m_panelRect.size()));
    const QRectF face = scene.keyRect(code);
    // Centred across, a fifth of the way down: above the label, and inside the cap even while it is pressed.
    return m_panelRect.topLeft() + QPointF(face.center().x(), face.top() + 0.2 * face.height()).toPoint();
}

void TestPanelX11::saveScreenshot(const QString& name) const
{
    const QRect area = m_panelRect.adjusted(-24, -24, 24, 24);
    const QPixmap shot
        = QGuiApplication::primaryScreen()->grabWindow(0, area.x(), area.y(), area.width(), area.height());
    const QString path = QDir(QCoreApplication::applicationDirPath()).filePath(name);
    QVERIFY(shot.save(path));
    qInfo("screenshot: %s", qPrintable(path));
}

void TestPanelX11::panelShowsWithoutTakingFocus()
{
    QCOMPARE(m_x->focus(), m_other);
    QCOMPARE(m_x->property(m_x->root(), "_NET_ACTIVE_WINDOW").value(0), quint32(m_other));

    const QList<quint32> stacking = m_x->property(m_x->root(), "_NET_CLIENT_LIST_STACKING");
    QVERIFY(stacking.indexOf(m_panel) > stacking.indexOf(m_other));

    const QList<quint32> states = m_x->property(m_panel, "_NET_WM_STATE");
    QVERIFY(states.contains(m_x->atom("_NET_WM_STATE_SKIP_TASKBAR")));
    QVERIFY(states.contains(m_x->atom("_NET_WM_STATE_SKIP_PAGER")));
    QVERIFY(states.contains(m_x->atom("_NET_WM_STATE_ABOVE")));
    QCOMPARE(m_x->property(m_panel, "_NET_WM_DESKTOP"), QList<quint32> { 0xFFFFFFFF });

    // 900 wide at the default theme's ratio, centred on the screen.
    QCOMPARE(m_panelRect.size(), QSize(900, 350));
    QVERIFY(std::abs(m_panelRect.center().x() - screenWidth / 2) <= 1);
    QVERIFY(std::abs(m_panelRect.center().y() - screenHeight / 2) <= 1);

    // Clicking the panel leaves the focus where it was.
    QVERIFY(run(u"xdotool"_s,
        { u"mousemove"_s, u"--sync"_s, QString::number(m_panelRect.x() + 20), QString::number(m_panelRect.y() + 20),
            u"click"_s, u"1"_s }));
    m_x->roundTrip();
    QCOMPARE(m_x->focus(), m_other);
    QVERIFY(run(u"xdotool"_s, { u"mousemove"_s, u"--sync"_s, u"2"_s, u"2"_s }));
}

void TestPanelX11::heldKeyLightsInSpacegray()
{
    const ThemeStyle style(m_settings->value(SettingKeys::activeThemeConfig()));
    const QColor rest = style.keyBackground.toQColor();
    const QColor pressed = style.keyPressedBackground.toQColor();
    const QPoint a = facePoint(keyA);
    const QPoint s = facePoint(keyS);
    QVERIFY2(waitForColour(a, rest) >= 0, qPrintable(describe(screenColour(a)) + u" is not "_s + describe(rest)));
    saveScreenshot(u"panel-spacegray.png"_s);

    QVERIFY(run(u"xdotool"_s, { u"keydown"_s, u"a"_s }));
    const qint64 lit = waitForColour(a, pressed);
    QVERIFY2(lit >= 0, qPrintable(describe(screenColour(a)) + u" is not "_s + describe(pressed)));
    QVERIFY2(near(screenColour(s), rest), qPrintable(describe(screenColour(s))));
    saveScreenshot(u"panel-spacegray-a-held.png"_s);

    QElapsedTimer released;
    released.start();
    QVERIFY(run(u"xdotool"_s, { u"keyup"_s, u"a"_s }));
    QVERIFY(waitForColour(a, rest) >= 0);
    const qint64 back = released.elapsed();
    const double decay = m_settings->value(SettingKeys::glowDecay());
    qInfo("lit after %lld ms; back at rest %lld ms after the release (glow decay %.0f ms plus one frame %.0f ms)", lit,
        back, decay * 1000, 1000.0 / 60);
    // Starting xdotool and grabbing the screen take their share; a loaded machine gets plenty of slack.
    QVERIFY2(back < 3000, qPrintable(QString::number(back)));
}

void TestPanelX11::themeChangeInTheFileIsFollowed()
{
    selectTheme(u"Black"_s);
    const ThemeStyle style(m_settings->value(SettingKeys::activeThemeConfig()));
    const QColor rest = style.keyBackground.toQColor();
    const QColor pressed = style.keyPressedBackground.toQColor();
    const QPoint a = facePoint(keyA);
    const QPoint s = facePoint(keyS);
    QVERIFY2(waitForColour(a, rest) >= 0, qPrintable(describe(screenColour(a)) + u" is not "_s + describe(rest)));

    QVERIFY(run(u"xdotool"_s, { u"keydown"_s, u"a"_s }));
    QVERIFY2(waitForColour(a, pressed) >= 0, qPrintable(describe(screenColour(a)) + u" is not "_s + describe(pressed)));
    QVERIFY(near(screenColour(s), rest));
    saveScreenshot(u"panel-black-a-held.png"_s);
    QVERIFY(run(u"xdotool"_s, { u"keyup"_s, u"a"_s }));
    QVERIFY(waitForColour(a, rest) >= 0);
}

void TestPanelX11::hoverLetsClicksThroughWithoutUnmapping()
{
    m_settings->setValue(SettingKeys::autoHideOnHover(), true);
    m_x->select(m_panel, XCB_EVENT_MASK_STRUCTURE_NOTIFY);
    int presses = 0;
    int unmaps = 0;
    m_x->takeEvents(m_other, &presses, m_panel, &unmaps);
    presses = 0;
    QVERIFY(m_x->inputShapeRectangles(m_panel) > 0);

    const QPoint inside = m_panelRect.topLeft() + QPoint(12, m_panelRect.height() / 2);
    QVERIFY(
        run(u"xdotool"_s, { u"mousemove"_s, u"--sync"_s, QString::number(inside.x()), QString::number(inside.y()) }));
    QElapsedTimer timer;
    timer.start();
    QTRY_COMPARE_WITH_TIMEOUT(m_x->inputShapeRectangles(m_panel), 0, deadline);
    qInfo("clicks pass through %lld ms after the pointer came over the panel", timer.elapsed());
    // Faded to "autoHideOpacity" (the window keeps it in steps of 1/255).
    const double faded = m_x->property(m_panel, "_NET_WM_WINDOW_OPACITY").value(0) / double(0xFFFFFFFF);
    QVERIFY2(std::abs(faded - m_settings->value(SettingKeys::autoHideOpacity())) <= 1.0 / 255,
        qPrintable(QString::number(faded)));

    // A click over the faded panel lands in the window below, and the panel stays where it is, mapped and on top.
    QVERIFY(run(u"xdotool"_s, { u"click"_s, u"1"_s }));
    m_x->takeEvents(m_other, &presses, m_panel, &unmaps);
    QCOMPARE(presses, 1);
    QVERIFY(m_x->isViewable(m_panel));
    const QList<quint32> stacking = m_x->property(m_x->root(), "_NET_CLIENT_LIST_STACKING");
    QVERIFY(stacking.indexOf(m_panel) > stacking.indexOf(m_other));

    // The pointer stays over it: the window system's leave does not end the hover.
    QTest::qWait(300);
    QCOMPARE(m_x->inputShapeRectangles(m_panel), 0);

    // Leaving brings it back, clickable and opaque.
    QVERIFY(run(u"xdotool"_s, { u"mousemove"_s, u"--sync"_s, u"2"_s, u"2"_s }));
    timer.restart();
    QTRY_VERIFY_WITH_TIMEOUT(m_x->inputShapeRectangles(m_panel) > 0, deadline);
    qInfo("clickable again %lld ms after the pointer left", timer.elapsed());
    QTRY_COMPARE_WITH_TIMEOUT(
        m_x->property(m_panel, "_NET_WM_WINDOW_OPACITY").value(0, 0xFFFFFFFF), 0xFFFFFFFF, deadline);
    m_x->takeEvents(m_other, &presses, m_panel, &unmaps);
    QCOMPARE(unmaps, 0);
    QVERIFY(m_x->isViewable(m_panel));
    m_settings->setValue(SettingKeys::autoHideOnHover(), false);
}

void TestPanelX11::dragsMoveAndResizeThePanel()
{
    const auto xdotool = [](const QStringList& args) { return run(u"xdotool"_s, args); };
    const auto number = [](int n) { return QString::number(n); };
    selectTheme(u"Spacegray"_s);
    QVERIFY(waitForColour(facePoint(keyA),
                ThemeStyle(m_settings->value(SettingKeys::activeThemeConfig())).keyBackground.toQColor())
        >= 0);
    const QRect before = m_panelRect;

    // The background, anywhere but on the handle, moves the panel along with the pointer.
    const QPoint grip = before.center();
    QVERIFY(xdotool({ u"mousemove"_s, u"--sync"_s, number(grip.x()), number(grip.y()), u"mousedown"_s, u"1"_s }));
    for (const QPoint& step : { QPoint(15, 10), QPoint(30, 20), QPoint(40, 30) })
        QVERIFY(xdotool({ u"mousemove"_s, u"--sync"_s, number(grip.x() + step.x()), number(grip.y() + step.y()) }));
    QVERIFY(xdotool({ u"mouseup"_s, u"1"_s }));
    QTRY_COMPARE_WITH_TIMEOUT(m_x->geometry(m_panel), before.translated(40, 30), deadline);
    m_settings->reload();
    QTRY_COMPARE_WITH_TIMEOUT(m_settings->value(SettingKeys::windowX()).value_or(0), before.x() + 40.0, deadline);
    m_panelRect = m_x->geometry(m_panel);

    // The handle resizes it from the top-left corner; the keyboard makes way for a plain placeholder meanwhile.
    const ThemeConfig config = m_settings->value(SettingKeys::activeThemeConfig());
    const QColor chassis
        = HsbColor { config.chassisHue, config.chassisSaturation, config.chassisBrightness, 1 }.toQColor();
    const QPoint handle = m_panelRect.bottomRight() - QPoint(7, 7);
    QVERIFY(xdotool({ u"mousemove"_s, u"--sync"_s, number(handle.x()), number(handle.y()), u"mousedown"_s, u"1"_s }));
    bool placeholderSeen = false;
    int travel = 0;
    while (travel < 60) {
        travel += 12;
        QVERIFY(xdotool({ u"mousemove"_s, u"--sync"_s, number(handle.x() + travel), number(handle.y() + 3) }));
        const QRect now = m_x->geometry(m_panel);
        if (!placeholderSeen && now.width() > m_panelRect.width() && near(screenColour(now.center()), chassis)) {
            placeholderSeen = true;
            m_panelRect = now;
            saveScreenshot(u"panel-resizing.png"_s);
        }
    }
    QVERIFY(xdotool({ u"mouseup"_s, u"1"_s }));
    QVERIFY(placeholderSeen);

    const double ratio = KeyboardScene::aspectRatio(config);
    const QRect resized(before.topLeft() + QPoint(40, 30), QSize(900 + travel, qRound((900 + travel) / ratio)));
    QTRY_COMPARE_WITH_TIMEOUT(m_x->geometry(m_panel), resized, deadline);
    m_panelRect = resized;
    // After the hover's click-through earlier on, the new area takes clicks too.
    QCOMPARE(m_x->inputShapeBounds(m_panel), QRect(QPoint(0, 0), resized.size()));
    m_settings->reload();
    QTRY_COMPARE_WITH_TIMEOUT(m_settings->value(SettingKeys::windowWidth()), 900.0 + travel, deadline);
    // Laid out again for the new size once it settled.
    const QPoint a = facePoint(keyA);
    const QColor rest = ThemeStyle(config).keyBackground.toQColor();
    QVERIFY2(waitForColour(a, rest) >= 0, qPrintable(describe(screenColour(a))));
    saveScreenshot(u"panel-resized.png"_s);
    // Under the pointer the handle darkens behind its symbol; four times larger for a person to look at.
    const QRect corner(m_panelRect.bottomRight() - QPoint(47, 47), QSize(64, 64));
    const auto grabCorner = [&corner] {
        return QGuiApplication::primaryScreen()
            ->grabWindow(0, corner.x(), corner.y(), corner.width(), corner.height())
            .toImage();
    };
    const QImage resting = grabCorner();
    const auto changedPixels = [&resting](const QImage& now) {
        int changed = 0;
        for (int y = 0; y < now.height(); ++y) {
            for (int x = 0; x < now.width(); ++x)
                changed += std::abs(qGray(now.pixel(x, y)) - qGray(resting.pixel(x, y))) > 40;
        }
        return changed;
    };
    const QPoint handleNow = m_panelRect.bottomRight() - QPoint(7, 7);
    QVERIFY(xdotool({ u"mousemove"_s, u"--sync"_s, number(handleNow.x()), number(handleNow.y()) }));
    QTRY_VERIFY_WITH_TIMEOUT(changedPixels(grabCorner()) > 40, deadline);
    // The rest of the 0.15 s change.
    QTest::qWait(300);
    const QImage hovered = grabCorner();
    const QString path = QDir(QCoreApplication::applicationDirPath()).filePath(u"panel-handle-hovered.png"_s);
    QVERIFY(hovered.scaled(hovered.size() * 4).save(path));
    qInfo("screenshot: %s", qPrintable(path));
    QVERIFY(xdotool({ u"mousemove"_s, u"--sync"_s, u"2"_s, u"2"_s }));
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
    TestPanelX11 test(haveServer);
    return QTest::qExec(&test, argc, argv);
}

#include "testpanelx11.moc"
