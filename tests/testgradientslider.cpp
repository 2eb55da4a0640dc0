// SPDX-License-Identifier: GPL-3.0-or-later
// The gradient slider on the offscreen platform, driven by real mouse and key events.
#include "ui/gradientslider.h"

#include <QApplication>
#include <QImage>
#include <QSignalSpy>
#include <QTest>

#include <memory>

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
    void onlyTheUserIsAnnounced();
    void keysStepThroughTheRange();
    void knobDrawnOutsideTheTrackOnlyWithAGradient();
    void gradients();
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
    slider->setValue(0.25);
    QTest::mouseClick(slider.get(), Qt::LeftButton, {}, at(x));
    QCOMPARE(slider->value(), expected);
    QVERIFY(!slider->isDragging());
}

void TestGradientSlider::dragFollowsThePointerAndClampsBeyondTheWidget()
{
    auto slider = shownSlider(0, 1);
    QVERIFY(slider);
    QSignalSpy dragging(slider.get(), &GradientSlider::draggingChanged);
    QTest::mousePress(slider.get(), Qt::LeftButton, {}, at(sliderWidth / 2.0));
    QVERIFY(slider->isDragging());
    QCOMPARE(slider->value(), 0.5);
    QTest::mouseMove(slider.get(), at(knob / 2 + (sliderWidth - knob) * 0.75));
    QCOMPARE(slider->value(), 0.75);
    QTest::mouseMove(slider.get(), QPoint(sliderWidth + 80, -30));
    QCOMPARE(slider->value(), 1.0);
    QTest::mouseRelease(slider.get(), Qt::LeftButton, {}, QPoint(-80, 40));
    QCOMPARE(slider->value(), 0.0);
    QVERIFY(!slider->isDragging());
    QCOMPARE(dragging.size(), 2);
}

void TestGradientSlider::onlyTheUserIsAnnounced()
{
    auto slider = shownSlider(0, 2);
    QVERIFY(slider);
    QSignalSpy changed(slider.get(), &GradientSlider::valueChanged);
    slider->setValue(1.5);
    slider->setValue(7.0);
    QCOMPARE(changed.size(), 0);
    QCOMPARE(slider->value(), 7.0); // kept as given, outside the range

    QTest::mouseClick(slider.get(), Qt::LeftButton, {}, at(knob / 2));
    QCOMPARE(changed.size(), 1);
    QCOMPARE(changed.at(0).at(0).toDouble(), 0.0);
    // Clicking where the value already is changes nothing and says nothing.
    QTest::mouseClick(slider.get(), Qt::LeftButton, {}, at(knob / 2));
    QCOMPARE(changed.size(), 1);
}

void TestGradientSlider::keysStepThroughTheRange()
{
    auto slider = shownSlider(0, 2);
    QVERIFY(slider);
    QSignalSpy changed(slider.get(), &GradientSlider::valueChanged);
    slider->setValue(1.0);
    QTest::keyClick(slider.get(), Qt::Key_Right);
    QCOMPARE(slider->value(), 1.02);
    QTest::keyClick(slider.get(), Qt::Key_PageDown);
    QCOMPARE(slider->value(), 1.02 - 0.2);
    QTest::keyClick(slider.get(), Qt::Key_End);
    QCOMPARE(slider->value(), 2.0);
    QTest::keyClick(slider.get(), Qt::Key_Up);
    QCOMPARE(slider->value(), 2.0);
    QCOMPARE(changed.size(), 3);

    // From a value above the range, a step down starts at the end of the range.
    slider->setValue(5.0);
    QTest::keyClick(slider.get(), Qt::Key_Left);
    QCOMPARE(slider->value(), 1.98);
    QTest::keyClick(slider.get(), Qt::Key_Home);
    QCOMPARE(slider->value(), 0.0);
}

void TestGradientSlider::knobDrawnOutsideTheTrackOnlyWithAGradient()
{
    auto coloured = shownSlider(0, 1, GradientSlider::brightnessGradient(0, 0));
    auto plain = shownSlider(0, 1);
    QVERIFY(coloured && plain);
    QCOMPARE(coloured->trackHeight(), 0.55 * sliderHeight);
    QCOMPARE(coloured->knobDiameter(), knob);

    coloured->setValue(0.25);
    QCOMPARE(coloured->knobCentreX(), knob / 2 + (sliderWidth - knob) * 0.25);
    coloured->setValue(1.5);
    QCOMPARE(coloured->knobCentreX(), knob / 2 + (sliderWidth - knob) * 1.5);
    plain->setValue(1.5);
    QCOMPARE(plain->knobCentreX(), sliderWidth - knob / 2);
    plain->setValue(-3);
    QCOMPARE(plain->knobCentreX(), knob / 2);
}

void TestGradientSlider::gradients()
{
    const auto hsv = [](const QColor& c) { return QList<float> { c.hueF(), c.saturationF(), c.valueF(), c.alphaF() }; };
    const auto near = [](const QList<float>& actual, const QList<float>& expected) {
        for (qsizetype i = 0; i < expected.size(); ++i) {
            if (expected[i] >= 0 && qAbs(actual[i] - expected[i]) > 0.002f)
                return false;
        }
        return true;
    };

    const QGradientStops hue = GradientSlider::hueGradient(0.2, 0.1);
    QCOMPARE(hue.size(), 11);
    for (int i = 0; i < 11; ++i) {
        QCOMPARE(hue[i].first, i / 10.0);
        // Saturation and brightness lifted to their floors; hue 1 is red again.
        QVERIFY2(
            near(hsv(hue[i].second), { i == 10 ? 0.0f : i / 10.0f, 0.5f, 0.3f, 1.0f }), qPrintable(QString::number(i)));
    }
    QVERIFY(near(hsv(GradientSlider::hueGradient(0.8, 0.9)[3].second), { 0.3f, 0.8f, 0.9f, 1.0f }));

    const QGradientStops saturation = GradientSlider::saturationGradient(0.6, 0.0);
    QCOMPARE(saturation.size(), 2);
    QVERIFY(near(hsv(saturation.first().second), { -1, 0.0f, 0.3f, 1.0f }));
    QVERIFY(near(hsv(saturation.last().second), { 0.6f, 1.0f, 0.3f, 1.0f }));

    const QGradientStops brightness = GradientSlider::brightnessGradient(0.6, 0.7);
    QVERIFY(near(hsv(brightness.first().second), { -1, -1, 0.0f, 1.0f }));
    QVERIFY(near(hsv(brightness.last().second), { 0.6f, 0.7f, 1.0f, 1.0f }));

    const QGradientStops opacity = GradientSlider::opacityGradient(0.6, 0.7, 0.8);
    QCOMPARE(opacity.first().second.alphaF(), 0.0f);
    QVERIFY(near(hsv(opacity.last().second), { 0.6f, 0.7f, 0.8f, 1.0f }));
}

void TestGradientSlider::hueTrackStaysColouredAtBrightnessZero()
{
    auto slider = shownSlider(0, 1, GradientSlider::hueGradient(0.0, 0.0));
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
}

QTEST_MAIN(TestGradientSlider)
#include "testgradientslider.moc"
