// SPDX-License-Identifier: GPL-3.0-or-later
#include "dbustestsupport.h"
#include "ui/keyaccessprompt.h"

#include <QApplication>
#include <QMessageBox>
#include <QMutex>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

/** A desktop's notification service, answering from a thread of its own as a separate process would. */
class FakeNotifications final : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    QStringList capabilities;
    // What was shown and closed, one line each, read by the test's thread.
    QStringList calls() const
    {
        const QMutexLocker lock(&m_mutex);
        return m_calls;
    }

public slots:
    QStringList GetCapabilities() { return capabilities; }
    uint Notify(const QString&, uint, const QString&, const QString&, const QString&, const QStringList& actions,
        const QVariantMap&, int)
    {
        const QMutexLocker lock(&m_mutex);
        m_calls << u"notify "_s + actions.join(u", "_s);
        return 41;
    }
    void CloseNotification(uint id)
    {
        const QMutexLocker lock(&m_mutex);
        m_calls << u"close %1"_s.arg(id);
    }

private:
    mutable QMutex m_mutex;
    QStringList m_calls;
};

QPushButton* allowButton(QMessageBox* box)
{
    for (QAbstractButton* button : box->buttons()) {
        if (button->text() == KeyAccessPrompt::allowText())
            return qobject_cast<QPushButton*>(button);
    }
    return nullptr;
}

} // namespace

class TestKeyAccessPrompt final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void windowWithoutNotificationButtons();
    void notificationWithTheButton();

private:
    /** Puts `server` on the bus, answering from its own thread; the returned guard takes it down again. */
    std::shared_ptr<void> serve(FakeNotifications& server, QDBusConnection& connection)
    {
        server.moveToThread(&m_serverThread);
        const bool registered
            = connection.registerObject(u"/org/freedesktop/Notifications"_s, &server, QDBusConnection::ExportAllSlots)
            && connection.registerService(u"org.freedesktop.Notifications"_s);
        if (!registered)
            qFatal("the fake notification service could not be registered");
        return std::shared_ptr<void>(nullptr, [&server, connection](void*) mutable {
            connection.unregisterService(u"org.freedesktop.Notifications"_s);
            connection.unregisterObject(u"/org/freedesktop/Notifications"_s);
            QMetaObject::invokeMethod(
                &server, [&server] { server.moveToThread(QApplication::instance()->thread()); },
                Qt::BlockingQueuedConnection);
        });
    }

    DBusTest::PrivateBus m_bus;
    QThread m_serverThread;
};

void TestKeyAccessPrompt::initTestCase()
{
    if (m_bus.address().isEmpty())
        QSKIP("dbus-daemon is missing (scripts/install-deps.sh installs it)");
    // Read when the session bus is first used, which is below.
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus.address().toUtf8());
    m_serverThread.start();
}

void TestKeyAccessPrompt::cleanupTestCase()
{
    m_serverThread.quit();
    m_serverThread.wait();
}

void TestKeyAccessPrompt::windowWithoutNotificationButtons()
{
    // No notification service at all, then one that cannot show buttons: the request is a window.
    for (bool withServer : { false, true }) {
        FakeNotifications server;
        server.capabilities = { u"body"_s };
        QDBusConnection connection = m_bus.connect();
        const std::shared_ptr<void> served = withServer ? serve(server, connection) : nullptr;

        KeyAccessPrompt prompt;
        QSignalSpy accepted(&prompt, &KeyAccessPrompt::accepted);
        prompt.show(u"Title"_s, u"Why"_s);
        QVERIFY(prompt.window() && prompt.window()->isVisible() && allowButton(prompt.window()));
        allowButton(prompt.window())->click();
        QCOMPARE(accepted.size(), 1);
        QTRY_VERIFY(!prompt.window());
    }
}

void TestKeyAccessPrompt::notificationWithTheButton()
{
    FakeNotifications server;
    server.capabilities = { u"body"_s, u"actions"_s };
    QDBusConnection connection = m_bus.connect();
    const std::shared_ptr<void> served = serve(server, connection);

    KeyAccessPrompt prompt;
    QSignalSpy accepted(&prompt, &KeyAccessPrompt::accepted);
    prompt.show(u"Title"_s, u"Why"_s);
    QVERIFY(!prompt.window());
    QCOMPARE(server.calls(), QStringList { u"notify allow, "_s + KeyAccessPrompt::allowText() });

    const auto invoke = [&connection](uint id, const QString& action) {
        QDBusMessage signal = QDBusMessage::createSignal(
            u"/org/freedesktop/Notifications"_s, u"org.freedesktop.Notifications"_s, u"ActionInvoked"_s);
        signal << id << action;
        connection.send(signal);
    };
    invoke(7, u"allow"_s); // another program's notification
    invoke(41, u"allow"_s);
    QTRY_COMPARE(accepted.size(), 1);

    // Taken down when no longer needed.
    prompt.show(u"Title"_s, u"Why"_s);
    prompt.close();
    QTRY_COMPARE(server.calls().last(), u"close 41"_s);
}

QTEST_MAIN(TestKeyAccessPrompt)
#include "testkeyaccessprompt.moc"
