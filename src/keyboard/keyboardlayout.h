// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/keycode.h"

#include <QList>
#include <QString>

#include <cstdint>
#include <memory>
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
    /** What AltGr types on the key, drawn small in its bottom-right corner; only where a layout has one. */
    std::optional<QString> altGrLabel;

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

class KeyLegends;

/**
 * The keyboard as drawn: the rows of the table in one shape, with one layout's legends on the letter, digit and
 * punctuation caps. Ids and key codes stay those of the table; only labels change.
 */
struct KeyBoard
{
    QList<KeyRow> rows;
    /**
     * The ISO shape: Return is one tall key over rows 2 and 3 (listed at the end of row 2, 1 unit wide at the top)
     * and the backslash key moves to the end of row 3, before Return's lower part.
     */
    bool iso = false;

    /** `legends` may be nullptr: the table's own labels. */
    static std::shared_ptr<const KeyBoard> make(bool iso, const KeyLegends* legends);
    /** The table as it stands: ANSI shape, printed labels. */
    static const std::shared_ptr<const KeyBoard>& printed();
};
