// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "theme/themejson.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

using namespace Qt::StringLiterals;

namespace {

void encodeDocument(benchmark::State& state)
{
    const QList<NamedTheme>& themes = builtInThemes();
    for (auto _ : state)
        benchmark::DoNotOptimize(ThemeJson::encodeDocument(themes));
    state.SetItemsProcessed(state.iterations() * themes.size());
}
BENCHMARK(encodeDocument);

void decodeDocument(benchmark::State& state)
{
    const QByteArray document = ThemeJson::encodeDocument(builtInThemes());
    for (auto _ : state)
        benchmark::DoNotOptimize(ThemeJson::decodeDocument(document));
    state.SetItemsProcessed(state.iterations() * builtInThemes().size());
    state.SetBytesProcessed(state.iterations() * document.size());
}
BENCHMARK(decodeDocument);

void readActiveThemeConfig(benchmark::State& state)
{
    QTemporaryDir dir;
    SettingsStore store(dir.filePath(u"settings.json"_s));
    store.setValue(SettingKeys::savedThemes(), builtInThemes());
    store.setValue(SettingKeys::activeThemeConfig(), builtInThemes().at(6).config);
    for (auto _ : state)
        benchmark::DoNotOptimize(store.value(SettingKeys::activeThemeConfig()));
}
BENCHMARK(readActiveThemeConfig);

void writeActiveThemeConfig(benchmark::State& state)
{
    QTemporaryDir dir;
    SettingsStore store(dir.filePath(u"settings.json"_s));
    store.setValue(SettingKeys::savedThemes(), builtInThemes());
    ThemeConfig config = defaultThemeConfig();
    for (auto _ : state) {
        config.chassisHue = config.chassisHue > 0.5 ? 0.1 : 0.9;
        store.setValue(SettingKeys::activeThemeConfig(), config);
    }
}
BENCHMARK(writeActiveThemeConfig);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
