// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/keypressanimator.h"

#include "base/clock.h"
#include "base/easing.h"

#include <algorithm>
#include <cmath>

const QEasingCurve& KeyPressAnimator::easeIn()
{
    return Easing::easeIn();
}

const QEasingCurve& KeyPressAnimator::easeOut()
{
    return Easing::easeOut();
}

KeyPressAnimator::KeyPressAnimator(const Clock& clock)
    : m_clock(clock)
{
}

void KeyPressAnimator::setPressed(KeyCode code, bool pressed, double releaseDuration)
{
    if (isPressed(code) == pressed)
        return;
    const double now = m_clock.now();
    const double current = progress(code);
    if (pressed)
        m_pressed.insert(code, true);
    else
        m_pressed.remove(code);

    const double duration = pressed ? pressDuration : releaseDuration;
    const double target = pressed ? 1.0 : 0.0;
    if (!(duration > 0) || !std::isfinite(duration) || current == target) {
        m_running.remove(code);
        return;
    }
    m_running.insert(code, { current, target, now, duration, pressed ? &easeOut() : &easeIn() });
}

void KeyPressAnimator::setState(KeyCode code, bool pressed)
{
    m_running.remove(code);
    if (pressed)
        m_pressed.insert(code, true);
    else
        m_pressed.remove(code);
}

void KeyPressAnimator::reset()
{
    m_running.clear();
    m_pressed.clear();
}

bool KeyPressAnimator::isPressed(KeyCode code) const
{
    return m_pressed.contains(code);
}

double KeyPressAnimator::valueAt(const Animation& animation, double now) const
{
    const double t = std::clamp((now - animation.start) / animation.duration, 0.0, 1.0);
    return animation.from + (animation.to - animation.from) * animation.curve->valueForProgress(t);
}

double KeyPressAnimator::progress(KeyCode code) const
{
    const auto it = m_running.constFind(code);
    if (it != m_running.cend())
        return valueAt(*it, m_clock.now());
    return isPressed(code) ? 1.0 : 0.0;
}

QList<KeyCode> KeyPressAnimator::takeAnimatingKeys()
{
    const double now = m_clock.now();
    QList<KeyCode> keys;
    for (auto it = m_running.begin(); it != m_running.end();) {
        keys.append(it.key());
        if (now >= it->start + it->duration)
            it = m_running.erase(it);
        else
            ++it;
    }
    return keys;
}
