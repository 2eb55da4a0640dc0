// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/clock.h"
#include "input/privacymonitor.h"
#include "input/recordingsources.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

/**
 * Builds a made-up /proc with one entry per item: "comm" or "comm: argv0 argv1 ..." (a command line, split at
 * spaces). "gone" is a process directory left empty, as when the process exits between the listing and the read;
 * "unreadable" has a `comm` that cannot be read; "file" is an entry that is no directory; "name=comm" names the
 * entry itself instead of giving it a PID.
 */
bool makeProcTree(const QString& root, const QStringList& processes)
{
    int pid = 100;
    for (QString process : processes) {
        QString entry = QString::number(pid++);
        if (const qsizetype equals = process.indexOf(u'='); equals > 0 && !process.left(equals).contains(u':')) {
            entry = process.left(equals);
            process = process.mid(equals + 1);
        }
        const QString dir = root + u'/' + entry;
        if (process == "file"_L1) {
            QFile file(dir);
            if (!file.open(QIODevice::WriteOnly))
                return false;
            continue;
        }
        if (!QDir().mkpath(dir))
            return false;
        if (process == "gone"_L1)
            continue;
        if (process == "unreadable"_L1) {
            // Read as a file, a directory fails, also for root, who may read every file.
            if (!QDir().mkpath(dir + u"/comm"_s))
                return false;
            continue;
        }
        const qsizetype colon = process.indexOf(u':');
        QFile comm(dir + u"/comm"_s);
        if (!comm.open(QIODevice::WriteOnly) || comm.write(process.left(colon).toUtf8() + '\n') < 0)
            return false;
        if (colon < 0)
            continue;
        QByteArray cmdline;
        for (const QString& argument : process.mid(colon + 1).split(u' ', Qt::SkipEmptyParts))
            cmdline += argument.toUtf8() + '\0';
        QFile file(dir + u"/cmdline"_s);
        if (!file.open(QIODevice::WriteOnly) || file.write(cmdline) != cmdline.size())
            return false;
    }
    return true;
}

// What a fake source answers, kept outside it because the monitor owns the source.
struct Script
{
    enum Answer { no, yes, throwsStd, throwsOther };
    Answer answer = no;
    int polls = 0;
};

class FakeSource final : public RecordingSource
{
public:
    explicit FakeSource(Script& script)
        : m_script(script)
    {
    }

    bool isRecording() override
    {
        ++m_script.polls;
        if (m_script.answer == Script::throwsStd)
            throw std::runtime_error("no answer");
        if (m_script.answer == Script::throwsOther)
            throw 42;
        return m_script.answer == Script::yes;
    }

private:
    Script& m_script;
};

struct Fixture
{
    ManualClock clock { 100.0 };
    Script script;
    PrivacyMonitor monitor { clock, std::make_unique<FakeSource>(script) };
    QSignalSpy changes { &monitor, &PrivacyMonitor::screenRecordingActiveChanged };

    QList<bool> changedTo() const
    {
        QList<bool> values;
        for (const QList<QVariant>& arguments : changes)
            values << arguments.at(0).toBool();
        return values;
    }
};

} // namespace

class TestPrivacyMonitor final : public QObject
{
    Q_OBJECT

private slots:
    void recorderProcesses_data();
    void recorderProcesses();
    void aScanSeesProcessesComeAndGo();
    void aRealProcessIsSeen();
    void combinedSourceAsksEverySourceUntilOneSaysYes();

    void pollsInsideStartThenEveryTwoSeconds();
    void theStateIsTheLatestAnswerAndChangesAreSignalledOnce();
    void everyFailureReadsAsNoRecording();
    void stopEndsPolling();
};

void TestPrivacyMonitor::recorderProcesses_data()
{
    QTest::addColumn<QStringList>("processes");
    QTest::addColumn<bool>("recording");

    const QStringList ordinary { u"systemd: /sbin/init"_s, u"bash: -bash"_s, u"kthreadd"_s };
    QTest::newRow("Empty /proc") << QStringList() << false;
    QTest::newRow("No recorder") << ordinary << false;
    for (const QString& recorder : { u"obs"_s, u"simplescreenrec"_s, u"gpu-screen-reco"_s, u"vokoscreenNG"_s,
             u"wf-recorder"_s, u"peek"_s, u"kooha"_s, u"kazam"_s, u"recordmydesktop"_s }) {
        QTest::addRow("Recorder %s", qPrintable(recorder)) << ordinary + QStringList { recorder } << true;
    }
    QTest::newRow("Names that only resemble a recorder's")
        << QStringList { u"obsidian"_s, u"ob"_s, u"OBS"_s, u"kazam-helper"_s, u"peekaboo"_s } << false;

    QTest::newRow("ffmpeg grabbing X11") << QStringList { u"ffmpeg: ffmpeg -f x11grab -i :0.0 out.mkv"_s } << true;
    QTest::newRow("ffmpeg grabbing KMS") << QStringList { u"ffmpeg: ffmpeg -f kmsgrab -i - out.mkv"_s } << true;
    QTest::newRow("ffmpeg converting a file") << QStringList { u"ffmpeg: ffmpeg -i in.mp4 out.webm"_s } << false;
    QTest::newRow("gst-launch from ximagesrc")
        << QStringList { u"gst-launch-1.0: gst-launch-1.0 ximagesrc ! videoconvert ! filesink"_s } << true;
    QTest::newRow("gst-launch from a PipeWire screen cast")
        << QStringList { u"gst-launch-1.0: gst-launch-1.0 pipewiresrc path=42 ! fakesink"_s } << true;
    QTest::newRow("gst-launch from a webcam")
        << QStringList { u"gst-launch-1.0: gst-launch-1.0 v4l2src ! autovideosink"_s } << false;
    QTest::newRow("Other programs whose command line names a screen input")
        << QStringList { u"vim: vim x11grab.txt"_s, u"grep: grep -r pipewiresrc ."_s } << false;

    QTest::newRow("Kazam run by python3") << QStringList { u"python3: /usr/bin/python3 /usr/bin/kazam"_s } << true;
    QTest::newRow("Kazam run by python3 with options")
        << QStringList { u"python3: python3 -u /usr/bin/kazam --silent"_s } << true;
    QTest::newRow("Kazam run by sh") << QStringList { u"sh: /bin/sh ./kazam"_s } << true;
    QTest::newRow("A script named after a recorder whose name comm cuts short")
        << QStringList { u"python3.11: python3.11 /opt/bin/gpu-screen-recorder"_s } << true;
    QTest::newRow("A recorder's name as a later argument of a script")
        << QStringList { u"python3: python3 convert.py obs"_s, u"sh: sh ./record.sh kazam"_s } << false;
    QTest::newRow("An interpreter without a script") << QStringList { u"python3: python3"_s } << false;

    QTest::newRow("A process gone before its comm is read") << QStringList { u"gone"_s } << false;
    QTest::newRow("A grabber gone before its command line is read") << QStringList { u"ffmpeg"_s } << false;
    QTest::newRow("Unreadable entries") << QStringList { u"unreadable"_s, u"file"_s } << false;
    QTest::newRow("A recorder after entries that cannot be read")
        << QStringList { u"gone"_s, u"ffmpeg"_s, u"unreadable"_s, u"file"_s, u"python3"_s, u"obs"_s } << true;
    QTest::newRow("Only process directories count")
        << QStringList { u"self=obs"_s, u"12a=kazam"_s } << false;
}

void TestPrivacyMonitor::recorderProcesses()
{
    QFETCH(QStringList, processes);
    QFETCH(bool, recording);
    QTemporaryDir proc;
    QVERIFY(makeProcTree(proc.path(), processes));
    RecorderProcessSource source(proc.path());
    QCOMPARE(source.isRecording(), recording);
}

void TestPrivacyMonitor::aScanSeesProcessesComeAndGo()
{
    QTemporaryDir proc;
    RecorderProcessSource source(proc.path());
    QVERIFY(makeProcTree(proc.path(), { u"ffmpeg: ffmpeg -f x11grab -i :0.0 a-long-file-name.mkv"_s }));
    QVERIFY(source.isRecording());
    // The same process starts over with a shorter command line: nothing of the first one may linger.
    QVERIFY(QDir(proc.filePath(u"100"_s)).removeRecursively());
    QVERIFY(makeProcTree(proc.path(), { u"ffmpeg: ffmpeg -i x11.mkv"_s }));
    QVERIFY(!source.isRecording());
    QVERIFY(QDir(proc.filePath(u"100"_s)).removeRecursively());
    QVERIFY(!source.isRecording());

    QVERIFY(!RecorderProcessSource(proc.filePath(u"missing"_s)).isRecording());

    // A process of another name is not read again until a full scan; a new process is read at once.
    QVERIFY(makeProcTree(proc.path(), { u"200=gnome-shell: gnome-shell"_s }));
    QVERIFY(!source.isRecording());
    QVERIFY(makeProcTree(proc.path(), { u"200=obs: obs"_s }));
    int scans = 1;
    while (!source.isRecording())
        ++scans;
    QVERIFY2(scans > 1 && scans <= RecorderProcessSource::fullScanEvery, qPrintable(QString::number(scans)));
    QVERIFY(QDir(proc.filePath(u"200"_s)).removeRecursively());
    QVERIFY(!source.isRecording());
    QVERIFY(makeProcTree(proc.path(), { u"200=obs: obs"_s }));
    QVERIFY(source.isRecording());
}

void TestPrivacyMonitor::aRealProcessIsSeen()
{
    RecorderProcessSource source;
    if (source.isRecording())
        QSKIP("A screen recorder runs on this machine");
    QTemporaryDir dir;
    const QString recorder = dir.filePath(u"wf-recorder"_s);
    QVERIFY(QFile::copy(u"/bin/sleep"_s, recorder));
    QProcess process;
    process.start(recorder, { u"600"_s });
    QVERIFY(process.waitForStarted());
    const bool seen = source.isRecording();
    process.kill();
    QVERIFY(process.waitForFinished());
    QVERIFY(seen);
    QVERIFY(!source.isRecording());
}

void TestPrivacyMonitor::combinedSourceAsksEverySourceUntilOneSaysYes()
{
    Script failing { Script::throwsStd };
    Script silent;
    Script recording { Script::yes };
    Script last { Script::yes };

    CombinedRecordingSource combined;
    QVERIFY(!combined.isRecording());
    combined.add(std::make_unique<FakeSource>(failing));
    combined.add(nullptr);
    combined.add(std::make_unique<FakeSource>(silent));
    QVERIFY(!combined.isRecording());
    combined.add(std::make_unique<FakeSource>(recording));
    combined.add(std::make_unique<FakeSource>(last));
    QVERIFY(combined.isRecording());
    QCOMPARE(QList<int>({ failing.polls, silent.polls, recording.polls, last.polls }), QList<int>({ 2, 2, 1, 0 }));
}

void TestPrivacyMonitor::pollsInsideStartThenEveryTwoSeconds()
{
    Fixture f;
    f.script.answer = Script::yes;
    f.monitor.start();
    QCOMPARE(f.script.polls, 1);
    QCOMPARE(f.changedTo(), QList<bool>({ true }));
    f.clock.advance(1.999);
    QCOMPARE(f.script.polls, 1);
    f.clock.advance(0.001);
    QCOMPARE(f.script.polls, 2);
    f.clock.advance(10.0);
    QCOMPARE(f.script.polls, 7);

    // Starting again while running neither polls nor adds a second cadence.
    f.monitor.start();
    f.clock.advance(2.0);
    QCOMPARE(f.script.polls, 8);
    QCOMPARE(f.clock.pendingJobCount(), 1);
}

void TestPrivacyMonitor::theStateIsTheLatestAnswerAndChangesAreSignalledOnce()
{
    Fixture f;
    f.monitor.start();
    QVERIFY(f.changes.isEmpty());
    const QList<Script::Answer> answers { Script::yes, Script::yes, Script::no, Script::no, Script::yes };
    for (const Script::Answer answer : answers) {
        f.script.answer = answer;
        f.clock.advance(PrivacyMonitor::pollInterval);
        QCOMPARE(f.monitor.screenRecordingActive(), answer == Script::yes);
        QCOMPARE(f.monitor.property("screenRecordingActive").toBool(), answer == Script::yes);
    }
    QCOMPARE(f.changedTo(), QList<bool>({ true, false, true }));
}

void TestPrivacyMonitor::everyFailureReadsAsNoRecording()
{
    Fixture f;
    f.script.answer = Script::yes;
    f.monitor.start();
    f.script.answer = Script::throwsStd;
    f.clock.advance(2.0);
    QVERIFY(!f.monitor.screenRecordingActive());
    f.script.answer = Script::yes;
    f.clock.advance(2.0);
    f.script.answer = Script::throwsOther;
    f.clock.advance(2.0);
    QVERIFY(!f.monitor.screenRecordingActive());
    // A failing poll does not end the polling.
    f.clock.advance(4.0);
    QCOMPARE(f.script.polls, 6);
    QCOMPARE(f.changedTo(), QList<bool>({ true, false, true, false }));

    ManualClock clock;
    PrivacyMonitor withoutSource(clock, nullptr);
    withoutSource.start();
    clock.advance(2.0);
    QVERIFY(!withoutSource.screenRecordingActive());
}

void TestPrivacyMonitor::stopEndsPolling()
{
    Fixture f;
    f.script.answer = Script::yes;
    f.monitor.start();
    f.clock.advance(3.0);
    f.monitor.stop();
    QVERIFY(!f.monitor.isRunning());
    f.clock.advance(10.0);
    QCOMPARE(f.script.polls, 2);
    QVERIFY(f.monitor.screenRecordingActive());

    // A new start polls at once and counts its two seconds from there.
    f.monitor.start();
    QCOMPARE(f.script.polls, 3);
    f.clock.advance(1.5);
    QCOMPARE(f.script.polls, 3);
    f.clock.advance(0.5);
    QCOMPARE(f.script.polls, 4);

    // A listener may stop the watcher from the change signal, also during the first poll.
    for (const bool onFirstPoll : { true, false }) {
        Fixture g;
        g.script.answer = onFirstPoll ? Script::yes : Script::no;
        connect(&g.monitor, &PrivacyMonitor::screenRecordingActiveChanged, &g.monitor, &PrivacyMonitor::stop);
        g.monitor.start();
        g.script.answer = Script::yes;
        g.clock.advance(10.0);
        QCOMPARE(g.script.polls, onFirstPoll ? 1 : 2);
        QCOMPARE(g.clock.pendingJobCount(), 0);
    }

    // A watcher that goes away takes its polling with it.
    Script script;
    ManualClock clock;
    auto monitor = std::make_unique<PrivacyMonitor>(clock, std::make_unique<FakeSource>(script));
    monitor->start();
    monitor.reset();
    clock.advance(10.0);
    QCOMPARE(script.polls, 1);
    QCOMPARE(clock.pendingJobCount(), 0);
}

QTEST_GUILESS_MAIN(TestPrivacyMonitor)
#include "testprivacymonitor.moc"
