// SPDX-License-Identifier: GPL-3.0-or-later
// Theme values: the built-in list, rounding, the derived drawing style, colour conversion and the theme JSON.
#include "theme/themejson.h"
#include "theme/themestyle.h"

#include <QSet>
#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double maxDouble = std::numeric_limits<double>::max();

// Every number `v` plus its own step, so that a field read into or written from another one shows up.
ThemeConfig distinctConfig(double v, double step)
{
    double n = v;
    const auto next = [&] { return n += step; };
    return { next(), next(), next(), next(), next(), next(), next(), next(), next(), next(), next(), next(), next(),
        next(), next(), next(), { true, next(), next(), next(), next(), next(), next(), next() },
        { false, next(), next(), next(), next(), next(), next(), next() }, next(), next(), next(), next() };
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

// A one-theme document with the given id and other members.
QByteArray themeWithId(const QByteArray& id, const QByteArray& members = R"("name":"A","config":{})")
{
    return "[{\"id\":\"" + id + "\"," + members + "}]";
}

} // namespace

class TestTheme final : public QObject
{
    Q_OBJECT

private slots:
    void builtInThemes()
    {
        // Fourteen themes, each with a name of its own, exported unchanged.
        QSet<QString> names;
        for (const NamedTheme& theme : ::builtInThemes()) {
            names.insert(theme.name);
            QVERIFY2(theme.config.rounded(3) == theme.config, qPrintable(theme.name));
        }
        QCOMPARE(names.size(), 14);
        QCOMPARE(defaultThemeName(), u"Spacegray"_s);
        QVERIFY(defaultThemeConfig() == ::builtInThemes().constFirst().config);
        // Stored themes read missing keys from a table of their own.
        QCOMPARE(ThemeJson::decodeConfig("{}"), std::optional(ThemeConfig::fallback()));
        QCOMPARE(ThemeConfig::fallback().keySpacing, 7.0);
    }

    void rounding_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<int>("places");
        QTest::addColumn<double>("expected");

        QTest::newRow("halfway rounds up") << 0.0005 << 3 << 0.001;
        QTest::newRow("small negative is a zero that hashes like 0") << -0.0004 << 3 << 0.0;
        // Scaling these up and down again would overflow (written to JSON as null) or cost their last bits.
        QTest::newRow("scaling would overflow") << 1e306 << 3 << 1e306;
    }

    void rounding()
    {
        QFETCH(double, value);
        QFETCH(int, places);
        QFETCH(double, expected);
        QCOMPARE(::roundedToPlaces(value, places), expected);
        // Every field of a config.
        const ThemeConfig config = distinctConfig(value, 0);
        const ThemeConfig wanted = distinctConfig(expected, 0);
        QVERIFY(config.rounded(places) == wanted);
    }

    void pressedLabel_data()
    {
        QTest::addColumn<ThemeConfig>("config");
        QTest::addColumn<double>("expected");

        // Luma is brightness * (1 - saturation / 2).
        QTest::newRow("Spacegray darkens its light label") << labelOnFill(0.871, 0, 0.95, 0.68) << 0.271;
        QTest::newRow("Light Indigo lightens its dark label") << labelOnFill(0.12, 0, 0.331, 0.105) << 0.92;
        QTest::newRow("label luma 0.4 is not light") << labelOnFill(0.8, 1, 0.9, 0) << 0.95;
        QTest::newRow("fill luma 0.55 is not light") << labelOnFill(0.7, 0, 0.55, 0) << 0.85;
        QTest::newRow("label luma 0.5 is not dark") << labelOnFill(0.5, 0, 0.2, 0) << 0.65;
        QTest::newRow("lightening stops at 1") << labelOnFill(0.3, 0, 0.2, 0) << 1.0;
    }

    void pressedLabel()
    {
        QFETCH(ThemeConfig, config);
        QTEST(ThemeStyle(config).pressedTextColor.brightness, "expected");
    }

    void derivedStyle()
    {
        ThemeConfig config = ::builtInThemes()[0].config;
        config.textOpacity = 0.25;
        const ThemeStyle style(config);
        QVERIFY(style.keyBorder == (HsbColor { 0, 0, 0.093 + 0.08, 1 }));
        QVERIFY(style.keyPressedBorder == (HsbColor { 0.1, 0.68, 1, 1 }));
        QVERIFY(style.textColor == (HsbColor { 0, 0, 0.871, 0.25 }));

        // Lengths are at unit size 60: halving the unit halves each of them, and nothing else changes.
        ThemeConfig lengths = distinctConfig(1, 1);
        const ThemeStyle half = ThemeStyle(lengths).scaled(30);
        for (double* length :
            { &lengths.chassisCornerRadius, &lengths.cornerKeyRadius, &lengths.keySpacing, &lengths.keycapCornerRadius,
                &lengths.keycapBorderWidth, &lengths.dropShadow.radius, &lengths.dropShadow.x, &lengths.dropShadow.y,
                &lengths.innerShadow.radius, &lengths.innerShadow.x, &lengths.innerShadow.y })
            *length /= 2;
        QVERIFY(half == ThemeStyle(lengths));
    }

    void colourConversion()
    {
        // Hues wrap, one that rounds to a full turn is red (QColor's equality takes 360 degrees for 0), the other
        // parts are clamped, and unknown parts count as 0.
        QCOMPARE(HsbColor({ -0.25, 1.5, 1, 2 }).toQColor(), QColor::fromHsvF(0.75f, 1, 1, 1));
        QCOMPARE(HsbColor({ -1e-20, 1, 1, 1 }).toQColor().hsvHue(), 0);
        QCOMPARE(HsbColor({ notANumber, infinity, -infinity, notANumber }).toQColor(), QColor::fromHsvF(0, 0, 0, 0));
    }

    void roundTrips_data()
    {
        QTest::addColumn<NamedTheme>("theme");

        QTest::newRow("every field its own value")
            << NamedTheme { QUuid::createUuid(), u"A"_s, distinctConfig(0, 0.01) };
        ThemeConfig awkward = distinctConfig(1.0 / 3.0, 1.0 / 7.0);
        awkward.keySpacing = 123456789.123456789;
        awkward.dropShadow.opacity = 0.9999999999999999;
        awkward.innerShadow.y = 4503599627370497.0;
        awkward.keycapHue = -maxDouble; // rounding must not make it infinite, which JSON writes as null
        QTest::newRow("numbers needing every bit, any text")
            << NamedTheme { QUuid::createUuid(), u"Grün ☕ \"quoted\""_s, awkward };
    }

    void roundTrips()
    {
        QFETCH(NamedTheme, theme);
        // The settings forms keep full precision; a document keeps three decimals.
        QCOMPARE(ThemeJson::decodeNamedTheme(ThemeJson::encodeNamedTheme(theme)), theme);
        QCOMPARE(ThemeJson::decodeConfig(ThemeJson::encodeConfig(theme.config)), theme.config);
        const QByteArray document = ThemeJson::encodeDocument({ theme, theme });
        const NamedTheme rounded { theme.id, theme.name, theme.config.rounded(3) };
        QCOMPARE(ThemeJson::decodeDocument(document), (QList<NamedTheme> { rounded, rounded }));
    }

    void partialConfigs_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<std::optional<ThemeConfig>>("expected");

        ThemeConfig partialShadow = ThemeConfig::fallback();
        partialShadow.dropShadow = { .enabled = true, .radius = 3 };
        QTest::newRow("nulls absent, unknown keys ignored, partial shadow takes 0")
            << R"({"keySpacing":null,"dropShadow":{"radius":3,"enabled":null},"futureKey":[1,{"x":"y"}]})"_ba
            << std::optional(partialShadow);
        QTest::newRow("string for a number") << R"({"chassisHue":"0.5"})"_ba << std::optional<ThemeConfig>();
    }

    void partialConfigs()
    {
        QFETCH(QByteArray, json);
        QTEST(ThemeJson::decodeConfig(json), "expected");
    }

    void badDocuments_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<bool>("readable");

        const QByteArray id = "0f8fad5b-d9cb-469f-a165-70867728950e";
        QTest::newRow("id, name and config") << themeWithId(id) << true;
        QTest::newRow("empty list") << "[]"_ba << true;
        QTest::newRow("no id") << R"([{"name":"A","config":{}}])"_ba << false;
        QTest::newRow("id with a hyphen moved") << themeWithId("0f8fad5bd-9cb-469f-a165-70867728950e") << false;
        QTest::newRow("number overflows") << themeWithId(id, R"("name":"A","config":{"keySpacing":1e999})") << false;
    }

    void badDocuments()
    {
        QFETCH(QByteArray, json);
        QFETCH(bool, readable);
        QCOMPARE(ThemeJson::decodeDocument(json).has_value(), readable);
        if (!readable) { // nor in any other form
            QCOMPARE(ThemeJson::decodeNamedTheme(json), std::nullopt);
            QCOMPARE(ThemeJson::decodeConfig(json), std::nullopt);
        }
    }
};

QTEST_GUILESS_MAIN(TestTheme)
#include "testtheme.moc"
