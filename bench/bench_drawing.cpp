// SPDX-License-Identifier: GPL-3.0-or-later
// Cost of drawing the keyboard: a whole frame at the default panel width, and the repaint of one key when it is
// pressed (its rectangle only, as the panel does). Run with QT_QPA_PLATFORM=offscreen.
#include "base/clock.h"
#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "input/keyboardmonitor.h"
#include "keyboard/keyboardscene.h"

#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

struct Scene
{
    explicit Scene(qreal dpr)
    {
        // Whole pixels, as the panel's window has them.
        scene.setSize(QSizeF(900, std::round(900 / KeyboardScene::aspectRatio(scene.themeConfig()))));
        image = QImage((scene.size() * dpr).toSize(), QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(dpr);
        image.fill(Qt::transparent);
        // The first frame fills the caches, as the panel's first paint does.
        QPainter painter(&image);
        scene.paint(painter);
    }

    QTemporaryDir dir;
    SettingsStore settings { dir.filePath(u"settings.json"_s) };
    ManualClock clock;
    KeyboardMonitor monitor { settings, clock };
    KeyboardScene scene { settings, clock, &monitor };
    QImage image;
};

void fullFrame(benchmark::State& state)
{
    Scene s(qreal(state.range(0)));
    for (auto _ : state) {
        QPainter painter(&s.image);
        s.scene.paint(painter);
    }
}
BENCHMARK(fullFrame)->Arg(1)->Arg(2)->Unit(benchmark::kMicrosecond);

/** One key going down: the repaint of its rectangle at the first frame of the press, as the widget does it. */
void keyPressRepaint(benchmark::State& state)
{
    Scene s(qreal(state.range(0)));
    const KeyCode codes[] = { 0, 56, 49, 124 }; // a letter, a shift (symbol), the space bar, an arrow
    QRectF dirty;
    QObject::connect(&s.scene, &KeyboardScene::updateRequested, [&dirty](const QRectF& r) { dirty = r; });
    std::size_t i = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const KeyCode code = codes[i++ % 4];
        s.monitor.handleKeyUp(code);
        s.clock.advance(1.0);
        s.monitor.handleKeyDown(code);
        s.clock.advance(0.03);
        state.ResumeTiming();
        // The widget repaints whole pixels: the rectangle asked for, rounded outwards.
        const QRectF pixels(dirty.toAlignedRect());
        QPainter painter(&s.image);
        painter.setClipRect(pixels);
        s.scene.paint(painter, pixels);
    }
}
BENCHMARK(keyPressRepaint)->Arg(1)->Arg(2)->Unit(benchmark::kMicrosecond);

} // namespace

/** Writes the frame the benchmarks draw, with a few keys lit, so that what is measured can be looked at. */
int writeSnapshot(const QString& path, qreal dpr, const QColor& background, const QString& themeName)
{
    Scene s(dpr);
    for (const NamedTheme& theme : builtInThemes()) {
        if (theme.name == themeName)
            s.settings.setValue(SettingKeys::activeThemeConfig(), theme.config);
    }
    for (KeyCode code : { KeyCode(55), KeyCode(56), KeyCode(0), KeyCode(31) })
        s.monitor.handleKeyDown(code);
    s.clock.advance(1.0);
    s.image.fill(background);
    QPainter painter(&s.image);
    s.scene.paint(painter);
    painter.end();
    return s.image.save(path) ? 0 : 1;
}

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    // bench_drawing --snapshot FILE.png [DPR [BACKGROUND [THEME]]]
    if (argc >= 3 && qstrcmp(argv[1], "--snapshot") == 0) {
        return writeSnapshot(QString::fromLocal8Bit(argv[2]), argc >= 4 ? QByteArray(argv[3]).toDouble() : 1.0,
            argc >= 5 ? QColor::fromString(QLatin1StringView(argv[4])) : QColor(Qt::transparent),
            argc >= 6 ? QString::fromLocal8Bit(argv[5]) : QString());
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
