// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/modifierflags.h"
#include "base/keycode.h"
#include "base/settingsstore.h"

#include <QJsonValue>
#include <QList>
#include <QString>

#include <optional>

/** The modifier key whose triple tap shows and hides the keyboard. Declaration order is the order of every menu. */
enum class TriggerModifier {
    fn,
    leftControl,
    rightCommand,
    leftCommand,
    leftOption,
    rightOption,
    capsLock,
};

namespace TriggerModifiers {

/** Every case in declaration order. */
const QList<TriggerModifier>& all();

/** The persistent name, e.g. "leftOption". */
QString rawValue(TriggerModifier trigger);

/** Exact, case-sensitive match against the raw values; anything else gives no value. */
std::optional<TriggerModifier> fromRawValue(QStringView raw);

/** The label shown in menus and pickers, e.g. "Left Option". */
QString displayName(TriggerModifier trigger);

/** The virtual key code of the key itself. */
KeyCode keyCode(TriggerModifier trigger);

/** The JSON form: the raw value as a JSON string. */
QJsonValue toJson(TriggerModifier trigger);
std::optional<TriggerModifier> fromJson(const QJsonValue& value);

/**
 * Whether `trigger` is down according to one modifier report. Command and Option look only at their own side
 * bit, left Control needs its own key code with the generic Control bit, and Caps Lock looks at the lock bit.
 */
bool isTriggerPressed(ModifierFlags flags, KeyCode keyCode, TriggerModifier trigger);

} // namespace TriggerModifiers

template<>
struct SettingCodec<TriggerModifier>
{
    /** The JSON text of the raw value: "fn" is kept as the four characters "fn" with their quotes. */
    static QVariant encode(TriggerModifier value);
    static std::optional<TriggerModifier> decode(const QVariant& stored);
};

namespace SettingKeys {
/** Left Control by default: most PC keyboards never report fn. */
const SettingKey<TriggerModifier>& triggerModifier();
} // namespace SettingKeys
