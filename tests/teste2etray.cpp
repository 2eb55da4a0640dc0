// SPDX-License-Identifier: GPL-3.0-or-later
// A user's day with the real ordalis, end to end: a private Xvfb with openbox and a trayer tray, keys and clicks from
// xdotool (XTEST), the screen read back. Skips when Xvfb, openbox, trayer or xdotool is missing.
#include "base/clock.h"
#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "keyboard/keyboardscene.h"
#include "theme/themestyle.h"
#include "x11testsupport.h"

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

#include <sys/prctl.h>
#include <xcb/xcb.h>

using namespace Qt::StringLiterals;
using namespace X11Test;

namespace {

constexpr KeyCode keyA = 0;

/** The first viewable window below `parent` (at any depth) that `match` accepts, or 0. */
template <typename Match> xcb_window_t findWindow(xcb_window_t parent, const Match& match)
{
    const Reply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(connection(), xcb_query_tree(connection(), parent), nullptr));
    const xcb_window_t* children = tree ? xcb_query_tree_children(tree.get()) : nullptr;
    for (int i = 0; tree && i < xcb_query_tree_children_length(tree.get()); ++i) {
        if (isViewable(children[i]) && match(children[i]))
            return children[i];
        if (const xcb_window_t found = findWindow(children[i], match))
            return found;
    }
    return 0;
}

/** The keyboard panel while it is on screen, or 0. */
xcb_window_t panel()
{
    return findWindow(root(), [](xcb_window_t w) { return propertyBytes(w, "_NET_WM_NAME") == "Ordalis Keyboard"; });
}

/** Ordalis's icon, embedded in trayer's panel, or 0. */
xcb_window_t trayIcon()
{
    return findWindow(root(), [](xcb_window_t w) {
        return propertyBytes(w, "WM_CLASS").startsWith("ordalis\0") && geometry(w).width() <= 64;
    });
}

/** Ordalis's tray menu while it is open, or 0: an unmanaged window of ours, taller than a tooltip. */
xcb_window_t trayMenu()
{
    return findWindow(root(), [](xcb_window_t w) {
        const Reply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(connection(), xcb_get_window_attributes(connection(), w), nullptr));
        return attributes && attributes->override_redirect && propertyBytes(w, "WM_CLASS").startsWith("ordalis\0")
            && geometry(w).height() >= 100;
    });
}

bool hasTray()
{
    const Reply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
        connection(), xcb_get_selection_owner(connection(), atom("_NET_SYSTEM_TRAY_S0")), nullptr));
    return reply && reply->owner != XCB_NONE;
}

void saveScreenshot(const QString& name)
{
    const QString path = QDir(QCoreApplication::applicationDirPath()).filePath(name);
    QVERIFY(grabScreen().save(path));
    qInfo("screenshot: %s", qPrintable(path));
}

} // namespace

/** Runs a step that checks things itself, and ends the test function when the step failed. */
#define STEP(step)                                                                                                  \
    do {                                                                                                            \
        step;                                                                                                       \
        if (QTest::currentTestFailed())                                                                             \
            return;                                                                                                 \
    } while (false)

class TestE2eTray final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    // One user's session, in order: each step starts where the one before left off.
    void startsHiddenInTheTray();
    void tripleTapShowsKeyboardAndHeldKeyLights();
    void trayMenuHidesKeyboard();
    void hiddenKeyboardStaysHiddenAfterRestart();
    void shownKeyboardIsShownAfterRestart();

private:
    void startOrdalis();
    void quitFromTrayMenu();
    /** Opens the tray icon's menu with a right click. */
    void openTrayMenu();
    /** Triple-taps the trigger, left Control. */
    static bool tripleTap()
    {
        return xdotool({ u"key"_s, u"--delay"_s, u"100"_s, u"Control_L"_s, u"Control_L"_s, u"Control_L"_s });
    }

    QTemporaryDir m_home;
    QProcessEnvironment m_env;
    // Ended in reverse order: Ordalis before the tray and the window manager.
    Helper m_windowManager;
    Helper m_tray;
    Helper m_ordalis;
};

void TestE2eTray::initTestCase()
{
    if (QGuiApplication::platformName() != u"xcb"_s)
        QSKIP("Xvfb is not installed or did not start");
    for (const QString& tool : { u"openbox"_s, u"trayer"_s, u"xdotool"_s }) {
        if (QStandardPaths::findExecutable(tool).isEmpty())
            QSKIP(qPrintable(tool + u" is not installed"_s));
    }
    QVERIFY(m_home.isValid());
    m_env = QProcessEnvironment::systemEnvironment();
    m_env.insert(u"HOME"_s, m_home.path());
    m_env.insert(u"XDG_CONFIG_HOME"_s, m_home.filePath(u"config"_s));
    m_env.remove(u"QT_QPA_PLATFORM"_s);

    m_windowManager = launch(u"openbox"_s, { u"--sm-disable"_s }, m_env);
    QVERIFY(m_windowManager);
    QTRY_VERIFY_WITH_TIMEOUT(!propertyBytes(root(), "_NET_SUPPORTING_WM_CHECK").isEmpty(), deadline);
    m_tray = launch(u"trayer"_s,
        { u"--edge"_s, u"bottom"_s, u"--align"_s, u"right"_s, u"--widthtype"_s, u"request"_s, u"--height"_s, u"32"_s,
            u"--SetDockType"_s, u"true"_s, u"--expand"_s, u"true"_s },
        m_env);
    QVERIFY(m_tray);
    QTRY_VERIFY_WITH_TIMEOUT(hasTray(), deadline);
}

void TestE2eTray::cleanupTestCase()
{
    m_ordalis.reset();
    m_tray.reset();
    m_windowManager.reset();
}

void TestE2eTray::startOrdalis()
{
    QVERIFY(!m_ordalis);
    m_ordalis = launch(QStringLiteral(ORDALIS_BINARY), {}, m_env);
    QVERIFY(m_ordalis);
    QTRY_VERIFY_WITH_TIMEOUT(trayIcon() != 0, deadline);
}

void TestE2eTray::openTrayMenu()
{
    QVERIFY(!trayMenu());
    const QPoint centre = geometry(trayIcon()).center();
    // "mousemove --sync" waits for the pointer to move, which it never does when it is there already.
    const Reply<xcb_query_pointer_reply_t> pointer(
        xcb_query_pointer_reply(connection(), xcb_query_pointer(connection(), root()), nullptr));
    if (!pointer || QPoint(pointer->root_x, pointer->root_y) != centre)
        QVERIFY(xdotool({ u"mousemove"_s, u"--sync"_s, QString::number(centre.x()), QString::number(centre.y()) }));
    QVERIFY(xdotool({ u"click"_s, u"3"_s }));
    QTRY_VERIFY_WITH_TIMEOUT(trayMenu() != 0, deadline);
}

void TestE2eTray::quitFromTrayMenu()
{
    STEP(openTrayMenu());
    // From a menu without a current item, Up goes to the last one: "Quit Ordalis".
    QVERIFY(xdotool({ u"key"_s, u"--delay"_s, u"100"_s, u"Up"_s, u"Return"_s }));
    QVERIFY(m_ordalis->waitForFinished(deadline));
    QCOMPARE(m_ordalis->exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_ordalis->exitCode(), 0);
    m_ordalis.reset();
    QTRY_VERIFY_WITH_TIMEOUT(trayIcon() == 0, deadline);
}

/** Fails when the panel shows up within a while: long enough for a panel that was going to show to have done so. */
static bool staysHidden()
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 3000) {
        if (panel())
            return false;
        QTest::qWait(50);
    }
    return true;
}

void TestE2eTray::startsHiddenInTheTray()
{
    STEP(startOrdalis());
    QVERIFY(staysHidden());
}

void TestE2eTray::tripleTapShowsKeyboardAndHeldKeyLights()
{
    QVERIFY(tripleTap());
    QTRY_VERIFY_WITH_TIMEOUT(panel() != 0, deadline);

    // The same drawing as the panel's, at the panel's size and with the same (default) settings, says where A lies.
    const QRect panelRect = geometry(panel());
    SettingsStore settings(m_home.filePath(u"config/ordalis/settings.json"_s));
    ManualClock clock;
    KeyboardScene scene(settings, clock, nullptr);
    scene.setSize(QSizeF(panelRect.size()));
    const QRectF face = scene.keyRect(keyA);
    // A fifth of the way down: above the label, and inside the cap even while it is pressed.
    const QPoint a = panelRect.topLeft() + QPointF(face.center().x(), face.top() + 0.2 * face.height()).toPoint();
    const ThemeStyle style(settings.value(SettingKeys::activeThemeConfig()));
    QVERIFY(waitForColour(a, style.keyBackground.toQColor()));

    QVERIFY(xdotool({ u"keydown"_s, u"a"_s }));
    const bool lit = waitForColour(a, style.keyPressedBackground.toQColor());
    saveScreenshot(u"e2e-tray-keyboard-a-held.png"_s);
    QVERIFY(xdotool({ u"keyup"_s, u"a"_s }));
    QVERIFY(lit);
    QVERIFY(waitForColour(a, style.keyBackground.toQColor()));
}

void TestE2eTray::trayMenuHidesKeyboard()
{
    QVERIFY(panel());
    STEP(openTrayMenu());
    saveScreenshot(u"e2e-tray-menu.png"_s);
    // The first item, "Hide Keyboard" while it is shown.
    QVERIFY(xdotool({ u"key"_s, u"--delay"_s, u"100"_s, u"Down"_s, u"Return"_s }));
    QTRY_VERIFY_WITH_TIMEOUT(trayMenu() == 0, deadline);
    QTRY_VERIFY_WITH_TIMEOUT(panel() == 0, deadline);
    QVERIFY(m_ordalis->state() == QProcess::Running);
    STEP(quitFromTrayMenu());
}

void TestE2eTray::hiddenKeyboardStaysHiddenAfterRestart()
{
    STEP(startOrdalis());
    QVERIFY(staysHidden());
    QVERIFY(tripleTap());
    QTRY_VERIFY_WITH_TIMEOUT(panel() != 0, deadline);
    STEP(quitFromTrayMenu());
}

void TestE2eTray::shownKeyboardIsShownAfterRestart()
{
    STEP(startOrdalis());
    QTRY_VERIFY_WITH_TIMEOUT(panel() != 0, deadline);
    saveScreenshot(u"e2e-tray-keyboard-restored.png"_s);
    STEP(quitFromTrayMenu());
}

int main(int argc, char** argv)
{
    // Before anything connects to a display: the test brings its own and never touches the user's. Xvfb picks the
    // first free display and tells its number.
    const Helper server = startXServer(1280, 800);
    // Ordalis's single-instance socket lives here, away from any Ordalis the user runs (QTemporaryDir is mode 700).
    QTemporaryDir runtimeDir;
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtimeDir.path()));
    QGuiApplication app(argc, argv);
    TestE2eTray test;
    return QTest::qExec(&test, argc, argv);
}

#include "teste2etray.moc"
