// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QColor>

/**
 * A colour in hue, saturation, brightness (each 0..1) plus opacity, kept at full double precision.
 * Themes describe every colour this way; the painter converts with toQColor() at the last moment.
 */
struct HsbColor
{
    double hue = 0;
    double saturation = 0;
    double brightness = 0;
    double opacity = 1;

    friend bool operator==(const HsbColor&, const HsbColor&) = default;

    /** Qt's HSV colour; hue wraps into [0, 1), the other components are clamped to [0, 1]. */
    QColor toQColor() const;
};
