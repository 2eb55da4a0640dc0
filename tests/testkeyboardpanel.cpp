// SPDX-License-Identifier: GPL-3.0-or-later
// The keyboard panel on the offscreen platform, with time driven by hand.
#include "base/clock.h"
#include "base/settingkeys.h"
#include "keyboard/keyboardscene.h"
#include "panel/clockanimation.h"
#include "panel/hovertrackingview.h"
#include "panel/keyboardcontentview.h"
#include "panel/keyboardpanel.h"
#include "panel/panelactions.h"
#include "panel/pointermotion.h"
#include "panel/resizehandle.h"
#include "panel/screenplacement.h"
#include "testsupport.h"
#include "theme/themesettings.h"

#include <QApplication>
#include <QEnterEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QRegion>
#include <QScopeGuard>
#include <QScreen>
#include <QTemporaryFile>
#include <QTest>

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

/** Records what the context menu asks of the panel's owner. */
class RecordingActions final : public PanelActions
{
public:
    QStringList calls;

    bool isVisible() const override { return true; }
    void showKeyboard() override { calls << u"show"_s; }
    void hideKeyboard() override { calls << u"hide"_s; }
    void openSettings() override { calls << u"settings"_s; }
    void setPausedByHand(bool on) override { calls << (on ? u"pause"_s : u"resume"_s); }
};

void send(QWidget* widget, QEvent::Type type, const QPointF& global, Qt::MouseButton button, Qt::MouseButtons buttons)
{
    const QPointF local = widget->mapFromGlobal(global);
    QMouseEvent event(type, local, local, global, button, buttons, Qt::NoModifier);
    QCoreApplication::sendEvent(widget, &event);
}

double ratio()
{
    return KeyboardScene::aspectRatio(SettingKeys::activeThemeConfig().defaultValue());
}

QPointF screenCentre()
{
    return QRectF(QGuiApplication::primaryScreen()->availableGeometry()).center();
}

/** Reports motion when told to. */
struct FakeMotion final : PointerMotion
{
    bool setWatching(bool on) override
    {
        watching = on;
        return true;
    }
    bool watching = false;
};

// Members in the order they depend on each other, so they are torn down in the right order.
struct Fixture
{
    TestSupport::TemporaryStore store;
    ManualClock clock { 100.0 };
    RecordingActions actions;
    std::unique_ptr<KeyboardPanel> panel;
    /** The pointer's global position as the hover probe sees it, and how often it was looked at. */
    QPoint pointer { -1000, -1000 };
    int looks = 0;

    KeyboardPanel& makePanel(bool shown = false)
    {
        panel.reset();
        panel = std::make_unique<KeyboardPanel>(*store, clock, nullptr, &actions);
        panel->findChild<HoverTrackingView*>()->setPointerReader([this] {
            ++looks;
            return pointer;
        });
        panel->findChild<HoverTrackingView*>()->setPointerMotion(nullptr);
        if (shown) {
            panel->show();
            if (!QTest::qWaitForWindowExposed(panel.get()))
                qWarning("the panel was not exposed");
        }
        return *panel;
    }

    KeyboardContentView* content() const { return panel->findChild<KeyboardContentView*>(); }

    /** The flat placeholder shown while the size changes (it alone lets the mouse through). */
    QWidget* placeholder() const
    {
        const QList<QWidget*> all = panel->findChild<HoverTrackingView*>()->findChildren<QWidget*>();
        const auto it
            = std::ranges::find_if(all, [](QWidget* w) { return w->testAttribute(Qt::WA_TransparentForMouseEvents); });
        return it == all.end() ? nullptr : *it;
    }

    /** The frame as the settings keep it: left edge, bottom edge and width. */
    QRectF storedFrame()
    {
        const double width = store->value(SettingKeys::windowWidth());
        const double height = width / panel->currentAspectRatio();
        const double bottom = store->value(SettingKeys::windowY()).value_or(qQNaN());
        return { store->value(SettingKeys::windowX()).value_or(qQNaN()), bottom - height, width, height };
    }
};

} // namespace

class TestKeyboardPanel final : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_f = std::make_unique<Fixture>(); }
    void cleanup() { m_f.reset(); }

    void defaultSizeAndPlace()
    {
        KeyboardPanel& panel = m_f->makePanel();
        const double ratio = panel.currentAspectRatio();
        QCOMPARE(std::round(ratio * 1e5) / 1e5, 2.57365);
        QCOMPARE(panel.geometry().size(), QSize(900, 350));
        QCOMPARE(panel.frame().center(), screenCentre());

        // The place is kept to the fraction for the next start; one off every screen is centred again.
        panel.setFrame(QRectF(120.5, 80.25, 1000, 1));
        QCOMPARE(m_f->makePanel().frame(), QRectF(120.5, 80.25, 1000, 1000 / ratio));
        m_f->panel->setFrame(QRectF(5000, 5000, 1000, 1));
        QCOMPARE(m_f->makePanel().frame().center(), screenCentre());
    }

    void setFrame_data()
    {
        QTest::addColumn<QRectF>("requested");
        QTest::addColumn<double>("width");
        QTest::addColumn<bool>("byWindowManager");

        QTest::newRow("height follows the width, the top edge stays") << QRectF(10, 20, 1000, 123) << 1000.0 << false;
        QTest::newRow("under the minimum width") << QRectF(0, 0, 300, 100) << 700.0 << false;
        QTest::newRow("over the maximum width") << QRectF(0, 0, 1e12, 100) << 8192.0 << false;
        QTest::newRow("resized by the window manager") << QRectF(33, 44, 1000, 200) << 1000.0 << true;
    }

    void setFrame()
    {
        QFETCH(QRectF, requested);
        QFETCH(double, width);
        QFETCH(bool, byWindowManager);
        KeyboardPanel& panel = m_f->makePanel(true);
        const bool resized = width != panel.frame().width();
        if (byWindowManager)
            panel.setGeometry(requested.toRect());
        else
            panel.setFrame(requested);
        const double height = width / panel.currentAspectRatio();
        QCOMPARE(panel.frame(), QRectF(requested.topLeft(), QSizeF(width, height)));
        QCOMPARE(panel.geometry(), QRect(qRound(requested.x()), qRound(requested.y()), qRound(width), qRound(height)));
        QCOMPARE(m_f->storedFrame(), panel.frame());
        QCOMPARE(m_f->placeholder() != nullptr, resized); // only a new size shows the placeholder
    }

    void rapidResizesShowOnePlaceholder()
    {
        const ThemeConfig black = builtInThemes()[2].config;
        m_f->store->setValue(SettingKeys::activeThemeConfig(), black);
        KeyboardPanel& panel = m_f->makePanel(true);
        panel.setFrame(QRectF(0, 0, 950, 1));
        const QPointer<QWidget> placeholder = m_f->placeholder();
        m_f->clock.advance(0.15);
        panel.setFrame(QRectF(0, 0, 1000, 1));
        QCOMPARE(m_f->placeholder(), placeholder.data());
        const double lastChange = m_f->clock.now();

        // The placeholder shows the chassis colour until the size has settled; then the keyboard is laid out anew.
        const QImage picture = panel.grab().toImage();
        QCOMPARE(picture.pixelColor(picture.rect().center()).rgba(),
            (HsbColor { black.chassisHue, black.chassisSaturation, black.chassisBrightness, 1.0 }.toQColor().rgba()));
        m_f->clock.advanceTo(lastChange + KeyboardPanel::resizeSettleDelay);
        QVERIFY(!placeholder);
        QCOMPARE(m_f->content()->scene().size(), QSizeF(panel.size()));
    }

    void hover_data()
    {
        // Steps separated by ';', times in seconds from the start; auto-hide fades to 0.1. "auto 0|1": the setting.
        // "in", "out": where the probe finds the pointer. "enter", "leave": the window system's events. "toggle",
        // "hide": the panel's. "at T": the clock moves on to T.
        // "motion": pointer motion is reported from now on; "move": it reports motion.
        // Checks: "hovering 0|1", "through 0|1" (the panel and its window's flag), "alpha A", "looks N" (at the
        // pointer since the last check), "watching 0|1" (motion is listened to).
        QTest::addColumn<QString>("script");

        QTest::newRow("fades, then lets clicks through until the pointer is seen to leave")
            << u"auto 1; in; enter; hovering 1; at .149; through 0; at .15; through 1; alpha .1;"
               " leave; at .7; hovering 1; through 1; out; at .75; hovering 0; through 0; at .92; alpha 1"_s;
        QTest::newRow("hiding ends the hover") << u"auto 1; in; enter; at .3; through 1; hide; hovering 0; through 0"_s;
        QTest::newRow("auto-hide off: hovering changes nothing")
            << u"in; enter; hovering 1; at 1; alpha 1; through 0; leave; hovering 0"_s;
        QTest::newRow("switched on with the pointer elsewhere: no change") << u"toggle; at 1; alpha 1; through 0"_s;
        QTest::newRow("switched on under the pointer: fades at once; off: back at once")
            << u"in; enter; toggle; at .3; through 1; alpha .1; toggle; through 0; at .6; alpha 1"_s;
        QTest::newRow("switched off elsewhere while faded: back on leaving")
            << u"auto 1; in; enter; at .3; through 1; auto 0; out; leave;"
               " at .6; hovering 0; through 0; at 1; alpha 1"_s;
        QTest::newRow("without motion reports the pointer is looked at 20 times a second")
            << u"auto 1; in; enter; at .15; looks 0; at .52; looks 7; out; at .58; looks 1; hovering 0; at 1; looks 0"_s;
        QTest::newRow("with motion reports it is looked at only after moving")
            << u"motion; auto 1; in; enter; watching 0; at .15; watching 1; at 2; looks 0; move; move; at 2.01;"
               " looks 0; at 2.02; looks 1; hovering 1; at 4; looks 0; at 4.03; looks 1; out; move; at 4.04; looks 0;"
               " at 4.05; looks 1; hovering 0; through 0; watching 0; at 9; looks 0"_s;
        QTest::newRow("with motion reports a warp is found within two seconds")
            << u"motion; auto 1; in; enter; at 2; looks 0; out; at 2.14; hovering 1; at 2.16; hovering 0; through 0"_s;
        QTest::newRow("hiding stops listening to motion")
            << u"motion; auto 1; in; enter; at .3; watching 1; hide; watching 0; hovering 0"_s;
    }

    void hover()
    {
        QFETCH(QString, script);
        m_f->store->setValue(SettingKeys::autoHideOpacity(), 0.1);
        KeyboardPanel& panel = m_f->makePanel(true);
        HoverTrackingView* tracking = panel.findChild<HoverTrackingView*>();
        FakeMotion* motion = nullptr;
        const double start = m_f->clock.now();
        for (const QString& step : script.split(u';')) {
            const QStringList words = step.split(u' ', Qt::SkipEmptyParts);
            const QString what = words.value(0);
            const double a = words.value(1).toDouble();
            auto failure = qScopeGuard([&step] { qWarning("at step \"%s\"", qPrintable(step)); });
            if (what == u"auto") {
                m_f->store->setValue(SettingKeys::autoHideOnHover(), a != 0);
            } else if (what == u"in" || what == u"out") {
                m_f->pointer
                    = what == u"in" ? panel.geometry().center() : panel.geometry().bottomRight() + QPoint(1, 1);
            } else if (what == u"enter") {
                QEnterEvent enter(QPointF(10, 10), QPointF(10, 10), panel.mapToGlobal(QPointF(10, 10)));
                QCoreApplication::sendEvent(tracking, &enter);
            } else if (what == u"leave") {
                QEvent leave(QEvent::Leave);
                QCoreApplication::sendEvent(tracking, &leave);
            } else if (what == u"motion") {
                auto fake = std::make_unique<FakeMotion>();
                motion = fake.get();
                tracking->setPointerMotion(std::move(fake));
            } else if (what == u"move") {
                emit motion->moved();
            } else if (what == u"watching") {
                QCOMPARE(motion->watching, a != 0);
            } else if (what == u"looks") {
                QCOMPARE(std::exchange(m_f->looks, 0), int(a));
            } else if (what == u"toggle") {
                panel.toggleAutoHide();
            } else if (what == u"hide") {
                panel.hide();
            } else if (what == u"at") {
                m_f->clock.advanceTo(start + a);
            } else if (what == u"hovering") {
                QCOMPARE(panel.isHovering(), a != 0);
            } else if (what == u"through") {
                QCOMPARE(panel.isClickThrough(), a != 0);
                QCOMPARE(panel.windowHandle()->flags().testFlag(Qt::WindowTransparentForInput), a != 0);
            } else if (what == u"alpha") {
                // The window keeps its opacity in steps of 1/255.
                QVERIFY2(std::abs(panel.windowOpacity() - a) <= 1.0 / 255,
                    qPrintable(QString::number(panel.windowOpacity())));
            } else {
                QFAIL(qPrintable(u"no such step: "_s + step));
            }
            failure.dismiss();
        }
    }

    void drag_data()
    {
        QTest::addColumn<bool>("onHandle");
        QTest::addColumn<QList<QPointF>>("travel");
        QTest::addColumn<QRectF>("frame"); // the height follows from the width

        QTest::newRow("the handle grows the panel by the horizontal travel")
            << true << QList<QPointF> { { 4, 2 }, { 60, 10 }, { 120, 30 } } << QRectF(40, 50, 1020, 0);
        QTest::newRow("leftwards it stops at 700")
            << true << QList<QPointF> { { -100, 0 }, { -500, 0 } } << QRectF(40, 50, 700, 0);
        QTest::newRow("under 10 px is no drag")
            << true << QList<QPointF> { { 9, 0 }, { 6, 7 }, { -7, -7 } } << QRectF(40, 50, 900, 0);
        QTest::newRow("10 px across is, with what came before")
            << true << QList<QPointF> { { 8, 8 } } << QRectF(40, 50, 908, 0);
        QTest::newRow("the background moves the panel with the pointer")
            << false << QList<QPointF> { { 5, 5 }, { 30, -20 } } << QRectF(70, 30, 900, 0);
    }

    void drag()
    {
        QFETCH(bool, onHandle);
        QFETCH(QList<QPointF>, travel);
        QFETCH(QRectF, frame);
        KeyboardPanel& panel = m_f->makePanel(true);
        panel.setFrameOrigin(QPointF(40, 50));
        const QRectF before = panel.frame();
        QWidget* widget = onHandle ? static_cast<QWidget*>(panel.findChild<ResizeHandle*>()) : m_f->content();
        const QPointF start = widget->mapToGlobal(QPointF(widget->rect().center()));
        frame.setHeight(frame.width() / panel.currentAspectRatio());

        send(widget, QEvent::MouseButtonPress, start, Qt::LeftButton, Qt::LeftButton);
        for (const QPointF& step : std::as_const(travel))
            send(widget, QEvent::MouseMove, start + step, Qt::NoButton, Qt::LeftButton);
        QCOMPARE(panel.frame(), frame);
        QCOMPARE(m_f->storedFrame(), before); // stored once, when the drag ends
        send(widget, QEvent::MouseButtonRelease, start + travel.constLast(), Qt::LeftButton, Qt::NoButton);
        QCOMPARE(m_f->storedFrame(), frame);
    }

    void paintAreas_data()
    {
        QTest::addColumn<QList<QRect>>("rects"); // united into one region
        QTest::addColumn<QList<QRect>>("areas"); // in any order

        QTest::newRow("two keys apart stay apart") << QList<QRect> { { 0, 0, 50, 50 }, { 300, 100, 50, 50 } }
                                                   << QList<QRect> { { 0, 0, 50, 50 }, { 300, 100, 50, 50 } };
        QTest::newRow("overlapping keys in the region's bands come back as one")
            << QList<QRect> { { 0, 0, 50, 50 }, { 30, 20, 50, 50 } } << QList<QRect> { { 0, 0, 80, 70 } };
        QTest::newRow("touching edges join")
            << QList<QRect> { { 0, 0, 50, 50 }, { 50, 10, 20, 20 } } << QList<QRect> { { 0, 0, 70, 50 } };
        QTest::newRow("a join that reaches a third key takes it in")
            << QList<QRect> { { 0, 0, 40, 40 }, { 30, 30, 40, 40 }, { 70, 0, 20, 20 }, { 200, 200, 5, 5 } }
            << QList<QRect> { { 0, 0, 90, 70 }, { 200, 200, 5, 5 } };
    }

    void paintAreas()
    {
        QFETCH(QList<QRect>, rects);
        QFETCH(QList<QRect>, areas);
        QRegion region;
        for (const QRect& rect : std::as_const(rects))
            region |= rect;
        QList<QRect> got = KeyboardContentView::paintAreas(region);
        const auto order
            = [](const QRect& a, const QRect& b) { return std::pair(a.x(), a.y()) < std::pair(b.x(), b.y()); };
        std::ranges::sort(got, order);
        std::ranges::sort(areas, order);
        QCOMPARE(got, areas);
    }

    void contextMenu()
    {
        m_f->makePanel();
        QMenu menu;
        m_f->content()->populateContextMenu(menu);
        QStringList texts;
        for (const QAction* item : menu.actions())
            texts << (item->isSeparator() ? u"-"_s : item->text());
        QCOMPARE(texts,
            (QStringList { u"Hide Keyboard"_s, u"Pause Showing Keys"_s, u"Show Trackpad"_s, u"-"_s,
                u"Theme: Spacegray"_s, u"Show On"_s, u"-"_s, u"Settings…"_s }));
        menu.actions()[0]->trigger();
        menu.actions()[1]->trigger();
        menu.actions()[2]->trigger();
        QVERIFY(m_f->store->value(SettingKeys::showTrackpad()));
        menu.actions()[7]->trigger();
        menu.actions()[4]->menu()->actions()[2]->trigger();
        QCOMPARE(m_f->actions.calls, (QStringList { u"hide"_s, u"pause"_s, u"settings"_s }));
        QCOMPARE(m_f->store->value(SettingKeys::activeThemeName()), builtInThemes()[2].name);

        const auto screens = [&] {
            QMenu again;
            m_f->content()->populateContextMenu(again);
            QStringList items;
            for (const QAction* item : again.actions()[5]->menu()->actions())
                items << (item->isChecked() ? u"* "_s : u""_s) + item->text();
            return items;
        };
        QCOMPARE(screens(), (QStringList { u"* Screen with Pointer"_s, u"Primary Screen"_s, u"eDP-1 (1280×800)"_s }));
        menu.actions()[5]->menu()->actions()[2]->trigger();
        QCOMPARE(m_f->store->value(SettingKeys::showOnScreen()), u"eDP-1"_s);
        m_f->store->setValue(SettingKeys::showOnScreen(), u"HDMI-1"_s);
        QCOMPARE(screens(), (QStringList { u"Screen with Pointer"_s, u"Primary Screen"_s, u"eDP-1 (1280×800)"_s,
                                u"* HDMI-1 (not connected)"_s }));
    }

    void placeBySetup_data()
    {
        QTest::addColumn<QString>("stored"); // placesBySetup, "%1" standing for the current set-up
        QTest::addColumn<QRectF>("frame");
        QTest::addColumn<double>("width"); // the remembered one

        // The fallback is windowX and windowY; the test puts them at 10, 400 (bottom edge).
        const QRectF fallback(10, 400 - 900 / ratio(), 900, 900 / ratio());
        QTest::newRow("this set-up's place")
            << u"{\"%1\":{\"screen\":\"eDP-1\",\"x\":1,\"y\":0,\"width\":1000}}"_s
            << QRectF(280, 0, 1000, 1000 / ratio()) << 1000.0;
        QTest::newRow("wider than the screen, shown narrower")
            << u"{\"%1\":{\"screen\":\"eDP-1\",\"x\":0,\"y\":1,\"width\":2000}}"_s
            << QRectF(0, 800 - 1280 / ratio(), 1280, 1280 / ratio()) << 2000.0;
        QTest::newRow("another set-up's only") << u"{\"other\":{\"screen\":\"eDP-1\",\"x\":1,\"y\":0,\"width\":1000}}"_s
                                                << fallback << 900.0;
        QTest::newRow("a screen not connected")
            << u"{\"%1\":{\"screen\":\"DP-9\",\"x\":1,\"y\":0,\"width\":1000}}"_s << fallback << 900.0;
        QTest::newRow("garbage") << u"{\"%1\":[1e999, {]"_s << fallback << 900.0;
    }
    void placeBySetup()
    {
        QFETCH(QString, stored);
        QFETCH(QRectF, frame);
        QFETCH(double, width);
        const QString setup = ScreenPlacement::setupKey(ScreenPlacement::connectedScreens());
        m_f->store->setValue(SettingKeys::placesBySetup(), stored.arg(setup));
        m_f->store->setValue(SettingKeys::windowX(), std::optional(10.0));
        m_f->store->setValue(SettingKeys::windowY(), std::optional(400.0));
        KeyboardPanel& panel = m_f->makePanel();
        QCOMPARE(panel.frame(), frame);
        QCOMPARE(panel.place().width, width);

        // Kept as this set-up's place, with the width the user gave it rather than the one that fits.
        const ScreenPlacement::PlaceMap map
            = ScreenPlacement::PlaceMap::fromJson(m_f->store->value(SettingKeys::placesBySetup()));
        QCOMPARE(map.setups().constLast(), setup);
        QCOMPARE(map.place(setup)->width, width);
        QCOMPARE(m_f->storedFrame(), frame);

        // Moved, it keeps that width; shown, it comes fully onto the screen at that width or the most that fits.
        panel.setFrameOrigin(QPointF(900, -50));
        QCOMPARE(panel.place().width, width);
        panel.show();
        const QRectF shown = panel.frame();
        QCOMPARE(shown.width(), std::min(width, 1280.0));
        QVERIFY2(QRectF(0, 0, 1280, 800).contains(shown), qPrintable(u"%1,%2"_s.arg(shown.x()).arg(shown.y())));
        QCOMPARE(shown.top(), 0.0);
        QCOMPARE(shown.right(), 1280.0);
    }

    void fadesEndOnTime()
    {
        // The last frame lands on the end of the animation, also when that falls between two frames.
        QList<double> values;
        ClockAnimation animation(m_f->clock, this, 0, [&values](double v) { values << v; });
        animation.animateTo(1, 0.105, ClockAnimation::Curve::easeInOut);
        m_f->clock.advance(0.105);
        QCOMPARE(values.constLast(), 1.0);
        QVERIFY(!animation.isRunning());
    }

private:
    std::unique_ptr<Fixture> m_f;
};

int main(int argc, char** argv)
{
    // One laptop screen, named and large enough for the keyboard's default width.
    QTemporaryFile screens;
    if (!screens.open()
        || screens.write(R"({"screens":[{"name":"eDP-1","x":0,"y":0,"width":1280,"height":800}]})") < 0
        || !screens.flush())
        return 1;
    qputenv("QT_QPA_PLATFORM", "offscreen:configfile=" + QFile::encodeName(screens.fileName()));
    QApplication app(argc, argv);
    TestKeyboardPanel test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "testkeyboardpanel.moc"
