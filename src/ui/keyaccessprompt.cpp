// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/keyaccessprompt.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QMessageBox>
#include <QPushButton>
#include <QVariantMap>

using namespace Qt::StringLiterals;

namespace {

const QString notificationsService = u"org.freedesktop.Notifications"_s;
const QString notificationsPath = u"/org/freedesktop/Notifications"_s;
const QString allowAction = u"allow"_s;
// A desktop that takes longer than this to answer is treated as having no notifications.
constexpr int notificationTimeoutMs = 1000;

} // namespace

QString KeyAccessPrompt::allowText()
{
    return tr("Allow Key Access…");
}

KeyAccessPrompt::KeyAccessPrompt(QObject* parent)
    : QObject(parent)
{
}

KeyAccessPrompt::~KeyAccessPrompt()
{
    // Directly: after the event loop has ended, a later deletion would never come.
    delete m_window.data();
    close();
}

void KeyAccessPrompt::show(const QString& title, const QString& text)
{
    close();
    if (m_notificationsAllowed && notify(title, text))
        return;

    auto* box = new QMessageBox(QMessageBox::Information, title, title, QMessageBox::NoButton);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setTextFormat(Qt::PlainText);
    box->setInformativeText(text);
    QPushButton* allow = box->addButton(allowText(), QMessageBox::AcceptRole);
    box->addButton(tr("Not Now"), QMessageBox::RejectRole);
    box->setDefaultButton(allow);
    box->setModal(false);
    // Above the keyboard, which stays above everything else.
    box->setWindowFlag(Qt::WindowStaysOnTopHint);
    connect(allow, &QPushButton::clicked, this, &KeyAccessPrompt::accepted);
    m_window = box;
    box->show();
    box->raise();
    box->activateWindow();
}

void KeyAccessPrompt::close()
{
    if (m_window)
        m_window->close();
    m_window = nullptr;
    if (m_notificationId != 0) {
        QDBusMessage message = QDBusMessage::createMethodCall(
            notificationsService, notificationsPath, notificationsService, u"CloseNotification"_s);
        message << m_notificationId;
        QDBusConnection::sessionBus().send(message);
        m_notificationId = 0;
    }
}

bool KeyAccessPrompt::notify(const QString& title, const QString& text)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface() || !bus.interface()->isServiceRegistered(notificationsService))
        return false;
    const QDBusMessage capabilities = bus.call(QDBusMessage::createMethodCall(notificationsService,
                                                   notificationsPath, notificationsService, u"GetCapabilities"_s),
        QDBus::Block, notificationTimeoutMs);
    if (capabilities.type() != QDBusMessage::ReplyMessage || capabilities.arguments().isEmpty()
        || !capabilities.arguments().constFirst().toStringList().contains(u"actions"_s))
        return false;

    if (!m_listening) {
        m_listening = bus.connect(notificationsService, notificationsPath, notificationsService,
                          u"ActionInvoked"_s, this, SLOT(onActionInvoked(uint, QString)))
            && bus.connect(notificationsService, notificationsPath, notificationsService, u"NotificationClosed"_s,
                this, SLOT(onNotificationClosed(uint, uint)));
        if (!m_listening)
            return false;
    }
    QDBusMessage message
        = QDBusMessage::createMethodCall(notificationsService, notificationsPath, notificationsService, u"Notify"_s);
    const QVariantMap hints { { u"desktop-entry"_s, u"com.quietmakers.Ordalis"_s },
        { u"urgency"_s, QVariant::fromValue(uchar(1)) } };
    // Stays until answered: it asks for something.
    message << u"Ordalis"_s << uint(0) << u"com.quietmakers.Ordalis"_s << title << text
            << QStringList { allowAction, allowText() } << hints << 0;
    const QDBusMessage reply = bus.call(message, QDBus::Block, notificationTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return false;
    m_notificationId = reply.arguments().constFirst().toUInt();
    return m_notificationId != 0;
}

void KeyAccessPrompt::onActionInvoked(uint id, const QString& action)
{
    if (id == 0 || id != m_notificationId)
        return;
    m_notificationId = 0;
    if (action == allowAction || action == u"default"_s)
        emit accepted();
}

void KeyAccessPrompt::onNotificationClosed(uint id, uint reason)
{
    Q_UNUSED(reason);
    if (id != 0 && id == m_notificationId)
        m_notificationId = 0;
}
