// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/toggleswitch.h"

#include "ui/settingsstyle.h"

#include <QFocusEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QVariantAnimation>

namespace {

constexpr int trackWidth = 32;
constexpr int trackHeight = 18;
// Room around the track for the focus ring.
constexpr int margin = 2;
constexpr int slideMilliseconds = 140;

} // namespace

ToggleSwitch::ToggleSwitch(QWidget* parent)
    : QAbstractButton(parent)
    , m_animation(new QVariantAnimation(this))
{
    setCheckable(true);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setCursor(Qt::PointingHandCursor);
    m_animation->setDuration(slideMilliseconds);
    m_animation->setEasingCurve(QEasingCurve::InOutCubic);
    connect(m_animation, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        m_position = value.toDouble();
        update();
    });
    connect(this, &QAbstractButton::toggled, this, [this](bool on) { animateTo(on); });
}

ToggleSwitch::~ToggleSwitch() = default;

QSize ToggleSwitch::sizeHint() const
{
    return { trackWidth + 2 * margin, trackHeight + 2 * margin };
}

QSize ToggleSwitch::minimumSizeHint() const
{
    return sizeHint();
}

void ToggleSwitch::animateTo(bool on)
{
    const double target = on ? 1.0 : 0.0;
    m_animation->stop();
    if (!isVisible()) {
        m_position = target;
        update();
        return;
    }
    m_animation->setStartValue(m_position);
    m_animation->setEndValue(target);
    m_animation->start();
}

void ToggleSwitch::mousePressEvent(QMouseEvent* event)
{
    // The focus ring is for keyboard use; a click hides it.
    m_keyboardFocus = false;
    QAbstractButton::mousePressEvent(event);
}

bool ToggleSwitch::hitButton(const QPoint& pos) const
{
    return rect().contains(pos);
}

void ToggleSwitch::focusInEvent(QFocusEvent* event)
{
    m_keyboardFocus = event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason
        || event->reason() == Qt::ShortcutFocusReason;
    QAbstractButton::focusInEvent(event);
}

void ToggleSwitch::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::EnabledChange || event->type() == QEvent::PaletteChange)
        update();
    QAbstractButton::changeEvent(event);
}

void ToggleSwitch::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (!isEnabled())
        painter.setOpacity(0.45);

    const QPalette& pal = palette();
    const QRectF track(
        QPointF((width() - trackWidth) / 2.0, (height() - trackHeight) / 2.0), QSizeF(trackWidth, trackHeight));
    const double radius = track.height() / 2;

    // The off colour fades into the accent as the knob travels.
    QColor off = SettingsStyle::primaryText(pal);
    off.setAlphaF(SettingsStyle::isDark(pal) ? 0.22f : 0.16f);
    const QColor on = SettingsStyle::accent(pal);
    const double t = m_position;
    const QColor fill = QColor::fromRgbF(float(off.redF() + (on.redF() - off.redF()) * t),
        float(off.greenF() + (on.greenF() - off.greenF()) * t), float(off.blueF() + (on.blueF() - off.blueF()) * t),
        float(off.alphaF() + (on.alphaF() - off.alphaF()) * t));
    painter.setPen(Qt::NoPen);
    painter.setBrush(fill);
    painter.drawRoundedRect(track, radius, radius);
    if (isDown()) {
        painter.setBrush(QColor(0, 0, 0, 25));
        painter.drawRoundedRect(track, radius, radius);
    }

    const double inset = 2.0;
    const double knob = track.height() - 2 * inset;
    const double x = track.left() + inset + (track.width() - 2 * inset - knob) * t;
    const QRectF knobRect(x, track.top() + inset, knob, knob);
    painter.setBrush(QColor(0, 0, 0, 40));
    painter.drawEllipse(knobRect.translated(0, 0.5).adjusted(-0.5, -0.5, 0.5, 0.5));
    painter.setBrush(Qt::white);
    painter.drawEllipse(knobRect);

    if (hasFocus() && m_keyboardFocus) {
        QColor ring = SettingsStyle::accent(pal);
        ring.setAlphaF(0.5f);
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(ring, 2.0));
        const QRectF around = track.adjusted(-1.5, -1.5, 1.5, 1.5);
        painter.drawRoundedRect(around, around.height() / 2, around.height() / 2);
    }
}
