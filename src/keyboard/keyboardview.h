// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "keyboard/keyboardlayout.h"
#include "theme/themeconfig.h"
#include "theme/themestyle.h"

#include <QList>
#include <QRectF>
#include <QSizeF>

#include <array>
#include <optional>

/** Which outer corner of the whole keyboard, if any, a key cap carries (it takes the corner-key radius there). */
enum class CornerKeyPosition { none, topLeft, topRight, bottomLeft, bottomRight };

/** Where one key sits and how it is drawn. */
struct KeyPlacement
{
    /** Points into the layout table, which lives for the whole process. */
    const KeyDef* key = nullptr;
    /** The cap at rest, in the coordinates of the rectangle the keyboard was laid out in. */
    QRectF rect;
    int row = 0;
    bool isFunctionRow = false;
    bool isArrow = false;
    CornerKeyPosition corner = CornerKeyPosition::none;
    /** Cut out of the bottom-left corner of `rect` (the tall ISO Return); empty for every other key. */
    QSizeF notch;
};

/**
 * The arrow keys as an inverted T exactly filling 3 units plus 2 spacings by one key height: four half-height keys,
 * the vertical gap between them capped at 3 points.
 */
namespace ArrowClusterView {

/** Up to 3 points: the spacing of `style`, capped. */
double verticalGap(const ThemeStyle& style);
/** Width of the cluster: 3 units and 2 spacings. */
double width(const ThemeStyle& style, double unitSize);
/** Rectangles of up, left, down and right, in that order, for a cluster whose top-left corner is `origin`. */
std::array<QRectF, 4> layout(QPointF origin, const ThemeStyle& style, double unitSize, double keyHeight);

} // namespace ArrowClusterView

/**
 * The keyboard laid out in a rectangle: one unit size derived from the offered size and the theme's spacing, the
 * six rows of the board (the layout table, or its ISO shape) stacked with one spacing between rows and keys, the arrow cluster after the bottom
 * row, everything centred so that slack is shared equally on both sides.
 *
 * A plain value: build one whenever the size or the theme changes.
 */
class KeyboardView
{
public:
    /** Height of a key in units. */
    static constexpr double keyHeightUnits = 0.92;
    /** Six rows of keys in units: 6 × 0.92 as a double, one step above the double nearest to 5.52. */
    static constexpr double rowsHeightUnits = 6 * keyHeightUnits;
    /** Every row spans 14.5 units plus 13.5 spacings. */
    static constexpr double rowWidthUnits = 14.5;
    static constexpr double rowWidthSpacings = 13.5;
    static constexpr double rowsHeightSpacings = 5;

    /**
     * Lays the keyboard out in `rect` for `config`. With `overrideUnitSize` that unit is used instead of the one
     * computed from the rectangle; with `overrideStyle` that style is used unchanged (not scaled), its spacing
     * driving the stacks even when it disagrees with the one the unit size came from.
     */
    KeyboardView(const ThemeConfig& config, const QRectF& rect, std::optional<double> overrideUnitSize = std::nullopt,
        std::optional<ThemeStyle> overrideStyle = std::nullopt, const KeyBoard& board = *KeyBoard::printed());

    /** Largest unit size at which a keyboard with spacing `keySpacing` (at unit 60) fits in `size`. */
    static double computedUnitSize(const QSizeF& size, double keySpacing);
    /** Which corner of the keyboard the key at `row` (of `rowCount`) carries. */
    static CornerKeyPosition cornerPosition(int row, int rowCount, const KeyDef& key);
    /** Width of a key of `widthMultiplier` units: it absorbs the spacings it spans. */
    static double keyWidth(double widthMultiplier, double unitSize, double keySpacing);

    double unitSize() const { return m_unitSize; }
    /** The style the keys are drawn with (scaled to the unit size unless overridden). */
    const ThemeStyle& style() const { return m_style; }
    /** Every key of the board in row order, then up, left, down and right arrow. The board must outlive the view. */
    const QList<KeyPlacement>& keys() const { return m_keys; }
    /** The placement of the key with `code`, or nullptr. */
    const KeyPlacement* placement(KeyCode code) const;

private:
    double m_unitSize = 0;
    ThemeStyle m_style;
    QList<KeyPlacement> m_keys;
};
