// SPDX-License-Identifier: GPL-3.0-or-later
// Screen casts seen through PipeWire: the rules on the registry graph, then the source against a private daemon with
// a capture node and a consumer stream linked to it, as a screen cast looks to the rest of the desktop.
#include "input/pipewirerecordingsource.h"
#include "input/screencastgraph.h"

#include <QDeadlineTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <pipewire/pipewire.h>
#include <spa/param/video/format-utils.h>

#include <array>
#include <functional>

using namespace Qt::StringLiterals;

namespace {

// Registry ids of the graph tests.
constexpr std::uint32_t sessionManager = 30;
constexpr std::uint32_t compositor = 31;
constexpr std::uint32_t capture = 40;
constexpr std::uint32_t consumer = 41;
constexpr std::uint32_t castLink = 50;

const QString daemonConfig = QStringLiteral(R"(
context.properties = { core.daemon = true core.name = %1 }
context.spa-libs = { support.* = support/libspa-support videotestsrc = videotestsrc/libspa-videotestsrc }
context.modules = [
    { name = libpipewire-module-protocol-native }
    { name = libpipewire-module-metadata }
    { name = libpipewire-module-spa-node-factory }
    { name = libpipewire-module-client-node }
    { name = libpipewire-module-access }
    { name = libpipewire-module-adapter }
    { name = libpipewire-module-link-factory }
]
context.objects = [
    { factory = spa-node-factory
      args = { factory.name = support.node.driver node.name = Dummy-Driver priority.driver = 20000 } }
]
)");

bool waitFor(const std::function<bool()>& condition, int ms = 5000)
{
    QDeadlineTimer deadline(ms);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QTest::qWait(20);
    }
    return true;
}

/** A video capture stream of the test process, as a recorder reading a screen cast would open one. */
class ConsumerStream
{
public:
    ConsumerStream(const QByteArray& remote, const char* name)
    {
        m_loop = pw_thread_loop_new("consumer", nullptr);
        m_context = pw_context_new(pw_thread_loop_get_loop(m_loop), nullptr, 0);
        pw_thread_loop_start(m_loop);
        pw_thread_loop_lock(m_loop);
        m_core = pw_context_connect(
            m_context, pw_properties_new(PW_KEY_REMOTE_NAME, remote.constData(), nullptr), 0);
        if (m_core != nullptr) {
            m_stream = pw_stream_new(m_core, name,
                pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_MEDIA_ROLE,
                    "Screen", PW_KEY_NODE_NAME, name, nullptr));
            std::array<std::uint8_t, 1024> buffer {};
            spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer.data(), std::uint32_t(buffer.size()));
            spa_video_info_raw info {};
            info.format = SPA_VIDEO_FORMAT_RGB;
            info.size = SPA_RECTANGLE(320, 240);
            info.framerate = SPA_FRACTION(25, 1);
            const spa_pod* params[] = { spa_format_video_raw_build(&builder, SPA_PARAM_EnumFormat, &info) };
            pw_stream_connect(m_stream, PW_DIRECTION_INPUT, PW_ID_ANY, PW_STREAM_FLAG_MAP_BUFFERS, params, 1);
        }
        pw_thread_loop_unlock(m_loop);
    }

    ~ConsumerStream()
    {
        pw_thread_loop_stop(m_loop);
        if (m_stream != nullptr)
            pw_stream_destroy(m_stream);
        if (m_core != nullptr)
            pw_core_disconnect(m_core);
        pw_context_destroy(m_context);
        pw_thread_loop_destroy(m_loop);
    }

    ConsumerStream(const ConsumerStream&) = delete;
    ConsumerStream& operator=(const ConsumerStream&) = delete;

    bool isConnected() const { return m_stream != nullptr; }

private:
    pw_thread_loop* m_loop = nullptr;
    pw_context* m_context = nullptr;
    pw_core* m_core = nullptr;
    pw_stream* m_stream = nullptr;
};

} // namespace

class TestScreenCast final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void graph_data();
    void graph();
    void removingTheLinkOrTheNodeEndsTheCast();
    void noDaemonReadsAsNoRecording();
    void aLinkedCaptureNodeOfARealDaemonIsARecording();

private:
    bool startDaemon();
    bool runTool(const QString& tool, const QStringList& arguments);

    QTemporaryDir m_runtime;
    QByteArray m_remote;
    QProcess m_daemon;
};

void TestScreenCast::initTestCase()
{
    QVERIFY(m_runtime.isValid());
    m_remote = "ordalis-test-" + QByteArray::number(QCoreApplication::applicationPid());
    // Both the source and the tools find the daemon's socket here, never the user's own daemon.
    qputenv("PIPEWIRE_RUNTIME_DIR", QFile::encodeName(m_runtime.path()));
    qputenv("PIPEWIRE_REMOTE", m_remote);
    pw_init(nullptr, nullptr);
}

void TestScreenCast::cleanup()
{
    if (m_daemon.state() != QProcess::NotRunning) {
        m_daemon.kill();
        m_daemon.waitForFinished();
    }
}

void TestScreenCast::graph_data()
{
    QTest::addColumn<QString>("nodeName");
    QTest::addColumn<QString>("mediaClass");
    QTest::addColumn<std::uint32_t>("client");
    QTest::addColumn<bool>("linked");
    QTest::addColumn<bool>("casting");

    const std::uint32_t gnomeShell = compositor;
    QTest::newRow("GNOME or KDE screen cast, read") << u"gnome-shell"_s << u"Stream/Output/Video"_s << gnomeShell
                                                    << true << true;
    QTest::newRow("screen cast session nobody reads") << u"gnome-shell"_s << u"Stream/Output/Video"_s
                                                      << gnomeShell << false << false;
    QTest::newRow("wlroots portal source, read") << u"xdg-desktop-portal-wlr"_s << u"Video/Source"_s << gnomeShell
                                                 << true << true;
    QTest::newRow("camera by its device name") << u"v4l2_input.pci-0000_00_14.0-usb-0_1_1.0"_s << u"Video/Source"_s
                                               << gnomeShell << true << false;
    QTest::newRow("camera by the session manager") << u"Integrated Camera"_s << u"Video/Source"_s << sessionManager
                                                   << true << false;
    QTest::newRow("a recorder's own capture stream") << u"obs"_s << u"Stream/Input/Video"_s << gnomeShell << true
                                                     << false;
    QTest::newRow("audio") << u"Firefox"_s << u"Stream/Output/Audio"_s << gnomeShell << true << false;
}

void TestScreenCast::graph()
{
    QFETCH(QString, nodeName);
    QFETCH(QString, mediaClass);
    QFETCH(std::uint32_t, client);
    QFETCH(bool, linked);
    QFETCH(bool, casting);

    ScreenCastGraph graph;
    graph.addClient(sessionManager, "WirePlumber");
    graph.addClient(compositor, "gnome-shell");
    graph.addNode(capture, client, nodeName.toStdString(), mediaClass.toStdString());
    graph.addNode(consumer, compositor, "obs", "Stream/Input/Video");
    if (linked)
        graph.addLink(castLink, capture, consumer);
    QCOMPARE(graph.isCasting(), casting);
}

void TestScreenCast::removingTheLinkOrTheNodeEndsTheCast()
{
    for (const std::uint32_t removed : { castLink, capture }) {
        ScreenCastGraph graph;
        graph.addNode(capture, compositor, "gnome-shell", "Stream/Output/Video");
        graph.addLink(castLink, capture, consumer);
        QVERIFY(graph.isCasting());
        graph.remove(removed);
        QVERIFY(!graph.isCasting());
        // A new object may take a freed id: a link by that id to some other node is no cast.
        graph.addLink(capture, 7, consumer);
        QVERIFY(!graph.isCasting());
    }
}

bool TestScreenCast::startDaemon()
{
    const QString config = m_runtime.filePath(u"daemon.conf"_s);
    QFile file(config);
    if (!file.open(QIODevice::WriteOnly) || file.write(daemonConfig.arg(QString::fromUtf8(m_remote)).toUtf8()) < 0)
        return false;
    file.close();
    m_daemon.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"PIPEWIRE_DEBUG"_s, u"E"_s);
    m_daemon.setProcessEnvironment(environment);
    m_daemon.start(u"pipewire"_s, { u"-c"_s, config });
    const QString socket = m_runtime.filePath(QString::fromUtf8(m_remote));
    return m_daemon.waitForStarted() && waitFor([&] { return QFile::exists(socket); });
}

bool TestScreenCast::runTool(const QString& tool, const QStringList& arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.start(tool, arguments);
    return process.waitForFinished(10000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

void TestScreenCast::noDaemonReadsAsNoRecording()
{
    PipeWireRecordingSource source;
    QVERIFY(!source.isRecording());
    QVERIFY(!source.isConnected());
}

void TestScreenCast::aLinkedCaptureNodeOfARealDaemonIsARecording()
{
    if (QStandardPaths::findExecutable(u"pipewire"_s).isEmpty())
        QFAIL("pipewire is not installed: scripts/install-deps.sh installs it");
    QVERIFY(startDaemon());

    PipeWireRecordingSource source;
    QVERIFY(!source.isRecording());
    QVERIFY(source.isConnected());

    // The capture node of a screen cast, as GNOME's compositor makes it, and a recorder's stream.
    QVERIFY(runTool(u"pw-cli"_s,
        { u"create-node"_s, u"spa-node-factory"_s,
            u"{ factory.name=videotestsrc node.name=meta-screen-cast-src media.class=Stream/Output/Video "
            "object.linger=true }"_s }));
    {
        ConsumerStream recorder(m_remote, "ordalis-test-recorder");
        QVERIFY(recorder.isConnected());
        QTest::qWait(200);
        QVERIFY2(!source.isRecording(), "a session nobody reads is no recording");

        QVERIFY(runTool(u"pw-link"_s, { u"meta-screen-cast-src:out_0"_s, u"ordalis-test-recorder:in_0"_s }));
        QVERIFY(waitFor([&] { return source.isRecording(); }));
        QTest::qWait(100);
        QVERIFY(source.isRecording());
    }
    // The recorder closed its stream, and with it the link.
    QVERIFY(waitFor([&] { return !source.isRecording(); }));

    // The daemon goes away: no recording, and a new daemon is found again.
    m_daemon.kill();
    m_daemon.waitForFinished();
    QVERIFY(waitFor([&] { return !source.isRecording(); }));
    QVERIFY(!source.isConnected());
    QVERIFY(startDaemon());
    QVERIFY(waitFor([&] { return !source.isRecording() && source.isConnected(); }));
}

QTEST_GUILESS_MAIN(TestScreenCast)
#include "testscreencast.moc"
