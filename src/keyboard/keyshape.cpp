// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/keyshape.h"

#include <algorithm>

QPainterPath keyShapePath(const QRectF& rect, const CornerRadii& radii)
{
    QPainterPath path;
    if (rect.isEmpty())
        return path;
    const double limit = std::min(rect.width(), rect.height()) / 2.0;
    const auto clamp = [limit](double r) { return std::clamp(r, 0.0, limit); };
    const double tl = clamp(radii.topLeft);
    const double tr = clamp(radii.topRight);
    const double br = clamp(radii.bottomRight);
    const double bl = clamp(radii.bottomLeft);
    const double l = rect.left(), t = rect.top(), r = rect.right(), b = rect.bottom();

    path.moveTo(l + tl, t);
    path.lineTo(r - tr, t);
    if (tr > 0)
        path.arcTo(QRectF(r - 2 * tr, t, 2 * tr, 2 * tr), 90, -90);
    path.lineTo(r, b - br);
    if (br > 0)
        path.arcTo(QRectF(r - 2 * br, b - 2 * br, 2 * br, 2 * br), 0, -90);
    path.lineTo(l + bl, b);
    if (bl > 0)
        path.arcTo(QRectF(l, b - 2 * bl, 2 * bl, 2 * bl), 270, -90);
    path.lineTo(l, t + tl);
    if (tl > 0)
        path.arcTo(QRectF(l, t, 2 * tl, 2 * tl), 180, -90);
    path.closeSubpath();
    return path;
}

QPainterPath keyShapePath(const QRectF& rect, const CornerRadii& radii, const QSizeF& notch)
{
    if (rect.isEmpty() || !(notch.width() > 0) || !(notch.height() > 0) || notch.width() >= rect.width()
        || notch.height() >= rect.height())
        return keyShapePath(rect, radii);
    const double l = rect.left(), t = rect.top(), r = rect.right(), b = rect.bottom();
    const double nx = l + notch.width(); // left edge of the lower part
    const double ny = b - notch.height(); // bottom edge of the upper part
    // The upper bar is the full width; the lower part hangs from it on the right.
    const double limit = std::min({ rect.width(), ny - t, r - nx, rect.height() }) / 2.0;
    const auto clamp = [limit](double radius) { return std::clamp(radius, 0.0, limit); };
    const double tl = clamp(radii.topLeft);
    const double tr = clamp(radii.topRight);
    const double br = clamp(radii.bottomRight);
    const double bl = clamp(radii.bottomLeft);
    const double inside = std::min({ bl, notch.width() / 2, notch.height() / 2 });

    QPainterPath path;
    path.moveTo(l + tl, t);
    path.lineTo(r - tr, t);
    if (tr > 0)
        path.arcTo(QRectF(r - 2 * tr, t, 2 * tr, 2 * tr), 90, -90);
    path.lineTo(r, b - br);
    if (br > 0)
        path.arcTo(QRectF(r - 2 * br, b - 2 * br, 2 * br, 2 * br), 0, -90);
    path.lineTo(nx + bl, b);
    if (bl > 0)
        path.arcTo(QRectF(nx, b - 2 * bl, 2 * bl, 2 * bl), 270, -90);
    path.lineTo(nx, ny + inside);
    if (inside > 0)
        path.arcTo(QRectF(nx - 2 * inside, ny, 2 * inside, 2 * inside), 0, 90);
    path.lineTo(l + bl, ny);
    if (bl > 0)
        path.arcTo(QRectF(l, ny - 2 * bl, 2 * bl, 2 * bl), 270, -90);
    path.lineTo(l, t + tl);
    if (tl > 0)
        path.arcTo(QRectF(l, t, 2 * tl, 2 * tl), 180, -90);
    path.closeSubpath();
    return path;
}
