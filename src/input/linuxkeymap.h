// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/modifierflags.h"
#include "base/keycode.h"

#include <cstdint>
#include <span>

/**
 * Translation from Linux input key codes (linux/input-event-codes.h; an X11 keycode is the Linux code + 8) to the
 * layout's virtual key codes. Keys are matched by physical position, never by the character they produce, so the
 * key the user touches is the one that lights whatever the keyboard layout.
 */
namespace LinuxKeymap {

/** Number of Linux key codes (KEY_CNT): every valid code is below it. */
inline constexpr int codeCount = 0x300;

enum class Kind : std::uint8_t
{
    /** Not on the drawn keyboard: ignored. */
    none,
    /** Reported by key down and key up. */
    ordinary,
    /** Reported through the modifier flags; `flags` holds its generic and side bits. */
    modifier,
    /** Caps Lock: reported on its own, its lock state is read separately. */
    capsLock,
    /** Volume, brightness and playback keys, shown on the F-key that carries their symbol. */
    media,
    /** A mouse or touchpad button (BTN_LEFT and so on); `keyCode` holds its PointerButton. */
    pointerButton,
};

struct Entry
{
    KeyCode keyCode = 0;
    Kind kind = Kind::none;
    ModifierFlags flags = 0;
};

/** The entry for `linuxCode`; a `none` entry for codes outside the table or out of range. Constant time. */
const Entry& lookup(int linuxCode);

/** The Linux codes of the modifier keys, for building the flags from the keys held. */
std::span<const std::uint16_t> modifierCodes();

} // namespace LinuxKeymap
