// SPDX-License-Identifier: GPL-3.0-or-later
// The theme library in the Styling tab on the offscreen platform: the list, its rows and menus, the save field and
// the toolbar, driven with mouse and keys against a real settings store.
#include "fakethemefileaccess.h"

#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "theme/themejson.h"
#include "theme/themelibrary.h"
#include "ui/gradientslider.h"
#include "ui/settingsrows.h"
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

    void rowsShowTheSavedThemes();
    void clickingARowChoosesItsTheme();
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

void TestThemeListView::rowsShowTheSavedThemes()
{
    QStringList expected;
    for (const NamedTheme& theme : builtInThemes())
        expected << theme.name;
    QCOMPARE(m_f->names(), expected);
    const QModelIndex black = m_f->model()->index(2);
    QCOMPARE(black.data(ThemeListModel::SwatchColourRole).value<QColor>(),
        ThemeListModel::keycapColour(builtInThemes().at(2).config));
    QCOMPARE(black.data(ThemeListModel::SwatchColourRole).value<QColor>().alphaF(), 1.0f);
    // A fresh window highlights nothing and offers no replacement.
    QVERIFY(!m_f->tab.editor().selectedThemeID());
    QVERIFY(m_f->list()->selectionModel()->selectedRows().isEmpty());
    QVERIFY(!m_f->list()->replaceButton()->isVisible());
    // The list shows a handful of rows and scrolls for the rest.
    QCOMPARE(m_f->list()->height(), m_f->list()->sizeHint().height());
    QVERIFY(m_f->list()->height() < m_f->list()->rowHeight() * (ThemeListView::visibleRows + 1));
}

void TestThemeListView::clickingARowChoosesItsTheme()
{
    const NamedTheme nude = m_f->saved().at(6);
    m_f->clickRow(6);
    QCOMPARE(m_f->tab.editor().selectedThemeID(), nude.id);
    QCOMPARE(m_f->active(), nude.config);
    QCOMPARE(m_f->settings.value(SettingKeys::activeThemeName()), nude.name);
    QCOMPARE(m_f->list()->selectionModel()->selectedRows(), QModelIndexList { m_f->model()->index(6) });
    // The sliders show the chosen theme.
    QCOMPARE(m_f->tab.widget()->findChild<SliderRow*>(u"keycapHue"_s)->value(), nude.config.keycapHue);

    // The arrow keys walk through the themes, choosing each.
    m_f->list()->setFocus();
    QTest::keyClick(m_f->list(), Qt::Key_Down);
    QCOMPARE(m_f->settings.value(SettingKeys::activeThemeName()), u"Low Key"_s);
    QCOMPARE(m_f->active(), m_f->saved().at(7).config);
}

void TestThemeListView::editsShowTheUnsavedRowAndOfferToReplaceTheBase()
{
    const NamedTheme black = m_f->saved().at(2);
    m_f->clickRow(2);
    m_f->moveSlider(u"keycapHue"_s, 40);
    const ThemeConfig edited = m_f->active();
    QVERIFY(edited != black.config);

    const int last = m_f->model()->rowCount() - 1;
    QCOMPARE(last, 14);
    const QModelIndex unsaved = m_f->model()->index(last);
    QCOMPARE(unsaved.data().toString(), u"Current (unsaved)"_s);
    QVERIFY(unsaved.data(ThemeListModel::UnsavedRole).toBool());
    QCOMPARE(unsaved.data(ThemeListModel::SwatchColourRole).value<QColor>(), ThemeListModel::keycapColour(edited));
    QCOMPARE(m_f->tab.editor().selectedThemeID(), ThemeLibrary::unsavedMarkerID());
    QCOMPARE(m_f->list()->selectionModel()->selectedRows(), QModelIndexList { unsaved });
    // Clicking the unsaved row changes nothing.
    m_f->clickRow(last);
    QCOMPARE(m_f->active(), edited);

    // The row the edits started from offers to take them.
    QToolButton* replace = m_f->list()->replaceButton();
    m_f->list()->scrollTo(m_f->model()->index(2));
    QVERIFY(replace->isVisible());
    QCOMPARE(replace->toolTip(), u"Replace with current config"_s);
    QVERIFY(m_f->list()->visualRect(m_f->model()->index(2)).contains(replace->geometry()));
    // Further edits keep the swatch of the unsaved row current.
    m_f->moveSlider(u"keycapHue"_s, 120);
    QCOMPARE(m_f->model()->index(last).data(ThemeListModel::SwatchColourRole).value<QColor>(),
        ThemeListModel::keycapColour(m_f->active()));

    QTest::mouseClick(replace, Qt::LeftButton);
    QCOMPARE(m_f->saved().at(2).id, black.id);
    QCOMPARE(m_f->saved().at(2).config, m_f->active());
    QCOMPARE(m_f->model()->rowCount(), 14);
    QVERIFY(!replace->isVisible());
    QCOMPARE(m_f->list()->selectionModel()->selectedRows(), QModelIndexList { m_f->model()->index(2) });
}

void TestThemeListView::contextMenuActsOnTheRowWithoutChoosingIt()
{
    const ThemeConfig before = m_f->active();
    m_f->clickRow(4, Qt::RightButton);
    QCOMPARE(m_f->active(), before);
    QVERIFY(!m_f->tab.editor().selectedThemeID());

    std::unique_ptr<QMenu> menu = m_f->list()->createContextMenu(m_f->model()->index(4));
    QCOMPARE(actionTexts(menu.get()),
        QStringList({ u"Rename\u2026"_s, u"Delete"_s, u"-"_s, u"Copy to Clipboard"_s, u"Save as JSON File\u2026"_s }));
    // Copying takes the active theme, not the row's.
    menu->findChild<QAction*>(u"copyToClipboard"_s)->trigger();
    QCOMPARE(m_f->files.clipboard.size(), 1);
    QVERIFY(m_f->files.clipboard.first().contains(u"\"Spacegray\""_s));
    QVERIFY(!m_f->files.clipboard.first().contains(u"\"Dark Beige\""_s));

    const QUuid darkBeige = m_f->saved().at(4).id;
    menu->findChild<QAction*>(u"delete"_s)->trigger();
    QCOMPARE(m_f->model()->rowCount(), 13);
    QVERIFY(!m_f->model()->indexOf(darkBeige).isValid());

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
    QVERIFY(field);
    QCOMPARE(field->placeholderText(), u"Name"_s);
    QCOMPARE(field->text(), u"Spacegray"_s);
    QVERIFY(field->hasFocus());
    QCOMPARE(m_f->tab.editor().editingThemeID(), m_f->saved().at(0).id);

    // Every keystroke renames; the active name follows, the field stays open with its cursor.
    QTest::keyClicks(field, u"Mine"_s);
    QCOMPARE(m_f->saved().at(0).name, u"Mine"_s);
    QCOMPARE(m_f->settings.value(SettingKeys::activeThemeName()), u"Mine"_s);
    QCOMPARE(m_f->list()->renameEditor(), field);
    QTest::keyClick(field, Qt::Key_Backspace);
    QCOMPARE(m_f->names().first(), u"Min"_s);
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
    QVERIFY(!m_f->tab.editor().editingThemeID());
}

void TestThemeListView::editsOfTheSettingsFileShowInTheList()
{
    m_f->clickRow(1);
    QList<NamedTheme> themes = m_f->saved();
    themes[3].name = u"Renamed"_s;
    themes.removeAt(5);
    {
        SettingsStore other(m_f->settings.filePath());
        other.setValue(SettingKeys::savedThemes(), themes);
    }
    QTRY_COMPARE_WITH_TIMEOUT(m_f->model()->rowCount(), 13, 5000);
    QCOMPARE(m_f->names().at(3), u"Renamed"_s);
    QCOMPARE(m_f->list()->selectionModel()->selectedRows(), QModelIndexList { m_f->model()->index(1) });

    // A configuration no theme holds, written elsewhere, shows as unsaved; the tray's choice of a theme ends that.
    ThemeConfig config = m_f->active();
    config.textOpacity = 0.5;
    {
        SettingsStore other(m_f->settings.filePath());
        other.setValue(SettingKeys::activeThemeConfig(), config);
    }
    QTRY_COMPARE_WITH_TIMEOUT(m_f->model()->rowCount(), 14, 5000);
    QVERIFY(m_f->list()->replaceButton()->isVisibleTo(m_f->list()));
    ThemeLibrary::chooseThemeFromMenu(m_f->settings, themes.at(3));
    QCOMPARE(m_f->model()->rowCount(), 13);
    QVERIFY(!m_f->list()->replaceButton()->isVisibleTo(m_f->list()));
    // Following all that wrote nothing back.
    QCOMPARE(m_f->saved(), themes);
    QCOMPARE(m_f->settings.value(SettingKeys::activeThemeName()), u"Renamed"_s);
}

void TestThemeListView::saveFieldAndButton()
{
    QLineEdit* name = m_f->tab.library()->nameField();
    QToolButton* save = m_f->tab.library()->saveButton();
    QCOMPARE(name->placeholderText(), u"Save as theme..."_s);
    QCOMPARE(name->font().pixelSize(), 12);
    QVERIFY(!save->isEnabled());
    QTest::keyClicks(name, u" \t "_s);
    QVERIFY(!save->isEnabled());

    m_f->moveSlider(u"chassisHue"_s, 30);
    const ThemeConfig edited = m_f->active();
    name->clear();
    QTest::keyClicks(name, u"  My Theme "_s);
    QVERIFY(save->isEnabled());
    QTest::keyClick(name, Qt::Key_Return); // Return alone saves nothing
    QCOMPARE(m_f->saved().size(), 14);

    QTest::mouseClick(save, Qt::LeftButton);
    QCOMPARE(m_f->saved().size(), 15);
    QCOMPARE(m_f->saved().last().name, u"My Theme"_s);
    QCOMPARE(m_f->saved().last().config, edited);
    QCOMPARE(m_f->names().last(), u"My Theme"_s);
    QCOMPARE(m_f->list()->selectionModel()->selectedRows(), QModelIndexList { m_f->model()->index(14) });
    QVERIFY(name->text().isEmpty());
    QVERIFY(!save->isEnabled());
}

void TestThemeListView::shareMenuAndImport()
{
    ThemeLibraryPanel* library = m_f->tab.library();
    QCOMPARE(library->shareButton()->text(), u"Share"_s);
    QCOMPARE(actionTexts(library->shareMenu()),
        QStringList({ u"Copy to Clipboard"_s, u"Save as JSON File\u2026"_s, u"-"_s, u"Copy All to Clipboard"_s,
            u"Save All as JSON File\u2026"_s }));
    library->shareMenu()->findChild<QAction*>(u"saveAllAsJSONFile"_s)->trigger();
    QCOMPARE(m_f->files.proposedNames, QStringList { u"Ordalis Themes.json"_s });
    QCOMPARE(ThemeJson::decodeDocument(m_f->files.files.value(u"out.json"_s))->size(), 14);

    QCOMPARE(library->importButton()->toolTip(), u"Import themes from JSON"_s);
    NamedTheme imported = builtInThemes().at(6);
    imported.config.keySpacing = 3;
    m_f->files.files.insert(u"in.json"_s, ThemeJson::encodeDocument({ imported }));
    QTest::mouseClick(library->importButton(), Qt::LeftButton);
    QCOMPARE(m_f->names().last(), u"Nude 2"_s);
    QCOMPARE(m_f->active().keySpacing, 3.0);
    QCOMPARE(m_f->list()->selectionModel()->selectedRows(), QModelIndexList { m_f->model()->index(14) });
}

QTEST_MAIN(TestThemeListView)
#include "testthemelistview.moc"
