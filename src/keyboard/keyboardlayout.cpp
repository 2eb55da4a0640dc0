// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/keyboardlayout.h"

#include "keyboard/keylegends.h"

#include <QtGlobal>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

// The id is derived rather than written out so that it can never disagree with the code and label it names.
KeyDef makeKey(KeyCode code, const QString& label, std::optional<QString> secondary = std::nullopt, double width = 1.0)
{
    return KeyDef {
        QString::number(code) + u'-' + label,
        label,
        std::move(secondary),
        code,
        width,
        std::nullopt,
    };
}

KeyRow functionRow()
{
    return {
        makeKey(53, u"esc"_s, std::nullopt, 1.5),
        makeKey(122, u"F1"_s, u"sun.min"_s),
        makeKey(120, u"F2"_s, u"sun.max"_s),
        makeKey(99, u"F3"_s, u"rectangle.3.group"_s),
        makeKey(118, u"F4"_s, u"magnifyingglass"_s),
        makeKey(96, u"F5"_s, u"microphone"_s),
        makeKey(97, u"F6"_s, u"moon"_s),
        makeKey(98, u"F7"_s, u"backward.end"_s),
        makeKey(100, u"F8"_s, u"playpause"_s),
        makeKey(101, u"F9"_s, u"forward.end"_s),
        makeKey(109, u"F10"_s, u"speaker"_s),
        makeKey(103, u"F11"_s, u"speaker.wave.1"_s),
        makeKey(111, u"F12"_s, u"speaker.wave.3"_s),
        makeKey(touchIDKeyCode, u"touchid"_s),
    };
}

KeyRow numberRow()
{
    return {
        // ISO boards put § / ± (code 10) at the start of the number row where ANSI boards have ` / ~.
        makeKey(10, u"§"_s, u"±"_s),
        makeKey(18, u"1"_s, u"!"_s),
        makeKey(19, u"2"_s, u"@"_s),
        makeKey(20, u"3"_s, u"#"_s),
        makeKey(21, u"4"_s, u"$"_s),
        makeKey(23, u"5"_s, u"%"_s),
        makeKey(22, u"6"_s, u"^"_s),
        makeKey(26, u"7"_s, u"&"_s),
        makeKey(28, u"8"_s, u"*"_s),
        makeKey(25, u"9"_s, u"("_s),
        makeKey(29, u"0"_s, u")"_s),
        makeKey(27, u"-"_s, u"_"_s),
        makeKey(24, u"="_s, u"+"_s),
        makeKey(51, u"delete"_s, std::nullopt, 1.5),
    };
}

KeyRow topLetterRow()
{
    return {
        makeKey(48, u"tab"_s, std::nullopt, 1.5),
        makeKey(12, u"Q"_s),
        makeKey(13, u"W"_s),
        makeKey(14, u"E"_s),
        makeKey(15, u"R"_s),
        makeKey(17, u"T"_s),
        makeKey(16, u"Y"_s),
        makeKey(32, u"U"_s),
        makeKey(34, u"I"_s),
        makeKey(31, u"O"_s),
        makeKey(35, u"P"_s),
        makeKey(33, u"["_s, u"{"_s),
        makeKey(30, u"]"_s, u"}"_s),
        makeKey(42, u"\\"_s, u"|"_s),
    };
}

KeyRow homeRow()
{
    return {
        makeKey(57, u"caps lock"_s, std::nullopt, 1.75),
        makeKey(0, u"A"_s),
        makeKey(1, u"S"_s),
        makeKey(2, u"D"_s),
        makeKey(3, u"F"_s),
        makeKey(5, u"G"_s),
        makeKey(4, u"H"_s),
        makeKey(38, u"J"_s),
        makeKey(40, u"K"_s),
        makeKey(37, u"L"_s),
        makeKey(41, u";"_s, u":"_s),
        makeKey(39, u"'"_s, u"\""_s),
        makeKey(36, u"return"_s, std::nullopt, 1.75),
    };
}

KeyRow bottomLetterRow()
{
    return {
        // The short ISO left shift leaves room for ` / ~ (code 50) before Z.
        makeKey(56, u"shift"_s, std::nullopt, 1.25),
        makeKey(50, u"`"_s, u"~"_s),
        makeKey(6, u"Z"_s),
        makeKey(7, u"X"_s),
        makeKey(8, u"C"_s),
        makeKey(9, u"V"_s),
        makeKey(11, u"B"_s),
        makeKey(45, u"N"_s),
        makeKey(46, u"M"_s),
        makeKey(43, u","_s, u"<"_s),
        makeKey(47, u"."_s, u">"_s),
        makeKey(44, u"/"_s, u"?"_s),
        makeKey(60, u"shift"_s, std::nullopt, 2.25),
    };
}

KeyRow modifierRow()
{
    // 11.5 units: the arrow cluster drawn after this row fills the remaining three.
    return {
        makeKey(63, u"fn"_s),
        makeKey(59, u"control"_s, std::nullopt, 1.05),
        makeKey(58, u"option"_s, std::nullopt, 1.05),
        makeKey(55, u"command"_s, std::nullopt, 1.2),
        makeKey(49, QString(), std::nullopt, 5.0),
        makeKey(54, u"command"_s, std::nullopt, 1.2),
        makeKey(61, u"option"_s),
    };
}

} // namespace

const QList<KeyRow>& keyboardLayout()
{
    static const QList<KeyRow> layout {
        functionRow(),
        numberRow(),
        topLetterRow(),
        homeRow(),
        bottomLetterRow(),
        modifierRow(),
    };
    return layout;
}

const KeyDef& leftArrowKey()
{
    static const KeyDef key = makeKey(123, u"←"_s);
    return key;
}

const KeyDef& rightArrowKey()
{
    static const KeyDef key = makeKey(124, u"→"_s);
    return key;
}

const KeyDef& downArrowKey()
{
    static const KeyDef key = makeKey(125, u"↓"_s);
    return key;
}

const KeyDef& upArrowKey()
{
    static const KeyDef key = makeKey(126, u"↑"_s);
    return key;
}

const QList<KeyCode>& allLayoutKeyCodes()
{
    static const QList<KeyCode> codes = [] {
        QList<KeyCode> result;
        for (const KeyRow& row : keyboardLayout()) {
            for (const KeyDef& key : row)
                result.append(key.keycode);
        }
        result.append(
            { leftArrowKey().keycode, rightArrowKey().keycode, downArrowKey().keycode, upArrowKey().keycode });
        return result;
    }();
    return codes;
}

std::shared_ptr<const KeyBoard> KeyBoard::make(bool iso, const KeyLegends* legends)
{
    auto board = std::make_shared<KeyBoard>();
    board->rows = keyboardLayout();
    board->iso = iso;
    if (legends != nullptr) {
        for (KeyRow& row : board->rows) {
            for (KeyDef& key : row) {
                if (const KeyLegend* legend = legends->legend(key.keycode)) {
                    key.label = legend->label;
                    key.secondaryLabel = legend->secondaryLabel;
                    key.altGrLabel = legend->altGrLabel;
                }
            }
        }
    }
    if (iso) {
        // Row 2 ends with backslash and row 3 with Return on the table; ISO swaps them and makes Return tall.
        constexpr KeyCode backslash = 42, returnKey = 36;
        KeyRow& upper = board->rows[2];
        KeyRow& home = board->rows[3];
        if (!upper.isEmpty() && upper.last().keycode == backslash && !home.isEmpty() && home.last().keycode == returnKey) {
            KeyDef moved = upper.takeLast();
            KeyDef tall = home.takeLast();
            tall.widthMultiplier = 1.0;
            upper.append(tall);
            home.append(moved);
        }
    }
    return board;
}

const std::shared_ptr<const KeyBoard>& KeyBoard::printed()
{
    static const std::shared_ptr<const KeyBoard> board = make(false, nullptr);
    return board;
}
