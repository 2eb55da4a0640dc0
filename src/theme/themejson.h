// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "theme/themeconfig.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>

#include <optional>

/**
 * JSON form of the theme records. Every key is always written, objects with sorted keys.
 *
 * Reading: every ThemeConfig key is optional (absent or null takes the fallback value, a missing shadow object
 * the whole fallback shadow, a missing key inside a present shadow 0, or true for "enabled"); a present key of the
 * wrong JSON type makes the whole input unreadable. A NamedTheme needs "id" (8-4-4-4-12 UUID text), "name" and
 * "config". Decoding failure has a single form: std::nullopt.
 */
namespace ThemeJson {

QJsonObject toJson(const ShadowConfig& shadow);
QJsonObject toJson(const ThemeConfig& config);
QJsonObject toJson(const NamedTheme& theme);

/** `fallback` is used when the shadow object is absent from its ThemeConfig. */
std::optional<ShadowConfig> shadowFromJson(const QJsonValue& value, const ShadowConfig& fallback);
std::optional<ThemeConfig> configFromJson(const QJsonValue& value);
std::optional<NamedTheme> namedThemeFromJson(const QJsonValue& value);

/** Compact single-line JSON text with sorted keys, full precision: the settings-store form. */
QByteArray encodeConfig(const ThemeConfig& config);
QByteArray encodeNamedTheme(const NamedTheme& theme);
std::optional<ThemeConfig> decodeConfig(const QByteArray& json);
std::optional<NamedTheme> decodeNamedTheme(const QByteArray& json);

/**
 * A theme document: a pretty-printed JSON array of NamedTheme, UTF-8, every config rounded to 3 decimals.
 * The themes passed in are not changed.
 */
QByteArray encodeDocument(const QList<NamedTheme>& themes);

/** Reads a theme document; a bare object, or any unreadable element, makes the whole document unreadable. */
std::optional<QList<NamedTheme>> decodeDocument(const QByteArray& json);

/** True for UUID text of the form 8-4-4-4-12 hexadecimal digits (either letter case, no braces). */
bool isUuidText(QStringView text);

} // namespace ThemeJson
