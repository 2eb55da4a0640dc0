// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/clock.h"
#include "input/inputbackend.h"
#include "input/modifierflags.h"
#include "base/keycode.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QVarLengthArray>

#include <array>
#include <cstdint>
#include <functional>

class SettingsStore;

/**
 * A set of key codes with constant-time insertion, removal and lookup that never allocates, so it can sit on the
 * path of every keystroke.
 */
class KeyCodeSet final
{
public:
    bool contains(KeyCode code) const { return m_words[code / 64] & bit(code); }
    qsizetype size() const { return m_size; }
    bool isEmpty() const { return m_size == 0; }

    /** True when `code` was not in the set before. */
    bool insert(KeyCode code);
    /** True when `code` was in the set before. */
    bool remove(KeyCode code);
    void clear();

    /** The codes in ascending order. Allocates; not meant for the key path. */
    QList<KeyCode> toList() const;

    friend bool operator==(const KeyCodeSet&, const KeyCodeSet&) = default;

private:
    static constexpr std::uint64_t bit(KeyCode code) { return std::uint64_t(1) << (code % 64); }

    std::array<std::uint64_t, 65536 / 64> m_words {};
    qsizetype m_size = 0;
};

/**
 * The one place where keyboard input enters Ordalis: the keys to show as held, the latest modifier flags and the
 * Caps Lock state, fed by an InputBackend and read by the keyboard views and the gesture recogniser. The pointer's
 * buttons and scroll steps, for the trackpad, come in the same way.
 *
 * Caps Lock is a lock key, so its flag tells the lock state, not whether the key is down; the monitor shows the
 * physical key from the back end's separate Caps Lock report instead. When the user's Caps Lock is remapped to a
 * combination of modifiers (a "HyperKey", recorded in the settings), the monitor shows either Caps Lock or that
 * combination while the key is held, as the user chose.
 *
 * Main thread only: every handler, hook, signal and delayed step runs there.
 */
class KeyboardMonitor final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(KeyboardMonitor)

public:
    static constexpr KeyCode capsLockKeyCode = 57;

    /** The nine modifier keys shown from the flags, in the order in which they are synchronised. */
    static constexpr std::array<KeyCode, 9> trackedModifierKeyCodes { 56, 60, 59, 62, 58, 61, 55, 54, 63 };

    /**
     * The bits a recorded HyperKey combination may hold: the generic Shift, Control, Option and Command bits and
     * all side bits, but not Caps Lock, numeric pad, help or fn.
     */
    static constexpr ModifierFlags hyperKeyModifierMask = 0x1E207F;

    /** Seconds a Caps Lock press with a recorded combination waits for the combination's flags before showing. */
    static constexpr double hyperKeyDebounceDelay = 0.05;

    /** `settings` and `clock` must outlive the monitor. */
    explicit KeyboardMonitor(SettingsStore& settings, Clock& clock, QObject* parent = nullptr);
    ~KeyboardMonitor() override;

    /** Whether one tracked modifier key is down according to `flags`; always false for other keys. */
    static bool isModifierPressed(KeyCode keyCode, ModifierFlags flags);
    /**
     * The modifier keys held in `modifiers`, by the same rules as isModifierPressed() but without fn, in the order
     * left Shift, right Shift, left Control, right Control, left Option, right Option, left Command, right Command.
     */
    static QVarLengthArray<KeyCode, 8> keyCodesForModifiers(ModifierFlags modifiers);

    /**
     * Connects `backend` (nullptr detaches): its key, Caps Lock and pointer reports drive this monitor. A previously
     * attached back end is disconnected; held keys are left as they are.
     */
    void attach(InputBackend* backend);
    InputBackend* backend() const;

    /** Starts the attached back end, which then reports the lock state; false when it could not start. */
    bool start();
    /** Stops the attached back end; the shown state is kept. */
    void stop();

    /** Keys shown as held. pressedKeysChanged() and keyChanged() tell about changes. */
    const KeyCodeSet& pressedKeys() const { return m_pressedKeys; }

    /**
     * While paused nothing is shown: every key shown is let go at once, no key change, modifier change or Caps Lock
     * change is told, and no hook runs (so no gesture fires and nothing is held back from other applications). The
     * keys go on being followed, so that resuming shows exactly the keys held at that moment. Pointer buttons are
     * treated the same way; scroll steps made while paused are dropped.
     */
    void setPaused(bool paused);
    bool isPaused() const { return m_paused; }
    /** Flags of the latest modifier report; 0 before the first. */
    ModifierFlags modifierFlags() const { return m_modifierFlags; }
    /** The Caps Lock lock state (its light): the lock bit of the latest modifier report. */
    bool capsLockOn() const { return (m_paused ? m_flagsAtPause : m_modifierFlags) & ModifierFlag::capsLock; }
    /** Whether the physical Caps Lock key is down, as the back end last reported. */
    bool capsLockHeld() const { return m_capsLockHeld; }

    /**
     * Hook that looks at every key-down after the key is shown; returning true asks for the key-down to be kept from
     * other applications. Set by the gesture recogniser; nullptr clears it.
     */
    void setOnKeyDown(std::function<bool(KeyCode)> hook);
    const std::function<bool(KeyCode)>& onKeyDown() const { return m_onKeyDown; }
    /** Hook told of every modifier report, once, with its flags and key code. */
    void setOnFlagsChanged(std::function<void(ModifierFlags, KeyCode)> hook);
    const std::function<void(ModifierFlags, KeyCode)>& onFlagsChanged() const { return m_onFlagsChanged; }

    /**
     * HyperKey recording, driven by the settings window: while armed, the first modifier report made with Caps Lock
     * held and holding bits of hyperKeyModifierMask disarms it and delivers those bits to onHyperKeyRecorded.
     */
    bool isRecordingHyperKey() const { return m_isRecordingHyperKey; }
    void setRecordingHyperKey(bool recording);
    void setOnHyperKeyRecorded(std::function<void(ModifierFlags)> callback);

    /** Shows `keyCode` as held and asks the onKeyDown hook; returns the hook's answer (false without a hook). */
    bool handleKeyDown(KeyCode keyCode);
    /** Stops showing `keyCode`. */
    void handleKeyUp(KeyCode keyCode);
    /** A media key went down or up, already translated to its F-key code. */
    void handleMediaKey(KeyCode keyCode, bool down);

    /**
     * A modifier report: shows each tracked modifier key as the flags say (while a recorded HyperKey combination is
     * held, as the user chose to see it), tells the onFlagsChanged hook and completes a HyperKey recording.
     */
    void handleFlagsChanged(ModifierFlags flags, KeyCode keyCode);
    /** The physical Caps Lock key went down or up. */
    void handleCapsLockKey(bool pressed);

    /** Whether `button` is shown as held; buttonChanged() tells about changes. */
    bool isButtonHeld(PointerButton button) const { return m_shownButtons & buttonBit(button); }
    void handlePointerButton(PointerButton button, bool pressed);
    /** One scroll step, passed on as scrolled() unless paused. */
    void handleScroll(ScrollDirection direction);

signals:
    /**
     * Emitted on every insertion into or removal from pressedKeys, also when the set stays as it was (a key's
     * auto-repeat, a report that confirms a modifier).
     */
    void pressedKeysChanged();
    /** One key started or stopped being shown; emitted only when its membership really changes. */
    void keyChanged(KeyCode keyCode, bool down);
    void modifierFlagsChanged(ModifierFlags flags);
    void capsLockOnChanged(bool on);
    void capsLockHeldChanged(bool held);
    void recordingHyperKeyChanged(bool recording);
    /** A pointer button started or stopped being shown; emitted only when that really changes. */
    void buttonChanged(PointerButton button, bool down);
    void scrolled(ScrollDirection direction);

private:
    static constexpr quint8 buttonBit(PointerButton button) { return quint8(1u << quint8(button)); }
    /** Makes the shown buttons `buttons`, telling of each one that changes. */
    void showButtons(quint8 buttons);
    void showModifierKeys();
    void setKey(KeyCode keyCode, bool down);
    void setCapsLockHeld(bool held);
    void cancelHyperKeyDebounce();
    ModifierFlags recordedHyperKey() const;

    SettingsStore& m_settings;
    Clock& m_clock;
    QPointer<InputBackend> m_backend;
    QList<QMetaObject::Connection> m_backendConnections;

    KeyCodeSet m_pressedKeys;
    // What would be shown; equal to m_pressedKeys except while paused.
    KeyCodeSet m_heldKeys;
    /** Pointer buttons by buttonBit(): held, and shown (nothing while paused). */
    quint8 m_heldButtons = 0;
    quint8 m_shownButtons = 0;
    bool m_paused = false;
    ModifierFlags m_flagsAtPause = 0;
    ModifierFlags m_modifierFlags = 0;
    bool m_capsLockHeld = false;
    bool m_isRecordingHyperKey = false;
    std::function<void(ModifierFlags)> m_onHyperKeyRecorded;
    std::function<void(ModifierFlags, KeyCode)> m_onFlagsChanged;
    std::function<bool(KeyCode)> m_onKeyDown;
    Clock::JobHandle m_hyperKeyDebounce = 0;
};
