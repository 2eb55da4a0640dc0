// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/easing.h"

#include <QPointF>

namespace {

QEasingCurve cubic(QPointF c1, QPointF c2)
{
    QEasingCurve curve(QEasingCurve::BezierSpline);
    curve.addCubicBezierSegment(c1, c2, QPointF(1, 1));
    return curve;
}

} // namespace

namespace Easing {

const QEasingCurve& easeIn()
{
    static const QEasingCurve curve = cubic(QPointF(0.42, 0), QPointF(1, 1));
    return curve;
}

const QEasingCurve& easeOut()
{
    static const QEasingCurve curve = cubic(QPointF(0, 0), QPointF(0.58, 1));
    return curve;
}

const QEasingCurve& easeInOut()
{
    static const QEasingCurve curve = cubic(QPointF(0.42, 0), QPointF(0.58, 1));
    return curve;
}

} // namespace Easing
