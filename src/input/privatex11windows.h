// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QString>

#include <memory>

class QSocketNotifier;

/**
 * What an X server shows of its windows that matters for privacy: whether any client window the window manager
 * lists (_NET_CLIENT_LIST) is a password prompt, and the WM_CLASS of the active window (_NET_ACTIVE_WINDOW). Keeps a
 * connection of its own and follows the root window's properties and the classes of the windows it knows as they
 * change. Without a window manager nothing is listed and nothing is active.
 */
class PrivateX11Windows final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(PrivateX11Windows)

public:
    struct WindowClass
    {
        QString instance;
        QString windowClass;
        bool operator==(const WindowClass&) const = default;
    };

    /** Watches `display` (empty: $DISPLAY); null when there is no such server. */
    static std::unique_ptr<PrivateX11Windows> create(QObject* parent = nullptr, const QByteArray& display = {});
    ~PrivateX11Windows() override;

    bool promptOpen() const { return m_promptOpen; }
    /** Empty when no window is active or it has no class. */
    WindowClass activeClass() const { return m_announcedClass; }

signals:
    /** promptOpen() or activeClass() changed. */
    void changed();

private:
    struct Connection;

    PrivateX11Windows(std::unique_ptr<Connection> x, QObject* parent);
    /** Handles whatever the server sent, reading again whatever the events made stale. */
    void readEvents();
    void readClientList();
    void readActiveWindow();
    /** Asks for property changes and the destruction of `window` on our connection. */
    void followWindow(quint32 window);
    void publish();

    std::unique_ptr<Connection> m_x;
    QSocketNotifier* m_notifier = nullptr;
    QHash<quint32, WindowClass> m_clients;
    quint32 m_activeWindow = 0;
    /** The class of m_activeWindow as last read, and as last announced. */
    WindowClass m_activeClass;
    WindowClass m_announcedClass;
    bool m_promptOpen = false;
};
