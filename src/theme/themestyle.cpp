// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/themestyle.h"

#include <algorithm>

namespace {

constexpr double referenceUnitSize = 60;

// Perceived lightness of an HSB colour, roughly: saturated colours read darker than their brightness suggests.
double luma(double brightness, double saturation)
{
    return brightness * (1 - saturation * 0.5);
}

ShadowConfig scaledShadow(ShadowConfig shadow, double factor)
{
    shadow.radius *= factor;
    shadow.x *= factor;
    shadow.y *= factor;
    return shadow;
}

} // namespace

ThemeStyle::ThemeStyle(const ThemeConfig& config)
    : chassisBackground { config.chassisHue, config.chassisSaturation, config.chassisBrightness, config.chassisOpacity }
    , chassisBlur(config.chassisBlur)
    , chassisCornerRadius(config.chassisCornerRadius)
    , cornerKeyRadius(config.cornerKeyRadius)
    , cornerRadius(config.keycapCornerRadius)
    , keyBackground { config.keycapHue, config.keycapSaturation, config.keycapBrightness, 1 }
    , keyPressedBackground { config.pressedHue, config.pressedSaturation, config.pressedBrightness, 1 }
    // The borders are a touch lighter than their fills; they are the only values clamped, and only from above.
    , keyBorder { config.keycapHue, config.keycapSaturation, std::min(config.keycapBrightness + 0.08, 1.0), 1 }
    , keyPressedBorder { config.pressedHue, config.pressedSaturation, std::min(config.pressedBrightness + 0.1, 1.0), 1 }
    , textColor { config.textHue, config.textSaturation, config.textBrightness, config.textOpacity }
    , pressedTextColor { config.textHue, config.textSaturation, pressedTextBrightness(config), config.textOpacity }
    , shadowRadius(config.dropShadow.radius)
    , shadowY(config.dropShadow.y)
    , borderWidth(config.keycapBorderWidth)
    , keySpacing(config.keySpacing)
    // A zero radius draws nothing, so it counts as off even when enabled.
    , innerShadow(config.innerShadow.enabled && config.innerShadow.radius > 0)
    , gradient(false)
    , dropShadowConfig(config.dropShadow)
    , innerShadowConfig(config.innerShadow)
{
}

ThemeStyle ThemeStyle::scaled(double unitSize) const
{
    const double factor = unitSize / referenceUnitSize;
    ThemeStyle result = *this;
    result.chassisCornerRadius *= factor;
    result.cornerKeyRadius *= factor;
    result.cornerRadius *= factor;
    result.shadowRadius *= factor;
    result.shadowY *= factor;
    result.borderWidth *= factor;
    result.keySpacing *= factor;
    result.dropShadowConfig = scaledShadow(dropShadowConfig, factor);
    result.innerShadowConfig = scaledShadow(innerShadowConfig, factor);
    return result;
}

double ThemeStyle::pressedTextBrightness(const ThemeConfig& config)
{
    const double pressedLuma = luma(config.pressedBrightness, config.pressedSaturation);
    const double textLuma = luma(config.textBrightness, config.textSaturation);
    // Light label on a light fill: darken it.
    if (pressedLuma > 0.55 && textLuma > 0.4) {
        return std::max(config.textBrightness - 0.6, 0.0);
    }
    // Dark label on a dark fill needs a big push; anything else only a small lift.
    const double lift = pressedLuma < 0.35 && textLuma < 0.5 ? 0.8 : 0.15;
    return std::min(config.textBrightness + lift, 1.0);
}
