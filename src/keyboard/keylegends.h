// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/keycode.h"
#include "input/xkblayout.h"

#include <QHash>
#include <QString>

#include <memory>
#include <optional>

/** What one cap shows for a layout: the main legend, the shifted one above it, the AltGr one small in a corner. */
struct KeyLegend
{
    QString label;
    std::optional<QString> secondaryLabel;
    std::optional<QString> altGrLabel;

    friend bool operator==(const KeyLegend&, const KeyLegend&) = default;
};

/**
 * The legends of the letter, digit and punctuation keys as one XKB layout types them, compiled from names with
 * libxkbcommon (no display needed):
 * - a letter shows its capital, like a printed keyboard; other keys show the unshifted character, with the shifted
 *   one as the secondary label when it is not just the capital;
 * - a character on the AltGr level is kept where it is not already on the key and is not a letter; on letter keys
 *   only ASCII and currency signs typed as they are (not dead keys) are kept, as printed keyboards do (@ and €
 *   rather than every extra letter);
 * - a dead key shows its accent.
 * Keys with words or symbols on them (modifiers, Return, arrows, F-keys) have no legend here.
 */
class KeyLegends
{
public:
    /**
     * Legends of `layout` under the XKB `model` (pc105 when empty) and `options`; none when the keymap cannot be
     * compiled.
     */
    static std::shared_ptr<const KeyLegends> compile(
        const XkbLayout& layout, const QString& model = {}, const QString& options = {});

    /** The legends of the US layout as printed on the picture, for "As Printed (US)" and plain US. */
    static std::shared_ptr<const KeyLegends> printed();

    /** The legend of the key with `code`, or nullptr for keys that keep what the table prints. */
    const KeyLegend* legend(KeyCode code) const;
    const QHash<KeyCode, KeyLegend>& legends() const { return m_legends; }

    const XkbLayout& layout() const { return m_layout; }
    /** Whether the keymap binds the key left of Z (KEY_102ND). */
    bool bindsKeyLeftOfZ() const { return m_bindsKeyLeftOfZ; }

    /** The text a keysym shows on a cap: its character, a dead key's accent; empty for anything else. */
    static QString keysymText(std::uint32_t keysym);
    /** Keys whose legends a layout decides: the letter, digit and punctuation keys. */
    static bool hasLayoutLegend(KeyCode code);

private:
    XkbLayout m_layout;
    QHash<KeyCode, KeyLegend> m_legends;
    bool m_bindsKeyLeftOfZ = false;
};
