// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QList>
#include <QString>
#include <QUuid>

#include <cstddef>

/** One shadow of a key cap. Lengths are points at the reference unit size of 60. */
struct ShadowConfig
{
    bool enabled = true;
    double radius = 0;
    double opacity = 0;
    double hue = 0;
    double saturation = 0;
    double brightness = 0;
    double x = 0;
    double y = 0;

    friend bool operator==(const ShadowConfig&, const ShadowConfig&) = default;
};

/**
 * Every appearance parameter of the keyboard. Colours are HSB fractions, opacities 0..1, lengths in points at
 * the reference unit size of 60. Values are never clamped or validated here.
 */
struct ThemeConfig
{
    double chassisHue = 0;
    double chassisSaturation = 0;
    double chassisBrightness = 0;
    double chassisOpacity = 0;
    double chassisBlur = 0;
    double chassisCornerRadius = 0;
    double cornerKeyRadius = 0;
    double keySpacing = 0;
    double keycapHue = 0;
    double keycapSaturation = 0;
    double keycapBrightness = 0;
    double keycapCornerRadius = 0;
    double keycapBorderWidth = 0;
    double pressedHue = 0;
    double pressedSaturation = 0;
    double pressedBrightness = 0;
    ShadowConfig dropShadow;
    ShadowConfig innerShadow;
    double textHue = 0;
    double textSaturation = 0;
    double textBrightness = 0;
    double textOpacity = 0;

    friend bool operator==(const ThemeConfig&, const ThemeConfig&) = default;

    /** A copy with every number (shadows included) rounded to `places` decimals, halfway cases away from zero. */
    ThemeConfig rounded(int places) const;

    /** The values a decoder uses for keys missing from a stored theme (not the default theme). */
    static ThemeConfig fallback();
};

/** One entry of the saved-theme list; entries are identified by `id`. */
struct NamedTheme
{
    QUuid id;
    QString name;
    ThemeConfig config;

    friend bool operator==(const NamedTheme&, const NamedTheme&) = default;
};

/** Hashes over every field; 0.0 and -0.0 hash alike. */
size_t qHash(const ShadowConfig& shadow, size_t seed = 0) noexcept;
size_t qHash(const ThemeConfig& config, size_t seed = 0) noexcept;
size_t qHash(const NamedTheme& theme, size_t seed = 0) noexcept;

/**
 * Rounds v to `places` decimals: round(v * 10^places) / 10^places, halfway cases away from zero. Values that have no
 * fraction at that scale (v * 10^places beyond 2^52) come back unchanged.
 */
double roundedToPlaces(double v, int places);

/** The fourteen built-in themes, built once per run with fresh random ids; "Spacegray" first. */
const QList<NamedTheme>& builtInThemes();

/** The configuration used until the user chooses one: that of "Spacegray". */
const ThemeConfig& defaultThemeConfig();

/** The name of the default theme, "Spacegray". */
QString defaultThemeName();
