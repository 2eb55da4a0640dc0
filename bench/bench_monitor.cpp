// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/clock.h"
#include "base/settingkeys.h"
#include "input/triggermodifier.h"
#include "base/settingsstore.h"
#include "input/hotkeymanager.h"
#include "input/keyboardmonitor.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int pairsPerRun = 100000;

// What the cost of one key event is with everything that listens in the running program: a view bound to the
// monitor's signals and, optionally, the gesture recogniser on its hooks.
struct Setup
{
    explicit Setup(bool withGestures)
        : settings(dir.filePath(u"settings.json"_s))
        , monitor(settings, clock)
        , hotkeys(monitor, settings, clock)
    {
        settings.setValue(SettingKeys::triggerModifier(), TriggerModifier::leftOption);
        QObject::connect(&monitor, &KeyboardMonitor::pressedKeysChanged, &view, [this] { ++repaints; });
        QObject::connect(&monitor, &KeyboardMonitor::keyChanged, &view, [this](KeyCode code, bool down) {
            litKeys += down ? 1 : -1;
            lastKey = code;
        });
        if (withGestures)
            hotkeys.start();
    }

    QTemporaryDir dir;
    SettingsStore settings;
    ManualClock clock;
    KeyboardMonitor monitor;
    HotkeyManager hotkeys;
    QObject view;
    qint64 repaints = 0;
    qint64 litKeys = 0;
    KeyCode lastKey = 0;
};

void reportEvents(benchmark::State& state, qint64 eventsPerRun)
{
    state.SetItemsProcessed(state.iterations() * eventsPerRun);
    state.counters["per_event"] = benchmark::Counter(
        double(state.iterations() * eventsPerRun), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void keyDownUp(benchmark::State& state)
{
    Setup setup(state.range(0) != 0);
    for (auto _ : state) {
        for (int i = 0; i < pairsPerRun; ++i) {
            const KeyCode code = KeyCode(i % 50);
            benchmark::DoNotOptimize(setup.monitor.handleKeyDown(code));
            setup.monitor.handleKeyUp(code);
        }
    }
    benchmark::DoNotOptimize(setup.repaints);
    reportEvents(state, 2 * pairsPerRun);
}
BENCHMARK(keyDownUp)->ArgName("gestures")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// Each change as the back end delivers it.
void modifierChanges(benchmark::State& state)
{
    Setup setup(state.range(0) != 0);
    for (auto _ : state) {
        for (int i = 0; i < pairsPerRun; ++i) {
            const ModifierFlags flags = (i & 1) ? ModifierFlags(0) : ModifierFlag::shift | ModifierFlag::leftShift;
            setup.monitor.handleFlagsChanged(flags, 56);
        }
    }
    benchmark::DoNotOptimize(setup.repaints);
    reportEvents(state, pairsPerRun);
}
BENCHMARK(modifierChanges)->ArgName("gestures")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
