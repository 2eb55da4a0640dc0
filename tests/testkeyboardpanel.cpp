// SPDX-License-Identifier: GPL-3.0-or-later
// The keyboard panel on the offscreen platform, with time driven by hand.
#include "base/clock.h"
#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "keyboard/keyboardscene.h"
#include "keyboard/keyshape.h"
#include "panel/hovertrackingview.h"
#include "panel/keyboardcontentview.h"
#include "panel/keyboardpanel.h"
#include "panel/panelactions.h"
#include "panel/resizehandle.h"
#include "panel/x11windowhints.h"

#include <QApplication>
#include <QEnterEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPainterPath>
#include <QPointer>
#include <QRegion>
#include <QScopeGuard>
#include <QScreen>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

/** Records what the context menu asks of the panel's owner. */
class RecordingActions final : public PanelActions
{
public:
    bool visible = true;
    QStringList calls;

    bool isVisible() const override { return visible; }
    void showKeyboard() override { calls << u"show"_s; }
    void hideKeyboard() override { calls << u"hide"_s; }
    void openSettings() override { calls << u"settings"_s; }
};

NamedTheme builtIn(const QString& name)
{
    for (const NamedTheme& theme : builtInThemes()) {
        if (theme.name == name)
            return theme;
    }
    return {};
}

void send(QWidget* widget, QEvent::Type type, const QPointF& global, Qt::MouseButton button, Qt::MouseButtons buttons)
{
    const QPointF local = widget->mapFromGlobal(global);
    QMouseEvent event(type, local, local, global, button, buttons, Qt::NoModifier);
    QCoreApplication::sendEvent(widget, &event);
}

QPointF screenCentre()
{
    return QRectF(QGuiApplication::primaryScreen()->availableGeometry()).center();
}

// Members in the order they depend on each other, so they are torn down in the right order.
struct Fixture
{
    QTemporaryDir dir;
    SettingsStore settings { dir.filePath(u"settings.json"_s) };
    ManualClock clock { 100.0 };
    RecordingActions actions;
    std::unique_ptr<KeyboardPanel> panel;
    /** The pointer's global position as the hover probe sees it. */
    QPoint pointer { -1000, -1000 };

    KeyboardPanel& makePanel(bool shown = false)
    {
        panel.reset();
        panel = std::make_unique<KeyboardPanel>(settings, clock, nullptr, &actions);
        panel->hoverTrackingView()->setPointerReader([this] { return pointer; });
        if (shown) {
            panel->show();
            if (!QTest::qWaitForWindowExposed(panel.get()))
                qWarning("the panel was not exposed");
        }
        return *panel;
    }

    /** The frame as the settings keep it: left edge, bottom edge and width. */
    QRectF storedFrame() const
    {
        const double width = settings.value(SettingKeys::windowWidth());
        const double height = width / panel->currentAspectRatio();
        const double bottom = settings.value(SettingKeys::windowY()).value_or(qQNaN());
        return { settings.value(SettingKeys::windowX()).value_or(qQNaN()), bottom - height, width, height };
    }
};

} // namespace

class TestKeyboardPanel final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init() { m_f = std::make_unique<Fixture>(); }
    void cleanup() { m_f.reset(); }

    void defaultSizeAndCentring();
    void setFrame_data();
    void setFrame();
    void rapidResizesShowOnePlaceholder();
    void placeAtNextStart_data();
    void placeAtNextStart();

    void hover_data();
    void hover();

    void drag_data();
    void drag();
    void resizeHandleHoverLook();
    void contextMenu();
    void blurRegionFollowsTheChassis();

private:
    std::unique_ptr<Fixture> m_f;
};

void TestKeyboardPanel::initTestCase()
{
    // The offscreen platform cannot fade or raise windows and says so every time; nothing here depends on it.
    static QtMessageHandler testLog = nullptr;
    testLog = qInstallMessageHandler([](QtMsgType type, const QMessageLogContext& context, const QString& message) {
        if (!message.startsWith(u"This plugin does not support"_s))
            testLog(type, context, message);
    });
}

void TestKeyboardPanel::defaultSizeAndCentring()
{
    KeyboardPanel& panel = m_f->makePanel();
    QCOMPARE(std::round(panel.currentAspectRatio() * 1e5) / 1e5, 2.57365);
    QCOMPARE(panel.frame().width(), 900.0);
    QCOMPARE(std::round(panel.frame().height() * 1e3) / 1e3, 349.699);
    QCOMPARE(panel.minimumFrameSize().width(), 700.0);
    QCOMPARE(std::round(panel.minimumFrameSize().height() * 1e3) / 1e3, 271.988);
    QCOMPARE(panel.minimumWidth(), 700);
    QCOMPARE(panel.geometry().size(), QSize(900, 350));
    QCOMPARE(panel.frame().center(), screenCentre());
    QCOMPARE(m_f->storedFrame(), panel.frame());

    // A width from a hand-edited settings file that no screen could show is cut down to one a window can hold.
    m_f->settings.setValue(SettingKeys::windowWidth(), 1e300);
    const KeyboardPanel& wide = m_f->makePanel();
    QCOMPARE(wide.frame().width(), KeyboardPanel::maximumPanelWidth);
    QCOMPARE(wide.geometry().width(), int(KeyboardPanel::maximumPanelWidth));
}

void TestKeyboardPanel::setFrame_data()
{
    QTest::addColumn<QRectF>("requested");
    QTest::addColumn<double>("width");
    QTest::addColumn<bool>("byWindowManager");

    QTest::newRow("A height off the ratio follows from the width, the top edge staying where asked")
        << QRectF(10, 20, 1000, 123) << 1000.0 << false;
    QTest::newRow("A taller request is cut down the same way") << QRectF(-40, 300, 750.5, 2000) << 750.5 << false;
    QTest::newRow("A width under the minimum is raised to it") << QRectF(0, 0, 300, 100) << 700.0 << false;
    QTest::newRow("A width over the maximum is lowered to it") << QRectF(0, 0, 1e12, 100) << 8192.0 << false;
    QTest::newRow("The same width only moves the panel") << QRectF(50, 60, 900, 10) << 900.0 << false;
    QTest::newRow("A resize by the window manager is taken over") << QRectF(33, 44, 1000, 200) << 1000.0 << true;
    QTest::newRow("So is a move") << QRectF(33, 44, 900, 350) << 900.0 << true;
}

void TestKeyboardPanel::setFrame()
{
    QFETCH(QRectF, requested);
    QFETCH(double, width);
    QFETCH(bool, byWindowManager);
    KeyboardPanel& panel = m_f->makePanel(true);
    const int jobs = m_f->clock.pendingJobCount();
    const bool resized = width != panel.frame().width();

    if (byWindowManager)
        panel.setGeometry(requested.toRect());
    else
        panel.setFrame(requested);
    const double height = width / panel.currentAspectRatio();
    QCOMPARE(panel.frame(), QRectF(requested.topLeft(), QSizeF(width, height)));
    QCOMPARE(panel.geometry(), QRect(qRound(requested.x()), qRound(requested.y()), qRound(width), qRound(height)));
    QCOMPARE(m_f->storedFrame(), panel.frame());
    // Only a new size shows the placeholder and starts the timer that takes it away.
    QCOMPARE(panel.resizeOverlay() != nullptr, resized);
    QCOMPARE(m_f->clock.pendingJobCount(), jobs + int(resized));
}

void TestKeyboardPanel::rapidResizesShowOnePlaceholder()
{
    const NamedTheme black = builtIn(u"Black"_s);
    m_f->settings.setValue(SettingKeys::activeThemeConfig(), black.config);
    KeyboardPanel& panel = m_f->makePanel(true);
    KeyboardContentView* content = panel.contentView();
    QCOMPARE(content->scene().size(), QSizeF(900, 350));

    panel.setFrame(QRectF(0, 0, 950, 1));
    const QPointer<QWidget> placeholder = panel.resizeOverlay();
    QVERIFY(placeholder);
    QVERIFY(content->isContentHidden());
    for (const double width : { 1000.0, 1030.0 }) {
        m_f->clock.advance(0.15);
        panel.setFrame(QRectF(0, 0, width, 1));
        QCOMPARE(panel.resizeOverlay(), placeholder.data());
    }
    const double lastChange = m_f->clock.now();

    // The placeholder covers the panel in the chassis colour, opaque, with rounded corners.
    QCOMPARE(placeholder->geometry(), panel.rect());
    const QImage picture = panel.grab().toImage();
    const ThemeConfig& c = black.config;
    QCOMPARE(picture.pixelColor(picture.width() / 2, picture.height() / 2).rgba(),
        (HsbColor { c.chassisHue, c.chassisSaturation, c.chassisBrightness, 1.0 }.toQColor().rgba()));
    QCOMPARE(picture.pixelColor(0, 0).alpha(), 0);

    // The keyboard is laid out only once the size has settled, 0.2 s after the last change.
    QCOMPARE(content->scene().size(), QSizeF(900, 350));
    m_f->clock.advanceTo(lastChange + 0.199);
    QVERIFY(panel.resizeOverlay());
    m_f->clock.advanceTo(lastChange + KeyboardPanel::resizeSettleDelay);
    QVERIFY(!placeholder);
    QVERIFY(!content->isContentHidden());
    QCOMPARE(content->scene().size(), QSizeF(panel.size()));
    QCOMPARE(m_f->clock.pendingJobCount(), 0);
}

void TestKeyboardPanel::placeAtNextStart_data()
{
    QTest::addColumn<QPointF>("topLeft");
    QTest::addColumn<bool>("centred");
    QTest::newRow("On the screen, kept to the fraction") << QPointF(120.5, 80.25) << false;
    QTest::newRow("Right of and below the only screen") << QPointF(5000, 5000) << true;
    QTest::newRow("Above the only screen") << QPointF(0, -800) << true;
}

void TestKeyboardPanel::placeAtNextStart()
{
    QFETCH(QPointF, topLeft);
    QFETCH(bool, centred);
    m_f->makePanel().setFrame(QRectF(topLeft, QSizeF(1000, 1)));

    const KeyboardPanel& panel = m_f->makePanel();
    QCOMPARE(panel.frame().size(), QSizeF(1000, 1000 / panel.currentAspectRatio()));
    QVERIFY(!panel.resizeOverlay());
    if (centred)
        QCOMPARE(panel.frame().center(), screenCentre());
    else
        QCOMPARE(panel.frame().topLeft(), topLeft);
}

void TestKeyboardPanel::hover_data()
{
    // Steps separated by ';', times in seconds from the start; auto-hide fades to 0.3. "auto 0|1": the setting.
    // "in", "out": where the probe finds the pointer. "enter", "leave": the window system's events. "unhover": the
    // hover flag alone dropped. "toggle", "override", "hide": the panel's. "at T": the clock moves on to T.
    // Checks: "hovering 0|1", "through 0|1" (the panel and its window's flag), "alpha A" or "alpha A B" (strictly
    // between), "jobs N", "setting 0|1", "overridden 0|1".
    QTest::addColumn<QString>("script");

    QTest::newRow("Hovering fades the panel, then lets clicks through until the pointer is seen to leave")
        << u"auto 1; in; enter; hovering 1; at .075; alpha .3 1; at .149; through 0; at .15; through 1; at .2;"
           " alpha .3; leave; at .7; hovering 1; through 1; out; at .75; hovering 0; through 0; at .92; alpha 1; jobs 0"_s;
    QTest::newRow("Leaving within the fade time keeps the panel clickable")
        << u"auto 1; in; enter; at .1; leave; at .16; through 0; at 1; alpha 1; jobs 0"_s;
    QTest::newRow("Clicks go through only while the hover lasts") << u"auto 1; in; enter; unhover; at .2; through 0"_s;
    QTest::newRow("Hiding the panel ends the hover")
        << u"auto 1; in; enter; at .3; through 1; hide; hovering 0; through 0; at .6; jobs 0"_s;
    QTest::newRow("With auto-hide off hovering changes nothing")
        << u"in; enter; hovering 1; jobs 0; at 1; alpha 1; through 0; leave; hovering 0; jobs 0"_s;
    QTest::newRow("Switched on with the pointer elsewhere, the panel stays as it is")
        << u"toggle; setting 1; at 1; alpha 1; through 0"_s;
    QTest::newRow("Switched off while faded under the pointer, it is back at once")
        << u"auto 1; in; enter; at .3; through 1; override; toggle; setting 0; through 0; overridden 0; at .6; alpha 1"_s;
    QTest::newRow("Switched on while under the pointer, it fades at once")
        << u"in; enter; toggle; at .3; through 1; alpha .3"_s;
}

void TestKeyboardPanel::hover()
{
    QFETCH(QString, script);
    m_f->settings.setValue(SettingKeys::autoHideOpacity(), 0.3);
    KeyboardPanel& panel = m_f->makePanel(true);
    HoverTrackingView* tracking = panel.hoverTrackingView();
    const double start = m_f->clock.now();
    for (const QString& step : script.split(u';')) {
        const QStringList words = step.split(u' ', Qt::SkipEmptyParts);
        const QString what = words.value(0);
        const double a = words.value(1).toDouble();
        const double b = words.value(2).toDouble();
        auto failure = qScopeGuard([&step] { qWarning("at step \"%s\"", qPrintable(step.trimmed())); });
        if (what == u"auto") {
            m_f->settings.setValue(SettingKeys::autoHideOnHover(), a != 0);
        } else if (what == u"in" || what == u"out") {
            m_f->pointer = what == u"in" ? panel.geometry().center() : panel.geometry().bottomRight() + QPoint(1, 1);
        } else if (what == u"enter") {
            QEnterEvent enter(QPointF(10, 10), QPointF(10, 10), panel.mapToGlobal(QPointF(10, 10)));
            QCoreApplication::sendEvent(tracking, &enter);
        } else if (what == u"leave") {
            QEvent leave(QEvent::Leave);
            QCoreApplication::sendEvent(tracking, &leave);
        } else if (what == u"unhover") {
            panel.setHovering(false);
        } else if (what == u"toggle") {
            panel.toggleAutoHide();
        } else if (what == u"override") {
            panel.setAutoHideOverride(true);
        } else if (what == u"hide") {
            panel.hide();
        } else if (what == u"at") {
            m_f->clock.advanceTo(start + a);
        } else if (what == u"hovering") {
            QCOMPARE(panel.isHovering(), a != 0);
        } else if (what == u"through") {
            QCOMPARE(panel.isClickThrough(), a != 0);
            QCOMPARE(panel.windowHandle()->flags().testFlag(Qt::WindowTransparentForInput), a != 0);
        } else if (what == u"alpha" && words.size() == 3) {
            QVERIFY2(panel.alphaValue() > a && panel.alphaValue() < b, qPrintable(QString::number(panel.alphaValue())));
        } else if (what == u"alpha") {
            QCOMPARE(panel.alphaValue(), a);
            // The window keeps its opacity in steps of 1/255.
            QVERIFY(std::abs(panel.windowOpacity() - a) <= 1.0 / 255);
        } else if (what == u"jobs") {
            QCOMPARE(m_f->clock.pendingJobCount(), int(a));
        } else if (what == u"setting") {
            QCOMPARE(m_f->settings.value(SettingKeys::autoHideOnHover()), a != 0);
        } else if (what == u"overridden") {
            QCOMPARE(panel.autoHideOverride(), a != 0);
        } else {
            QFAIL(qPrintable(u"no such step: "_s + step));
        }
        failure.dismiss();
    }
}

void TestKeyboardPanel::drag_data()
{
    QTest::addColumn<bool>("onHandle");
    QTest::addColumn<QList<QPointF>>("travel");
    QTest::addColumn<QRectF>("frame"); // the height follows from the width

    QTest::newRow("The handle grows the panel rightwards by the horizontal travel only")
        << true << QList<QPointF> { { 4, 2 }, { 60, 10 }, { 120, 30 } } << QRectF(40, 50, 1020, 0);
    QTest::newRow("Leftwards past the minimum it stops at 700")
        << true << QList<QPointF> { { -100, 0 }, { -500, 0 } } << QRectF(40, 50, 700, 0);
    QTest::newRow("Vertical travel alone changes nothing")
        << true << QList<QPointF> { { 0, 40 }, { 0, -80 } } << QRectF(40, 50, 900, 0);
    QTest::newRow("Travel under 10 px is no drag")
        << true << QList<QPointF> { { 9, 0 }, { 6, 7 }, { -7, -7 } } << QRectF(40, 50, 900, 0);
    QTest::newRow("10 px across is, however little of it is sideways")
        << true << QList<QPointF> { { 8, 8 } } << QRectF(40, 50, 908, 0);
    QTest::newRow("Once under way, the drag follows small steps back")
        << true << QList<QPointF> { { 15, 0 }, { 5, 0 } } << QRectF(40, 50, 905, 0);
    QTest::newRow("The background moves the panel with the pointer")
        << false << QList<QPointF> { { 5, 5 }, { 30, -20 } } << QRectF(70, 30, 900, 0);
}

void TestKeyboardPanel::drag()
{
    QFETCH(bool, onHandle);
    QFETCH(QList<QPointF>, travel);
    QFETCH(QRectF, frame);
    KeyboardPanel& panel = m_f->makePanel(true);
    panel.setFrameOrigin(QPointF(40, 50));
    const QRectF before = panel.frame();
    QWidget* widget = onHandle ? static_cast<QWidget*>(panel.contentView()->resizeHandle()) : panel.contentView();
    const QPointF start = widget->mapToGlobal(QPointF(widget->rect().center()));
    frame.setHeight(frame.width() / panel.currentAspectRatio());

    send(widget, QEvent::MouseButtonPress, start, Qt::LeftButton, Qt::LeftButton);
    for (const QPointF& step : std::as_const(travel))
        send(widget, QEvent::MouseMove, start + step, Qt::NoButton, Qt::LeftButton);
    QCOMPARE(panel.frame(), frame);
    // The place and width are stored once, when the drag ends.
    QCOMPARE(m_f->storedFrame(), before);
    send(widget, QEvent::MouseButtonRelease, start + travel.constLast(), Qt::LeftButton, Qt::NoButton);
    QCOMPARE(m_f->storedFrame(), frame);
    QCOMPARE(panel.resizeOverlay() != nullptr, frame.width() != before.width());

    // Moves without the left button held do nothing: after the release, and with the right one (for the menu).
    send(widget, QEvent::MouseMove, start + QPointF(300, 0), Qt::NoButton, Qt::NoButton);
    send(widget, QEvent::MouseButtonPress, start, Qt::RightButton, Qt::RightButton);
    send(widget, QEvent::MouseMove, start + QPointF(50, 50), Qt::NoButton, Qt::RightButton);
    send(widget, QEvent::MouseButtonRelease, start + QPointF(50, 50), Qt::RightButton, Qt::NoButton);
    QCOMPARE(panel.frame(), frame);
}

void TestKeyboardPanel::resizeHandleHoverLook()
{
    ResizeHandle* handle = m_f->makePanel().contentView()->resizeHandle();
    QCOMPARE(handle->cursor().shape(), Qt::SizeFDiagCursor);
    QEnterEvent enter(QPointF(1, 1), QPointF(1, 1), QPointF(1, 1));
    QCoreApplication::sendEvent(handle, &enter);
    m_f->clock.advance(ResizeHandle::hoverDuration);
    QCOMPARE(handle->hoverProgress(), 1.0);
    QEvent leave(QEvent::Leave);
    QCoreApplication::sendEvent(handle, &leave);
    m_f->clock.advance(ResizeHandle::hoverDuration);
    QCOMPARE(handle->hoverProgress(), 0.0);
    QCOMPARE(m_f->clock.pendingJobCount(), 0);
}

void TestKeyboardPanel::contextMenu()
{
    KeyboardPanel& panel = m_f->makePanel();
    // The menu and its theme menu; an entry as "[x] text" when checked, "[ ] text" when it can be, "-" a separator,
    // "(off)" after it when disabled.
    const auto open = [&panel](QMenu& menu) {
        menu.clear();
        panel.contentView()->populateContextMenu(menu);
        QList<QStringList> texts;
        for (const QMenu* level : { &menu, menu.actions().value(2)->menu() }) {
            texts << QStringList();
            for (const QAction* item : level->actions()) {
                const QString mark = item->isCheckable() ? (item->isChecked() ? u"[x] "_s : u"[ ] "_s) : QString();
                texts.last() << (item->isSeparator() ? u"-"_s : mark + item->text())
                        + (item->isEnabled() ? QString() : u" (off)"_s);
            }
        }
        return texts;
    };
    const auto themes = [](const QString& checked) {
        QStringList texts;
        for (const NamedTheme& theme : builtInThemes())
            texts << (theme.name == checked ? u"[x] "_s : QString()) + theme.name;
        return texts;
    };

    QMenu menu;
    QCOMPARE(open(menu),
        (QList<QStringList> {
            { u"Hide Keyboard"_s, u"-"_s, u"Theme: Spacegray"_s, u"-"_s, u"Settings…"_s }, themes(u"Spacegray"_s) }));
    const NamedTheme black = builtIn(u"Black"_s);
    menu.actions()[0]->trigger();
    menu.actions()[4]->trigger();
    menu.actions()[2]->menu()->actions()[builtInThemes().indexOf(black)]->trigger();
    QCOMPARE(m_f->actions.calls, (QStringList { u"hide"_s, u"settings"_s }));
    QCOMPARE(m_f->settings.value(SettingKeys::activeThemeConfig()), black.config);
    QCOMPARE(m_f->settings.value(SettingKeys::activeThemeName()), black.name);

    // Built afresh from the settings each time. Edited, the theme keeps its mark by name, and a last, disabled entry
    // tells that the look is not saved.
    ThemeConfig edited = black.config;
    edited.keycapBrightness += 0.01;
    m_f->settings.setValue(SettingKeys::activeThemeConfig(), edited);
    m_f->actions.visible = false;
    QCOMPARE(open(menu),
        (QList<QStringList> { { u"Show Keyboard"_s, u"-"_s, u"Theme: Black"_s, u"-"_s, u"Settings…"_s },
            themes(u"Black"_s) << u"-"_s << u"[x] Current (unsaved) (off)"_s }));
    menu.actions()[0]->trigger();
    QCOMPARE(m_f->actions.calls.constLast(), u"show"_s);
}

void TestKeyboardPanel::blurRegionFollowsTheChassis()
{
    QRegion region;
    for (const QRect& rect :
        X11WindowHints::blurRegion(keyShapePath(QRectF(0, 0, 100, 50), CornerRadii::uniform(10)), 2))
        region += rect;
    // In device pixels, without the rounded corners.
    QCOMPARE(region.boundingRect(), QRect(0, 0, 200, 100));
    for (const QPoint inside : { QPoint(100, 1), QPoint(1, 50) })
        QVERIFY(region.contains(inside));
    for (const QPoint corner : { QPoint(2, 2), QPoint(197, 97) })
        QVERIFY(!region.contains(corner));
    QVERIFY(X11WindowHints::blurRegion(QPainterPath(), 1.0).isEmpty());
}

QTEST_MAIN(TestKeyboardPanel)
#include "testkeyboardpanel.moc"
