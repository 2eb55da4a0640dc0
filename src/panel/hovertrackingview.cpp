// SPDX-License-Identifier: GPL-3.0-or-later
#include "panel/hovertrackingview.h"

#include "panel/keyboardpanel.h"
#include "panel/pointermotion.h"

#include <QCursor>
#include <QEvent>

HoverTrackingView::HoverTrackingView(KeyboardPanel* panel, Clock& clock, QWidget* parent)
    : QWidget(parent)
    , m_panel(panel)
    , m_clock(clock)
{
    if (panel)
        connect(panel, &KeyboardPanel::clickThroughChanged, this, &HoverTrackingView::onClickThroughChanged);
    setPointerMotion(PointerMotion::forX11());
}

HoverTrackingView::~HoverTrackingView()
{
    m_clock.cancel(m_probe);
    watchMotion(false);
}

void HoverTrackingView::setPointerMotion(std::unique_ptr<PointerMotion> motion)
{
    const bool watching = m_watchingMotion;
    watchMotion(false);
    m_motion = std::move(motion);
    if (m_motion) {
        connect(m_motion.get(), &PointerMotion::moved, this, [this] {
            // A look already due sooner covers this motion too.
            if (m_probe != 0 && m_probeDue <= m_clock.now() + motionProbeDelay)
                return;
            m_clock.cancel(m_probe);
            scheduleProbe(motionProbeDelay);
        });
    }
    if (watching)
        watchMotion(true);
}

void HoverTrackingView::watchMotion(bool watch)
{
    if (watch == m_watchingMotion)
        return;
    m_watchingMotion = watch && m_motion && m_motion->setWatching(true);
    if (!watch && m_motion)
        m_motion->setWatching(false);
}

void HoverTrackingView::setPointerReader(std::function<QPoint()> reader)
{
    m_pointer = std::move(reader);
}

void HoverTrackingView::mouseEntered()
{
    if (!m_panel || m_panel->isHovering())
        return;
    m_panel->setHovering(true);
    if (m_panel)
        m_panel->hoverEntered();
}

void HoverTrackingView::mouseExited()
{
    if (!m_panel)
        return;
    m_panel->setHovering(false);
    if (m_panel)
        m_panel->hoverExited();
}

bool HoverTrackingView::event(QEvent* event)
{
    switch (event->type()) {
    case QEvent::Enter:
        mouseEntered();
        break;
    case QEvent::Leave:
        // Letting clicks through moves the pointer, as the window system sees it, to the window below.
        if (!m_panel || !m_panel->isClickThrough())
            mouseExited();
        break;
    default:
        break;
    }
    return QWidget::event(event);
}

void HoverTrackingView::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    // The content and, while the size changes, the placeholder over it: each covers the whole panel.
    for (QObject* child : children()) {
        if (auto* widget = qobject_cast<QWidget*>(child))
            widget->setGeometry(rect());
    }
}

void HoverTrackingView::onClickThroughChanged(bool clickThrough)
{
    m_clock.cancel(m_probe);
    m_probe = 0;
    watchMotion(clickThrough);
    if (clickThrough)
        scheduleProbe(m_watchingMotion ? warpProbeInterval : probeInterval);
}

void HoverTrackingView::scheduleProbe(double delay)
{
    m_probeDue = m_clock.now() + delay;
    m_probe = m_clock.schedule(delay, this, [this] {
        m_probe = 0;
        probe();
    });
}

void HoverTrackingView::probe()
{
    if (!m_panel || !m_panel->isClickThrough())
        return;
    const QPoint pointer = m_pointer ? m_pointer() : QCursor::pos();
    if (m_panel->isVisible() && m_panel->geometry().contains(pointer)) {
        // With motion reported, the next look waits for the pointer to move (or for a warp to be looked for).
        scheduleProbe(m_watchingMotion ? warpProbeInterval : probeInterval);
        return;
    }
    mouseExited();
}
