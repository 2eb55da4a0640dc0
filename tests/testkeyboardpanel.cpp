// SPDX-License-Identifier: GPL-3.0-or-later
// The keyboard panel on the offscreen platform, with time driven by hand.
#include "app/clock.h"
#include "app/settingkeys.h"
#include "app/settingsstore.h"
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

} // namespace

class TestKeyboardPanel final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void defaultSizeAndCentring();
    void frameCorrections_data();
    void frameCorrections();
    void sameWidthMovesWithoutPlaceholder();
    void rapidResizesShowOnePlaceholder();
    void windowManagerChangesGoThroughTheFrame();
    void placeRestoredAtNextStart();
    void placeOffEveryScreenIsCentred_data();
    void placeOffEveryScreenIsCentred();

    void hoverFadesThenLetsClicksThrough();
    void leavingWithinFadeTimeKeepsPanelClickable();
    void autoHideOffChangesNothing();
    void toggleAutoHide();
    void hidingEndsHover();

    void resizeHandleDrag_data();
    void resizeHandleDrag();
    void resizeHandleHoverLook();
    void backgroundDragMovesPanel();

    void contextMenuForSavedTheme();
    void contextMenuForUnsavedTheme();
    void contextMenuActions();

    void blurRegionFollowsTheChassis();

private:
    KeyboardPanel& makePanel();
    /** The pointer's global position as the hover probe sees it. */
    QPoint m_pointer;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<SettingsStore> m_settings;
    std::unique_ptr<ManualClock> m_clock;
    RecordingActions m_actions;
    std::unique_ptr<KeyboardPanel> m_panel;
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

void TestKeyboardPanel::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_settings = std::make_unique<SettingsStore>(m_dir->filePath(u"settings.json"_s));
    m_clock = std::make_unique<ManualClock>(100.0);
    m_actions = RecordingActions();
    m_pointer = QPoint(-1000, -1000);
}

void TestKeyboardPanel::cleanup()
{
    m_panel.reset();
    m_settings.reset();
    m_clock.reset();
    m_dir.reset();
}

KeyboardPanel& TestKeyboardPanel::makePanel()
{
    m_panel = std::make_unique<KeyboardPanel>(*m_settings, *m_clock, nullptr, &m_actions);
    m_panel->hoverTrackingView()->setPointerReader([this] { return m_pointer; });
    return *m_panel;
}

void TestKeyboardPanel::defaultSizeAndCentring()
{
    KeyboardPanel& panel = makePanel();
    QCOMPARE(std::round(panel.currentAspectRatio() * 1e5) / 1e5, 2.57365);
    QCOMPARE(panel.frame().width(), 900.0);
    QCOMPARE(std::round(panel.frame().height() * 1e3) / 1e3, 349.699);
    QCOMPARE(panel.minimumFrameSize().width(), 700.0);
    QCOMPARE(std::round(panel.minimumFrameSize().height() * 1e3) / 1e3, 271.988);
    QCOMPARE(panel.minimumWidth(), 700);
    QCOMPARE(panel.geometry().size(), QSize(900, 350));

    const QRectF screen = QGuiApplication::primaryScreen()->availableGeometry();
    QCOMPARE(panel.frame().center(), screen.center());
    QCOMPARE(panel.frame().height(), 900 / panel.currentAspectRatio());
    // The bottom-left corner is what is kept.
    QCOMPARE(m_settings->value(SettingKeys::windowX()), std::optional(panel.frame().left()));
    QCOMPARE(m_settings->value(SettingKeys::windowY()), std::optional(panel.frame().bottom()));
}

void TestKeyboardPanel::frameCorrections_data()
{
    QTest::addColumn<QRectF>("requested");
    QTest::addColumn<double>("width");

    QTest::newRow("A height off the ratio follows from the width, the top edge staying where asked")
        << QRectF(10, 20, 1000, 123) << 1000.0;
    QTest::newRow("A taller request is cut down the same way") << QRectF(-40, 300, 750.5, 2000) << 750.5;
    QTest::newRow("A width under the minimum is raised to it") << QRectF(0, 0, 300, 100) << 700.0;
}

void TestKeyboardPanel::frameCorrections()
{
    QFETCH(QRectF, requested);
    QFETCH(double, width);
    KeyboardPanel& panel = makePanel();

    panel.setFrame(requested);
    const double height = width / panel.currentAspectRatio();
    QCOMPARE(panel.frame(), QRectF(requested.topLeft(), QSizeF(width, height)));
    QCOMPARE(panel.geometry(), QRect(qRound(requested.x()), qRound(requested.y()), qRound(width), qRound(height)));
    QVERIFY(panel.resizeOverlay());
    QCOMPARE(m_settings->value(SettingKeys::windowWidth()), width);
    QCOMPARE(m_settings->value(SettingKeys::windowX()), std::optional(requested.x()));
    QCOMPARE(m_settings->value(SettingKeys::windowY()), std::optional(requested.y() + height));
}

void TestKeyboardPanel::sameWidthMovesWithoutPlaceholder()
{
    KeyboardPanel& panel = makePanel();
    const int jobs = m_clock->pendingJobCount();
    const QSizeF size = panel.frame().size();

    panel.setFrame(QRectF(50, 60, 900, 10));
    QCOMPARE(panel.frame(), QRectF(QPointF(50, 60), size));
    QVERIFY(!panel.resizeOverlay());
    QCOMPARE(m_clock->pendingJobCount(), jobs);
    QCOMPARE(m_settings->value(SettingKeys::windowX()), std::optional(50.0));
    QCOMPARE(m_settings->value(SettingKeys::windowY()), std::optional(60.0 + size.height()));
    QCOMPARE(m_settings->value(SettingKeys::windowWidth()), 900.0);
}

void TestKeyboardPanel::rapidResizesShowOnePlaceholder()
{
    const NamedTheme black = builtIn(u"Black"_s);
    m_settings->setValue(SettingKeys::activeThemeConfig(), black.config);
    KeyboardPanel& panel = makePanel();
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    KeyboardContentView* content = panel.contentView();
    const QSizeF laidOut = content->scene().size();
    QCOMPARE(laidOut, QSizeF(900, 350));

    panel.setFrame(QRectF(0, 0, 950, 1));
    const QPointer<QWidget> placeholder = panel.resizeOverlay();
    QVERIFY(placeholder);
    QVERIFY(content->isContentHidden());
    m_clock->advance(0.1);
    panel.setFrame(QRectF(0, 0, 1000, 1));
    QCOMPARE(panel.resizeOverlay(), placeholder.data());
    m_clock->advance(0.15);
    panel.setFrame(QRectF(0, 0, 1030, 1));
    QCOMPARE(panel.resizeOverlay(), placeholder.data());
    const double lastChange = m_clock->now();

    // The placeholder covers the panel in the chassis colour, opaque, with rounded corners.
    QCOMPARE(placeholder->geometry(), panel.rect());
    const QImage picture = panel.grab().toImage();
    const QColor chassis
        = HsbColor { black.config.chassisHue, black.config.chassisSaturation, black.config.chassisBrightness, 1.0 }
              .toQColor();
    QCOMPARE(picture.pixelColor(picture.width() / 2, picture.height() / 2).rgba(), chassis.rgba());
    QCOMPARE(picture.pixelColor(0, 0).alpha(), 0);

    // The keyboard is laid out only once the size has settled, 0.2 s after the last change.
    QCOMPARE(content->scene().size(), laidOut);
    m_clock->advanceTo(lastChange + 0.199);
    QVERIFY(panel.resizeOverlay());
    m_clock->advanceTo(lastChange + KeyboardPanel::resizeSettleDelay);
    QVERIFY(!panel.resizeOverlay());
    QVERIFY(!placeholder);
    QVERIFY(!content->isContentHidden());
    QCOMPARE(content->scene().size(), QSizeF(panel.size()));
    QCOMPARE(m_clock->pendingJobCount(), 0);
}

void TestKeyboardPanel::windowManagerChangesGoThroughTheFrame()
{
    KeyboardPanel& panel = makePanel();
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));

    // A move by the window manager is taken over and stored.
    panel.move(33, 44);
    QCOMPARE(panel.frame().topLeft(), QPointF(33, 44));
    QCOMPARE(m_settings->value(SettingKeys::windowY()), std::optional(44 + panel.frame().height()));

    // A resize by the window manager keeps its width and top-left corner; the height goes back to the ratio.
    panel.setGeometry(33, 44, 1000, 200);
    const double height = 1000 / panel.currentAspectRatio();
    QCOMPARE(panel.frame(), QRectF(33, 44, 1000, height));
    QCOMPARE(panel.geometry(), QRect(33, 44, 1000, qRound(height)));
    QVERIFY(panel.resizeOverlay());
    QCOMPARE(m_settings->value(SettingKeys::windowWidth()), 1000.0);
}

void TestKeyboardPanel::placeRestoredAtNextStart()
{
    makePanel().setFrame(QRectF(120.5, 80.25, 1000, 1));
    m_panel.reset();

    KeyboardPanel& panel = makePanel();
    QCOMPARE(panel.frame(), QRectF(120.5, 80.25, 1000, 1000 / panel.currentAspectRatio()));
    QVERIFY(!panel.resizeOverlay());
}

void TestKeyboardPanel::placeOffEveryScreenIsCentred_data()
{
    QTest::addColumn<double>("x");
    QTest::addColumn<double>("bottom");

    QTest::newRow("Right of and below the only screen") << 5000.0 << 5000.0;
    QTest::newRow("Above the only screen") << 0.0 << -400.0;
}

void TestKeyboardPanel::placeOffEveryScreenIsCentred()
{
    QFETCH(double, x);
    QFETCH(double, bottom);
    m_settings->setValue(SettingKeys::windowX(), std::optional(x));
    m_settings->setValue(SettingKeys::windowY(), std::optional(bottom));

    const KeyboardPanel& panel = makePanel();
    QCOMPARE(panel.frame().center(), QRectF(QGuiApplication::primaryScreen()->availableGeometry()).center());
}

void TestKeyboardPanel::hoverFadesThenLetsClicksThrough()
{
    m_settings->setValue(SettingKeys::autoHideOnHover(), true);
    m_settings->setValue(SettingKeys::autoHideOpacity(), 0.3);
    KeyboardPanel& panel = makePanel();
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    HoverTrackingView* tracking = panel.hoverTrackingView();
    m_pointer = panel.geometry().center();

    QEnterEvent enter(QPointF(10, 10), QPointF(10, 10), panel.mapToGlobal(QPointF(10, 10)));
    QCoreApplication::sendEvent(tracking, &enter);
    QVERIFY(panel.isHovering());
    const double entered = m_clock->now();
    m_clock->advanceTo(entered + 0.075);
    QVERIFY(panel.alphaValue() < 1.0 && panel.alphaValue() > 0.3);
    QVERIFY(!panel.isClickThrough());
    m_clock->advanceTo(entered + 0.149);
    QVERIFY(!panel.isClickThrough());
    m_clock->advanceTo(entered + KeyboardPanel::fadeDuration);
    QVERIFY(panel.isClickThrough());
    QVERIFY(panel.windowHandle()->flags().testFlag(Qt::WindowTransparentForInput));
    m_clock->advance(0.05);
    QCOMPARE(panel.alphaValue(), 0.3);
    // The window keeps its opacity in steps of 1/255.
    QVERIFY(std::abs(panel.windowOpacity() - 0.3) <= 1.0 / 255);

    // The window system now puts the pointer over the window below; the hover does not end for that.
    QEvent leave(QEvent::Leave);
    QCoreApplication::sendEvent(tracking, &leave);
    QVERIFY(panel.isHovering());
    QVERIFY(tracking->isProbing());
    m_clock->advance(0.5);
    QVERIFY(panel.isHovering());
    QVERIFY(panel.isClickThrough());

    // The real exit is seen by the pointer's position, within one probe.
    m_pointer = panel.geometry().bottomRight() + QPoint(1, 1);
    m_clock->advance(HoverTrackingView::probeInterval);
    QVERIFY(!panel.isHovering());
    QVERIFY(!panel.isClickThrough());
    QVERIFY(!panel.windowHandle()->flags().testFlag(Qt::WindowTransparentForInput));
    QVERIFY(panel.isVisible());
    m_clock->advance(KeyboardPanel::fadeDuration + 0.02);
    QCOMPARE(panel.alphaValue(), 1.0);
    // Nothing keeps running once the panel is back.
    QVERIFY(!tracking->isProbing());
    QCOMPARE(m_clock->pendingJobCount(), 0);
}

void TestKeyboardPanel::leavingWithinFadeTimeKeepsPanelClickable()
{
    m_settings->setValue(SettingKeys::autoHideOnHover(), true);
    KeyboardPanel& panel = makePanel();
    HoverTrackingView* tracking = panel.hoverTrackingView();

    tracking->mouseEntered();
    m_clock->advance(0.1);
    tracking->mouseExited();
    m_clock->advance(1.0);
    QVERIFY(!panel.isClickThrough());
    QCOMPARE(panel.alphaValue(), 1.0);
    QCOMPARE(m_clock->pendingJobCount(), 0);
}

void TestKeyboardPanel::autoHideOffChangesNothing()
{
    KeyboardPanel& panel = makePanel();
    HoverTrackingView* tracking = panel.hoverTrackingView();

    tracking->mouseEntered();
    QVERIFY(panel.isHovering());
    QCOMPARE(m_clock->pendingJobCount(), 0);
    m_clock->advance(1.0);
    QCOMPARE(panel.alphaValue(), 1.0);
    QVERIFY(!panel.isClickThrough());
    tracking->mouseExited();
    QVERIFY(!panel.isHovering());
    QCOMPARE(m_clock->pendingJobCount(), 0);
    QCOMPARE(panel.alphaValue(), 1.0);
}

void TestKeyboardPanel::toggleAutoHide()
{
    KeyboardPanel& panel = makePanel();
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    HoverTrackingView* tracking = panel.hoverTrackingView();

    // Switched on with the pointer elsewhere: the panel stays as it is.
    panel.toggleAutoHide();
    QVERIFY(m_settings->value(SettingKeys::autoHideOnHover()));
    m_clock->advance(1.0);
    QCOMPARE(panel.alphaValue(), 1.0);
    QVERIFY(!panel.isClickThrough());

    // Switched off while faded under the pointer: back at once, and clickable.
    m_pointer = panel.geometry().center();
    tracking->mouseEntered();
    m_clock->advance(0.3);
    QVERIFY(panel.isClickThrough());
    panel.setAutoHideOverride(true);
    panel.toggleAutoHide();
    QVERIFY(!m_settings->value(SettingKeys::autoHideOnHover()));
    QVERIFY(!panel.isClickThrough());
    QVERIFY(!panel.autoHideOverride());
    m_clock->advance(0.3);
    QCOMPARE(panel.alphaValue(), 1.0);

    // Switched on again while still under the pointer: it fades straight away.
    panel.toggleAutoHide();
    m_clock->advance(0.3);
    QVERIFY(panel.isClickThrough());
    QCOMPARE(panel.alphaValue(), m_settings->value(SettingKeys::autoHideOpacity()));
}

void TestKeyboardPanel::hidingEndsHover()
{
    m_settings->setValue(SettingKeys::autoHideOnHover(), true);
    KeyboardPanel& panel = makePanel();
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    m_pointer = panel.geometry().center();
    panel.hoverTrackingView()->mouseEntered();
    m_clock->advance(0.3);
    QVERIFY(panel.isClickThrough());

    panel.hide();
    QVERIFY(!panel.isHovering());
    QVERIFY(!panel.isClickThrough());
    m_clock->advance(0.3);
    QCOMPARE(m_clock->pendingJobCount(), 0);
}

void TestKeyboardPanel::resizeHandleDrag_data()
{
    QTest::addColumn<QList<QPointF>>("travel");
    QTest::addColumn<double>("width");

    QTest::newRow("Rightwards the panel grows by the horizontal travel only")
        << QList<QPointF> { { 4, 2 }, { 60, 10 }, { 120, 30 } } << 1020.0;
    QTest::newRow("Leftwards past the minimum it stops at 700") << QList<QPointF> { { -100, 0 }, { -500, 0 } } << 700.0;
    QTest::newRow("Vertical travel alone changes nothing") << QList<QPointF> { { 0, 40 }, { 0, -80 } } << 900.0;
    QTest::newRow("Travel under 10 px is no drag") << QList<QPointF> { { 9, 0 }, { 6, 7 }, { -7, -7 } } << 900.0;
    QTest::newRow("Once under way, the drag follows small steps back")
        << QList<QPointF> { { 15, 0 }, { 5, 0 } } << 905.0;
}

void TestKeyboardPanel::resizeHandleDrag()
{
    QFETCH(QList<QPointF>, travel);
    QFETCH(double, width);
    KeyboardPanel& panel = makePanel();
    panel.setFrameOrigin(QPointF(40, 50));
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    ResizeHandle* handle = panel.contentView()->resizeHandle();
    const QPointF start = handle->mapToGlobal(QPointF(handle->rect().center()));

    send(handle, QEvent::MouseButtonPress, start, Qt::LeftButton, Qt::LeftButton);
    for (const QPointF& step : std::as_const(travel))
        send(handle, QEvent::MouseMove, start + step, Qt::NoButton, Qt::LeftButton);
    QCOMPARE(panel.frame(), QRectF(40, 50, width, width / panel.currentAspectRatio()));
    // The width is stored once, when the drag ends.
    QCOMPARE(m_settings->value(SettingKeys::windowWidth()), 900.0);
    send(handle, QEvent::MouseButtonRelease, start + travel.constLast(), Qt::LeftButton, Qt::NoButton);
    QCOMPARE(m_settings->value(SettingKeys::windowWidth()), width);
    QCOMPARE(m_settings->value(SettingKeys::windowY()), std::optional(50 + panel.frame().height()));
    QVERIFY(!handle->isDragging());
    QCOMPARE(panel.resizeOverlay() != nullptr, width != 900.0);

    // A move without the button held after the release does nothing.
    send(handle, QEvent::MouseMove, start + QPointF(300, 0), Qt::NoButton, Qt::NoButton);
    QCOMPARE(panel.frame().width(), width);
}

void TestKeyboardPanel::resizeHandleHoverLook()
{
    KeyboardPanel& panel = makePanel();
    ResizeHandle* handle = panel.contentView()->resizeHandle();
    QCOMPARE(handle->cursor().shape(), Qt::SizeFDiagCursor);
    QCOMPARE(handle->hoverProgress(), 0.0);

    QEnterEvent enter(QPointF(1, 1), QPointF(1, 1), QPointF(1, 1));
    QCoreApplication::sendEvent(handle, &enter);
    QVERIFY(handle->isHovering());
    m_clock->advance(0.06);
    // Ease-out: well past a third of the way after a third of the time.
    QVERIFY(handle->hoverProgress() > 0.45 && handle->hoverProgress() < 1.0);
    m_clock->advance(0.1);
    QCOMPARE(handle->hoverProgress(), 1.0);
    QEvent leave(QEvent::Leave);
    QCoreApplication::sendEvent(handle, &leave);
    m_clock->advance(0.15);
    QCOMPARE(handle->hoverProgress(), 0.0);
    QCOMPARE(m_clock->pendingJobCount(), 0);
}

void TestKeyboardPanel::backgroundDragMovesPanel()
{
    KeyboardPanel& panel = makePanel();
    panel.setFrameOrigin(QPointF(40, 50));
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    KeyboardContentView* content = panel.contentView();
    const QPointF start = content->mapToGlobal(QPointF(200, 100));

    send(content, QEvent::MouseButtonPress, start, Qt::LeftButton, Qt::LeftButton);
    send(content, QEvent::MouseMove, start + QPointF(5, 5), Qt::NoButton, Qt::LeftButton);
    send(content, QEvent::MouseMove, start + QPointF(30, -20), Qt::NoButton, Qt::LeftButton);
    QCOMPARE(panel.frame().topLeft(), QPointF(70, 30));
    QCOMPARE(m_settings->value(SettingKeys::windowX()), std::optional(40.0));
    send(content, QEvent::MouseButtonRelease, start + QPointF(30, -20), Qt::LeftButton, Qt::NoButton);
    QCOMPARE(panel.frame().topLeft(), QPointF(70, 30));
    QCOMPARE(panel.frame().width(), 900.0);
    QVERIFY(!panel.resizeOverlay());
    QCOMPARE(m_settings->value(SettingKeys::windowX()), std::optional(70.0));
    QCOMPARE(m_settings->value(SettingKeys::windowY()), std::optional(30 + panel.frame().height()));

    // The right button is for the menu; it moves nothing.
    send(content, QEvent::MouseButtonPress, start, Qt::RightButton, Qt::RightButton);
    send(content, QEvent::MouseMove, start + QPointF(50, 50), Qt::NoButton, Qt::RightButton);
    send(content, QEvent::MouseButtonRelease, start + QPointF(50, 50), Qt::RightButton, Qt::NoButton);
    QCOMPARE(panel.frame().topLeft(), QPointF(70, 30));
}

void TestKeyboardPanel::contextMenuForSavedTheme()
{
    const NamedTheme black = builtIn(u"Black"_s);
    m_settings->setValue(SettingKeys::activeThemeConfig(), black.config);
    m_settings->setValue(SettingKeys::activeThemeName(), black.name);
    KeyboardPanel& panel = makePanel();

    QMenu menu;
    panel.contentView()->populateContextMenu(menu);
    const QList<QAction*> items = menu.actions();
    QCOMPARE(items.size(), 5);
    QCOMPARE(items[0]->text(), u"Hide Keyboard"_s);
    QVERIFY(items[1]->isSeparator());
    QCOMPARE(items[2]->text(), u"Theme: Black"_s);
    QVERIFY(items[3]->isSeparator());
    QCOMPARE(items[4]->text(), u"Settings…"_s);

    const QList<QAction*> themes = items[2]->menu()->actions();
    QCOMPARE(themes.size(), builtInThemes().size());
    QStringList checked;
    for (qsizetype i = 0; i < themes.size(); ++i) {
        QCOMPARE(themes[i]->text(), builtInThemes()[i].name);
        QVERIFY(themes[i]->isCheckable());
        if (themes[i]->isChecked())
            checked << themes[i]->text();
    }
    QCOMPARE(checked, QStringList { u"Black"_s });
}

void TestKeyboardPanel::contextMenuForUnsavedTheme()
{
    NamedTheme edited = builtIn(u"Black"_s);
    edited.config.keycapBrightness += 0.01;
    m_settings->setValue(SettingKeys::activeThemeConfig(), edited.config);
    m_settings->setValue(SettingKeys::activeThemeName(), edited.name);
    m_actions.visible = false;
    KeyboardPanel& panel = makePanel();

    QMenu menu;
    panel.contentView()->populateContextMenu(menu);
    QCOMPARE(menu.actions().constFirst()->text(), u"Show Keyboard"_s);
    const QList<QAction*> themes = menu.actions()[2]->menu()->actions();
    QCOMPARE(themes.size(), builtInThemes().size() + 2);
    // The name still marks its theme; the configuration no longer matches it.
    QVERIFY(themes[builtInThemes().indexOf(builtIn(u"Black"_s))]->isChecked());
    QVERIFY(themes[themes.size() - 2]->isSeparator());
    QAction* current = themes.constLast();
    QCOMPARE(current->text(), u"Current (unsaved)"_s);
    QVERIFY(current->isCheckable() && current->isChecked());
    QVERIFY(!current->isEnabled());
}

void TestKeyboardPanel::contextMenuActions()
{
    KeyboardPanel& panel = makePanel();
    const NamedTheme chiclet = builtIn(u"Chiclet"_s);
    {
        QMenu menu;
        panel.contentView()->populateContextMenu(menu);
        menu.actions()[0]->trigger();
        menu.actions()[4]->trigger();
        const QList<QAction*> themes = menu.actions()[2]->menu()->actions();
        themes[builtInThemes().indexOf(chiclet)]->trigger();
    }
    QCOMPARE(m_actions.calls, (QStringList { u"hide"_s, u"settings"_s }));
    QCOMPARE(m_settings->value(SettingKeys::activeThemeConfig()), chiclet.config);
    QCOMPARE(m_settings->value(SettingKeys::activeThemeName()), chiclet.name);

    // The menu is built from the settings as they are when it opens.
    m_actions.visible = false;
    QMenu menu;
    panel.contentView()->populateContextMenu(menu);
    QCOMPARE(menu.actions()[2]->text(), u"Theme: Chiclet"_s);
    menu.actions()[0]->trigger();
    QCOMPARE(m_actions.calls.constLast(), u"show"_s);
}

void TestKeyboardPanel::blurRegionFollowsTheChassis()
{
    const QPainterPath chassis = keyShapePath(QRectF(0, 0, 100, 50), CornerRadii::uniform(10));
    QRegion region;
    for (const QRect& rect : X11WindowHints::blurRegion(chassis, 2.0))
        region += rect;
    // In device pixels, without the rounded corners.
    QCOMPARE(region.boundingRect(), QRect(0, 0, 200, 100));
    QVERIFY(region.contains(QPoint(100, 1)));
    QVERIFY(region.contains(QPoint(1, 50)));
    QVERIFY(!region.contains(QPoint(2, 2)));
    QVERIFY(!region.contains(QPoint(197, 97)));
    QVERIFY(X11WindowHints::blurRegion(QPainterPath(), 1.0).isEmpty());
}

QTEST_MAIN(TestKeyboardPanel)
#include "testkeyboardpanel.moc"
