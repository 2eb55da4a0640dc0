// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/keycode.h"

#include <QList>
#include <QString>

#include <cstdint>
#include <optional>

/** One key of the drawn keyboard. */
struct KeyDef
{
    /** Decimal key code, "-", label: unique in the whole board ("53-esc", "49-", "27--"). */
    QString id;
    QString label;
    /** Shifted character on number and punctuation keys; symbol name on F1..F12; absent elsewhere. */
    std::optional<QString> secondaryLabel;
    KeyCode keycode = 0;
    /** Width in layout units; 1.0 is a letter key. */
    double widthMultiplier = 1.0;

    friend bool operator==(const KeyDef&, const KeyDef&) = default;
};

using KeyRow = QList<KeyDef>;

/** The Touch ID key at the end of the function row. Not a real key code, so that key is never lit. */
inline constexpr KeyCode touchIDKeyCode = 999;

/** Six rows, left to right: row 0 is the function row, the last row is the bottom row (arrows follow it). */
const QList<KeyRow>& keyboardLayout();

const KeyDef& leftArrowKey();
const KeyDef& rightArrowKey();
const KeyDef& downArrowKey();
const KeyDef& upArrowKey();


/** Every key code of the board and the arrows (79 codes), in board order with the arrows last. */
const QList<KeyCode>& allLayoutKeyCodes();
