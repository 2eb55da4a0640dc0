// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/x11layoutsource.h"

#include <QSocketNotifier>

#include <cstdlib>
#include <cstring>

#include <xcb/xcb.h>
// WORKAROUND: xcb/xkb.h names a struct field `explicit`, which is a keyword in C++ (libxcb 1.15).
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

using namespace Qt::StringLiterals;

namespace {

template <typename T> struct FreeDeleter
{
    void operator()(T* p) const { std::free(p); }
};
template <typename T> using XcbReply = std::unique_ptr<T, FreeDeleter<T>>;

constexpr char rulesNamesAtom[] = "_XKB_RULES_NAMES";
/** In 32-bit units: 16 KiB, far more than any real set of names. */
constexpr std::uint32_t maxPropertyLength = 4096;

} // namespace

struct X11LayoutSource::Connection
{
    xcb_connection_t* c = nullptr;
    xcb_window_t root = 0;
    xcb_atom_t rulesNames = XCB_ATOM_NONE;
    std::uint8_t xkbFirstEvent = 0;
    /** The names last read, so that a group switch alone needs no round trip. */
    KeyboardLayoutNames::Parsed parsed;
    QString model;
    QString options;

    ~Connection()
    {
        if (c)
            xcb_disconnect(c);
    }
};

std::unique_ptr<X11LayoutSource> X11LayoutSource::create(QObject* parent, const QByteArray& display)
{
    auto x = std::make_unique<Connection>();
    x->c = xcb_connect(display.isEmpty() ? nullptr : display.constData(), nullptr);
    // xcb_connect hands back an error object rather than null; it still needs xcb_disconnect.
    if (xcb_connection_has_error(x->c))
        return nullptr;
    const xcb_setup_t* setup = xcb_get_setup(x->c);
    x->root = xcb_setup_roots_iterator(setup).data->root;

    const xcb_query_extension_reply_t* xkb = xcb_get_extension_data(x->c, &xcb_xkb_id);
    if (!xkb || !xkb->present)
        return nullptr;
    x->xkbFirstEvent = xkb->first_event;
    const xcb_xkb_use_extension_cookie_t useCookie = xcb_xkb_use_extension(x->c, XCB_XKB_MAJOR_VERSION, 0);
    const xcb_intern_atom_cookie_t atomCookie
        = xcb_intern_atom(x->c, 0, std::uint16_t(std::strlen(rulesNamesAtom)), rulesNamesAtom);
    XcbReply<xcb_xkb_use_extension_reply_t> use(xcb_xkb_use_extension_reply(x->c, useCookie, nullptr));
    XcbReply<xcb_intern_atom_reply_t> atom(xcb_intern_atom_reply(x->c, atomCookie, nullptr));
    if (!use || !use->supported || !atom)
        return nullptr;
    x->rulesNames = atom->atom;

    // Group switches come as state notifications; setxkbmap loads a new keymap (a new keyboard when the key codes
    // change, a map change otherwise) and then rewrites the names on the root window.
    constexpr std::uint16_t groupParts = XCB_XKB_STATE_PART_GROUP_STATE | XCB_XKB_STATE_PART_GROUP_BASE
        | XCB_XKB_STATE_PART_GROUP_LATCH | XCB_XKB_STATE_PART_GROUP_LOCK;
    constexpr std::uint16_t newKeyboardParts = XCB_XKB_NKN_DETAIL_KEYCODES | XCB_XKB_NKN_DETAIL_DEVICE_ID;
    constexpr std::uint16_t mapParts = XCB_XKB_MAP_PART_KEY_TYPES | XCB_XKB_MAP_PART_KEY_SYMS;
    xcb_xkb_select_events_details_t details {};
    details.affectNewKeyboard = newKeyboardParts;
    details.newKeyboardDetails = newKeyboardParts;
    details.affectState = groupParts;
    details.stateDetails = groupParts;
    const xcb_void_cookie_t selectCookie = xcb_xkb_select_events_aux_checked(x->c, XCB_XKB_ID_USE_CORE_KBD,
        XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY | XCB_XKB_EVENT_TYPE_STATE_NOTIFY, 0,
        0, mapParts, mapParts, &details);
    // This connection is ours alone, so its event mask on the root is too.
    const std::uint32_t rootMask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    const xcb_void_cookie_t rootCookie
        = xcb_change_window_attributes_checked(x->c, x->root, XCB_CW_EVENT_MASK, &rootMask);
    XcbReply<xcb_generic_error_t> selectError(xcb_request_check(x->c, selectCookie));
    XcbReply<xcb_generic_error_t> rootError(xcb_request_check(x->c, rootCookie));
    if (selectError || rootError)
        return nullptr;

    return std::unique_ptr<X11LayoutSource>(new X11LayoutSource(std::move(x), parent));
}

X11LayoutSource::X11LayoutSource(std::unique_ptr<Connection> x, QObject* parent)
    : StoredLayoutSource(u"x11"_s, {}, parent)
    , m_x(std::move(x))
{
    publish(query());
    m_notifier = new QSocketNotifier(xcb_get_file_descriptor(m_x->c), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &X11LayoutSource::readEvents);
    // Events that came in with the replies above are already off the socket; read them now.
    readEvents();
}

X11LayoutSource::~X11LayoutSource() = default;

void X11LayoutSource::readEvents()
{
    for (;;) {
        bool namesChanged = false;
        std::optional<int> group;
        while (xcb_generic_event_t* event = xcb_poll_for_event(m_x->c)) {
            const XcbReply<xcb_generic_event_t> owned(event);
            const std::uint8_t type = event->response_type & 0x7f;
            if (type == XCB_PROPERTY_NOTIFY) {
                namesChanged |= reinterpret_cast<const xcb_property_notify_event_t*>(event)->atom == m_x->rulesNames;
            } else if (type == m_x->xkbFirstEvent) {
                // Every XKB event shares one code; the second byte tells which it is.
                const auto* state = reinterpret_cast<const xcb_xkb_state_notify_event_t*>(event);
                if (state->xkbType == XCB_XKB_STATE_NOTIFY)
                    group = state->group;
                else if (state->xkbType == XCB_XKB_NEW_KEYBOARD_NOTIFY || state->xkbType == XCB_XKB_MAP_NOTIFY)
                    namesChanged = true;
            }
        }
        if (xcb_connection_has_error(m_x->c)) {
            // The server is gone: keep the last layouts rather than spin on a dead socket.
            m_notifier->setEnabled(false);
            return;
        }
        if (namesChanged) {
            // The round trips may pull in more events, which the next pass reads.
            publish(query());
            continue;
        }
        if (group)
            publish(KeyboardLayoutNames::assemble(m_x->parsed, *group, m_x->model, m_x->options));
        return;
    }
}

ActiveKeyboardLayouts X11LayoutSource::query()
{
    const xcb_get_property_cookie_t propertyCookie
        = xcb_get_property(m_x->c, 0, m_x->root, m_x->rulesNames, XCB_ATOM_STRING, 0, maxPropertyLength);
    const xcb_xkb_get_state_cookie_t stateCookie = xcb_xkb_get_state(m_x->c, XCB_XKB_ID_USE_CORE_KBD);
    XcbReply<xcb_get_property_reply_t> property(xcb_get_property_reply(m_x->c, propertyCookie, nullptr));
    XcbReply<xcb_xkb_get_state_reply_t> state(xcb_xkb_get_state_reply(m_x->c, stateCookie, nullptr));

    QByteArrayView names;
    if (property && property->format == 8) {
        names = QByteArrayView(static_cast<const char*>(xcb_get_property_value(property.get())),
            xcb_get_property_value_length(property.get()));
    }
    const auto rules = KeyboardLayoutNames::XkbRulesNames::fromProperty(names);
    // The positions are kept with the layouts for mapping the group numbers of later state notifications.
    m_x->parsed = KeyboardLayoutNames::fromLists(rules.layouts, rules.variants);
    m_x->model = rules.model;
    m_x->options = rules.options;
    return KeyboardLayoutNames::assemble(m_x->parsed, state ? state->group : 0, m_x->model, m_x->options);
}
