// SPDX-License-Identifier: GPL-3.0-or-later
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;

// Runs the real executable, the way a session starts and ends it.
class TestApplication final : public QObject
{
    Q_OBJECT

private slots:
    void printsVersion();
    void terminationSignalEndsCleanly_data();
    void terminationSignalEndsCleanly();

private:
    static QProcessEnvironment environment(const QTemporaryDir& home);
};

QProcessEnvironment TestApplication::environment(const QTemporaryDir& home)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    env.insert(u"XDG_CONFIG_HOME"_s, home.filePath(u"config"_s));
    env.insert(u"XDG_RUNTIME_DIR"_s, home.path());
    return env;
}

void TestApplication::printsVersion()
{
    QTemporaryDir home;
    QProcess process;
    process.setProcessEnvironment(environment(home));
    process.start(QStringLiteral(ORDALIS_BINARY), { u"--version"_s });
    QVERIFY(process.waitForFinished(20000));
    QCOMPARE(process.exitCode(), 0);
    QVERIFY(process.readAllStandardOutput().startsWith("Ordalis "));
}

void TestApplication::terminationSignalEndsCleanly_data()
{
    QTest::addColumn<int>("signalNumber");
    QTest::newRow("SIGTERM from the session") << int(SIGTERM);
    QTest::newRow("SIGINT from a terminal") << int(SIGINT);
}

void TestApplication::terminationSignalEndsCleanly()
{
    QFETCH(int, signalNumber);
    QTemporaryDir home;
    QProcess process;
    process.setProcessEnvironment(environment(home));
    process.start(QStringLiteral(ORDALIS_BINARY), {});
    QVERIFY(process.waitForStarted(20000));

    // The settings folder exists once the store is up, which is when the signal handler is installed too.
    QTRY_VERIFY_WITH_TIMEOUT(QDir(home.filePath(u"config/ordalis"_s)).exists(), 20000);
    ::kill(pid_t(process.processId()), signalNumber);
    QVERIFY(process.waitForFinished(20000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(process.readAllStandardError(), QByteArray());
}

QTEST_GUILESS_MAIN(TestApplication)
#include "testapplication.moc"
