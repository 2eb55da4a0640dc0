// SPDX-License-Identifier: GPL-3.0-or-later
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

#include <unistd.h>

using namespace Qt::StringLiterals;

// Runs the real executable, the way a session starts and ends it.
class TestApplication final : public QObject
{
    Q_OBJECT

private slots:
    void printsVersion();
    void terminationSignalEndsCleanly_data();
    void terminationSignalEndsCleanly();
    void secondStartLeavesTheFirstRunning();

private:
    static QProcessEnvironment environment(const QTemporaryDir& home);
    /** Starts the program and waits until it is up: settings folder made, signals caught, instance socket open. */
    static bool startAndWait(QProcess& process, const QTemporaryDir& home);
    /** What the program may write to stderr on the offscreen platform, which has no tray and cannot raise windows. */
    static bool onlyExpectedMessages(const QByteArray& stderrText);
};

QProcessEnvironment TestApplication::environment(const QTemporaryDir& home)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    env.insert(u"XDG_CONFIG_HOME"_s, home.filePath(u"config"_s));
    env.insert(u"XDG_RUNTIME_DIR"_s, home.path());
    return env;
}

bool TestApplication::startAndWait(QProcess& process, const QTemporaryDir& home)
{
    process.setProcessEnvironment(environment(home));
    process.start(QStringLiteral(ORDALIS_BINARY), {});
    if (!process.waitForStarted(20000))
        return false;
    const QString socket = home.filePath(u"ordalis-%1"_s.arg(::getuid()));
    return QTest::qWaitFor(
        [&] { return QDir(home.filePath(u"config/ordalis"_s)).exists() && QFile::exists(socket); }, 20000);
}

bool TestApplication::onlyExpectedMessages(const QByteArray& stderrText)
{
    for (const QByteArray& line : stderrText.split('\n')) {
        if (!line.isEmpty() && !line.startsWith("Ordalis: no system tray") && !line.startsWith("This plugin does not")
            && !line.contains("systemTrayWindowChanged"))
            return false;
    }
    return true;
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
    QVERIFY(startAndWait(process, home));
    ::kill(pid_t(process.processId()), signalNumber);
    QVERIFY(process.waitForFinished(20000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    const QByteArray errors = process.readAllStandardError();
    QVERIFY2(onlyExpectedMessages(errors), errors.constData());
}

void TestApplication::secondStartLeavesTheFirstRunning()
{
    QTemporaryDir home;
    QProcess first;
    QVERIFY(startAndWait(first, home));

    QProcess second;
    second.setProcessEnvironment(environment(home));
    second.start(QStringLiteral(ORDALIS_BINARY), {});
    QVERIFY(second.waitForFinished(20000));
    QCOMPARE(second.exitStatus(), QProcess::NormalExit);
    QCOMPARE(second.exitCode(), 0);
    QCOMPARE(first.state(), QProcess::Running);

    ::kill(pid_t(first.processId()), SIGTERM);
    QVERIFY(first.waitForFinished(20000));
    QCOMPARE(first.exitCode(), 0);
    // Ended in order, so the next start finds no socket in its way.
    QVERIFY(!QFile::exists(home.filePath(u"ordalis-%1"_s.arg(::getuid()))));
}

QTEST_GUILESS_MAIN(TestApplication)
#include "testapplication.moc"
