// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/keylabelsettings.h"

#include "keyboard/xkblayoutlist.h"

using namespace Qt::StringLiterals;

namespace KeyboardShapes {

const QList<KeyboardShape>& all()
{
    static const QList<KeyboardShape> shapes { KeyboardShape::automatic, KeyboardShape::ansi, KeyboardShape::iso };
    return shapes;
}

QString rawValue(KeyboardShape shape)
{
    switch (shape) {
    case KeyboardShape::automatic:
        return u"automatic"_s;
    case KeyboardShape::ansi:
        return u"ansi"_s;
    case KeyboardShape::iso:
        return u"iso"_s;
    }
    return u"automatic"_s;
}

std::optional<KeyboardShape> fromRawValue(QStringView raw)
{
    for (KeyboardShape shape : all()) {
        if (raw == rawValue(shape))
            return shape;
    }
    return std::nullopt;
}

QString displayName(KeyboardShape shape)
{
    switch (shape) {
    case KeyboardShape::automatic:
        return u"Automatic"_s;
    case KeyboardShape::ansi:
        return u"ANSI"_s;
    case KeyboardShape::iso:
        return u"ISO"_s;
    }
    return {};
}

} // namespace KeyboardShapes

QString KeyLabels::rawValue() const
{
    switch (mode) {
    case Mode::followLayout:
        return u"follow"_s;
    case Mode::printed:
        return u"printed"_s;
    case Mode::fixedLayout:
        return layout.toString();
    }
    return u"follow"_s;
}

std::optional<KeyLabels> KeyLabels::fromRawValue(QStringView raw)
{
    if (raw == u"follow"_s)
        return KeyLabels {};
    if (raw == u"printed"_s)
        return KeyLabels { Mode::printed, {} };
    const std::optional<XkbLayout> layout = XkbLayout::fromString(raw);
    if (!layout)
        return std::nullopt;
    // Without a registry to check against, a well-formed name is taken; a keymap that will not compile draws the
    // printed legends anyway.
    if (!XkbLayoutList::all().isEmpty() && !XkbLayoutList::find(*layout))
        return std::nullopt;
    return KeyLabels { Mode::fixedLayout, *layout };
}

QString KeyLabels::displayName() const
{
    switch (mode) {
    case Mode::followLayout:
        return u"Follow Keyboard Layout"_s;
    case Mode::printed:
        return u"As Printed (US)"_s;
    case Mode::fixedLayout:
        if (const auto info = XkbLayoutList::find(layout))
            return info->description;
        return layout.toString();
    }
    return {};
}

QVariant SettingCodec<KeyboardShape>::encode(KeyboardShape value)
{
    return KeyboardShapes::rawValue(value);
}

std::optional<KeyboardShape> SettingCodec<KeyboardShape>::decode(const QVariant& stored)
{
    if (!SettingCodecs::isString(stored))
        return std::nullopt;
    return KeyboardShapes::fromRawValue(stored.toString());
}

QVariant SettingCodec<KeyLabels>::encode(const KeyLabels& value)
{
    return value.rawValue();
}

std::optional<KeyLabels> SettingCodec<KeyLabels>::decode(const QVariant& stored)
{
    if (!SettingCodecs::isString(stored))
        return std::nullopt;
    return KeyLabels::fromRawValue(stored.toString());
}

namespace SettingKeys {

const SettingKey<KeyLabels>& keyLabels()
{
    static const SettingKey<KeyLabels> key(u"keyLabels"_s, KeyLabels {});
    return key;
}

const SettingKey<KeyboardShape>& keyboardShape()
{
    static const SettingKey<KeyboardShape> key(u"keyboardShape"_s, KeyboardShape::automatic);
    return key;
}

} // namespace SettingKeys
