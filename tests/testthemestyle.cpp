// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/themestyle.h"

#include <QRegularExpression>
#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;

namespace {

// Spacegray with every length distinct, non-zero and times `s`, so a length mixed up, scaled twice or not at all
// shows up.
ThemeConfig sample(double s = 1)
{
    ThemeConfig config = builtInThemes()[0].config;
    config.chassisCornerRadius = 20 * s;
    config.cornerKeyRadius = 14 * s;
    config.keySpacing = 8 * s;
    config.keycapCornerRadius = 6 * s;
    config.keycapBorderWidth = 1.5 * s;
    config.dropShadow = { true, 3 * s, 0.5, 0.25, 0.75, 0.125, -2 * s, 5 * s };
    config.innerShadow = { true, 9 * s, 0.375, 0.625, 0.875, 0.5, 1 * s, -3 * s };
    config.textOpacity = 0.25;
    return config;
}

ThemeConfig labelOnFill(double textBrightness, double textSaturation, double fillBrightness, double fillSaturation)
{
    ThemeConfig config;
    config.textBrightness = textBrightness;
    config.textSaturation = textSaturation;
    config.pressedBrightness = fillBrightness;
    config.pressedSaturation = fillSaturation;
    return config;
}

} // namespace

class TestThemeStyle final : public QObject
{
    Q_OBJECT

private slots:
    void pressedTextBrightness_data();
    void pressedTextBrightness();
    void derivesFromConfig();
    void colourConversion_data();
    void colourConversion();
};

void TestThemeStyle::pressedTextBrightness_data()
{
    QTest::addColumn<ThemeConfig>("config");
    QTest::addColumn<double>("expected");

    // Luma is brightness * (1 - saturation / 2).
    QTest::newRow("Spacegray darkens its light label") << labelOnFill(0.871, 0, 0.95, 0.68) << 0.271;
    QTest::newRow("Light Indigo lightens its dark label strongly") << labelOnFill(0.12, 0, 0.331, 0.105) << 0.92;
    QTest::newRow("darkening stops at 0") << labelOnFill(0.5, 0, 0.9, 0) << 0.0;
    QTest::newRow("a label luma of exactly 0.4 is not light") << labelOnFill(0.8, 1, 0.9, 0) << 0.95;
    QTest::newRow("a fill luma of exactly 0.55 is not light") << labelOnFill(0.7, 0, 0.55, 0) << 0.85;
    QTest::newRow("a fill luma of exactly 0.35 is not dark") << labelOnFill(0.2, 0, 0.35, 0) << 0.35;
    QTest::newRow("a label luma of exactly 0.5 is not dark") << labelOnFill(0.5, 0, 0.2, 0) << 0.65;
    QTest::newRow("lightening stops at 1") << labelOnFill(0.3, 0, 0.2, 0) << 1.0;
}

void TestThemeStyle::pressedTextBrightness()
{
    QFETCH(ThemeConfig, config);
    QTEST(ThemeStyle(config).pressedTextColor.brightness, "expected");
}

void TestThemeStyle::derivesFromConfig()
{
    ThemeConfig config = sample();
    const ThemeStyle style(config);
    QVERIFY(style.chassisBackground == (HsbColor { 0.687, 0.05, 1, 0.448 }));
    QVERIFY(style.keyBackground == (HsbColor { 0, 0, 0.093, 1 }));
    QVERIFY(style.keyPressedBackground == (HsbColor { 0.1, 0.68, 0.95, 1 }));
    QVERIFY(style.keyBorder == (HsbColor { 0, 0, 0.093 + 0.08, 1 }));
    QVERIFY(style.keyPressedBorder == (HsbColor { 0.1, 0.68, 1, 1 }));
    QVERIFY(style.textColor == (HsbColor { 0, 0, 0.871, 0.25 }));
    QVERIFY(style.pressedTextColor == (HsbColor { 0, 0, ThemeStyle::pressedTextBrightness(config), 0.25 }));

    // Borders are a touch lighter than their fills, at most 1.
    config.keycapBrightness = 0.95;
    config.pressedBrightness = 0.5;
    QCOMPARE(ThemeStyle(config).keyBorder.brightness, 1.0);
    QCOMPARE(ThemeStyle(config).keyPressedBorder.brightness, 0.6);

    // The inner shadow is drawn only when enabled with a positive radius; its config is passed on as it is.
    QVERIFY(style.innerShadow);
    for (const ShadowConfig& off : { ShadowConfig { .enabled = false, .radius = 9 }, ShadowConfig { .radius = 0 },
             ShadowConfig { .radius = -1 } }) {
        config.innerShadow = off;
        QVERIFY(!ThemeStyle(config).innerShadow);
        QCOMPARE(ThemeStyle(config).innerShadowConfig, off);
    }

    // Lengths are at unit size 60; everything else stays as it is.
    QVERIFY(style.scaled(30) == ThemeStyle(sample(0.5)));
}

void TestThemeStyle::colourConversion_data()
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    QTest::addColumn<HsbColor>("colour");
    QTest::addColumn<QColor>("expected");

    QTest::newRow("a negative hue wraps") << HsbColor { -0.25, 0.5, 1, 2 } << QColor::fromHsvF(0.75f, 0.5f, 1, 1);
    QTest::newRow("a tiny negative hue is red, not 360 degrees")
        << HsbColor { -1e-20, 1, 1, 1 } << QColor::fromHsvF(0, 1, 1, 1);
    QTest::newRow("components are clamped") << HsbColor { 0.5, 1.5, -1, 0.25 } << QColor::fromHsvF(0.5f, 1, 0, 0.25f);
    QTest::newRow("non-finite parts count as 0") << HsbColor { nan, inf, -inf, nan } << QColor::fromHsvF(0, 0, 0, 0);
}

void TestThemeStyle::colourConversion()
{
    QFETCH(HsbColor, colour);
    QTest::failOnWarning(QRegularExpression(u".*"_s));
    QTEST(colour.toQColor(), "expected");
    // QColor's equality takes 360 degrees for 0, so check the stored hue itself.
    QVERIFY(colour.toQColor().hsvHue() < 360);
}

QTEST_GUILESS_MAIN(TestThemeStyle)
#include "testthemestyle.moc"
