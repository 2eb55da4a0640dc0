// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/themejson.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>

#include <cmath>

using namespace Qt::StringLiterals;

namespace ThemeJson {

namespace {

template <typename Record> struct NumberKey
{
    QLatin1StringView key;
    double Record::*field;
};

constexpr NumberKey<ShadowConfig> shadowNumbers[] = {
    { "radius"_L1, &ShadowConfig::radius },
    { "opacity"_L1, &ShadowConfig::opacity },
    { "hue"_L1, &ShadowConfig::hue },
    { "saturation"_L1, &ShadowConfig::saturation },
    { "brightness"_L1, &ShadowConfig::brightness },
    { "x"_L1, &ShadowConfig::x },
    { "y"_L1, &ShadowConfig::y },
};

constexpr NumberKey<ThemeConfig> configNumbers[] = {
    { "chassisHue"_L1, &ThemeConfig::chassisHue },
    { "chassisSaturation"_L1, &ThemeConfig::chassisSaturation },
    { "chassisBrightness"_L1, &ThemeConfig::chassisBrightness },
    { "chassisOpacity"_L1, &ThemeConfig::chassisOpacity },
    { "chassisBlur"_L1, &ThemeConfig::chassisBlur },
    { "chassisCornerRadius"_L1, &ThemeConfig::chassisCornerRadius },
    { "cornerKeyRadius"_L1, &ThemeConfig::cornerKeyRadius },
    { "keySpacing"_L1, &ThemeConfig::keySpacing },
    { "keycapHue"_L1, &ThemeConfig::keycapHue },
    { "keycapSaturation"_L1, &ThemeConfig::keycapSaturation },
    { "keycapBrightness"_L1, &ThemeConfig::keycapBrightness },
    { "keycapCornerRadius"_L1, &ThemeConfig::keycapCornerRadius },
    { "keycapBorderWidth"_L1, &ThemeConfig::keycapBorderWidth },
    { "pressedHue"_L1, &ThemeConfig::pressedHue },
    { "pressedSaturation"_L1, &ThemeConfig::pressedSaturation },
    { "pressedBrightness"_L1, &ThemeConfig::pressedBrightness },
    { "textHue"_L1, &ThemeConfig::textHue },
    { "textSaturation"_L1, &ThemeConfig::textSaturation },
    { "textBrightness"_L1, &ThemeConfig::textBrightness },
    { "textOpacity"_L1, &ThemeConfig::textOpacity },
};

constexpr auto enabledKey = "enabled"_L1;
constexpr auto dropShadowKey = "dropShadow"_L1;
constexpr auto innerShadowKey = "innerShadow"_L1;
constexpr auto idKey = "id"_L1;
constexpr auto nameKey = "name"_L1;
constexpr auto configKey = "config"_L1;

// Stored themes treat an explicit null like a missing key.
bool isAbsent(const QJsonValue& value)
{
    return value.isUndefined() || value.isNull();
}

// Overwrites `target` when the key holds a number, leaves it when the key is absent, and reports false for any
// other type. isDouble() covers every JSON number form (integers included) and nothing else.
template <typename Record> bool readNumbers(const QJsonObject& object, const auto& keys, Record& target)
{
    for (const NumberKey<Record>& number : keys) {
        const QJsonValue value = object.value(number.key);
        if (isAbsent(value)) {
            continue;
        }
        // The parser refuses overflowing literals already; the finiteness check keeps that true whatever produced
        // the object.
        if (!value.isDouble() || !std::isfinite(value.toDouble())) {
            return false;
        }
        target.*number.field = value.toDouble();
    }
    return true;
}

std::optional<QJsonValue> parse(const QByteArray& json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError) {
        return std::nullopt;
    }
    if (document.isArray()) {
        return document.array();
    }
    if (document.isObject()) {
        return document.object();
    }
    return std::nullopt;
}

bool isHexDigit(QChar c)
{
    return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}

} // namespace

QJsonObject toJson(const ShadowConfig& shadow)
{
    QJsonObject object;
    object.insert(enabledKey, shadow.enabled);
    for (const NumberKey<ShadowConfig>& number : shadowNumbers) {
        object.insert(number.key, shadow.*number.field);
    }
    return object;
}

QJsonObject toJson(const ThemeConfig& config)
{
    QJsonObject object;
    for (const NumberKey<ThemeConfig>& number : configNumbers) {
        object.insert(number.key, config.*number.field);
    }
    object.insert(dropShadowKey, toJson(config.dropShadow));
    object.insert(innerShadowKey, toJson(config.innerShadow));
    return object;
}

QJsonObject toJson(const NamedTheme& theme)
{
    QJsonObject object;
    object.insert(idKey, theme.id.toString(QUuid::WithoutBraces));
    object.insert(nameKey, theme.name);
    object.insert(configKey, toJson(theme.config));
    return object;
}

std::optional<ShadowConfig> shadowFromJson(const QJsonValue& value, const ShadowConfig& fallback)
{
    if (isAbsent(value)) {
        return fallback;
    }
    if (!value.isObject()) {
        return std::nullopt;
    }
    // A present shadow starts from nothing rather than from the fallback: enabled, every number 0.
    ShadowConfig shadow;
    const QJsonObject object = value.toObject();
    const QJsonValue enabled = object.value(enabledKey);
    if (!isAbsent(enabled)) {
        if (!enabled.isBool()) {
            return std::nullopt;
        }
        shadow.enabled = enabled.toBool();
    }
    if (!readNumbers(object, shadowNumbers, shadow)) {
        return std::nullopt;
    }
    return shadow;
}

std::optional<ThemeConfig> configFromJson(const QJsonValue& value)
{
    if (!value.isObject()) {
        return std::nullopt;
    }
    const QJsonObject object = value.toObject();
    const ThemeConfig fallback = ThemeConfig::fallback();
    ThemeConfig config = fallback;
    if (!readNumbers(object, configNumbers, config)) {
        return std::nullopt;
    }
    const std::optional<ShadowConfig> dropShadow = shadowFromJson(object.value(dropShadowKey), fallback.dropShadow);
    const std::optional<ShadowConfig> innerShadow = shadowFromJson(object.value(innerShadowKey), fallback.innerShadow);
    if (!dropShadow || !innerShadow) {
        return std::nullopt;
    }
    config.dropShadow = *dropShadow;
    config.innerShadow = *innerShadow;
    return config;
}

std::optional<NamedTheme> namedThemeFromJson(const QJsonValue& value)
{
    if (!value.isObject()) {
        return std::nullopt;
    }
    const QJsonObject object = value.toObject();
    const QJsonValue id = object.value(idKey);
    const QJsonValue name = object.value(nameKey);
    if (!id.isString() || !name.isString() || !isUuidText(id.toString())) {
        return std::nullopt;
    }
    // Unlike the keys inside it, the config itself is required: an absent one is not an object.
    const std::optional<ThemeConfig> config = configFromJson(object.value(configKey));
    if (!config) {
        return std::nullopt;
    }
    return NamedTheme { QUuid::fromString(id.toString()), name.toString(), *config };
}

QByteArray encodeConfig(const ThemeConfig& config)
{
    return QJsonDocument(toJson(config)).toJson(QJsonDocument::Compact);
}

QByteArray encodeNamedTheme(const NamedTheme& theme)
{
    return QJsonDocument(toJson(theme)).toJson(QJsonDocument::Compact);
}

std::optional<ThemeConfig> decodeConfig(const QByteArray& json)
{
    const std::optional<QJsonValue> value = parse(json);
    return value ? configFromJson(*value) : std::nullopt;
}

std::optional<NamedTheme> decodeNamedTheme(const QByteArray& json)
{
    const std::optional<QJsonValue> value = parse(json);
    return value ? namedThemeFromJson(*value) : std::nullopt;
}

QByteArray encodeDocument(const QList<NamedTheme>& themes)
{
    QJsonArray array;
    for (const NamedTheme& theme : themes) {
        array.append(toJson(NamedTheme { theme.id, theme.name, theme.config.rounded(3) }));
    }
    return QJsonDocument(array).toJson(QJsonDocument::Indented);
}

std::optional<QList<NamedTheme>> decodeDocument(const QByteArray& json)
{
    const std::optional<QJsonValue> value = parse(json);
    if (!value || !value->isArray()) {
        return std::nullopt;
    }
    const QJsonArray array = value->toArray();
    QList<NamedTheme> themes;
    themes.reserve(array.size());
    for (const QJsonValue& element : array) {
        std::optional<NamedTheme> theme = namedThemeFromJson(element);
        if (!theme) {
            return std::nullopt;
        }
        themes.append(std::move(*theme));
    }
    return themes;
}

bool isUuidText(QStringView text)
{
    if (text.size() != 36) {
        return false;
    }
    for (qsizetype i = 0; i < text.size(); ++i) {
        const bool hyphenPlace = i == 8 || i == 13 || i == 18 || i == 23;
        if (hyphenPlace ? text[i] != u'-' : !isHexDigit(text[i])) {
            return false;
        }
    }
    return true;
}

} // namespace ThemeJson
