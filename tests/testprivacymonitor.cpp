// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/clock.h"
#include "input/privacymonitor.h"
#include "input/recordingsources.h"

#include <QDir>
#include <QFile>
#include <QHash>
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

    void polling_data();
    void polling();
    void listenersAndOwnersMayEndPolling();
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

void TestPrivacyMonitor::polling_data()
{
    // Steps separated by ';'. "answer y|n|std|other": what the source says next (yes, no, or it throws a standard
    // exception or something else). "start", "stop", "+T": the clock moves on by T seconds. Checks: "polls N",
    // "active 0|1" (also as the property), "changes B..." the values signalled so far, "running 0|1", "jobs N".
    QTest::addColumn<QString>("script");
    QTest::newRow("Polls inside start, then every two seconds; starting again adds nothing")
        << u"answer y; start; polls 1; changes 1; +1.999; polls 1; +0.001; polls 2; +10; polls 7; start; +2; polls 8;"
           " jobs 1"_s;
    QTest::newRow("The state is the latest answer and each change is signalled once")
        << u"start; changes; answer y; +2; active 1; +2; active 1; answer n; +2; active 0; +2; answer y; +2; active 1;"
           " changes 1 0 1"_s;
    QTest::newRow("Every failure reads as no recording, and polling goes on")
        << u"answer y; start; answer std; +2; active 0; answer y; +2; answer other; +2; active 0; +4; polls 6;"
           " changes 1 0 1 0"_s;
    QTest::newRow("Stopping ends polling and keeps the state; a new start polls at once and counts from there")
        << u"answer y; start; +3; stop; running 0; +10; polls 2; active 1; start; polls 3; +1.5; polls 3; +.5;"
           " polls 4"_s;
}

void TestPrivacyMonitor::polling()
{
    QFETCH(QString, script);
    Fixture f;
    for (const QString& step : script.split(u';', Qt::SkipEmptyParts)) {
        const QStringList w = step.split(u' ', Qt::SkipEmptyParts);
        const QString& op = w.first();
        const auto number = [&](int i) { return w.at(i).toInt(); };
        if (op == u"answer") {
            static const QHash<QString, Script::Answer> answers { { u"y"_s, Script::yes }, { u"n"_s, Script::no },
                { u"std"_s, Script::throwsStd }, { u"other"_s, Script::throwsOther } };
            f.script.answer = answers.value(w.at(1));
        } else if (op == u"start") {
            f.monitor.start();
        } else if (op == u"stop") {
            f.monitor.stop();
        } else if (op.startsWith(u'+')) {
            f.clock.advance(op.mid(1).toDouble());
        } else if (op == u"polls") {
            QCOMPARE(f.script.polls, number(1));
        } else if (op == u"active") {
            QCOMPARE(f.monitor.screenRecordingActive(), number(1) != 0);
            QCOMPARE(f.monitor.property("screenRecordingActive").toBool(), number(1) != 0);
        } else if (op == u"changes") {
            QList<bool> expected;
            for (int i = 1; i < w.size(); ++i)
                expected << (number(i) != 0);
            QCOMPARE(f.changedTo(), expected);
        } else if (op == u"running") {
            QCOMPARE(f.monitor.isRunning(), number(1) != 0);
        } else if (op == u"jobs") {
            QCOMPARE(f.clock.pendingJobCount(), number(1));
        } else {
            QFAIL(qPrintable(step));
        }
    }
}

void TestPrivacyMonitor::listenersAndOwnersMayEndPolling()
{
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

    ManualClock other;
    PrivacyMonitor withoutSource(other, nullptr);
    withoutSource.start();
    other.advance(2.0);
    QVERIFY(!withoutSource.screenRecordingActive());
}

QTEST_GUILESS_MAIN(TestPrivacyMonitor)
#include "testprivacymonitor.moc"
