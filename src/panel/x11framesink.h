// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QImage>
#include <QPoint>

#include <memory>

class QWidget;

/**
 * Puts pictures straight into a top-level widget's X11 window: one PutImage request per picture on Qt's
 * connection, with no round trip to the server and no pass through the widget repaint and its backing store. The
 * backing store is left behind: whoever draws here must have the widget repainted over the same area later.
 *
 * Only for windows whose visual is 24- or 32-bit TrueColor in the byte order of QImage::Format_ARGB32_Premultiplied;
 * create() answers nullptr for any other, and off X11. Main thread only.
 */
class X11FrameSink
{
public:
    static std::unique_ptr<X11FrameSink> create(QWidget* window);
    ~X11FrameSink();
    X11FrameSink(const X11FrameSink&) = delete;
    X11FrameSink& operator=(const X11FrameSink&) = delete;

    /**
     * Sends `image` (Format_ARGB32_Premultiplied) to `topLeft`, both in the window's device pixels. False when the
     * window is no longer the one this was made for.
     */
    bool put(const QImage& image, QPoint topLeft);

private:
    struct Private;
    explicit X11FrameSink(std::unique_ptr<Private> d);
    std::unique_ptr<Private> d;
};
