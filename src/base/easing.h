// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QEasingCurve>

/** The standard cubic timing curves, as desktop toolkits define them. */
namespace Easing {

/** Control points (0.42, 0) and (1, 1). */
const QEasingCurve& easeIn();
/** Control points (0, 0) and (0.58, 1). */
const QEasingCurve& easeOut();
/** Control points (0.42, 0) and (0.58, 1). */
const QEasingCurve& easeInOut();

} // namespace Easing
