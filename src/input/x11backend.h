// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/inputbackend.h"
#include "input/keyeventprocessor.h"

#include <QTimer>

#include <memory>

/**
 * Reads keys and pointer buttons from the X server as XInput 2 raw events, which every client may ask for whichever
 * window has the focus. Uses Qt's own connection, so events arrive on the main thread with Qt's; needs the xcb platform
 * plugin.
 *
 * The swallowed shortcuts are passive key grabs on the root window, so those keys reach Ordalis instead of the
 * focused application.
 */
class X11Backend final : public InputBackend
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(X11Backend)

public:
    explicit X11Backend(QObject* parent = nullptr);
    ~X11Backend() override;

    QString name() const override;
    /** Granted with XInput 2.2 on the xcb platform; unavailable on any other platform or an older server. */
    Access access() const override;
    QString accessHelp() const override;
    bool start() override;
    /** Stops reading, drops the grabs and releases every held key. */
    void stop() override;
    /** The XKB locked Caps Lock modifier; a round trip to the server. */
    bool capsLockOn() const override;
    /** x11 while reading. */
    Source source() const override;
    /** Grabs Escape and Super+comma while asked (a grab another client holds is left to it). Main thread. */
    void setSwallowedShortcuts(bool escape, bool settingsShortcut) override;

    /** Which of the shortcuts are really grabbed now: false where the grab failed or was not asked for. */
    bool escapeGrabbed() const;
    bool settingsShortcutGrabbed() const;

private:
    class EventFilter;
    struct Connection;

    bool handleEvent(const void* event);
    void handleRawButton(const void* event);
    void applyPendingRelease();
    void updateGrabs();

    std::unique_ptr<Connection> m_x;
    std::unique_ptr<EventFilter> m_filter;
    KeyEventProcessor m_processor;
    QTimer m_pendingReleaseTimer;
    bool m_wantEscape = false;
    bool m_wantSettingsShortcut = false;
};
