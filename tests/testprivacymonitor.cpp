// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/clock.h"
#include "input/privacymonitor.h"
#include "input/recordingsources.h"

#include <QDir>
#include <QFile>
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
 * "name=comm" names the entry itself instead of giving it a PID.
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
        if (!QDir().mkpath(dir))
            return false;
        if (process == "gone"_L1)
            continue;
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
    enum Answer
    {
        no,
        yes,
        throwsStd,
        throwsOther
    };
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
    void combinedSourceAsksEverySourceUntilOneSaysYes();

    void polling();
    void aListenerMayEndPolling();
};

void TestPrivacyMonitor::recorderProcesses_data()
{
    QTest::addColumn<QStringList>("processes");
    QTest::addColumn<bool>("recording");

    const QStringList ordinary { u"systemd: /sbin/init"_s, u"bash: -bash"_s, u"kthreadd"_s };
    QTest::newRow("No recorder") << ordinary << false;
    for (const QString& recorder : { u"obs"_s, u"gpu-screen-reco"_s, u"wf-recorder"_s, u"kazam"_s })
        QTest::addRow("Recorder %s", qPrintable(recorder)) << ordinary + QStringList { recorder } << true;
    QTest::newRow("Names that only resemble a recorder's")
        << QStringList { u"obsidian"_s, u"OBS"_s, u"kazam-helper"_s } << false;
    QTest::newRow("ffmpeg grabbing X11") << QStringList { u"ffmpeg: ffmpeg -f x11grab -i :0.0 out.mkv"_s } << true;
    QTest::newRow("gst-launch from a PipeWire screen cast")
        << QStringList { u"gst-launch-1.0: gst-launch-1.0 pipewiresrc path=42 ! fakesink"_s } << true;
    QTest::newRow("Grabbers reading no screen, others naming a screen input")
        << QStringList { u"ffmpeg: ffmpeg -i in.mp4 out.webm"_s,
               u"gst-launch-1.0: gst-launch-1.0 v4l2src ! xvimagesink"_s, u"grep: grep -r x11grab ."_s }
        << false;
    QTest::newRow("Kazam run by python3 with options")
        << QStringList { u"python3: python3 -u /usr/bin/kazam --silent"_s } << true;
    QTest::newRow("Kazam run by sh") << QStringList { u"sh: /bin/sh ./kazam"_s } << true;
    QTest::newRow("A recorder's name as a later argument of a script, an interpreter alone")
        << QStringList { u"python3: python3 convert.py obs"_s, u"sh: sh ./record.sh kazam"_s, u"python3: python3"_s }
        << false;
    QTest::newRow("A recorder after entries that cannot be read")
        << QStringList { u"gone"_s, u"ffmpeg"_s, u"python3"_s, u"obs"_s } << true;
    QTest::newRow("Only process directories count") << QStringList { u"self=obs"_s, u"12a=kazam"_s } << false;
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

void TestPrivacyMonitor::combinedSourceAsksEverySourceUntilOneSaysYes()
{
    Script failing { Script::throwsStd };
    Script recording { Script::yes };
    Script last { Script::yes };
    CombinedRecordingSource combined;
    combined.add(std::make_unique<FakeSource>(failing));
    combined.add(nullptr);
    QVERIFY(!combined.isRecording());
    combined.add(std::make_unique<FakeSource>(recording));
    combined.add(std::make_unique<FakeSource>(last));
    QVERIFY(combined.isRecording());
    QCOMPARE(QList<int>({ failing.polls, recording.polls, last.polls }), QList<int>({ 2, 1, 0 }));
}

void TestPrivacyMonitor::polling()
{
    Fixture f;
    f.script.answer = Script::yes;
    // Polled inside start, then every two seconds; starting again adds nothing.
    f.monitor.start();
    f.monitor.start();
    QCOMPARE(f.script.polls, 1);
    f.clock.advance(1.999);
    QCOMPARE(f.script.polls, 1);
    f.clock.advance(0.001);
    QCOMPARE(f.script.polls, 2);

    // The state is the latest answer, every failure reads as no recording, and each change is signalled once.
    for (const Script::Answer answer :
        { Script::no, Script::yes, Script::yes, Script::throwsStd, Script::yes, Script::throwsOther, Script::yes }) {
        f.script.answer = answer;
        f.clock.advance(2);
        QCOMPARE(f.monitor.screenRecordingActive(), answer == Script::yes);
    }
    QCOMPARE(f.changedTo(), (QList<bool> { true, false, true, false, true, false, true }));

    // Stopping ends polling and keeps the state; a new start polls at once and counts from there.
    f.monitor.stop();
    f.clock.advance(10);
    QCOMPARE(f.script.polls, 9);
    QVERIFY(f.monitor.screenRecordingActive());
    f.monitor.start();
    QCOMPARE(f.script.polls, 10);
    f.clock.advance(1.5);
    QCOMPARE(f.script.polls, 10);
    f.clock.advance(0.5);
    QCOMPARE(f.script.polls, 11);
}

void TestPrivacyMonitor::aListenerMayEndPolling()
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
}

QTEST_GUILESS_MAIN(TestPrivacyMonitor)
#include "testprivacymonitor.moc"
