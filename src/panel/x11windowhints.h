// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QList>
#include <QRect>

class QPainterPath;
class QWindow;

/**
 * The X11 window properties the keyboard panel needs beyond what Qt sets. Every function does nothing (or answers
 * false) when the application does not run on Qt's xcb platform. Main thread only.
 */
namespace X11WindowHints {

/**
 * Keeps `window` out of task bars and pagers and puts it on every virtual desktop. Call it before each show: Qt
 * keeps these states when it maps the window, and window managers drop them when it is withdrawn.
 */
void prepareOverlay(QWindow* window);

/**
 * Gives `window` back the default input shape, which follows its size. WORKAROUND: Qt's xcb platform (6.4 and
 * later, QXcbWindow::setTransparentForMouseEvents) ends click-through by setting the input shape to a rectangle of
 * the window's size at that moment, so a window made larger afterwards lets clicks through outside it.
 */
void resetInputShape(QWindow* window);

/**
 * Whether see-through pixels of a window show what lies behind it: on X11 only while a compositing manager runs;
 * always true elsewhere.
 */
bool isCompositing();

/** Whether a running compositor offers to blur what lies behind a window (KWin's blur-behind). */
bool blurBehindAvailable();

/**
 * Asks the compositor to blur what lies behind `shape`, given in the window's logical coordinates; an empty shape
 * withdraws the request.
 */
void setBlurBehind(QWindow* window, const QPainterPath& shape);

/** Rectangles covering `shape` scaled to device pixels, as a blur request lists them. */
QList<QRect> blurRegion(const QPainterPath& shape, qreal devicePixelRatio);

} // namespace X11WindowHints
