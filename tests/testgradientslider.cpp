// SPDX-License-Identifier: GPL-3.0-or-later
// The gradient slider on the offscreen platform, driven by real mouse and key events.
#include "ui/gradientslider.h"

#include <QApplication>
#include <QImage>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Sized so that the knob (0.85 × the height) travels whole pixels: its centre goes from 17 to 217.
constexpr int sliderWidth = 234;
constexpr int sliderHeight = 40;
constexpr double knob = 34.0;

std::unique_ptr<GradientSlider> shownSlider(double lower, double upper, QGradientStops gradient = {})
{
    auto slider = std::make_unique<GradientSlider>(lower, upper);
    slider->setGradient(gradient);
    slider->setFixedSize(sliderWidth, sliderHeight);
    slider->show();
    if (!QTest::qWaitForWindowExposed(slider.get()))
        return nullptr;
    return slider;
}

QPoint at(double x)
{
    return QPoint(qRound(x), sliderHeight / 2);
}

} // namespace

class TestGradientSlider final : public QObject
{
    Q_OBJECT

private slots:
    void aClickSetsTheValueAndClampsOutsideTheTravel_data();
    void aClickSetsTheValueAndClampsOutsideTheTravel();
    void dragFollowsThePointerAndClampsBeyondTheWidget();
    void keysStepWithinTheRange();
    void knobDrawnOutsideTheTrackOnlyWithAGradient();
    void hueTrackStaysColouredAtBrightnessZero();
};

void TestGradientSlider::aClickSetsTheValueAndClampsOutsideTheTravel_data()
{
    QTest::addColumn<double>("x");
    QTest::addColumn<double>("expected");
    // Range -1 … 3.
    QTest::newRow("left end of the travel") << knob / 2 << -1.0;
    QTest::newRow("right end of the travel") << sliderWidth - knob / 2 << 3.0;
    QTest::newRow("middle") << sliderWidth / 2.0 << 1.0;
    QTest::newRow("left of the travel clamps") << 1.0 << -1.0;
    QTest::newRow("right of the travel clamps") << sliderWidth - 1.0 << 3.0;
}

void TestGradientSlider::aClickSetsTheValueAndClampsOutsideTheTravel()
{
    QFETCH(double, x);
    QFETCH(double, expected);
    auto slider = shownSlider(-1, 3, GradientSlider::hueGradient(1, 1));
    QVERIFY(slider);
    QSignalSpy changed(slider.get(), &GradientSlider::valueChanged);
    slider->setValue(0.25);
    QCOMPARE(changed.size(), 0); // only the user is announced
    QTest::mouseClick(slider.get(), Qt::LeftButton, {}, at(x));
    QCOMPARE(slider->value(), expected);
    // Clicking where the value already is changes nothing and says nothing.
    QTest::mouseClick(slider.get(), Qt::LeftButton, {}, at(x));
    QCOMPARE(changed.size(), 1);
    QCOMPARE(changed.at(0).at(0).toDouble(), expected);
    QVERIFY(!slider->isDragging());
}

void TestGradientSlider::dragFollowsThePointerAndClampsBeyondTheWidget()
{
    auto slider = shownSlider(0, 1);
    QVERIFY(slider);
    QSignalSpy dragging(slider.get(), &GradientSlider::draggingChanged);
    QTest::mousePress(slider.get(), Qt::LeftButton, {}, at(sliderWidth / 2.0));
    QVERIFY(slider->isDragging());
    QTest::mouseMove(slider.get(), at(knob / 2 + (sliderWidth - knob) * 0.75));
    QCOMPARE(slider->value(), 0.75);
    QTest::mouseMove(slider.get(), QPoint(sliderWidth + 80, -30));
    QCOMPARE(slider->value(), 1.0);
    QTest::mouseRelease(slider.get(), Qt::LeftButton, {}, QPoint(-80, 40));
    QCOMPARE(slider->value(), 0.0);
    QCOMPARE(dragging.size(), 2);
}

void TestGradientSlider::keysStepWithinTheRange()
{
    auto slider = shownSlider(0, 2);
    QVERIFY(slider);
    const auto press = [&slider](Qt::Key key) {
        QTest::keyClick(slider.get(), key);
        return slider->value();
    };
    slider->setValue(1.0);
    QCOMPARE(press(Qt::Key_Right), 1.02);
    QCOMPARE(press(Qt::Key_PageDown), 1.02 - 0.2);
    QCOMPARE(press(Qt::Key_End), 2.0);
    QCOMPARE(press(Qt::Key_Up), 2.0);
    QCOMPARE(press(Qt::Key_Home), 0.0);
    QCOMPARE(press(Qt::Key_Down), 0.0);
    // From a value above the range, a step down starts at the end of the range.
    slider->setValue(5.0);
    QCOMPARE(press(Qt::Key_Left), 1.98);
}

void TestGradientSlider::knobDrawnOutsideTheTrackOnlyWithAGradient()
{
    auto coloured = shownSlider(0, 1, GradientSlider::brightnessGradient(0, 0));
    auto plain = shownSlider(0, 1);
    QVERIFY(coloured && plain);
    QCOMPARE(coloured->trackHeight(), 0.55 * sliderHeight);
    QCOMPARE(coloured->knobDiameter(), knob);
    coloured->setValue(1.5);
    QCOMPARE(coloured->knobCentreX(), knob / 2 + (sliderWidth - knob) * 1.5);
    plain->setValue(1.5);
    QCOMPARE(plain->knobCentreX(), sliderWidth - knob / 2);
    plain->setValue(-3);
    QCOMPARE(plain->knobCentreX(), knob / 2);
}

void TestGradientSlider::hueTrackStaysColouredAtBrightnessZero()
{
    // Saturation and brightness are lifted to their floors, so the hues show on a black chassis.
    const QGradientStops hue = GradientSlider::hueGradient(0.0, 0.0);
    QCOMPARE(hue.size(), 11);
    QCOMPARE(hue.last().second, hue.first().second);
    auto slider = shownSlider(0, 1, hue);
    QVERIFY(slider);
    slider->setValue(1.0); // knob out of the way at the right
    const QImage image = slider->grab().toImage();
    const double scale = image.devicePixelRatio();
    // The stop at hue 0.4 (green), in the middle of the track's height.
    const QColor sample
        = image.pixelColor(QPoint(qRound(sliderWidth * 0.4 * scale), qRound(sliderHeight / 2.0 * scale)));
    QVERIFY2(qAbs(sample.valueF() - 0.3f) < 0.02f, qPrintable(sample.name()));
    QVERIFY2(qAbs(sample.hsvHueF() - 0.4f) < 0.02f, qPrintable(sample.name()));
    QVERIFY2(qAbs(sample.hsvSaturationF() - 0.5f) < 0.04f, qPrintable(sample.name()));
    // The other tracks end in the colour itself (brightness lifted to its floor on the saturation track).
    const auto hsv = [](const QColor& c) {
        return QString::asprintf("%.2f %.2f %.2f %.2f", c.hsvHueF(), c.hsvSaturationF(), c.valueF(), c.alphaF());
    };
    QCOMPARE(hsv(GradientSlider::saturationGradient(0.6, 0.0).last().second), u"0.60 1.00 0.30 1.00"_s);
    QCOMPARE(hsv(GradientSlider::brightnessGradient(0.6, 0.7).last().second), u"0.60 0.70 1.00 1.00"_s);
    QCOMPARE(hsv(GradientSlider::opacityGradient(0.6, 0.7, 0.8).last().second), u"0.60 0.70 0.80 1.00"_s);
    QCOMPARE(GradientSlider::opacityGradient(0.6, 0.7, 0.8).first().second.alphaF(), 0.0f);
}

QTEST_MAIN(TestGradientSlider)
#include "testgradientslider.moc"
