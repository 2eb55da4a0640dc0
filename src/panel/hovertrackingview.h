// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/clock.h"

#include <QPoint>
#include <QPointer>
#include <QWidget>

#include <functional>

class KeyboardPanel;

/**
 * Fills the keyboard panel and tells it when the pointer comes in and goes out: it sets the panel's isHovering, then
 * calls hoverEntered() or hoverExited().
 *
 * While the panel lets clicks through, the window system reports the pointer as having left (it is now over the
 * window below), so such reports are ignored and the pointer's position is compared with the panel every
 * probeInterval instead; nothing is polled at any other time.
 *
 * Main thread only. Holds the panel weakly: once it is gone, nothing is reported.
 */
class HoverTrackingView final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(HoverTrackingView)

public:
    /** Seconds between two looks at the pointer while the panel lets clicks through. */
    static constexpr double probeInterval = 0.05;

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

protected:
    bool event(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void onClickThroughChanged(bool clickThrough);
    void scheduleProbe();
    void probe();

    QPointer<KeyboardPanel> m_panel;
    Clock& m_clock;
    Clock::JobHandle m_probe = 0;
    std::function<QPoint()> m_pointer;
};
