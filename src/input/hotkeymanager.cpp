// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/hotkeymanager.h"

#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "input/keyboardmonitor.h"

HotkeyManager::HotkeyManager(KeyboardMonitor& monitor, SettingsStore& settings, Clock& clock, QObject* parent)
    : QObject(parent)
    , m_monitor(&monitor)
    , m_settings(settings)
    , m_clock(clock)
    , m_trigger(settings.value(SettingKeys::triggerModifier()))
{
    settings.bind(SettingKeys::triggerModifier(), this, [this](TriggerModifier trigger) { m_trigger = trigger; });
}

HotkeyManager::~HotkeyManager()
{
    // The hooks point at this object; they must not outlive it.
    if (m_started)
        stop();
}

void HotkeyManager::setOnTripleTap(std::function<void()> callback)
{
    m_onTripleTap = std::move(callback);
}

void HotkeyManager::setOnSingleTapWhileHovering(std::function<void()> callback)
{
    m_onSingleTapWhileHovering = std::move(callback);
}

void HotkeyManager::setOnEscapeWhileHovering(std::function<void()> callback)
{
    m_onEscapeWhileHovering = std::move(callback);
}

void HotkeyManager::setOnSettingsHotkey(std::function<void()> callback)
{
    m_onSettingsHotkey = std::move(callback);
}

void HotkeyManager::setPanelHoveredPredicate(std::function<bool()> predicate)
{
    m_panelHovered = std::move(predicate);
}

void HotkeyManager::start()
{
    if (!m_monitor)
        return;
    // Plain `this`: the destructor removes the hooks, and a raw pointer keeps the copy on every key event cheap.
    m_monitor->setOnFlagsChanged([this](ModifierFlags flags, KeyCode keyCode) { handleFlagsChanged(flags, keyCode); });
    m_monitor->setOnKeyDown([this](KeyCode keyCode) { return handleKeyDown(keyCode); });
    m_started = true;
}

void HotkeyManager::stop()
{
    m_started = false;
    if (!m_monitor)
        return;
    m_monitor->setOnFlagsChanged(nullptr);
    m_monitor->setOnKeyDown(nullptr);
}

void HotkeyManager::handleFlagsChanged(ModifierFlags flags, KeyCode keyCode)
{
    const bool pressed = TriggerModifiers::isTriggerPressed(flags, keyCode, m_trigger);
    const double now = m_clock.now();

    if (pressed && !m_wasPressed) {
        m_pressTime = now;
        m_otherKeyDuringPress = false;
        // Measured between the starts of presses: how long each press lasts does not matter.
        if (m_lastTapTime && now - *m_lastTapTime < tapWindow)
            ++m_tapCount;
        else
            m_tapCount = 1;
        m_lastTapTime = now;
        if (m_tapCount >= requiredTaps) {
            m_tapCount = 0;
            m_lastTapTime.reset();
            // The switch silences only the triple tap; the gestures over the panel stay available.
            if (m_settings.value(SettingKeys::enableGlobalHotkey()))
                call(m_onTripleTap);
        }
    } else if (!pressed && m_wasPressed) {
        if (m_pressTime && now - *m_pressTime < singleTapMaxDuration && !m_otherKeyDuringPress && isPanelHovered())
            call(m_onSingleTapWhileHovering);
        m_pressTime.reset();
    }
    m_wasPressed = pressed;
}

bool HotkeyManager::handleKeyDown(KeyCode keyCode)
{
    if (m_wasPressed)
        m_otherKeyDuringPress = true;
    if (!isPanelHovered())
        return false;

    switch (keyCode) {
    case escapeKeyCode:
        if (!m_settings.value(SettingKeys::escapeToHideOnHover()))
            return false;
        call(m_onEscapeWhileHovering);
        return true;
    case commaKeyCode:
        if (!m_monitor || !(m_monitor->modifierFlags() & ModifierFlag::command))
            return false;
        call(m_onSettingsHotkey);
        return true;
    default:
        return false;
    }
}

HotkeyManager::SwallowedShortcuts HotkeyManager::swallowedShortcuts() const
{
    return SwallowedShortcuts { m_settings.value(SettingKeys::escapeToHideOnHover()), true };
}

bool HotkeyManager::isPanelHovered() const
{
    return m_panelHovered && m_panelHovered();
}

void HotkeyManager::call(const std::function<void()>& callback)
{
    if (!callback)
        return;
    // A copy, because the callback may replace itself while it runs.
    const std::function<void()> copy = callback;
    copy();
}
