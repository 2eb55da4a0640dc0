// SPDX-License-Identifier: GPL-3.0-or-later
#include "panel/resizehandle.h"

#include "keyboard/symbolicons.h"
#include "panel/keyboardpanel.h"

#include <QEnterEvent>
#include <QMouseEvent>
#include <QPainter>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

ResizeHandle::ResizeHandle(KeyboardPanel* panel, Clock& clock, QWidget* parent)
    : QWidget(parent)
    , m_panel(panel)
    , m_hover(clock, this, 0.0, [this](double) { update(); })
{
    setFocusPolicy(Qt::NoFocus);
    // Shown by the window system whenever the pointer is over the handle, and only then.
    setCursor(Qt::SizeFDiagCursor);
    resize(side(), side());
}

ResizeHandle::~ResizeHandle() = default;

int ResizeHandle::side()
{
    return int(std::ceil(SymbolIcons::boxSide(symbolPointSize) + 2 * padding));
}

void ResizeHandle::setConcealed(bool concealed)
{
    if (m_concealed == concealed)
        return;
    m_concealed = concealed;
    update();
}

void ResizeHandle::setHovering(bool hovering)
{
    if (m_isHovering == hovering)
        return;
    m_isHovering = hovering;
    m_hover.animateTo(hovering ? 1.0 : 0.0, hoverDuration, ClockAnimation::Curve::easeOut);
}

void ResizeHandle::enterEvent(QEnterEvent* event)
{
    QWidget::enterEvent(event);
    setHovering(true);
}

void ResizeHandle::leaveEvent(QEvent* event)
{
    QWidget::leaveEvent(event);
    setHovering(false);
}

void ResizeHandle::paintEvent(QPaintEvent*)
{
    if (m_concealed)
        return;
    const double hovered = m_hover.value();
    const double padded = SymbolIcons::boxSide(symbolPointSize) + 2 * padding;
    const QRectF area((width() - padded) / 2, (height() - padded) / 2, padded, padded);

    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (hovered > 0) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor::fromRgbF(0, 0, 0, float(0.55 * hovered)));
        painter.drawEllipse(area);
    }
    painter.setOpacity(0.2 + (0.9 - 0.2) * hovered);
    SymbolIcons::shared().paint(painter, area.adjusted(padding, padding, -padding, -padding),
        u"arrow.up.left.and.arrow.down.right"_s, symbolPointSize, SymbolWeight::heavy, Qt::white);
}

void ResizeHandle::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    // Accepted, so the press does not start a move of the whole panel underneath.
    event->accept();
    m_pressAt = event->globalPosition();
}

void ResizeHandle::mouseMoveEvent(QMouseEvent* event)
{
    if (!m_pressAt || !(event->buttons() & Qt::LeftButton))
        return;
    dragTo(event->globalPosition());
}

void ResizeHandle::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton)
        endDrag();
}

void ResizeHandle::dragTo(const QPointF& global)
{
    if (!m_dragStart) {
        const QPointF travel = global - *m_pressAt;
        if (std::hypot(travel.x(), travel.y()) < dragThreshold)
            return;
    }
    if (!m_panel)
        return;
    if (!m_dragStart) {
        // The travel counts from the press, so the first step already carries the threshold's distance.
        m_dragStart = m_pressAt;
        m_initialWidth = m_panel->frame().width();
        m_panel->beginGesture();
    }
    const double width = std::max(*m_initialWidth + (global.x() - m_dragStart->x()), KeyboardPanel::minimumPanelWidth);
    const QRectF frame = m_panel->frame();
    m_panel->setFrame(QRectF(frame.topLeft(), QSizeF(width, width / m_panel->currentAspectRatio())));
}

void ResizeHandle::endDrag()
{
    if (m_dragStart && m_panel)
        m_panel->endGesture();
    m_pressAt.reset();
    m_dragStart.reset();
    m_initialWidth.reset();
}
