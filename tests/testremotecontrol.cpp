// SPDX-License-Identifier: GPL-3.0-or-later
// Commands to the running program: over the instance socket from a later start, and over D-Bus (on a private bus).
#include "app/dbusservice.h"
#include "app/remotecontrol.h"
#include "app/singleinstance.h"
#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "dbustestsupport.h"
#include "theme/themesettings.h"
#include "ui/menubaractions.h"

#include <QDBusMessage>
#include <QFile>
#include <QLocalSocket>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <chrono>
#include <future>

using namespace Qt::StringLiterals;

namespace {

class FakeActions final : public MenuBarActions
{
public:
    bool isKeyboardVisible() const override { return visible; }
    void setKeyboardVisible(bool on) override { visible = on; }
    void openSettings() override { ++settingsOpened; }
    void checkForUpdates() override { }
    void quit() override { ++quits; }
    bool isPaused() const override { return paused; }
    bool isPausedByHand() const override { return paused; }
    void setPausedByHand(bool on) override { paused = on; }

    bool paused = false;
    bool visible = false;
    int settingsOpened = 0;
    int quits = 0;
};

/** SingleInstance::ask() from another thread, with this thread's event loop serving meanwhile. */
std::future<SingleInstance::Answer> askLater(const QString& name, const QByteArray& request, bool waitForEnd = false)
{
    return std::async(std::launch::async, [=] { return SingleInstance::ask(name, request, waitForEnd); });
}

SingleInstance::Answer serveUntilAnswered(std::future<SingleInstance::Answer> answer)
{
    // ask() gives up by itself after SingleInstance::replyTimeout, so get() never blocks for long.
    if (!QTest::qWaitFor([&] { return answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }, 20000))
        qWarning("no answer while serving");
    return answer.get();
}

} // namespace

class TestRemoteControl final : public QObject
{
    Q_OBJECT

signals:
    void propertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList& invalidated);

private slots:
    void init();
    void cleanup();

    void requestsGetOneReplyEach_data();
    void requestsGetOneReplyEach();
    void oldAndBrokenSenders();
    void quitStopsListeningAndHoldsTheConnection();
    void dbusRefusesWithoutChanging();

private:
    QString serverName() const { return m_dir->filePath(u"instance"_s); }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<SettingsStore> m_settings;
    std::unique_ptr<FakeActions> m_actions;
    std::unique_ptr<RemoteControl> m_control;
    std::unique_ptr<SingleInstance> m_instance;
};

void TestRemoteControl::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_settings = std::make_unique<SettingsStore>(m_dir->filePath(u"settings.json"_s));
    m_actions = std::make_unique<FakeActions>();
    m_control = std::make_unique<RemoteControl>(*m_actions, *m_settings);
    m_instance = std::make_unique<SingleInstance>(serverName());
    QCOMPARE(m_instance->claim(), SingleInstance::Role::primary);
    m_instance->setHandler([this](const RemoteCommand& command) { return m_control->run(command); });
}

void TestRemoteControl::cleanup()
{
    m_instance.reset();
    m_control.reset();
    m_actions.reset();
    m_settings.reset();
    m_dir.reset();
}

void TestRemoteControl::requestsGetOneReplyEach_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("visible");
    QTest::addColumn<int>("settingsOpened");
    QTest::addColumn<QString>("activeTheme");

    const QString spacegray = defaultThemeName();
    QTest::newRow("show") << "show"_ba
                          << "ok"_ba << true << 0 << spacegray;
    QTest::newRow("hide") << "hide"_ba
                          << "ok"_ba << false << 0 << spacegray;
    QTest::newRow("toggle") << "toggle"_ba
                            << "ok"_ba << true << 0 << spacegray;
    QTest::newRow("settings") << "settings"_ba
                              << "ok"_ba << false << 1 << spacegray;
    QTest::newRow("theme") << "theme Light%20Rose"_ba
                           << "ok"_ba << false << 0 << u"Light Rose"_s;
    QTest::newRow("unknown theme") << "theme Nope"_ba
                                   << "error no saved theme is named \"Nope\"; saved themes: Spacegray, Chiclet, "
                                      "Black, Muted"_ba
                                   << false << 0 << spacegray;
    QTest::newRow("pause") << "pause"_ba << "ok"_ba << false << 0 << spacegray;
    QTest::newRow("garbage") << "rm -rf /"_ba
                             << "error unknown request"_ba << false << 0 << spacegray;
    QTest::newRow("too long") << QByteArray(SingleInstance::maxRequestLength + 10, 'x') << "error request too long"_ba
                              << false << 0 << spacegray;
}

void TestRemoteControl::requestsGetOneReplyEach()
{
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, reply);
    QFETCH(bool, visible);
    QFETCH(int, settingsOpened);
    QFETCH(QString, activeTheme);
    const SingleInstance::Answer answer = serveUntilAnswered(askLater(serverName(), request));
    QCOMPARE(answer.status, SingleInstance::Answer::Status::replied);
    QVERIFY2(answer.reply.startsWith(reply), answer.reply.constData());
    QCOMPARE(answer.error().has_value(), reply.startsWith("error"));
    QCOMPARE(m_actions->visible, visible);
    QCOMPARE(m_actions->settingsOpened, settingsOpened);
    QCOMPARE(m_settings->value(SettingKeys::activeThemeName()), activeTheme);
    QCOMPARE(m_actions->quits, 0);
}

void TestRemoteControl::oldAndBrokenSenders()
{
    QSignalSpy showRequested(m_instance.get(), &SingleInstance::showRequested);
    // An earlier version: "show", and gone before any reply.
    {
        QLocalSocket old;
        old.connectToServer(serverName());
        QVERIFY(old.waitForConnected(5000));
        old.write("show\n");
        QVERIFY(old.waitForBytesWritten(5000));
    }
    QVERIFY(showRequested.wait(5000));
    QTRY_VERIFY(m_actions->visible);

    // Several requests in one write are answered in order; bytes without a line break end the connection.
    QLocalSocket socket;
    socket.connectToServer(serverName());
    QVERIFY(socket.waitForConnected(5000));
    socket.write("hide\n\x01\x02\ntoggle\n");
    QByteArray replies;
    QVERIFY(QTest::qWaitFor([&] { return (replies += socket.readAll()).count('\n') == 3; }, 5000));
    QCOMPARE(replies, "ok\nerror unknown request\nok\n"_ba);
    socket.write(QByteArray(64 * 1024, 'x'));
    QTRY_COMPARE_WITH_TIMEOUT(socket.state(), QLocalSocket::UnconnectedState, 5000);
    QVERIFY(m_actions->visible);
    // The instance serves on.
    QCOMPARE(serveUntilAnswered(askLater(serverName(), "hide")).reply, "ok"_ba);
}

void TestRemoteControl::quitStopsListeningAndHoldsTheConnection()
{
    std::future<SingleInstance::Answer> quitting = askLater(serverName(), "quit", true);
    QTRY_COMPARE_WITH_TIMEOUT(m_actions->quits, 1, 5000);
    // A start now finds nobody listening, so it becomes the instance itself.
    QCOMPARE(SingleInstance::ask(serverName(), "show").status, SingleInstance::Answer::Status::noInstance);
    // The sender of "quit" learns of the end only when this instance is gone.
    QTest::qWait(200);
    QCOMPARE(quitting.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    m_instance.reset();
    const SingleInstance::Answer answer = serveUntilAnswered(std::move(quitting));
    QCOMPARE(answer.status, SingleInstance::Answer::Status::replied);
    QCOMPARE(answer.reply, "ok"_ba);
}

// What the running program offers over D-Bus is driven end to end in teste2e; here, what it refuses.
void TestRemoteControl::dbusRefusesWithoutChanging()
{
    DBusTest::PrivateBus bus;
    if (bus.address().isEmpty())
        QSKIP("dbus-daemon is not installed or did not start");
    DBusService service(*m_control);
    QVERIFY2(service.registerOn(bus.connect()), qPrintable(service.errorText()));
    // A second Ordalis on the same bus goes without; the first serves on.
    DBusService second(*m_control);
    QVERIFY(!second.registerOn(bus.connect()));
    QVERIFY2(second.errorText().contains(u"taken"_s), qPrintable(second.errorText()));

    const QDBusConnection client = bus.connect();
    QCOMPARE(DBusTest::call(client, u"ChooseTheme"_s, { u"Black"_s }).type(), QDBusMessage::ReplyMessage);
    QFile file(m_settings->filePath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray before = file.readAll();
    file.close();

    const QDBusMessage unknown = DBusTest::call(client, u"ChooseTheme"_s, { u"black"_s });
    QCOMPARE(unknown.errorName(), u"org.freedesktop.DBus.Error.InvalidArgs"_s);
    QVERIFY2(unknown.errorMessage().startsWith(u"no saved theme is named \"black\"; saved themes: Spacegray"_s),
        qPrintable(unknown.errorMessage()));
    // Hide hides, also what is hidden already.
    QCOMPARE(DBusTest::call(client, u"Hide"_s).type(), QDBusMessage::ReplyMessage);
    QVERIFY(!m_actions->visible);
    const QDBusMessage set = DBusTest::callOn(client, u"org.freedesktop.DBus.Properties"_s, u"Set"_s,
        { QString::fromLatin1(DBusService::interfaceName), u"Visible"_s, QVariant::fromValue(QDBusVariant(true)) });
    QCOMPARE(set.type(), QDBusMessage::ErrorMessage);
    QVERIFY(!m_actions->visible);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), before);

    // KeySource is announced as it changes.
    QDBusConnection watcher = bus.connect();
    QSignalSpy changes(this, &TestRemoteControl::propertiesChanged);
    QVERIFY(watcher.connect({}, QString::fromLatin1(DBusService::objectPath), u"org.freedesktop.DBus.Properties"_s,
        u"PropertiesChanged"_s, this, SIGNAL(propertiesChanged(QString, QVariantMap, QStringList))));
    emit m_control->keySourceChanged(u"helper"_s);
    QTRY_COMPARE(changes.size(), 1);
    QCOMPARE(changes.at(0).at(1).toMap(), (QVariantMap { { u"KeySource"_s, u"helper"_s } }));

    // Pause and Resume, and Paused read and announced; the property cannot be written.
    const auto paused = [&] {
        const QDBusMessage reply = DBusTest::callOn(client, u"org.freedesktop.DBus.Properties"_s, u"Get"_s,
            { QString::fromLatin1(DBusService::interfaceName), u"Paused"_s });
        return reply.arguments().value(0).value<QDBusVariant>().variant();
    };
    QCOMPARE(paused(), QVariant(false));
    QCOMPARE(DBusTest::call(client, u"Pause"_s).type(), QDBusMessage::ReplyMessage);
    QVERIFY(m_actions->paused);
    QCOMPARE(paused(), QVariant(true));
    const QDBusMessage write = DBusTest::callOn(client, u"org.freedesktop.DBus.Properties"_s, u"Set"_s,
        { QString::fromLatin1(DBusService::interfaceName), u"Paused"_s, QVariant::fromValue(QDBusVariant(false)) });
    QCOMPARE(write.type(), QDBusMessage::ErrorMessage);
    QVERIFY(m_actions->paused);
    QCOMPARE(DBusTest::call(client, u"Resume"_s).type(), QDBusMessage::ReplyMessage);
    QVERIFY(!m_actions->paused);
    emit m_control->pausedChanged(true);
    QTRY_COMPARE(changes.size(), 2);
    QCOMPARE(changes.at(1).at(1).toMap(), (QVariantMap { { u"Paused"_s, true } }));
}

QTEST_GUILESS_MAIN(TestRemoteControl)
#include "testremotecontrol.moc"
