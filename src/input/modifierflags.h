// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

/**
 * Modifier-flag mask as reported with every key event: a generic bit per modifier plus a side bit telling which
 * physical key is down.
 */
using ModifierFlags = std::uint64_t;

namespace ModifierFlag {
inline constexpr ModifierFlags capsLock = 0x10000;
inline constexpr ModifierFlags shift = 0x20000;
inline constexpr ModifierFlags control = 0x40000;
inline constexpr ModifierFlags option = 0x80000;
inline constexpr ModifierFlags command = 0x100000;
inline constexpr ModifierFlags numericPad = 0x200000;
inline constexpr ModifierFlags help = 0x400000;
inline constexpr ModifierFlags function = 0x800000;

inline constexpr ModifierFlags leftControl = 0x1;
inline constexpr ModifierFlags leftShift = 0x2;
inline constexpr ModifierFlags rightShift = 0x4;
inline constexpr ModifierFlags leftCommand = 0x8;
inline constexpr ModifierFlags rightCommand = 0x10;
inline constexpr ModifierFlags leftOption = 0x20;
inline constexpr ModifierFlags rightOption = 0x40;
inline constexpr ModifierFlags rightControl = 0x2000;

/** The generic bits that mean "this modifier is held" (Caps Lock's is a lock bit, not a held bit). */
inline constexpr ModifierFlags heldModifiers = shift | control | option | command | function;
} // namespace ModifierFlag
