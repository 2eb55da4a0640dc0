// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/modifierflags.h"
#include "input/triggermodifier.h"
#include "base/keycode.h"

#include <QObject>
#include <QPointer>

#include <cstdint>
#include <functional>
#include <optional>

class Clock;
class KeyboardMonitor;
class SettingsStore;

/**
 * Turns the key state monitor's modifier reports and key-downs into four gestures, each delivered to a callback:
 *
 * - triple tap: the trigger modifier (setting "triggerModifier") pressed three times, each press starting less than
 *   tapWindow after the previous one; ignored while the setting "enableGlobalHotkey" is off;
 * - single tap while hovering: the trigger alone, released within singleTapMaxDuration, while the panel is hovered;
 * - Escape while hovering, when the setting "escapeToHideOnHover" is on; the key-down is swallowed;
 * - Command+comma (Super+comma here) while hovering; the key-down is swallowed.
 *
 * Listens through the monitor's two hooks between start() and stop(). The trigger is kept current from the settings,
 * so a new choice applies from the next report on. Main thread only.
 */
class HotkeyManager final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(HotkeyManager)

public:
    /** Which key-downs must be kept from other applications while the panel is hovered. */
    struct SwallowedShortcuts
    {
        bool escape = false;
        bool settingsShortcut = false;

        friend bool operator==(const SwallowedShortcuts&, const SwallowedShortcuts&) = default;
    };

    static constexpr std::int64_t requiredTaps = 3;
    /** Seconds: the longest gap between the starts of two presses of a triple tap (strictly less). */
    static constexpr double tapWindow = 0.3;
    /** Seconds: the longest press that counts as a single tap (strictly less). */
    static constexpr double singleTapMaxDuration = 0.15;

    static constexpr KeyCode escapeKeyCode = 53;
    static constexpr KeyCode commaKeyCode = 43;

    /** `monitor`, `settings` and `clock` must outlive the manager, or at least its started time. */
    explicit HotkeyManager(KeyboardMonitor& monitor, SettingsStore& settings, Clock& clock, QObject* parent = nullptr);
    /** Removes its hooks from the monitor if still started. */
    ~HotkeyManager() override;

    /** Gesture callbacks, called on the main thread; nullptr clears one. */
    void setOnTripleTap(std::function<void()> callback);
    void setOnSingleTapWhileHovering(std::function<void()> callback);
    void setOnEscapeWhileHovering(std::function<void()> callback);
    void setOnSettingsHotkey(std::function<void()> callback);

    /** Tells whether the pointer is over the keyboard panel now; without one the panel never counts as hovered. */
    void setPanelHoveredPredicate(std::function<bool()> predicate);

    /** Installs the monitor's onFlagsChanged and onKeyDown hooks. */
    void start();
    /** Clears the monitor's two hooks. */
    void stop();
    bool isStarted() const { return m_started; }

    /** One modifier report (a repeated state is no change). */
    void handleFlagsChanged(ModifierFlags flags, KeyCode keyCode);
    /** One key-down, before other applications get it; true when it is to be swallowed. */
    bool handleKeyDown(KeyCode keyCode);

    /** What to hold back from other applications while hovered: Escape as the setting says, Command+comma always. */
    SwallowedShortcuts swallowedShortcuts() const;

private:
    bool isPanelHovered() const;
    static void call(const std::function<void()>& callback);

    QPointer<KeyboardMonitor> m_monitor;
    SettingsStore& m_settings;
    Clock& m_clock;
    bool m_started = false;

    std::function<void()> m_onTripleTap;
    std::function<void()> m_onSingleTapWhileHovering;
    std::function<void()> m_onEscapeWhileHovering;
    std::function<void()> m_onSettingsHotkey;
    std::function<bool()> m_panelHovered;
    TriggerModifier m_trigger;

    std::optional<double> m_lastTapTime;
    std::int64_t m_tapCount = 0;
    bool m_wasPressed = false;
    std::optional<double> m_pressTime;
    bool m_otherKeyDuringPress = false;
};
