// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/hsbcolor.h"

#include <algorithm>
#include <cmath>

namespace {

// Theme values are never validated and arithmetic on them can overflow, yet a colour must still come out valid and
// without a Qt warning; non-finite components count as 0.
double finiteOrZero(double v)
{
    return std::isfinite(v) ? v : 0.0;
}

float unitClamped(double v)
{
    return float(std::clamp(finiteOrZero(v), 0.0, 1.0));
}

float wrappedHue(double v)
{
    const double turns = finiteOrZero(v);
    const float hue = float(turns - std::floor(turns));
    // QColor keeps hue in hundredths of a degree; a hue that rounds to a full turn (including the 1.0 that a
    // tiny negative hue wraps to) would be stored as 360 degrees instead of 0.
    return qRound(hue * 36000.0f) >= 36000 ? 0.0f : hue;
}

} // namespace

QColor HsbColor::toQColor() const
{
    return QColor::fromHsvF(wrappedHue(hue), unitClamped(saturation), unitClamped(brightness), unitClamped(opacity));
}
