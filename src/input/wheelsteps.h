// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// The scroll wheels of one evdev device, turned into steps of one notch each. Shared by EvdevEventStream and
// ordalis-keyhelper, so it uses the C++ standard library and Linux headers only.
//
// Wheels report REL_WHEEL / REL_HWHEEL in notches. Since Linux 5.0 most also report REL_WHEEL_HI_RES /
// REL_HWHEEL_HI_RES in 1/120 of a notch, in the same frame as the notches they add up to: a smooth wheel sends 40,
// 40, 40 and a single notch with the last of them. Once a device has sent the fine values for an axis, its notches
// on that axis are ignored, so nothing is counted twice; the fine values add up to one step per 120.
//
// Two-finger scrolling on a touchpad is not among these events: libinput in the compositor makes it from the
// touches, and it reaches no other reader of the device.

#include <array>
#include <cstdint>
#include <cstdlib>

#include <linux/input.h>

class WheelSteps
{
public:
    /** The values of ScrollDirection. */
    enum class Direction : std::uint8_t
    {
        up,
        down,
        left,
        right
    };

    static constexpr int unitsPerNotch = 120;
    /** More than this in one frame is no wheel turned by hand; the rest of such a frame is dropped. */
    static constexpr int maxStepsPerFrame = 16;

    /**
     * Takes one event of the device. At the end of a frame (SYN_REPORT) that moved a wheel by a notch or more,
     * calls `step(Direction)` once per notch.
     */
    template <typename Step> void process(const input_event& event, Step&& step)
    {
        if (event.type == EV_REL) {
            switch (event.code) {
            case REL_WHEEL:
                m_axes[vertical].notches += event.value;
                break;
            case REL_HWHEEL:
                m_axes[horizontal].notches += event.value;
                break;
            case REL_WHEEL_HI_RES:
                m_axes[vertical].addFine(event.value);
                break;
            case REL_HWHEEL_HI_RES:
                m_axes[horizontal].addFine(event.value);
                break;
            default:
                return;
            }
            m_wheelInFrame = true;
        } else if (m_wheelInFrame && event.type == EV_SYN && event.code == SYN_REPORT) {
            // Most frames move no wheel (typing, pointer motion) and end here at once.
            m_wheelInFrame = false;
            m_axes[vertical].endFrame(Direction::up, Direction::down, step);
            m_axes[horizontal].endFrame(Direction::right, Direction::left, step);
        }
    }

    /** Events were lost, or the device is gone: what was under a notch, and the open frame, are forgotten. */
    void reset()
    {
        m_wheelInFrame = false;
        for (Axis& axis : m_axes) {
            axis.notches = axis.fine = axis.remainder = 0;
            axis.fineInFrame = false;
        }
    }

private:
    enum
    {
        vertical,
        horizontal
    };

    struct Axis
    {
        void addFine(std::int32_t value)
        {
            fine += value;
            fineInFrame = true;
            hasFine = true;
        }

        template <typename Step> void endFrame(Direction positive, Direction negative, Step& step)
        {
            // Wide enough for any sum of frame values; clamped before it meets the remainder.
            const std::int64_t moved = hasFine ? (fineInFrame ? fine : 0) : notches * unitsPerNotch;
            notches = fine = 0;
            fineInFrame = false;
            if (moved == 0)
                return;
            // Turning back starts afresh, so the first notch the other way is a step of its own.
            if ((moved > 0) != (remainder > 0))
                remainder = 0;
            const std::int64_t limit = std::int64_t(maxStepsPerFrame + 1) * unitsPerNotch;
            remainder += moved < -limit ? -limit : moved > limit ? limit : moved;
            for (int steps = 0; std::llabs(remainder) >= unitsPerNotch; ++steps) {
                const bool up = remainder > 0;
                remainder += up ? -unitsPerNotch : unitsPerNotch;
                if (steps < maxStepsPerFrame)
                    step(up ? positive : negative);
                else
                    remainder = 0;
            }
        }

        std::int64_t notches = 0;
        std::int64_t fine = 0;
        std::int64_t remainder = 0;
        bool fineInFrame = false;
        /** The device has sent fine values on this axis: its notches are ignored from now on. */
        bool hasFine = false;
    };

    std::array<Axis, 2> m_axes {};
    bool m_wheelInFrame = false;
};
