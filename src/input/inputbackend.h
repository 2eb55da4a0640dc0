// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/modifierflags.h"
#include "base/keycode.h"

#include <QObject>
#include <QString>

/** A pointer button as drawn on the trackpad, whichever device (mouse, touchpad) pressed it. */
enum class PointerButton : quint8 { left, right, middle, back, forward };

/**
 * Which way a wheel turned, or a scroll step went: up is a wheel turned away from the user. Natural scrolling, where
 * it is set, is already applied on X11 and not when the devices are read.
 */
enum class ScrollDirection : quint8 { up, down, left, right };

/**
 * A source of global keyboard and pointer input: every key the user presses in any application, already translated
 * to the layout's virtual key codes, and the pointer's buttons and scrolling. Implementations read the platform
 * (X11 XInput2, evdev) and emit on the main thread.
 *
 * A back end reports, never records: nothing it receives is written, logged or sent anywhere.
 */
class InputBackend : public QObject
{
    Q_OBJECT

public:
    enum class Access {
        /** Keys can be read. */
        granted,
        /** Keys could be read once the user grants access (see accessHelp()). */
        denied,
        /** This back end cannot work in this session at all. */
        unavailable,
    };
    Q_ENUM(Access)

    /** How keys reach Ordalis right now. */
    enum class Source {
        /** They do not: no access, or not started. */
        none,
        /** The X server (XInput2). */
        x11,
        /** The keyboard devices, read directly. */
        devices,
        /** The keyboard devices, read by ordalis-keyhelper with the user's permission. */
        helper,
    };
    Q_ENUM(Source)

    /** The name of `source` as D-Bus and scripts see it: "none", "x11", "devices" or "helper". */
    static QString sourceName(Source source)
    {
        switch (source) {
        case Source::x11:
            return QStringLiteral("x11");
        case Source::devices:
            return QStringLiteral("devices");
        case Source::helper:
            return QStringLiteral("helper");
        case Source::none:
            break;
        }
        return QStringLiteral("none");
    }

    explicit InputBackend(QObject* parent = nullptr)
        : QObject(parent)
    {
    }
    ~InputBackend() override = default;

    /** Short name for diagnostics, e.g. "x11" or "evdev". */
    virtual QString name() const = 0;

    /** Whether keys can be read now; cheap enough to poll every 2 s. */
    virtual Access access() const = 0;

    /** What the user must do to grant access, as a copy-pasteable explanation; empty when nothing is needed. */
    virtual QString accessHelp() const = 0;

    /** Starts reading; false when it could not (no access, no devices). Main thread. */
    virtual bool start() = 0;
    virtual void stop() = 0;

    /** How keys arrive now; none until start() succeeded. */
    virtual Source source() const { return Source::none; }

    /**
     * Whether access() is denied in a way the user can lift from within Ordalis, by agreeing once
     * (requestAccess()), rather than by changing the system.
     */
    virtual bool canRequestAccess() const { return false; }
    /**
     * Asks the user for access (a system password dialog may follow) without blocking. The outcome arrives later
     * through accessChanged() and, when access was not had, accessRequestFailed().
     */
    virtual void requestAccess() { }

    /** The Caps Lock lock state (indicator / LED), or false when it cannot be read. */
    virtual bool capsLockOn() const = 0;

    /**
     * While the keyboard panel is hovered, the Escape key-down (when `escape`) and Command+comma (when
     * `settingsShortcut`) must reach Ordalis only. Back ends that cannot keep a key from other applications
     * ignore this.
     */
    virtual void setSwallowedShortcuts(bool escape, bool settingsShortcut)
    {
        Q_UNUSED(escape);
        Q_UNUSED(settingsShortcut);
    }

signals:
    /** A non-modifier key went down (auto-repeat may repeat it). Caps Lock is reported by capsLockKey. */
    void keyDown(KeyCode keyCode);
    /** A non-modifier key went up. */
    void keyUp(KeyCode keyCode);
    /**
     * The set of held modifiers changed. `flags` is the full mask (generic and side bits, Caps Lock lock bit),
     * `keyCode` the modifier key whose change caused the report.
     */
    void flagsChanged(ModifierFlags flags, KeyCode keyCode);
    /** The physical Caps Lock key went down or up. */
    void capsLockKey(bool pressed);
    /** A media key (volume, brightness, playback) went down or up, reported as the F-key that carries its symbol. */
    void mediaKey(KeyCode keyCode, bool pressed);
    /**
     * A pointer button went down or up. A button held on two devices is reported down once and up when the last
     * lets go; a device that goes away lets go of its buttons.
     */
    void pointerButton(PointerButton button, bool pressed);
    /** The content scrolled by one step: exactly one per wheel notch, or per notch's worth of smooth scrolling. */
    void scrolled(ScrollDirection direction);
    /** access() or source() may have changed (a device appeared or vanished, permissions changed). */
    void accessChanged();
    /**
     * Keys could not be had, or stopped coming, for a reason the user should hear of once: `message` says what
     * happened in plain words.
     */
    void accessRequestFailed(const QString& message);
};
