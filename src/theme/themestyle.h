// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "theme/hsbcolor.h"
#include "theme/themeconfig.h"

/** Ready-to-draw values derived from a ThemeConfig. Lengths are points; a fresh style is at unit size 60. */
struct ThemeStyle
{
    HsbColor chassisBackground;
    double chassisBlur = 0;
    double chassisCornerRadius = 0;
    double cornerKeyRadius = 0;
    double cornerRadius = 0;
    HsbColor keyBackground;
    HsbColor keyPressedBackground;
    HsbColor keyBorder;
    HsbColor keyPressedBorder;
    HsbColor textColor;
    HsbColor pressedTextColor;
    double shadowRadius = 0;
    double shadowY = 0;
    double borderWidth = 0;
    double keySpacing = 0;
    bool innerShadow = false;
    bool gradient = false;
    ShadowConfig dropShadowConfig;
    ShadowConfig innerShadowConfig;

    ThemeStyle() = default;
    /** Derives the style at the reference unit size of 60 points. */
    explicit ThemeStyle(const ThemeConfig& config);

    friend bool operator==(const ThemeStyle&, const ThemeStyle&) = default;

    /** A copy with every length multiplied by unitSize / 60; colours, blur, flags and shadow colours unchanged. */
    ThemeStyle scaled(double unitSize) const;

    /** The brightness of the pressed-key label, pushed away from the pressed fill so it stays readable. */
    static double pressedTextBrightness(const ThemeConfig& config);
};
