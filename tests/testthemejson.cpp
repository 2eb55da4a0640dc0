// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/themejson.h"

#include <QJsonDocument>
#include <QTest>

#include <limits>

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
    void encoding();
    void readsConfig_data();
    void readsConfig();
    void documents_data();
    void documents();
};

void TestThemeJson::encoding()
{
    // The settings form keeps full precision, and any text.
    const NamedTheme awkward { QUuid::createUuid(), u"Grün ☕ \"quoted\""_s, awkwardConfig() };
    QVERIFY(ThemeJson::decodeNamedTheme(ThemeJson::encodeNamedTheme(awkward)) == awkward);
    QVERIFY(ThemeJson::decodeConfig(ThemeJson::encodeConfig(awkward.config)) == awkward.config);

    const QJsonObject config = ThemeJson::toJson(ThemeConfig::fallback());
    QCOMPARE(config.size(), 22);
    QCOMPARE(config.value("dropShadow"_L1).toObject().size(), 8);
    // Qt writes parsed JSON back compact or indented with every object's keys sorted; ours must already match.
    const QByteArray compact = ThemeJson::encodeNamedTheme(builtInThemes()[4]);
    QCOMPARE(QJsonDocument::fromJson(compact).toJson(QJsonDocument::Compact), compact);
    const QByteArray document = ThemeJson::encodeDocument(builtInThemes());
    QCOMPARE(QJsonDocument::fromJson(document).toJson(QJsonDocument::Indented), document);
    QCOMPARE(ThemeJson::decodeDocument(document), builtInThemes());
    QCOMPARE(ThemeJson::decodeDocument("[]"), QList<NamedTheme>());

    // A document rounds to three decimals, and a bare theme object is a named theme but not a document.
    const std::optional<QList<NamedTheme>> decoded = ThemeJson::decodeDocument(ThemeJson::encodeDocument({ awkward }));
    QVERIFY(decoded && decoded->size() == 1);
    QVERIFY(decoded->constFirst().config == awkwardConfig().rounded(3));
    QCOMPARE(decoded->constFirst().config.chassisHue, 0.333);
    const QByteArray bare = QJsonDocument(ThemeJson::toJson(awkward)).toJson();
    QVERIFY(ThemeJson::decodeNamedTheme(bare));
    QCOMPARE(ThemeJson::decodeDocument(bare), std::nullopt);

    // Any finite number a stored theme may hold survives export and import: rounding must not make it infinite,
    // which JSON can only write as null (read back as the fallback value).
    NamedTheme huge = awkward;
    huge.config.keycapHue = 1e306;
    huge.config.innerShadow.x = -std::numeric_limits<double>::max();
    const std::optional<QList<NamedTheme>> hugeDecoded = ThemeJson::decodeDocument(ThemeJson::encodeDocument({ huge }));
    QVERIFY(hugeDecoded && hugeDecoded->size() == 1);
    QCOMPARE(hugeDecoded->constFirst().config.keycapHue, 1e306);
    QCOMPARE(hugeDecoded->constFirst().config.innerShadow.x, -std::numeric_limits<double>::max());
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

void TestThemeJson::documents_data()
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
    QTest::newRow("a null config") << oneTheme(R"("id":ID,"name":"A","config":null)") << false;

    const QByteArray document = ThemeJson::encodeDocument(builtInThemes());
    QTest::newRow("empty input") << QByteArray() << false;
    QTest::newRow("a document cut short") << document.left(document.lastIndexOf(']')) << false;
    QTest::newRow("trailing garbage") << document + "x" << false;
    QTest::newRow("deeply nested arrays") << QByteArray(200000, '[') << false;
    QTest::newRow("a number that overflows")
        << oneTheme(R"("id":ID,"name":"A","config":{"keySpacing":1e999})") << false;
    QTest::newRow("invalid UTF-8 in a name") << oneTheme("\"id\":ID,\"name\":\"\xff\xfe\xc3\",\"config\":{}") << false;
    QTest::newRow("a bare null") << QByteArray("null") << false;
}

void TestThemeJson::documents()
{
    QFETCH(QByteArray, json);
    QFETCH(bool, readable);
    QCOMPARE(ThemeJson::decodeDocument(json).has_value(), readable);
    // None of these is readable in any other form either.
    if (!readable) {
        QCOMPARE(ThemeJson::decodeNamedTheme(json), std::nullopt);
        QCOMPARE(ThemeJson::decodeConfig(json), std::nullopt);
    }
}

QTEST_GUILESS_MAIN(TestThemeJson)
#include "testthemejson.moc"
