// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/themesettings.h"

#include "theme/themejson.h"

QVariant SettingCodec<ThemeConfig>::encode(const ThemeConfig& value)
{
    return QString::fromUtf8(ThemeJson::encodeConfig(value));
}

std::optional<ThemeConfig> SettingCodec<ThemeConfig>::decode(const QVariant& stored)
{
    if (!SettingCodecs::isString(stored))
        return std::nullopt;
    return ThemeJson::decodeConfig(stored.toString().toUtf8());
}

QVariant SettingCodec<QList<NamedTheme>>::encode(const QList<NamedTheme>& value)
{
    QStringList texts;
    texts.reserve(value.size());
    for (const NamedTheme& theme : value)
        texts.append(QString::fromUtf8(ThemeJson::encodeNamedTheme(theme)));
    return texts;
}

std::optional<QList<NamedTheme>> SettingCodec<QList<NamedTheme>>::decode(const QVariant& stored)
{
    if (stored.typeId() != QMetaType::QVariantList && stored.typeId() != QMetaType::QStringList)
        return std::nullopt;
    const QVariantList elements = stored.toList();
    QList<NamedTheme> themes;
    themes.reserve(elements.size());
    for (const QVariant& element : elements) {
        if (!SettingCodecs::isString(element))
            continue;
        if (std::optional<NamedTheme> theme = ThemeJson::decodeNamedTheme(element.toString().toUtf8()))
            themes.append(std::move(*theme));
    }
    return themes;
}

namespace SettingKeys {

const SettingKey<ThemeConfig>& activeThemeConfig()
{
    static const SettingKey<ThemeConfig> key(QStringLiteral("activeThemeConfig"), defaultThemeConfig());
    return key;
}

const SettingKey<QString>& activeThemeName()
{
    static const SettingKey<QString> key(QStringLiteral("activeThemeName"), defaultThemeName());
    return key;
}

const SettingKey<QList<NamedTheme>>& savedThemes()
{
    static const SettingKey<QList<NamedTheme>> key(QStringLiteral("savedThemes"), builtInThemes());
    return key;
}

} // namespace SettingKeys
