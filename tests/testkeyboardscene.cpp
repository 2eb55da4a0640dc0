// SPDX-License-Identifier: GPL-3.0-or-later
// The drawn scene: sizes, what gets repainted when, the press and release animation as pixels, theme changes.
#include "base/clock.h"
#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "input/keyboardmonitor.h"
#include "keyboard/keyboardscene.h"
#include "keyboard/keycapview.h"
#include "keyboard/keypressanimator.h"

#include <QImage>
#include <QPainter>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr KeyCode keyA = 0;
constexpr KeyCode keyB = 11;
constexpr KeyCode keyShiftLeft = 56;

const NamedTheme& builtIn(const QString& name)
{
    for (const NamedTheme& theme : builtInThemes()) {
        if (theme.name == name)
            return theme;
    }
    qFatal("no built-in theme");
}

bool near(QColor a, QColor b, int tolerance = 3)
{
    return std::abs(a.red() - b.red()) <= tolerance && std::abs(a.green() - b.green()) <= tolerance
        && std::abs(a.blue() - b.blue()) <= tolerance;
}

struct Fixture
{
    Fixture()
    {
        settings.setValue(SettingKeys::activeThemeConfig(), builtIn(u"Black"_s).config);
        scene.setSize(QSizeF(900, 900 / KeyboardScene::aspectRatio(scene.themeConfig())));
    }

    QImage render()
    {
        QImage image(scene.size().toSize(), QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::black);
        QPainter painter(&image);
        scene.paint(painter);
        return image;
    }

    /** A point of the key's face clear of its label. */
    QColor faceColour(const QImage& image, KeyCode code) const
    {
        const QRectF rect = scene.keyRect(code);
        return image.pixelColor(QPointF(rect.center().x(), rect.top() + 0.2 * rect.height()).toPoint());
    }

    QColor pressed() const { return ThemeStyle(scene.themeConfig()).keyPressedBackground.toQColor(); }
    QColor rest() const { return ThemeStyle(scene.themeConfig()).keyBackground.toQColor(); }

    QTemporaryDir dir;
    SettingsStore settings { dir.filePath(u"settings.json"_s) };
    ManualClock clock;
    KeyboardMonitor monitor { settings, clock };
    KeyboardScene scene { settings, clock, &monitor };
};

} // namespace

class TestKeyboardScene final : public QObject
{
    Q_OBJECT

private slots:
    void sizesFollowTheSpacing()
    {
        const ThemeConfig config = defaultThemeConfig();
        QCOMPARE(std::round(KeyboardScene::aspectRatio(config) * 1e5) / 1e5, 2.57365);
        const double ratio = KeyboardScene::aspectRatio(config);
        QCOMPARE(std::round(900 / ratio * 1e3) / 1e3, 349.699);
        QCOMPARE(std::round(700 / ratio * 1e3) / 1e3, 271.988);
        // One spacing of chassis around the keys: the unit fills the width exactly.
        const double u = KeyboardScene::unitSizeFor(QSizeF(900, 900 / ratio), config);
        QVERIFY(std::abs(u * (14.5 + 15.5 * 7 / 60.0) - 900) < 1e-9);
        ThemeConfig flat = config;
        flat.keySpacing = 0;
        QCOMPARE(KeyboardScene::unitSizeFor(QSizeF(1450, 1000), flat), 100.0);
    }

    void easingCurvesAreTheStandardCubics()
    {
        QVERIFY(std::abs(KeyPressAnimator::easeIn().valueForProgress(0.5) - 0.3153) < 0.002);
        QVERIFY(std::abs(KeyPressAnimator::easeOut().valueForProgress(0.5) - 0.6847) < 0.002);
        QCOMPARE(KeyPressAnimator::easeIn().valueForProgress(1.0), 1.0);
    }

    void pressLightsAndReleaseFades()
    {
        Fixture f;
        QSignalSpy updates(&f.scene, &KeyboardScene::updateRequested);
        QVERIFY(near(f.faceColour(f.render(), keyA), f.rest()));
        QCOMPARE(f.clock.pendingJobCount(), 0);

        f.monitor.handleKeyDown(keyA);
        QCOMPARE(updates.count(), 1);
        QVERIFY(updates.first().first().toRectF().contains(f.scene.keyRect(keyA)));
        f.clock.advance(0.04);
        const QColor halfway = f.faceColour(f.render(), keyA);
        QVERIFY(!near(halfway, f.rest()) && !near(halfway, f.pressed()));
        f.clock.advance(0.05);
        QVERIFY(near(f.faceColour(f.render(), keyA), f.pressed()));
        QVERIFY(near(f.faceColour(f.render(), keyB), f.rest()));
        // Once the press has finished nothing keeps running.
        QCOMPARE(f.clock.pendingJobCount(), 0);
        const qsizetype framesAfterPress = updates.count();
        QVERIFY(framesAfterPress >= 4);

        // Released: back to rest over the glow decay read now, and then quiet again.
        f.settings.setValue(SettingKeys::glowDecay(), 0.3);
        f.monitor.handleKeyUp(keyA);
        f.clock.advance(0.2);
        QVERIFY(!near(f.faceColour(f.render(), keyA), f.rest()));
        f.clock.advance(0.1 + 1 / 60.0);
        QVERIFY(near(f.faceColour(f.render(), keyA), f.rest()));
        QCOMPARE(f.clock.pendingJobCount(), 0);

        // No decay: the key is at rest on release, without a single animation frame.
        f.settings.setValue(SettingKeys::glowDecay(), 0.0);
        f.monitor.handleKeyDown(keyA);
        f.clock.advance(0.1);
        f.monitor.handleKeyUp(keyA);
        QCOMPARE(f.clock.pendingJobCount(), 0);
        QVERIFY(near(f.faceColour(f.render(), keyA), f.rest()));
    }

    void pressesAreDrawnInSteps()
    {
        QCOMPARE(KeyCapView::pressStep(0.0), 0);
        QCOMPARE(KeyCapView::pressStep(qQNaN()), 0);
        QCOMPARE(KeyCapView::pressStep(1e-6), 1);
        QCOMPARE(KeyCapView::pressStep(1.0 / KeyCapView::pressSteps), 1);
        QCOMPARE(KeyCapView::pressStep(0.5), KeyCapView::pressSteps / 2);
        QCOMPARE(KeyCapView::pressStep(0.9999), KeyCapView::pressSteps);
        QCOMPARE(KeyCapView::pressStep(1.0), KeyCapView::pressSteps);

        Fixture f;
        // A press that has only just begun already shows on the first paint.
        f.monitor.handleKeyDown(keyA);
        f.clock.advance(0.0005);
        QVERIFY(!near(f.faceColour(f.render(), keyA), f.rest()));
        f.clock.advance(0.1);

        // A slow fade runs 180 frames, but the key is repainted only when it reaches another step.
        f.settings.setValue(SettingKeys::glowDecay(), 3.0);
        QSignalSpy updates(&f.scene, &KeyboardScene::updateRequested);
        f.monitor.handleKeyUp(keyA);
        for (int frame = 0; frame < 200; ++frame)
            f.clock.advance(1 / 60.0);
        QCOMPARE(f.clock.pendingJobCount(), 0);
        QVERIFY2(updates.count() <= KeyCapView::pressSteps + 1, qPrintable(QString::number(updates.count())));
        QVERIFY(near(f.faceColour(f.render(), keyA), f.rest()));
    }

    void releaseDuringThePressStartsFromWhereTheKeyIs()
    {
        ManualClock clock;
        KeyPressAnimator animator(clock);
        animator.setPressed(keyA, true, 0.15);
        clock.advance(0.02);
        const double lit = animator.progress(keyA);
        QVERIFY(lit > 0 && lit < 1);
        animator.setPressed(keyA, false, 0.15);
        QCOMPARE(animator.progress(keyA), lit);
        clock.advance(0.15);
        QCOMPARE(animator.progress(keyA), 0.0);
        QVERIFY(!animator.takeAnimatingKeys().isEmpty());
        QVERIFY(!animator.isAnimating());
    }

    void themeChangesRedrawAtOnce()
    {
        Fixture f;
        QSignalSpy layouts(&f.scene, &KeyboardScene::layoutChanged);
        f.settings.setValue(SettingKeys::activeThemeConfig(), builtIn(u"Spacegray"_s).config);
        QCOMPARE(layouts.count(), 1);
        QVERIFY(near(f.faceColour(f.render(), keyB), f.rest()));
        // The same theme again is no change.
        f.settings.setValue(SettingKeys::activeThemeConfig(), builtIn(u"Spacegray"_s).config);
        QCOMPARE(layouts.count(), 1);

        // A fixed theme ignores the setting.
        f.scene.setThemeConfig(builtIn(u"Muted"_s).config);
        f.settings.setValue(SettingKeys::activeThemeConfig(), builtIn(u"Black"_s).config);
        QCOMPARE(f.scene.themeConfig(), builtIn(u"Muted"_s).config);
    }

    void labelsAndCapsLockLightAreDrawn()
    {
        Fixture f;
        const QImage image = f.render();
        const QColor text = ThemeStyle(f.scene.themeConfig()).textColor.toQColor();
        const auto hasTextPixels = [&](QRectF area) {
            for (int y = int(area.top()); y < int(area.bottom()); ++y)
                for (int x = int(area.left()); x < int(area.right()); ++x)
                    if (near(image.pixelColor(x, y), text, 40))
                        return true;
            return false;
        };
        QVERIFY(hasTextPixels(f.scene.keyRect(keyA)));
        // Symbols come from the icon set: the shift arrow sits in the bottom-left corner.
        const QRectF shift = f.scene.keyRect(keyShiftLeft);
        QVERIFY(hasTextPixels(QRectF(shift.left(), shift.center().y(), shift.width() / 3, shift.height() / 2)));
        QVERIFY(!hasTextPixels(f.scene.keyRect(49).adjusted(8, 8, -8, -8)));

        QSignalSpy updates(&f.scene, &KeyboardScene::updateRequested);
        f.monitor.handleFlagsChanged(ModifierFlag::capsLock, KeyboardMonitor::capsLockKeyCode);
        QCOMPARE(updates.count(), 1);
        QVERIFY(updates.first().first().toRectF().contains(f.scene.keyRect(KeyboardMonitor::capsLockKeyCode)));
    }
};

QTEST_MAIN(TestKeyboardScene)
#include "testkeyboardscene.moc"
