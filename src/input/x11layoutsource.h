// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/keyboardlayoutsource.h"

#include <QByteArray>

#include <memory>

class QSocketNotifier;

/**
 * The layouts of an X server: the names from the root window's _XKB_RULES_NAMES, the current one from the XKB
 * group. Keeps a connection of its own and follows group switches, new keymaps and setxkbmap runs as they happen.
 */
class X11LayoutSource final : public StoredLayoutSource
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(X11LayoutSource)

public:
    /** A source on `display` (empty: $DISPLAY); null when there is no such server or it lacks XKB. */
    static std::unique_ptr<X11LayoutSource> create(QObject* parent = nullptr, const QByteArray& display = {});
    ~X11LayoutSource() override;

private:
    struct Connection;

    X11LayoutSource(std::unique_ptr<Connection> x, QObject* parent);
    /** Handles whatever the server sent, then reads the names again once if any event asked for it. */
    void readEvents();
    /** Names from the property and the group from a state query; two round trips. */
    ActiveKeyboardLayouts query();

    std::unique_ptr<Connection> m_x;
    QSocketNotifier* m_notifier = nullptr;
};
