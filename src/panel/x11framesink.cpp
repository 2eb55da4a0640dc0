// SPDX-License-Identifier: GPL-3.0-or-later
#include "panel/x11framesink.h"

#include <QGuiApplication>
#include <QWidget>

#include <algorithm>
#include <cstdlib>

#include <xcb/xcb.h>

using namespace Qt::StringLiterals;

struct X11FrameSink::Private
{
    xcb_connection_t* c = nullptr;
    xcb_window_t window = 0;
    xcb_gcontext_t gc = 0;
    std::uint8_t depth = 0;
    // Largest image payload of one request, in bytes.
    std::size_t maxBytes = 0;
    const QWidget* widget = nullptr;
};

namespace {

xcb_connection_t* qtConnection()
{
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->connection() : nullptr;
}

/** The visual `id` in the server's list, with the depth it belongs to. */
const xcb_visualtype_t* findVisual(xcb_connection_t* c, xcb_visualid_t id, std::uint8_t* depth)
{
    for (auto screens = xcb_setup_roots_iterator(xcb_get_setup(c)); screens.rem > 0; xcb_screen_next(&screens)) {
        for (auto depths = xcb_screen_allowed_depths_iterator(screens.data); depths.rem > 0; xcb_depth_next(&depths)) {
            for (auto visuals = xcb_depth_visuals_iterator(depths.data); visuals.rem > 0;
                 xcb_visualtype_next(&visuals)) {
                if (visuals.data->visual_id == id) {
                    *depth = depths.data->depth;
                    return visuals.data;
                }
            }
        }
    }
    return nullptr;
}

/** Whether ZPixmap images of `depth` are 32 bits a pixel, rows padded to 32 bits: QImage's own layout. */
bool pixmapFormatFits(xcb_connection_t* c, std::uint8_t depth)
{
    const xcb_setup_t* setup = xcb_get_setup(c);
    if (setup->image_byte_order
        != (QSysInfo::ByteOrder == QSysInfo::LittleEndian ? XCB_IMAGE_ORDER_LSB_FIRST : XCB_IMAGE_ORDER_MSB_FIRST))
        return false;
    for (auto formats = xcb_setup_pixmap_formats_iterator(setup); formats.rem > 0; xcb_format_next(&formats)) {
        if (formats.data->depth == depth)
            return formats.data->bits_per_pixel == 32 && formats.data->scanline_pad == 32;
    }
    return false;
}

} // namespace

X11FrameSink::X11FrameSink(std::unique_ptr<Private> data)
    : d(std::move(data))
{
}

X11FrameSink::~X11FrameSink()
{
    // The connection goes with the application; after it, there is nothing left to free.
    if (qtConnection() == d->c)
        xcb_free_gc(d->c, d->gc);
}

std::unique_ptr<X11FrameSink> X11FrameSink::create(QWidget* window)
{
    if (!window || QGuiApplication::platformName() != u"xcb"_s || !window->testAttribute(Qt::WA_WState_Created))
        return nullptr;
    xcb_connection_t* c = qtConnection();
    if (!c)
        return nullptr;
    const auto id = xcb_window_t(window->winId());
    xcb_get_window_attributes_reply_t* attributes
        = xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, id), nullptr);
    if (!attributes)
        return nullptr;
    std::uint8_t depth = 0;
    const xcb_visualtype_t* visual = findVisual(c, attributes->visual, &depth);
    std::free(attributes);
    if (!visual || visual->_class != XCB_VISUAL_CLASS_TRUE_COLOR || visual->red_mask != 0xff0000
        || visual->green_mask != 0xff00 || visual->blue_mask != 0xff || (depth != 24 && depth != 32)
        || !pixmapFormatFits(c, depth))
        return nullptr;

    auto d = std::make_unique<Private>();
    d->c = c;
    d->window = id;
    d->depth = depth;
    d->widget = window;
    // The request's own fields take 24 bytes.
    d->maxBytes = std::size_t(xcb_get_maximum_request_length(c)) * 4 - 24;
    d->gc = xcb_generate_id(c);
    const std::uint32_t noExposures = 0;
    xcb_create_gc(c, d->gc, id, XCB_GC_GRAPHICS_EXPOSURES, &noExposures);
    return std::unique_ptr<X11FrameSink>(new X11FrameSink(std::move(d)));
}

bool X11FrameSink::put(const QImage& image, QPoint topLeft)
{
    if (xcb_window_t(d->widget->winId()) != d->window || image.format() != QImage::Format_ARGB32_Premultiplied)
        return false;
    const auto stride = std::size_t(image.bytesPerLine());
    const int rowsPerRequest = int(std::min<std::size_t>(d->maxBytes / std::max<std::size_t>(stride, 1), 4096));
    if (rowsPerRequest <= 0)
        return false;
    for (int y = 0; y < image.height(); y += rowsPerRequest) {
        const int rows = std::min(rowsPerRequest, image.height() - y);
        xcb_put_image(d->c, XCB_IMAGE_FORMAT_Z_PIXMAP, d->window, d->gc, std::uint16_t(image.width()),
            std::uint16_t(rows), std::int16_t(topLeft.x()), std::int16_t(topLeft.y() + y), 0, d->depth,
            std::uint32_t(stride * std::size_t(rows)), image.constScanLine(y));
    }
    xcb_flush(d->c);
    return true;
}
