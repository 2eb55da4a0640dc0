// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/clock.h"

#include <QPointer>

#include <functional>

class QObject;

/**
 * One number moving from a start value to a target over a duration, frame by frame on a Clock. Frames are
 * scheduled only while it moves; once the target is reached nothing more runs.
 *
 * Main thread only. The frames are tied to the context object given at construction.
 */
class ClockAnimation final
{
public:
    /** The standard cubic timing curves. */
    enum class Curve
    {
        linear,
        easeIn,
        easeOut,
        easeInOut
    };

    /** Seconds between two frames. */
    static constexpr double frameInterval = 1.0 / 60.0;

    /**
     * Starts at `initial` without applying it; `apply` receives every later value, the last one of an animation being
     * its target exactly. `clock` must outlive this.
     */
    ClockAnimation(Clock& clock, QObject* context, double initial, std::function<void(double)> apply);
    ~ClockAnimation();
    ClockAnimation(const ClockAnimation&) = delete;
    ClockAnimation& operator=(const ClockAnimation&) = delete;

    /**
     * Moves from the current value to `target` over `duration` seconds along `curve`. A running animation is
     * replaced and continues from where it stands. Nothing is scheduled when the value is already there; a
     * duration of 0 or less jumps at once.
     */
    void animateTo(double target, double duration, Curve curve);
    /** Jumps to `value` at once, stopping any animation. */
    void setValue(double value);
    /** Stops where it stands. */
    void stop();

    double value() const { return m_value; }
    bool isRunning() const { return m_frame != 0; }

    /** Progress along `curve` for a time fraction `t` in 0..1. */
    static double eased(Curve curve, double t);

private:
    void step();
    void scheduleFrame();

    Clock& m_clock;
    QPointer<QObject> m_context;
    std::function<void(double)> m_apply;
    double m_value = 0;
    double m_from = 0;
    double m_target = 0;
    double m_start = 0;
    double m_duration = 0;
    Curve m_curve = Curve::linear;
    Clock::JobHandle m_frame = 0;
};
