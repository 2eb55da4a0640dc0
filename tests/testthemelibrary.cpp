// SPDX-License-Identifier: GPL-3.0-or-later
// The theme library: menu choice, the editing state of the theme list, saving, renaming, deleting, import, export.
#include "fakethemefileaccess.h"

#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "theme/themejson.h"
#include "theme/themelibrary.h"
#include "theme/themesettings.h"

#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const NamedTheme& builtIn(const QString& name)
{
    const QList<NamedTheme>& themes = builtInThemes();
    return *std::find_if(themes.begin(), themes.end(), [&](const NamedTheme& theme) { return theme.name == name; });
}

ThemeConfig edited(ThemeConfig config)
{
    config.keycapBrightness += 0.0123456;
    return config;
}

} // namespace

class TestThemeLibrary final : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_editor.reset();
        m_dir = std::make_unique<QTemporaryDir>();
        m_settings = std::make_unique<SettingsStore>(m_dir->filePath(u"settings.json"_s));
        m_files = FakeFileAccess();
        m_editor = std::make_unique<ThemeLibraryEditor>(*m_settings, m_files);
    }

    void saveAsTheme_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("name"); // empty: nothing is saved
        QTest::addColumn<int>("position");

        QTest::newRow("new name, blanks trimmed") << u" \tMine\t "_s << u"Mine"_s << 14;
        QTest::newRow("existing name in place") << u"Spacegray "_s << u"Spacegray"_s << 0;
        QTest::newRow("blanks only") << u" \t "_s << QString() << -1;
    }

    void saveAsTheme()
    {
        QFETCH(QString, typed);
        QFETCH(QString, name);
        QFETCH(int, position);

        const ThemeConfig current = edited(defaultThemeConfig());
        ThemeLibrary::chooseThemeFromMenu(*m_settings, { QUuid(), u"Working"_s, current });
        m_editor->setNewThemeName(typed);
        QCOMPARE(m_editor->canSaveAsTheme(), !name.isEmpty());
        m_editor->saveAsTheme();
        if (name.isEmpty()) {
            QVERIFY(!stored(SettingKeys::savedThemes()));
            QCOMPARE(activeName(), u"Working"_s);
            return;
        }
        const QList<NamedTheme> after = saved();
        QCOMPARE(after.size(), std::max<qsizetype>(builtInThemes().size(), position + 1));
        QCOMPARE(after[position].name, name);
        QCOMPARE(after[position].config, current);
        QCOMPARE(activeName(), name);
    }

    void selectionFollowsConfiguration()
    {
        const NamedTheme nude = builtIn(u"Nude"_s);
        m_editor->setSelectedThemeID(nude.id);
        QCOMPARE(activeConfig(), nude.config);
        QCOMPARE(activeName(), u"Nude"_s);

        // An edit highlights the unsaved row and keeps the base.
        m_settings->setValue(SettingKeys::activeThemeConfig(), edited(nude.config));
        QCOMPARE(m_editor->selectedThemeID(), ThemeLibrary::unsavedMarkerID());
        QCOMPARE(m_editor->baseThemeID(), nude.id);

        // Saving selects an entry whose configuration is already active; the next edit must still be noticed.
        m_editor->setNewThemeName(u"Twin"_s);
        m_editor->saveAsTheme();
        m_settings->setValue(SettingKeys::activeThemeConfig(), edited(edited(nude.config)));
        QCOMPARE(m_editor->selectedThemeID(), ThemeLibrary::unsavedMarkerID());
        QCOMPARE(m_editor->baseThemeID(), saved().last().id);
    }

    void renameAndReplace()
    {
        // Renaming the active entry renames the active theme; another entry leaves it alone.
        m_editor->renameTheme(builtIn(u"Spacegray"_s).id, QString());
        QCOMPARE(saved()[0].name, QString());
        QCOMPARE(activeName(), QString());
        m_editor->renameTheme(builtIn(u"Black"_s).id, u"Chiclet"_s);
        QCOMPARE(saved()[2].name, u"Chiclet"_s);
        QCOMPARE(activeName(), QString());

        // Replacing an entry with the current configuration makes it active.
        const NamedTheme chiclet = builtIn(u"Chiclet"_s);
        const ThemeConfig current = edited(chiclet.config);
        ThemeLibrary::chooseThemeFromMenu(*m_settings, { QUuid(), u"Elsewhere"_s, current });
        m_editor->replaceWithCurrentConfig(chiclet.id);
        QCOMPARE(saved()[1], (NamedTheme { chiclet.id, chiclet.name, current }));
        QCOMPARE(activeName(), chiclet.name);
    }

    void deleteTheme_data()
    {
        QTest::addColumn<QString>("active");
        QTest::addColumn<QString>("deleted");
        QTest::addColumn<QString>("activeAfter");

        QTest::newRow("the active entry") << u"Spacegray"_s << u"Spacegray"_s << u"Chiclet"_s;
        QTest::newRow("another entry") << u"Spacegray"_s << u"Muted"_s << u"Spacegray"_s;
    }

    void deleteTheme()
    {
        QFETCH(QString, active);
        QFETCH(QString, deleted);
        QFETCH(QString, activeAfter);

        const ThemeConfig config = edited(defaultThemeConfig());
        ThemeLibrary::chooseThemeFromMenu(*m_settings, { QUuid(), active, config });
        m_editor->deleteTheme(builtIn(deleted).id);
        QList<NamedTheme> expected = builtInThemes();
        expected.removeIf([&](const NamedTheme& theme) { return theme.name == deleted; });
        QCOMPARE(saved(), expected);
        QCOMPARE(activeName(), activeAfter);
        QCOMPARE(activeConfig(), activeAfter == active ? config : builtIn(activeAfter).config);

        // The last entry stays.
        m_settings->setValue(SettingKeys::savedThemes(), { builtIn(activeAfter) });
        QVERIFY(!m_editor->canDeleteThemes());
        m_editor->deleteTheme(builtIn(activeAfter).id);
        QCOMPARE(saved().size(), 1);
    }

    void importMakesNamesUnique()
    {
        const NamedTheme nude = builtIn(u"Nude"_s);
        m_files.files.insert(u"in.json"_s, ThemeJson::encodeDocument({ nude }));
        for (const QString& expected : { u"Nude 2"_s, u"Nude 3"_s }) {
            m_editor->importThemes();
            QCOMPARE(saved().last().name, expected);
            QVERIFY(saved().last().id != nude.id); // importing an export never replaces the entry it came from
            QCOMPARE(activeName(), expected);
        }

        // Within one document too, skipping suffixes in use; the last entry with the first theme's configuration
        // becomes active.
        const NamedTheme x { QUuid::createUuid(), u"X"_s, builtIn(u"Beige"_s).config };
        const NamedTheme x3 { QUuid::createUuid(), u"X 3"_s, builtIn(u"Black"_s).config };
        m_files.files.insert(u"in.json"_s, ThemeJson::encodeDocument({ x, x3, x, x }));
        m_editor->importThemes();
        QStringList names;
        for (const NamedTheme& theme : saved().mid(builtInThemes().size() + 2))
            names << theme.name;
        QCOMPARE(names, (QStringList { u"X"_s, u"X 3"_s, u"X 2"_s, u"X 4"_s }));
        QCOMPARE(activeName(), u"X 4"_s);
        QCOMPARE(activeConfig(), x.config);
    }

    void importRefusesBadInput_data()
    {
        QTest::addColumn<bool>("chosen");
        QTest::addColumn<QByteArray>("document");

        const QByteArray good = R"({"id":"1b4e28ba-2fa1-11d2-883f-0016d3cca427","name":"A","config":{}})"_ba;
        QTest::newRow("cancelled") << false << "[" + good + "]";
        QTest::newRow("empty array") << true << "[]"_ba;
        QTest::newRow("one good, one without id") << true << "[" + good + R"(,{"name":"B","config":{}}])";
    }

    void importRefusesBadInput()
    {
        QFETCH(bool, chosen);
        QFETCH(QByteArray, document);
        if (!chosen)
            m_files.openChoice.reset();
        m_files.files.insert(u"in.json"_s, document);
        m_editor->importThemes();
        QVERIFY(!stored(SettingKeys::savedThemes()) && !stored(SettingKeys::activeThemeConfig()));
        QCOMPARE(m_editor->selectedThemeID(), std::nullopt);
    }

    void exportRoundsOnlyTheDocument()
    {
        const NamedTheme precise { QUuid::createUuid(), u"Precise"_s, edited(defaultThemeConfig()) };
        m_settings->setValue(SettingKeys::savedThemes(), { precise });
        m_settings->setValue(SettingKeys::activeThemeName(), precise.name);
        const QByteArray all = ThemeLibrary::exportAllThemes(*m_settings).value_or(""_ba);
        QCOMPARE(saved().first().config, precise.config);
        // The saved entry of the active name is exported as saved.
        QCOMPARE(ThemeLibrary::exportActiveTheme(*m_settings), all);

        // The commands copy and save the same documents.
        m_editor->copyActiveThemeToClipboard();
        m_editor->saveAllThemesToFile();
        QCOMPARE(m_files.clipboard, QStringList { QString::fromUtf8(all) });
        QCOMPARE(m_files.files.value(u"out.json"_s), all);

        // With no entry of the active name: a new theme of that name with the active configuration.
        const ThemeConfig active = edited(builtIn(u"Black"_s).config);
        ThemeLibrary::chooseThemeFromMenu(*m_settings, { precise.id, u"Loose"_s, active });
        const auto loose = ThemeJson::decodeDocument(ThemeLibrary::exportActiveTheme(*m_settings).value_or(""_ba));
        QVERIFY(loose && loose->size() == 1);
        QCOMPARE(loose->first().name, u"Loose"_s);
        QCOMPARE(loose->first().config, active.rounded(3));
    }

private:
    QList<NamedTheme> saved() const { return m_settings->value(SettingKeys::savedThemes()); }
    ThemeConfig activeConfig() const { return m_settings->value(SettingKeys::activeThemeConfig()); }
    QString activeName() const { return m_settings->value(SettingKeys::activeThemeName()); }
    bool stored(const auto& key) const { return m_settings->hasStoredEntry(key.name()); }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<SettingsStore> m_settings;
    FakeFileAccess m_files;
    std::unique_ptr<ThemeLibraryEditor> m_editor;
};

QTEST_GUILESS_MAIN(TestThemeLibrary)
#include "testthemelibrary.moc"
