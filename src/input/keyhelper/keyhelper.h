// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// ordalis-keyhelper: reads the keyboards and pointers in a device directory and writes what they do to standard
// output as KeyHelperProtocol records. C++ standard library, libevdev and Linux headers only: it runs as root.

#include "input/keyhelperprotocol.h"

#include <bitset>
#include <memory>

#include <linux/input.h>

namespace KeyHelper {

/** Indexed by Linux key code. */
using KeyBits = std::bitset<KeyHelperProtocol::keyCodeCount>;

struct DeviceState
{
    KeyBits keysDown;
    bool capsLockLed = false;
};

/** One open input device, read without blocking. Owns its file descriptor. */
class Device
{
public:
    enum class Next
    {
        event, // the next event was read
        resynced, // the kernel dropped events; state() is now the device's real state
        empty, // nothing to read until poll() reports the descriptor readable
        gone, // unplugged, or unreadable for good
    };

    Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    virtual ~Device() = default;

    virtual int fd() const = 0;
    /** The EV_KEY codes the device can send. */
    virtual KeyBits keyCodes() const = 0;
    /** Whether the device has a scroll wheel (REL_WHEEL or REL_HWHEEL). */
    virtual bool hasWheel() const = 0;
    virtual DeviceState state() const = 0;
    virtual Next next(input_event& event) = 0;
};

/** The evdev device open on `fd`, or null when it is none; takes `fd` over either way. */
std::unique_ptr<Device> openEvdevDevice(int fd);

#ifdef ORDALIS_KEYHELPER_TESTING
/** The stand-in device a test writes into the named pipe open on `fd` (see fakedevice.cpp); takes `fd` over. */
std::unique_ptr<Device> openFakeDevice(int fd);
#endif

/** Reads the keyboards and pointers in `directory` until standard input ends. Returns the exit status. */
int run(const char* directory);

} // namespace KeyHelper
