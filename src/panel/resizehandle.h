// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "panel/clockanimation.h"

#include <QPointF>
#include <QPointer>
#include <QWidget>

#include <optional>

class Clock;
class KeyboardPanel;

/**
 * The grip in the bottom-right corner of the keyboard panel. Dragging it sideways resizes the panel, keeping its
 * top-left corner and its ratio; only horizontal travel counts, and the panel gets no narrower than its minimum.
 * Under the pointer it darkens behind its symbol and shows the diagonal resize cursor.
 *
 * Main thread only. Holds the panel weakly: once it is gone, drags do nothing.
 */
class ResizeHandle final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ResizeHandle)

public:
    /** Font size of the symbol, in points. */
    static constexpr double symbolPointSize = 11;
    /** Space around the symbol, in logical pixels; the whole padded square reacts to the pointer. */
    static constexpr double padding = 5;
    /** How far the handle reaches past the panel's right and bottom edges, in logical pixels. */
    static constexpr double overhang = 4;
    /** Pointer travel, in logical pixels, before a press becomes a drag. */
    static constexpr double dragThreshold = 10;
    /** Seconds of the change between the resting and the hovered look. */
    static constexpr double hoverDuration = 0.15;

    /** `clock` must outlive the handle. */
    ResizeHandle(KeyboardPanel* panel, Clock& clock, QWidget* parent = nullptr);
    ~ResizeHandle() override;

    /** Side of the square handle, in whole logical pixels. */
    static int side();

    /** Draws nothing while concealed (the panel's placeholder stands in for everything); a drag goes on. */
    void setConcealed(bool concealed);

protected:
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    void setHovering(bool hovering);
    void dragTo(const QPointF& global);
    void endDrag();

    QPointer<KeyboardPanel> m_panel;
    ClockAnimation m_hover;
    bool m_isHovering = false;
    bool m_concealed = false;
    /** Where the left button went down, in global coordinates. */
    std::optional<QPointF> m_pressAt;
    std::optional<QPointF> m_dragStart;
    std::optional<double> m_initialWidth;
};
