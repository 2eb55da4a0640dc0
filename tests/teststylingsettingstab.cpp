// SPDX-License-Identifier: GPL-3.0-or-later
// The Styling tab on the offscreen platform: its sections and theme library driven with mouse and keys, a real
// settings store and a keyboard scene that follows the same store, as the panel does.
#include "base/clock.h"
#include "base/settingkeys.h"
#include "fakethemefileaccess.h"
#include "keyboard/keyboardscene.h"
#include "settingsdump.h"
#include "testsupport.h"
#include "theme/themejson.h"
#include "theme/themelibrary.h"
#include "theme/themestyle.h"
#include "ui/gradientslider.h"
#include "ui/shadoweditor.h"
#include "ui/stylingsettingstab.h"
#include "ui/themelibrarypanel.h"
#include "ui/themelistview.h"
#include "ui/toggleswitch.h"

#include <QLineEdit>
#include <QMenu>
#include <QTest>
#include <QToolButton>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

struct Fixture
{
    Fixture() { tab.resize(560, 900), tab.show(); }

    ThemeConfig config() const { return settings.value(SettingKeys::activeThemeConfig()); }

    ThemeListView* list() const { return tab.library()->list(); }
    ThemeListModel* model() const { return list()->themeModel(); }
    QList<NamedTheme> saved() const { return settings.value(SettingKeys::savedThemes()); }
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

    void clickRow(int row, Qt::MouseButton button = Qt::LeftButton) const
    {
        const QModelIndex index = model()->index(row);
        list()->scrollTo(index);
        QTest::mouseClick(list()->viewport(), button, {}, list()->visualRect(index).center());
    }

    void moveSlider(const QString& name, int x) const { moveSlider(tab.widget()->findChild<SliderRow*>(name), x); }
    static void moveSlider(SliderRow* row, int x)
    {
        QTest::mouseClick(row->slider(), Qt::LeftButton, {}, QPoint(x, row->slider()->height() / 2));
    }

    TestSupport::TemporaryStore store;
    SettingsStore& settings = *store;
    ManualClock clock;
    KeyboardScene scene { settings, clock, nullptr };
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

class TestStylingSettingsTab final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_f.reset(); }

    void wholeTab();
    void eachSliderWritesOnlyItsFieldAndTheKeyboardFollows();
    void shadowRowsAreInactiveWhileTheShadowIsOff();
    void offsetFieldsUseTheUsersLocale();
    void clickingOrWalkingToARowChoosesItsTheme();
    void editsShowTheUnsavedRowAndOfferToReplaceTheBase();
    void contextMenuActsOnTheRowWithoutChoosingIt();
    void renamingInPlace();
    void saveFieldAndButton();
    void shareMenuAndImport();

private:
    std::unique_ptr<Fixture> m_f;
};

void TestStylingSettingsTab::init()
{
    QLocale::setDefault(QLocale::c());
    m_f = std::make_unique<Fixture>();
    QVERIFY(QTest::qWaitForWindowExposed(&m_f->tab));
}

void TestStylingSettingsTab::wholeTab()
{
    // The default theme, section by section.
    const QString shadow = u" | [x] Enabled | Radius = %1 | Opacity = %2 | Hue = 0.00 | Saturation = 0.00 | "
                           u"Brightness = 0.00 | X / Y | [X|0] | [Y|0]"_s;
    QCOMPARE(settingsDump(m_f->tab.widget()).join(u" | "_s),
        u"# Themes (rectangle.3.group) | [Save as theme...|] | (Save the current config as a theme) (off) | (Share) | "
        u"(Import themes from JSON) | # Chassis (rectangle.inset.filled) | Hue = 0.69 | Saturation = 0.05 | "
        u"Brightness = 1.00 | Opacity = 0.45 | Blur = 0.85 | Key Spacing = 7.00 | Corner Radius = 24.79 | "
        u"Edge Key Radius = 18.00 | # Keycap (keyboard) | Hue = 0.00 | Saturation = 0.00 | Brightness = 0.09 | "
        u"Roundness = 6.00 | Border = 0.50 | Pressed State | Hue = 0.10 | Saturation = 0.68 | Brightness = 0.95 | "
        u"# Drop Shadow (shadow)"_s
            + shadow.arg(u"4.69"_s, u"1.00"_s) + u" | # Inner Shadow (shadow)"_s + shadow.arg(u"0.00"_s, u"0.00"_s)
            + u" | # Text (textformat) | Hue = 0.00 | Saturation = 0.00 | Brightness = 0.87 | Opacity = 1.00"_s);
}

void TestStylingSettingsTab::eachSliderWritesOnlyItsFieldAndTheKeyboardFollows()
{
    // A field written by another slider shows on that slider's line too.
    const QList<SliderRow*> rows = m_f->tab.widget()->findChildren<SliderRow*>();
    QCOMPARE(rows.size(), 30);
    for (SliderRow* row : rows) {
        const QStringList before = settingsDump(m_f->tab.widget());
        const ThemeConfig config = m_f->config();
        const GradientSlider* slider = row->slider();
        const bool upperHalf = row->value() > (slider->lower() + slider->upper()) / 2;
        m_f->moveSlider(row, int(slider->width() * (upperHalf ? 0.1 : 0.9)));
        const QStringList after = settingsDump(m_f->tab.widget());
        QStringList changed;
        for (qsizetype i = 0; i < after.size(); ++i) {
            if (after.at(i) != before.value(i))
                changed << after.at(i);
        }
        QCOMPARE(changed, QStringList { row->label()->text() + u" = "_s + row->valueLabel()->text() });
        QVERIFY(m_f->config() != config);
        // The keyboard draws the new configuration at once.
        QCOMPARE(m_f->scene.themeConfig(), m_f->config());
        QCOMPARE(m_f->scene.scaledStyle(), ThemeStyle(m_f->config()).scaled(m_f->scene.unitSize()));
    }
}

void TestStylingSettingsTab::shadowRowsAreInactiveWhileTheShadowIsOff()
{
    ShadowEditor* drop = m_f->tab.dropShadowSection();
    const ThemeConfig before = m_f->config();
    QTest::mouseClick(drop->enabledRow()->toggle(), Qt::LeftButton);
    QVERIFY(!m_f->config().dropShadow.enabled);
    QCOMPARE(settingsDump(drop->content(), drop),
        (QStringList { u"[ ] Enabled"_s, u"Radius = 4.69 (off)"_s, u"Opacity = 1.00 (off)"_s, u"Hue = 0.00 (off)"_s,
            u"Saturation = 0.00 (off)"_s, u"Brightness = 0.00 (off)"_s, u"X / Y (off)"_s, u"[X|0] (off)"_s,
            u"[Y|0] (off)"_s }));
    // Switched back on elsewhere, the rows come back.
    m_f->settings.setValue(SettingKeys::activeThemeConfig(), before);
    QVERIFY(settingsDump(drop->content(), drop).filter(u"(off)"_s).isEmpty());
}

void TestStylingSettingsTab::offsetFieldsUseTheUsersLocale()
{
    // A German user: the tab is built after the locale is set, as at start-up.
    m_f.reset();
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    m_f = std::make_unique<Fixture>();
    QVERIFY(QTest::qWaitForWindowExposed(&m_f->tab));
    NumberField* x = m_f->tab.dropShadowSection()->xField();
    NumberField* y = m_f->tab.dropShadowSection()->yField();
    const auto type = [](NumberField* field, const QString& text) {
        field->setFocus();
        field->selectAll();
        QTest::keyClicks(field, text);
    };
    type(x, u"1,5"_s);
    QTest::keyClick(x, Qt::Key_Return);
    QCOMPARE(m_f->config().dropShadow.x, 1.5);

    // Text that is no number here changes nothing and the number comes back.
    type(x, u"1.5"_s);
    QTest::keyClick(x, Qt::Key_Return);
    QCOMPARE(x->text(), u"1,5"_s);

    // Leaving the field finishes the edit as well; the arrow keys step at once.
    type(y, u"-2,25"_s);
    x->setFocus();
    QCOMPARE(m_f->config().dropShadow.y, -2.25);
    QTest::keyClick(x, Qt::Key_Up);
    QCOMPARE(x->text(), u"2,5"_s);
    QLocale::setDefault(QLocale::c());
}

void TestStylingSettingsTab::clickingOrWalkingToARowChoosesItsTheme()
{
    QCOMPARE(m_f->names().size(), builtInThemes().size());
    // A fresh window highlights nothing and offers no replacement; the list shows a few rows at a time.
    QCOMPARE(m_f->selection(), QStringList());
    QVERIFY(m_f->list()->height() < m_f->list()->rowHeight() * (ThemeListView::visibleRows + 1));

    const NamedTheme nude = m_f->saved().at(6);
    m_f->clickRow(6);
    QCOMPARE(m_f->config(), nude.config);
    QCOMPARE(m_f->settings.value(SettingKeys::activeThemeName()), nude.name);
    QCOMPARE(m_f->selection(), QStringList { nude.name });
    m_f->list()->setFocus();
    QTest::keyClick(m_f->list(), Qt::Key_Down);
    QCOMPARE(m_f->settings.value(SettingKeys::activeThemeName()), m_f->saved().at(7).name);
    QCOMPARE(m_f->config(), m_f->saved().at(7).config);
}

void TestStylingSettingsTab::editsShowTheUnsavedRowAndOfferToReplaceTheBase()
{
    const NamedTheme black = m_f->saved().at(2);
    m_f->clickRow(2);
    m_f->moveSlider(u"keycapHue"_s, 40);
    QCOMPARE(m_f->names().mid(13), (QStringList { m_f->saved().at(13).name, u"Current (unsaved)"_s }));
    QCOMPARE(m_f->selection(), (QStringList { u"Current (unsaved)"_s, black.name + u" (replace)"_s }));

    m_f->list()->scrollTo(m_f->model()->index(2));
    QTest::mouseClick(m_f->list()->replaceButton(), Qt::LeftButton);
    QCOMPARE(m_f->saved().at(2).config, m_f->config());
    QCOMPARE(m_f->selection(), QStringList { black.name });
}

void TestStylingSettingsTab::contextMenuActsOnTheRowWithoutChoosingIt()
{
    const ThemeConfig before = m_f->config();
    m_f->clickRow(4, Qt::RightButton);
    QCOMPARE(m_f->config(), before);
    QCOMPARE(m_f->selection(), QStringList());

    std::unique_ptr<QMenu> menu = m_f->list()->createContextMenu(m_f->model()->index(4));
    QCOMPARE(actionTexts(menu.get()),
        QStringList({ u"Rename\u2026"_s, u"Delete"_s, u"-"_s, u"Copy to Clipboard"_s, u"Save as JSON File\u2026"_s }));
    // Copying takes the active theme, not the row's.
    menu->findChild<QAction*>(u"copyToClipboard"_s)->trigger();
    QVERIFY(m_f->files.clipboard.value(0).contains(u"\"Spacegray\""_s));
    const QString deleted = m_f->names().at(4);
    menu->findChild<QAction*>(u"delete"_s)->trigger();
    QVERIFY(!m_f->names().contains(deleted));

    // The last theme cannot be deleted.
    m_f->settings.setValue(SettingKeys::savedThemes(), m_f->saved().mid(0, 1));
    QVERIFY(!actionTexts(m_f->list()->createContextMenu(m_f->model()->index(0)).get()).contains(u"Delete"_s));
}

void TestStylingSettingsTab::renamingInPlace()
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
    // Escape puts back the name the rename started from.
    QTest::keyClick(field, Qt::Key_Escape);
    QCOMPARE(m_f->saved().at(0).name, u"Spacegray"_s);
    QTRY_VERIFY(!m_f->list()->renameEditor());
}

void TestStylingSettingsTab::saveFieldAndButton()
{
    QLineEdit* name = m_f->tab.library()->nameField();
    QToolButton* save = m_f->tab.library()->saveButton();
    QTest::keyClicks(name, u" \t "_s);
    QVERIFY(!save->isEnabled());

    m_f->moveSlider(u"chassisHue"_s, 30);
    name->clear();
    QTest::keyClicks(name, u"  My Theme "_s);
    QTest::keyClick(name, Qt::Key_Return); // Return alone saves nothing
    QCOMPARE(m_f->saved().size(), 14);
    QTest::mouseClick(save, Qt::LeftButton);
    QCOMPARE(m_f->saved().size(), 15);
    QCOMPARE(m_f->saved().last().name, u"My Theme"_s);
    QCOMPARE(m_f->saved().last().config, m_f->config());
    QCOMPARE(m_f->selection(), QStringList { u"My Theme"_s });
    QVERIFY(name->text().isEmpty() && !save->isEnabled());
}

void TestStylingSettingsTab::shareMenuAndImport()
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
    QCOMPARE(m_f->config().keySpacing, 3.0);
    QCOMPARE(m_f->selection(), QStringList { imported.name + u" 2"_s });
}

QTEST_MAIN(TestStylingSettingsTab)
#include "teststylingsettingstab.moc"
