// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

/** Virtual key code of a physical key; the value looked up in the set of pressed keys. */
using KeyCode = std::uint16_t;
