// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "keyboard/keyshape.h"

#include <QColor>
#include <QImage>
#include <QPointF>
#include <QSizeF>
#include <QtGlobal>

#include <memory>

/**
 * How the inner shadow of a key is made: the key's outline at rest size is stroked `strokeWidth` wide in
 * `strokeColour`; the stroke casts a shadow of `blurRadius` moved by `offset` in `colour`; stroke and shadow are then
 * scaled about the key's centre by (`scaleX`, `scaleY`) and clipped to the key. Lengths are points.
 */
struct InnerShadowSpec
{
    double blurRadius = 0;
    QPointF offset;
    QColor colour;
    QColor strokeColour = Qt::transparent;
    double strokeWidth = 8;
    double scaleX = 1.6;
    double scaleY = 1.6;

    friend bool operator==(const InnerShadowSpec&, const InnerShadowSpec&) = default;
};

/**
 * Ready-made, blurred key shadows, so that repainting a key only blits images.
 *
 * Pieces are kept by their key's size in device pixels (to a quarter pixel), corner radii, shadow parameters and
 * device pixel ratio, in a cache bounded by bytes; asking again for the same piece is one hash lookup. The blurred
 * shape behind a piece is kept apart from its colour, so a colour change only tints it again.
 *
 * A blur radius is the toolkit's shadow radius: a Gaussian with sigma = radius / 2. NaN or negative lengths count
 * as 0 and infinite ones are capped; the blur stops at a sigma of 200 device pixels.
 *
 * A cache is not thread-safe: use it from one thread (each scene keeps its own, on the GUI thread). gaussianBlur()
 * may run on any thread.
 */
class ShadowCache
{
    Q_DISABLE_COPY_MOVE(ShadowCache)

public:
    /** `image` has its devicePixelRatio set; draw it at the key rectangle's top left + `offset` (logical pixels). */
    struct Piece
    {
        QImage image;
        QPointF offset;

        bool isNull() const { return image.isNull(); }
    };


    explicit ShadowCache(qint64 maxBytes = 32 * 1024 * 1024);
    ~ShadowCache();

    /**
     * The drop shadow of a key of `keySize`: the key's shape inset by 1 point, moved by `shadowOffset` and blurred
     * by `blurRadius`, in `colour`. `offset` of the piece includes the blur margin and `shadowOffset`. The caller
     * paints the key face over it. Null for a transparent colour or a key too small to have an inset. A non-empty
     * `notch` cuts the key's bottom-left corner out (see keyShapePath).
     */
    Piece dropShadow(const QSizeF& keySize, const CornerRadii& radii, double blurRadius, const QPointF& shadowOffset,
        const QColor& colour, qreal devicePixelRatio, const QSizeF& notch = {});

    /**
     * The inner shadow of a key of `keySize`: exactly the key's size (offset 0, 0; rounded up to whole device
     * pixels), already clipped to the key's shape. Null when nothing would show.
     */
    Piece innerShadow(const QSizeF& keySize, const CornerRadii& radii, const InnerShadowSpec& shadow,
        qreal devicePixelRatio, const QSizeF& notch = {});

    /**
     * Gaussian blur of `image` in place, `sigma` in device pixels; pixels beyond the edges count as transparent.
     * All four channels of an ARGB32_Premultiplied image are blurred alike, so a tinted shape keeps its colour. An
     * Alpha8 image is blurred as it is; any other format is converted to ARGB32_Premultiplied first.
     */
    static void gaussianBlur(QImage& image, double sigma);

private:
    struct Private;
    std::unique_ptr<Private> d;
};
