// SPDX-License-Identifier: GPL-3.0-or-later
// What one recording check costs: the process scan, the same scan over a made-up /proc holding an open recorder
// with many files, and PipeWire with no daemon to reach (a refused connection every check) and with a connected
// daemon (handling what arrived since the last check).
#include "input/pipewirerecordingsource.h"
#include "input/recordingsources.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <benchmark/benchmark.h>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

void processScan(benchmark::State& state)
{
    RecorderProcessSource source;
    for (auto _ : state)
        benchmark::DoNotOptimize(source.isRecording());
}
BENCHMARK(processScan)->Unit(benchmark::kMicrosecond);

/**
 * An open OBS that records nothing, the costliest recorder to look at: all of its 200 open files are followed
 * (140 files, 50 sockets, 10 pipes), and as it has sockets, TCP tables of 100 and 20 connections are read.
 */
void idleRecorderWithManyFds(benchmark::State& state)
{
    QTemporaryDir proc;
    const QString dir = proc.filePath(u"4242"_s);
    bool made = QDir().mkpath(dir + u"/fd"_s) && QDir().mkpath(dir + u"/fdinfo"_s) && QDir().mkpath(dir + u"/net"_s);
    QFile comm(dir + u"/comm"_s);
    made = made && comm.open(QIODevice::WriteOnly) && comm.write("obs\n") == 4;
    for (int fd = 0; made && fd < 200; ++fd) {
        QString target = fd < 140 ? proc.filePath(u"file-%1.%2"_s.arg(fd).arg(fd % 2 ? u"log"_s : u"json"_s))
            : fd < 190            ? u"socket:[%1]"_s.arg(10000 + fd)
                                  : u"pipe:[%1]"_s.arg(20000 + fd);
        if (fd < 140)
            made = QFile(target).open(QIODevice::WriteOnly);
        const QByteArray link = QFile::encodeName(dir + u"/fd/"_s + QString::number(fd));
        made = made && ::symlink(QFile::encodeName(target).constData(), link.constData()) == 0;
        QFile info(dir + u"/fdinfo/"_s + QString::number(fd));
        made = made && info.open(QIODevice::WriteOnly) && info.write("pos:\t0\nflags:\t0100001\nmnt_id:\t25\n") > 0;
    }
    for (const auto& [table, lines] : { std::pair { u"tcp"_s, 100 }, std::pair { u"tcp6"_s, 20 } }) {
        QFile file(dir + u"/net/"_s + table);
        made = made && file.open(QIODevice::WriteOnly);
        file.write(
            "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n");
        for (int line = 0; line < lines; ++line)
            file.write(QString::asprintf("%4d: 0100007F:%04X 0202A8C0:01BB 01 00000000:00000000 00:00000000 "
                                         "00000000  1000        0 %d 1 0000000000000000 20 4 30 10 -1\n",
                line, 40000 + line, 30000 + line)
                           .toLatin1());
    }
    if (!made)
        return state.SkipWithError("could not make the process tree");
    RecorderProcessSource source(proc.path());
    for (auto _ : state)
        benchmark::DoNotOptimize(source.isRecording());
}
BENCHMARK(idleRecorderWithManyFds)->Unit(benchmark::kMicrosecond);

void pipeWireWithoutDaemon(benchmark::State& state)
{
    PipeWireRecordingSource source("ordalis-bench-nobody-listens");
    for (auto _ : state)
        benchmark::DoNotOptimize(source.isRecording());
}
BENCHMARK(pipeWireWithoutDaemon)->Unit(benchmark::kMicrosecond);

/** A private daemon for the connected case; nothing is measured when pipewire is not installed. */
void pipeWireConnected(benchmark::State& state)
{
    QTemporaryDir runtime;
    QFile config(runtime.filePath(u"daemon.conf"_s));
    if (!config.open(QIODevice::WriteOnly))
        return state.SkipWithError("no temporary folder");
    config.write(R"(context.properties = { core.daemon = true core.name = ordalis-bench }
context.spa-libs = { support.* = support/libspa-support }
context.modules = [ { name = libpipewire-module-protocol-native } { name = libpipewire-module-access }
    { name = libpipewire-module-client-node } { name = libpipewire-module-adapter } ]
)");
    config.close();
    qputenv("PIPEWIRE_RUNTIME_DIR", QFile::encodeName(runtime.path()));
    QProcess daemon;
    daemon.start(u"pipewire"_s, { u"-c"_s, config.fileName() });
    if (!daemon.waitForStarted())
        return state.SkipWithError("pipewire is not installed");
    for (int i = 0; i < 100 && !QFile::exists(runtime.filePath(u"ordalis-bench"_s)); ++i)
        QThread::msleep(10);

    PipeWireRecordingSource source("ordalis-bench");
    source.isRecording();
    if (!source.isConnected())
        state.SkipWithError("could not reach the private daemon");
    for (auto _ : state)
        benchmark::DoNotOptimize(source.isRecording());
    daemon.kill();
    daemon.waitForFinished();
}
BENCHMARK(pipeWireConnected)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
