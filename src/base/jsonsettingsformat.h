// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QSettings>

/**
 * A QSettings file format that keeps the settings as one JSON object (sorted keys, pretty-printed), so booleans,
 * numbers, strings and lists keep their types and the file stays readable when edited by hand.
 *
 * A file that does not parse is never overwritten: the write that QSettings attempts after a failed read is
 * refused, and QSettings reports FormatError so the owner can move the file aside.
 */
namespace JsonSettingsFormat {

/** Registers the format once per process and returns it. */
QSettings::Format format();

} // namespace JsonSettingsFormat
