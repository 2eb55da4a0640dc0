// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/keyboardmonitor.h"

#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "input/inputbackend.h"

#include <algorithm>
#include <bit>

static_assert(KeyboardMonitor::hyperKeyModifierMask
    == (ModifierFlag::shift | ModifierFlag::control | ModifierFlag::option | ModifierFlag::command
        | ModifierFlag::leftControl | ModifierFlag::leftShift | ModifierFlag::rightShift | ModifierFlag::leftCommand
        | ModifierFlag::rightCommand | ModifierFlag::leftOption | ModifierFlag::rightOption
        | ModifierFlag::rightControl));

bool KeyCodeSet::insert(KeyCode code)
{
    std::uint64_t& word = m_words[code / 64];
    if (word & bit(code))
        return false;
    word |= bit(code);
    ++m_size;
    return true;
}

bool KeyCodeSet::remove(KeyCode code)
{
    std::uint64_t& word = m_words[code / 64];
    if (!(word & bit(code)))
        return false;
    word &= ~bit(code);
    --m_size;
    return true;
}

void KeyCodeSet::clear()
{
    m_words.fill(0);
    m_size = 0;
}

QList<KeyCode> KeyCodeSet::toList() const
{
    QList<KeyCode> codes;
    codes.reserve(m_size);
    for (std::size_t index = 0; index < m_words.size(); ++index) {
        for (std::uint64_t word = m_words[index]; word != 0; word &= word - 1)
            codes.append(KeyCode(index * 64 + std::size_t(std::countr_zero(word))));
    }
    return codes;
}

namespace {

// A left key also counts when only the generic bit is set and the right key's side bit is clear: some keyboards
// report no side at all, and the left key is the one most people have. A right key counts only by its own bit.
bool leftKeyDown(ModifierFlags flags, ModifierFlags leftBit, ModifierFlags genericBit, ModifierFlags rightBit)
{
    return (flags & leftBit) || ((flags & genericBit) && !(flags & rightBit));
}

} // namespace

KeyboardMonitor::KeyboardMonitor(SettingsStore& settings, Clock& clock, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_clock(clock)
{
}

KeyboardMonitor::~KeyboardMonitor()
{
    cancelHyperKeyDebounce();
}

bool KeyboardMonitor::isModifierPressed(KeyCode keyCode, ModifierFlags flags)
{
    using namespace ModifierFlag;
    switch (keyCode) {
    case 56:
        return leftKeyDown(flags, leftShift, shift, rightShift);
    case 60:
        return flags & rightShift;
    case 59:
        return leftKeyDown(flags, leftControl, control, rightControl);
    case 62:
        return flags & rightControl;
    case 58:
        return leftKeyDown(flags, leftOption, option, rightOption);
    case 61:
        return flags & rightOption;
    case 55:
        return leftKeyDown(flags, leftCommand, command, rightCommand);
    case 54:
        return flags & rightCommand;
    case 63:
        return flags & function;
    default:
        return false;
    }
}

QVarLengthArray<KeyCode, 8> KeyboardMonitor::keyCodesForModifiers(ModifierFlags modifiers)
{
    QVarLengthArray<KeyCode, 8> codes;
    for (KeyCode code : trackedModifierKeyCodes) {
        // fn is never part of a combination: the mask that records one leaves it out.
        if (code != 63 && isModifierPressed(code, modifiers))
            codes.append(code);
    }
    return codes;
}

void KeyboardMonitor::attach(InputBackend* backend)
{
    for (const QMetaObject::Connection& connection : std::as_const(m_backendConnections))
        disconnect(connection);
    m_backendConnections.clear();
    m_backend = backend;
    if (!backend)
        return;
    m_backendConnections = {
        connect(backend, &InputBackend::keyDown, this, &KeyboardMonitor::handleKeyDown),
        connect(backend, &InputBackend::keyUp, this, &KeyboardMonitor::handleKeyUp),
        connect(backend, &InputBackend::flagsChanged, this, &KeyboardMonitor::handleFlagsChanged),
        connect(backend, &InputBackend::capsLockKey, this, &KeyboardMonitor::handleCapsLockKey),
        connect(backend, &InputBackend::mediaKey, this, &KeyboardMonitor::handleMediaKey),
        connect(backend, &InputBackend::pointerButton, this, &KeyboardMonitor::handlePointerButton),
        connect(backend, &InputBackend::scrolled, this, &KeyboardMonitor::handleScroll),
    };
}

InputBackend* KeyboardMonitor::backend() const
{
    return m_backend;
}

bool KeyboardMonitor::start()
{
    return m_backend && m_backend->start();
}

void KeyboardMonitor::stop()
{
    if (m_backend)
        m_backend->stop();
}

void KeyboardMonitor::setOnKeyDown(std::function<bool(KeyCode)> hook)
{
    m_onKeyDown = std::move(hook);
}

void KeyboardMonitor::setOnFlagsChanged(std::function<void(ModifierFlags, KeyCode)> hook)
{
    m_onFlagsChanged = std::move(hook);
}

void KeyboardMonitor::setRecordingHyperKey(bool recording)
{
    if (m_isRecordingHyperKey == recording)
        return;
    m_isRecordingHyperKey = recording;
    emit recordingHyperKeyChanged(recording);
}

void KeyboardMonitor::setOnHyperKeyRecorded(std::function<void(ModifierFlags)> callback)
{
    m_onHyperKeyRecorded = std::move(callback);
}

bool KeyboardMonitor::handleKeyDown(KeyCode keyCode)
{
    // Shown even when the hook swallows it: its key-up still arrives and takes it away again.
    setKey(keyCode, true);
    if (!m_onKeyDown || m_paused)
        return false;
    // A copy, because the hook may replace itself while it runs.
    const std::function<bool(KeyCode)> hook = m_onKeyDown;
    return hook(keyCode);
}

void KeyboardMonitor::handleKeyUp(KeyCode keyCode)
{
    setKey(keyCode, false);
}

void KeyboardMonitor::handleMediaKey(KeyCode keyCode, bool down)
{
    setKey(keyCode, down);
}

void KeyboardMonitor::handleFlagsChanged(ModifierFlags flags, KeyCode keyCode)
{
    const ModifierFlags before = m_modifierFlags;
    m_modifierFlags = flags;
    if (m_paused) {
        showModifierKeys();
        return;
    }
    if (before != flags)
        emit modifierFlagsChanged(flags);
    // The lock bit is the back end's lock state; reports for the Caps Lock key code are how it tells of a change.
    if ((before ^ flags) & ModifierFlag::capsLock)
        emit capsLockOnChanged(capsLockOn());
    showModifierKeys();
    if (m_onFlagsChanged) {
        const std::function<void(ModifierFlags, KeyCode)> hook = m_onFlagsChanged;
        hook(flags, keyCode);
    }

    const ModifierFlags combination = flags & hyperKeyModifierMask;
    if (m_isRecordingHyperKey && m_capsLockHeld && combination != 0) {
        setRecordingHyperKey(false);
        if (m_onHyperKeyRecorded) {
            // The callback usually ends recording by clearing itself.
            const std::function<void(ModifierFlags)> callback = m_onHyperKeyRecorded;
            callback(combination);
        }
    }
}

void KeyboardMonitor::showModifierKeys()
{
    // Held first: it is the cheap test, and it fails on every ordinary modifier change, which then never reads the
    // settings.
    const ModifierFlags hyperKey = m_capsLockHeld ? recordedHyperKey() : 0;
    const bool asCapsLock = hyperKey != 0 && m_settings.value(SettingKeys::hyperKeyShowAsCapsLock());
    for (KeyCode code : trackedModifierKeyCodes) {
        // Shown as Caps Lock, the combination's own keys stay dark (fn is never part of one).
        const bool standsIn = asCapsLock && code != 63 && isModifierPressed(code, hyperKey);
        setKey(code, isModifierPressed(code, m_modifierFlags) && !standsIn);
    }
    if (hyperKey != 0) {
        cancelHyperKeyDebounce();
        setKey(capsLockKeyCode, asCapsLock);
    }
}

void KeyboardMonitor::handleCapsLockKey(bool pressed)
{
    setCapsLockHeld(pressed);
    cancelHyperKeyDebounce();
    const ModifierFlags hyperKey = recordedHyperKey();
    if (pressed && hyperKey != 0) {
        // A remapped Caps Lock sends its modifier flags around the same moment; wait briefly for them so that
        // neither Caps Lock nor the combination flashes up before the display settles.
        m_hyperKeyDebounce = m_clock.schedule(hyperKeyDebounceDelay, this, [this] {
            m_hyperKeyDebounce = 0;
            if (!m_capsLockHeld)
                return;
            setKey(capsLockKeyCode, true);
            showModifierKeys();
        });
    } else {
        setKey(capsLockKeyCode, pressed);
        // Caps Lock stood in for the combination's keys; those still held (on another keyboard, or by the user)
        // show again.
        if (hyperKey != 0)
            showModifierKeys();
    }
}

void KeyboardMonitor::setKey(KeyCode keyCode, bool down)
{
    down ? m_heldKeys.insert(keyCode) : m_heldKeys.remove(keyCode);
    if (m_paused)
        return;
    if (down ? m_pressedKeys.insert(keyCode) : m_pressedKeys.remove(keyCode))
        emit keyChanged(keyCode, down);
    emit pressedKeysChanged();
}

void KeyboardMonitor::setPaused(bool paused)
{
    if (m_paused == paused)
        return;
    if (paused) {
        m_flagsAtPause = m_modifierFlags;
        m_paused = true;
        const QList<KeyCode> shown = m_pressedKeys.toList();
        m_pressedKeys.clear();
        for (KeyCode code : shown)
            emit keyChanged(code, false);
        emit pressedKeysChanged();
        showButtons(0);
        return;
    }
    m_paused = false;
    m_pressedKeys = m_heldKeys;
    for (KeyCode code : m_heldKeys.toList())
        emit keyChanged(code, true);
    emit pressedKeysChanged();
    if (m_flagsAtPause != m_modifierFlags)
        emit modifierFlagsChanged(m_modifierFlags);
    if ((m_flagsAtPause ^ m_modifierFlags) & ModifierFlag::capsLock)
        emit capsLockOnChanged(capsLockOn());
    emit capsLockHeldChanged(m_capsLockHeld);
    showButtons(m_heldButtons);
}

void KeyboardMonitor::handlePointerButton(PointerButton button, bool pressed)
{
    if (quint8(button) > quint8(PointerButton::forward))
        return;
    pressed ? m_heldButtons |= buttonBit(button) : m_heldButtons &= quint8(~buttonBit(button));
    if (!m_paused)
        showButtons(m_heldButtons);
}

void KeyboardMonitor::handleScroll(ScrollDirection direction)
{
    if (!m_paused)
        emit scrolled(direction);
}

void KeyboardMonitor::showButtons(quint8 buttons)
{
    const quint8 changed = m_shownButtons ^ buttons;
    m_shownButtons = buttons;
    for (quint8 index = 0; index <= quint8(PointerButton::forward); ++index) {
        if (changed & (1u << index))
            emit buttonChanged(PointerButton(index), buttons & (1u << index));
    }
}

void KeyboardMonitor::setCapsLockHeld(bool held)
{
    if (m_capsLockHeld == held)
        return;
    m_capsLockHeld = held;
    if (!m_paused)
        emit capsLockHeldChanged(held);
}

void KeyboardMonitor::cancelHyperKeyDebounce()
{
    if (m_hyperKeyDebounce == 0)
        return;
    m_clock.cancel(m_hyperKeyDebounce);
    m_hyperKeyDebounce = 0;
}

ModifierFlags KeyboardMonitor::recordedHyperKey() const
{
    return m_settings.value(SettingKeys::hyperKeyModifiers());
}
