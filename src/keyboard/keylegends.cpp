// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/keylegends.h"

#include "input/linuxkeymap.h"
#include "keyboard/keyboardlayout.h"

#include <QByteArray>

#include <xkbcommon/xkbcommon.h>

#include <cstdio>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

/** Linux key code of the key left of Z on ISO keyboards. */
constexpr int keyLeftOfZ = 86; // KEY_102ND
/** XKB key codes are Linux key codes moved up by 8. */
constexpr int xkbOffset = 8;

struct ContextDeleter
{
    void operator()(xkb_context* context) const { xkb_context_unref(context); }
};
struct KeymapDeleter
{
    void operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
};

/** Every key with a layout legend, with the Linux code that reports it. */
const QHash<KeyCode, int>& legendKeys()
{
    static const QHash<KeyCode, int> keys = [] {
        QHash<KeyCode, int> result;
        for (int linux = 0; linux < LinuxKeymap::codeCount; ++linux) {
            const LinuxKeymap::Entry& entry = LinuxKeymap::lookup(linux);
            if (entry.kind != LinuxKeymap::Kind::ordinary || result.contains(entry.keyCode))
                continue;
            for (int row = 1; row + 1 < int(keyboardLayout().size()); ++row) {
                for (const KeyDef& key : keyboardLayout()[row]) {
                    // Single characters are legends; words ("tab", "return") name what the key does.
                    if (key.keycode == entry.keyCode && key.label.size() == 1)
                        result.insert(entry.keyCode, linux);
                }
            }
        }
        return result;
    }();
    return keys;
}

QString deadKeyAccent(std::uint32_t keysym)
{
    switch (keysym) {
    case XKB_KEY_dead_grave:
        return u"`"_s;
    case XKB_KEY_dead_acute:
        return u"´"_s;
    case XKB_KEY_dead_circumflex:
        return u"^"_s;
    case XKB_KEY_dead_tilde:
        return u"~"_s;
    case XKB_KEY_dead_macron:
        return u"¯"_s;
    case XKB_KEY_dead_breve:
        return u"˘"_s;
    case XKB_KEY_dead_abovedot:
        return u"˙"_s;
    case XKB_KEY_dead_diaeresis:
        return u"¨"_s;
    case XKB_KEY_dead_abovering:
        return u"˚"_s;
    case XKB_KEY_dead_doubleacute:
        return u"˝"_s;
    case XKB_KEY_dead_caron:
        return u"ˇ"_s;
    case XKB_KEY_dead_cedilla:
        return u"¸"_s;
    case XKB_KEY_dead_ogonek:
        return u"˛"_s;
    case XKB_KEY_dead_iota:
        return u"ͺ"_s;
    case XKB_KEY_dead_belowdot:
        return u"."_s;
    case XKB_KEY_dead_stroke:
        return u"/"_s;
    case XKB_KEY_dead_belowcomma:
        return u","_s;
    case XKB_KEY_dead_currency:
        return u"¤"_s;
    case XKB_KEY_dead_greek:
        return u"µ"_s;
    default:
        return {};
    }
}

bool isLetter(const QString& text)
{
    return text.size() == 1 ? text.front().isLetter() : (text.size() == 2 && QChar::isLetter(text.toUcs4().value(0)));
}

QString textAtLevel(xkb_keymap* keymap, xkb_keycode_t key, xkb_level_index_t level, bool* dead = nullptr)
{
    if (level >= xkb_keymap_num_levels_for_key(keymap, key, 0))
        return {};
    const xkb_keysym_t* syms = nullptr;
    if (xkb_keymap_key_get_syms_by_level(keymap, key, 0, level, &syms) != 1)
        return {};
    if (dead)
        *dead = !deadKeyAccent(syms[0]).isEmpty();
    return KeyLegends::keysymText(syms[0]);
}

/** The legend from the first three levels of a key, by the rules in the header. */
KeyLegend legendFor(const QString& plain, const QString& shifted, const QString& altGr, bool altGrDead)
{
    KeyLegend legend;
    const bool letter = isLetter(plain);
    if (letter && (shifted == plain.toUpper() || shifted.isEmpty())) {
        legend.label = plain.toUpper();
    } else {
        legend.label = plain.isEmpty() ? shifted : plain;
        if (!plain.isEmpty() && !shifted.isEmpty() && shifted != plain)
            legend.secondaryLabel = shifted;
    }
    if (!altGr.isEmpty() && altGr != plain && altGr != shifted && altGr != legend.label && !isLetter(altGr)) {
        const bool asciiOrCurrency
            = (altGr.size() == 1 && altGr.front().unicode() < 0x80) || altGr.front().category() == QChar::Symbol_Currency;
        if (!letter || (asciiOrCurrency && !altGrDead))
            legend.altGrLabel = altGr;
    }
    return legend;
}

} // namespace

QString KeyLegends::keysymText(std::uint32_t keysym)
{
    if (QString accent = deadKeyAccent(keysym); !accent.isEmpty())
        return accent;
    const std::uint32_t ucs = xkb_keysym_to_utf32(keysym);
    // Control characters and spaces of every kind show nothing.
    if (ucs == 0 || ucs < 0x20 || ucs == 0x7f || QChar::isSpace(ucs) || QChar::category(ucs) == QChar::Other_Control)
        return {};
    if (QChar::category(ucs) == QChar::Mark_NonSpacing)
        return QString(QChar(0x25cc)) + QString::fromUcs4(reinterpret_cast<const char32_t*>(&ucs), 1);
    return QString::fromUcs4(reinterpret_cast<const char32_t*>(&ucs), 1);
}

bool KeyLegends::hasLayoutLegend(KeyCode code)
{
    return legendKeys().contains(code);
}

std::shared_ptr<const KeyLegends> KeyLegends::compile(
    const XkbLayout& layout, const QString& model, const QString& options)
{
    std::unique_ptr<xkb_context, ContextDeleter> context(xkb_context_new(XKB_CONTEXT_NO_ENVIRONMENT_NAMES));
    if (!context)
        return nullptr;
    // A name xkb-data lacks is reported by the caller, once; libxkbcommon's own messages would repeat it.
    xkb_context_set_log_level(context.get(), XKB_LOG_LEVEL_CRITICAL);
    const QByteArray layoutName = layout.layout.toUtf8();
    const QByteArray variantName = layout.variant.toUtf8();
    const QByteArray modelName = model.isEmpty() ? QByteArrayLiteral("pc105") : model.toUtf8();
    const QByteArray optionNames = options.toUtf8();
    const xkb_rule_names names { "evdev", modelName.constData(), layoutName.constData(), variantName.constData(),
        optionNames.constData() };
    std::unique_ptr<xkb_keymap, KeymapDeleter> keymap(
        xkb_keymap_new_from_names(context.get(), &names, XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!keymap)
        return nullptr;

    auto result = std::make_shared<KeyLegends>();
    result->m_layout = layout;
    for (auto it = legendKeys().cbegin(); it != legendKeys().cend(); ++it) {
        const xkb_keycode_t key = xkb_keycode_t(it.value() + xkbOffset);
        bool altGrDead = false;
        const QString altGr = textAtLevel(keymap.get(), key, 2, &altGrDead);
        result->m_legends.insert(it.key(),
            legendFor(textAtLevel(keymap.get(), key, 0), textAtLevel(keymap.get(), key, 1), altGr, altGrDead));
    }
    result->m_bindsKeyLeftOfZ = !textAtLevel(keymap.get(), keyLeftOfZ + xkbOffset, 0).isEmpty();
    return result;
}

std::shared_ptr<const KeyLegends> KeyLegends::printed()
{
    static const std::shared_ptr<const KeyLegends> legends = [] {
        auto result = std::make_shared<KeyLegends>();
        result->m_layout = XkbLayout { u"us"_s, {} };
        for (const KeyRow& row : keyboardLayout()) {
            for (const KeyDef& key : row) {
                if (hasLayoutLegend(key.keycode))
                    result->m_legends.insert(key.keycode, KeyLegend { key.label, key.secondaryLabel, std::nullopt });
            }
        }
        return result;
    }();
    return legends;
}

const KeyLegend* KeyLegends::legend(KeyCode code) const
{
    const auto it = m_legends.constFind(code);
    return it == m_legends.cend() ? nullptr : &it.value();
}
