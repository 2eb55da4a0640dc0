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
