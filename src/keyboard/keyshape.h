// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QPainterPath>
#include <QRectF>
#include <QSizeF>

/** Radii of the four corners of a key shape, in points. */
struct CornerRadii
{
    double topLeft = 0;
    double topRight = 0;
    double bottomRight = 0;
    double bottomLeft = 0;

    static constexpr CornerRadii uniform(double radius) { return { radius, radius, radius, radius }; }

    friend bool operator==(const CornerRadii&, const CornerRadii&) = default;
};

/**
 * A rounded rectangle with its own radius per corner. Each radius is limited to half the shorter side, so a shape
 * never folds over itself however small the rectangle gets.
 */
QPainterPath keyShapePath(const QRectF& rect, const CornerRadii& radii);

/**
 * The same with `notch` cut out of the bottom-left corner: an L turned upside down, like the tall Return of an ISO
 * keyboard. The bottom-left radius rounds both outer corners there and the inside corner of the cut. An empty
 * notch, or one that would leave nothing of the shape, gives the plain rectangle.
 */
QPainterPath keyShapePath(const QRectF& rect, const CornerRadii& radii, const QSizeF& notch);
