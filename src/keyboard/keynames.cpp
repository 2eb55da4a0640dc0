// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/keynames.h"

#include <QHash>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

struct Entry
{
    const char16_t* name;
    KeyCode code;
};

// Canonical names: X keysym names of what each key carries, lower case. The drawn board is an ISO one, so the key
// left of 1 carries § (keysym "section") and the key between left Shift and Z carries ` (keysym "grave").
constexpr Entry canonical[] = {
    { u"escape", 53 },
    { u"f1", 122 },
    { u"f2", 120 },
    { u"f3", 99 },
    { u"f4", 118 },
    { u"f5", 96 },
    { u"f6", 97 },
    { u"f7", 98 },
    { u"f8", 100 },
    { u"f9", 101 },
    { u"f10", 109 },
    { u"f11", 103 },
    { u"f12", 111 },

    { u"section", 10 },
    { u"1", 18 },
    { u"2", 19 },
    { u"3", 20 },
    { u"4", 21 },
    { u"5", 23 },
    { u"6", 22 },
    { u"7", 26 },
    { u"8", 28 },
    { u"9", 25 },
    { u"0", 29 },
    { u"minus", 27 },
    { u"equal", 24 },
    { u"backspace", 51 },

    { u"tab", 48 },
    { u"q", 12 },
    { u"w", 13 },
    { u"e", 14 },
    { u"r", 15 },
    { u"t", 17 },
    { u"y", 16 },
    { u"u", 32 },
    { u"i", 34 },
    { u"o", 31 },
    { u"p", 35 },
    { u"bracketleft", 33 },
    { u"bracketright", 30 },
    { u"backslash", 42 },

    { u"caps_lock", 57 },
    { u"a", 0 },
    { u"s", 1 },
    { u"d", 2 },
    { u"f", 3 },
    { u"g", 5 },
    { u"h", 4 },
    { u"j", 38 },
    { u"k", 40 },
    { u"l", 37 },
    { u"semicolon", 41 },
    { u"apostrophe", 39 },
    { u"return", 36 },

    { u"shift_l", 56 },
    { u"grave", 50 },
    { u"z", 6 },
    { u"x", 7 },
    { u"c", 8 },
    { u"v", 9 },
    { u"b", 11 },
    { u"n", 45 },
    { u"m", 46 },
    { u"comma", 43 },
    { u"period", 47 },
    { u"slash", 44 },
    { u"shift_r", 60 },

    { u"fn", 63 },
    { u"control_l", 59 },
    { u"alt_l", 58 },
    { u"super_l", 55 },
    { u"space", 49 },
    { u"super_r", 54 },
    { u"alt_r", 61 },

    { u"left", 123 },
    { u"right", 124 },
    { u"down", 125 },
    { u"up", 126 },
};

// The names the keys carry on a Mac keyboard, which the drawing copies, and the usual short forms.
constexpr Entry aliasList[] = {
    { u"esc", 53 },
    { u"enter", 36 },
    { u"shift", 56 },
    { u"ctrl", 59 },
    { u"control", 59 },
    { u"alt", 58 },
    { u"option", 58 },
    { u"option_l", 58 },
    { u"option_r", 61 },
    { u"super", 55 },
    { u"cmd", 55 },
    { u"command", 55 },
    { u"cmd_l", 55 },
    { u"cmd_r", 54 },
};

const QHash<QString, KeyCode>& lookup()
{
    static const QHash<QString, KeyCode> table = [] {
        QHash<QString, KeyCode> result;
        for (const Entry& entry : canonical)
            result.insert(QString::fromUtf16(entry.name), entry.code);
        for (const Entry& entry : aliasList)
            result.insert(QString::fromUtf16(entry.name), entry.code);
        return result;
    }();
    return table;
}

} // namespace

namespace KeyNames {

std::optional<KeyCode> keyCode(QStringView name)
{
    const auto it = lookup().constFind(name.toString().toLower());
    if (it == lookup().cend())
        return std::nullopt;
    return *it;
}

QString name(KeyCode code)
{
    const auto it = std::find_if(
        std::begin(canonical), std::end(canonical), [code](const Entry& entry) { return entry.code == code; });
    return it == std::end(canonical) ? QString() : QString::fromUtf16(it->name);
}

QStringList canonicalNames()
{
    QStringList names;
    for (const Entry& entry : canonical)
        names.append(QString::fromUtf16(entry.name));
    return names;
}

QStringList aliases()
{
    QStringList names;
    for (const Entry& entry : aliasList)
        names.append(QString::fromUtf16(entry.name));
    return names;
}

} // namespace KeyNames
