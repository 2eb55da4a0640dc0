// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QGradientStops>
#include <QWidget>

/**
 * A continuous slider over a range of doubles whose track can show the colours it selects.
 *
 * With a gradient, the track is a capsule of 0.55 × the height filled with it from left to right; without one
 * (the plain look) it is a thin capsule, accent-coloured up to the knob. The knob is a white circle of 0.85 × the
 * height whose centre lies at knobDiameter / 2 + (width − knobDiameter) × f, f being the value's fraction of the
 * range. With a gradient f is not clamped, so a value outside the range is drawn outside the track; the plain look
 * keeps the knob at the end of the track.
 *
 * A press anywhere sets the value at once and a drag follows the pointer: the value is the pointer's fraction of
 * the knob's travel, clamped to the range. Arrow keys move by 1 % of the range, Page Up and Page Down by 10 %,
 * Home and End go to the ends. The wheel is left to the enclosing scroll area.
 *
 * valueChanged() is emitted only for the user's changes (pointer and keys), never by setValue(), so a control
 * that follows a stored setting with setValue() does not write it back.
 */
class GradientSlider final : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(double value READ value WRITE setValue USER true)
    Q_PROPERTY(double lower READ lower)
    Q_PROPERTY(double upper READ upper)
    Q_PROPERTY(bool dragging READ isDragging NOTIFY draggingChanged)

public:
    explicit GradientSlider(QWidget* parent = nullptr);
    GradientSlider(double lower, double upper, QWidget* parent = nullptr);
    ~GradientSlider() override;

    double value() const { return m_value; }
    /** Shows `value` as given, also outside the range; emits nothing. */
    void setValue(double value);

    double lower() const { return m_lower; }
    double upper() const { return m_upper; }
    /** `upper` must be greater than `lower`. */
    void setRange(double lower, double upper);

    /** The colours along the track, left to right; empty gives the plain look. */
    const QGradientStops& gradient() const { return m_gradient; }
    void setGradient(const QGradientStops& stops);

    /** A drag (or press) is in progress. */
    bool isDragging() const { return m_dragging; }

    double trackHeight() const;
    double knobDiameter() const;
    /** The knob's centre in the slider's coordinates, from the unclamped fraction in the gradient look. */
    double knobCentreX() const;
    /** The value a press at `x` selects: clamped to the range. */
    double valueAt(double x) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

    /** Eleven stops at hue 0, 0.1 … 1, with saturation max(s, 0.5) and brightness max(b, 0.3), opaque. */
    static QGradientStops hueGradient(double saturation, double brightness);
    /** From (h, 0, max(b, 0.3)) to (h, 1, max(b, 0.3)), opaque. */
    static QGradientStops saturationGradient(double hue, double brightness);
    /** From (h, s, 0) to (h, s, 1), opaque. */
    static QGradientStops brightnessGradient(double hue, double saturation);
    /** The colour (h, s, b) from fully transparent to opaque; drawn over a checkerboard. */
    static QGradientStops opacityGradient(double hue, double saturation, double brightness);

signals:
    /** The user moved the slider to `value` (always within the range). */
    void valueChanged(double value);
    void draggingChanged(bool dragging);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    friend class GradientSliderAccessible;

    double fraction() const;
    bool hasTranslucentStops() const;
    void setDragging(bool dragging);
    /** Sets the value from the user's act and tells about it when it changed. */
    void edit(double value);
    void paintGradientTrack(QPainter& painter, const QRectF& track) const;
    void paintPlainTrack(QPainter& painter, double knobX) const;

    double m_value = 0.0;
    double m_lower = 0.0;
    double m_upper = 1.0;
    QGradientStops m_gradient;
    bool m_dragging = false;
    bool m_keyboardFocus = false;
};
