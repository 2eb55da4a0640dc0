// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "keyboard/keyboardlayout.h"

#include <QEasingCurve>
#include <QHash>
#include <QList>

class Clock;

/**
 * How far each key is lit, from 0 (at rest) to 1 (pressed), over time: a press lights the key with an ease-out
 * curve over 0.08 s, a release fades it with an ease-in curve over the given decay. A change in the middle of an
 * animation starts from where the key is, so quick taps never jump.
 *
 * Only keys that are animating are kept; a key at rest or fully lit costs nothing.
 */
class KeyPressAnimator
{
public:
    static constexpr double pressDuration = 0.08;

    /** The standard cubic timing curves: ease-in (0.42, 0, 1, 1) and ease-out (0, 0, 0.58, 1). */
    static const QEasingCurve& easeIn();
    static const QEasingCurve& easeOut();

    /** `clock` must outlive the animator. */
    explicit KeyPressAnimator(const Clock& clock);

    /**
     * The key went down or up. A release fades over `releaseDuration` seconds (0 or less, or not a number: at
     * once). Repeating the current state changes nothing.
     */
    void setPressed(KeyCode code, bool pressed, double releaseDuration);
    /** Puts `code` in the given state at once, without animating. */
    void setState(KeyCode code, bool pressed);
    /** Puts every key at rest at once. */
    void reset();

    /** Progress of `code` now. */
    double progress(KeyCode code) const;
    bool isPressed(KeyCode code) const;

    bool isAnimating() const { return !m_running.isEmpty(); }
    /**
     * Keys that need a new frame now: every running animation, including those that end at this moment, which are
     * then dropped so that their final frame is the last one drawn.
     */
    QList<KeyCode> takeAnimatingKeys();

private:
    struct Animation
    {
        double from = 0;
        double to = 0;
        double start = 0;
        double duration = 0;
        const QEasingCurve* curve = nullptr;
    };

    double valueAt(const Animation& animation, double now) const;

    const Clock& m_clock;
    QHash<KeyCode, Animation> m_running;
    // Keys whose last state was "pressed": their resting value is 1.
    QHash<KeyCode, bool> m_pressed;
};
