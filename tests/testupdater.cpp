// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/clock.h"
#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "testsupport.h"
#include "ui/updaterfeed.h"
#include "ui/updatermanager.h"

#include <QNetworkProxyFactory>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

constexpr int networkDeadline = 10000; // ms
constexpr double epoch = 1'800'000'000.0;

QByteArray feed(const QByteArray& version, const QByteArray& notes = "https://example.org/notes/1")
{
    return R"({"version": ")" + version + R"(", "notes": ")" + notes
        + R"(", "download": "https://example.org/ordalis.tar.gz"})";
}

QByteArray response(const QByteArray& body, int status = 200, bool announceLength = true)
{
    QByteArray text = "HTTP/1.1 " + QByteArray::number(status) + " Whatever\r\nContent-Type: application/json\r\n";
    if (announceLength)
        text += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    return text + "Connection: close\r\n\r\n" + body;
}

/** Answers every request with one canned response, or with nothing at all while `response` is empty. */
class FeedServer final : public QObject
{
public:
    QByteArray response;
    int requests = 0;

    FeedServer()
    {
        QVERIFY(m_server.listen(QHostAddress::LocalHost));
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            QTcpSocket* socket = m_server.nextPendingConnection();
            socket->setParent(this);
            connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                // A GET ends with its empty line.
                if (!socket->peek(1 << 16).endsWith("\r\n\r\n"))
                    return;
                socket->readAll();
                ++requests;
                if (!response.isEmpty()) {
                    socket->write(response);
                    socket->disconnectFromHost();
                }
            });
        });
    }

    QUrl url() const { return QUrl(u"http://127.0.0.1:%1/feed.json"_s.arg(m_server.serverPort())); }

private:
    QTcpServer m_server;
};

/** Every outcome an updater reports, as one line each. */
struct Outcomes
{
    QStringList lines;

    explicit Outcomes(UpdaterManager& updater)
    {
        const auto who = [](bool user) { return user ? u"user"_s : u"automatic"_s; };
        QObject::connect(&updater, &UpdaterManager::updateAvailable, &updater,
            [=, this](const QString& version, const QUrl& notes, const QUrl& download, bool user) {
                lines << u"available %1 %2 %3 %4"_s.arg(version, notes.toString(), download.toString(), who(user));
            });
        QObject::connect(&updater, &UpdaterManager::upToDate, &updater,
            [=, this](bool user) { lines << u"up to date "_s + who(user); });
        QObject::connect(&updater, &UpdaterManager::failed, &updater,
            [=, this](const QString& message, bool user) { lines << u"failed %1 %2"_s.arg(message, who(user)); });
    }
};

} // namespace

class TestUpdater final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QNetworkProxyFactory::setUseSystemConfiguration(false); }
    void init();
    void check_data();
    void check();
    void checkWithoutAnswerTimesOut();
    void automaticChecks();
    void automaticChecksAfterARestart();
    void withoutAFeedNothingIsFetched();

private:
    std::unique_ptr<UpdaterManager> makeUpdater(std::optional<QUrl> feedUrl, const QString& version = u"1.9.0"_s)
    {
        return std::make_unique<UpdaterManager>(
            *m_settings, *m_clock, UpdaterEnvironment { feedUrl, version, [this] { return epoch + m_clock->now(); } });
    }

    std::unique_ptr<TestSupport::TemporaryStore> m_store;
    SettingsStore* m_settings = nullptr;
    std::unique_ptr<ManualClock> m_clock;
};

void TestUpdater::init()
{
    m_store = std::make_unique<TestSupport::TemporaryStore>();
    m_settings = &**m_store;
    m_clock = std::make_unique<ManualClock>(100.0);
}

void TestUpdater::check_data()
{
    QTest::addColumn<QByteArray>("answer"); // empty: nobody listens on the port
    QTest::addColumn<QString>("outcome");

    const QString newer = u"available 1.10.0 https://example.org/notes/1 https://example.org/ordalis.tar.gz user"_s;
    const QString unreadable = u"failed The update information could not be read. user"_s;
    const QString tooLarge = u"failed The update information is too large. user"_s;
    const QString unreachable = u"failed The update server could not be reached. user"_s;
    // Whitespace after the object keeps it valid JSON, so only its size can be the matter.
    const auto padded
        = [](const QByteArray& json, qsizetype size) { return json + QByteArray(size - json.size(), ' '); };

    // Versions compare number by number; missing numbers count as zero.
    QTest::newRow("newer") << response(feed("1.10.0")) << newer;
    QTest::newRow("same") << response(feed("1.9")) << u"up to date user"_s;
    QTest::newRow("older") << response(feed("1.8.12")) << u"up to date user"_s;
    QTest::newRow("malformed version") << response(feed("1.10-beta")) << unreadable;
    QTest::newRow("64 KB and a byte") << response(padded(feed("1.10.0"), 64 * 1024 + 1)) << tooLarge;
    QTest::newRow("too large, no length announced")
        << response(padded(feed("1.10.0"), 200 * 1024), 200, false) << tooLarge;
    QTest::newRow("not JSON") << response(R"({"version": "1.10.0", )") << unreadable;
    QTest::newRow("link not https") << response(feed("1.10.0", "http://example.org/notes")) << unreadable;
    QTest::newRow("server error") << response(feed("1.10.0"), 500) << unreachable;
    QTest::newRow("connection refused") << QByteArray() << unreachable;
}

void TestUpdater::check()
{
    QFETCH(QByteArray, answer);
    QFETCH(QString, outcome);
    auto server = std::make_unique<FeedServer>();
    server->response = answer;
    const QUrl url = server->url();
    if (answer.isEmpty())
        server.reset();
    const std::unique_ptr<UpdaterManager> updater = makeUpdater(url);
    Outcomes outcomes(*updater);

    updater->checkForUpdates(true);
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.lines, QStringList { outcome }, networkDeadline);
    // The timeout went with the check: running on reports nothing more.
    m_clock->advance(UpdaterManager::checkTimeout * 2);
    QCOMPARE(outcomes.lines.size(), 1);
}

void TestUpdater::checkWithoutAnswerTimesOut()
{
    FeedServer server;
    const std::unique_ptr<UpdaterManager> updater = makeUpdater(server.url());
    Outcomes outcomes(*updater);

    updater->checkForUpdates(false);
    QTRY_COMPARE_WITH_TIMEOUT(server.requests, 1, networkDeadline);
    // Asking while a check runs sends no second request: the running check answers the user.
    updater->checkForUpdates(true);
    updater->checkForUpdates(false);
    m_clock->advance(UpdaterManager::checkTimeout - 0.01);
    QVERIFY(updater->isChecking());
    m_clock->advance(0.01);
    QCOMPARE(outcomes.lines, QStringList { u"failed The update server did not answer in time. user"_s });
    QCOMPARE(server.requests, 1);
}

void TestUpdater::automaticChecks()
{
    FeedServer server;
    server.response = response(feed("1.9.0"));
    const std::unique_ptr<UpdaterManager> updater = makeUpdater(server.url());
    Outcomes outcomes(*updater);

    // Turned on with no check ever made: one check at once, then one per interval from its start.
    updater->setAutomaticallyChecksForUpdates(true);
    QCOMPARE(updater->nextAutomaticCheck(), m_clock->now());
    m_clock->advance(0);
    QVERIFY(updater->isChecking());
    const double started = m_clock->now();
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.lines.size(), 1, networkDeadline);
    QCOMPARE(outcomes.lines.first(), u"up to date automatic"_s);
    QCOMPARE(updater->nextAutomaticCheck(), started + 86400);

    // Another interval counts from the last check; a check the user asks for moves the next automatic one.
    updater->setUpdateCheckInterval(UpdateCheckInterval::every3Days);
    QCOMPARE(updater->nextAutomaticCheck(), started + 259200);
    updater->checkForUpdates(true);
    QCOMPARE(updater->nextAutomaticCheck(), m_clock->now() + 259200);
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.lines.size(), 2, networkDeadline);

    // Turning off cancels what was planned, and changing the interval then plans nothing.
    updater->setAutomaticallyChecksForUpdates(false);
    updater->setUpdateCheckInterval(UpdateCheckInterval::daily);
    m_clock->advance(UpdateCheckIntervals::seconds(UpdateCheckInterval::weekly) * 2);
    QCOMPARE(server.requests, 2);
}

void TestUpdater::automaticChecksAfterARestart()
{
    // Seconds since the last check, and when the next one falls due: the rest of the day, at once when overdue,
    // one interval when the last check lies ahead (the clock was set back).
    for (const auto& [lastCheckAgo, dueIn] : QList<std::pair<double, double>> {
             { 3600.0, 86400.0 - 3600.0 }, { 2 * 86400.0, 0.0 }, { -5 * 86400.0, 86400.0 } }) {
        m_settings->setValue(SettingKeys::automaticallyChecksForUpdates(), true);
        m_settings->setValue(SettingKeys::lastUpdateCheckTime(), std::optional(epoch + m_clock->now() - lastCheckAgo));
        const std::unique_ptr<UpdaterManager> updater = makeUpdater(QUrl(u"http://127.0.0.1:9/"_s));
        QCOMPARE(updater->nextAutomaticCheck(), m_clock->now() + dueIn);
    }
}

void TestUpdater::withoutAFeedNothingIsFetched()
{
    // No feed, as in a build for a package manager.
    m_settings->setValue(SettingKeys::automaticallyChecksForUpdates(), true);
    const std::unique_ptr<UpdaterManager> updater = makeUpdater(QUrl());
    Outcomes outcomes(*updater);
    updater->setUpdateCheckInterval(UpdateCheckInterval::daily);
    QVERIFY(!updater->nextAutomaticCheck());
    updater->checkForUpdates(true);
    QTRY_COMPARE(
        outcomes.lines, QStringList { u"failed This copy of Ordalis is updated by its package manager. user"_s });
}

QTEST_MAIN(TestUpdater)
#include "testupdater.moc"
