// SPDX-License-Identifier: GPL-3.0-or-later
#include "panel/keyboardpanel.h"

#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "input/latencyprobe.h"
#include "keyboard/keyboardscene.h"
#include "keyboard/keyshape.h"
#include "panel/hovertrackingview.h"
#include "panel/keyboardcontentview.h"
#include "panel/resizehandle.h"
#include "panel/x11windowhints.h"
#include "theme/hsbcolor.h"
#include "theme/themestyle.h"

#include <QCursor>
#include <QGuiApplication>
#include <QHideEvent>
#include <QPainter>
#include <QPainterPath>
#include <QRegion>
#include <QScopedValueRollback>
#include <QScreen>
#include <QShowEvent>
#include <QWindow>

#include <algorithm>
#include <cmath>

namespace {

/** The ratio of the default theme, for a theme whose spacing gives no usable ratio. */
constexpr double fallbackRatio = 2.57365;

/** The flat stand-in for the keyboard while the panel's size changes: the chassis colour, opaque, rounded. */
class ResizePlaceholder final : public QWidget
{
public:
    ResizePlaceholder(const QColor& colour, double radius, QWidget* parent)
        : QWidget(parent)
        , m_colour(colour)
        , m_radius(radius)
    {
        // Only a picture: a drag of the resize handle under it goes on, and clicks reach the panel as before.
        setAttribute(Qt::WA_TransparentForMouseEvents);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(m_colour);
        painter.drawRoundedRect(QRectF(rect()), m_radius, m_radius);
    }

private:
    QColor m_colour;
    double m_radius;
};

template <typename T> void storeIfChanged(SettingsStore& settings, const SettingKey<T>& key, const T& value)
{
    // Every write rewrites the settings file; a drag sends many frames that change only one coordinate.
    if (!settings.hasStoredEntry(key.name()) || settings.value(key) != value)
        settings.setValue(key, value);
}

} // namespace

KeyboardPanel::KeyboardPanel(
    SettingsStore& settings, Clock& clock, KeyboardMonitor* monitor, PanelActions* actions, QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus)
    , m_settings(settings)
    , m_clock(clock)
    , m_alpha(clock, this, 1.0, [this](double opacity) { setWindowOpacity(opacity); })
{
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_TranslucentBackground);
    setFocusPolicy(Qt::NoFocus);
    setWindowTitle(tr("Ordalis Keyboard"));

    const auto ratioNow = [this] {
        const double ratio = KeyboardScene::aspectRatio(
            m_settings.value(SettingKeys::activeThemeConfig()), m_settings.value(SettingKeys::showTrackpad()));
        return std::isfinite(ratio) && ratio > 0 ? ratio : fallbackRatio;
    };
    m_ratio = ratioNow();
    double width = settings.value(SettingKeys::windowWidth());
    if (!(width >= minimumPanelWidth))
        width = minimumPanelWidth;
    width = std::min(width, maximumPanelWidth);

    m_tracking = new HoverTrackingView(this, clock, this);
    m_content = new KeyboardContentView(this, settings, clock, monitor, actions, m_tracking);
    connect(&m_content->scene(), &KeyboardScene::layoutChanged, this, [this] {
        updateBlurBehind();
        updateWindowShape();
    });

    const QSizeF minimum = minimumFrameSize();
    setMinimumSize(int(minimum.width()), int(std::floor(minimum.height())));
    m_place.width = width;
    applyFrame(QRectF(0, 0, width, width / m_ratio));

    connect(qGuiApp, &QGuiApplication::screenAdded, this, [this](QScreen* screen) {
        watchScreen(screen);
        followScreens();
    });
    connect(qGuiApp, &QGuiApplication::screenRemoved, this, [this](QScreen* screen) { followScreens(screen); });
    connect(qGuiApp, &QGuiApplication::primaryScreenChanged, this, [this] { followScreens(); });
    for (QScreen* screen : QGuiApplication::screens())
        watchScreen(screen);
    // The trackpad makes the panel taller: same place and width, new height.
    settings.bind(SettingKeys::showTrackpad(), this, [this, ratioNow](bool) {
        const double ratio = ratioNow();
        if (ratio == m_ratio)
            return;
        m_ratio = ratio;
        const QSizeF smallest = minimumFrameSize();
        setMinimumSize(int(smallest.width()), int(std::floor(smallest.height())));
        setFrame(QRectF(m_frame.topLeft(), QSizeF(m_frame.width(), m_frame.width() / m_ratio)));
    });
    settings.bind(SettingKeys::showOnScreen(), this, [this](const QString&) {
        if (isVisible())
            placeForShowing();
    });

    const QList<ScreenPlacement::Screen> screens = ScreenPlacement::connectedScreens();
    m_setup = ScreenPlacement::setupKey(screens);
    const ScreenPlacement::PlaceMap places
        = ScreenPlacement::PlaceMap::fromJson(settings.value(SettingKeys::placesBySetup()));
    if (const std::optional<ScreenPlacement::Place> known = places.place(m_setup)) {
        if (const qsizetype index = ScreenPlacement::indexOf(screens, known->screen); index >= 0) {
            placeOn(screens, index, *known);
            return;
        }
    }

    const std::optional<double> x = settings.value(SettingKeys::windowX());
    const std::optional<double> bottom = settings.value(SettingKeys::windowY());
    if (x && bottom) {
        const QRectF stored(*x, *bottom - m_frame.height(), m_frame.width(), m_frame.height());
        if (placeIsOnAScreen(stored)) {
            setFrameOrigin(stored.topLeft());
            return;
        }
    }
    const QScreen* screen = QGuiApplication::primaryScreen();
    const QRectF area = screen ? QRectF(screen->availableGeometry()) : QRectF(QPointF(0, 0), m_frame.size());
    setFrameOrigin(area.center() - QPointF(m_frame.width() / 2, m_frame.height() / 2));
}

void KeyboardPanel::setKeyLabels(KeyLabelProvider* labels)
{
    m_content->scene().followKeyLabels(labels);
}

void KeyboardPanel::setPaused(bool paused)
{
    m_content->scene().setPaused(paused);
}

KeyboardPanel::~KeyboardPanel()
{
    if (m_inGesture)
        endGesture();
    m_clock.cancel(m_resizeTimer);
    m_clock.cancel(m_clickThroughJob);
    // The views refer back to the panel; they go while it is still whole.
    delete m_tracking;
}

QSizeF KeyboardPanel::minimumFrameSize() const
{
    return { minimumPanelWidth, minimumPanelWidth / m_ratio };
}

bool KeyboardPanel::placeIsOnAScreen(const QRectF& frame) const
{
    const QPointF middle = frame.center();
    const QList<QScreen*> screens = QGuiApplication::screens();
    return std::any_of(screens.begin(), screens.end(),
        [&](const QScreen* screen) { return QRectF(screen->geometry()).contains(middle); });
}

void KeyboardPanel::setFrame(const QRectF& requested)
{
    double width = std::isfinite(requested.width()) ? requested.width() : m_frame.width();
    width = std::clamp(width, minimumPanelWidth, maximumPanelWidth);
    const double height = width / m_ratio;
    const double left = std::isfinite(requested.x()) ? requested.x() : m_frame.x();
    const double top = std::isfinite(requested.y()) ? requested.y() : m_frame.y();
    // Exact comparisons: a size that comes out the same to the last bit is no change at all.
    const bool sizeChanged = width != m_frame.width() || height != m_frame.height();
    if (sizeChanged && !m_resizeOverlay)
        showResizeOverlay();
    m_place.width = width;
    applyFrame(QRectF(left, top, width, height));
    storeFrame();
    if (sizeChanged) {
        m_clock.cancel(m_resizeTimer);
        m_resizeTimer = m_clock.schedule(resizeSettleDelay, this, [this] {
            m_resizeTimer = 0;
            hideResizeOverlay();
        });
    }
}

void KeyboardPanel::setFrameOrigin(const QPointF& topLeft)
{
    if (!std::isfinite(topLeft.x()) || !std::isfinite(topLeft.y()))
        return;
    applyFrame(QRectF(topLeft, m_frame.size()));
    storeFrame();
}

void KeyboardPanel::beginGesture()
{
    m_inGesture = true;
}

void KeyboardPanel::endGesture()
{
    m_inGesture = false;
    if (m_frameUnstored)
        storeFrame();
}

void KeyboardPanel::storeFrame(const QString& screen)
{
    m_frameUnstored = m_inGesture;
    if (m_inGesture)
        return;
    storeIfChanged(m_settings, SettingKeys::windowWidth(), m_frame.width());
    storeIfChanged(m_settings, SettingKeys::windowX(), std::optional<double>(m_frame.left()));
    storeIfChanged(m_settings, SettingKeys::windowY(), std::optional<double>(m_frame.top() + m_frame.height()));
    rememberPlace(screen);
}

void KeyboardPanel::rememberPlace(const QString& screen)
{
    const QList<ScreenPlacement::Screen> screens = ScreenPlacement::connectedScreens(m_leavingScreen);
    if (screens.isEmpty())
        return;
    m_setup = ScreenPlacement::setupKey(screens);
    ScreenPlacement::PlaceMap places
        = ScreenPlacement::PlaceMap::fromJson(m_settings.value(SettingKeys::placesBySetup()));
    qsizetype index = ScreenPlacement::indexOf(screens, screen);
    const bool onAScreen = std::ranges::any_of(
        screens, [&](const ScreenPlacement::Screen& s) { return QRectF(s.geometry).intersects(m_frame); });
    if (index < 0 && onAScreen)
        index = ScreenPlacement::screenOf(screens, m_frame);
    if (index >= 0) {
        const ScreenPlacement::Screen& on = screens[index];
        m_place = ScreenPlacement::placeOf(m_frame, on.name, QRectF(on.available), m_place.width, m_place);
        places.remember(m_setup, m_place);
    } else {
        // Off every screen there is no place to keep; the next start centres it again.
        places.forget(m_setup);
    }
    storeIfChanged(m_settings, SettingKeys::placesBySetup(), places.toJson());
}

void KeyboardPanel::placeOn(
    const QList<ScreenPlacement::Screen>& screens, qsizetype index, const ScreenPlacement::Place& place)
{
    if (index < 0 || index >= screens.size())
        return;
    const ScreenPlacement::Screen& screen = screens[index];
    const QRectF area(screen.available.isEmpty() ? screen.geometry : screen.available);
    m_place = place;
    m_place.screen = screen.name;
    applyFrame(ScreenPlacement::frameFor(m_place, area, m_ratio, minimumPanelWidth, maximumPanelWidth));
    storeFrame(screen.name);
}

void KeyboardPanel::placeForShowing()
{
    const QList<ScreenPlacement::Screen> screens = ScreenPlacement::connectedScreens();
    const QScreen* primary = QGuiApplication::primaryScreen();
    const QString choice = m_settings.value(SettingKeys::showOnScreen());
    placeOn(screens,
        ScreenPlacement::chooseScreen(screens, choice, primary ? primary->name() : QString(), QCursor::pos()), m_place);
}

void KeyboardPanel::followScreens(const QScreen* leaving)
{
    const QScopedValueRollback guard(m_leavingScreen, leaving);
    const QList<ScreenPlacement::Screen> screens = ScreenPlacement::connectedScreens(leaving);
    if (screens.isEmpty())
        return;
    ScreenPlacement::Place place = m_place;
    if (const QString setup = ScreenPlacement::setupKey(screens); setup != m_setup) {
        const ScreenPlacement::PlaceMap places
            = ScreenPlacement::PlaceMap::fromJson(m_settings.value(SettingKeys::placesBySetup()));
        place = places.place(setup).value_or(place);
    }
    const QScreen* primary = QGuiApplication::primaryScreen();
    placeOn(screens,
        ScreenPlacement::screenAfterChange(screens, m_settings.value(SettingKeys::showOnScreen()), place.screen,
            primary && primary != leaving ? primary->name() : QString(), QCursor::pos()),
        place);
}

void KeyboardPanel::watchScreen(QScreen* screen)
{
    connect(screen, &QScreen::geometryChanged, this, [this] { followScreens(); });
    connect(screen, &QScreen::availableGeometryChanged, this, [this] { followScreens(); });
}

QRect KeyboardPanel::pixelRect(const QRectF& frame)
{
    return { QPoint(qRound(frame.x()), qRound(frame.y())), QSize(qRound(frame.width()), qRound(frame.height())) };
}

void KeyboardPanel::applyFrame(const QRectF& frame)
{
    m_frame = frame;
    const QRect pixels = pixelRect(frame);
    if (geometry() == pixels)
        return;
    const QScopedValueRollback guard(m_applyingFrame, true);
    // Narrower than the minimum only to fit a small screen.
    const QSizeF least = frame.width() < minimumPanelWidth ? QSizeF(pixels.size()) : minimumFrameSize();
    const QSize leastPixels(int(least.width()), int(std::floor(least.height())));
    if (minimumSize() != leastPixels)
        setMinimumSize(leastPixels);
    setGeometry(pixels);
}

void KeyboardPanel::followWindowSystem()
{
    // Our own setGeometry() reports back at once; the window manager's answers come later. An answer that differs
    // from the frame is the window manager's doing (or an answer to an older request of a drag, which the next one
    // overtakes): it is taken over as it is, only its height brought back to the ratio.
    if (m_applyingFrame)
        return;
    const QRect actual = geometry();
    const QRect expected = pixelRect(m_frame);
    if (actual == expected)
        return;
    if (actual.size() != expected.size())
        setFrame(QRectF(actual));
    else
        setFrameOrigin(QPointF(actual.topLeft()));
}

bool KeyboardPanel::event(QEvent* event)
{
    if (event->type() != QEvent::UpdateRequest)
        return QWidget::event(event);
    // The window paints what changed and hands it to the display while this event is handled.
    const bool handled = QWidget::event(event);
    if (LatencyProbe* probe = LatencyProbe::active())
        probe->frameFinished();
    return handled;
}

void KeyboardPanel::moveEvent(QMoveEvent* event)
{
    QWidget::moveEvent(event);
    followWindowSystem();
}

void KeyboardPanel::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    m_tracking->setGeometry(rect());
    if (m_resizeOverlay)
        m_resizeOverlay->setGeometry(m_tracking->rect());
    updateWindowShape();
    followWindowSystem();
}

void KeyboardPanel::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    if (event->spontaneous())
        return;
    placeForShowing();
    X11WindowHints::prepareOverlay(windowHandle());
    updateBlurBehind();
    updateWindowShape();
}

void KeyboardPanel::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    // A hidden panel is under no pointer, whatever the window system reports, and must not keep Escape held back.
    if (!event->spontaneous() && m_isHovering)
        m_tracking->mouseExited();
}

void KeyboardPanel::showResizeOverlay()
{
    if (!m_tracking || m_resizeOverlay)
        return;
    m_content->setContentHidden(true);
    const ThemeConfig config = m_settings.value(SettingKeys::activeThemeConfig());
    const ThemeStyle style(config);
    const double radius = m_tracking->width() / 14.5 / 60.0 * style.chassisCornerRadius;
    const QColor colour
        = HsbColor { config.chassisHue, config.chassisSaturation, config.chassisBrightness, 1.0 }.toQColor();
    auto* overlay = new ResizePlaceholder(colour, std::isfinite(radius) ? std::max(radius, 0.0) : 0.0, m_tracking);
    overlay->setGeometry(m_tracking->rect());
    overlay->show();
    overlay->raise();
    m_resizeOverlay = overlay;
}

void KeyboardPanel::hideResizeOverlay()
{
    m_clock.cancel(m_resizeTimer);
    m_resizeTimer = 0;
    delete m_resizeOverlay.data();
    m_content->setContentHidden(false);
}

void KeyboardPanel::hoverEntered()
{
    if (!m_settings.value(SettingKeys::autoHideOnHover()))
        return;
    fadeTo(m_settings.value(SettingKeys::autoHideOpacity()));
    m_clock.cancel(m_clickThroughJob);
    m_clickThroughJob = m_clock.schedule(fadeDuration, this, [this] {
        m_clickThroughJob = 0;
        if (m_isHovering && m_settings.value(SettingKeys::autoHideOnHover()))
            setClickThrough(true);
    });
}

void KeyboardPanel::hoverExited()
{
    m_clock.cancel(m_clickThroughJob);
    m_clickThroughJob = 0;
    // Also when auto-hide was switched off elsewhere meanwhile: a faded, click-through panel that nothing restores
    // would never see the pointer again.
    if (m_settings.value(SettingKeys::autoHideOnHover()) || m_clickThrough || m_alpha.value() != 1.0) {
        setClickThrough(false);
        fadeTo(1.0);
    }
}

void KeyboardPanel::toggleAutoHide()
{
    const bool wasOn = m_settings.value(SettingKeys::autoHideOnHover());
    m_settings.setValue(SettingKeys::autoHideOnHover(), !wasOn);
    if (!wasOn && m_isHovering) {
        hoverEntered();
        return;
    }
    m_clock.cancel(m_clickThroughJob);
    m_clickThroughJob = 0;
    setClickThrough(false);
    fadeTo(1.0);
}

void KeyboardPanel::fadeTo(double opacity)
{
    m_alpha.animateTo(std::clamp(opacity, 0.0, 1.0), fadeDuration, ClockAnimation::Curve::easeInOut);
}

void KeyboardPanel::setClickThrough(bool on)
{
    if (m_clickThrough == on)
        return;
    m_clickThrough = on;
    // The widget's own flags follow too, so that a native window made again later keeps the state. Changing them
    // through QWidget would hide and show the window; the QWindow flag only changes its input shape.
    overrideWindowFlags(
        on ? windowFlags() | Qt::WindowTransparentForInput : windowFlags() & ~Qt::WindowTransparentForInput);
    if (QWindow* window = windowHandle()) {
        window->setFlag(Qt::WindowTransparentForInput, on);
        if (!on)
            X11WindowHints::resetInputShape(window);
    }
    emit clickThroughChanged(on);
}

void KeyboardPanel::updateBlurBehind()
{
    QWindow* window = windowHandle();
    if (!window)
        return;
    const KeyboardScene& scene = m_content->scene();
    const bool wanted = scene.scaledStyle().chassisBlur > 0 && X11WindowHints::blurBehindAvailable();
    if (!wanted && !m_blurRequested)
        return;
    X11WindowHints::setBlurBehind(window, wanted ? scene.chassisPath() : QPainterPath());
    m_blurRequested = wanted;
}

void KeyboardPanel::updateWindowShape()
{
    // Without a compositor the see-through corners would show black: the window is cut to the chassis instead.
    // The cut follows every size change at once, so that the placeholder is never clipped to an older size.
    const bool compositing = X11WindowHints::isCompositing();
    // Without a compositor see-through pixels come out dark: the chassis is painted solid instead.
    m_content->scene().setTranslucent(compositing);
    if (!isVisible() || compositing) {
        if (m_shaped)
            clearMask();
        m_shaped = false;
        return;
    }
    const ThemeConfig& config = m_content->scene().themeConfig();
    const double radius
        = ThemeStyle(config).scaled(KeyboardScene::unitSizeFor(QSizeF(size()), config)).chassisCornerRadius;
    const QPainterPath chassis
        = keyShapePath(QRectF(rect()), CornerRadii::uniform(std::isfinite(radius) ? std::max(radius, 0.0) : 0.0));
    // The resize handle overhangs the rounded corner; all of it must stay within reach of the pointer.
    const int side = ResizeHandle::side();
    const int inset = side - int(ResizeHandle::overhang);
    const QRect grip(width() - inset, height() - inset, inset, inset);
    setMask(QRegion(chassis.toFillPolygon().toPolygon()) | QRegion(grip));
    m_shaped = true;
}
