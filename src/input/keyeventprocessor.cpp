// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/keyeventprocessor.h"

#include "input/inputbackend.h"

#include <QVarLengthArray>

#include <algorithm>
#include <utility>

namespace {

constexpr KeyCode capsLockKeyCode = 57;

bool isValidCode(int linuxCode)
{
    return linuxCode >= 0 && linuxCode < LinuxKeymap::codeCount;
}

} // namespace

KeyEventProcessor::KeyEventProcessor(InputBackend& backend)
    : m_backend(backend)
{
}

void KeyEventProcessor::processKey(int linuxCode, Action action, DeviceId device)
{
    const LinuxKeymap::Entry& entry = LinuxKeymap::lookup(linuxCode);
    if (entry.kind == LinuxKeymap::Kind::none)
        return;

    if (action == Action::release) {
        // A release for a key this device does not hold (a repeated release, or a key pressed before reading
        // started) must not create a device entry or report anything.
        if (DeviceKeys* keys = findDevice(device); keys && keys->keys.test(linuxCode))
            release(entry, linuxCode, *keys);
        return;
    }

    DeviceKeys& keys = deviceFor(device);
    if (!keys.keys.test(linuxCode)) {
        // A repeat for a key not known to be held means reading started while it was down: take it as the press,
        // so that its release is not ignored later.
        press(entry, linuxCode, keys);
        return;
    }
    if (action == Action::repeat && entry.kind == LinuxKeymap::Kind::ordinary)
        emit m_backend.keyDown(entry.keyCode);
}

void KeyEventProcessor::releaseDevice(DeviceId device)
{
    const DeviceKeys* keys = findDevice(device);
    if (!keys)
        return;
    // A copy: handlers of the signals below may call back into this object.
    const std::bitset<LinuxKeymap::codeCount> held = keys->keys;
    for (int code = 0; code < LinuxKeymap::codeCount; ++code) {
        if (held.test(code))
            processKey(code, Action::release, device);
    }
    std::erase_if(m_devices, [device](const DeviceKeys& k) { return k.id == device; });
}

void KeyEventProcessor::releaseKey(int linuxCode)
{
    if (!isValidCode(linuxCode) || m_holders[linuxCode] == 0)
        return;
    QVarLengthArray<DeviceId, 8> holders;
    for (const DeviceKeys& keys : m_devices) {
        if (keys.keys.test(linuxCode))
            holders.push_back(keys.id);
    }
    for (DeviceId device : holders)
        processKey(linuxCode, Action::release, device);
}

void KeyEventProcessor::releaseAll()
{
    std::vector<DeviceId> devices;
    devices.reserve(m_devices.size());
    for (const DeviceKeys& keys : m_devices)
        devices.push_back(keys.id);
    for (DeviceId device : devices)
        releaseDevice(device);
}

void KeyEventProcessor::scroll(ScrollDirection direction)
{
    emit m_backend.scrolled(direction);
}

void KeyEventProcessor::refreshLockState()
{
    setLockState(m_backend.capsLockOn());
}

void KeyEventProcessor::setLockState(bool on)
{
    if (on == m_lockOn)
        return;
    m_lockOn = on;
    emit m_backend.flagsChanged(flags(), capsLockKeyCode);
}

bool KeyEventProcessor::isHeld(int linuxCode) const
{
    return isValidCode(linuxCode) && m_holders[linuxCode] > 0;
}

bool KeyEventProcessor::isHeldBy(int linuxCode, DeviceId device) const
{
    const DeviceKeys* keys = findDevice(device);
    return keys && isValidCode(linuxCode) && keys->keys.test(linuxCode);
}

ModifierFlags KeyEventProcessor::flags() const
{
    ModifierFlags result = m_lockOn ? ModifierFlag::capsLock : 0;
    for (std::uint16_t code : LinuxKeymap::modifierCodes()) {
        if (m_holders[code] > 0)
            result |= LinuxKeymap::lookup(code).flags;
    }
    return result;
}

KeyEventProcessor::DeviceKeys* KeyEventProcessor::findDevice(DeviceId device)
{
    const auto it
        = std::find_if(m_devices.begin(), m_devices.end(), [device](const DeviceKeys& k) { return k.id == device; });
    return it == m_devices.end() ? nullptr : &*it;
}

const KeyEventProcessor::DeviceKeys* KeyEventProcessor::findDevice(DeviceId device) const
{
    return const_cast<KeyEventProcessor*>(this)->findDevice(device);
}

KeyEventProcessor::DeviceKeys& KeyEventProcessor::deviceFor(DeviceId device)
{
    if (DeviceKeys* keys = findDevice(device))
        return *keys;
    return m_devices.emplace_back(DeviceKeys { device, {} });
}

void KeyEventProcessor::press(const LinuxKeymap::Entry& entry, int linuxCode, DeviceKeys& device)
{
    device.keys.set(linuxCode);
    // Held elsewhere already: the key is down as far as anyone can see, so there is nothing new to report.
    if (m_holders[linuxCode]++ > 0)
        return;

    switch (entry.kind) {
    case LinuxKeymap::Kind::ordinary:
        Q_ASSERT(entry.keyCode < keySlots);
        ++m_keyHolders[entry.keyCode];
        emit m_backend.keyDown(entry.keyCode);
        break;
    case LinuxKeymap::Kind::modifier:
        emit m_backend.flagsChanged(flags(), entry.keyCode);
        break;
    case LinuxKeymap::Kind::capsLock:
        emit m_backend.capsLockKey(true);
        // The lock toggles on the press; the back end may learn of it only later and refresh again then.
        refreshLockState();
        break;
    case LinuxKeymap::Kind::media:
        Q_ASSERT(entry.keyCode < keySlots);
        if (m_keyHolders[entry.keyCode]++ == 0)
            emit m_backend.mediaKey(entry.keyCode, true);
        break;
    case LinuxKeymap::Kind::pointerButton:
        Q_ASSERT(entry.keyCode < m_buttonHolders.size());
        if (m_buttonHolders[entry.keyCode]++ == 0)
            emit m_backend.pointerButton(PointerButton(entry.keyCode), true);
        break;
    case LinuxKeymap::Kind::none:
        break;
    }
}

void KeyEventProcessor::release(const LinuxKeymap::Entry& entry, int linuxCode, DeviceKeys& device)
{
    device.keys.reset(linuxCode);
    if (--m_holders[linuxCode] > 0)
        return;

    switch (entry.kind) {
    case LinuxKeymap::Kind::ordinary:
        // F1 let go while the brightness key on the same cap is held: the cap stays down.
        if (--m_keyHolders[entry.keyCode] == 0)
            emit m_backend.keyUp(entry.keyCode);
        break;
    case LinuxKeymap::Kind::modifier:
        emit m_backend.flagsChanged(flags(), entry.keyCode);
        break;
    case LinuxKeymap::Kind::capsLock:
        emit m_backend.capsLockKey(false);
        break;
    case LinuxKeymap::Kind::media:
        if (--m_keyHolders[entry.keyCode] == 0)
            emit m_backend.mediaKey(entry.keyCode, false);
        break;
    case LinuxKeymap::Kind::pointerButton:
        if (--m_buttonHolders[entry.keyCode] == 0)
            emit m_backend.pointerButton(PointerButton(entry.keyCode), false);
        break;
    case LinuxKeymap::Kind::none:
        break;
    }
}
