// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "keyboard/symbolicons.h"

#include <QColor>
#include <QFont>
#include <QPixmap>

class QPalette;
class QScrollArea;
class QVBoxLayout;
class QWidget;

/**
 * The colours, fonts and symbol images the settings window shares, all derived from the widget's palette so that
 * light and dark desktop themes both work. Sizes are device-independent pixels.
 */
namespace SettingsStyle {

/** The accent tint: the palette's highlight colour. */
QColor accent(const QPalette& palette);
/** Body text. */
QColor primaryText(const QPalette& palette);
/** Less important text (a version number, an icon beside a button): the text colour at 60 % opacity. */
QColor secondaryText(const QPalette& palette);
/** Faint text and glyphs (explanations, the disclosure chevron): the text colour at 45 % opacity. */
QColor tertiaryText(const QPalette& palette);
/** The orange of a control that is waiting for input. */
QColor attention(const QPalette& palette);
/** Whether the palette is a dark one (light text on a dark window). */
bool isDark(const QPalette& palette);

/** The translucent fill of a section card, a little lighter than the window in both light and dark palettes. */
QColor materialFill(const QPalette& palette);
/** White at `opacity`, for the hairline around cards and tracks. */
QColor whiteLine(double opacity);

/** The widget's font at `pixelSize` and `weight`. */
QFont font(const QWidget* widget, double pixelSize, QFont::Weight weight = QFont::Normal);
/** A font whose digits all have the same width, for numbers that change while one watches them. */
QFont monospacedDigits(double pixelSize);

/**
 * The symbol `name` tinted `colour`, in a square pixmap of SymbolIcons::boxSide(pointSize) pixels at the widget's
 * device pixel ratio. Null for unknown names.
 */
QPixmap symbol(const QWidget* widget, const QString& name, double pointSize, SymbolWeight weight, const QColor& colour);

/**
 * Makes `area` a settings tab: no frame, scrolling only vertically, and an empty page of sections with the tab's
 * margins and gaps. Returns the page's layout; add the sections, then finishSettingsPage().
 */
QVBoxLayout* startSettingsPage(QScrollArea* area);
/** Puts the page in its area, with the room left below the sections, and keeps the tab as wide as the page. */
void finishSettingsPage(QScrollArea* area, QVBoxLayout* layout);

} // namespace SettingsStyle
