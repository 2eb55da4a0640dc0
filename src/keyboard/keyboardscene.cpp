// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/keyboardscene.h"

#include "base/clock.h"
#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "input/keyboardmonitor.h"
#include "keyboard/keycapview.h"
#include "keyboard/keylabelprovider.h"
#include "keyboard/keyboardview.h"
#include "keyboard/keypressanimator.h"
#include "keyboard/shadowcache.h"
#include "keyboard/symbolicons.h"

#include <QHash>
#include <QPointer>
#include <QPainter>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

/** One frame of a key animation. */
constexpr double frameInterval = 1.0 / 60.0;

/** The translucent light layer drawn over the chassis colour, at the theme's blur strength. */
QColor materialColour()
{
    return QColor::fromRgbF(1, 1, 1, 0.35f);
}

/** `top` composited over `bottom` (both straight alpha), as one colour. */
QColor over(const QColor& top, const QColor& bottom)
{
    const float ta = top.alphaF(), ba = bottom.alphaF();
    const float a = ta + ba * (1 - ta);
    if (a <= 0)
        return Qt::transparent;
    const auto channel = [&](float t, float b) { return (t * ta + b * ba * (1 - ta)) / a; };
    return QColor::fromRgbF(channel(top.redF(), bottom.redF()), channel(top.greenF(), bottom.greenF()),
        channel(top.blueF(), bottom.blueF()), a);
}

/** What a key's cap must be clipped to, so that nothing of it lies outside the chassis. */
enum class Clip {
    none, ///< it lies within the chassis
    area, ///< it pokes out of a straight edge only: the scene's rectangle will do
    chassis, ///< it reaches into a rounded corner
};

struct Key
{
    KeyPlacement placement;
    QRectF bounds;
    Clip clip = Clip::none;
};

} // namespace

struct KeyboardScene::Private
{
    Private(SettingsStore& settingsStore, Clock& sceneClock, KeyboardMonitor* keyMonitor)
        : settings(settingsStore)
        , clock(sceneClock)
        , monitor(keyMonitor)
        , caps(SymbolIcons::shared(), shadows)
        , animator(clock)
    {
    }

    SettingsStore& settings;
    Clock& clock;
    QPointer<KeyboardMonitor> monitor;
    ShadowCache shadows;
    KeyCapView caps;
    KeyPressAnimator animator;
    Clock::JobHandle frameJob = 0;
    // Set while a frame of the running animations asks for its repaints.
    bool inFrame = false;
    // The press step each animating key was last repainted for; a frame that would draw the same step is skipped.
    QHash<KeyCode, int> requestedStep;

    std::optional<ThemeConfig> fixedConfig;
    ThemeConfig config;
    std::shared_ptr<const KeyBoard> board = KeyBoard::printed();
    QMetaObject::Connection labelsConnection;
    bool paused = false;
    QRectF pauseSymbol;
    std::optional<bool> fixedTrackpad;
    bool trackpad = false;
    QRectF trackpadRect;
    QRectF trackpadBounds;
    QSizeF size;
    bool translucent = true;
    bool shown = true;
    double unitSize = 0;
    ThemeStyle style;
    QColor chassisColour;
    QPainterPath chassis;
    // Inside this rectangle the chassis is a plain fill and needs no clipping.
    QRectF chassisInner;
    // Where the chassis is a plain fill: a dirty rectangle within one of these needs no path.
    std::array<QRectF, 2> chassisPlain;
    QList<Key> keys;
    QHash<KeyCode, qsizetype> index;
    KeyCode capsLockCode = KeyboardMonitor::capsLockKeyCode;
};

KeyboardScene::KeyboardScene(SettingsStore& settings, Clock& clock, KeyboardMonitor* monitor, QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>(settings, clock, monitor))
{
    d->config = settings.value(SettingKeys::activeThemeConfig());
    d->trackpad = settings.value(SettingKeys::showTrackpad());
    settings.bind(SettingKeys::showTrackpad(), this, [this](bool shown) {
        if (d->fixedTrackpad || d->trackpad == shown)
            return;
        d->trackpad = shown;
        relayout();
    });
    settings.bind(SettingKeys::activeThemeConfig(), this, [this](const ThemeConfig& config) {
        if (d->fixedConfig)
            return;
        if (config == d->config)
            return;
        d->config = config;
        relayout();
    });

    if (monitor) {
        for (KeyCode code : allLayoutKeyCodes())
            d->animator.setState(code, monitor->pressedKeys().contains(code));
        connect(monitor, &KeyboardMonitor::keyChanged, this, &KeyboardScene::keyChanged);
        connect(monitor, &KeyboardMonitor::buttonChanged, this, [this](PointerButton button, bool down) {
            static constexpr TrackpadView::Part parts[] = { TrackpadView::Part::left, TrackpadView::Part::right,
                TrackpadView::Part::middle, TrackpadView::Part::back, TrackpadView::Part::forward };
            if (std::size_t(button) < std::size(parts))
                setTrackpadPart(parts[std::size_t(button)], down);
        });
        connect(monitor, &KeyboardMonitor::scrolled, this, [this](ScrollDirection direction) {
            static constexpr TrackpadView::Part parts[] = { TrackpadView::Part::scrollUp,
                TrackpadView::Part::scrollDown, TrackpadView::Part::scrollLeft, TrackpadView::Part::scrollRight };
            // Without the trackpad a notch costs nothing: no animation, no frame.
            if (d->trackpad && std::size_t(direction) < std::size(parts))
                pulseTrackpad(parts[std::size_t(direction)]);
        });
        connect(monitor, &KeyboardMonitor::capsLockOnChanged, this, [this] {
            const auto it = d->index.constFind(d->capsLockCode);
            if (it != d->index.cend())
                emit updateRequested(d->keys[*it].bounds);
        });
    }
    relayout();
}

KeyboardScene::~KeyboardScene()
{
    d->clock.cancel(d->frameJob);
}

namespace {

double heightUnits(bool trackpad)
{
    return KeyboardView::rowsHeightUnits + (trackpad ? TrackpadView::extraHeightUnits : 0.0);
}

double heightSpacings(bool trackpad)
{
    return KeyboardView::rowsHeightSpacings + 2 + (trackpad ? TrackpadView::extraHeightSpacings : 0.0);
}

} // namespace

double KeyboardScene::aspectRatio(const ThemeConfig& config, bool trackpad)
{
    const double s = config.keySpacing / 60.0;
    return (KeyboardView::rowWidthUnits + (KeyboardView::rowWidthSpacings + 2) * s)
        / (heightUnits(trackpad) + heightSpacings(trackpad) * s);
}

double KeyboardScene::unitSizeFor(const QSizeF& size, const ThemeConfig& config, bool trackpad)
{
    const double s = ThemeStyle(config).keySpacing / 60.0;
    return std::min(size.width() / (KeyboardView::rowWidthUnits + (KeyboardView::rowWidthSpacings + 2) * s),
        size.height() / (heightUnits(trackpad) + heightSpacings(trackpad) * s));
}

void KeyboardScene::setTrackpadShown(bool shown)
{
    d->fixedTrackpad = shown;
    if (d->trackpad == shown)
        return;
    d->trackpad = shown;
    relayout();
}

bool KeyboardScene::isTrackpadShown() const
{
    return d->trackpad;
}

QRectF KeyboardScene::trackpadRect() const
{
    return d->trackpadRect;
}

void KeyboardScene::setTrackpadPart(TrackpadView::Part part, bool down)
{
    const KeyCode code = TrackpadView::keyCode(part);
    if (TrackpadView::isPulse(part)) {
        if (down)
            pulseTrackpad(part);
        return;
    }
    if (d->animator.isPressed(code) == down)
        return;
    if (!d->trackpad) {
        // Nothing drawn, nothing animated: only the state is kept for when the trackpad is shown.
        d->animator.setState(code, down);
        return;
    }
    d->animator.setPressed(code, down, down ? 0.0 : d->settings.value(SettingKeys::glowDecay()));
    d->requestedStep.insert(code, KeyCapView::pressStep(d->animator.progress(code)));
    if (d->trackpad)
        emit updateRequested(d->trackpadBounds);
    scheduleFrame();
}

double KeyboardScene::trackpadProgress(TrackpadView::Part part) const
{
    return double(KeyCapView::pressStep(d->animator.progress(TrackpadView::keyCode(part)))) / KeyCapView::pressSteps;
}

void KeyboardScene::pulseTrackpad(TrackpadView::Part part)
{
    // Lit at once, then fading over the glow decay: a pulse never stays lit, and each notch starts a new one.
    const KeyCode code = TrackpadView::keyCode(part);
    d->animator.setState(code, true);
    d->animator.setPressed(code, false, d->settings.value(SettingKeys::glowDecay()));
    d->requestedStep.insert(code, KeyCapView::pressSteps);
    if (d->trackpad)
        emit updateRequested(d->trackpadBounds);
    scheduleFrame();
}

void KeyboardScene::setBoard(std::shared_ptr<const KeyBoard> board)
{
    if (!board || board == d->board)
        return;
    // The old board goes only after the keys that point into it.
    const std::shared_ptr<const KeyBoard> previous = std::exchange(d->board, std::move(board));
    relayout();
}

void KeyboardScene::setPaused(bool paused)
{
    if (d->paused == paused)
        return;
    d->paused = paused;
    if (!d->pauseSymbol.isEmpty())
        emit updateRequested(d->pauseSymbol.adjusted(-1, -1, 1, 1));
}

bool KeyboardScene::isPaused() const
{
    return d->paused;
}

QRectF KeyboardScene::pauseSymbolRect() const
{
    return d->pauseSymbol;
}

void KeyboardScene::followKeyLabels(KeyLabelProvider* labels)
{
    disconnect(d->labelsConnection);
    d->labelsConnection = {};
    if (!labels) {
        setBoard(KeyBoard::printed());
        return;
    }
    setBoard(labels->board());
    d->labelsConnection = connect(labels, &KeyLabelProvider::boardChanged, this, [this, labels] { setBoard(labels->board()); });
}

const KeyBoard& KeyboardScene::board() const
{
    return *d->board;
}

void KeyboardScene::setThemeConfig(const std::optional<ThemeConfig>& config)
{
    d->fixedConfig = config;
    const ThemeConfig next = config ? *config : d->settings.value(SettingKeys::activeThemeConfig());
    if (next == d->config)
        return;
    d->config = next;
    relayout();
}

const ThemeConfig& KeyboardScene::themeConfig() const
{
    return d->config;
}

void KeyboardScene::setTranslucent(bool translucent)
{
    if (translucent == d->translucent)
        return;
    d->translucent = translucent;
    relayout();
}

void KeyboardScene::setShown(bool shown)
{
    if (shown == d->shown)
        return;
    d->shown = shown;
    if (!shown) {
        d->clock.cancel(d->frameJob);
        d->frameJob = 0;
        return;
    }
    d->requestedStep.clear();
    emit updateRequested(QRectF(QPointF(0, 0), d->size));
    scheduleFrame();
}

void KeyboardScene::setSize(const QSizeF& size)
{
    if (size == d->size)
        return;
    d->size = size;
    relayout();
}

QSizeF KeyboardScene::size() const
{
    return d->size;
}

double KeyboardScene::unitSize() const
{
    return d->unitSize;
}

const ThemeStyle& KeyboardScene::scaledStyle() const
{
    return d->style;
}

QPainterPath KeyboardScene::chassisPath() const
{
    return d->chassis;
}

QRectF KeyboardScene::keyRect(KeyCode code) const
{
    const auto it = d->index.constFind(code);
    return it == d->index.cend() ? QRectF() : d->keys[*it].placement.rect;
}

void KeyboardScene::relayout()
{
    const QSizeF size = d->size.isValid() ? d->size : QSizeF(0, 0);
    const double u = std::max(unitSizeFor(size, d->config, d->trackpad), 0.0);
    d->unitSize = std::isfinite(u) ? u : 0.0;
    d->style = ThemeStyle(d->config).scaled(d->unitSize);
    const double s = d->style.keySpacing;
    const QRectF area(QPointF(0, 0), size);

    const ThemeStyle& style = d->style;
    // The light layer over the chassis colour, folded into one colour: compositing is associative.
    d->chassisColour = style.chassisBackground.toQColor();
    if (style.chassisBlur > 0) {
        QColor material = materialColour();
        material.setAlphaF(material.alphaF() * float(std::min(style.chassisBlur, 1.0)));
        d->chassisColour = over(material, d->chassisColour);
    }
    if (!d->translucent)
        d->chassisColour.setAlphaF(1.0f);
    const double radius = std::isfinite(style.chassisCornerRadius) ? std::max(style.chassisCornerRadius, 0.0) : 0.0;
    d->chassis = keyShapePath(area, CornerRadii::uniform(radius));
    const double r = std::min(radius, std::min(area.width(), area.height()) / 2);
    d->chassisInner = area.adjusted(r, r, -r, -r);
    if (d->chassisInner.isEmpty())
        d->chassisInner = QRectF();
    // The chassis is a plain rectangle but for its four rounded corners: a rectangle that stays clear of the
    // corners' squares lies in its middle band across or in its middle band down.
    d->chassisPlain = {};
    if (!d->chassisInner.isNull()) {
        const QRectF& inner = d->chassisInner;
        d->chassisPlain = { QRectF(inner.left(), area.top(), inner.width(), area.height()),
            QRectF(area.left(), inner.top(), area.width(), inner.height()) };
    }

    d->keys.clear();
    d->index.clear();
    if (d->unitSize > 0) {
        const QRectF keyboardRect(s, s, KeyboardView::rowWidthUnits * d->unitSize + KeyboardView::rowWidthSpacings * s,
            KeyboardView::rowsHeightUnits * d->unitSize + KeyboardView::rowsHeightSpacings * s);
        const KeyboardView view(d->config, keyboardRect, d->unitSize, d->style, *d->board);
        d->keys.reserve(view.keys().size());
        for (const KeyPlacement& placement : view.keys()) {
            const QRectF bounds = KeyCapView::paintedBounds(placement.rect, style);
            // Keys at the edges may poke out of the chassis; only those are clipped, and to the chassis's outline
            // only where they reach into a rounded corner.
            Clip clip = Clip::none;
            if (!d->chassisInner.contains(bounds) && !d->chassis.contains(bounds)) {
                const QRectF within = bounds.intersected(area);
                const bool straight = std::ranges::any_of(
                    d->chassisPlain, [&within](const QRectF& plain) { return plain.contains(within); });
                clip = straight ? Clip::area : Clip::chassis;
            }
            d->index.insert(placement.key->keycode, d->keys.size());
            d->keys.append({ placement, bounds, clip });
        }
    }
    d->trackpadRect = QRectF();
    d->trackpadBounds = QRectF();
    const auto space = d->index.constFind(49);
    if (d->trackpad && space != d->index.cend()) {
        const double unit = d->unitSize;
        const QRectF spaceBar = d->keys[*space].placement.rect;
        const QSizeF pad(TrackpadView::widthUnits * unit, TrackpadView::heightUnits * unit);
        d->trackpadRect = QRectF(QPointF(spaceBar.center().x() - pad.width() / 2,
                                     spaceBar.bottom() + 0.2 * unit + TrackpadView::extraHeightSpacings * s),
            pad);
        d->trackpadBounds = TrackpadView::paintedBounds(d->trackpadRect, style);
    }
    // The chassis left of the up arrow, above the left arrow, is free: the lock goes there.
    d->pauseSymbol = QRectF();
    const auto up = d->index.constFind(upArrowKey().keycode);
    const auto left = d->index.constFind(leftArrowKey().keycode);
    if (up != d->index.cend() && left != d->index.cend()) {
        const QRectF upRect = d->keys[*up].placement.rect;
        const QRectF free(QPointF(d->keys[*left].placement.rect.left(), upRect.top()),
            QPointF(upRect.left() - s, upRect.bottom()));
        const double side = SymbolIcons::boxSide(std::min(free.width(), free.height()) * 0.8);
        if (side > 0)
            d->pauseSymbol = QRectF(free.center() - QPointF(side / 2, side / 2), QSizeF(side, side));
    }
    d->caps.clearCache();
    emit layoutChanged();
}

void KeyboardScene::keyChanged(KeyCode code, bool down)
{
    if (!d->index.contains(code) || code == touchIDKeyCode)
        return;
    const double decay = down ? 0.0 : d->settings.value(SettingKeys::glowDecay());
    d->animator.setPressed(code, down, decay);
    if (!d->shown)
        return;
    const int step = KeyCapView::pressStep(d->animator.progress(code));
    if (down) {
        // Drawn at once: by the time it is painted, a press has begun to show. Every other cap that has reached a
        // new step comes along in the same repaint, and the next frame is a whole frame from now.
        d->clock.cancel(d->frameJob);
        d->frameJob = 0;
        d->requestedStep.insert(code, step);
        emit updateRequested(d->keys[d->index.value(code)].bounds);
        requestChangedSteps();
    } else if (step == 0) {
        // Without a glow decay the key is at rest at once. Otherwise the release starts from where the key is and
        // fades slowly at first: the next frame is the first to show it.
        const auto last = d->requestedStep.constFind(code);
        if (last == d->requestedStep.cend() || *last != step) {
            d->requestedStep.insert(code, step);
            emit updateRequested(d->keys[d->index.value(code)].bounds);
        }
    }
    scheduleFrame();
}

bool KeyboardScene::isAnimationFrame() const
{
    return d->inFrame;
}

bool KeyboardScene::isAnimating() const
{
    return d->animator.isAnimating();
}

void KeyboardScene::scheduleFrame()
{
    if (d->frameJob != 0 || !d->shown || !d->animator.isAnimating())
        return;
    d->frameJob = d->clock.schedule(frameInterval, this, [this] {
        d->frameJob = 0;
        d->inFrame = true;
        requestChangedSteps();
        d->inFrame = false;
        emit animationFrameRequested();
        scheduleFrame();
    });
}

void KeyboardScene::requestChangedSteps()
{
    const QList<KeyCode> animating = d->animator.takeAnimatingKeys();
    for (KeyCode code : animating) {
        const int step = KeyCapView::pressStep(d->animator.progress(code));
        const auto last = d->requestedStep.constFind(code);
        if (last != d->requestedStep.cend() && *last == step)
            continue;
        if (TrackpadView::isPart(code)) {
            d->requestedStep.insert(code, step);
            if (d->trackpad)
                emit updateRequested(d->trackpadBounds);
            continue;
        }
        const auto it = d->index.constFind(code);
        if (it == d->index.cend())
            continue;
        d->requestedStep.insert(code, step);
        emit updateRequested(d->keys[*it].bounds);
    }
    // Keys that came to rest or to full light need no record.
    if (!d->animator.isAnimating())
        d->requestedStep.clear();
}

void KeyboardScene::paint(QPainter& painter, const QRectF& exposed) const
{
    if (d->size.isEmpty())
        return;
    const QRectF area(QPointF(0, 0), d->size);
    const QRectF dirty = exposed.isNull() ? area : exposed.intersected(area);
    if (dirty.isEmpty())
        return;

    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    // Within a plain stretch of the chassis, its outline is no more than the dirty rectangle.
    // A rectangle fills and clips whole pixels, so it stands in for the chassis's straight edges only where they
    // lie between pixels; elsewhere the outline's partly covered pixels need the path.
    const QRectF deviceArea = painter.transform().mapRect(area);
    const qreal dpr = painter.device() ? painter.device()->devicePixelRatioF() : 1.0;
    const auto whole = [dpr](qreal v) { return std::abs(v * dpr - std::round(v * dpr)) < 1e-6; };
    const bool areaOnGrid = painter.transform().type() <= QTransform::TxTranslate && whole(deviceArea.left())
        && whole(deviceArea.top()) && whole(deviceArea.right()) && whole(deviceArea.bottom());
    const bool awayFromEdges = dirty.left() > area.left() && dirty.top() > area.top() && dirty.right() < area.right()
        && dirty.bottom() < area.bottom();
    const bool plain = (areaOnGrid || awayFromEdges)
        && std::ranges::any_of(d->chassisPlain, [&dirty](const QRectF& band) { return band.contains(dirty); });
    if (plain)
        painter.fillRect(dirty, d->chassisColour);
    else
        painter.fillPath(d->chassis, d->chassisColour);

    const bool capsLockOn = d->monitor && d->monitor->capsLockOn();
    for (const Key& key : d->keys) {
        if (!key.bounds.intersects(dirty))
            continue;
        const KeyCode code = key.placement.key->keycode;
        const double progress = code == touchIDKeyCode ? 0.0 : d->animator.progress(code);
        if (key.clip != Clip::none) {
            painter.save();
            if (plain)
                painter.setClipRect(dirty, Qt::IntersectClip);
            else if (key.clip == Clip::area && areaOnGrid)
                painter.setClipRect(area, Qt::IntersectClip);
            else
                painter.setClipPath(d->chassis, Qt::IntersectClip);
            d->caps.paint(painter, key.placement, d->style, d->unitSize, progress, capsLockOn);
            painter.restore();
        } else {
            d->caps.paint(painter, key.placement, d->style, d->unitSize, progress, capsLockOn);
        }
    }
    if (d->trackpad && d->trackpadBounds.intersects(dirty)) {
        // Drawn at the step a key would be, so that a pulse fades in as many visible steps as a key.
        TrackpadView::paint(painter, d->trackpadRect, d->style, d->unitSize,
            [this](TrackpadView::Part part) { return trackpadProgress(part); },
            SymbolIcons::shared(), d->shadows);
    }
    if (d->paused && d->pauseSymbol.intersects(dirty)) {
        SymbolIcons::shared().paint(painter, d->pauseSymbol, u"lock.fill"_s, d->pauseSymbol.height() / 1.2,
            SymbolWeight::medium, d->style.keyBackground.toQColor());
    }
    painter.restore();
}
