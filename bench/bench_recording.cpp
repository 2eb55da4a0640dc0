// SPDX-License-Identifier: GPL-3.0-or-later
// What one recording check costs: the process scan, and PipeWire with no daemon to reach (a refused connection
// every check) and with a connected daemon (handling what arrived since the last check).
#include "input/pipewirerecordingsource.h"
#include "input/recordingsources.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <benchmark/benchmark.h>

using namespace Qt::StringLiterals;

namespace {

void processScan(benchmark::State& state)
{
    RecorderProcessSource source;
    for (auto _ : state)
        benchmark::DoNotOptimize(source.isRecording());
}
BENCHMARK(processScan)->Unit(benchmark::kMicrosecond);

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
