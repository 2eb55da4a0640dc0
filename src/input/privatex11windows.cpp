// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/privatex11windows.h"

#include "input/privatemoments.h"

#include <QSet>
#include <QSocketNotifier>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <xcb/xcb.h>

namespace {

template <typename T> struct FreeDeleter
{
    void operator()(T* p) const { std::free(p); }
};
template <typename T> using XcbReply = std::unique_ptr<T, FreeDeleter<T>>;

/** In 32-bit units: room for 4096 listed windows. */
constexpr std::uint32_t maxClientList = 4096;
/** In 32-bit units: 1 KiB of WM_CLASS, far more than any real one. */
constexpr std::uint32_t maxClassLength = 256;

xcb_atom_t internAtom(xcb_connection_t* c, const char* name)
{
    const xcb_intern_atom_cookie_t cookie = xcb_intern_atom(c, 0, std::uint16_t(std::strlen(name)), name);
    const XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(c, cookie, nullptr));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

/** The windows of a property of type WINDOW; empty when it is missing or of another kind. */
std::vector<xcb_window_t> windowsOf(xcb_connection_t* c, xcb_window_t root, xcb_atom_t property, std::uint32_t max)
{
    const xcb_get_property_cookie_t cookie = xcb_get_property(c, 0, root, property, XCB_ATOM_WINDOW, 0, max);
    const XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(c, cookie, nullptr));
    if (!reply || reply->format != 32 || reply->type != XCB_ATOM_WINDOW)
        return {};
    const auto* windows = static_cast<const xcb_window_t*>(xcb_get_property_value(reply.get()));
    return { windows, windows + xcb_get_property_value_length(reply.get()) / 4 };
}

xcb_get_property_cookie_t askClass(xcb_connection_t* c, xcb_window_t window)
{
    return xcb_get_property(c, 0, window, XCB_ATOM_WM_CLASS, XCB_GET_PROPERTY_TYPE_ANY, 0, maxClassLength);
}

/** WM_CLASS is the instance and the class, each ending in a zero byte; a gone window has none. */
PrivateX11Windows::WindowClass classFrom(xcb_connection_t* c, xcb_get_property_cookie_t cookie)
{
    const XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(c, cookie, nullptr));
    if (!reply || reply->format != 8)
        return {};
    const QByteArrayView value(
        static_cast<const char*>(xcb_get_property_value(reply.get())), xcb_get_property_value_length(reply.get()));
    const qsizetype end = value.indexOf('\0');
    if (end < 0)
        return { QString::fromUtf8(value), {} };
    QByteArrayView rest = value.sliced(end + 1);
    if (const qsizetype restEnd = rest.indexOf('\0'); restEnd >= 0)
        rest.truncate(restEnd);
    return { QString::fromUtf8(value.first(end)), QString::fromUtf8(rest) };
}

} // namespace

struct PrivateX11Windows::Connection
{
    xcb_connection_t* c = nullptr;
    xcb_window_t root = 0;
    xcb_atom_t clientList = XCB_ATOM_NONE;
    xcb_atom_t activeWindow = XCB_ATOM_NONE;

    ~Connection()
    {
        if (c)
            xcb_disconnect(c);
    }
};

std::unique_ptr<PrivateX11Windows> PrivateX11Windows::create(QObject* parent, const QByteArray& display)
{
    auto x = std::make_unique<Connection>();
    x->c = xcb_connect(display.isEmpty() ? nullptr : display.constData(), nullptr);
    // xcb_connect hands back an error object rather than null; it still needs xcb_disconnect.
    if (xcb_connection_has_error(x->c))
        return nullptr;
    x->root = xcb_setup_roots_iterator(xcb_get_setup(x->c)).data->root;
    x->clientList = internAtom(x->c, "_NET_CLIENT_LIST");
    x->activeWindow = internAtom(x->c, "_NET_ACTIVE_WINDOW");
    // This connection is ours alone, so its event mask on the root is too.
    const std::uint32_t rootMask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    const xcb_void_cookie_t rootCookie
        = xcb_change_window_attributes_checked(x->c, x->root, XCB_CW_EVENT_MASK, &rootMask);
    if (XcbReply<xcb_generic_error_t>(xcb_request_check(x->c, rootCookie)) || x->clientList == XCB_ATOM_NONE
        || x->activeWindow == XCB_ATOM_NONE)
        return nullptr;
    return std::unique_ptr<PrivateX11Windows>(new PrivateX11Windows(std::move(x), parent));
}

PrivateX11Windows::PrivateX11Windows(std::unique_ptr<Connection> x, QObject* parent)
    : QObject(parent)
    , m_x(std::move(x))
{
    readClientList();
    readActiveWindow();
    publish();
    m_notifier = new QSocketNotifier(xcb_get_file_descriptor(m_x->c), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &PrivateX11Windows::readEvents);
    // Events that came in with the replies above are already off the socket; read them now.
    readEvents();
}

PrivateX11Windows::~PrivateX11Windows() = default;

void PrivateX11Windows::readEvents()
{
    for (;;) {
        bool listChanged = false;
        bool activeChanged = false;
        QSet<xcb_window_t> reclassed;
        QSet<xcb_window_t> destroyed;
        while (xcb_generic_event_t* event = xcb_poll_for_event(m_x->c)) {
            const XcbReply<xcb_generic_event_t> owned(event);
            const std::uint8_t type = event->response_type & 0x7f;
            if (type == XCB_DESTROY_NOTIFY)
                destroyed.insert(reinterpret_cast<const xcb_destroy_notify_event_t*>(event)->window);
            // Errors (a window gone before we asked about it) arrive here too, as type 0; they need nothing.
            if (type != XCB_PROPERTY_NOTIFY)
                continue;
            const auto* property = reinterpret_cast<const xcb_property_notify_event_t*>(event);
            if (property->window == m_x->root) {
                listChanged |= property->atom == m_x->clientList;
                activeChanged |= property->atom == m_x->activeWindow;
            } else if (property->atom == XCB_ATOM_WM_CLASS) {
                reclassed.insert(property->window);
            }
        }
        if (xcb_connection_has_error(m_x->c)) {
            // The server is gone, and with it every window: nothing is open or focused any more.
            m_notifier->setEnabled(false);
            m_clients.clear();
            m_activeWindow = 0;
            m_activeClass = {};
            publish();
            return;
        }
        if (!listChanged && !activeChanged && reclassed.isEmpty() && destroyed.isEmpty())
            return;
        if (listChanged)
            readClientList();
        if (activeChanged)
            readActiveWindow();
        // Window managers may leave a closed window listed or active until something else takes its place (Openbox
        // keeps _NET_ACTIVE_WINDOW on the last window closed); a destroyed window is neither open nor focused.
        for (const xcb_window_t window : std::as_const(destroyed)) {
            m_clients.remove(window);
            if (window == m_activeWindow) {
                m_activeWindow = 0;
                m_activeClass = {};
            }
        }
        for (const xcb_window_t window : std::as_const(reclassed)) {
            if (!m_clients.contains(window) && window != m_activeWindow)
                continue;
            const WindowClass windowClass = classFrom(m_x->c, askClass(m_x->c, window));
            if (m_clients.contains(window))
                m_clients[window] = windowClass;
            if (window == m_activeWindow)
                m_activeClass = windowClass;
        }
        publish();
        // The round trips may have pulled in more events, which the next pass reads.
    }
}

void PrivateX11Windows::readClientList()
{
    const std::vector<xcb_window_t> listed = windowsOf(m_x->c, m_x->root, m_x->clientList, maxClientList);
    QHash<quint32, WindowClass> clients;
    std::vector<std::pair<xcb_window_t, xcb_get_property_cookie_t>> asked;
    for (const xcb_window_t window : listed) {
        if (const auto known = m_clients.constFind(window); known != m_clients.constEnd()) {
            clients.insert(window, *known);
        } else if (!clients.contains(window)) {
            followWindow(window);
            asked.emplace_back(window, askClass(m_x->c, window));
            clients.insert(window, {});
        }
    }
    for (const auto& [window, cookie] : asked)
        clients[window] = classFrom(m_x->c, cookie);
    m_clients = std::move(clients);
}

void PrivateX11Windows::readActiveWindow()
{
    const std::vector<xcb_window_t> active = windowsOf(m_x->c, m_x->root, m_x->activeWindow, 1);
    const xcb_window_t window = active.empty() ? 0 : active.front();
    if (window == m_activeWindow)
        return;
    m_activeWindow = window;
    if (window == 0) {
        m_activeClass = {};
        return;
    }
    if (const auto known = m_clients.constFind(window); known != m_clients.constEnd()) {
        m_activeClass = *known;
        return;
    }
    followWindow(window);
    m_activeClass = classFrom(m_x->c, askClass(m_x->c, window));
}

void PrivateX11Windows::followWindow(quint32 window)
{
    // Unchecked: a window already gone answers with an error event, which readEvents() passes over. The structure
    // events bring the window's destruction (and its moves, which are passed over).
    const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(m_x->c, window, XCB_CW_EVENT_MASK, &mask);
}

void PrivateX11Windows::publish()
{
    const bool promptOpen = std::ranges::any_of(
        m_clients, [](const WindowClass& w) { return PrivateMoments::isPasswordPrompt(w.instance, w.windowClass); });
    if (promptOpen == m_promptOpen && m_activeClass == m_announcedClass)
        return;
    m_promptOpen = promptOpen;
    m_announcedClass = m_activeClass;
    emit changed();
}
