// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/themeconfig.h"

#include <QSet>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// Every number of a config set to `v`, shadows included, so a field forgotten by an operation shows up.
ThemeConfig uniformConfig(double v, bool shadowsEnabled)
{
    const ShadowConfig shadow { shadowsEnabled, v, v, v, v, v, v, v };
    return { v, v, v, v, v, v, v, v, v, v, v, v, v, v, v, v, shadow, shadow, v, v, v, v };
}

} // namespace

class TestThemeConfig final : public QObject
{
    Q_OBJECT

private slots:
    void builtInList();
    void builtInValues();
    void equalityCoversIdAndShadows();
    void hashingTreatsNegativeZeroAsZero();
    void roundedToPlaces_data();
    void roundedToPlaces();
    void roundedCoversEveryField();
};

void TestThemeConfig::builtInList()
{
    const QList<NamedTheme>& themes = builtInThemes();
    QStringList names;
    QSet<QUuid> ids;
    for (const NamedTheme& theme : themes) {
        names.append(theme.name);
        QVERIFY(!theme.id.isNull());
        ids.insert(theme.id);
    }
    const QStringList expected { u"Spacegray"_s, u"Chiclet"_s, u"Black"_s, u"Muted"_s, u"Dark Beige"_s, u"Warm Gray"_s,
        u"Nude"_s, u"Low Key"_s, u"Light Indigo"_s, u"Light Rose"_s, u"Light Green"_s, u"Light Blue"_s,
        u"Light Yellow"_s, u"Beige"_s };
    QCOMPARE(names, expected);
    QCOMPARE(ids.size(), themes.size());

    // Built once: the same ids on every call, so an entry found once can be found again.
    QCOMPARE(&builtInThemes(), &themes);
    QCOMPARE(builtInThemes().constFirst().id, themes.constFirst().id);

    QCOMPARE(defaultThemeName(), u"Spacegray"_s);
    QVERIFY(defaultThemeConfig() == themes.constFirst().config);
    QVERIFY(!(defaultThemeConfig() == ThemeConfig::fallback()));

    // The table is written with at most three decimals, and no two rows may have been pasted alike.
    for (qsizetype i = 0; i < themes.size(); ++i) {
        QVERIFY2(themes[i].config.rounded(3) == themes[i].config, qPrintable(themes[i].name));
        for (qsizetype j = i + 1; j < themes.size(); ++j) {
            QVERIFY2(!(themes[i].config == themes[j].config), qPrintable(themes[i].name + u" / "_s + themes[j].name));
        }
    }
}

void TestThemeConfig::builtInValues()
{
    const QList<NamedTheme>& themes = builtInThemes();

    const ThemeConfig spacegray { 0.687, 0.05, 1, 0.448, 0.854, 24.787, 18, 7, 0, 0, 0.093, 6, 0.5, 0.1, 0.68, 0.95,
        { true, 4.689, 1, 0, 0, 0, 0, 0 }, { true, 0, 0, 0, 0, 0, 0, 0 }, 0, 0, 0.871, 1 };
    QVERIFY(themes[0].config == spacegray);

    const ThemeConfig& muted = themes[3].config;
    QVERIFY(muted.dropShadow == (ShadowConfig { false, 2.534, 0.321, 0.12, 0.198, 0.904, 0, 0 }));
    QVERIFY(muted.innerShadow == (ShadowConfig { false, 0, 0, 0, 0, 0, 0, 0 }));
    QCOMPARE(muted.keySpacing, 9.386);

    const ThemeConfig& darkBeige = themes[4].config;
    QVERIFY(darkBeige.dropShadow == (ShadowConfig { true, 2.347, 0.365, 0.182, 0.074, 0, 7, 7 }));
    QVERIFY(darkBeige.innerShadow == (ShadowConfig { true, 5.772, 0.423, 0.181, 0.119, 0.142, 0, 0 }));

    const ThemeConfig& warmGray = themes[5].config;
    QVERIFY(warmGray.innerShadow == (ShadowConfig { true, 11.889, 0.761, 0.181, 0, 0, 0, 6 }));
    QCOMPARE(warmGray.textSaturation, 0.083);

    const ThemeConfig& lightBlue = themes[11].config;
    QCOMPARE(lightBlue.dropShadow.hue, 0.639);
    QCOMPARE(lightBlue.innerShadow.hue, 0.592);

    const ThemeConfig& beige = themes[13].config;
    QCOMPARE(beige.chassisBrightness, 0.717);
    QCOMPARE(beige.keycapBrightness, 0.988);
    QCOMPARE(beige.cornerKeyRadius, 11.0);
}

void TestThemeConfig::equalityCoversIdAndShadows()
{
    const NamedTheme theme = builtInThemes().constFirst();
    NamedTheme sameButId = theme;
    sameButId.id = QUuid::createUuid();
    QVERIFY(!(theme == sameButId));
    QCOMPARE(QSet<NamedTheme>({ theme, sameButId, theme }).size(), 2);

    NamedTheme innerOff = theme;
    innerOff.config.innerShadow.enabled = false;
    QVERIFY(!(theme == innerOff));
    QVERIFY(qHash(theme.config) != qHash(innerOff.config));
}

void TestThemeConfig::hashingTreatsNegativeZeroAsZero()
{
    ThemeConfig positive = ThemeConfig::fallback();
    positive.chassisHue = 0.0;
    ThemeConfig negative = positive;
    negative.chassisHue = -0.0;
    negative.dropShadow.x = -0.0;
    negative.textHue = -0.0;
    QVERIFY(positive == negative);
    QCOMPARE(qHash(negative), qHash(positive));
    QCOMPARE(qHash(negative, 42), qHash(positive, 42));
    QCOMPARE(qHash(negative.dropShadow), qHash(positive.dropShadow));

    const NamedTheme a { QUuid::createUuid(), u"A"_s, positive };
    const NamedTheme b { a.id, a.name, negative };
    QCOMPARE(qHash(a), qHash(b));
}

void TestThemeConfig::roundedToPlaces_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<int>("places");
    QTest::addColumn<double>("expected");

    QTest::newRow("a positive halfway case rounds up") << 0.0005 << 3 << 0.001;
    QTest::newRow("a negative halfway case rounds away from zero") << -0.0005 << 3 << -0.001;
    QTest::newRow("a halfway case at four places") << 2.5e-4 << 4 << 3e-4;
    QTest::newRow("just below halfway rounds down") << 0.00049 << 3 << 0.0;
    QTest::newRow("extra digits are dropped") << 1.23456 << 3 << 1.235;
    QTest::newRow("a binary artefact is cleaned up") << 0.1 + 0.2 << 3 << 0.3;
    QTest::newRow("a three-decimal value is kept") << 24.787 << 3 << 24.787;
    QTest::newRow("a whole number is kept") << 18.0 << 3 << 18.0;
    QTest::newRow("a tiny value becomes zero") << 1e-300 << 3 << 0.0;
}

void TestThemeConfig::roundedToPlaces()
{
    QFETCH(double, value);
    QFETCH(int, places);
    QFETCH(double, expected);
    QCOMPARE(::roundedToPlaces(value, places), expected);
}

void TestThemeConfig::roundedCoversEveryField()
{
    QVERIFY(uniformConfig(0.0005, false).rounded(3) == uniformConfig(0.001, false));
    QVERIFY(uniformConfig(-1.23456, true).rounded(3) == uniformConfig(-1.235, true));

    // The flags are copied, not derived from the rounded numbers.
    ThemeConfig mixed = uniformConfig(0.0001, true);
    mixed.innerShadow.enabled = false;
    const ThemeConfig rounded = mixed.rounded(3);
    QVERIFY(rounded.dropShadow.enabled);
    QVERIFY(!rounded.innerShadow.enabled);
    QCOMPARE(rounded.innerShadow.radius, 0.0);
}

QTEST_GUILESS_MAIN(TestThemeConfig)
#include "testthemeconfig.moc"
