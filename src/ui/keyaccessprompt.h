// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

#include <QMessageBox>

/**
 * Asks the user, without blocking anything, whether Ordalis may have key access: a desktop notification with an
 * "Allow Key Access…" button where the desktop's notification service offers buttons, otherwise a small window
 * with the same button. accepted() follows the button. Only one request is up at a time; a new one replaces it.
 * Main thread only.
 */
class KeyAccessPrompt final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(KeyAccessPrompt)

public:
    /** The button's text. */
    static QString allowText();

    explicit KeyAccessPrompt(QObject* parent = nullptr);
    ~KeyAccessPrompt() override;

    /** Uses notifications when the session's notification service takes buttons; tests turn that off. */
    void setNotificationsAllowed(bool allowed) { m_notificationsAllowed = allowed; }

    /** Puts the request up: `title` in bold, `text` below it, and the allow button. */
    void show(const QString& title, const QString& text);
    /** Takes the request down. */
    void close();

    /** The window, while the request is shown as one. */
    QMessageBox* window() const { return m_window; }
    /** The notification's id while it is shown as one; 0 otherwise. */
    uint notificationId() const { return m_notificationId; }

signals:
    void accepted();

private slots:
    void onActionInvoked(uint id, const QString& action);
    void onNotificationClosed(uint id, uint reason);

private:
    bool notify(const QString& title, const QString& text);

    QPointer<QMessageBox> m_window;
    uint m_notificationId = 0;
    bool m_notificationsAllowed = true;
    bool m_listening = false;
};
