// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/themeconfig.h"

#include <QSet>
#include <QTest>

#include <limits>

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
    void builtInThemesAndFallback();
    void rounding_data();
    void rounding();
};

void TestThemeConfig::builtInThemesAndFallback()
{
    const QList<NamedTheme>& themes = builtInThemes();
    QSet<QString> names;
    QSet<QUuid> ids;
    QSet<ThemeConfig> configs;
    for (const NamedTheme& theme : themes) {
        names.insert(theme.name);
        ids.insert(theme.id);
        configs.insert(theme.config);
        // The table is written with at most three decimals.
        QVERIFY2(theme.config.rounded(3) == theme.config, qPrintable(theme.name));
    }
    // Fourteen, each with a name, an id and a look of its own.
    QCOMPARE(names.size(), 14);
    QCOMPARE(ids.size(), 14);
    QCOMPARE(configs.size(), 14);
    // Built once, so an entry found by id can be found again.
    QCOMPARE(builtInThemes().constFirst().id, themes.constFirst().id);
    QCOMPARE(defaultThemeName(), themes.constFirst().name);
    QVERIFY(defaultThemeConfig() == themes.constFirst().config);

    // Stored themes read missing keys from a table of their own, not from the default theme.
    QVERIFY(!(ThemeConfig::fallback() == defaultThemeConfig()));
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
    // Numbers without decimals at this scale stay exactly as they are: scaling them up and down again would turn the
    // first into infinity (written to JSON as null) and cost the others their last bits.
    QTest::newRow("a value whose scaling overflows stays") << 1e306 << 3 << 1e306;
    QTest::newRow("the most negative double stays")
        << -std::numeric_limits<double>::max() << 3 << -std::numeric_limits<double>::max();
    QTest::newRow("a large whole number stays") << 1e20 << 3 << 1e20;
    QTest::newRow("a large number with bits below the third decimal stays")
        << 123456789012345.67 << 3 << 123456789012345.67;
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
