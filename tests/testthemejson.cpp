// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/themejson.h"

#include <QJsonDocument>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// Numbers that need every bit of a double to survive a trip through text.
ThemeConfig awkwardConfig()
{
    ThemeConfig config = ThemeConfig::fallback();
    config.chassisHue = 1.0 / 3.0;
    config.keySpacing = 123456789.123456789;
    config.dropShadow = { false, 2.0 / 3.0, 0.0005, 0.9999999999999999, 0, 0, -7.25, 1e-7 };
    config.innerShadow.y = 4503599627370497.0;
    return config;
}

// A one-theme document; ID stands for a valid quoted id.
QByteArray oneTheme(const QByteArray& members)
{
    QByteArray json = "[{" + members + "}]";
    return json.replace("ID", "\"0f8fad5b-d9cb-469f-a165-70867728950e\"");
}

QByteArray themeWithId(const char* id)
{
    return oneTheme(R"("id":")" + QByteArray(id) + R"(","name":"A","config":{})");
}

} // namespace

class TestThemeJson final : public QObject
{
    Q_OBJECT

private slots:
    void roundTrips();
    void writesEveryKeySorted();
    void readsConfig_data();
    void readsConfig();
    void namedTheme_data();
    void namedTheme();
    void document();
    void hostileInput_data();
    void hostileInput();
};

void TestThemeJson::roundTrips()
{
    for (const NamedTheme& theme : builtInThemes()) {
        QCOMPARE(ThemeJson::decodeConfig(ThemeJson::encodeConfig(theme.config)), theme.config);
        QCOMPARE(ThemeJson::decodeNamedTheme(ThemeJson::encodeNamedTheme(theme)), theme);
    }
    QCOMPARE(ThemeJson::decodeDocument(ThemeJson::encodeDocument(builtInThemes())), builtInThemes());
    QCOMPARE(ThemeJson::decodeDocument("[]"), QList<NamedTheme>());

    // The settings form keeps full precision.
    const NamedTheme awkward { QUuid::createUuid(), u"Grün ☕ \"quoted\""_s, awkwardConfig() };
    QVERIFY(ThemeJson::decodeNamedTheme(ThemeJson::encodeNamedTheme(awkward)) == awkward);
    QVERIFY(ThemeJson::decodeConfig(ThemeJson::encodeConfig(awkward.config)) == awkward.config);
}

void TestThemeJson::writesEveryKeySorted()
{
    const QJsonObject config = ThemeJson::toJson(ThemeConfig::fallback());
    QCOMPARE(config.size(), 22);
    QCOMPARE(config.value("dropShadow"_L1).toObject().size(), 8);

    // Qt writes parsed JSON back compact or indented with every object's keys sorted; ours must already match.
    const QByteArray compact = ThemeJson::encodeNamedTheme(builtInThemes()[4]);
    QCOMPARE(QJsonDocument::fromJson(compact).toJson(QJsonDocument::Compact), compact);
    const QByteArray document = ThemeJson::encodeDocument(builtInThemes());
    QCOMPARE(QJsonDocument::fromJson(document).toJson(QJsonDocument::Indented), document);
}

void TestThemeJson::readsConfig_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<std::optional<ThemeConfig>>("expected");

    const ThemeConfig fallback = ThemeConfig::fallback();
    ThemeConfig emptyShadow = fallback;
    emptyShadow.dropShadow = ShadowConfig();
    ThemeConfig partialShadow = fallback;
    partialShadow.dropShadow = { .enabled = true, .radius = 3 };
    const std::optional<ThemeConfig> unreadable;

    QTest::newRow("an empty object reads as the fallback") << QByteArray("{}") << std::optional(fallback);
    QTest::newRow("nulls are absent and unknown keys ignored")
        << QByteArray(R"({"keySpacing":null,"dropShadow":null,"futureKey":[1,{"x":"y"}]})") << std::optional(fallback);
    QTest::newRow("a present empty shadow is enabled and all 0")
        << QByteArray(R"({"dropShadow":{}})") << std::optional(emptyShadow);
    QTest::newRow("a partial shadow takes 0, not the fallback")
        << QByteArray(R"({"dropShadow":{"radius":3,"enabled":null}})") << std::optional(partialShadow);
    QTest::newRow("a string where a number belongs") << QByteArray(R"({"chassisHue":"0.5"})") << unreadable;
    QTest::newRow("a number for enabled") << QByteArray(R"({"dropShadow":{"enabled":1}})") << unreadable;
    QTest::newRow("a string inside a shadow") << QByteArray(R"({"innerShadow":{"radius":"4"}})") << unreadable;
    QTest::newRow("a number for a shadow") << QByteArray(R"({"dropShadow":0})") << unreadable;
    QTest::newRow("an array for the config") << QByteArray("[{}]") << unreadable;
}

void TestThemeJson::readsConfig()
{
    QFETCH(QByteArray, json);
    QFETCH(std::optional<ThemeConfig>, expected);
    QCOMPARE(ThemeJson::decodeConfig(json), expected);
}

void TestThemeJson::namedTheme_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("readable");

    QTest::newRow("id, name and config") << oneTheme(R"("id":ID,"name":"A","config":{})") << true;
    QTest::newRow("a mixed-case id") << themeWithId("0F8fAD5b-D9CB-469f-A165-70867728950E") << true;
    QTest::newRow("no id") << oneTheme(R"("name":"A","config":{})") << false;
    QTest::newRow("a braced id") << themeWithId("{0f8fad5b-d9cb-469f-a165-70867728950e}") << false;
    QTest::newRow("an id a digit short") << themeWithId("0f8fad5b-d9cb-469f-a165-70867728950") << false;
    QTest::newRow("an id with a hyphen moved") << themeWithId("0f8fad5bd-9cb-469f-a165-70867728950e") << false;
    QTest::newRow("an id with a letter past f") << themeWithId("0f8fad5b-d9cb-469f-a165-70867728950g") << false;
    QTest::newRow("an id with a full-width digit")
        << themeWithId("0f8fad5b-d9cb-469f-a165-70867728950\xef\xbc\x90") << false;
    QTest::newRow("a numeric name") << oneTheme(R"("id":ID,"name":1,"config":{})") << false;
    QTest::newRow("no config") << oneTheme(R"("id":ID,"name":"A")") << false;
    QTest::newRow("a null config") << oneTheme(R"("id":ID,"name":"A","config":null)") << false;
}

void TestThemeJson::namedTheme()
{
    QFETCH(QByteArray, json);
    QFETCH(bool, readable);
    QCOMPARE(ThemeJson::decodeDocument(json).has_value(), readable);
}

void TestThemeJson::document()
{
    const QList<NamedTheme> themes { { QUuid::createUuid(), u"Grün"_s, awkwardConfig() }, builtInThemes()[0] };
    const QList<NamedTheme> before = themes;
    const QByteArray text = ThemeJson::encodeDocument(themes);
    QVERIFY(themes == before);
    QVERIFY(text.count('\n') > 30);
    QVERIFY(text.contains("Gr\xc3\xbcn"));

    const std::optional<QList<NamedTheme>> decoded = ThemeJson::decodeDocument(text);
    QVERIFY(decoded);
    QCOMPARE(decoded->size(), 2);
    QVERIFY(decoded->constFirst().config == awkwardConfig().rounded(3));
    QCOMPARE(decoded->constFirst().config.chassisHue, 0.333);

    // A bare theme object is a named theme but not a document.
    const QByteArray bare = QJsonDocument(ThemeJson::toJson(themes.constFirst())).toJson();
    QVERIFY(ThemeJson::decodeNamedTheme(bare));
    QCOMPARE(ThemeJson::decodeDocument(bare), std::nullopt);
}

void TestThemeJson::hostileInput_data()
{
    QTest::addColumn<QByteArray>("json");

    const QByteArray document = ThemeJson::encodeDocument(builtInThemes());
    QTest::newRow("empty input") << QByteArray();
    QTest::newRow("a document cut short") << document.left(document.lastIndexOf(']'));
    QTest::newRow("trailing garbage") << document + "x";
    QTest::newRow("deeply nested arrays") << QByteArray(200000, '[');
    QTest::newRow("a number that overflows") << oneTheme(R"("id":ID,"name":"A","config":{"keySpacing":1e999})");
    QTest::newRow("invalid UTF-8 in a name") << oneTheme("\"id\":ID,\"name\":\"\xff\xfe\xc3\",\"config\":{}");
    QTest::newRow("a bare null") << QByteArray("null");
}

void TestThemeJson::hostileInput()
{
    QFETCH(QByteArray, json);
    QCOMPARE(ThemeJson::decodeDocument(json), std::nullopt);
    QCOMPARE(ThemeJson::decodeNamedTheme(json), std::nullopt);
    QCOMPARE(ThemeJson::decodeConfig(json), std::nullopt);
}

QTEST_GUILESS_MAIN(TestThemeJson)
#include "testthemejson.moc"
