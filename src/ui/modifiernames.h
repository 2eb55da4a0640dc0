// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/modifierflags.h"

#include <QString>

/**
 * The modifier keys a recorded HyperKey mask holds, as short names joined by ", " in the order lshift, rshift,
 * lctrl, rctrl, lalt, ralt, lcmd, rcmd, fn; e.g. "lshift, lctrl, lalt, lcmd". A generic modifier bit without
 * either of its side bits counts as the left key. A mask without any of these bits gives the empty text.
 */
QString modifierNames(ModifierFlags modifiers);
