// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/keyeventprocessor.h"
#include "input/linuxkeymap.h"
#include "input/wheelsteps.h"

#include <bitset>

/**
 * The events of one evdev device, as read, fed to the shared processor: EV_KEY becomes key and pointer button
 * presses and releases, LED_CAPSL the Caps Lock lock state, the wheels scroll steps (see WheelSteps). Knows nothing
 * of file descriptors, so recorded event sequences can drive it.
 *
 * After a SYN_DROPPED the kernel has lost events; everything up to the resync is ignored, and resync() then brings
 * the held keys in line with the device's real state, so no key stays stuck and none is missed.
 */
class EvdevEventStream final
{
public:
    /** The state of a device as read from it directly (after opening it, or after events were dropped). */
    struct DeviceState
    {
        /** Indexed by Linux key code: the keys down now. */
        std::bitset<LinuxKeymap::codeCount> keys;
        bool capsLockLed = false;
    };

    /** `processor` must outlive the stream. */
    EvdevEventStream(KeyEventProcessor& processor, KeyEventProcessor::DeviceId device);

    KeyEventProcessor::DeviceId device() const { return m_device; }

    /** One event as read from the device. */
    void processEvent(const input_event& event);

    /** Whether a SYN_DROPPED was seen and resync() has not been called since. */
    bool needsResync() const { return m_dropped; }

    /** Releases what is held but no longer down and presses what is down but not held, then takes the LED state. */
    void resync(const DeviceState& state);

    /** One scroll step the device made, as the key helper reports them. */
    void scroll(ScrollDirection direction);

    /** The device is gone: everything it held is released. */
    void deviceRemoved();

    /** The Caps Lock LED as last reported by the device. */
    bool capsLockLed() const { return m_capsLockLed; }

    /**
     * Whether a device with these EV_KEY codes is worth reading: a keyboard with letter keys, or a device with
     * media keys (laptop brightness and volume buttons often come on a device of their own).
     */
    static bool isKeyboard(const std::bitset<LinuxKeymap::codeCount>& keys);
    /** Whether a device is a pointer worth reading: one with a left button (mice, touchpads) or a wheel. */
    static bool isPointer(const std::bitset<LinuxKeymap::codeCount>& keys, bool hasWheel);

private:
    void setCapsLockLed(bool on);

    KeyEventProcessor& m_processor;
    KeyEventProcessor::DeviceId m_device;
    WheelSteps m_wheel;
    bool m_dropped = false;
    bool m_capsLockLed = false;
};
