// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/keycode.h"
#include "theme/themestyle.h"

#include <QRectF>

#include <array>
#include <functional>

class QPainter;
class ShadowCache;
class SymbolIcons;

/**
 * The laptop's trackpad below the keys: a surface in the key caps' colours, its click zones (left and right at the
 * bottom, middle between them), back and forward marks at its sides, and short pulses at its edges when the user
 * scrolls. Each part lights like a key, by a progress from 0 (at rest) to 1 (lit).
 *
 * The parts have key codes of their own, far above every real key, so that they animate with the keys.
 */
namespace TrackpadView {

enum class Part : quint8 { left, right, middle, back, forward, scrollUp, scrollDown, scrollLeft, scrollRight };
inline constexpr int partCount = 9;

/** The key code a part animates under. */
constexpr KeyCode keyCode(Part part)
{
    return KeyCode(0xF000 + int(part));
}
/** Whether `code` is one of the parts, and which. */
constexpr bool isPart(KeyCode code)
{
    return code >= 0xF000 && code < 0xF000 + partCount;
}
constexpr Part part(KeyCode code)
{
    return Part(code - 0xF000);
}
/** Scroll pulses light and fade by themselves; the other parts are held. */
constexpr bool isPulse(Part part)
{
    return part >= Part::scrollUp;
}

/** Size of the trackpad in units: a laptop's proportions, a little wider than the space bar. */
inline constexpr double widthUnits = 7.0;
inline constexpr double heightUnits = 4.2;
/** Room the trackpad adds below the keys: its height, a fifth of a unit and two spacings of chassis above it. */
inline constexpr double extraHeightUnits = heightUnits + 0.2;
inline constexpr double extraHeightSpacings = 2;

/** Where a part is drawn on a trackpad at `pad` (the scroll pulses: their capsules). */
QRectF partRect(const QRectF& pad, Part part, double unitSize);

/** Paints the trackpad at `pad`, each part lit by `progress(part)`. */
void paint(QPainter& painter, const QRectF& pad, const ThemeStyle& style, double unitSize,
    const std::function<double(Part)>& progress, SymbolIcons& symbols, ShadowCache& shadows);

/** The area the trackpad may paint into, its drop shadow included. */
QRectF paintedBounds(const QRectF& pad, const ThemeStyle& style);

} // namespace TrackpadView
