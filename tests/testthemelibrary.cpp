// SPDX-License-Identifier: GPL-3.0-or-later
// The theme library: menu choice, the editing state of the theme list, saving, renaming, deleting, import, export.
#include "fakethemefileaccess.h"

#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "theme/themejson.h"
#include "theme/themelibrary.h"
#include "theme/themesettings.h"

#include <QRegularExpression>
#include <QSignalSpy>
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

        QTest::newRow("new name, blanks trimmed, line breaks kept") << u" \tMine\n\t "_s << u"Mine\n"_s << 14;
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
        if (position < builtInThemes().size())
            QCOMPARE(after[position].id, builtInThemes()[position].id);
        QCOMPARE(after[position].name, name);
        QCOMPARE(after[position].config, current);
        QCOMPARE(activeName(), name);
        QCOMPARE(m_editor->selectedThemeID(), after[position].id);
        QCOMPARE(m_editor->newThemeName(), QString());
    }

    void selectionFollowsConfiguration()
    {
        // The "Current (unsaved)" row, and ids no entry has, select nothing and store nothing.
        m_editor->setSelectedThemeID(ThemeLibrary::unsavedMarkerID());
        m_editor->setSelectedThemeID(QUuid::createUuid());
        QVERIFY(!stored(SettingKeys::activeThemeConfig()) && !stored(SettingKeys::activeThemeName()));

        const NamedTheme nude = builtIn(u"Nude"_s);
        QSignalSpy baseChanges(m_editor.get(), &ThemeLibraryEditor::baseThemeIDChanged);
        m_editor->setSelectedThemeID(nude.id);
        QCOMPARE(activeConfig(), nude.config);
        QCOMPARE(activeName(), u"Nude"_s);
        QCOMPARE(baseChanges.size(), 1); // the selection's own write is not taken for an edit

        // An edit highlights the unsaved row and keeps the base; editing back to a saved configuration drops it.
        m_settings->setValue(SettingKeys::activeThemeConfig(), edited(nude.config));
        QCOMPARE(m_editor->selectedThemeID(), ThemeLibrary::unsavedMarkerID());
        QCOMPARE(m_editor->baseThemeID(), nude.id);
        m_settings->setValue(SettingKeys::activeThemeConfig(), nude.config);
        QCOMPARE(m_editor->baseThemeID(), std::nullopt);

        // Saving selects an entry whose configuration is already active; the next edit must still be noticed.
        m_editor->setNewThemeName(u"Twin"_s);
        m_editor->saveAsTheme();
        m_settings->setValue(SettingKeys::activeThemeConfig(), edited(nude.config));
        QCOMPARE(m_editor->selectedThemeID(), ThemeLibrary::unsavedMarkerID());
        QCOMPARE(m_editor->baseThemeID(), saved().last().id);
    }

    void renameAndReplace()
    {
        // Renaming the active entry renames the active theme, also to nothing; another entry leaves it alone.
        const QUuid spacegray = builtIn(u"Spacegray"_s).id;
        m_editor->beginRename(spacegray);
        QCOMPARE(m_editor->editingThemeID(), spacegray);
        for (const QString& typed : { u"Space "_s, QString() }) {
            m_editor->renameTheme(spacegray, typed);
            QCOMPARE(saved()[0].name, typed);
            QCOMPARE(activeName(), typed);
        }
        m_editor->endRename();
        QCOMPARE(m_editor->editingThemeID(), std::nullopt);
        m_editor->renameTheme(builtIn(u"Black"_s).id, u"Chiclet"_s);
        QCOMPARE(saved()[2].name, u"Chiclet"_s);
        QCOMPARE(activeName(), QString());

        // Replacing an entry with the current configuration makes it active; an unknown id changes nothing.
        const NamedTheme chiclet = builtIn(u"Chiclet"_s);
        const ThemeConfig current = edited(chiclet.config);
        ThemeLibrary::chooseThemeFromMenu(*m_settings, { QUuid(), u"Elsewhere"_s, current });
        const QList<NamedTheme> before = saved();
        m_editor->replaceWithCurrentConfig(QUuid::createUuid());
        QCOMPARE(saved(), before);
        m_editor->replaceWithCurrentConfig(chiclet.id);
        QCOMPARE(saved()[1], (NamedTheme { chiclet.id, chiclet.name, current }));
        QCOMPARE(activeName(), chiclet.name);
        QCOMPARE(m_editor->selectedThemeID(), chiclet.id);
    }

    void deleteTheme_data()
    {
        QTest::addColumn<QString>("active");
        QTest::addColumn<QString>("deleted");
        QTest::addColumn<QString>("activeAfter");

        QTest::newRow("the active entry") << u"Spacegray"_s << u"Spacegray"_s << u"Chiclet"_s;
        QTest::newRow("another entry") << u"Spacegray"_s << u"Muted"_s << u"Spacegray"_s;
        // The active entry is known by its name, whatever the active configuration.
        QTest::newRow("active by name") << u"Black"_s << u"Black"_s << u"Spacegray"_s;
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
            QCOMPARE(m_editor->selectedThemeID(), saved().last().id);
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

        // Thousands of one name: each suffix is found at once, not by trying every name taken before it.
        m_files.files.insert(u"in.json"_s, ThemeJson::encodeDocument(QList<NamedTheme>(3000, x)));
        m_editor->importThemes();
        QCOMPARE(saved().constLast().name, u"X 3004"_s);
    }

    void importRefusesBadInput_data()
    {
        QTest::addColumn<bool>("chosen");
        QTest::addColumn<QByteArray>("document");

        const QByteArray good = R"({"id":"1b4e28ba-2fa1-11d2-883f-0016d3cca427","name":"A","config":{}})"_ba;
        QTest::newRow("cancelled") << false << "[" + good + "]";
        QTest::newRow("not JSON") << true << "[" + good;
        QTest::newRow("bare object") << true << good;
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
        QVERIFY(!QString::fromUtf8(all).contains(QRegularExpression(uR"(\d\.\d{4})"_s)));
        QCOMPARE(ThemeJson::decodeDocument(all)->first().config, precise.config.rounded(3));
        QCOMPARE(saved().first().config, precise.config);
        // The saved entry of the active name is exported as saved.
        QCOMPARE(ThemeLibrary::exportActiveTheme(*m_settings), all);

        // The commands copy and save the same documents; a cancelled save writes nothing.
        m_editor->copyActiveThemeToClipboard();
        m_editor->saveAllThemesToFile();
        QCOMPARE(m_files.clipboard, QStringList { QString::fromUtf8(all) });
        QCOMPARE(m_files.files.value(u"out.json"_s), all);
        m_files.saveChoice.reset();
        m_editor->saveActiveThemeToFile();
        QCOMPARE(m_files.proposedNames, (QStringList { u"Ordalis Themes.json"_s, u"Precise.json"_s }));
        QCOMPARE(m_files.files.size(), 1);

        // With no entry of the active name: a new theme of that name with the active configuration.
        const ThemeConfig active = edited(builtIn(u"Black"_s).config);
        ThemeLibrary::chooseThemeFromMenu(*m_settings, { precise.id, u"Loose"_s, active });
        const auto loose = ThemeJson::decodeDocument(ThemeLibrary::exportActiveTheme(*m_settings).value_or(""_ba));
        QVERIFY(loose && loose->size() == 1);
        QCOMPARE(loose->first().name, u"Loose"_s);
        QCOMPARE(loose->first().config, active.rounded(3));
        QVERIFY(!loose->first().id.isNull() && loose->first().id != precise.id);
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
