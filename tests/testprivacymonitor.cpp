// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/clock.h"
#include "input/privacymonitor.h"
#include "input/recordingsources.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <stdexcept>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

/**
 * Gives the made-up process at `dir` the open file `fd`: a link to `target` (a path, or `socket:[inode]` as the
 * kernel shows sockets) and an fdinfo whose flags are open(2)'s in octal, as the kernel writes them.
 */
bool addFd(const QString& dir, int fd, const QString& target, const char* flags)
{
    const QString name = QString::number(fd);
    if (!QDir().mkpath(dir + u"/fd"_s) || !QDir().mkpath(dir + u"/fdinfo"_s))
        return false;
    const QByteArray link = QFile::encodeName(dir + u"/fd/"_s + name);
    ::unlink(link.constData());
    if (::symlink(QFile::encodeName(target).constData(), link.constData()) != 0)
        return false;
    QFile info(dir + u"/fdinfo/"_s + name);
    return info.open(QIODevice::WriteOnly) && info.write("pos:\t0\nflags:\t"_ba + flags + "\nmnt_id:\t25\n") > 0;
}

/**
 * Builds a made-up /proc with one entry per item: "comm" or "comm: argv0 argv1 ..." (a command line, split at
 * spaces). "gone" is a process directory left empty, as when the process exits between the listing and the read;
 * "name=comm" names the entry itself instead of giving it a PID. With `writing`, each process has a video file of
 * its own open for writing.
 */
bool makeProcTree(const QString& root, const QStringList& processes, bool writing = false)
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
        const QString video = root + u"/recording-"_s + entry + u".mkv"_s;
        if (writing && (!QFile(video).open(QIODevice::WriteOnly) || !addFd(dir, 3, video, "0100001")))
            return false;
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

/** A line of /proc/PID/net/tcp ("tcp:" before it) or tcp6 ("tcp6:"), in the kernel's layout. */
QString tcpLine(bool v6, const char* state, int remotePort, int inode)
{
    const QString local = v6 ? u"0000000000000000FFFF00000100007F:A3B2"_s : u"0100007F:A3B2"_s;
    const QString remote = (v6 ? u"00000000000000000000000001000000:"_s : u"0202A8C0:"_s)
        + QStringLiteral("%1").arg(remotePort, 4, 16, QChar(u'0')).toUpper();
    return (v6 ? u"tcp6:"_s : u"tcp:"_s) + u"   0: "_s + local + u' ' + remote + u' ' + QLatin1StringView(state)
        + u" 00000000:00000000 00:00000000 00000000  1000        0 "_s + QString::number(inode)
        + u" 1 0000000000000000 20 4 30 10 -1"_s;
}

constexpr auto tcpHeader = "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout "
                           "inode\n";

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
    void recorderActivity_data();
    void recorderActivity();
    void recordersThatCannotBeReadAreNotRecording();
    void aScanSeesProcessesComeAndGo();
    void combinedSourceAsksEverySourceUntilOneSaysYes();

    void polling();
    void aListenerMayEndPolling();
};

void TestPrivacyMonitor::recorderProcesses_data()
{
    QTest::addColumn<QStringList>("processes");
    QTest::addColumn<bool>("writing");
    QTest::addColumn<bool>("recording");

    const QStringList ordinary { u"systemd: /sbin/init"_s, u"bash: -bash"_s, u"kthreadd"_s };
    QTest::newRow("No recorder") << ordinary << true << false;
    for (const QString& recorder : { u"obs"_s, u"obs-ffmpeg-mux"_s, u"gpu-screen-reco"_s, u"wf-recorder"_s }) {
        QTest::addRow("Recorder %s", qPrintable(recorder)) << ordinary + QStringList { recorder } << true << true;
        QTest::addRow("Recorder %s writing nothing", qPrintable(recorder))
            << ordinary + QStringList { recorder } << false << false;
    }
    QTest::newRow("Names that only resemble a recorder's")
        << QStringList { u"obsidian"_s, u"OBS"_s, u"kazam-helper"_s } << true << false;
    QTest::newRow("ffmpeg grabbing X11") << QStringList { u"ffmpeg: ffmpeg -f x11grab -i :0.0 out.mkv"_s } << false
                                         << true;
    QTest::newRow("gst-launch from a PipeWire screen cast")
        << QStringList { u"gst-launch-1.0: gst-launch-1.0 pipewiresrc path=42 ! fakesink"_s } << false << true;
    QTest::newRow("Grabbers reading no screen, others naming a screen input")
        << QStringList { u"ffmpeg: ffmpeg -i in.mp4 out.webm"_s,
               u"gst-launch-1.0: gst-launch-1.0 v4l2src ! xvimagesink"_s, u"grep: grep -r x11grab ."_s }
        << true << false;
    QTest::newRow("Kazam run by python3 with options")
        << QStringList { u"python3: python3 -u /usr/bin/kazam --silent"_s } << true << true;
    QTest::newRow("Kazam run by sh") << QStringList { u"sh: /bin/sh ./kazam"_s } << true << true;
    QTest::newRow("Kazam run by python3 writing nothing")
        << QStringList { u"python3: python3 -u /usr/bin/kazam --silent"_s } << false << false;
    QTest::newRow("A recorder's name as a later argument of a script, an interpreter alone")
        << QStringList { u"python3: python3 convert.py obs"_s, u"sh: sh ./record.sh kazam"_s, u"python3: python3"_s }
        << true << false;
    QTest::newRow("A recorder after entries that cannot be read")
        << QStringList { u"gone"_s, u"ffmpeg"_s, u"python3"_s, u"obs"_s } << true << true;
    QTest::newRow("Only process directories count") << QStringList { u"self=obs"_s, u"12a=kazam"_s } << true << false;
}

void TestPrivacyMonitor::recorderProcesses()
{
    QFETCH(QStringList, processes);
    QFETCH(bool, writing);
    QFETCH(bool, recording);
    QTemporaryDir proc;
    QVERIFY(makeProcTree(proc.path(), processes, writing));
    RecorderProcessSource source(proc.path());
    QCOMPARE(source.isRecording(), recording);
}

void TestPrivacyMonitor::recorderActivity_data()
{
    // One recorder; "fd target flags" for each open file (targets other than sockets are made below the tree),
    // lines of its TCP tables, the size of its files before each check and the answer of each check.
    QTest::addColumn<QString>("recorder");
    QTest::addColumn<QStringList>("fds");
    QTest::addColumn<QStringList>("tcp");
    QTest::addColumn<QList<int>>("sizes");
    QTest::addColumn<QList<bool>>("answers");

    const QStringList obsAtRest { u"3 obs.log 0100001"_s, u"4 basic.ini 0100000"_s, u"5 socket:[7001] 02"_s };
    QTest::newRow("Open, a growing log, settings read, a socket")
        << u"obs"_s << obsAtRest << QStringList() << QList<int> { 10, 20, 30 } << QList<bool> { false, false, false };
    QTest::newRow("Writing a growing video, from the first check on")
        << u"obs"_s << obsAtRest + QStringList { u"6 2024-05-01 10-00-00.mkv 0100001"_s } << QStringList()
        << QList<int> { 0, 4096, 9000 } << QList<bool> { true, true, true };
    QTest::newRow("A video that stops growing, then is cut")
        << u"simplescreenrec"_s << QStringList { u"9 demo.mp4 0100001"_s } << QStringList()
        << QList<int> { 100, 200, 200, 200, 50 } << QList<bool> { true, true, false, false, true };
    QTest::newRow("A video open for reading only")
        << u"obs"_s << QStringList { u"6 clip.mp4 0100000"_s } << QStringList() << QList<int> { 100, 200 }
        << QList<bool> { false, false };
    QTest::newRow("Kazam's temporary file, read and written")
        << u"kazam"_s << QStringList { u"7 kazam_x1y2.movie 0100002"_s } << QStringList() << QList<int> { 1, 2 }
        << QList<bool> { true, true };
    QTest::newRow("recordMyDesktop's cache, a capitalised GIF")
        << u"recordmydesktop"_s << QStringList { u"3 rMD-session-42/img.out 0100001"_s, u"4 Peek.GIF 0100001"_s }
        << QStringList() << QList<int> { 1, 1 } << QList<bool> { true, false };

    const QStringList sockets { u"5 socket:[7001] 02"_s, u"6 socket:[7002] 02"_s };
    QTest::newRow("Streaming over RTMP") << u"obs"_s << sockets << QStringList { tcpLine(false, "01", 1935, 7002) }
                                         << QList<int>() << QList<bool> { true, true };
    QTest::newRow("Streaming over RTMP on IPv6")
        << u"wf-recorder"_s << sockets << QStringList { tcpLine(true, "01", 1935, 7001) } << QList<int>()
        << QList<bool> { true };
    QTest::newRow("RTMP listening, connecting, closing, or someone else's")
        << u"obs"_s << sockets
        << QStringList { tcpLine(false, "0A", 0, 7001), tcpLine(false, "02", 1935, 7002),
               tcpLine(true, "06", 1935, 7001), tcpLine(false, "01", 1935, 9999) }
        << QList<int>() << QList<bool> { false, false };
    QTest::newRow("OBS over RTMPS, from the second check")
        << u"obs"_s << sockets << QStringList { tcpLine(false, "01", 443, 7001) } << QList<int>()
        << QList<bool> { false, true, true };
    QTest::newRow("HTTPS of another recorder, another port")
        << u"gpu-screen-reco"_s << sockets
        << QStringList { tcpLine(false, "01", 443, 7001), tcpLine(false, "01", 8080, 7002) } << QList<int>()
        << QList<bool> { false, false };
}

void TestPrivacyMonitor::recorderActivity()
{
    QFETCH(QString, recorder);
    QFETCH(QStringList, fds);
    QFETCH(QStringList, tcp);
    QFETCH(QList<int>, sizes);
    QFETCH(QList<bool>, answers);

    QTemporaryDir proc;
    QVERIFY(makeProcTree(proc.path(), { recorder }));
    const QString dir = proc.filePath(u"100"_s);
    QStringList files;
    for (const QString& fd : fds) {
        const QStringList parts = fd.split(u' ');
        QString target = parts.mid(1, parts.size() - 2).join(u' ');
        if (!target.startsWith("socket:"_L1)) {
            target = proc.filePath(u"files/"_s + target);
            QVERIFY(QDir().mkpath(QFileInfo(target).path()));
            QVERIFY(QFile(target).open(QIODevice::WriteOnly));
            files << target;
        }
        QVERIFY(addFd(dir, parts.first().toInt(), target, parts.last().toLatin1().constData()));
    }
    QVERIFY(QDir().mkpath(dir + u"/net"_s));
    for (const QString& table : { u"tcp"_s, u"tcp6"_s }) {
        QFile file(dir + u"/net/"_s + table);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(tcpHeader);
        for (const QString& line : tcp) {
            if (line.startsWith(table + u':'))
                file.write(line.mid(table.size() + 1).toLatin1() + '\n');
        }
    }

    RecorderProcessSource source(proc.path());
    QList<bool> seen;
    for (qsizetype check = 0; check < answers.size(); ++check) {
        for (const QString& file : files) {
            if (check < sizes.size())
                QVERIFY(QFile::resize(file, sizes.at(check)));
        }
        seen << source.isRecording();
    }
    QCOMPARE(seen, answers);
}

void TestPrivacyMonitor::recordersThatCannotBeReadAreNotRecording()
{
    QTemporaryDir proc;
    RecorderProcessSource source(proc.path());
    const QString dir = proc.filePath(u"100"_s);
    QVERIFY(makeProcTree(proc.path(), { u"obs"_s }, true));
    QVERIFY(source.isRecording());
    QVERIFY(!source.isRecording());

    // What is known of a process is forgotten when it ends: the next one of that PID counts at its first check.
    QVERIFY(QDir(dir).removeRecursively());
    QVERIFY(!source.isRecording());
    QVERIFY(makeProcTree(proc.path(), { u"obs"_s }, true));
    QVERIFY(source.isRecording());

    // An open file that is gone, no fdinfo, and no fd folder to read.
    QVERIFY(QFile::remove(proc.filePath(u"recording-100.mkv"_s)));
    QVERIFY(!source.isRecording());
    QVERIFY(QDir(dir + u"/fdinfo"_s).removeRecursively());
    QVERIFY(addFd(dir, 4, proc.filePath(u"other.mkv"_s), "0100001"));
    QVERIFY(QFile::remove(dir + u"/fdinfo/4"_s));
    QVERIFY(QFile(proc.filePath(u"other.mkv"_s)).open(QIODevice::WriteOnly));
    QVERIFY(!source.isRecording());
    QVERIFY(QDir(dir + u"/fd"_s).removeRecursively());
    QVERIFY(QFile(dir + u"/fd"_s).open(QIODevice::WriteOnly));
    QVERIFY(!source.isRecording());
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
    QVERIFY(makeProcTree(proc.path(), { u"200=obs: obs"_s }, true));
    int scans = 1;
    while (scans <= RecorderProcessSource::fullScanEvery && !source.isRecording())
        ++scans;
    QVERIFY2(scans > 1 && scans <= RecorderProcessSource::fullScanEvery, qPrintable(QString::number(scans)));
    QVERIFY(QDir(proc.filePath(u"200"_s)).removeRecursively());
    QVERIFY(!source.isRecording());
    QVERIFY(makeProcTree(proc.path(), { u"200=obs: obs"_s }, true));
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
