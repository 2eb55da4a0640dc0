// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/inputbackend.h"
#include "input/linuxkeymap.h"
#include "input/modifierflags.h"
#include "base/keycode.h"

#include <QtGlobal>

#include <array>
#include <bitset>
#include <cstdint>
#include <vector>

/**
 * Turns raw Linux key events from any number of devices into the reports of an InputBackend, emitted as that back
 * end's own signals: key down and up for ordinary keys, modifier flags, the Caps Lock key and media keys, all in the
 * layout's key codes, and pointer buttons (BTN_LEFT and the like are key codes too). It owns the Caps Lock lock
 * state that goes into the flags.
 *
 * It remembers which device holds which key, so that a key held on two keyboards goes up only when the last one
 * lets go, a vanished device lets go of everything it held, and releases of keys that are not held (repeated
 * releases, keys pressed before reading started) change nothing. Platform-free; main thread only.
 */
class KeyEventProcessor final
{
    Q_DISABLE_COPY_MOVE(KeyEventProcessor)

public:
    /** What happened to a key; the values are those of an evdev EV_KEY event. */
    enum class Action
    {
        release = 0,
        press = 1,
        repeat = 2,
    };

    /** Identifies the source of an event: any value the caller keeps unique per device. */
    using DeviceId = int;

    /** Reports through `backend`'s signals and reads the lock from its capsLockOn(); `backend` must outlive this. */
    explicit KeyEventProcessor(InputBackend& backend);

    /**
     * One key event from `device`. A repeat reports an ordinary key down again (and counts as a press when the key
     * was not known to be held); codes outside the keymap are ignored.
     */
    void processKey(int linuxCode, Action action, DeviceId device);

    /** One scroll step, passed straight on: scrolling holds nothing. */
    void scroll(ScrollDirection direction);

    /** Lets go of every key `device` holds, as when the device is unplugged. */
    void releaseDevice(DeviceId device);
    /** Lets go of `linuxCode` on every device that holds it. */
    void releaseKey(int linuxCode);
    /** Lets go of every key on every device. */
    void releaseAll();

    /**
     * Asks the back end for the lock state (once per Caps Lock press, and when it starts or a device's light
     * changes) and takes it as setLockState() does.
     */
    void refreshLockState();
    /**
     * The lock is now `on`, as the platform told without being asked; when it changed, reports the new flags with
     * the Caps Lock key code (57), the way a lock toggle is reported.
     */
    void setLockState(bool on);

    bool isHeld(int linuxCode) const;
    bool isHeldBy(int linuxCode, DeviceId device) const;
    /** The held modifiers' generic and side bits, plus the Caps Lock lock bit as last read. */
    ModifierFlags flags() const;

private:
    struct DeviceKeys
    {
        DeviceId id;
        std::bitset<LinuxKeymap::codeCount> keys;
    };

    DeviceKeys* findDevice(DeviceId device);
    const DeviceKeys* findDevice(DeviceId device) const;
    DeviceKeys& deviceFor(DeviceId device);
    void press(const LinuxKeymap::Entry& entry, int linuxCode, DeviceKeys& device);
    void release(const LinuxKeymap::Entry& entry, int linuxCode, DeviceKeys& device);

    // The layout's codes of ordinary and media keys are all below 128.
    static constexpr std::size_t keySlots = 128;

    /** How many devices hold each Linux code. */
    std::array<std::uint8_t, LinuxKeymap::codeCount> m_holders {};
    /**
     * How many held Linux codes show each ordinary or media key: several media keys share an F-key, and the F-key
     * itself shows on the same cap.
     */
    std::array<std::uint8_t, keySlots> m_keyHolders {};
    /** How many held Linux codes show each pointer button: BTN_SIDE and BTN_BACK are both back. */
    std::array<std::uint8_t, 5> m_buttonHolders {};
    /** A handful of keyboards at most, so a vector searched in order beats hashing. */
    std::vector<DeviceKeys> m_devices;
    InputBackend& m_backend;
    bool m_lockOn = false;
};
