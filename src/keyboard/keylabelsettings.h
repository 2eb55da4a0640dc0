// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/settingsstore.h"
#include "input/xkblayout.h"

#include <QList>
#include <QString>
#include <QStringView>

#include <optional>

/** Which physical arrangement the keyboard is drawn in. Declaration order is the order of every picker. */
enum class KeyboardShape {
    /** ISO when the keymap binds the key left of Z and the layout is not a US one; ANSI otherwise. */
    automatic,
    /** One-row Return, backslash above it. */
    ansi,
    /** Tall Return over two rows, the backslash key beside it on the home row. */
    iso,
};

namespace KeyboardShapes {
const QList<KeyboardShape>& all();
/** "automatic", "ansi", "iso". */
QString rawValue(KeyboardShape shape);
/** Exact match against the raw values. */
std::optional<KeyboardShape> fromRawValue(QStringView raw);
/** "Automatic", "ANSI", "ISO". */
QString displayName(KeyboardShape shape);
} // namespace KeyboardShapes

/** What the letter, digit and punctuation caps show. */
struct KeyLabels
{
    enum class Mode {
        /** What each key types in the layout the user is typing with, following every switch. */
        followLayout,
        /** The US legends printed on the picture. */
        printed,
        /** The legends of one chosen layout, whatever the user types with. */
        fixedLayout,
    };

    Mode mode = Mode::followLayout;
    /** The chosen layout; only for fixedLayout. */
    XkbLayout layout;

    /** "follow", "printed", or the layout's name ("de(nodeadkeys)"). */
    QString rawValue() const;
    /**
     * Reads a raw value. A layout name xkb-data does not know (when its registry can be read), or anything else,
     * gives none.
     */
    static std::optional<KeyLabels> fromRawValue(QStringView raw);
    /** "Follow Keyboard Layout", "As Printed (US)", or the layout's description. */
    QString displayName() const;

    friend bool operator==(const KeyLabels&, const KeyLabels&) = default;
};

template<>
struct SettingCodec<KeyboardShape>
{
    static QVariant encode(KeyboardShape value);
    static std::optional<KeyboardShape> decode(const QVariant& stored);
};

template<>
struct SettingCodec<KeyLabels>
{
    static QVariant encode(const KeyLabels& value);
    /** An unknown layout name reads as no value, so the key falls back to following the layout. */
    static std::optional<KeyLabels> decode(const QVariant& stored);
};

namespace SettingKeys {
/** What the caps show; follows the keyboard layout by default. */
const SettingKey<KeyLabels>& keyLabels();
/** The keyboard's shape; automatic by default. */
const SettingKey<KeyboardShape>& keyboardShape();
} // namespace SettingKeys
