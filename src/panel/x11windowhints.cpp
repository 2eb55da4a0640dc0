// SPDX-License-Identifier: GPL-3.0-or-later
#include "panel/x11windowhints.h"

#include <QByteArray>
#include <QGuiApplication>
#include <QHash>
#include <QPainterPath>
#include <QRegion>
#include <QTransform>
#include <QWindow>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#if QT_CONFIG(xcb)
#include <xcb/shape.h>
#include <xcb/xcb.h>
#endif

namespace X11WindowHints {

#if QT_CONFIG(xcb)
namespace {

template <typename T> struct FreeDeleter
{
    void operator()(T* p) const { std::free(p); }
};
template <typename T> using Reply = std::unique_ptr<T, FreeDeleter<T>>;

xcb_connection_t* connection()
{
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->connection() : nullptr;
}

xcb_atom_t atom(xcb_connection_t* c, const QByteArray& name, bool onlyIfExists = false)
{
    static QHash<QByteArray, xcb_atom_t> known;
    if (const auto it = known.constFind(name); it != known.cend())
        return *it;
    const Reply<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(c, xcb_intern_atom(c, onlyIfExists, quint16(name.size()), name.constData()), nullptr));
    const xcb_atom_t result = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    if (result != XCB_ATOM_NONE)
        known.insert(name, result);
    return result;
}

xcb_window_t rootOf(xcb_connection_t* c, xcb_window_t window)
{
    const Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr));
    return geometry ? geometry->root : xcb_window_t(XCB_WINDOW_NONE);
}

/** The first screen's root: the panel's screen on every set-up Ordalis meets (one X screen, maybe many monitors). */
xcb_window_t firstRoot(xcb_connection_t* c)
{
    const auto it = xcb_setup_roots_iterator(xcb_get_setup(c));
    return it.rem ? it.data->root : xcb_window_t(XCB_WINDOW_NONE);
}

void sendToRoot(xcb_connection_t* c, xcb_window_t root, xcb_window_t window, xcb_atom_t type,
    const std::array<std::uint32_t, 5>& data)
{
    xcb_client_message_event_t event {};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = type;
    for (int i = 0; i < 5; ++i)
        event.data.data32[i] = data[std::size_t(i)];
    xcb_send_event(c, 0, root, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
        reinterpret_cast<const char*>(&event));
}

} // namespace

void prepareOverlay(QWindow* window)
{
    xcb_connection_t* c = connection();
    if (!c || !window)
        return;
    const auto id = xcb_window_t(window->winId());
    const xcb_atom_t state = atom(c, "_NET_WM_STATE");
    const xcb_atom_t desktop = atom(c, "_NET_WM_DESKTOP");
    const std::array<xcb_atom_t, 3> wanted { atom(c, "_NET_WM_STATE_SKIP_TASKBAR"), atom(c, "_NET_WM_STATE_SKIP_PAGER"),
        atom(c, "_NET_WM_STATE_STICKY") };
    constexpr std::uint32_t allDesktops = 0xFFFFFFFF;

    if (window->isVisible()) {
        // A mapped window belongs to the window manager: ask it, as pagers do.
        const xcb_window_t root = rootOf(c, id);
        constexpr std::uint32_t add = 1;
        constexpr std::uint32_t fromApplication = 1;
        sendToRoot(c, root, id, state, { add, wanted[0], wanted[1], fromApplication, 0 });
        sendToRoot(c, root, id, state, { add, wanted[2], 0, fromApplication, 0 });
        sendToRoot(c, root, id, desktop, { allDesktops, fromApplication, 0, 0, 0 });
        xcb_flush(c);
        return;
    }

    // Before mapping the window the properties are ours to write; keep whatever states are there already.
    std::vector<xcb_atom_t> states;
    const Reply<xcb_get_property_reply_t> current(
        xcb_get_property_reply(c, xcb_get_property(c, 0, id, state, XCB_ATOM_ATOM, 0, 1024), nullptr));
    if (current && current->type == XCB_ATOM_ATOM && current->format == 32) {
        const auto* atoms = static_cast<const xcb_atom_t*>(xcb_get_property_value(current.get()));
        states.assign(atoms, atoms + xcb_get_property_value_length(current.get()) / 4);
    }
    for (xcb_atom_t a : wanted) {
        if (std::find(states.begin(), states.end(), a) == states.end())
            states.push_back(a);
    }
    xcb_change_property(
        c, XCB_PROP_MODE_REPLACE, id, state, XCB_ATOM_ATOM, 32, std::uint32_t(states.size()), states.data());
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, desktop, XCB_ATOM_CARDINAL, 32, 1, &allDesktops);
    xcb_flush(c);
}

void resetInputShape(QWindow* window)
{
    xcb_connection_t* c = connection();
    if (!c || !window || !window->handle())
        return;
    xcb_shape_mask(c, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, xcb_window_t(window->winId()), 0, 0, XCB_NONE);
    xcb_flush(c);
}

namespace {

/** A compositing manager holds the screen's _NET_WM_CM selection (screen 0: see firstRoot()). */
bool compositorOwnsScreen(xcb_connection_t* c)
{
    const Reply<xcb_get_selection_owner_reply_t> owner(
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, atom(c, "_NET_WM_CM_S0")), nullptr));
    return owner && owner->owner != XCB_WINDOW_NONE;
}

} // namespace

bool isCompositing()
{
    xcb_connection_t* c = connection();
    return !c || compositorOwnsScreen(c);
}

bool blurBehindAvailable()
{
    xcb_connection_t* c = connection();
    if (!c)
        return false;
    // Only a compositor blurs, and KWin announces the effect with a root property of the request's name.
    const xcb_atom_t blur = atom(c, "_KDE_NET_WM_BLUR_BEHIND_REGION", true);
    if (blur == XCB_ATOM_NONE)
        return false;
    const xcb_window_t root = firstRoot(c);
    if (!compositorOwnsScreen(c))
        return false;
    const Reply<xcb_list_properties_reply_t> properties(
        xcb_list_properties_reply(c, xcb_list_properties(c, root), nullptr));
    if (!properties)
        return false;
    const xcb_atom_t* atoms = xcb_list_properties_atoms(properties.get());
    const int count = xcb_list_properties_atoms_length(properties.get());
    return std::find(atoms, atoms + count, blur) != atoms + count;
}

void setBlurBehind(QWindow* window, const QPainterPath& shape)
{
    xcb_connection_t* c = connection();
    if (!c || !window)
        return;
    const auto id = xcb_window_t(window->winId());
    const xcb_atom_t property = atom(c, "_KDE_NET_WM_BLUR_BEHIND_REGION");
    if (shape.isEmpty()) {
        xcb_delete_property(c, id, property);
        xcb_flush(c);
        return;
    }
    std::vector<std::uint32_t> data;
    for (const QRect& r : blurRegion(shape, window->devicePixelRatio()))
        data.insert(data.end(),
            { std::uint32_t(r.x()), std::uint32_t(r.y()), std::uint32_t(r.width()), std::uint32_t(r.height()) });
    xcb_change_property(
        c, XCB_PROP_MODE_REPLACE, id, property, XCB_ATOM_CARDINAL, 32, std::uint32_t(data.size()), data.data());
    xcb_flush(c);
}

#else

void prepareOverlay(QWindow*) { }
void resetInputShape(QWindow*) { }
bool isCompositing()
{
    return true;
}
bool blurBehindAvailable()
{
    return false;
}
void setBlurBehind(QWindow*, const QPainterPath&) { }

#endif

QList<QRect> blurRegion(const QPainterPath& shape, qreal devicePixelRatio)
{
    const QPolygonF outline = shape.toFillPolygon(QTransform::fromScale(devicePixelRatio, devicePixelRatio));
    const QRegion region(outline.toPolygon());
    return QList<QRect>(region.begin(), region.end());
}

} // namespace X11WindowHints
