// SPDX-License-Identifier: GPL-3.0-or-later
// Theme values: the built-in list, rounding, the derived drawing style, colour conversion and the theme JSON.
#include "theme/themejson.h"
#include "theme/themestyle.h"

#include <QJsonDocument>
#include <QRegularExpression>
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
        const QList<NamedTheme>& themes = ::builtInThemes();
        QSet<QString> names;
        QSet<QUuid> ids;
        QSet<ThemeConfig> configs;
        for (const NamedTheme& theme : themes) {
            names.insert(theme.name);
            ids.insert(theme.id);
            configs.insert(theme.config);
            QVERIFY2(theme.config.rounded(3) == theme.config, qPrintable(theme.name));
        }
        QCOMPARE(names.size(), 14);
        QCOMPARE(ids.size(), 14);
        QCOMPARE(configs.size(), 14);
        QCOMPARE(defaultThemeName(), u"Spacegray"_s);
        QVERIFY(defaultThemeConfig() == themes.constFirst().config);
        // Stored themes read missing keys from a table of their own.
        QVERIFY(!(ThemeConfig::fallback() == defaultThemeConfig()));
        QCOMPARE(ThemeJson::decodeConfig("{}"), std::optional(ThemeConfig::fallback()));
        QCOMPARE(ThemeConfig::fallback().keySpacing, 7.0);
    }

    void rounding_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<int>("places");
        QTest::addColumn<double>("expected");

        QTest::newRow("halfway rounds up") << 0.0005 << 3 << 0.001;
        QTest::newRow("negative halfway rounds away from zero") << -0.0005 << 3 << -0.001;
        QTest::newRow("small negative is a zero that hashes like 0") << -0.0004 << 3 << 0.0;
        // Scaling these up and down again would overflow (written to JSON as null) or cost their last bits.
        QTest::newRow("scaling would overflow") << 1e306 << 3 << 1e306;
        QTest::newRow("most negative double") << -maxDouble << 3 << -maxDouble;
        QTest::newRow("large with bits below the third decimal") << 123456789012345.67 << 3 << 123456789012345.67;
    }

    void rounding()
    {
        QFETCH(double, value);
        QFETCH(int, places);
        QFETCH(double, expected);
        QCOMPARE(::roundedToPlaces(value, places), expected);
        // Every field of a config, and the hash follows the value.
        const ThemeConfig config = distinctConfig(value, 0);
        const ThemeConfig wanted = distinctConfig(expected, 0);
        QVERIFY(config.rounded(places) == wanted);
        QCOMPARE(qHash(config.rounded(places), 42), qHash(wanted, 42));
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
        QVERIFY(style.chassisBackground == (HsbColor { 0.687, 0.05, 1, 0.448 }));
        QVERIFY(style.keyBackground == (HsbColor { 0, 0, 0.093, 1 }));
        QVERIFY(style.keyPressedBackground == (HsbColor { 0.1, 0.68, 0.95, 1 }));
        QVERIFY(style.keyBorder == (HsbColor { 0, 0, 0.093 + 0.08, 1 }));
        QVERIFY(style.keyPressedBorder == (HsbColor { 0.1, 0.68, 1, 1 }));
        QVERIFY(style.textColor == (HsbColor { 0, 0, 0.871, 0.25 }));
        config.pressedBrightness = 0.5;
        QCOMPARE(ThemeStyle(config).keyPressedBorder.brightness, 0.6);

        // The inner shadow is drawn only when enabled with a positive radius.
        config.innerShadow = { .enabled = true, .radius = 9 };
        QVERIFY(ThemeStyle(config).innerShadow);
        for (const ShadowConfig& off :
            { ShadowConfig { .enabled = false, .radius = 9 }, ShadowConfig { .radius = -1 } }) {
            config.innerShadow = off;
            QVERIFY(!ThemeStyle(config).innerShadow);
        }

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

    void colourConversion_data()
    {
        QTest::addColumn<HsbColor>("colour");
        QTest::addColumn<QColor>("expected");

        QTest::newRow("negative hue wraps") << HsbColor { -0.25, 0.5, 1, 2 } << QColor::fromHsvF(0.75f, 0.5f, 1, 1);
        QTest::newRow("tiny negative hue is red, not 360°")
            << HsbColor { -1e-20, 1, 1, 1 } << QColor::fromHsvF(0, 1, 1, 1);
        QTest::newRow("clamped") << HsbColor { 0.5, 1.5, -1, 0.25 } << QColor::fromHsvF(0.5f, 1, 0, 0.25f);
        QTest::newRow("non-finite parts count as 0")
            << HsbColor { notANumber, infinity, -infinity, notANumber } << QColor::fromHsvF(0, 0, 0, 0);
    }

    void colourConversion()
    {
        QFETCH(HsbColor, colour);
        QTest::failOnWarning(QRegularExpression(u".*"_s));
        QTEST(colour.toQColor(), "expected");
        // QColor's equality takes 360 degrees for 0.
        QVERIFY(colour.toQColor().hsvHue() < 360);
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
        QTest::newRow("numbers needing every bit, any text")
            << NamedTheme { QUuid::createUuid(), u"Grün ☕ \"quoted\""_s, awkward };
        // Rounding must not make these infinite, which JSON writes as null (read back as the fallback).
        ThemeConfig huge = ThemeConfig::fallback();
        huge.keycapHue = 1e306;
        huge.innerShadow.x = -maxDouble;
        QTest::newRow("huge numbers") << NamedTheme { QUuid::createUuid(), u"B"_s, huge };
        QTest::newRow("a built-in theme") << ::builtInThemes()[4];
    }

    void roundTrips()
    {
        QFETCH(NamedTheme, theme);
        // The settings forms keep full precision; a document keeps three decimals, and a bare theme is no document.
        QCOMPARE(ThemeJson::decodeNamedTheme(ThemeJson::encodeNamedTheme(theme)), theme);
        QCOMPARE(ThemeJson::decodeConfig(ThemeJson::encodeConfig(theme.config)), theme.config);
        const QByteArray document = ThemeJson::encodeDocument({ theme, theme });
        const NamedTheme rounded { theme.id, theme.name, theme.config.rounded(3) };
        QCOMPARE(ThemeJson::decodeDocument(document), (QList<NamedTheme> { rounded, rounded }));
        QCOMPARE(ThemeJson::decodeDocument(QJsonDocument(ThemeJson::toJson(theme)).toJson()), std::nullopt);

        // Qt writes parsed JSON back with every object's keys sorted; ours must already match.
        const QByteArray compact = ThemeJson::encodeNamedTheme(theme);
        QCOMPARE(QJsonDocument::fromJson(compact).toJson(QJsonDocument::Compact), compact);
        QCOMPARE(QJsonDocument::fromJson(document).toJson(QJsonDocument::Indented), document);
    }

    void partialConfigs_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<std::optional<ThemeConfig>>("expected");

        ThemeConfig emptyShadow = ThemeConfig::fallback();
        emptyShadow.dropShadow = ShadowConfig();
        ThemeConfig partialShadow = ThemeConfig::fallback();
        partialShadow.dropShadow = { .enabled = true, .radius = 3 };
        const std::optional<ThemeConfig> unreadable;

        QTest::newRow("nulls absent, unknown keys ignored")
            << R"({"keySpacing":null,"dropShadow":null,"futureKey":[1,{"x":"y"}]})"_ba
            << std::optional(ThemeConfig::fallback());
        QTest::newRow("present empty shadow: enabled, all 0")
            << R"({"dropShadow":{}})"_ba << std::optional(emptyShadow);
        QTest::newRow("partial shadow takes 0, not the fallback")
            << R"({"dropShadow":{"radius":3,"enabled":null}})"_ba << std::optional(partialShadow);
        QTest::newRow("string for a number") << R"({"chassisHue":"0.5"})"_ba << unreadable;
        QTest::newRow("number for enabled") << R"({"dropShadow":{"enabled":1}})"_ba << unreadable;
        QTest::newRow("number for a shadow") << R"({"dropShadow":0})"_ba << unreadable;
        QTest::newRow("array for the config") << "[{}]"_ba << unreadable;
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
        const QByteArray document = ThemeJson::encodeDocument(::builtInThemes());
        QTest::newRow("id, name and config") << themeWithId(id) << true;
        QTest::newRow("empty list") << "[]"_ba << true;
        QTest::newRow("no id") << R"([{"name":"A","config":{}}])"_ba << false;
        QTest::newRow("braced id") << themeWithId('{' + id + '}') << false;
        QTest::newRow("id a digit short") << themeWithId(id.chopped(1)) << false;
        QTest::newRow("id with a hyphen moved") << themeWithId("0f8fad5bd-9cb-469f-a165-70867728950e") << false;
        QTest::newRow("id with a letter past f") << themeWithId(id.chopped(1) + 'g') << false;
        QTest::newRow("id with a full-width digit") << themeWithId(id.chopped(1) + "\xef\xbc\x90") << false;
        QTest::newRow("null config") << themeWithId(id, R"("name":"A","config":null)") << false;
        QTest::newRow("empty input") << QByteArray() << false;
        QTest::newRow("trailing garbage") << document + "x" << false;
        QTest::newRow("deeply nested arrays") << QByteArray(200000, '[') << false;
        QTest::newRow("number overflows") << themeWithId(id, R"("name":"A","config":{"keySpacing":1e999})") << false;
        QTest::newRow("invalid UTF-8") << themeWithId(id, "\"name\":\"\xff\xfe\xc3\",\"config\":{}") << false;
        QTest::newRow("bare null") << "null"_ba << false;
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
