// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "keyboard/keyboardlayout.h"

#include <QString>
#include <QStringList>
#include <QStringView>

#include <optional>

/**
 * Names for the keys of the drawn keyboard, as typed on the command line: X keysym names in lower case ("a",
 * "f5", "shift_l", "bracketleft", "return") and a few friendly aliases ("cmd_l", "option_r", "ctrl", "esc").
 * Unsided aliases ("shift", "ctrl", "command", "option", "alt") stand for the left key.
 *
 * Every key of the board and the arrows has exactly one canonical name, except the Touch ID key, which is never
 * lit. Lookups ignore letter case.
 */
namespace KeyNames {

/** The key `name` stands for, canonical name or alias; none for a name of no key. */
std::optional<KeyCode> keyCode(QStringView name);

/** The canonical name of the key with `code`; empty for a code no named key has. */
QString name(KeyCode code);

/** Every canonical name, in board order with the arrows last. */
QStringList canonicalNames();

/** Every alias, in a fixed order. */
QStringList aliases();

} // namespace KeyNames
