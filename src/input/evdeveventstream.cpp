// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/evdeveventstream.h"

#include <linux/input.h>

static_assert(int(WheelSteps::Direction::up) == int(ScrollDirection::up)
    && int(WheelSteps::Direction::down) == int(ScrollDirection::down)
    && int(WheelSteps::Direction::left) == int(ScrollDirection::left)
    && int(WheelSteps::Direction::right) == int(ScrollDirection::right));

EvdevEventStream::EvdevEventStream(KeyEventProcessor& processor, KeyEventProcessor::DeviceId device)
    : m_processor(processor)
    , m_device(device)
{
}

void EvdevEventStream::processEvent(const input_event& event)
{
    if (event.type == EV_SYN && event.code == SYN_DROPPED) {
        m_dropped = true;
        m_wheel.reset();
        return;
    }
    // The events around a drop are incomplete; the device state read for resync() replaces them.
    if (m_dropped)
        return;

    switch (event.type) {
    case EV_KEY:
        if (event.value >= 0 && event.value <= 2)
            m_processor.processKey(event.code, KeyEventProcessor::Action(event.value), m_device);
        break;
    case EV_LED:
        if (event.code == LED_CAPSL)
            setCapsLockLed(event.value != 0);
        break;
    case EV_REL:
    case EV_SYN:
        m_wheel.process(event, [this](WheelSteps::Direction direction) { scroll(ScrollDirection(direction)); });
        break;
    default:
        break;
    }
}

void EvdevEventStream::resync(const DeviceState& state)
{
    m_dropped = false;
    // Releases first, so that the flags reported on the way never show old and new modifiers together.
    for (int code = 0; code < LinuxKeymap::codeCount; ++code) {
        if (!state.keys.test(code) && m_processor.isHeldBy(code, m_device))
            m_processor.processKey(code, KeyEventProcessor::Action::release, m_device);
    }
    for (int code = 0; code < LinuxKeymap::codeCount; ++code) {
        if (state.keys.test(code) && !m_processor.isHeldBy(code, m_device))
            m_processor.processKey(code, KeyEventProcessor::Action::press, m_device);
    }
    setCapsLockLed(state.capsLockLed);
}

void EvdevEventStream::scroll(ScrollDirection direction)
{
    m_processor.scroll(direction);
}

void EvdevEventStream::deviceRemoved()
{
    m_dropped = false;
    m_wheel.reset();
    m_processor.releaseDevice(m_device);
    setCapsLockLed(false);
}

bool EvdevEventStream::isKeyboard(const std::bitset<LinuxKeymap::codeCount>& keys)
{
    if (keys.test(KEY_A) && keys.test(KEY_Z) && keys.test(KEY_SPACE))
        return true;
    for (int code : { KEY_VOLUMEUP, KEY_VOLUMEDOWN, KEY_MUTE, KEY_PLAYPAUSE, KEY_BRIGHTNESSUP, KEY_BRIGHTNESSDOWN }) {
        if (keys.test(code))
            return true;
    }
    return false;
}

bool EvdevEventStream::isPointer(const std::bitset<LinuxKeymap::codeCount>& keys, bool hasWheel)
{
    return keys.test(BTN_LEFT) || hasWheel;
}

void EvdevEventStream::setCapsLockLed(bool on)
{
    if (on == m_capsLockLed)
        return;
    m_capsLockLed = on;
    m_processor.refreshLockState();
}
