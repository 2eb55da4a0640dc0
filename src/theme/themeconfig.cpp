// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/themeconfig.h"

#include <QHashFunctions>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// -0.0 == 0.0, so equal values must hash alike; rounding small negatives produces -0.0 routinely.
double hashable(double v)
{
    return v == 0.0 ? 0.0 : v;
}

ShadowConfig roundedShadow(const ShadowConfig& shadow, int places)
{
    ShadowConfig result = shadow;
    for (double* v : { &result.radius, &result.opacity, &result.hue, &result.saturation, &result.brightness, &result.x,
             &result.y }) {
        *v = roundedToPlaces(*v, places);
    }
    return result;
}

} // namespace

double roundedToPlaces(double v, int places)
{
    const double p = std::pow(10.0, places);
    const double scaled = v * p;
    // From 2^52 on a double has no fraction left to round away at this scale. Scaling such a value could only do
    // harm: overflow to infinity (which JSON cannot hold, so an exported theme would lose the value) or cost it its
    // last bits (so that rounding again changed it again).
    if (!(std::abs(scaled) < 0x1p52))
        return v;
    return std::round(scaled) / p;
}

ThemeConfig ThemeConfig::rounded(int places) const
{
    ThemeConfig result = *this;
    for (double* v : { &result.chassisHue, &result.chassisSaturation, &result.chassisBrightness, &result.chassisOpacity,
             &result.chassisBlur, &result.chassisCornerRadius, &result.cornerKeyRadius, &result.keySpacing,
             &result.keycapHue, &result.keycapSaturation, &result.keycapBrightness, &result.keycapCornerRadius,
             &result.keycapBorderWidth, &result.pressedHue, &result.pressedSaturation, &result.pressedBrightness,
             &result.textHue, &result.textSaturation, &result.textBrightness, &result.textOpacity }) {
        *v = roundedToPlaces(*v, places);
    }
    result.dropShadow = roundedShadow(dropShadow, places);
    result.innerShadow = roundedShadow(innerShadow, places);
    return result;
}

ThemeConfig ThemeConfig::fallback()
{
    // What a stored theme that lacks a key reads as. This is its own table, not "Spacegray": changing the default
    // theme must not change how existing stored themes read.
    ThemeConfig config;
    config.chassisHue = 0.687;
    config.chassisSaturation = 0.022;
    config.chassisBrightness = 0.556;
    config.chassisOpacity = 0.6;
    config.chassisBlur = 0.72;
    config.chassisCornerRadius = 24.787;
    config.cornerKeyRadius = 12;
    config.keySpacing = 7;
    config.keycapHue = 0;
    config.keycapSaturation = 0;
    config.keycapBrightness = 0.093;
    config.keycapCornerRadius = 6;
    config.keycapBorderWidth = 0.5;
    config.pressedHue = 0.02;
    config.pressedSaturation = 0.623;
    config.pressedBrightness = 0.515;
    config.dropShadow = { .enabled = true, .radius = 4.689, .opacity = 1 };
    config.innerShadow = { .enabled = true };
    config.textHue = 0;
    config.textSaturation = 0;
    config.textBrightness = 0.871;
    config.textOpacity = 1;
    return config;
}

size_t qHash(const ShadowConfig& shadow, size_t seed) noexcept
{
    return qHashMulti(seed, shadow.enabled, hashable(shadow.radius), hashable(shadow.opacity), hashable(shadow.hue),
        hashable(shadow.saturation), hashable(shadow.brightness), hashable(shadow.x), hashable(shadow.y));
}

size_t qHash(const ThemeConfig& config, size_t seed) noexcept
{
    return qHashMulti(seed, hashable(config.chassisHue), hashable(config.chassisSaturation),
        hashable(config.chassisBrightness), hashable(config.chassisOpacity), hashable(config.chassisBlur),
        hashable(config.chassisCornerRadius), hashable(config.cornerKeyRadius), hashable(config.keySpacing),
        hashable(config.keycapHue), hashable(config.keycapSaturation), hashable(config.keycapBrightness),
        hashable(config.keycapCornerRadius), hashable(config.keycapBorderWidth), hashable(config.pressedHue),
        hashable(config.pressedSaturation), hashable(config.pressedBrightness), config.dropShadow, config.innerShadow,
        hashable(config.textHue), hashable(config.textSaturation), hashable(config.textBrightness),
        hashable(config.textOpacity));
}

size_t qHash(const NamedTheme& theme, size_t seed) noexcept
{
    return qHashMulti(seed, theme.id, theme.name, theme.config);
}

QString defaultThemeName()
{
    return u"Spacegray"_s;
}
