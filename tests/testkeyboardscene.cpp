// SPDX-License-Identifier: GPL-3.0-or-later
// The drawn scene: sizes, the press and release animation as pixels, labels, theme changes.
#include "base/clock.h"
#include "base/settingkeys.h"
#include "input/keyboardmonitor.h"
#include "keyboard/keyboardscene.h"
#include "keyboard/keycapview.h"
#include "testsupport.h"
#include "theme/themesettings.h"

#include <QImage>
#include <QPainter>
#include <QSignalSpy>
#include <QTest>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr KeyCode keyA = 0;
constexpr KeyCode keyB = 11;

bool near(QColor a, QColor b, int tolerance = 3)
{
    return std::abs(a.red() - b.red()) <= tolerance && std::abs(a.green() - b.green()) <= tolerance
        && std::abs(a.blue() - b.blue()) <= tolerance;
}

struct Fixture
{
    Fixture()
    {
        store->setValue(SettingKeys::activeThemeConfig(), builtInThemes()[2].config);
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
    QColor faceColour(KeyCode code)
    {
        const QRectF rect = scene.keyRect(code);
        return render().pixelColor(QPointF(rect.center().x(), rect.top() + 0.2 * rect.height()).toPoint());
    }

    QColor pressed() const { return ThemeStyle(scene.themeConfig()).keyPressedBackground.toQColor(); }
    QColor rest() const { return ThemeStyle(scene.themeConfig()).keyBackground.toQColor(); }

    TestSupport::TemporaryStore store;
    ManualClock clock;
    KeyboardMonitor monitor { *store, clock };
    KeyboardScene scene { *store, clock, &monitor };
};

} // namespace

class TestKeyboardScene final : public QObject
{
    Q_OBJECT

private slots:
    void sizesFollowTheSpacing()
    {
        const ThemeConfig config = defaultThemeConfig();
        const double ratio = KeyboardScene::aspectRatio(config);
        QCOMPARE(std::round(ratio * 1e5) / 1e5, 2.57365);
        // One spacing of chassis around the keys: the unit fills the width exactly.
        const double u = KeyboardScene::unitSizeFor(QSizeF(900, 900 / ratio), config);
        QVERIFY(std::abs(u * (14.5 + 15.5 * 7 / 60.0) - 900) < 1e-9);
    }

    void pressLightsAndReleaseFades()
    {
        Fixture f;
        QSignalSpy updates(&f.scene, &KeyboardScene::updateRequested);
        QVERIFY(near(f.faceColour(keyA), f.rest()));
        f.monitor.handleKeyDown(keyA);
        QCOMPARE(updates.count(), 1);
        QVERIFY(updates.first().first().toRectF().contains(f.scene.keyRect(keyA)));
        f.clock.advance(0.04);
        QVERIFY(!near(f.faceColour(keyA), f.rest()) && !near(f.faceColour(keyA), f.pressed()));
        f.clock.advance(0.05);
        QVERIFY(near(f.faceColour(keyA), f.pressed()));
        QVERIFY(near(f.faceColour(keyB), f.rest()));

        // Released: back to rest over the glow decay read now, and then quiet again.
        f.store->setValue(SettingKeys::glowDecay(), 0.3);
        f.monitor.handleKeyUp(keyA);
        f.clock.advance(0.2);
        QVERIFY(!near(f.faceColour(keyA), f.rest()));
        f.clock.advance(0.1 + 1 / 60.0);
        QVERIFY(near(f.faceColour(keyA), f.rest()));

        // No decay: at rest on release, without a single animation frame.
        f.store->setValue(SettingKeys::glowDecay(), 0.0);
        f.monitor.handleKeyDown(keyA);
        f.clock.advance(0.1);
        f.monitor.handleKeyUp(keyA);
        QCOMPARE(f.clock.pendingJobCount(), 0);
        QVERIFY(near(f.faceColour(keyA), f.rest()));

        // A press that has only just begun already shows.
        f.monitor.handleKeyDown(keyA);
        f.clock.advance(0.0005);
        QVERIFY(!near(f.faceColour(keyA), f.rest()));
        f.clock.advance(0.1);
        // A slow fade runs 180 frames, but the key is repainted only when it reaches another step.
        f.store->setValue(SettingKeys::glowDecay(), 3.0);
        updates.clear();
        f.monitor.handleKeyUp(keyA);
        for (int frame = 0; frame < 200; ++frame)
            f.clock.advance(1 / 60.0);
        QVERIFY2(updates.count() <= KeyCapView::pressSteps + 1, qPrintable(QString::number(updates.count())));
    }

    void framesAskOnlyForStepsThatChange()
    {
        Fixture f;
        QList<bool> inFrame; // per updateRequested(): whether it belongs to an animation frame
        int frames = 0;
        bool animatingAtLastFrame = true;
        QObject::connect(
            &f.scene, &KeyboardScene::updateRequested, &f.scene, [&] { inFrame.append(f.scene.isAnimationFrame()); });
        QObject::connect(&f.scene, &KeyboardScene::animationFrameRequested, &f.scene, [&] {
            ++frames;
            animatingAtLastFrame = f.scene.isAnimating();
        });
        f.monitor.handleKeyDown(keyA);
        QCOMPARE(inFrame, QList<bool> { false }); // the press shows at once, outside the frames
        f.clock.advance(0.2);
        QVERIFY(frames >= 4 && !animatingAtLastFrame);
        QVERIFY(inFrame.size() > 1 && !inFrame.mid(1).contains(false));

        // Fully lit, the release starts at the step on the screen: the frames that follow are the first to ask.
        inFrame.clear();
        f.monitor.handleKeyUp(keyA);
        QCOMPARE(inFrame.size(), 0);
        f.clock.advance(0.5);
        QVERIFY(!inFrame.isEmpty() && !inFrame.contains(false));
        QVERIFY(!f.scene.isAnimating());

        // Hidden, keys are followed without frames; shown again, the whole scene is repainted and frames go on.
        f.scene.setShown(false);
        inFrame.clear();
        f.monitor.handleKeyDown(keyA);
        QCOMPARE(f.clock.pendingJobCount(), 0);
        QCOMPARE(inFrame.size(), 0);
        f.scene.setShown(true);
        QCOMPARE(inFrame, QList<bool> { false });
        QCOMPARE(f.clock.pendingJobCount(), 1);
        f.clock.advance(0.2);
        QVERIFY(near(f.faceColour(keyA), f.pressed()));
    }

    void piecesPaintAsTheWhole_data()
    {
        // A rectangle repainted over an older picture, straight or through a painter moved by whole pixels (as the
        // panel draws animation frames), comes out as the same rectangle of a full paint.
        QTest::addColumn<QRect>("rect");
        QTest::addColumn<bool>("moved");
        QTest::addColumn<bool>("pressed"); // keys A, the right arrow and Escape held

        QTest::newRow("a key in the middle") << QRect(40, 150, 90, 90) << false << true;
        QTest::newRow("a rounded corner") << QRect(0, 0, 120, 80) << false << false;
        QTest::newRow("the bottom-right corner, pressed") << QRect(780, 280, 120, 70) << false << true;
        QTest::newRow("along the bottom edge") << QRect(300, 290, 200, 60) << false << false;
        QTest::newRow("along the left edge, moved") << QRect(0, 120, 60, 120) << true << true;
        QTest::newRow("the corner, moved") << QRect(830, 0, 70, 70) << true << true;
        QTest::newRow("across rows, moved") << QRect(20, 100, 400, 180) << true << true;
    }

    void piecesPaintAsTheWhole()
    {
        QFETCH(QRect, rect);
        QFETCH(bool, moved);
        QFETCH(bool, pressed);
        Fixture f;
        if (pressed) {
            for (const KeyCode code : { keyA, KeyCode(124), KeyCode(53) })
                f.monitor.handleKeyDown(code);
            f.clock.advance(0.03); // some of the way
        }
        const QImage whole = f.render();

        QImage piece;
        if (moved) {
            piece = QImage(rect.size(), QImage::Format_ARGB32_Premultiplied);
            piece.fill(Qt::black);
            QPainter painter(&piece);
            painter.translate(-QPointF(rect.topLeft()));
            f.scene.paint(painter, QRectF(rect));
        } else {
            // An older picture: the scene at rest, then the rectangle painted over it.
            QImage older(whole.size(), QImage::Format_ARGB32_Premultiplied);
            older.fill(Qt::black);
            {
                KeyboardScene rest(*f.store, f.clock, nullptr);
                rest.setSize(f.scene.size());
                QPainter painter(&older);
                rest.paint(painter);
            }
            // Cleared first, as the window's backing store clears what it repaints.
            QPainter painter(&older);
            painter.setClipRect(rect);
            painter.setCompositionMode(QPainter::CompositionMode_Source);
            painter.fillRect(rect, Qt::black);
            painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
            f.scene.paint(painter, QRectF(rect));
            painter.end();
            piece = older.copy(rect);
        }
        const QImage expected = whole.copy(rect);
        for (int y = 0; y < piece.height(); ++y) {
            for (int x = 0; x < piece.width(); ++x) {
                if (piece.pixel(x, y) != expected.pixel(x, y))
                    QFAIL(qPrintable(u"differs at %1,%2"_s.arg(rect.x() + x).arg(rect.y() + y)));
            }
        }
    }

    void trackpadPulsesAndButtons_data()
    {
        // Steps: "pulse P" (P: up, down, left, right), "down P" / "up P" (P: left, right, middle, back, forward),
        // "at T" (seconds), "lit P" / "dark P": the part's drawn progress is above 0 / is 0.
        QTest::addColumn<QString>("script");
        QTest::newRow("a notch lights at once and fades over the glow decay")
            << u"pulse up; lit up; at 0.14; lit up; at 0.16; dark up"_s;
        QTest::newRow("notches in quick succession each light it again")
            << u"pulse down; at 0.1; pulse down; at 0.2; lit down; at 0.26; dark down"_s;
        QTest::newRow("smooth steps on both axes fade on their own")
            << u"pulse left; at 0.05; pulse right; at 0.1; pulse left; at 0.21; dark right; lit left; at 0.26; dark left"_s;
        QTest::newRow("a held button stays lit, then fades")
            << u"down left; at 5; lit left; dark right; up left; at 5.1; lit left; at 5.16; dark left"_s;
        QTest::newRow("a drag with another button") << u"down back; down right; at 1; lit back; lit right; up back; "
                                                       u"at 1.2; dark back; lit right"_s;
    }

    void trackpadPulsesAndButtons()
    {
        QFETCH(QString, script);
        using Part = TrackpadView::Part;
        static const QHash<QString, Part> parts { { u"up"_s, Part::scrollUp }, { u"down"_s, Part::scrollDown },
            { u"left"_s, Part::scrollLeft }, { u"right"_s, Part::scrollRight } };
        static const QHash<QString, Part> buttons { { u"left"_s, Part::left }, { u"right"_s, Part::right },
            { u"middle"_s, Part::middle }, { u"back"_s, Part::back }, { u"forward"_s, Part::forward } };
        Fixture f;
        f.store->setValue(SettingKeys::showTrackpad(), true);
        QVERIFY(!f.scene.trackpadRect().isEmpty());
        bool pulses = false;
        for (const QString& step : script.split(u';', Qt::SkipEmptyParts)) {
            const QStringList w = step.split(u' ', Qt::SkipEmptyParts);
            const QHash<QString, Part>& names = pulses ? parts : buttons;
            if (w[0] == u"pulse") {
                pulses = true;
                f.scene.pulseTrackpad(parts.value(w[1]));
            } else if (w[0] == u"down" || w[0] == u"up") {
                f.scene.setTrackpadPart(buttons.value(w[1]), w[0] == u"down");
            } else if (w[0] == u"at") {
                f.clock.advanceTo(w[1].toDouble());
            } else {
                QCOMPARE(f.scene.trackpadProgress(names.value(w[1])) > 0, w[0] == u"lit");
            }
        }
        // Everything comes to rest: no frame is left scheduled.
        f.clock.advance(10);
        QCOMPARE(f.clock.pendingJobCount(), 0);
    }

    void trackpadShapesThePanel()
    {
        // Off, the picture is exactly the keyboard; on, the panel is taller by the trackpad and nothing else moves.
        Fixture f;
        const ThemeConfig config = f.scene.themeConfig();
        const QRectF keyBefore = f.scene.keyRect(49);
        QVERIFY(f.scene.trackpadRect().isEmpty());
        const double ratio = KeyboardScene::aspectRatio(config, true);
        QVERIFY(ratio < KeyboardScene::aspectRatio(config));
        f.store->setValue(SettingKeys::showTrackpad(), true);
        f.scene.setSize(QSizeF(900, 900 / ratio));
        QCOMPARE(f.scene.keyRect(49), keyBefore);
        const QRectF pad = f.scene.trackpadRect();
        QVERIFY(std::abs(pad.center().x() - keyBefore.center().x()) < 1e-9);
        QVERIFY(pad.top() > keyBefore.bottom() && pad.bottom() < f.scene.size().height());
    }

    void themeChangesRedrawAtOnce()
    {
        Fixture f;
        QSignalSpy layouts(&f.scene, &KeyboardScene::layoutChanged);
        f.store->setValue(SettingKeys::activeThemeConfig(), builtInThemes()[0].config);
        QCOMPARE(layouts.count(), 1);
        QVERIFY(near(f.faceColour(keyB), f.rest()));
    }

    void labelsAndCapsLockLight()
    {
        Fixture f;
        const QImage image = f.render();
        const QColor text = ThemeStyle(f.scene.themeConfig()).textColor.toQColor();
        // Whether any pixel in the part of key `code` given in fractions of its rectangle has the label's colour.
        const auto hasLabel = [&](KeyCode code, QRectF part) {
            const QRectF key = f.scene.keyRect(code);
            const QRectF area(key.left() + part.left() * key.width(), key.top() + part.top() * key.height(),
                part.width() * key.width(), part.height() * key.height());
            for (int y = int(area.top()); y < int(area.bottom()); ++y)
                for (int x = int(area.left()); x < int(area.right()); ++x)
                    if (near(image.pixelColor(x, y), text, 40))
                        return true;
            return false;
        };
        const QRectF topLeft(0, 0, 0.35, 0.45), topRight(0.65, 0, 0.35, 0.45), bottomLeft(0, 0.5, 0.35, 0.5);
        QVERIFY(!hasLabel(49, QRectF(0.1, 0.1, 0.8, 0.8))); // space
        QVERIFY(hasLabel(56, bottomLeft)); // the shift arrow
        // Modifier symbols sit in the corner towards the space bar.
        for (const KeyCode leftHand : { 58, 55 })
            QVERIFY(hasLabel(leftHand, topRight) && !hasLabel(leftHand, topLeft));
        for (const KeyCode rightHand : { 54, 61 })
            QVERIFY(hasLabel(rightHand, topLeft) && !hasLabel(rightHand, topRight));

        QSignalSpy updates(&f.scene, &KeyboardScene::updateRequested);
        f.monitor.handleFlagsChanged(ModifierFlag::capsLock, KeyboardMonitor::capsLockKeyCode);
        QCOMPARE(updates.count(), 1);
        QVERIFY(updates.first().first().toRectF().contains(f.scene.keyRect(KeyboardMonitor::capsLockKeyCode)));
    }
};

QTEST_MAIN(TestKeyboardScene)
#include "testkeyboardscene.moc"
