// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/themeconfig.h"

#include <QSet>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// Every number set to `v` and the shadows' flags set apart, so a field that an operation forgets shows up.
ThemeConfig uniformConfig(double v)
{
    return { v, v, v, v, v, v, v, v, v, v, v, v, v, v, v, v, { true, v, v, v, v, v, v, v },
        { false, v, v, v, v, v, v, v }, v, v, v, v };
}

} // namespace

class TestThemeConfig final : public QObject
{
    Q_OBJECT

private slots:
    void builtInList();
    void builtInAndFallbackValues();
    void rounding_data();
    void rounding();
};

void TestThemeConfig::builtInList()
{
    const QList<NamedTheme>& themes = builtInThemes();
    QStringList names;
    QSet<QUuid> ids;
    QSet<ThemeConfig> configs;
    for (const NamedTheme& theme : themes) {
        names.append(theme.name);
        ids.insert(theme.id);
        configs.insert(theme.config);
        // The table is written with at most three decimals.
        QVERIFY2(theme.config.rounded(3) == theme.config, qPrintable(theme.name));
    }
    QCOMPARE(names,
        QStringList({ u"Spacegray"_s, u"Chiclet"_s, u"Black"_s, u"Muted"_s, u"Dark Beige"_s, u"Warm Gray"_s, u"Nude"_s,
            u"Low Key"_s, u"Light Indigo"_s, u"Light Rose"_s, u"Light Green"_s, u"Light Blue"_s, u"Light Yellow"_s,
            u"Beige"_s }));
    QCOMPARE(configs.size(), themes.size());
    QCOMPARE(ids.size(), themes.size());
    // Built once, so an entry found by id can be found again.
    QCOMPARE(builtInThemes().constFirst().id, themes.constFirst().id);
    QCOMPARE(defaultThemeName(), themes.constFirst().name);
    QVERIFY(defaultThemeConfig() == themes.constFirst().config);
}

void TestThemeConfig::builtInAndFallbackValues()
{
    const QList<NamedTheme>& themes = builtInThemes();
    QVERIFY(themes[0].config
        == (ThemeConfig { 0.687, 0.05, 1, 0.448, 0.854, 24.787, 18, 7, 0, 0, 0.093, 6, 0.5, 0.1, 0.68, 0.95,
            { true, 4.689, 1, 0, 0, 0, 0, 0 }, { true, 0, 0, 0, 0, 0, 0, 0 }, 0, 0, 0.871, 1 }));
    QVERIFY(themes[3].config.dropShadow == (ShadowConfig { false, 2.534, 0.321, 0.12, 0.198, 0.904, 0, 0 }));
    QVERIFY(themes[4].config.dropShadow == (ShadowConfig { true, 2.347, 0.365, 0.182, 0.074, 0, 7, 7 }));
    QVERIFY(themes[5].config.innerShadow == (ShadowConfig { true, 11.889, 0.761, 0.181, 0, 0, 0, 6 }));
    QCOMPARE(themes[13].config.keycapBrightness, 0.988);

    // Stored themes read missing keys from this table, not from the default theme.
    QVERIFY(ThemeConfig::fallback()
        == (ThemeConfig { 0.687, 0.022, 0.556, 0.6, 0.72, 24.787, 12, 7, 0, 0, 0.093, 6, 0.5, 0.02, 0.623, 0.515,
            { true, 4.689, 1, 0, 0, 0, 0, 0 }, { true, 0, 0, 0, 0, 0, 0, 0 }, 0, 0, 0.871, 1 }));
}

void TestThemeConfig::rounding_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<int>("places");
    QTest::addColumn<double>("expected");

    QTest::newRow("a positive halfway case rounds up") << 0.0005 << 3 << 0.001;
    QTest::newRow("a negative halfway case rounds away from zero") << -0.0005 << 3 << -0.001;
    QTest::newRow("a halfway case at four places") << 2.5e-4 << 4 << 3e-4;
    QTest::newRow("a binary artefact is cleaned up") << 0.1 + 0.2 << 3 << 0.3;
    QTest::newRow("a small negative becomes a zero that hashes like 0") << -0.0004 << 3 << 0.0;
}

void TestThemeConfig::rounding()
{
    QFETCH(double, value);
    QFETCH(int, places);
    QFETCH(double, expected);
    QCOMPARE(::roundedToPlaces(value, places), expected);
    const ThemeConfig rounded = uniformConfig(value).rounded(places);
    QVERIFY(rounded == uniformConfig(expected));
    QCOMPARE(qHash(NamedTheme { {}, {}, rounded }, 42), qHash(NamedTheme { {}, {}, uniformConfig(expected) }, 42));
}

QTEST_GUILESS_MAIN(TestThemeConfig)
#include "testthemeconfig.moc"
