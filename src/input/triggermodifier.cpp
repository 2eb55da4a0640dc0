// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/triggermodifier.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <array>

using namespace Qt::StringLiterals;

namespace {

struct TriggerInfo
{
    TriggerModifier trigger;
    QStringView raw;
    QStringView display;
    KeyCode keyCode;
};

constexpr std::array<TriggerInfo, 7> kTriggers {{
    { TriggerModifier::fn, u"fn", u"fn", 63 },
    { TriggerModifier::leftControl, u"leftControl", u"Left Control", 59 },
    { TriggerModifier::rightCommand, u"rightCommand", u"Right Command", 54 },
    { TriggerModifier::leftCommand, u"leftCommand", u"Left Command", 55 },
    { TriggerModifier::leftOption, u"leftOption", u"Left Option", 58 },
    { TriggerModifier::rightOption, u"rightOption", u"Right Option", 61 },
    { TriggerModifier::capsLock, u"capsLock", u"Caps Lock", 57 },
}};

const TriggerInfo& info(TriggerModifier trigger)
{
    return kTriggers[static_cast<size_t>(trigger)];
}

} // namespace

namespace TriggerModifiers {

const QList<TriggerModifier>& all()
{
    static const QList<TriggerModifier> list = [] {
        QList<TriggerModifier> result;
        for (const TriggerInfo& entry : kTriggers)
            result.append(entry.trigger);
        return result;
    }();
    return list;
}

QString rawValue(TriggerModifier trigger)
{
    return info(trigger).raw.toString();
}

std::optional<TriggerModifier> fromRawValue(QStringView raw)
{
    for (const TriggerInfo& entry : kTriggers) {
        if (entry.raw == raw)
            return entry.trigger;
    }
    return std::nullopt;
}

QString displayName(TriggerModifier trigger)
{
    return info(trigger).display.toString();
}

KeyCode keyCode(TriggerModifier trigger)
{
    return info(trigger).keyCode;
}

QJsonValue toJson(TriggerModifier trigger)
{
    return QJsonValue(rawValue(trigger));
}

std::optional<TriggerModifier> fromJson(const QJsonValue& value)
{
    if (!value.isString())
        return std::nullopt;
    return fromRawValue(value.toString());
}

bool isTriggerPressed(ModifierFlags flags, KeyCode keyCode, TriggerModifier trigger)
{
    switch (trigger) {
    case TriggerModifier::fn:
        return flags & ModifierFlag::function;
    case TriggerModifier::leftControl:
        // Control has only one side bit on some keyboards, so the key code of the report decides which key moved.
        return keyCode == 59 && (flags & ModifierFlag::control);
    case TriggerModifier::rightCommand:
        return flags & ModifierFlag::rightCommand;
    case TriggerModifier::leftCommand:
        return flags & ModifierFlag::leftCommand;
    case TriggerModifier::leftOption:
        return flags & ModifierFlag::leftOption;
    case TriggerModifier::rightOption:
        return flags & ModifierFlag::rightOption;
    case TriggerModifier::capsLock:
        return flags & ModifierFlag::capsLock;
    }
    return false;
}

} // namespace TriggerModifiers

QVariant SettingCodec<TriggerModifier>::encode(TriggerModifier value)
{
    // Let the JSON writer quote and escape the raw value, then drop the array brackets around it.
    const QByteArray text = QJsonDocument(QJsonArray { TriggerModifiers::toJson(value) }).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(text.mid(1, text.size() - 2));
}

std::optional<TriggerModifier> SettingCodec<TriggerModifier>::decode(const QVariant& stored)
{
    if (!SettingCodecs::isString(stored))
        return std::nullopt;
    // The JSON reader takes only arrays and objects at the top level, so read the text as a one-element array.
    QJsonParseError error {};
    const QJsonDocument document = QJsonDocument::fromJson('[' + stored.toString().toUtf8() + ']', &error);
    if (error.error != QJsonParseError::NoError || document.array().size() != 1)
        return std::nullopt;
    return TriggerModifiers::fromJson(document.array().first());
}

const SettingKey<TriggerModifier>& SettingKeys::triggerModifier()
{
    static const SettingKey<TriggerModifier> key(QStringLiteral("triggerModifier"), TriggerModifier::leftControl);
    return key;
}
