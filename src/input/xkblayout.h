// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <QStringView>

#include <optional>

/**
 * One XKB keyboard layout by name, as xkb-data knows it: "de", or "de(nodeadkeys)" for a variant. Names are
 * lower-case letters, digits, '_' and '-' (at most 64 characters each); anything else is no layout name.
 */
struct XkbLayout
{
    QString layout;
    QString variant;

    /** "de" or "de(nodeadkeys)". */
    QString toString() const { return variant.isEmpty() ? layout : layout + u'(' + variant + u')'; }

    /** Parses "de", "de(nodeadkeys)" and the "de+nodeadkeys" form some desktops store; none for anything else. */
    static std::optional<XkbLayout> fromString(QStringView text)
    {
        const auto validPart = [](QStringView part) {
            if (part.isEmpty() || part.size() > 64)
                return false;
            for (QChar c : part) {
                const char16_t u = c.unicode();
                if (!((u >= 'a' && u <= 'z') || (u >= '0' && u <= '9') || u == '_' || u == '-'))
                    return false;
            }
            return true;
        };
        text = text.trimmed();
        QStringView layout = text;
        QStringView variant;
        if (const qsizetype open = text.indexOf(u'('); open >= 0) {
            if (!text.endsWith(u')'))
                return std::nullopt;
            layout = text.left(open);
            variant = text.mid(open + 1, text.size() - open - 2);
            if (!validPart(variant))
                return std::nullopt;
        } else if (const qsizetype plus = text.indexOf(u'+'); plus >= 0) {
            layout = text.left(plus);
            variant = text.mid(plus + 1);
            if (!validPart(variant))
                return std::nullopt;
        }
        if (!validPart(layout))
            return std::nullopt;
        return XkbLayout { layout.toString(), variant.toString() };
    }

    friend bool operator==(const XkbLayout&, const XkbLayout&) = default;
};
