// SPDX-License-Identifier: GPL-3.0-or-later
// Cost of one step of a slider drag in the Styling tab, from the mouse move to the keyboard showing the new colour:
// the slider's move, writing the configuration to the settings file, every control and the theme list following
// it, the tab's own repaint, the store noticing its own file change, and the keyboard repainting what it reports
// as changed into an image the size of the panel. Run with QT_QPA_PLATFORM=offscreen.
#include "base/clock.h"
#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "keyboard/keyboardscene.h"
#include "theme/themefileaccess.h"
#include "ui/gradientslider.h"
#include "ui/settingsrows.h"
#include "ui/stylingsettingstab.h"

#include <QApplication>
#include <QImage>
#include <QPainter>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTest>

#include <benchmark/benchmark.h>

#include <cmath>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

class NoFiles final : public ThemeFileAccess
{
public:
    std::optional<QString> chooseFileToOpen() override { return std::nullopt; }
    std::optional<QString> chooseFileToSave(const QString&) override { return std::nullopt; }
    std::optional<QByteArray> readFile(const QString&) override { return std::nullopt; }
    bool writeFile(const QString&, const QByteArray&) override { return false; }
    void setClipboardText(const QString&) override { }
};

/** The positions of a drag over the whole track and back, in `steps` moves each way. */
QList<int> dragPositions(const GradientSlider* slider, int steps)
{
    const double k = slider->knobDiameter();
    QList<int> xs;
    for (int i = 0; i <= steps; ++i)
        xs << int(std::lround(k / 2 + (slider->width() - k) * i / steps));
    for (int i = steps - 1; i > 0; --i)
        xs << xs.at(i);
    return xs;
}

struct Window
{
    explicit Window(qreal dpr)
    {
        scene.setSize(QSizeF(900, 900 / KeyboardScene::aspectRatio(scene.themeConfig())));
        panel = QImage((scene.size() * dpr).toSize(), QImage::Format_ARGB32_Premultiplied);
        panel.setDevicePixelRatio(dpr);
        panel.fill(Qt::transparent);
        QObject::connect(
            &scene, &KeyboardScene::updateRequested, [this](const QRectF& r) { dirty = dirty ? dirty->united(r) : r; });
        QObject::connect(&scene, &KeyboardScene::layoutChanged, [this] { dirty = QRectF(QPointF(), scene.size()); });
        dirty = QRectF(QPointF(), scene.size());
        repaintKeyboard();

        tab.resize(560, 900);
        tab.show();
        (void)QTest::qWaitForWindowExposed(&tab);
        row = tab.widget()->findChild<SliderRow*>(u"keycapHue"_s);
        tab.ensureWidgetVisible(row);
        QCoreApplication::processEvents();
    }

    /** What the panel does when the scene asks for a repaint: draw the rectangle it named. */
    void repaintKeyboard()
    {
        if (!dirty)
            return;
        const QRectF exposed = *dirty;
        dirty.reset();
        QPainter painter(&panel);
        painter.setClipRect(exposed);
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillRect(exposed, Qt::transparent);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
        scene.paint(painter, exposed);
    }

    QTemporaryDir dir;
    SettingsStore settings { dir.filePath(u"settings.json"_s) };
    ManualClock clock;
    KeyboardScene scene { settings, clock, nullptr };
    QImage panel;
    std::optional<QRectF> dirty;
    NoFiles files;
    StylingSettingsTab tab { settings, files };
    SliderRow* row = nullptr;
};

/** One step of dragging the key cap hue: mouse move → settings → controls and list → tab and keyboard repainted. */
void dragKeycapHue(benchmark::State& state)
{
    Window w(qreal(state.range(0)));
    GradientSlider* slider = w.row->slider();
    const QList<int> xs = dragPositions(slider, 100);
    const int middle = slider->height() / 2;
    QTest::mousePress(slider, Qt::LeftButton, {}, QPoint(xs.first(), middle));
    qsizetype i = 0;
    for (auto _ : state) {
        i = (i + 1) % xs.size();
        QTest::mouseMove(slider, QPoint(xs.at(i), middle));
        // Posted work: the tab's repaint and the settings file watcher.
        QCoreApplication::processEvents();
        if (state.range(1))
            w.repaintKeyboard();
    }
    QTest::mouseRelease(slider, Qt::LeftButton, {}, QPoint(xs.at(i), middle));
    state.counters["hue"] = w.settings.value(SettingKeys::activeThemeConfig()).keycapHue;
}
BENCHMARK(dragKeycapHue)
    ->ArgNames({ "dpr", "keyboard" })
    ->Args({ 1, 1 })
    ->Args({ 2, 1 })
    ->Args({ 1, 0 })
    ->Unit(benchmark::kMillisecond);

/** For comparison: the settings store writing a changed configuration, with nobody following it. */
void storeWriteAlone(benchmark::State& state)
{
    QTemporaryDir dir;
    SettingsStore settings(dir.filePath(u"settings.json"_s));
    ThemeConfig config = settings.value(SettingKeys::activeThemeConfig());
    int i = 0;
    for (auto _ : state) {
        config.keycapHue = (++i % 100) / 100.0;
        settings.setValue(SettingKeys::activeThemeConfig(), config);
        QCoreApplication::processEvents();
    }
}
BENCHMARK(storeWriteAlone)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
