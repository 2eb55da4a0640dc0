// SPDX-License-Identifier: GPL-3.0-or-later
// A long session: the real program with its keyboard panel on a private Xvfb, typed into at ten keys a second, its
// memory measured after a warm-up and at the end. Two minutes by default; ORDALIS_LONG_RUN_SECONDS sets another
// length (1800 for half an hour). Skips when Xvfb or xdotool is missing.
#include "ordalisprogram.h"

#include <QRandomGenerator>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace X11Test;

namespace {

/** Resident memory may grow by this much over the run: room for allocator noise, not for a leak per key. */
constexpr qint64 allowedGrowthKb = 5 * 1024;
constexpr int warmUpSeconds = 15;

/**
 * Keys as typed in a working day: letters and digits, chords with both Shifts and Alt, Return, arrows, Caps Lock.
 * Never Control, the trigger: three in a row would hide the keyboard.
 */
QStringList someKeys(QRandomGenerator& random)
{
    static const QStringList keys { u"a"_s, u"s"_s, u"d"_s, u"f"_s, u"j"_s, u"k"_s, u"l"_s, u"e"_s, u"r"_s, u"t"_s,
        u"o"_s, u"n"_s, u"1"_s, u"2"_s, u"space"_s, u"Return"_s, u"BackSpace"_s, u"Left"_s, u"Up"_s, u"comma"_s,
        u"shift+a"_s, u"shift+z"_s, u"Shift_R+k"_s, u"alt+f"_s, u"Caps_Lock"_s, u"F5"_s };
    QStringList chosen;
    for (int i = 0; i < 10; ++i)
        chosen << keys[random.bounded(qsizetype(keys.size()))];
    return chosen;
}

} // namespace

class TestLongRun final : public QObject
{
    Q_OBJECT

private slots:
    void memoryStaysFlatWhileTyping();
};

void TestLongRun::memoryStaysFlatWhileTyping()
{
    if (QGuiApplication::platformName() != u"xcb"_s)
        QSKIP("Xvfb is not installed or did not start");
    if (QStandardPaths::findExecutable(u"xdotool"_s).isEmpty())
        QSKIP("xdotool is not installed");
    bool ok = false;
    int seconds = qEnvironmentVariable("ORDALIS_LONG_RUN_SECONDS").toInt(&ok);
    if (!ok || seconds <= 0)
        seconds = 120;

    Helper windowManager;
    if (!QStandardPaths::findExecutable(u"openbox"_s).isEmpty()) {
        windowManager = launch(u"openbox"_s, { u"--sm-disable"_s }, QProcessEnvironment::systemEnvironment());
        QTRY_VERIFY_WITH_TIMEOUT(!propertyBytes(root(), "_NET_SUPPORTING_WM_CHECK").isEmpty(), deadline);
    }
    OrdalisProgram::Home home;
    QVERIFY(home.create());
    OrdalisProgram::switchEverythingOn(home.settingsPath());
    Helper ordalis = OrdalisProgram::start(home.environment(), home.path(u"stdout"_s), home.path(u"stderr"_s));
    QVERIFY(ordalis);
    QTRY_VERIFY_WITH_TIMEOUT(OrdalisProgram::panel() != 0, deadline);
    QVERIFY(xdotool({ u"mousemove"_s, u"--sync"_s, u"1"_s, u"1"_s }));
    const qint64 pid = ordalis->processId();

    QRandomGenerator random(QRandomGenerator::system()->generate());
    qint64 keys = 0;
    const auto typeFor = [&](int duration) {
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < qint64(duration) * 1000) {
            // Ten keys a second: a tenth of a second apart, less what starting xdotool takes.
            QStringList words { u"key"_s, u"--delay"_s, u"90"_s };
            words << someKeys(random);
            if (!xdotool(words))
                return false;
            keys += 10;
        }
        return true;
    };

    QVERIFY(typeFor(warmUpSeconds));
    const qint64 start = OrdalisProgram::residentKb(pid);
    QVERIFY(start > 0);
    qint64 highest = start;
    QElapsedTimer run;
    run.start();
    const int steps = qMax(1, (seconds - warmUpSeconds) / 10);
    for (int step = 0; step < steps; ++step) {
        QVERIFY(typeFor(qMax(1, (seconds - warmUpSeconds) / steps)));
        QCOMPARE(ordalis->state(), QProcess::Running);
        const qint64 now = OrdalisProgram::residentKb(pid);
        highest = qMax(highest, now);
        if (step % 6 == 5)
            qInfo("after %lld s: %lld keys, resident %lld kB", (run.elapsed() + 500) / 1000, keys, now);
    }
    const qint64 end = OrdalisProgram::residentKb(pid);
    qInfo("%lld keys in %lld s; resident memory after %d s of warm-up %lld kB, at the end %lld kB (%+lld kB), "
          "highest %lld kB",
        keys, (run.elapsed() + 500) / 1000 + warmUpSeconds, warmUpSeconds, start, end, end - start, highest);
    QVERIFY2(end - start <= allowedGrowthKb, qPrintable(u"grew by %1 kB"_s.arg(end - start)));
    QVERIFY(OrdalisProgram::panel() != 0);

    ordalis->terminate();
    QVERIFY(ordalis->waitForFinished(deadline));
    QCOMPARE(ordalis->exitStatus(), QProcess::NormalExit);
    QCOMPARE(ordalis->exitCode(), 0);
}

int main(int argc, char** argv)
{
    // Before anything connects to a display: the test brings its own and never touches the user's.
    // Room for a long run beyond Qt Test's five minutes per test function.
    const int seconds = qEnvironmentVariable("ORDALIS_LONG_RUN_SECONDS").toInt();
    if (seconds > 0 && qEnvironmentVariableIsEmpty("QTEST_FUNCTION_TIMEOUT"))
        qputenv("QTEST_FUNCTION_TIMEOUT", QByteArray::number((qint64(seconds) + 300) * 1000));
    const Helper server = startXServer(1280, 800);
    QTemporaryDir runtimeDir;
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtimeDir.path()));
    QGuiApplication app(argc, argv);
    TestLongRun test;
    return QTest::qExec(&test, argc, argv);
}

#include "testlongrun.moc"
