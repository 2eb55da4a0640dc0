// SPDX-License-Identifier: GPL-3.0-or-later
// Arbitrary evdev event streams from up to four keyboards and mice, with dropped events, resyncs, unplugging and time
// passing, fed through the event streams, the key event processor and the key state monitor. After every step the held
// keys and flags are compared with a plain model of each device; whenever time has settled (a step of 0.05 s or more,
// past the HyperKey wait) so is everything the monitor shows; at the end nothing may be lit.
//
// Input: one settings byte (bit 0: a HyperKey of Shift, Control and Option; bit 1: shown as Caps Lock), then records
// of 10 bytes: operation, type (u16), code (u16), value (i32), time step in 10 ms. Operation bits 0-1 pick the
// keyboard, bits 2-4: 5 a resync (the state read back differs from the events by `code`, the light is bit 0 of
// `value`), 6 unplugging, anything else an event.
#include "fuzzsupport.h"

#include "../testsupport.h"
#include "base/clock.h"
#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "input/evdeveventstream.h"
#include "input/inputbackend.h"
#include "input/keyboardmonitor.h"
#include "input/keyeventprocessor.h"
#include "input/linuxkeymap.h"

#include <QTemporaryDir>

#include <linux/input.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr int deviceCount = 4;
using KeyBits = std::bitset<LinuxKeymap::codeCount>;

SettingsStore& settings()
{
    static SettingsStore* store = [] {
        FuzzSupport::ensureApplication();
        static QTemporaryDir dir;
        return new SettingsStore(dir.filePath(u"settings.json"_s)); // Lives for the whole run.
    }();
    return *store;
}

template <typename T> void setIfDifferent(const SettingKey<T>& key, const T& value)
{
    if (settings().value(key) != value)
        settings().setValue(key, value);
}

// What each device holds, by the rules the streams promise: key events count unless events were dropped since the
// last resync, a resync takes the device's real state, and unplugging lets go of everything.
struct DeviceModel
{
    KeyBits held;
    KeyBits physical;
    bool dropped = false;
    bool led = false;
};

bool isShown(int code)
{
    return code >= 0 && code < LinuxKeymap::codeCount && LinuxKeymap::lookup(code).kind != LinuxKeymap::Kind::none;
}

struct Rig
{
    ManualClock clock;
    TestSupport::FakeInputBackend backend;
    KeyEventProcessor processor { backend };
    std::array<std::unique_ptr<EvdevEventStream>, deviceCount> streams;
    std::array<DeviceModel, deviceCount> model;
    KeyboardMonitor monitor { settings(), clock };

    Rig()
    {
        for (int i = 0; i < deviceCount; ++i)
            streams[i] = std::make_unique<EvdevEventStream>(processor, 100 + i);
        monitor.attach(&backend);
        monitor.start();
    }

    // The lock as the evdev back end reads it: lit on any keyboard still plugged in.
    bool anyLed() const
    {
        return std::any_of(model.begin(), model.end(), [](const DeviceModel& device) { return device.led; });
    }

    // Everything the monitor must show, from the model alone.
    void checkShown() const
    {
        KeyBits held;
        for (const DeviceModel& device : model)
            held |= device.held;
        KeyCodeSet shown;
        bool capsHeld = false;
        std::array<bool, 5> buttons {};
        for (int code = 0; code < LinuxKeymap::codeCount; ++code) {
            const LinuxKeymap::Entry& entry = LinuxKeymap::lookup(code);
            if (held[code] && (entry.kind == LinuxKeymap::Kind::ordinary || entry.kind == LinuxKeymap::Kind::media))
                shown.insert(entry.keyCode);
            if (held[code] && entry.kind == LinuxKeymap::Kind::pointerButton)
                buttons[entry.keyCode] = true;
            capsHeld = capsHeld || (held[code] && entry.kind == LinuxKeymap::Kind::capsLock);
        }
        const ModifierFlags flags = expectedFlags();
        for (KeyCode code : KeyboardMonitor::trackedModifierKeyCodes) {
            if (KeyboardMonitor::isModifierPressed(code, flags))
                shown.insert(code);
        }
        // A plain Caps Lock shows while held; a remapped one either as Caps Lock, hiding its combination's keys, or
        // as the combination alone.
        const ModifierFlags combination = settings().value(SettingKeys::hyperKeyModifiers());
        const bool asCapsLock = settings().value(SettingKeys::hyperKeyShowAsCapsLock());
        if (capsHeld && (combination == 0 || asCapsLock))
            shown.insert(KeyboardMonitor::capsLockKeyCode);
        if (capsHeld && combination != 0 && asCapsLock) {
            for (KeyCode code : KeyboardMonitor::keyCodesForModifiers(combination))
                shown.remove(code);
        }
        FUZZ_CHECK(monitor.pressedKeys() == shown);
        FUZZ_CHECK(monitor.capsLockHeld() == capsHeld);
        for (std::size_t button = 0; button < buttons.size(); ++button)
            FUZZ_CHECK(monitor.isButtonHeld(PointerButton(button)) == buttons[button]);
    }

    ModifierFlags expectedFlags() const
    {
        // The lock bit follows the LEDs: every change of one makes the processor read the lock state again.
        ModifierFlags flags = anyLed() ? ModifierFlags(ModifierFlag::capsLock) : 0;
        for (std::uint16_t code : LinuxKeymap::modifierCodes()) {
            for (const DeviceModel& device : model) {
                if (device.held[code])
                    flags |= LinuxKeymap::lookup(code).flags;
            }
        }
        return flags;
    }

    void check() const
    {
        for (int code = 0; code < LinuxKeymap::codeCount; ++code) {
            bool any = false;
            for (int i = 0; i < deviceCount; ++i) {
                FUZZ_CHECK(processor.isHeldBy(code, streams[i]->device()) == model[i].held[code]);
                any = any || model[i].held[code];
            }
            FUZZ_CHECK(processor.isHeld(code) == any);
        }
        FUZZ_CHECK(processor.flags() == expectedFlags());
        // Every change of the flags reaches the monitor, and so does every change of the lock light.
        FUZZ_CHECK(monitor.modifierFlags() == processor.flags());
        FUZZ_CHECK(monitor.capsLockOn() == anyLed());
    }

    void event(int index, const input_event& event)
    {
        DeviceModel& device = model[index];
        if (event.type == EV_KEY && event.code < LinuxKeymap::codeCount && event.value >= 0 && event.value <= 2)
            device.physical[event.code] = event.value != 0;
        if (event.type == EV_SYN && event.code == SYN_DROPPED)
            device.dropped = true;
        else if (!device.dropped && event.type == EV_KEY && isShown(event.code) && event.value >= 0 && event.value <= 2)
            device.held[event.code] = event.value != 0;
        else if (!device.dropped && event.type == EV_LED && event.code == LED_CAPSL)
            device.led = event.value != 0;
        backend.lockOn = anyLed();

        streams[index]->processEvent(event);
        FUZZ_CHECK(streams[index]->needsResync() == device.dropped);
    }

    void resync(int index, int lostCode, bool led)
    {
        DeviceModel& device = model[index];
        // The state read back may differ from what the events said by a key whose events were lost.
        if (lostCode < LinuxKeymap::codeCount)
            device.physical.flip(lostCode);
        for (int code = 0; code < LinuxKeymap::codeCount; ++code)
            device.held[code] = device.physical[code] && isShown(code);
        device.dropped = false;
        device.led = led;
        backend.lockOn = anyLed();
        streams[index]->resync({ device.physical, led });
    }

    void remove(int index)
    {
        model[index] = {};
        backend.lockOn = anyLed();
        streams[index]->deviceRemoved();
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzSupport::Reader reader(data, size);
    const auto setup = reader.take<std::uint8_t>();
    setIfDifferent(SettingKeys::hyperKeyModifiers(),
        std::uint64_t(setup & 1 ? ModifierFlag::control | ModifierFlag::option | ModifierFlag::shift : 0));
    setIfDifferent(SettingKeys::hyperKeyShowAsCapsLock(), bool(setup & 2));

    Rig rig;
    while (!reader.atEnd()) {
        const auto operation = reader.take<std::uint8_t>();
        input_event event {};
        event.type = reader.take<std::uint16_t>();
        event.code = reader.take<std::uint16_t>();
        event.value = reader.take<std::int32_t>();
        const auto step = reader.take<std::uint8_t>();

        rig.clock.advance(step * 0.01);
        if (step >= 5)
            rig.checkShown();
        const int device = operation & 3;
        switch (operation >> 2 & 7) {
        case 5:
            rig.resync(device, event.code, event.value & 1);
            break;
        case 6:
            rig.remove(device);
            break;
        default:
            rig.event(device, event);
            break;
        }
        rig.check();
    }

    // Every keyboard unplugged and the delayed reads done: nothing may stay lit.
    for (int i = 0; i < deviceCount; ++i)
        rig.remove(i);
    rig.check();
    rig.clock.advance(1);
    FUZZ_CHECK(rig.processor.flags() == 0);
    FUZZ_CHECK(rig.monitor.pressedKeys().isEmpty());
    for (PointerButton button : { PointerButton::left, PointerButton::right, PointerButton::middle, PointerButton::back,
             PointerButton::forward })
        FUZZ_CHECK(!rig.monitor.isButtonHeld(button));
    FUZZ_CHECK(!rig.monitor.capsLockOn());
    FUZZ_CHECK(!rig.monitor.capsLockHeld());
    return 0;
}
