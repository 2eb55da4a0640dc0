// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/keyhelper/keyhelper.h"

#include <cerrno>
#include <cstdarg>

#include <libevdev/libevdev.h>
#include <unistd.h>

namespace KeyHelper {
namespace {

// libevdev's messages may quote events; nothing about them leaves the process.
void discardLog(const libevdev*, libevdev_log_priority, void*, const char*, int, const char*, const char*, va_list) { }

class EvdevDevice final : public Device
{
public:
    explicit EvdevDevice(int fd)
        : m_fd(fd)
        , m_evdev(libevdev_new())
    {
    }

    ~EvdevDevice() override
    {
        libevdev_free(m_evdev);
        ::close(m_fd);
    }

    bool init()
    {
        if (!m_evdev)
            return false;
        libevdev_set_device_log_function(m_evdev, discardLog, LIBEVDEV_LOG_ERROR, nullptr);
        return libevdev_set_fd(m_evdev, m_fd) == 0;
    }

    int fd() const override { return m_fd; }

    KeyBits keyCodes() const override
    {
        KeyBits codes;
        for (unsigned int code = 0; code < codes.size(); ++code)
            codes[code] = libevdev_has_event_code(m_evdev, EV_KEY, code) != 0;
        return codes;
    }

    bool hasWheel() const override
    {
        return libevdev_has_event_code(m_evdev, EV_REL, REL_WHEEL)
            || libevdev_has_event_code(m_evdev, EV_REL, REL_HWHEEL);
    }

    DeviceState state() const override
    {
        DeviceState state;
        for (unsigned int code = 0; code < state.keysDown.size(); ++code) {
            state.keysDown[code]
                = libevdev_has_event_code(m_evdev, EV_KEY, code) && libevdev_get_event_value(m_evdev, EV_KEY, code);
        }
        state.capsLockLed = libevdev_has_event_code(m_evdev, EV_LED, LED_CAPSL)
            && libevdev_get_event_value(m_evdev, EV_LED, LED_CAPSL);
        return state;
    }

    Next next(input_event& event) override
    {
        int rc;
        do
            rc = libevdev_next_event(m_evdev, LIBEVDEV_READ_FLAG_NORMAL, &event);
        while (rc == -EINTR);
        if (rc == LIBEVDEV_READ_STATUS_SUCCESS)
            return Next::event;
        if (rc == -EAGAIN)
            return Next::empty;
        if (rc != LIBEVDEV_READ_STATUS_SYNC)
            return Next::gone; // -ENODEV when unplugged; any other error leaves it as unusable
        // Events were dropped. libevdev has re-read the device and queued the difference; draining that queue
        // (bounded by the device's codes, it never reads the descriptor) brings its state up to date.
        for (;;) {
            rc = libevdev_next_event(m_evdev, LIBEVDEV_READ_FLAG_SYNC, &event);
            if (rc == -EAGAIN)
                return Next::resynced;
            if (rc != LIBEVDEV_READ_STATUS_SYNC)
                return Next::gone;
        }
    }

private:
    int m_fd;
    libevdev* m_evdev;
};

} // namespace

std::unique_ptr<Device> openEvdevDevice(int fd)
{
    auto device = std::make_unique<EvdevDevice>(fd);
    if (!device->init())
        return nullptr;
    return device;
}

} // namespace KeyHelper
