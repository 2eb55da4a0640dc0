// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/themejson.h"

#include <QJsonDocument>
#include <QRegularExpression>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// Checks in the raw text that every object lists its keys in sorted order; parsing would hide the order.
bool keysSortedInText(const QByteArray& json)
{
    QList<QList<QByteArray>> open;
    static const QRegularExpression key(u"\\G\"([^\"\\\\]*)\"\\s*:"_s);
    const QString text = QString::fromUtf8(json);
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == u'{') {
            open.append(QList<QByteArray>());
        } else if (c == u'}') {
            if (open.isEmpty() || !std::is_sorted(open.constLast().cbegin(), open.constLast().cend())) {
                return false;
            }
            open.removeLast();
        } else if (c == u'"') {
            const QRegularExpressionMatch match = key.match(text, i);
            if (match.hasMatch() && !open.isEmpty()) {
                open.last().append(match.captured(1).toUtf8());
            }
            // Skip the rest of the string, so braces inside names do not count.
            for (++i; i < text.size() && text[i] != u'"'; ++i) {
                i += text[i] == u'\\' ? 1 : 0;
            }
        }
    }
    return open.isEmpty();
}

// A config whose numbers need every bit of a double to survive a trip through text.
ThemeConfig awkwardConfig()
{
    ThemeConfig config = ThemeConfig::fallback();
    config.chassisHue = 1.0 / 3.0;
    config.chassisSaturation = 0.1 + 0.2;
    config.chassisBlur = 1e-300;
    config.keySpacing = 123456789.123456789;
    config.keycapHue = -0.5;
    config.dropShadow = { false, 2.0 / 3.0, 0.0005, 0.9999999999999999, 0, 0, -7.25, 1e-7 };
    return config;
}

QByteArray configWith(const char* members)
{
    return "{" + QByteArray(members) + "}";
}

QByteArray namedThemeWith(const QByteArray& members)
{
    return "[{" + members + "}]";
}

// A one-theme document whose theme has a valid id followed by `members`.
QByteArray withValidId(const char* members)
{
    return namedThemeWith(R"("id":"0f8fad5b-d9cb-469f-a165-70867728950e",)" + QByteArray(members));
}

} // namespace

class TestThemeJson final : public QObject
{
    Q_OBJECT

private slots:
    void roundTrips();
    void writesEveryKeySorted();
    void emptyObjectReadsAsFallback();
    void shadowPresence();
    void wrongTypesAreUnreadable_data();
    void wrongTypesAreUnreadable();
    void namedThemeRequirements_data();
    void namedThemeRequirements();
    void uuidText_data();
    void uuidText();
    void documentShape();
    void documentRounding();
    void hostileInput_data();
    void hostileInput();
};

void TestThemeJson::roundTrips()
{
    for (const NamedTheme& theme : builtInThemes()) {
        QCOMPARE(ThemeJson::decodeConfig(ThemeJson::encodeConfig(theme.config)), theme.config);
        QCOMPARE(ThemeJson::decodeNamedTheme(ThemeJson::encodeNamedTheme(theme)), theme);
    }

    // The settings form is compact and keeps full precision.
    ThemeConfig awkward = awkwardConfig();
    awkward.pressedBrightness = 1e300;
    awkward.innerShadow.y = 4503599627370497.0;
    const QByteArray compact = ThemeJson::encodeConfig(awkward);
    QVERIFY(!compact.contains('\n'));
    QVERIFY(ThemeJson::decodeConfig(compact) == awkward);

    const NamedTheme named { QUuid::createUuid(), u"Grün ☕ \"quoted\""_s, awkward };
    QVERIFY(ThemeJson::decodeNamedTheme(ThemeJson::encodeNamedTheme(named)) == named);

    const QList<NamedTheme>& builtIns = builtInThemes();
    QCOMPARE(ThemeJson::decodeDocument(ThemeJson::encodeDocument(builtIns)), builtIns);
    QCOMPARE(ThemeJson::decodeDocument("[]"), QList<NamedTheme>());
}

void TestThemeJson::writesEveryKeySorted()
{
    // Values equal to the fallback are still written.
    const QJsonObject config = ThemeJson::toJson(ThemeConfig::fallback());
    QCOMPARE(config.size(), 22);
    QCOMPARE(config.value("dropShadow"_L1).toObject().size(), 8);
    QCOMPARE(config.value("innerShadow"_L1).toObject().size(), 8);
    QVERIFY(config.value("innerShadow"_L1).toObject().value("enabled"_L1).isBool());

    const NamedTheme theme = builtInThemes()[4];
    const QJsonObject named = ThemeJson::toJson(theme);
    QCOMPARE(named.keys(), QStringList({ u"config"_s, u"id"_s, u"name"_s }));
    QCOMPARE(named.value("id"_L1).toString(), theme.id.toString(QUuid::WithoutBraces));

    QVERIFY(keysSortedInText(ThemeJson::encodeNamedTheme(theme)));
    QVERIFY(keysSortedInText(ThemeJson::encodeDocument(builtInThemes())));
    QVERIFY(!keysSortedInText(R"({"b":1,"a":2})"));
}

void TestThemeJson::emptyObjectReadsAsFallback()
{
    const std::optional<ThemeConfig> config = ThemeJson::decodeConfig("{}");
    QVERIFY(config);
    QVERIFY(*config == ThemeConfig::fallback());
    QCOMPARE(config->chassisBrightness, 0.556);
    QCOMPARE(config->cornerKeyRadius, 12.0);
    QCOMPARE(config->pressedHue, 0.02);
    QCOMPARE(config->dropShadow.radius, 4.689);

    // Nulls count as absent and unknown keys are ignored.
    const std::optional<ThemeConfig> nulls
        = ThemeJson::decodeConfig(configWith(R"("keySpacing":null,"dropShadow":null,"futureKey":[1,{"x":"y"}])"));
    QVERIFY(nulls && *nulls == ThemeConfig::fallback());

    // An integer literal is as good as a decimal one.
    const std::optional<ThemeConfig> integral = ThemeJson::decodeConfig(configWith(R"("keySpacing":9,"textHue":-0)"));
    QVERIFY(integral);
    QCOMPARE(integral->keySpacing, 9.0);
}

void TestThemeJson::shadowPresence()
{
    // A present shadow starts from enabled-and-zero, not from the fallback shadow.
    const std::optional<ThemeConfig> empty = ThemeJson::decodeConfig(configWith(R"("dropShadow":{})"));
    QVERIFY(empty);
    QVERIFY(empty->dropShadow == ShadowConfig());
    QVERIFY(empty->dropShadow.enabled);
    QCOMPARE(empty->dropShadow.radius, 0.0);

    const std::optional<ThemeConfig> partial
        = ThemeJson::decodeConfig(configWith(R"("innerShadow":{"radius":3,"enabled":null})"));
    QVERIFY(partial);
    QVERIFY(partial->innerShadow == (ShadowConfig { true, 3, 0, 0, 0, 0, 0, 0 }));
    QVERIFY(partial->dropShadow == ThemeConfig::fallback().dropShadow);

    ThemeConfig disabled = ThemeConfig::fallback();
    disabled.dropShadow.enabled = false;
    disabled.innerShadow.enabled = false;
    QVERIFY(ThemeJson::decodeConfig(ThemeJson::encodeConfig(disabled)) == disabled);
    const std::optional<QList<NamedTheme>> document
        = ThemeJson::decodeDocument(ThemeJson::encodeDocument({ { QUuid::createUuid(), u"Off"_s, disabled } }));
    QVERIFY(document && !document->constFirst().config.dropShadow.enabled);
}

void TestThemeJson::wrongTypesAreUnreadable_data()
{
    QTest::addColumn<QByteArray>("json");

    QTest::newRow("a string where a number belongs") << configWith(R"("chassisHue":"0.5")");
    QTest::newRow("a boolean where a number belongs") << configWith(R"("keySpacing":true)");
    QTest::newRow("an object where a number belongs") << configWith(R"("textOpacity":{})");
    QTest::newRow("a number for enabled") << configWith(R"("dropShadow":{"enabled":1})");
    QTest::newRow("a string for enabled") << configWith(R"("innerShadow":{"enabled":"false"})");
    QTest::newRow("a string inside a shadow") << configWith(R"("dropShadow":{"radius":"4"})");
    QTest::newRow("an array for a shadow") << configWith(R"("innerShadow":[])");
    QTest::newRow("a number for a shadow") << configWith(R"("dropShadow":0)");
    QTest::newRow("an array for the config") << QByteArray("[{}]");
}

void TestThemeJson::wrongTypesAreUnreadable()
{
    QFETCH(QByteArray, json);
    QCOMPARE(ThemeJson::decodeConfig(json), std::nullopt);
}

void TestThemeJson::namedThemeRequirements_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("readable");

    QTest::newRow("all three keys") << withValidId(R"("name":"A","config":{})") << true;
    QTest::newRow("an upper-case id") << namedThemeWith(R"("id":"0F8FAD5B-D9CB-469F-A165-70867728950E",)"
                                                        R"("name":"A","config":{})")
                                      << true;
    QTest::newRow("no id") << namedThemeWith(R"("name":"A","config":{})") << false;
    QTest::newRow("a null id") << namedThemeWith(R"("id":null,"name":"A","config":{})") << false;
    QTest::newRow("a numeric id") << namedThemeWith(R"("id":12,"name":"A","config":{})") << false;
    QTest::newRow("no name") << withValidId(R"("config":{})") << false;
    QTest::newRow("a numeric name") << withValidId(R"("name":1,"config":{})") << false;
    QTest::newRow("no config") << withValidId(R"("name":"A")") << false;
    QTest::newRow("a null config") << withValidId(R"("name":"A","config":null)") << false;
    QTest::newRow("a config that is a string") << withValidId(R"("name":"A","config":"{}")") << false;
    QTest::newRow("a bad value deep in the config")
        << withValidId(R"("name":"A","config":{"innerShadow":{"y":[]}})") << false;
}

void TestThemeJson::namedThemeRequirements()
{
    QFETCH(QByteArray, json);
    QFETCH(bool, readable);

    const std::optional<QList<NamedTheme>> document = ThemeJson::decodeDocument(json);
    QCOMPARE(document.has_value(), readable);
    if (readable) {
        QCOMPARE(document->size(), 1);
        QCOMPARE(document->constFirst().id, QUuid(u"0f8fad5b-d9cb-469f-a165-70867728950e"_s));
        QVERIFY(document->constFirst().config == ThemeConfig::fallback());
        // Ids are written back in lower case without braces, whatever the input used.
        QVERIFY(ThemeJson::encodeDocument(*document).contains("\"0f8fad5b-d9cb-469f-a165-70867728950e\""));
    }
}

void TestThemeJson::uuidText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("valid");

    QTest::newRow("lower case") << u"0f8fad5b-d9cb-469f-a165-70867728950e"_s << true;
    QTest::newRow("mixed case") << u"0F8fAD5b-d9cb-469f-A165-70867728950e"_s << true;
    QTest::newRow("the nil uuid") << u"00000000-0000-0000-0000-000000000000"_s << true;
    QTest::newRow("braces") << u"{0f8fad5b-d9cb-469f-a165-70867728950e}"_s << false;
    QTest::newRow("one digit short") << u"0f8fad5b-d9cb-469f-a165-70867728950"_s << false;
    QTest::newRow("a hyphen moved") << u"0f8fad5bd-9cb-469f-a165-70867728950e"_s << false;
    QTest::newRow("a non-hex letter") << u"0f8fad5b-d9cb-469f-a165-70867728950g"_s << false;
    QTest::newRow("a full-width digit") << u"0f8fad5b-d9cb-469f-a165-70867728950\uff10"_s << false;
    QTest::newRow("empty") << QString() << false;
}

void TestThemeJson::uuidText()
{
    QFETCH(QString, text);
    QFETCH(bool, valid);
    QCOMPARE(ThemeJson::isUuidText(text), valid);
}

void TestThemeJson::documentShape()
{
    const NamedTheme theme = builtInThemes().constFirst();
    const QByteArray bareObject = QJsonDocument(ThemeJson::toJson(theme)).toJson();
    QVERIFY(ThemeJson::decodeNamedTheme(bareObject));
    QCOMPARE(ThemeJson::decodeDocument(bareObject), std::nullopt);

    // One unreadable element spoils the whole document.
    QByteArray mixed = ThemeJson::encodeDocument({ theme, theme });
    mixed.replace(mixed.lastIndexOf("\"name\""), 6, "\"nameX\"");
    QCOMPARE(ThemeJson::decodeDocument(mixed), std::nullopt);
    QCOMPARE(ThemeJson::decodeDocument("[null]"), std::nullopt);

    // Pretty-printed UTF-8.
    const QByteArray document = ThemeJson::encodeDocument({ { theme.id, u"Grün"_s, theme.config } });
    QVERIFY(document.count('\n') > 30);
    QVERIFY(document.contains("Gr\xc3\xbcn"));
}

void TestThemeJson::documentRounding()
{
    const QList<NamedTheme> themes { { QUuid::createUuid(), u"Awkward"_s, awkwardConfig() },
        { QUuid::createUuid(), u"Fallback"_s, ThemeConfig::fallback() } };
    const QList<NamedTheme> before = themes;
    const QByteArray document = ThemeJson::encodeDocument(themes);
    QVERIFY(themes == before);

    const std::optional<QList<NamedTheme>> decoded = ThemeJson::decodeDocument(document);
    QVERIFY(decoded);
    QCOMPARE(decoded->size(), 2);
    QCOMPARE(decoded->constFirst().id, themes.constFirst().id);
    QCOMPARE(decoded->constFirst().name, themes.constFirst().name);
    QVERIFY(decoded->constFirst().config == themes.constFirst().config.rounded(3));
    QCOMPARE(decoded->constFirst().config.chassisHue, 0.333);
    QCOMPARE(decoded->constFirst().config.dropShadow.opacity, 0.001);
    QCOMPARE(decoded->constFirst().config.dropShadow.hue, 1.0);

    // No written number has more than three decimals, nor an exponent. Ids and names are quoted, so only the
    // numbers match here.
    const QString text = QString::fromUtf8(document);
    static const QRegularExpression fraction(uR"(:\s*-?\d+\.(\d+))"_s);
    for (const QRegularExpressionMatch& match : fraction.globalMatch(text)) {
        QVERIFY2(match.capturedLength(1) <= 3, qPrintable(match.captured()));
    }
    QVERIFY(!text.contains(QRegularExpression(uR"(:\s*-?[\d.]+[eE])"_s)));

    // The settings form of the same theme is not rounded.
    QCOMPARE(ThemeJson::decodeNamedTheme(ThemeJson::encodeNamedTheme(themes.constFirst())), themes.constFirst());
}

void TestThemeJson::hostileInput_data()
{
    QTest::addColumn<QByteArray>("json");

    const QByteArray document = ThemeJson::encodeDocument(builtInThemes());
    QTest::newRow("empty input") << QByteArray();
    QTest::newRow("only white space") << QByteArray(" \n\t ");
    QTest::newRow("a truncated document") << document.left(document.size() / 2);
    QTest::newRow("a document cut before its last bracket") << document.left(document.lastIndexOf(']'));
    QTest::newRow("trailing garbage") << document + "x";
    QTest::newRow("deeply nested arrays") << QByteArray(200000, '[');
    QTest::newRow("deep nesting in an unknown key")
        << R"([{"id":"0f8fad5b-d9cb-469f-a165-70867728950e","name":"A","config":{"k":)" + QByteArray(100000, '[');
    QTest::newRow("a number that overflows") << withValidId(R"("name":"A","config":{"keySpacing":1e999})");
    QTest::newRow("a negative number that overflows") << withValidId(R"("name":"A","config":{"chassisHue":-1e999})");
    QTest::newRow("invalid UTF-8 in a name") << withValidId("\"name\":\"\xff\xfe\xc3\",\"config\":{}");
    QTest::newRow("a NUL byte") << QByteArray("[\0]", 3);
    QTest::newRow("a bare null") << QByteArray("null");
    QTest::newRow("a bare string") << QByteArray(R"("[]")");
    QTest::newRow("a bare number") << QByteArray("1e999");
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
