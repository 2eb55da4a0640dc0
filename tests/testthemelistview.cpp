// SPDX-License-Identifier: GPL-3.0-or-later
// The theme library in the Styling tab on the offscreen platform: the list, its rows and menus, the save field and
// the toolbar, driven with mouse and keys against a real settings store.
#include "fakethemefileaccess.h"
#include "settingsdump.h"

#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "theme/themejson.h"
#include "theme/themelibrary.h"
#include "ui/gradientslider.h"
#include "ui/stylingsettingstab.h"
#include "ui/themelibrarypanel.h"
#include "ui/themelistview.h"

#include <QLineEdit>
#include <QMenu>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

struct Fixture
{
    Fixture()
    {
        tab.resize(560, 900);
        tab.show();
    }

    ThemeListView* list() const { return tab.library()->list(); }
    ThemeListModel* model() const { return list()->themeModel(); }
    QList<NamedTheme> saved() const { return settings.value(SettingKeys::savedThemes()); }
    ThemeConfig active() const { return settings.value(SettingKeys::activeThemeConfig()); }

    QStringList names() const
    {
        QStringList shown;
        for (int i = 0; i < model()->rowCount(); ++i)
            shown << model()->index(i).data().toString();
        return shown;
    }

    /** The rows of the selection (names), with the row offering to replace its theme marked "(replace)". */
    QStringList selection() const
    {
        QStringList shown;
        for (const QModelIndex& index : list()->selectionModel()->selectedRows())
            shown << index.data().toString();
        for (int i = 0; i < model()->rowCount(); ++i) {
            list()->scrollTo(model()->index(i));
            if (list()->replaceButton()->isVisibleTo(list())
                && list()->visualRect(model()->index(i)).contains(list()->replaceButton()->geometry()))
                shown << model()->index(i).data().toString() + u" (replace)"_s;
        }
        return shown;
    }

    /** Clicks the row at `row`, scrolled into view first as the user would. */
    void clickRow(int row, Qt::MouseButton button = Qt::LeftButton) const
    {
        const QModelIndex index = model()->index(row);
        list()->scrollTo(index);
        QTest::mouseClick(list()->viewport(), button, {}, list()->visualRect(index).center());
    }

    void moveSlider(const QString& name, int x) const
    {
        SliderRow* row = tab.widget()->findChild<SliderRow*>(name);
        QTest::mouseClick(row->slider(), Qt::LeftButton, {}, QPoint(x, row->slider()->height() / 2));
    }

    QTemporaryDir dir;
    SettingsStore settings { dir.filePath(u"settings.json"_s) };
    FakeFileAccess files;
    StylingSettingsTab tab { settings, files };
};

QStringList actionTexts(const QMenu* menu)
{
    QStringList texts;
    for (const QAction* action : menu->actions())
        texts << (action->isSeparator() ? u"-"_s : action->text());
    return texts;
}

} // namespace

class TestThemeListView final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_f.reset(); }

    void rowsAndPanel();
    void clickingOrWalkingToARowChoosesItsTheme();
    void editsShowTheUnsavedRowAndOfferToReplaceTheBase();
    void contextMenuActsOnTheRowWithoutChoosingIt();
    void renamingInPlace();
    void editsOfTheSettingsFileShowInTheList();
    void saveFieldAndButton();
    void shareMenuAndImport();

private:
    std::unique_ptr<Fixture> m_f;
};

void TestThemeListView::init()
{
    m_f = std::make_unique<Fixture>();
    QVERIFY(QTest::qWaitForWindowExposed(&m_f->tab));
}

void TestThemeListView::rowsAndPanel()
{
    QStringList expected;
    for (const NamedTheme& theme : builtInThemes())
        expected << theme.name;
    QCOMPARE(m_f->names(), expected);
    QCOMPARE(m_f->model()->index(2).data(ThemeListModel::SwatchColourRole).value<QColor>(),
        ThemeListModel::keycapColour(builtInThemes().at(2).config));
    // A fresh window highlights nothing and offers no replacement.
    QCOMPARE(m_f->selection(), QStringList());
    QCOMPARE(settingsDump(m_f->tab.library()),
        (QStringList { u"[Save as theme...|]"_s, u"(Save the current config as a theme) (off)"_s, u"(Share)"_s, u"(Import themes from JSON)"_s }));
    QCOMPARE(m_f->list()->height(), m_f->list()->sizeHint().height());
    QVERIFY(m_f->list()->height() < m_f->list()->rowHeight() * (ThemeListView::visibleRows + 1));
}

void TestThemeListView::clickingOrWalkingToARowChoosesItsTheme()
{
    const NamedTheme nude = m_f->saved().at(6);
    m_f->clickRow(6);
    QCOMPARE(m_f->active(), nude.config);
    QCOMPARE(m_f->settings.value(SettingKeys::activeThemeName()), nude.name);
    QCOMPARE(m_f->selection(), QStringList { nude.name });
    QCOMPARE(m_f->tab.widget()->findChild<SliderRow*>(u"keycapHue"_s)->value(), nude.config.keycapHue);
    m_f->list()->setFocus();
    QTest::keyClick(m_f->list(), Qt::Key_Down);
    QCOMPARE(m_f->settings.value(SettingKeys::activeThemeName()), m_f->saved().at(7).name);
    QCOMPARE(m_f->active(), m_f->saved().at(7).config);
}

void TestThemeListView::editsShowTheUnsavedRowAndOfferToReplaceTheBase()
{
    const NamedTheme black = m_f->saved().at(2);
    m_f->clickRow(2);
    m_f->moveSlider(u"keycapHue"_s, 40);
    const QModelIndex unsaved = m_f->model()->index(14);
    QCOMPARE(m_f->names().mid(13), (QStringList { m_f->saved().at(13).name, u"Current (unsaved)"_s }));
    QVERIFY(unsaved.data(ThemeListModel::UnsavedRole).toBool());
    QCOMPARE(m_f->selection(), (QStringList { u"Current (unsaved)"_s, black.name + u" (replace)"_s }));
    QCOMPARE(m_f->list()->replaceButton()->toolTip(), u"Replace with current config"_s);
    // Clicking the unsaved row changes nothing; further edits keep its swatch current.
    const ThemeConfig edited = m_f->active();
    m_f->clickRow(14);
    QCOMPARE(m_f->active(), edited);
    m_f->moveSlider(u"keycapHue"_s, 120);
    QCOMPARE(m_f->model()->index(14).data(ThemeListModel::SwatchColourRole).value<QColor>(),
        ThemeListModel::keycapColour(m_f->active()));

    m_f->list()->scrollTo(m_f->model()->index(2));
    QTest::mouseClick(m_f->list()->replaceButton(), Qt::LeftButton);
    QCOMPARE(m_f->saved().at(2).id, black.id);
    QCOMPARE(m_f->saved().at(2).config, m_f->active());
    QCOMPARE(m_f->model()->rowCount(), 14);
    QCOMPARE(m_f->selection(), QStringList { black.name });
}

void TestThemeListView::contextMenuActsOnTheRowWithoutChoosingIt()
{
    const ThemeConfig before = m_f->active();
    m_f->clickRow(4, Qt::RightButton);
    QCOMPARE(m_f->active(), before);
    QCOMPARE(m_f->selection(), QStringList());

    std::unique_ptr<QMenu> menu = m_f->list()->createContextMenu(m_f->model()->index(4));
    QCOMPARE(actionTexts(menu.get()),
        QStringList({ u"Rename\u2026"_s, u"Delete"_s, u"-"_s, u"Copy to Clipboard"_s, u"Save as JSON File\u2026"_s }));
    // Copying takes the active theme, not the row's.
    menu->findChild<QAction*>(u"copyToClipboard"_s)->trigger();
    QVERIFY(m_f->files.clipboard.value(0).contains(u"\"Spacegray\""_s));
    QVERIFY(!m_f->files.clipboard.value(0).contains(u"\"Dark Beige\""_s));
    const QUuid deleted = m_f->saved().at(4).id;
    menu->findChild<QAction*>(u"delete"_s)->trigger();
    QCOMPARE(m_f->model()->rowCount(), 13);
    QVERIFY(!m_f->model()->indexOf(deleted).isValid());

    // The last theme cannot be deleted, and the unsaved row has no menu.
    m_f->settings.setValue(SettingKeys::savedThemes(), m_f->saved().mid(0, 1));
    QCOMPARE(actionTexts(m_f->list()->createContextMenu(m_f->model()->index(0)).get()),
        QStringList({ u"Rename\u2026"_s, u"-"_s, u"Copy to Clipboard"_s, u"Save as JSON File\u2026"_s }));
    m_f->moveSlider(u"chassisHue"_s, 10);
    QCOMPARE(m_f->model()->rowCount(), 2);
    QVERIFY(!m_f->list()->createContextMenu(m_f->model()->index(1)));
}

void TestThemeListView::renamingInPlace()
{
    m_f->list()->createContextMenu(m_f->model()->index(0))->findChild<QAction*>(u"rename"_s)->trigger();
    auto* field = qobject_cast<QLineEdit*>(m_f->list()->renameEditor());
    QVERIFY(field && field->hasFocus());
    QCOMPARE(field->text(), u"Spacegray"_s);
    // Every keystroke renames; the active name follows, the field stays open with its cursor.
    QTest::keyClicks(field, u"Mine"_s);
    QTest::keyClick(field, Qt::Key_Backspace);
    QCOMPARE(m_f->saved().at(0).name, u"Min"_s);
    QCOMPARE(m_f->settings.value(SettingKeys::activeThemeName()), u"Min"_s);
    QCOMPARE(m_f->list()->renameEditor(), field);
    QCOMPARE(field->cursorPosition(), 3);
    QTest::keyClick(field, Qt::Key_Return);
    QVERIFY(!m_f->tab.editor().editingThemeID());
    QTRY_VERIFY(!m_f->list()->renameEditor());

    // Escape puts back the name the rename started from.
    m_f->tab.editor().beginRename(m_f->saved().at(1).id);
    field = qobject_cast<QLineEdit*>(m_f->list()->renameEditor());
    QVERIFY(field);
    QTest::keyClicks(field, u"Other"_s);
    QCOMPARE(m_f->saved().at(1).name, u"Other"_s);
    QTest::keyClick(field, Qt::Key_Escape);
    QCOMPARE(m_f->saved().at(1).name, u"Chiclet"_s);
}

void TestThemeListView::editsOfTheSettingsFileShowInTheList()
{
    m_f->clickRow(1);
    QList<NamedTheme> themes = m_f->saved();
    themes[3].name = u"Renamed"_s;
    themes.removeAt(5);
    ThemeConfig config = m_f->active();
    config.textOpacity = 0.5;
    {
        SettingsStore other(m_f->settings.filePath());
        other.setValue(SettingKeys::savedThemes(), themes);
        other.setValue(SettingKeys::activeThemeConfig(), config);
    }
    // A configuration no theme holds, written elsewhere, shows as unsaved; the tray's choice of a theme ends that.
    QTRY_COMPARE_WITH_TIMEOUT(m_f->names().at(3), u"Renamed"_s, 5000);
    QCOMPARE(m_f->model()->rowCount(), 14);
    QCOMPARE(m_f->selection(), (QStringList { u"Current (unsaved)"_s, themes.at(1).name + u" (replace)"_s }));
    ThemeLibrary::chooseThemeFromMenu(m_f->settings, themes.at(3));
    QCOMPARE(m_f->model()->rowCount(), 13);
    QCOMPARE(m_f->selection(), QStringList());
    // Following all that wrote nothing back.
    QCOMPARE(m_f->saved(), themes);
}

void TestThemeListView::saveFieldAndButton()
{
    QLineEdit* name = m_f->tab.library()->nameField();
    QToolButton* save = m_f->tab.library()->saveButton();
    QCOMPARE(name->font().pixelSize(), 12);
    QTest::keyClicks(name, u" \t "_s);
    QVERIFY(!save->isEnabled());

    m_f->moveSlider(u"chassisHue"_s, 30);
    const ThemeConfig edited = m_f->active();
    name->clear();
    QTest::keyClicks(name, u"  My Theme "_s);
    QTest::keyClick(name, Qt::Key_Return); // Return alone saves nothing
    QCOMPARE(m_f->saved().size(), 14);
    QTest::mouseClick(save, Qt::LeftButton);
    QCOMPARE(m_f->saved().size(), 15);
    QCOMPARE(m_f->saved().last().name, u"My Theme"_s);
    QCOMPARE(m_f->saved().last().config, edited);
    QCOMPARE(m_f->selection(), QStringList { u"My Theme"_s });
    QCOMPARE(settingsDump(m_f->tab.library()).mid(0, 2), (QStringList { u"[Save as theme...|]"_s, u"(Save the current config as a theme) (off)"_s }));
}

void TestThemeListView::shareMenuAndImport()
{
    ThemeLibraryPanel* library = m_f->tab.library();
    QCOMPARE(actionTexts(library->shareMenu()),
        QStringList({ u"Copy to Clipboard"_s, u"Save as JSON File\u2026"_s, u"-"_s, u"Copy All to Clipboard"_s,
            u"Save All as JSON File\u2026"_s }));
    library->shareMenu()->findChild<QAction*>(u"saveAllAsJSONFile"_s)->trigger();
    QCOMPARE(m_f->files.proposedNames, QStringList { u"Ordalis Themes.json"_s });
    QCOMPARE(ThemeJson::decodeDocument(m_f->files.files.value(u"out.json"_s))->size(), 14);

    NamedTheme imported = builtInThemes().at(6);
    imported.config.keySpacing = 3;
    m_f->files.files.insert(u"in.json"_s, ThemeJson::encodeDocument({ imported }));
    QTest::mouseClick(library->importButton(), Qt::LeftButton);
    QCOMPARE(m_f->names().last(), imported.name + u" 2"_s);
    QCOMPARE(m_f->active().keySpacing, 3.0);
    QCOMPARE(m_f->selection(), QStringList { imported.name + u" 2"_s });
}

QTEST_MAIN(TestThemeListView)
#include "testthemelistview.moc"
