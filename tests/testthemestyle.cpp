// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/themestyle.h"

#include <QRegularExpression>
#include <QTest>

#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

const ThemeConfig& builtIn(const QString& name)
{
    for (const NamedTheme& theme : builtInThemes()) {
        if (theme.name == name) {
            return theme.config;
        }
    }
    qFatal("no built-in theme of that name");
}

// A config in which every length differs and none is zero, so a length scaled twice or not at all shows up.
ThemeConfig everyLengthSet()
{
    ThemeConfig config = builtIn(u"Dark Beige"_s);
    config.chassisCornerRadius = 20;
    config.cornerKeyRadius = 14;
    config.keySpacing = 8;
    config.keycapCornerRadius = 6;
    config.keycapBorderWidth = 1.5;
    config.dropShadow = { true, 3, 0.5, 0.25, 0.75, 0.125, -2, 5 };
    config.innerShadow = { true, 9, 0.375, 0.625, 0.875, 0.5, 1, -3 };
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
    void clampsBordersFromAbove();
    void innerShadowNeedsRadius_data();
    void innerShadowNeedsRadius();
    void scaling();
    void colourConversion_data();
    void colourConversion();
};

void TestThemeStyle::pressedTextBrightness_data()
{
    QTest::addColumn<double>("pressedBrightness");
    QTest::addColumn<double>("pressedSaturation");
    QTest::addColumn<double>("textBrightness");
    QTest::addColumn<double>("textSaturation");
    QTest::addColumn<double>("expected");

    // pressedLuma 0.627, textLuma 0.871: both light.
    QTest::newRow("Spacegray darkens its light label") << 0.95 << 0.68 << 0.871 << 0.0 << 0.271;
    // pressedLuma 0.744.
    QTest::newRow("Black darkens its light label") << 1.0 << 0.512 << 0.871 << 0.0 << 0.271;
    // pressedLuma about 0.314, textLuma 0.12: both dark.
    QTest::newRow("Light Indigo lightens its dark label strongly") << 0.331 << 0.105 << 0.12 << 0.0 << 0.92;
    QTest::newRow("darkening stops at 0") << 0.9 << 0.0 << 0.5 << 0.0 << 0.0;
    QTest::newRow("a label luma of exactly 0.4 is not light") << 0.9 << 0.0 << 0.8 << 1.0 << 0.95;
    QTest::newRow("a fill luma of exactly 0.55 is not light") << 0.55 << 0.0 << 0.7 << 0.0 << 0.85;
    QTest::newRow("a fill luma of exactly 0.35 is not dark") << 0.35 << 0.0 << 0.2 << 0.0 << 0.35;
    QTest::newRow("a label luma of exactly 0.5 is not dark") << 0.2 << 0.0 << 0.5 << 0.0 << 0.65;
    QTest::newRow("strong lightening stops at 1") << 0.2 << 0.0 << 0.3 << 0.0 << 1.0;
    QTest::newRow("slight lightening stops at 1") << 0.5 << 0.0 << 0.9 << 0.0 << 1.0;
}

void TestThemeStyle::pressedTextBrightness()
{
    QFETCH(double, pressedBrightness);
    QFETCH(double, pressedSaturation);
    QFETCH(double, textBrightness);
    QFETCH(double, textSaturation);
    QFETCH(double, expected);

    ThemeConfig config = ThemeConfig::fallback();
    config.pressedBrightness = pressedBrightness;
    config.pressedSaturation = pressedSaturation;
    config.textBrightness = textBrightness;
    config.textSaturation = textSaturation;
    // The additions and subtractions of the rule are not exact in binary.
    const double actual = ThemeStyle::pressedTextBrightness(config);
    QVERIFY2(std::abs(actual - expected) < 1e-12, qPrintable(QString::number(actual, 'g', 17)));
    QCOMPARE(ThemeStyle(config).pressedTextColor.brightness, actual);
}

void TestThemeStyle::derivesFromConfig()
{
    const ThemeConfig& spacegray = builtIn(u"Spacegray"_s);
    const ThemeStyle style(spacegray);
    QVERIFY(style.chassisBackground == (HsbColor { 0.687, 0.05, 1, 0.448 }));
    QCOMPARE(style.chassisBlur, 0.854);
    QCOMPARE(style.chassisCornerRadius, 24.787);
    QCOMPARE(style.cornerKeyRadius, 18.0);
    QCOMPARE(style.cornerRadius, 6.0);
    QVERIFY(style.keyBackground == (HsbColor { 0, 0, 0.093, 1 }));
    QVERIFY(style.keyPressedBackground == (HsbColor { 0.1, 0.68, 0.95, 1 }));
    QVERIFY(style.keyBorder == (HsbColor { 0, 0, 0.093 + 0.08, 1 }));
    QVERIFY(style.keyPressedBorder == (HsbColor { 0.1, 0.68, 1, 1 }));
    QVERIFY(style.textColor == (HsbColor { 0, 0, 0.871, 1 }));
    QCOMPARE(style.pressedTextColor.opacity, 1.0);
    QCOMPARE(style.shadowRadius, 4.689);
    QCOMPARE(style.shadowY, 0.0);
    QCOMPARE(style.borderWidth, 0.5);
    QCOMPARE(style.keySpacing, 7.0);
    QVERIFY(!style.gradient);
    QVERIFY(style.dropShadowConfig == spacegray.dropShadow);
    QVERIFY(style.innerShadowConfig == spacegray.innerShadow);

    // Label opacity carries over to the pressed label too.
    ThemeConfig faint = spacegray;
    faint.textOpacity = 0.25;
    QCOMPARE(ThemeStyle(faint).textColor.opacity, 0.25);
    QCOMPARE(ThemeStyle(faint).pressedTextColor.opacity, 0.25);

    // The renderer, not the style, decides from `enabled` whether the drop shadow is drawn.
    const ThemeStyle muted(builtIn(u"Muted"_s));
    QVERIFY(!muted.dropShadowConfig.enabled);
    QCOMPARE(muted.shadowRadius, 2.534);
    QVERIFY(!muted.gradient);
}

void TestThemeStyle::clampsBordersFromAbove()
{
    ThemeConfig config = ThemeConfig::fallback();
    config.keycapBrightness = 0.95;
    config.pressedBrightness = 0.95;
    const ThemeStyle light(config);
    QCOMPARE(light.keyBorder.brightness, 1.0);
    QCOMPARE(light.keyPressedBorder.brightness, 1.0);
    QCOMPARE(light.keyBackground.brightness, 0.95);

    // Nothing else is clamped: out-of-range values pass through untouched.
    config.keycapBrightness = -0.5;
    config.chassisOpacity = 1.5;
    config.textBrightness = 2;
    const ThemeStyle odd(config);
    QCOMPARE(odd.keyBorder.brightness, -0.5 + 0.08);
    QCOMPARE(odd.chassisBackground.opacity, 1.5);
    QCOMPARE(odd.textColor.brightness, 2.0);
}

void TestThemeStyle::innerShadowNeedsRadius_data()
{
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<double>("radius");
    QTest::addColumn<bool>("drawn");

    QTest::newRow("enabled with a radius") << true << 5.155 << true;
    QTest::newRow("enabled with a zero radius") << true << 0.0 << false;
    QTest::newRow("enabled with a negative radius") << true << -1.0 << false;
    QTest::newRow("disabled with a radius") << false << 5.155 << false;
}

void TestThemeStyle::innerShadowNeedsRadius()
{
    QFETCH(bool, enabled);
    QFETCH(double, radius);
    QFETCH(bool, drawn);

    ThemeConfig config = ThemeConfig::fallback();
    config.innerShadow.enabled = enabled;
    config.innerShadow.radius = radius;
    const ThemeStyle style(config);
    QCOMPARE(style.innerShadow, drawn);
    QCOMPARE(style.innerShadowConfig.enabled, enabled);
}

void TestThemeStyle::scaling()
{
    const ThemeStyle style(everyLengthSet());
    QVERIFY(style.scaled(60) == style);

    ThemeStyle half = style;
    half.chassisCornerRadius = 10;
    half.cornerKeyRadius = 7;
    half.cornerRadius = 3;
    half.shadowRadius = 1.5;
    half.shadowY = 2.5;
    half.borderWidth = 0.75;
    half.keySpacing = 4;
    half.dropShadowConfig = { true, 1.5, 0.5, 0.25, 0.75, 0.125, -1, 2.5 };
    half.innerShadowConfig = { true, 4.5, 0.375, 0.625, 0.875, 0.5, 0.5, -1.5 };
    QVERIFY(style.scaled(30) == half);
    QCOMPARE(style.scaled(30).chassisBlur, style.chassisBlur);

    QVERIFY(style.scaled(120).scaled(30) == style);
}

void TestThemeStyle::colourConversion_data()
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();

    QTest::addColumn<HsbColor>("colour");
    QTest::addColumn<QColor>("expected");

    QTest::newRow("in range") << HsbColor { 0.25, 0.5, 0.75, 0.5 } << QColor::fromHsvF(0.25f, 0.5f, 0.75f, 0.5f);
    QTest::newRow("a hue above 1 wraps") << HsbColor { 1.25, 1, 1, 1 } << QColor::fromHsvF(0.25f, 1, 1, 1);
    QTest::newRow("a negative hue wraps") << HsbColor { -0.25, 1, 1, 1 } << QColor::fromHsvF(0.75f, 1, 1, 1);
    QTest::newRow("a hue of 1 is red") << HsbColor { 1, 1, 1, 1 } << QColor::fromHsvF(0, 1, 1, 1);
    QTest::newRow("a hue just below 1 is red") << HsbColor { 1 - 1e-12, 1, 1, 1 } << QColor::fromHsvF(0, 1, 1, 1);
    QTest::newRow("a tiny negative hue is red") << HsbColor { -1e-20, 1, 1, 1 } << QColor::fromHsvF(0, 1, 1, 1);
    QTest::newRow("components are clamped") << HsbColor { 0.5, 1.5, -1, 2 } << QColor::fromHsvF(0.5f, 1, 0, 1);
    QTest::newRow("non-finite parts count as 0") << HsbColor { nan, inf, -inf, nan } << QColor::fromHsvF(0, 0, 0, 0);
}

void TestThemeStyle::colourConversion()
{
    QFETCH(HsbColor, colour);
    QFETCH(QColor, expected);

    QTest::failOnWarning(QRegularExpression(u".*"_s));
    const QColor converted = colour.toQColor();
    QVERIFY(converted.isValid());
    QCOMPARE(converted, expected);
    QVERIFY(converted.hsvHue() < 360);
}

QTEST_GUILESS_MAIN(TestThemeStyle)
#include "testthemestyle.moc"
