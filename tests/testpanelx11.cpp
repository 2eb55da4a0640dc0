// SPDX-License-Identifier: GPL-3.0-or-later
// Runs the real ordalis on a private Xvfb with openbox, types with xdotool (XTEST) as a user would, and looks at the
// screen. Skips when Xvfb, openbox or xdotool are missing.
#include "base/clock.h"
#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "keyboard/keyboardscene.h"
#include "theme/hsbcolor.h"
#include "theme/themestyle.h"
#include "x11testsupport.h"

#include <QAbstractNativeEventFilter>
#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QImage>
#include <QPixmap>
#include <QProcess>
#include <QRasterWindow>
#include <QRegion>
#include <QScopeGuard>
#include <QScreen>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <sys/prctl.h>
#include <xcb/shape.h>
#include <xcb/xcb.h>

using namespace Qt::StringLiterals;
using namespace X11Test;

namespace {

constexpr int screenWidth = 1280;
constexpr int screenHeight = 800;
/** Key codes of A and S in the keyboard's table. */
constexpr KeyCode keyA = 0;
constexpr KeyCode keyS = 1;

// A look at everyone's windows, through the test's own connection to the display.

/** The 32-bit items of a property. */
QList<quint32> items(xcb_window_t window, const char* name)
{
    const QByteArray bytes = propertyBytes(window, name);
    QList<quint32> items(bytes.size() / 4);
    // An empty list has no storage, and memcpy must not be handed a null pointer even for no bytes.
    if (!items.isEmpty())
        std::memcpy(items.data(), bytes.constData(), size_t(items.size()) * 4);
    return items;
}

/** The managed window called `name`, or 0. */
xcb_window_t findClient(const QByteArray& name)
{
    for (quint32 window : items(root(), "_NET_CLIENT_LIST")) {
        if (propertyBytes(window, "_NET_WM_NAME") == name)
            return window;
    }
    return 0;
}

xcb_window_t focus()
{
    const Reply<xcb_get_input_focus_reply_t> reply(
        xcb_get_input_focus_reply(connection(), xcb_get_input_focus(connection()), nullptr));
    return reply ? reply->focus : 0;
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

/** Counts how often one window is unmapped, among the X events the test receives. */
struct UnmapCounter final : QAbstractNativeEventFilter
{
    explicit UnmapCounter(xcb_window_t watched)
        : window(watched)
    {
        const std::uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
        xcb_change_window_attributes(connection(), watched, XCB_CW_EVENT_MASK, &mask);
        qGuiApp->installNativeEventFilter(this);
    }
    bool nativeEventFilter(const QByteArray&, void* message, qintptr*) override
    {
        const auto* event = static_cast<const xcb_unmap_notify_event_t*>(message);
        count += (event->response_type & 0x7f) == XCB_UNMAP_NOTIFY && event->window == window;
        return false;
    }

    xcb_window_t window;
    int count = 0;
};

/** The application the user is working in; it counts the clicks that reach it. */
class OtherWindow final : public QRasterWindow
{
public:
    int presses = 0;

protected:
    void mousePressEvent(QMouseEvent*) override { ++presses; }
};

/** Moves the pointer to `point` and waits until it is there, then runs `then` (further xdotool commands). */
bool movePointer(const QPoint& point, const QStringList& then = {})
{
    return xdotool(
        QStringList { u"mousemove"_s, u"--sync"_s, QString::number(point.x()), QString::number(point.y()) } + then);
}

} // namespace

class TestPanelX11 final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void panelShowsWithoutTakingFocus();
    void heldKeyLights_data();
    void heldKeyLights();
    void hoverLetsClicksThroughWithoutUnmapping();
    void dragsMoveAndResizeThePanel();

private:
    void selectTheme(const QString& name);
    quint32 other() const { return quint32(m_other.winId()); }
    bool isAboveOther()
    {
        const QList<quint32> stacking = items(root(), "_NET_CLIENT_LIST_STACKING");
        return stacking.indexOf(m_panel) > stacking.indexOf(other());
    }
    ThemeStyle style() const { return ThemeStyle(m_settings->value(SettingKeys::activeThemeConfig())); }
    /** A point on the face of `code`, clear of its label, in screen coordinates. */
    QPoint facePoint(KeyCode code) const;
    /** Saves the panel with some of its surroundings next to the test executable. */
    void saveScreenshot(const QString& name) const;

    QTemporaryDir m_home;
    std::unique_ptr<SettingsStore> m_settings;
    ManualClock m_clock;
    // Ended in the reverse order: Ordalis before its window manager.
    Helper m_windowManager;
    Helper m_ordalis;
    OtherWindow m_other;
    xcb_window_t m_panel = 0;
    QRect m_panelRect;
};

void TestPanelX11::initTestCase()
{
    if (QGuiApplication::platformName() != u"xcb"_s)
        QSKIP("Xvfb is not installed or did not start");
    for (const QString& tool : { u"openbox"_s, u"xdotool"_s }) {
        if (QStandardPaths::findExecutable(tool).isEmpty())
            QSKIP(qPrintable(tool + u" is not installed"_s));
    }
    QVERIFY(m_home.isValid());

    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"HOME"_s, m_home.path());
    env.insert(u"XDG_CONFIG_HOME"_s, m_home.filePath(u"config"_s));
    m_windowManager = launch(u"openbox"_s, { u"--sm-disable"_s }, env);
    QVERIFY(m_windowManager);
    QTRY_COMPARE_WITH_TIMEOUT(
        propertyBytes(items(root(), "_NET_SUPPORTING_WM_CHECK").value(0), "_NET_WM_NAME"), "Openbox", deadline);

    // The application the user is working in: it covers the screen and has the focus. WORKAROUND: openbox 3.6.1
    // announces itself before it is ready and may drop a map request that comes too early; the window is shown
    // again until it is served.
    m_other.setGeometry(0, 0, screenWidth, screenHeight);
    for (int attempt = 0; attempt < deadline / 1000 && !m_other.isExposed(); ++attempt) {
        m_other.hide();
        m_other.show();
        if (QTest::qWaitForWindowExposed(&m_other, 1000))
            break;
    }
    QVERIFY(m_other.isExposed());
    QVERIFY(xdotool({ u"windowactivate"_s, u"--sync"_s, QString::number(other()) }));
    QTRY_COMPARE_WITH_TIMEOUT(focus(), other(), deadline);

    m_settings = std::make_unique<SettingsStore>(m_home.filePath(u"config/ordalis/settings.json"_s));
    selectTheme(u"Spacegray"_s);
    m_settings->setValue(SettingKeys::keyboardVisible(), true);

    // As in a Wayland session with XWayland: Ordalis must choose X11 by itself.
    env.remove(u"QT_QPA_PLATFORM"_s);
    env.insert(u"XDG_SESSION_TYPE"_s, u"wayland"_s);
    env.insert(u"WAYLAND_DISPLAY"_s, u"ordalis-test-no-such-display"_s);
    // Such a session would read keys from the devices; this test types into the X server.
    env.insert(u"ORDALIS_INPUT"_s, u"x11"_s);
    env.insert(u"XDG_RUNTIME_DIR"_s, m_home.path());
    m_ordalis = launch(QStringLiteral(ORDALIS_BINARY), {}, env);
    QVERIFY(m_ordalis);
    QTRY_VERIFY_WITH_TIMEOUT((m_panel = findClient("Ordalis Keyboard")) != 0, deadline);
    QTRY_VERIFY_WITH_TIMEOUT(isViewable(m_panel), deadline);
    m_panelRect = geometry(m_panel);
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
    const QString path = QDir(QCoreApplication::applicationDirPath()).filePath(name);
    QVERIFY(grabScreen(m_panelRect.adjusted(-24, -24, 24, 24)).save(path));
    qInfo("screenshot: %s", qPrintable(path));
}

void TestPanelX11::panelShowsWithoutTakingFocus()
{
    QCOMPARE(focus(), other());
    QCOMPARE(items(root(), "_NET_ACTIVE_WINDOW").value(0), other());
    QVERIFY(isAboveOther());
    const QList<quint32> states = items(m_panel, "_NET_WM_STATE");
    for (const char* state : { "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER", "_NET_WM_STATE_ABOVE" })
        QVERIFY2(states.contains(atom(state)), state);
    QCOMPARE(items(m_panel, "_NET_WM_DESKTOP"), QList<quint32> { 0xFFFFFFFF });

    // 900 wide at the default theme's ratio, centred on the screen.
    QCOMPARE(m_panelRect.size(), QSize(900, 350));
    QVERIFY(std::abs(m_panelRect.center().x() - screenWidth / 2) <= 1);
    QVERIFY(std::abs(m_panelRect.center().y() - screenHeight / 2) <= 1);

    // Clicking the panel leaves the focus where it was, and the click does not reach the window below.
    QVERIFY(movePointer(m_panelRect.topLeft() + QPoint(20, 20), { u"click"_s, u"1"_s }));
    QCOMPARE(focus(), other());
    QTest::qWait(100);
    QCOMPARE(m_other.presses, 0);
    QVERIFY(movePointer(QPoint(2, 2)));
}

void TestPanelX11::heldKeyLights_data()
{
    QTest::addColumn<QString>("theme");
    // The first is the theme Ordalis started with; the second it takes from the settings file while it runs.
    QTest::newRow("Spacegray") << u"Spacegray"_s;
    QTest::newRow("Black") << u"Black"_s;
}

void TestPanelX11::heldKeyLights()
{
    QFETCH(QString, theme);
    selectTheme(theme);
    const QColor rest = style().keyBackground.toQColor();
    const QColor pressed = style().keyPressedBackground.toQColor();
    const QPoint a = facePoint(keyA);
    QVERIFY(waitForColour(a, rest));

    QVERIFY(xdotool({ u"keydown"_s, u"a"_s }));
    QVERIFY(waitForColour(a, pressed));
    QVERIFY(near(screenColour(facePoint(keyS)), rest));
    saveScreenshot(u"panel-%1-a-held.png"_s.arg(theme.toLower()));

    QElapsedTimer released;
    released.start();
    QVERIFY(xdotool({ u"keyup"_s, u"a"_s }));
    QVERIFY(waitForColour(a, rest));
    const qint64 back = released.elapsed();
    qInfo("back at rest %lld ms after the release (glow decay %.0f ms plus one frame %.0f ms)", back,
        m_settings->value(SettingKeys::glowDecay()) * 1000, 1000.0 / 60);
    // Starting xdotool and grabbing the screen take their share; a loaded machine gets plenty of slack.
    QVERIFY2(back < 3000, qPrintable(QString::number(back)));
}

void TestPanelX11::hoverLetsClicksThroughWithoutUnmapping()
{
    m_settings->setValue(SettingKeys::autoHideOnHover(), true);
    // Also when a check below fails: the tests after this one drag the panel.
    const auto restore = qScopeGuard([this] {
        m_settings->setValue(SettingKeys::autoHideOnHover(), false);
        movePointer(QPoint(2, 2));
    });
    UnmapCounter unmaps(m_panel);
    QVERIFY(!inputShape(m_panel).isEmpty());

    QVERIFY(movePointer(m_panelRect.topLeft() + QPoint(12, m_panelRect.height() / 2)));
    QTRY_VERIFY_WITH_TIMEOUT(inputShape(m_panel).isEmpty(), deadline);
    // Faded to "autoHideOpacity" (the window keeps it in steps of 1/255). The fade and the click-through end at the
    // same moment, so on a busy machine the fade's last frame may come just after.
    const auto faded = [this] { return items(m_panel, "_NET_WM_WINDOW_OPACITY").value(0) / double(0xFFFFFFFF); };
    QTRY_VERIFY2_WITH_TIMEOUT(std::abs(faded() - m_settings->value(SettingKeys::autoHideOpacity())) <= 1.0 / 255,
        qPrintable(QString::number(faded())), deadline);

    // A click over the faded panel lands in the window below, and the panel stays where it is, mapped and on top.
    QVERIFY(xdotool({ u"click"_s, u"1"_s }));
    QTRY_COMPARE_WITH_TIMEOUT(m_other.presses, 1, deadline);
    QVERIFY(isViewable(m_panel));
    QVERIFY(isAboveOther());

    // The pointer stays over it: the window system's leave does not end the hover.
    QTest::qWait(300);
    QVERIFY(inputShape(m_panel).isEmpty());

    // Leaving brings it back, clickable and opaque, never unmapped on the way.
    QVERIFY(movePointer(QPoint(2, 2)));
    QTRY_VERIFY_WITH_TIMEOUT(!inputShape(m_panel).isEmpty(), deadline);
    QTRY_COMPARE_WITH_TIMEOUT(items(m_panel, "_NET_WM_WINDOW_OPACITY").value(0, 0xFFFFFFFF), 0xFFFFFFFF, deadline);
    QCOMPARE(unmaps.count, 0);
    QVERIFY(isViewable(m_panel));
    QCOMPARE(m_other.presses, 1);
}

void TestPanelX11::dragsMoveAndResizeThePanel()
{
    selectTheme(u"Spacegray"_s);
    QVERIFY(waitForColour(facePoint(keyA), style().keyBackground.toQColor()));
    const QRect before = m_panelRect;

    // The background, anywhere but on the handle, moves the panel along with the pointer.
    QVERIFY(movePointer(before.center(), { u"mousedown"_s, u"1"_s }));
    for (const QPoint& step : { QPoint(15, 10), QPoint(30, 20), QPoint(40, 30) })
        QVERIFY(movePointer(before.center() + step));
    QVERIFY(xdotool({ u"mouseup"_s, u"1"_s }));
    const QRect moved = before.translated(40, 30);
    QTRY_COMPARE_WITH_TIMEOUT(geometry(m_panel), moved, deadline);
    m_settings->reload();
    QTRY_COMPARE_WITH_TIMEOUT(m_settings->value(SettingKeys::windowX()).value_or(0), moved.x() + 0.0, deadline);

    // The handle resizes it from the top-left corner; the keyboard makes way for a plain placeholder meanwhile.
    const ThemeConfig config = m_settings->value(SettingKeys::activeThemeConfig());
    const QColor chassis
        = HsbColor { config.chassisHue, config.chassisSaturation, config.chassisBrightness, 1 }.toQColor();
    const QPoint handle = moved.bottomRight() - QPoint(7, 7);
    QVERIFY(movePointer(handle, { u"mousedown"_s, u"1"_s }));
    bool placeholderSeen = false;
    for (int travel = 12; travel <= 60; travel += 12) {
        QVERIFY(movePointer(handle + QPoint(travel, 3)));
        const QRect now = geometry(m_panel);
        if (!placeholderSeen && now.width() > moved.width() && near(screenColour(now.center()), chassis)) {
            placeholderSeen = true;
            m_panelRect = now;
            saveScreenshot(u"panel-resizing.png"_s);
        }
    }
    QVERIFY(xdotool({ u"mouseup"_s, u"1"_s }));
    QVERIFY(placeholderSeen);

    const int width = 900 + 60; // the handle's travel
    const QRect resized(moved.topLeft(), QSize(width, qRound(width / KeyboardScene::aspectRatio(config))));
    QTRY_COMPARE_WITH_TIMEOUT(geometry(m_panel), resized, deadline);
    m_panelRect = resized;
    // After the hover's click-through earlier on, the new area takes clicks too.
    QCOMPARE(inputShape(m_panel).boundingRect(), QRect(QPoint(0, 0), resized.size()));
    m_settings->reload();
    QTRY_COMPARE_WITH_TIMEOUT(m_settings->value(SettingKeys::windowWidth()), double(width), deadline);
    // Laid out again for the new size once it settled.
    QVERIFY(waitForColour(facePoint(keyA), style().keyBackground.toQColor()));
    saveScreenshot(u"panel-resized.png"_s);
    QVERIFY(movePointer(QPoint(2, 2)));
}

int main(int argc, char** argv)
{
    // Before anything connects to a display: the test brings its own and never touches the user's. Xvfb picks the
    // first free display and tells its number.
    const Helper server = startXServer(screenWidth, screenHeight);
    QTemporaryDir runtimeDir;
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtimeDir.path()));
    QGuiApplication app(argc, argv);
    TestPanelX11 test;
    return QTest::qExec(&test, argc, argv);
}

#include "testpanelx11.moc"
