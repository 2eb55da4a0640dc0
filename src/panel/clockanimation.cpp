// SPDX-License-Identifier: GPL-3.0-or-later
#include "panel/clockanimation.h"

#include "base/easing.h"

#include <algorithm>

ClockAnimation::ClockAnimation(Clock& clock, QObject* context, double initial, std::function<void(double)> apply)
    : m_clock(clock)
    , m_context(context)
    , m_apply(std::move(apply))
    , m_value(initial)
{
}

ClockAnimation::~ClockAnimation()
{
    stop();
}

double ClockAnimation::eased(Curve curve, double t)
{
    t = std::clamp(t, 0.0, 1.0);
    switch (curve) {
    case Curve::linear:
        return t;
    case Curve::easeIn:
        return Easing::easeIn().valueForProgress(t);
    case Curve::easeOut:
        return Easing::easeOut().valueForProgress(t);
    case Curve::easeInOut:
        return Easing::easeInOut().valueForProgress(t);
    }
    return t;
}

void ClockAnimation::animateTo(double target, double duration, Curve curve)
{
    stop();
    if (m_value == target)
        return;
    if (duration <= 0) {
        setValue(target);
        return;
    }
    m_from = m_value;
    m_target = target;
    m_start = m_clock.now();
    m_duration = duration;
    m_curve = curve;
    scheduleFrame();
}

void ClockAnimation::setValue(double value)
{
    stop();
    if (m_value == value)
        return;
    m_value = value;
    m_apply(value);
}

void ClockAnimation::stop()
{
    m_clock.cancel(m_frame);
    m_frame = 0;
}

void ClockAnimation::scheduleFrame()
{
    // A destroyed context leaves nothing to animate.
    if (!m_context)
        return;
    // The last frame falls on the end exactly, not up to a frame late.
    const double remaining = m_start + m_duration - m_clock.now();
    m_frame = m_clock.schedule(std::clamp(remaining, 0.0, frameInterval), m_context, [this] {
        m_frame = 0;
        step();
    });
}

void ClockAnimation::step()
{
    const double t = (m_clock.now() - m_start) / m_duration;
    // Sums of frame intervals may miss the end by a rounding step.
    const bool done = t >= 1 - 1e-9;
    m_value = done ? m_target : m_from + (m_target - m_from) * eased(m_curve, t);
    m_apply(m_value);
    if (!done)
        scheduleFrame();
}
