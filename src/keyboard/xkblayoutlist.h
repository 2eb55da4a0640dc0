// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/xkblayout.h"

#include <QList>
#include <QString>

#include <optional>

class QIODevice;

/** A layout or variant as xkb-data describes it. */
struct XkbLayoutInfo
{
    XkbLayout name;
    /** "German (no dead keys)"; the name itself when the rules give no description. */
    QString description;

    friend bool operator==(const XkbLayoutInfo&, const XkbLayoutInfo&) = default;
};

/**
 * The keyboard layouts installed with xkb-data, read from its rules registry (evdev.xml under XKB_CONFIG_ROOT, or
 * /usr/share/X11/xkb). Layouts come with their variants, sorted by description.
 */
namespace XkbLayoutList {

/** Every layout and variant; read once, on first use. Empty when the registry is missing or unreadable. */
const QList<XkbLayoutInfo>& all();

/** The entry named `layout`, if the registry has it. */
std::optional<XkbLayoutInfo> find(const XkbLayout& layout);

/** Reads a registry document; entries with invalid names are skipped, a broken document gives what came before. */
QList<XkbLayoutInfo> parse(QIODevice& device);

/** Where the registry is read from. */
QString registryPath();

} // namespace XkbLayoutList
