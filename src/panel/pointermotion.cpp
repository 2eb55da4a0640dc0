// SPDX-License-Identifier: GPL-3.0-or-later
#include "panel/pointermotion.h"

#include <QGuiApplication>
#include <QSocketNotifier>

#include <cstdlib>

#include <xcb/xcb.h>
#include <xcb/xinput.h>

using namespace Qt::StringLiterals;

namespace {

/**
 * Raw motion of the master pointers, selected on the root window through a connection that is ours alone: its
 * selection cannot disturb the raw key events or the device masks that other code keeps on Qt's connection.
 */
class X11PointerMotion final : public PointerMotion
{
public:
    X11PointerMotion(xcb_connection_t* c, xcb_window_t root, std::uint8_t opcode)
        : m_c(c)
        , m_root(root)
        , m_opcode(opcode)
        , m_notifier(xcb_get_file_descriptor(c), QSocketNotifier::Read)
    {
        m_notifier.setEnabled(false);
        connect(&m_notifier, &QSocketNotifier::activated, this, &X11PointerMotion::readEvents);
    }

    ~X11PointerMotion() override
    {
        m_notifier.setEnabled(false);
        xcb_disconnect(m_c);
    }

    bool setWatching(bool watching) override
    {
        if (xcb_connection_has_error(m_c))
            return false;
        struct
        {
            xcb_input_event_mask_t header;
            std::uint32_t mask;
        } eventMask { { XCB_INPUT_DEVICE_ALL_MASTER, 1 },
            watching ? std::uint32_t(XCB_INPUT_XI_EVENT_MASK_RAW_MOTION) : 0u };
        xcb_input_xi_select_events(m_c, m_root, 1, &eventMask.header);
        xcb_flush(m_c);
        m_notifier.setEnabled(watching);
        // Whatever came before the selection changed is of no interest.
        drain();
        return true;
    }

private:
    /** Reads every queued event; true if one of them was raw motion. */
    bool drain()
    {
        bool motion = false;
        while (xcb_generic_event_t* event = xcb_poll_for_event(m_c)) {
            if ((event->response_type & 0x7f) == XCB_GE_GENERIC) {
                const auto* generic = reinterpret_cast<const xcb_ge_generic_event_t*>(event);
                motion = motion || (generic->extension == m_opcode && generic->event_type == XCB_INPUT_RAW_MOTION);
            }
            std::free(event);
        }
        return motion;
    }

    void readEvents()
    {
        if (drain())
            emit moved();
        if (xcb_connection_has_error(m_c))
            m_notifier.setEnabled(false);
    }

    xcb_connection_t* m_c;
    xcb_window_t m_root;
    std::uint8_t m_opcode;
    QSocketNotifier m_notifier;
};

} // namespace

std::unique_ptr<PointerMotion> PointerMotion::forX11()
{
    if (QGuiApplication::platformName() != u"xcb"_s)
        return nullptr;
    int screenNumber = 0;
    xcb_connection_t* c = xcb_connect(nullptr, &screenNumber);
    const auto fail = [c] {
        xcb_disconnect(c);
        return nullptr;
    };
    if (xcb_connection_has_error(c))
        return fail();
    const xcb_query_extension_reply_t* xi = xcb_get_extension_data(c, &xcb_input_id);
    if (!xi || !xi->present)
        return fail();
    // Raw events reach every client that selects them from XInput 2.1 on; 2.0 gave them to a grabbing client only.
    xcb_input_xi_query_version_reply_t* version
        = xcb_input_xi_query_version_reply(c, xcb_input_xi_query_version(c, 2, 2), nullptr);
    const bool usable
        = version && (version->major_version > 2 || (version->major_version == 2 && version->minor_version >= 1));
    std::free(version);
    if (!usable)
        return fail();
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (int i = 0; i < screenNumber && screens.rem > 0; ++i)
        xcb_screen_next(&screens);
    if (screens.rem <= 0)
        return fail();
    return std::make_unique<X11PointerMotion>(c, screens.data->root, xi->major_opcode);
}
