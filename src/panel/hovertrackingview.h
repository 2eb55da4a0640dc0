// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/clock.h"

#include <QPoint>
#include <QPointer>
#include <QWidget>

#include <functional>
#include <memory>

class KeyboardPanel;
class PointerMotion;

/**
 * Fills the keyboard panel and tells it when the pointer comes in and goes out: it sets the panel's isHovering, then
 * calls hoverEntered() or hoverExited().
 *
 * While the panel lets clicks through, the window system reports the pointer as having left (it is now over the
 * window below), so such reports are ignored and the pointer's position is compared with the panel instead: after
 * the pointer moves, where a PointerMotion reports motion (X11, then also every warpProbeInterval for warps), or
 * else every probeInterval. Nothing is polled at any other time.
 *
 * Main thread only. Holds the panel weakly: once it is gone, nothing is reported.
 */
class HoverTrackingView final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(HoverTrackingView)

public:
    /** Seconds between two looks at the pointer while the panel lets clicks through and no motion is reported. */
    static constexpr double probeInterval = 0.05;
    /** Seconds from reported motion to the look at the pointer: one look for all the motion of a frame. */
    static constexpr double motionProbeDelay = 1.0 / 60.0;
    /**
     * Seconds between looks while motion is reported and the pointer rests: a program that warps the pointer makes
     * no motion a mouse would, so it is found this late.
     */
    static constexpr double warpProbeInterval = 2.0;

    /** `clock` must outlive the view. */
    HoverTrackingView(KeyboardPanel* panel, Clock& clock, QWidget* parent = nullptr);
    ~HoverTrackingView() override;

    KeyboardPanel* panel() const { return m_panel; }

    /** The pointer came over the panel. Nothing happens when the panel already counts as hovered. */
    void mouseEntered();
    /** The pointer left the panel (also when it did not count as hovered: that brings back a faded panel). */
    void mouseExited();

    /** Where the pointer is, in global coordinates; QCursor::pos() unless replaced (nullptr restores it). */
    void setPointerReader(std::function<QPoint()> reader);
    /** Replaces what reports motion (PointerMotion::forX11() by default); nullptr looks every probeInterval. */
    void setPointerMotion(std::unique_ptr<PointerMotion> motion);

protected:
    bool event(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void onClickThroughChanged(bool clickThrough);
    void scheduleProbe(double delay);
    void probe();
    void watchMotion(bool watch);

    QPointer<KeyboardPanel> m_panel;
    Clock& m_clock;
    Clock::JobHandle m_probe = 0;
    double m_probeDue = 0;
    std::function<QPoint()> m_pointer;
    std::unique_ptr<PointerMotion> m_motion;
    bool m_watchingMotion = false;
};
