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

KeyboardMonitor* s_shared = nullptr;

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
    if (s_shared == this)
        s_shared = nullptr;
}

KeyboardMonitor* KeyboardMonitor::shared()
{
    return s_shared;
}

void KeyboardMonitor::setShared(KeyboardMonitor* monitor)
{
    s_shared = monitor;
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

std::optional<KeyCode> KeyboardMonitor::mediaKeyCode(std::int32_t keyType)
{
    for (const MediaKeyMapping& mapping : mediaKeyCodes) {
        if (mapping.keyType == keyType)
            return mapping.keyCode;
    }
    return std::nullopt;
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
    if (!backend) {
        m_capsLockStateReader = nullptr;
        return;
    }

    m_backendConnections = {
        connect(backend, &InputBackend::keyDown, this, &KeyboardMonitor::handleKeyDown),
        connect(backend, &InputBackend::keyUp, this, &KeyboardMonitor::handleKeyUp),
        // Every modifier change is looked at twice, once per path, as the HyperKey display needs: the key-stream
        // path leaves a held combination alone, while the other one resets all modifiers and replaces it again.
        connect(backend, &InputBackend::flagsChanged, this, &KeyboardMonitor::handleTapFlagsChanged),
        connect(backend, &InputBackend::flagsChanged, this, &KeyboardMonitor::handleFlagsChangedEvent),
        connect(backend, &InputBackend::capsLockKey, this, &KeyboardMonitor::handleCapsLockHID),
        connect(backend, &InputBackend::mediaKey, this, &KeyboardMonitor::handleMediaKey),
    };
    m_capsLockStateReader = [source = QPointer<InputBackend>(backend)] { return source && source->capsLockOn(); };
}

InputBackend* KeyboardMonitor::backend() const
{
    return m_backend;
}

bool KeyboardMonitor::start()
{
    if (!m_backend)
        return false;
    const bool started = m_backend->start();
    // The lock may already be on; without this read the cap would stay dark until Caps Lock is next pressed.
    refreshCapsLockState();
    return started;
}

void KeyboardMonitor::stop()
{
    if (m_backend)
        m_backend->stop();
}

void KeyboardMonitor::setCapsLockStateReader(std::function<bool()> reader)
{
    m_capsLockStateReader = std::move(reader);
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
    insertKey(keyCode);
    if (!m_onKeyDown)
        return false;
    // A copy, because the hook may replace itself (a restart of the gestures) while it runs.
    const std::function<bool(KeyCode)> hook = m_onKeyDown;
    return hook(keyCode);
}

void KeyboardMonitor::handleKeyUp(KeyCode keyCode)
{
    removeKey(keyCode);
}

void KeyboardMonitor::handleMediaKey(KeyCode keyCode, bool down)
{
    if (down)
        insertKey(keyCode);
    else
        removeKey(keyCode);
}

void KeyboardMonitor::handleTapFlagsChanged(ModifierFlags flags, KeyCode keyCode)
{
    setModifierFlags(flags);
    // While a recorded combination is held, this path must not show its modifiers: the other path replaces them
    // with Caps Lock, and doing it here as well would make them flicker. capsLockHeld is tested first so that
    // ordinary modifier changes never read the settings.
    const bool hyperKeyHeld = m_capsLockHeld && recordedHyperKey() != 0;
    if (!hyperKeyHeld) {
        updateModifierKey(keyCode, flags);
        applyHyperKeyDisplay();
    }
    if (m_onFlagsChanged) {
        const std::function<void(ModifierFlags, KeyCode)> hook = m_onFlagsChanged;
        hook(flags, keyCode);
    }
}

void KeyboardMonitor::handleFlagsChangedEvent(ModifierFlags flags, KeyCode keyCode)
{
    setModifierFlags(flags);
    syncModifierKeys(flags);
    applyHyperKeyDisplay();
    // A report for the Caps Lock key code tells of a lock change. One that comes without a Caps Lock key report (the
    // lock set by another program, Caps Lock pressed on a second keyboard while held on the first, a press lost with
    // dropped events) would otherwise leave the lock light as it was until Caps Lock is next pressed.
    if (keyCode == capsLockKeyCode)
        refreshCapsLockState();
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

void KeyboardMonitor::syncModifierKeys(ModifierFlags flags)
{
    for (KeyCode code : trackedModifierKeyCodes) {
        if (isModifierPressed(code, flags))
            insertKey(code);
        else
            removeKey(code);
    }
}

void KeyboardMonitor::updateModifierKey(KeyCode keyCode, ModifierFlags flags)
{
    if (std::find(trackedModifierKeyCodes.begin(), trackedModifierKeyCodes.end(), keyCode)
        == trackedModifierKeyCodes.end())
        return;
    if (isModifierPressed(keyCode, flags))
        insertKey(keyCode);
    else
        removeKey(keyCode);
}

void KeyboardMonitor::handleCapsLockHID(bool pressed)
{
    setCapsLockHeld(pressed);
    cancelHyperKeyDebounce();
    const ModifierFlags hyperKey = recordedHyperKey();
    if (pressed && hyperKey != 0) {
        // A remapped Caps Lock sends its modifier flags around the same moment; wait briefly for them so that
        // neither Caps Lock nor the combination flashes up before the display settles.
        m_hyperKeyDebounce = m_clock.schedule(hyperKeyDebounceDelay, this, [this] { runHyperKeyDebounce(); });
    } else if (pressed) {
        insertKey(capsLockKeyCode);
    } else {
        removeKey(capsLockKeyCode);
        // Caps Lock stood in for the combination's keys; those still held (on another keyboard, or by the user)
        // show again.
        if (hyperKey != 0)
            syncModifierKeys(m_modifierFlags);
    }
    // The lock light changes a moment after the key; read it once it has settled.
    m_clock.schedule(capsLockRefreshDelay, this, [this] { refreshCapsLockState(); });
}

void KeyboardMonitor::runHyperKeyDebounce()
{
    m_hyperKeyDebounce = 0;
    if (!m_capsLockHeld)
        return;
    insertKey(capsLockKeyCode);
    applyHyperKeyDisplay();
}

void KeyboardMonitor::applyHyperKeyDisplay()
{
    // Held first: it is the cheap test, and it fails on every ordinary modifier change.
    if (!m_capsLockHeld)
        return;
    const ModifierFlags hyperKey = recordedHyperKey();
    if (hyperKey == 0)
        return;
    cancelHyperKeyDebounce();

    if (m_settings.value(SettingKeys::hyperKeyShowAsCapsLock())) {
        insertKey(capsLockKeyCode);
        for (KeyCode code : keyCodesForModifiers(hyperKey))
            removeKey(code);
    } else {
        // The modifiers stay as the flags left them.
        removeKey(capsLockKeyCode);
    }
}

void KeyboardMonitor::refreshCapsLockState()
{
    setCapsLockOn(m_capsLockStateReader ? m_capsLockStateReader() : false);
}

void KeyboardMonitor::releaseAll()
{
    cancelHyperKeyDebounce();
    setCapsLockHeld(false);
    if (!m_pressedKeys.isEmpty()) {
        const QList<KeyCode> released = m_pressedKeys.toList();
        m_pressedKeys.clear();
        for (KeyCode code : released)
            emit keyChanged(code, false);
        emit pressedKeysChanged();
    }
    setModifierFlags(0);
}

void KeyboardMonitor::insertKey(KeyCode keyCode)
{
    if (m_pressedKeys.insert(keyCode))
        emit keyChanged(keyCode, true);
    emit pressedKeysChanged();
}

void KeyboardMonitor::removeKey(KeyCode keyCode)
{
    if (m_pressedKeys.remove(keyCode))
        emit keyChanged(keyCode, false);
    emit pressedKeysChanged();
}

void KeyboardMonitor::setModifierFlags(ModifierFlags flags)
{
    if (m_modifierFlags == flags)
        return;
    m_modifierFlags = flags;
    emit modifierFlagsChanged(flags);
}

void KeyboardMonitor::setCapsLockOn(bool on)
{
    if (m_capsLockOn == on)
        return;
    m_capsLockOn = on;
    emit capsLockOnChanged(on);
}

void KeyboardMonitor::setCapsLockHeld(bool held)
{
    if (m_capsLockHeld == held)
        return;
    m_capsLockHeld = held;
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
