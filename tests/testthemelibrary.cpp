// SPDX-License-Identifier: GPL-3.0-or-later
// The theme library: menu choice, the editing state of the theme list, saving, renaming, deleting, import, export.
#include "fakethemefileaccess.h"

#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "theme/themejson.h"
#include "theme/themelibrary.h"

#include <QElapsedTimer>
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
    void init();
    void saveAsTheme_data();
    void saveAsTheme();
    void selectionFollowsConfiguration();
    void replaceWithCurrentConfig();
    void renameActiveToEmpty();
    void deleteTheme_data();
    void deleteTheme();
    void importMakesNamesUnique();
    void importRefusesBadInput_data();
    void importRefusesBadInput();
    void exportRoundsOnlyTheDocument();
    void exportCommands();

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

void TestThemeLibrary::init()
{
    m_editor.reset();
    m_dir = std::make_unique<QTemporaryDir>();
    m_settings = std::make_unique<SettingsStore>(m_dir->filePath(u"settings.json"_s));
    m_files = FakeFileAccess();
    m_editor = std::make_unique<ThemeLibraryEditor>(*m_settings, m_files);
}

void TestThemeLibrary::saveAsTheme_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("name"); // empty: nothing is saved
    QTest::addColumn<int>("position");

    QTest::newRow("new name, spaces and tabs trimmed") << u" \tMine\t "_s << u"Mine"_s << 14;
    QTest::newRow("line breaks kept") << u"Mine\n"_s << u"Mine\n"_s << 14;
    QTest::newRow("existing name in place") << u"Spacegray "_s << u"Spacegray"_s << 0;
    QTest::newRow("blanks only") << u" \t "_s << QString() << -1;
}

void TestThemeLibrary::saveAsTheme()
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

void TestThemeLibrary::selectionFollowsConfiguration()
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
    QCOMPARE(m_editor->baseThemeID(), nude.id);

    // Writing an equal configuration is not a change; an edit highlights the unsaved row and keeps the base;
    // editing back to a saved configuration drops it.
    m_settings->setValue(SettingKeys::activeThemeConfig(), nude.config);
    QCOMPARE(m_editor->selectedThemeID(), nude.id);
    m_settings->setValue(SettingKeys::activeThemeConfig(), edited(nude.config));
    QCOMPARE(m_editor->selectedThemeID(), ThemeLibrary::unsavedMarkerID());
    QVERIFY(m_editor->offersReplace(nude.id));
    m_settings->setValue(SettingKeys::activeThemeConfig(), nude.config);
    QCOMPARE(m_editor->baseThemeID(), std::nullopt);

    // Saving selects an entry whose configuration is already active; the next edit must still be noticed.
    m_editor->setNewThemeName(u"Twin"_s);
    m_editor->saveAsTheme();
    const QUuid twin = saved().last().id;
    m_settings->setValue(SettingKeys::activeThemeConfig(), edited(nude.config));
    QCOMPARE(m_editor->selectedThemeID(), ThemeLibrary::unsavedMarkerID());
    QVERIFY(m_editor->offersReplace(twin));
}

void TestThemeLibrary::replaceWithCurrentConfig()
{
    const NamedTheme chiclet = builtIn(u"Chiclet"_s);
    m_editor->setSelectedThemeID(chiclet.id);
    const ThemeConfig current = edited(chiclet.config);
    ThemeLibrary::chooseThemeFromMenu(*m_settings, { QUuid(), u"Elsewhere"_s, current });
    m_editor->replaceWithCurrentConfig(QUuid::createUuid());
    QVERIFY(!stored(SettingKeys::savedThemes()));

    m_editor->replaceWithCurrentConfig(chiclet.id);
    QCOMPARE(saved()[1], (NamedTheme { chiclet.id, chiclet.name, current }));
    QCOMPARE(activeName(), chiclet.name);
    QCOMPARE(m_editor->selectedThemeID(), chiclet.id);
    QCOMPARE(m_editor->baseThemeID(), std::nullopt);
}

void TestThemeLibrary::renameActiveToEmpty()
{
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

    // Renaming another entry leaves the active name alone.
    m_editor->renameTheme(builtIn(u"Black"_s).id, u"Chiclet"_s);
    QCOMPARE(saved()[2].name, u"Chiclet"_s);
    QCOMPARE(activeName(), QString());
}

void TestThemeLibrary::deleteTheme_data()
{
    QTest::addColumn<QString>("active");
    QTest::addColumn<QString>("deleted");
    QTest::addColumn<QString>("activeAfter");

    QTest::newRow("the active entry") << u"Spacegray"_s << u"Spacegray"_s << u"Chiclet"_s;
    QTest::newRow("another entry") << u"Spacegray"_s << u"Muted"_s << u"Spacegray"_s;
    // The active entry is known by its name, whatever the active configuration.
    QTest::newRow("active by name") << u"Black"_s << u"Black"_s << u"Spacegray"_s;
}

void TestThemeLibrary::deleteTheme()
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
    if (activeAfter != active)
        QCOMPARE(m_editor->selectedThemeID(), builtIn(activeAfter).id);

    m_settings->setValue(SettingKeys::savedThemes(), { builtIn(activeAfter) });
    QVERIFY(!m_editor->canDeleteThemes());
    m_editor->deleteTheme(builtIn(activeAfter).id);
    QCOMPARE(saved().size(), 1);
}

void TestThemeLibrary::importMakesNamesUnique()
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

    // Within one document too; the last entry with the first theme's configuration becomes active.
    const NamedTheme x { QUuid::createUuid(), u"X"_s, builtIn(u"Beige"_s).config };
    const NamedTheme y { QUuid::createUuid(), u"Y"_s, builtIn(u"Black"_s).config };
    m_files.files.insert(u"in.json"_s, ThemeJson::encodeDocument({ x, y, x }));
    m_editor->importThemes();
    const QList<NamedTheme> after = saved();
    QCOMPARE(after.size(), builtInThemes().size() + 5);
    QCOMPARE(
        (QStringList { after[16].name, after[17].name, after[18].name }), (QStringList { u"X"_s, u"Y"_s, u"X 2"_s }));
    QCOMPARE(activeName(), u"X 2"_s);
    QCOMPARE(activeConfig(), x.config);

    // Thousands of one name take no longer than thousands of different names, and suffixes already in use are skipped.
    QList<NamedTheme> many { NamedTheme { QUuid::createUuid(), u"X 4"_s, y.config } };
    for (int i = 0; i < 3000; ++i)
        many.append(x);
    m_files.files.insert(u"in.json"_s, ThemeJson::encodeDocument(many));
    QElapsedTimer timer;
    timer.start();
    m_editor->importThemes();
    QVERIFY2(timer.elapsed() < 20000, qPrintable(u"%1 ms"_s.arg(timer.elapsed())));
    const QList<NamedTheme> imported = saved().mid(after.size());
    QCOMPARE(imported.size(), many.size());
    QCOMPARE((QStringList { imported[0].name, imported[1].name, imported[2].name, imported.last().name }),
        (QStringList { u"X 4"_s, u"X 3"_s, u"X 5"_s, u"X 3003"_s }));
}

void TestThemeLibrary::importRefusesBadInput_data()
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

void TestThemeLibrary::importRefusesBadInput()
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

void TestThemeLibrary::exportRoundsOnlyTheDocument()
{
    const NamedTheme precise { QUuid::createUuid(), u"Precise"_s, edited(defaultThemeConfig()) };
    m_settings->setValue(SettingKeys::savedThemes(), { precise });
    m_settings->setValue(SettingKeys::activeThemeName(), precise.name);
    const std::optional<QByteArray> all = ThemeLibrary::exportAllThemes(*m_settings);
    QVERIFY(all && !QString::fromUtf8(*all).contains(QRegularExpression(uR"(\d\.\d{4})"_s)));
    QCOMPARE(ThemeJson::decodeDocument(*all)->first().config, precise.config.rounded(3));
    QCOMPARE(saved().first().config, precise.config);
    // The saved entry of the active name is exported as saved.
    QCOMPARE(ThemeLibrary::exportActiveTheme(*m_settings), all);

    // With no entry of the active name: a new theme of that name with the active configuration.
    const ThemeConfig active = edited(builtIn(u"Black"_s).config);
    ThemeLibrary::chooseThemeFromMenu(*m_settings, { precise.id, u"Loose"_s, active });
    const auto loose = ThemeJson::decodeDocument(ThemeLibrary::exportActiveTheme(*m_settings).value_or(""_ba));
    QVERIFY(loose && loose->size() == 1);
    QCOMPARE(loose->first().name, u"Loose"_s);
    QCOMPARE(loose->first().config, active.rounded(3));
    QVERIFY(!loose->first().id.isNull() && loose->first().id != precise.id);
}

void TestThemeLibrary::exportCommands()
{
    ThemeLibrary::chooseThemeFromMenu(*m_settings, builtIn(u"Muted"_s));
    const QByteArray one = ThemeLibrary::exportActiveTheme(*m_settings).value_or(""_ba);
    const QByteArray all = ThemeLibrary::exportAllThemes(*m_settings).value_or(""_ba);
    m_editor->copyActiveThemeToClipboard();
    m_editor->copyAllThemesToClipboard();
    QCOMPARE(m_files.clipboard, (QStringList { QString::fromUtf8(one), QString::fromUtf8(all) }));

    m_editor->saveActiveThemeToFile();
    QCOMPARE(m_files.files.value(u"out.json"_s), one);
    m_editor->saveAllThemesToFile();
    QCOMPARE(m_files.files.value(u"out.json"_s), all);
    QCOMPARE(m_files.proposedNames, (QStringList { u"Muted.json"_s, u"Ordalis Themes.json"_s }));

    m_files.files.clear();
    m_files.saveChoice.reset();
    m_editor->saveAllThemesToFile();
    QVERIFY(m_files.files.isEmpty());
}

QTEST_GUILESS_MAIN(TestThemeLibrary)
#include "testthemelibrary.moc"
