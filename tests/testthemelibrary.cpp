// SPDX-License-Identifier: GPL-3.0-or-later
// The theme library's choice from a menu and its unsaved-configuration rule.
#include "app/settingkeys.h"
#include "app/settingsstore.h"
#include "theme/themelibrary.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class TestThemeLibrary final : public QObject
{
    Q_OBJECT

private slots:
    void unsavedComparesConfigurationsNotNames();
    void chooseWritesConfigurationAndName();
};

void TestThemeLibrary::unsavedComparesConfigurationsNotNames()
{
    const QList<NamedTheme>& builtIn = builtInThemes();
    QVERIFY(builtIn.size() > 2);
    QVERIFY(ThemeLibrary::isCurrentConfigUnsaved(builtIn[0].config, {}));
    QVERIFY(!ThemeLibrary::isCurrentConfigUnsaved(builtIn[1].config, builtIn));

    // A saved entry under another name still counts; one changed value does not.
    const QList<NamedTheme> renamed { { QUuid::createUuid(), u"Mine"_s, builtIn[2].config } };
    QVERIFY(!ThemeLibrary::isCurrentConfigUnsaved(builtIn[2].config, renamed));
    ThemeConfig edited = builtIn[2].config;
    edited.dropShadow.radius += 0.001;
    QVERIFY(ThemeLibrary::isCurrentConfigUnsaved(edited, renamed));
}

void TestThemeLibrary::chooseWritesConfigurationAndName()
{
    QTemporaryDir dir;
    SettingsStore settings(dir.filePath(u"settings.json"_s));
    const NamedTheme chosen = builtInThemes().last();
    QVERIFY(chosen.name != defaultThemeName());
    QVERIFY(!ThemeLibrary::isCurrentConfigUnsaved(settings));

    QSignalSpy changes(&settings, &SettingsStore::valueChanged);
    ThemeLibrary::chooseThemeFromMenu(settings, chosen);
    QCOMPARE(settings.value(SettingKeys::activeThemeConfig()), chosen.config);
    QCOMPARE(settings.value(SettingKeys::activeThemeName()), chosen.name);
    QCOMPARE(changes.size(), 2);
    // The list itself is left alone.
    QVERIFY(!settings.hasStoredEntry(SettingKeys::savedThemes().name()));

    // A theme that is not in the library can be chosen too; then the active configuration is unsaved.
    NamedTheme loose { QUuid::createUuid(), u"Loose"_s, chosen.config };
    loose.config.keySpacing += 1.0;
    ThemeLibrary::chooseThemeFromMenu(settings, loose);
    QCOMPARE(settings.value(SettingKeys::activeThemeName()), u"Loose"_s);
    QVERIFY(ThemeLibrary::isCurrentConfigUnsaved(settings));
}

QTEST_GUILESS_MAIN(TestThemeLibrary)
#include "testthemelibrary.moc"
