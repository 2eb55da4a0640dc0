// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/settingsstore.h"
#include "theme/themeconfig.h"

/** How themes are kept in the settings file, and the settings that hold them. */
template<>
struct SettingCodec<ThemeConfig>
{
    /** Compact JSON text with sorted keys, full precision. */
    static QVariant encode(const ThemeConfig& value);
    static std::optional<ThemeConfig> decode(const QVariant& stored);
};

template<>
struct SettingCodec<QList<NamedTheme>>
{
    /** A list of strings, each the compact JSON text of one theme. */
    static QVariant encode(const QList<NamedTheme>& value);
    /** Anything but a list gives no value; inside a list, elements that do not decode are skipped. */
    static std::optional<QList<NamedTheme>> decode(const QVariant& stored);
};

namespace SettingKeys {

/** The theme being shown (need not equal any saved theme). */
const SettingKey<ThemeConfig>& activeThemeConfig();
const SettingKey<QString>& activeThemeName();
/** The user's theme library; starts as the built-in themes. */
const SettingKey<QList<NamedTheme>>& savedThemes();

} // namespace SettingKeys
