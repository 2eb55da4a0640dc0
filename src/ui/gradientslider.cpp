// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/gradientslider.h"

#include "theme/hsbcolor.h"
#include "ui/settingsstyle.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QKeyEvent>
#include <QLinearGradient>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr double trackShare = 0.55;
constexpr double knobShare = 0.85;
// The plain look's track is a thin line rather than a colour band.
constexpr double plainTrackHeight = 4.0;
constexpr double keyStep = 0.01;
constexpr double pageStep = 0.1;

QColor hsb(double hue, double saturation, double brightness, double opacity = 1.0)
{
    return HsbColor { hue, saturation, brightness, opacity }.toQColor();
}

} // namespace

/** Lets assistive technology read and set the slider like any other slider. */
class GradientSliderAccessible final : public QAccessibleWidget, public QAccessibleValueInterface
{
public:
    explicit GradientSliderAccessible(QWidget* widget)
        : QAccessibleWidget(widget, QAccessible::Slider)
    {
    }

    void* interface_cast(QAccessible::InterfaceType type) override
    {
        if (type == QAccessible::ValueInterface)
            return static_cast<QAccessibleValueInterface*>(this);
        return QAccessibleWidget::interface_cast(type);
    }

    QString text(QAccessible::Text kind) const override
    {
        if (kind == QAccessible::Value)
            return QString::number(slider()->value(), 'f', 2);
        return QAccessibleWidget::text(kind);
    }

    QVariant currentValue() const override { return slider()->value(); }
    void setCurrentValue(const QVariant& value) override
    {
        slider()->edit(std::clamp(value.toDouble(), slider()->lower(), slider()->upper()));
    }
    QVariant maximumValue() const override { return slider()->upper(); }
    QVariant minimumValue() const override { return slider()->lower(); }
    QVariant minimumStepSize() const override { return (slider()->upper() - slider()->lower()) * keyStep; }

private:
    GradientSlider* slider() const { return static_cast<GradientSlider*>(widget()); }
};

namespace {

QAccessibleInterface* accessibleFactory(const QString& className, QObject* object)
{
    if (className == u"GradientSlider"_s && object && object->isWidgetType())
        return new GradientSliderAccessible(static_cast<QWidget*>(object));
    return nullptr;
}

} // namespace

GradientSlider::GradientSlider(QWidget* parent)
    : GradientSlider(0.0, 1.0, parent)
{
}

GradientSlider::GradientSlider(double lower, double upper, QWidget* parent)
    : QWidget(parent)
    , m_lower(lower)
    , m_upper(upper)
{
    static const bool factoryInstalled = [] {
        QAccessible::installFactory(accessibleFactory);
        return true;
    }();
    Q_UNUSED(factoryInstalled);
    m_value = lower;
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

GradientSlider::~GradientSlider() = default;

void GradientSlider::setValue(double value)
{
    if (value == m_value)
        return;
    m_value = value;
    update();
    if (QAccessible::isActive()) {
        QAccessibleValueChangeEvent event(this, m_value);
        QAccessible::updateAccessibility(&event);
    }
}

void GradientSlider::setRange(double lower, double upper)
{
    Q_ASSERT(upper > lower);
    m_lower = lower;
    m_upper = upper;
    update();
}

void GradientSlider::setGradient(const QGradientStops& stops)
{
    if (stops == m_gradient)
        return;
    m_gradient = stops;
    update();
}

double GradientSlider::trackHeight() const
{
    return trackShare * height();
}

double GradientSlider::knobDiameter() const
{
    return knobShare * height();
}

double GradientSlider::fraction() const
{
    const double span = m_upper - m_lower;
    return span > 0 ? (m_value - m_lower) / span : 0.0;
}

double GradientSlider::knobCentreX() const
{
    const double f = m_gradient.isEmpty() ? std::clamp(fraction(), 0.0, 1.0) : fraction();
    const double k = knobDiameter();
    return k / 2 + (width() - k) * f;
}

double GradientSlider::valueAt(double x) const
{
    const double k = knobDiameter();
    const double travel = width() - k;
    const double f = travel > 0 ? std::clamp((x - k / 2) / travel, 0.0, 1.0) : 0.0;
    return m_lower + f * (m_upper - m_lower);
}

QSize GradientSlider::sizeHint() const
{
    return { 160, 18 };
}

QSize GradientSlider::minimumSizeHint() const
{
    return { 40, 14 };
}

QGradientStops GradientSlider::hueGradient(double saturation, double brightness)
{
    QGradientStops stops;
    for (int i = 0; i <= 10; ++i) {
        const double hue = i / 10.0;
        // Hue 1 wraps round to the red of hue 0.
        stops.append({ hue, hsb(hue, std::max(saturation, 0.5), std::max(brightness, 0.3)) });
    }
    return stops;
}

QGradientStops GradientSlider::saturationGradient(double hue, double brightness)
{
    const double b = std::max(brightness, 0.3);
    return { { 0.0, hsb(hue, 0.0, b) }, { 1.0, hsb(hue, 1.0, b) } };
}

QGradientStops GradientSlider::brightnessGradient(double hue, double saturation)
{
    return { { 0.0, hsb(hue, saturation, 0.0) }, { 1.0, hsb(hue, saturation, 1.0) } };
}

QGradientStops GradientSlider::opacityGradient(double hue, double saturation, double brightness)
{
    return { { 0.0, hsb(hue, saturation, brightness, 0.0) }, { 1.0, hsb(hue, saturation, brightness, 1.0) } };
}

bool GradientSlider::hasTranslucentStops() const
{
    return std::any_of(
        m_gradient.cbegin(), m_gradient.cend(), [](const QGradientStop& stop) { return stop.second.alpha() < 255; });
}

void GradientSlider::setDragging(bool dragging)
{
    if (dragging == m_dragging)
        return;
    m_dragging = dragging;
    update();
    emit draggingChanged(dragging);
}

void GradientSlider::edit(double value)
{
    if (value == m_value)
        return;
    setValue(value);
    emit valueChanged(value);
}

void GradientSlider::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    m_keyboardFocus = false;
    setDragging(true);
    edit(valueAt(event->position().x()));
}

void GradientSlider::mouseMoveEvent(QMouseEvent* event)
{
    if (!m_dragging || !(event->buttons() & Qt::LeftButton)) {
        QWidget::mouseMoveEvent(event);
        return;
    }
    edit(valueAt(event->position().x()));
}

void GradientSlider::mouseReleaseEvent(QMouseEvent* event)
{
    if (!m_dragging || event->button() != Qt::LeftButton) {
        QWidget::mouseReleaseEvent(event);
        return;
    }
    edit(valueAt(event->position().x()));
    setDragging(false);
}

void GradientSlider::keyPressEvent(QKeyEvent* event)
{
    const double span = m_upper - m_lower;
    const double from = std::clamp(m_value, m_lower, m_upper);
    double to = from;
    switch (event->key()) {
    case Qt::Key_Left:
    case Qt::Key_Down:
        to = from - span * keyStep;
        break;
    case Qt::Key_Right:
    case Qt::Key_Up:
        to = from + span * keyStep;
        break;
    case Qt::Key_PageDown:
        to = from - span * pageStep;
        break;
    case Qt::Key_PageUp:
        to = from + span * pageStep;
        break;
    case Qt::Key_Home:
        to = m_lower;
        break;
    case Qt::Key_End:
        to = m_upper;
        break;
    default:
        QWidget::keyPressEvent(event);
        return;
    }
    m_keyboardFocus = true;
    edit(std::clamp(to, m_lower, m_upper));
    update();
}

void GradientSlider::focusInEvent(QFocusEvent* event)
{
    m_keyboardFocus = event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason
        || event->reason() == Qt::ShortcutFocusReason;
    update();
    QWidget::focusInEvent(event);
}

void GradientSlider::focusOutEvent(QFocusEvent* event)
{
    // A drag ends when the focus goes, e.g. to a window that popped up under the pointer.
    setDragging(false);
    update();
    QWidget::focusOutEvent(event);
}

void GradientSlider::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::EnabledChange) {
        if (!isEnabled())
            setDragging(false);
        update();
    } else if (event->type() == QEvent::PaletteChange) {
        update();
    }
    QWidget::changeEvent(event);
}

void GradientSlider::paintGradientTrack(QPainter& painter, const QRectF& track) const
{
    const double radius = track.height() / 2;
    QPainterPath capsule;
    capsule.addRoundedRect(track, radius, radius);

    painter.save();
    painter.setClipPath(capsule);
    if (hasTranslucentStops()) {
        // Checkerboard behind translucent colours, two rows of squares over the track's height.
        const double cell = track.height() / 2;
        painter.fillRect(track, QColor(255, 255, 255));
        const QColor dark(204, 204, 204);
        for (int column = 0; column * cell < track.width(); ++column) {
            for (int row = 0; row < 2; ++row) {
                if ((column + row) % 2 == 1)
                    painter.fillRect(QRectF(track.left() + column * cell, track.top() + row * cell, cell, cell), dark);
            }
        }
    }
    QLinearGradient fill(track.left(), 0, track.right(), 0);
    fill.setStops(m_gradient);
    painter.fillRect(track, fill);
    painter.restore();

    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(SettingsStyle::whiteLine(0.1), 0.5));
    const QRectF outline = track.adjusted(0.25, 0.25, -0.25, -0.25);
    painter.drawRoundedRect(outline, outline.height() / 2, outline.height() / 2);
}

void GradientSlider::paintPlainTrack(QPainter& painter, double knobX) const
{
    const QPalette& pal = palette();
    const double t = std::min(plainTrackHeight, trackHeight());
    const double k = knobDiameter();
    // The line runs between the centres of the knob's two end positions, so it never shows past the knob.
    const QRectF line(k / 2 - t / 2, (height() - t) / 2, width() - k + t, t);
    QColor rest = SettingsStyle::primaryText(pal);
    rest.setAlphaF(SettingsStyle::isDark(pal) ? 0.25f : 0.15f);
    painter.setPen(Qt::NoPen);
    painter.setBrush(rest);
    painter.drawRoundedRect(line, t / 2, t / 2);
    const QRectF filled(line.left(), line.top(), std::max(t, knobX - line.left()), t);
    painter.setBrush(SettingsStyle::accent(pal));
    painter.drawRoundedRect(filled, t / 2, t / 2);
}

void GradientSlider::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (!isEnabled())
        painter.setOpacity(0.45);

    const double h = height();
    const double t = trackHeight();
    const double k = knobDiameter();
    const double knobX = knobCentreX();
    if (m_gradient.isEmpty())
        paintPlainTrack(painter, knobX);
    else
        paintGradientTrack(painter, QRectF(0, (h - t) / 2, width(), t));

    const QRectF knob(knobX - k / 2, (h - k) / 2, k, k);
    // The set-off: a soft shadow below and a hairline of black at 30 %.
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 28));
    painter.drawEllipse(knob.translated(0, 0.75).adjusted(-0.5, -0.5, 0.5, 0.5));
    painter.setBrush(m_dragging ? QColor(242, 242, 242) : QColor(Qt::white));
    painter.setPen(QPen(QColor::fromRgbF(0, 0, 0, 0.3f), 0.5));
    painter.drawEllipse(knob.adjusted(0.25, 0.25, -0.25, -0.25));

    if (hasFocus() && m_keyboardFocus) {
        QColor ring = SettingsStyle::accent(palette());
        ring.setAlphaF(0.6f);
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(ring, 2.0));
        painter.drawEllipse(knob.adjusted(-1, -1, 1, 1));
    }
}
