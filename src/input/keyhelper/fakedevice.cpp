// SPDX-License-Identifier: GPL-3.0-or-later
// A named pipe standing in for an evdev device, so that tests drive the helper where there is no /dev/input.
// The writer sends the EV_KEY codes the device has (keyCodeCount bits, bit n of byte n / 8 for code n), the keys
// down as it is opened (the same layout), one byte for the Caps Lock LED, then struct input_event records as the
// kernel sends them. Closing the pipe unplugs the device.
//
// Like the kernel's, its state follows the events it reads. A SYN_DROPPED says events were lost: what follows it up
// to the next SYN_REPORT updates the state but is not reported, then the state is resynced, as libevdev does.
#include "input/keyhelper/keyhelper.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace KeyHelper {
namespace {

constexpr std::size_t bitmapBytes = KeyHelperProtocol::keyCodeCount / 8;

KeyBits bitmap(const unsigned char* bytes)
{
    KeyBits bits;
    for (std::size_t code = 0; code < bits.size(); ++code)
        bits[code] = (bytes[code / 8] >> (code % 8)) & 1;
    return bits;
}

class FakeDevice final : public Device
{
public:
    explicit FakeDevice(int fd)
        : m_fd(fd)
    {
    }

    ~FakeDevice() override { ::close(m_fd); }

    bool readHeader()
    {
        unsigned char header[2 * bitmapBytes + 1];
        if (::read(m_fd, header, sizeof header) != ssize_t(sizeof header))
            return false;
        m_codes = bitmap(header);
        m_state.keysDown = bitmap(header + bitmapBytes);
        m_state.capsLockLed = header[2 * bitmapBytes] != 0;
        return true;
    }

    int fd() const override { return m_fd; }
    KeyBits keyCodes() const override { return m_codes; }
    // A stand-in mouse is known by its BTN_LEFT; its wheel events are read all the same.
    bool hasWheel() const override { return false; }
    DeviceState state() const override { return m_state; }

    Next next(input_event& event) override
    {
        // At most one read() per call, so a writer that never stops cannot keep the caller here.
        for (bool haveRead = false;; haveRead = true) {
            while (m_end - m_begin >= sizeof event) {
                std::memcpy(&event, m_buffer + m_begin, sizeof event);
                m_begin += sizeof event;
                track(event);
                if (event.type == EV_SYN && event.code == SYN_DROPPED)
                    m_dropping = true;
                else if (!m_dropping)
                    return Next::event;
                else if (event.type == EV_SYN && event.code == SYN_REPORT) {
                    m_dropping = false;
                    return Next::resynced;
                }
            }
            std::memmove(m_buffer, m_buffer + m_begin, m_end - m_begin);
            m_end -= m_begin;
            m_begin = 0;
            if (haveRead)
                return Next::empty;
            const ssize_t n = ::read(m_fd, m_buffer + m_end, sizeof m_buffer - m_end);
            if (n > 0)
                m_end += std::size_t(n);
            else if (n < 0 && (errno == EAGAIN || errno == EINTR))
                return Next::empty;
            else
                return Next::gone;
        }
    }

private:
    void track(const input_event& event)
    {
        if (event.type == EV_KEY && event.code < m_state.keysDown.size() && event.value >= 0 && event.value <= 2)
            m_state.keysDown[event.code] = event.value != 0;
        else if (event.type == EV_LED && event.code == LED_CAPSL)
            m_state.capsLockLed = event.value != 0;
    }

    int m_fd;
    KeyBits m_codes;
    DeviceState m_state;
    bool m_dropping = false;
    unsigned char m_buffer[64 * sizeof(input_event)];
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
};

} // namespace

std::unique_ptr<Device> openFakeDevice(int fd)
{
    auto device = std::make_unique<FakeDevice>(fd);
    if (!device->readHeader())
        return nullptr;
    return device;
}

} // namespace KeyHelper
