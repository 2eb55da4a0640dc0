// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/x11backend.h"

#include "input/latencyprobe.h"

#include <QAbstractNativeEventFilter>
#include <QByteArray>
#include <QGuiApplication>

#include <array>
#include <cstdlib>

#include <linux/input-event-codes.h>
#include <xcb/xcb.h>
#include <xcb/xinput.h>
// WORKAROUND: xcb/xkb.h names a struct field `explicit`, which is a keyword in C++ (libxcb 1.15).
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

using namespace Qt::StringLiterals;

namespace {

// X servers with the evdev keymap number keys by the kernel's codes plus 8; the raw events carry these numbers.
constexpr int evdevKeycodeOffset = 8;

// The grabs name physical keys, as the gesture recogniser does: Escape is code 53 and comma 43 wherever the
// user's layout puts the characters.
constexpr xcb_keycode_t escapeKeycode = KEY_ESC + evdevKeycodeOffset;
constexpr xcb_keycode_t commaKeycode = KEY_COMMA + evdevKeycodeOffset;
// Super is Mod4 and Num Lock Mod2 in every XKB configuration in use.
constexpr std::uint16_t superMask = XCB_MOD_MASK_4;
constexpr std::uint16_t numLockMask = XCB_MOD_MASK_2;
// A passive grab matches exact modifier states, so the lock modifiers need grabs of their own.
constexpr std::array<std::uint16_t, 4> lockVariants { 0, XCB_MOD_MASK_LOCK, numLockMask,
    XCB_MOD_MASK_LOCK | numLockMask };

// The virtual core keyboard: the master whose raw events arrive when nothing else was seen yet.
constexpr KeyEventProcessor::DeviceId coreKeyboardId = 3;

// X numbers pointer buttons 1 left, 2 middle, 3 right, 4 to 7 the wheel (up, down, left, right), 8 back and
// 9 forward. Raw events carry the device's own numbers, before the user's button mapping (a left-handed swap), so
// the button drawn is the one under the finger.
constexpr std::array<int, 10> buttonCodes { 0, BTN_LEFT, BTN_MIDDLE, BTN_RIGHT, 0, 0, 0, 0, BTN_SIDE, BTN_EXTRA };
constexpr int firstWheelButton = 4;
constexpr int lastWheelButton = 7;
static_assert(int(ScrollDirection::up) == 0 && int(ScrollDirection::down) == 1 && int(ScrollDirection::left) == 2
    && int(ScrollDirection::right) == 3);

template <typename T> struct FreeDeleter
{
    void operator()(T* p) const { std::free(p); }
};
template <typename T> using XcbReply = std::unique_ptr<T, FreeDeleter<T>>;

} // namespace

struct X11Backend::Connection
{
    xcb_connection_t* c = nullptr;
    xcb_window_t root = 0;
    std::uint8_t xiOpcode = 0;
    std::uint8_t xkbFirstEvent = 0;
    bool hasXi22 = false;
    bool hasXkb = false;
    bool running = false;
    bool escapeGrabbed = false;
    bool settingsShortcutGrabbed = false;
    /** A core key release held back until it is clear that it is no auto-repeat. */
    bool pendingRelease = false;
    xcb_keycode_t pendingKeycode = 0;
    xcb_timestamp_t pendingTime = 0;
    KeyEventProcessor::DeviceId keyboard = coreKeyboardId;
};

class X11Backend::EventFilter final : public QAbstractNativeEventFilter
{
public:
    explicit EventFilter(X11Backend& backend)
        : m_backend(backend)
    {
    }

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override
    {
        Q_UNUSED(result);
        if (eventType != QByteArrayView("xcb_generic_event_t"))
            return false;
        return m_backend.handleEvent(message);
    }

private:
    X11Backend& m_backend;
};

namespace {

xcb_connection_t* qtConnection()
{
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        return nullptr;
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 ? x11->connection() : nullptr;
}

/** Selects raw key and button events on the root for the master devices; an empty mask deselects them. */
bool selectRawInput(xcb_connection_t* c, xcb_window_t root, bool select)
{
    // ALL_MASTER gives one event per key or button (the slaves would report each a second time), and it leaves
    // alone the XIAllDevices mask that Qt itself keeps on the root. Raw motion, which carries the scroll valuators of
    // smooth scrolling, is not wanted: the server turns every scroll increment into a wheel button as well.
    constexpr std::uint32_t rawInput = XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE
        | XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_RELEASE;
    struct
    {
        xcb_input_event_mask_t header;
        std::uint32_t mask;
    } eventMask { { XCB_INPUT_DEVICE_ALL_MASTER, 1 }, select ? rawInput : 0 };
    const xcb_void_cookie_t cookie = xcb_input_xi_select_events_checked(c, root, 1, &eventMask.header);
    XcbReply<xcb_generic_error_t> error(xcb_request_check(c, cookie));
    return !error;
}

/** Grabs `keycode` with `modifiers` in every lock state; true if any of the grabs was granted. */
bool grabKey(xcb_connection_t* c, xcb_window_t root, xcb_keycode_t keycode, std::uint16_t modifiers)
{
    std::array<xcb_void_cookie_t, lockVariants.size()> cookies {};
    for (std::size_t i = 0; i < lockVariants.size(); ++i) {
        cookies[i] = xcb_grab_key_checked(
            c, 1, root, modifiers | lockVariants[i], keycode, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    }
    bool granted = false;
    for (const xcb_void_cookie_t& cookie : cookies) {
        // BadAccess when another client holds the same grab: that client keeps the key, and so be it.
        XcbReply<xcb_generic_error_t> error(xcb_request_check(c, cookie));
        granted = granted || !error;
    }
    return granted;
}

void ungrabKey(xcb_connection_t* c, xcb_window_t root, xcb_keycode_t keycode, std::uint16_t modifiers)
{
    // Only this client's grabs are affected, so variants that were never granted are harmless here.
    for (std::uint16_t variant : lockVariants)
        xcb_ungrab_key(c, keycode, root, modifiers | variant);
}

} // namespace

X11Backend::X11Backend(QObject* parent)
    : InputBackend(parent)
    , m_processor(*this)
{
    m_pendingReleaseTimer.setSingleShot(true);
    m_pendingReleaseTimer.setInterval(0);
    connect(&m_pendingReleaseTimer, &QTimer::timeout, this, &X11Backend::applyPendingRelease);

    xcb_connection_t* c = qtConnection();
    if (!c)
        return;
    m_x = std::make_unique<Connection>();
    m_x->c = c;
    m_x->root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;

    const xcb_query_extension_reply_t* xi = xcb_get_extension_data(c, &xcb_input_id);
    if (xi && xi->present) {
        m_x->xiOpcode = xi->major_opcode;
        XcbReply<xcb_generic_error_t> error;
        xcb_generic_error_t* rawError = nullptr;
        XcbReply<xcb_input_xi_query_version_reply_t> version(
            xcb_input_xi_query_version_reply(c, xcb_input_xi_query_version(c, 2, 2), &rawError));
        error.reset(rawError);
        // A server that knows XI2 at all answers with the lower of its version and the one asked for.
        m_x->hasXi22
            = version && (version->major_version > 2 || (version->major_version == 2 && version->minor_version >= 2));
    }

    const xcb_query_extension_reply_t* xkb = xcb_get_extension_data(c, &xcb_xkb_id);
    if (xkb && xkb->present) {
        XcbReply<xcb_xkb_use_extension_reply_t> use(
            xcb_xkb_use_extension_reply(c, xcb_xkb_use_extension(c, XCB_XKB_MAJOR_VERSION, 0), nullptr));
        m_x->hasXkb = use && use->supported;
        m_x->xkbFirstEvent = xkb->first_event;
    }
}

X11Backend::~X11Backend()
{
    // Nobody should hear of releases while this object is half destroyed.
    blockSignals(true);
    // The connection is Qt's: once the application is gone, so is the connection, and so are the selections.
    if (m_x && m_x->running && qtConnection() == m_x->c)
        stop();
}

QString X11Backend::name() const
{
    return u"x11"_s;
}

InputBackend::Access X11Backend::access() const
{
    return m_x && m_x->hasXi22 ? Access::granted : Access::unavailable;
}

QString X11Backend::accessHelp() const
{
    return {};
}

bool X11Backend::start()
{
    if (access() != Access::granted)
        return false;
    if (m_x->running)
        return true;
    if (!selectRawInput(m_x->c, m_x->root, true))
        return false;
    m_x->running = true;
    m_filter = std::make_unique<EventFilter>(*this);
    qGuiApp->installNativeEventFilter(m_filter.get());
    m_processor.refreshLockState();
    updateGrabs();
    return true;
}

void X11Backend::stop()
{
    if (!m_x || !m_x->running)
        return;
    m_x->running = false;
    m_filter.reset();
    applyPendingRelease();
    selectRawInput(m_x->c, m_x->root, false);
    updateGrabs();
    xcb_flush(m_x->c);
    m_processor.releaseAll();
}

InputBackend::Source X11Backend::source() const
{
    return m_x && m_x->running ? Source::x11 : Source::none;
}

bool X11Backend::capsLockOn() const
{
    if (!m_x || !m_x->hasXkb)
        return false;
    XcbReply<xcb_xkb_get_state_reply_t> state(
        xcb_xkb_get_state_reply(m_x->c, xcb_xkb_get_state(m_x->c, XCB_XKB_ID_USE_CORE_KBD), nullptr));
    return state && (state->lockedMods & XCB_MOD_MASK_LOCK);
}

void X11Backend::setSwallowedShortcuts(bool escape, bool settingsShortcut)
{
    m_wantEscape = escape;
    m_wantSettingsShortcut = settingsShortcut;
    updateGrabs();
}

bool X11Backend::escapeGrabbed() const
{
    return m_x && m_x->escapeGrabbed;
}

bool X11Backend::settingsShortcutGrabbed() const
{
    return m_x && m_x->settingsShortcutGrabbed;
}

void X11Backend::updateGrabs()
{
    if (!m_x)
        return;
    const auto apply = [this](bool want, bool& grabbed, xcb_keycode_t keycode, std::uint16_t modifiers) {
        want = want && m_x->running;
        // A grab refused earlier is tried again at each request: its holder may have let go.
        if (want && !grabbed)
            grabbed = grabKey(m_x->c, m_x->root, keycode, modifiers);
        else if (!want && grabbed) {
            ungrabKey(m_x->c, m_x->root, keycode, modifiers);
            grabbed = false;
        }
    };
    apply(m_wantEscape, m_x->escapeGrabbed, escapeKeycode, 0);
    apply(m_wantSettingsShortcut, m_x->settingsShortcutGrabbed, commaKeycode, superMask);
    xcb_flush(m_x->c);
}

void X11Backend::handleRawButton(const void* message)
{
    const auto* raw = static_cast<const xcb_input_raw_button_press_event_t*>(message);
    const bool press = raw->event_type == XCB_INPUT_RAW_BUTTON_PRESS;
    if (raw->detail >= firstWheelButton && raw->detail <= lastWheelButton) {
        // One press per notch of a wheel, and per scroll increment of smooth scrolling, which the server sends as
        // an emulated button (XIPointerEmulated) next to the raw motion that is not read here. Its release adds
        // nothing.
        if (press)
            m_processor.scroll(ScrollDirection(raw->detail - firstWheelButton));
        return;
    }
    if (raw->detail >= buttonCodes.size() || buttonCodes[raw->detail] == 0)
        return;
    m_processor.processKey(buttonCodes[raw->detail],
        press ? KeyEventProcessor::Action::press : KeyEventProcessor::Action::release, raw->deviceid);
}

void X11Backend::applyPendingRelease()
{
    m_pendingReleaseTimer.stop();
    if (!m_x || !m_x->pendingRelease)
        return;
    m_x->pendingRelease = false;
    m_processor.releaseKey(int(m_x->pendingKeycode) - evdevKeycodeOffset);
}

bool X11Backend::handleEvent(const void* message)
{
    const auto* event = static_cast<const xcb_generic_event_t*>(message);
    // Events sent by other clients (the high bit) are not the user's typing.
    if (event->response_type & 0x80)
        return false;
    const std::uint8_t type = event->response_type & 0x7f;

    if (type == XCB_GE_GENERIC) {
        const auto* generic = reinterpret_cast<const xcb_ge_generic_event_t*>(event);
        if (generic->extension != m_x->xiOpcode)
            return false;
        if (generic->event_type == XCB_INPUT_RAW_BUTTON_PRESS || generic->event_type == XCB_INPUT_RAW_BUTTON_RELEASE) {
            handleRawButton(event);
            return false;
        }
        if (generic->event_type != XCB_INPUT_RAW_KEY_PRESS && generic->event_type != XCB_INPUT_RAW_KEY_RELEASE)
            return false;
        // Raw key press and release share one layout. They are never auto-repeated.
        const auto* raw = reinterpret_cast<const xcb_input_raw_key_press_event_t*>(event);
        if (raw->detail < evdevKeycodeOffset)
            return false;
        // Keeps the order of events: a held-back core release happened before this.
        applyPendingRelease();
        if (LatencyProbe* probe = LatencyProbe::active(); probe && generic->event_type == XCB_INPUT_RAW_KEY_PRESS)
            probe->pressArrived();
        m_x->keyboard = raw->deviceid;
        m_processor.processKey(int(raw->detail) - evdevKeycodeOffset,
            generic->event_type == XCB_INPUT_RAW_KEY_PRESS ? KeyEventProcessor::Action::press
                                                           : KeyEventProcessor::Action::release,
            raw->deviceid);
        return false;
    }

    if (type == XCB_KEY_PRESS || type == XCB_KEY_RELEASE) {
        // WORKAROUND: while any client grabs the keyboard, the server gives that client no raw events (Xorg and
        // Xvfb 21.1, DeliverRawEvent). That happens during our own grabs (the swallowed shortcuts, Qt's popup
        // menus): the grabbed key's raw release and every raw event until then are lost. The core events of those
        // grabs come to us instead, and core events otherwise reach us only for our own focused windows, where
        // they follow the raw event of the same key. So they are taken as well, pressing only what is not held
        // yet and releasing whatever holds the key.
        //
        // Core events are auto-repeated as a release and a press with the same key and time, which Qt's
        // connection does not suppress. A release is therefore held back until the events already received are
        // handled; the matching press cancels it.
        const auto* key = reinterpret_cast<const xcb_key_press_event_t*>(event);
        if (key->detail < evdevKeycodeOffset)
            return false;
        if (m_x->pendingRelease) {
            if (type == XCB_KEY_PRESS && key->detail == m_x->pendingKeycode && key->time == m_x->pendingTime) {
                m_x->pendingRelease = false;
                m_pendingReleaseTimer.stop();
                return false;
            }
            applyPendingRelease();
        }
        const int code = int(key->detail) - evdevKeycodeOffset;
        if (!m_processor.isHeld(code)) {
            if (type == XCB_KEY_PRESS)
                m_processor.processKey(code, KeyEventProcessor::Action::press, m_x->keyboard);
        } else if (type == XCB_KEY_RELEASE) {
            m_x->pendingRelease = true;
            m_x->pendingKeycode = key->detail;
            m_x->pendingTime = key->time;
            m_pendingReleaseTimer.start();
        }
        return false;
    }

    if (m_x->hasXkb && type == m_x->xkbFirstEvent) {
        // Qt selects XKB state notifications on its connection for its own keyboard state; they tell us when
        // the lock changes without a key of ours (another keyboard's Caps Lock, a remote tool), and carry the new
        // lock, so the server is not asked again.
        const auto* notify = reinterpret_cast<const xcb_xkb_state_notify_event_t*>(event);
        if (notify->xkbType == XCB_XKB_STATE_NOTIFY && (notify->changed & XCB_XKB_STATE_PART_MODIFIER_LOCK))
            m_processor.setLockState(notify->lockedMods & XCB_MOD_MASK_LOCK);
    }
    return false;
}
