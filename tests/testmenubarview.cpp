// SPDX-License-Identifier: GPL-3.0-or-later
// The tray menu on the offscreen platform, inspected through its actions.
#include "ui/appconfig.h"
#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "input/triggermodifier.h"
#include "theme/themelibrary.h"
#include "ui/menubaractions.h"
#include "ui/menubarview.h"

#include <QApplication>
#include <QMenu>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTest>
#include <QUrlQuery>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

/** Records what the menu asks of the application. */
class RecordingActions final : public MenuBarActions
{
public:
    bool visible = false;
    QStringList calls;

    bool isKeyboardVisible() const override { return visible; }
    void setKeyboardVisible(bool on) override
    {
        calls << (on ? u"show"_s : u"hide"_s);
        visible = on;
    }
    void openSettings() override { calls << u"settings"_s; }
    void checkForUpdates() override { calls << u"updates"_s; }
    void quit() override { calls << u"quit"_s; }
    InputBackend::Source keySource() const override { return source; }
    bool canRequestKeyAccess() const override { return requestable; }
    void requestKeyAccess() override { calls << u"allow"_s; }

    InputBackend::Source source = InputBackend::Source::x11;
    bool requestable = false;
};

/** The texts of `menu`'s items, "-" for a divider. */
QStringList texts(const QMenu* menu)
{
    QStringList result;
    for (const QAction* action : menu->actions())
        result << (action->isSeparator() ? u"-"_s : action->text());
    return result;
}

QAction* item(const QMenu* menu, const QString& textStart)
{
    for (QAction* action : menu->actions()) {
        if (!action->isSeparator() && action->text().startsWith(textStart))
            return action;
    }
    return nullptr;
}

QMenu* submenu(const QMenu* menu, const QString& titleStart)
{
    QAction* action = item(menu, titleStart);
    return action ? action->menu() : nullptr;
}

/** The texts of the items that show a checkmark. */
QStringList checked(const QMenu* menu)
{
    QStringList result;
    for (const QAction* action : menu->actions()) {
        if (action->isCheckable() && action->isChecked())
            result << action->text();
    }
    return result;
}

} // namespace

class TestMenuBarView final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void topLevelItemsInOrder();
    void visibilityItemBothWays();
    void accessLineSaysHowKeysAreRead_data();
    void accessLineSaysHowKeysAreRead();
    void togglesWriteTheirSettings();
    void hotkeySubmenu();
    void choosingTriggerStoresItAndAsksForRestart();
    void themeSubmenuWithDefaults();
    void editedThemeShowsCurrentUnsaved();
    void choosingThemeUpdatesBothKeys();
    void followsChangesMadeElsewhere();
    void aboutSubmenu();
    void trayIconCarriesTheMenu();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<SettingsStore> m_settings;
    RecordingActions m_actions;
    std::unique_ptr<MenuBarView> m_view;
    QList<QUrl> m_opened;
};

void TestMenuBarView::initTestCase()
{
    QCoreApplication::setApplicationName(u"Ordalis"_s);
    QCoreApplication::setApplicationVersion(u"1.4.2"_s);
}

void TestMenuBarView::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_settings = std::make_unique<SettingsStore>(m_dir->filePath(u"settings.json"_s));
    m_actions = RecordingActions();
    m_opened.clear();
    m_view = std::make_unique<MenuBarView>(*m_settings, m_actions);
    m_view->setUrlOpener([this](const QUrl& url) { m_opened << url; });
}

void TestMenuBarView::cleanup()
{
    m_view.reset();
    m_settings.reset();
    m_dir.reset();
}

void TestMenuBarView::topLevelItemsInOrder()
{
    const QString trigger = TriggerModifiers::displayName(TriggerModifier::leftControl);
    QCOMPARE(texts(m_view->menu()),
        QStringList({ u"Keys: X11"_s, u"-"_s, u"Show Keyboard"_s, u"-"_s, u"Show on Screen Recording"_s, u"Launch at Login"_s, u"-"_s,
            u"Hotkey: Triple-tap "_s + trigger, u"Theme: Spacegray"_s, u"-"_s, u"Settings…"_s, u"About"_s, u"-"_s,
            u"Quit Ordalis"_s }));

    QAction* quit = item(m_view->menu(), u"Quit"_s);
    QCOMPARE(quit->shortcut(), QKeySequence(u"Ctrl+Q"_s));
    // The toggles show their defaults; the commands are plain.
    QCOMPARE(checked(m_view->menu()), QStringList { u"Show on Screen Recording"_s });
    QVERIFY(item(m_view->menu(), u"Launch at Login"_s)->isCheckable());

    item(m_view->menu(), u"Settings"_s)->trigger();
    quit->trigger();
    QCOMPARE(m_actions.calls, QStringList({ u"settings"_s, u"quit"_s }));
}

void TestMenuBarView::visibilityItemBothWays()
{
    QMenu* menu = m_view->menu();
    m_actions.visible = true;
    m_view->refresh();
    QCOMPARE(item(menu, u"Hide Keyboard"_s)->text(), u"Hide Keyboard"_s);

    item(menu, u"Hide Keyboard"_s)->trigger();
    QCOMPARE(m_actions.calls, QStringList { u"hide"_s });
    QVERIFY(item(menu, u"Show Keyboard"_s));

    // Shown or hidden by other means: the application calls refresh().
    m_actions.visible = false;
    m_view->refresh();
    QVERIFY(item(menu, u"Show Keyboard"_s));
}

void TestMenuBarView::accessLineSaysHowKeysAreRead_data()
{
    QTest::addColumn<InputBackend::Source>("source");
    QTest::addColumn<bool>("requestable");
    QTest::addColumn<QStringList>("lines");

    QTest::newRow("x11") << InputBackend::Source::x11 << false << QStringList { u"Keys: X11"_s };
    QTest::newRow("devices") << InputBackend::Source::devices << false << QStringList { u"Keys: devices"_s };
    QTest::newRow("helper") << InputBackend::Source::helper << false << QStringList { u"Keys: helper"_s };
    QTest::newRow("no access, can ask")
        << InputBackend::Source::none << true << QStringList { u"Keys: no access — Allow…"_s, u"Allow Key Access…"_s };
    QTest::newRow("no access, nothing to ask")
        << InputBackend::Source::none << false << QStringList { u"Keys: no access"_s };
}

void TestMenuBarView::accessLineSaysHowKeysAreRead()
{
    QFETCH(InputBackend::Source, source);
    QFETCH(bool, requestable);
    QFETCH(QStringList, lines);

    m_actions.source = source;
    m_actions.requestable = requestable;
    m_view->refresh();
    const QList<QAction*> actions = m_view->menu()->actions();
    QCOMPARE(texts(m_view->menu()).mid(0, lines.size() + 1), lines + QStringList { u"-"_s });
    QVERIFY(!actions.first()->isEnabled());
    QCOMPARE(m_view->trayIcon()->toolTip(), u"Ordalis\n"_s + lines.first());
    if (requestable) {
        actions.at(1)->trigger();
        QCOMPARE(m_actions.calls, QStringList { u"allow"_s });
    }
}

void TestMenuBarView::togglesWriteTheirSettings()
{
    item(m_view->menu(), u"Show on Screen Recording"_s)->trigger();
    QVERIFY(!m_settings->value(SettingKeys::showOnScreenRecording()));
    item(m_view->menu(), u"Launch at Login"_s)->trigger();
    QVERIFY(m_settings->value(SettingKeys::launchAtLogin()));
    QVERIFY(!m_settings->value(SettingKeys::showOnScreenRecording()));
    QCOMPARE(checked(m_view->menu()), QStringList { u"Launch at Login"_s });

    // A failed autostart change writes the setting back; the toggle follows.
    m_settings->setValue(SettingKeys::launchAtLogin(), false);
    QCOMPARE(checked(m_view->menu()), QStringList());
}

void TestMenuBarView::hotkeySubmenu()
{
    QMenu* hotkey = submenu(m_view->menu(), u"Hotkey"_s);
    QVERIFY(hotkey);
    QStringList expected { u"Enabled"_s, u"-"_s };
    for (TriggerModifier trigger : TriggerModifiers::all())
        expected << TriggerModifiers::displayName(trigger);
    QCOMPARE(texts(hotkey), expected);
    QCOMPARE(checked(hotkey),
        QStringList({ u"Enabled"_s, TriggerModifiers::displayName(TriggerModifier::leftControl) }));

    // Turning the gesture off keeps the trigger's name in the title.
    item(hotkey, u"Enabled"_s)->trigger();
    QVERIFY(!m_settings->value(SettingKeys::enableGlobalHotkey()));
    QCOMPARE(item(m_view->menu(), u"Hotkey"_s)->text(),
        u"Hotkey: Triple-tap "_s + TriggerModifiers::displayName(TriggerModifier::leftControl));
    QCOMPARE(checked(submenu(m_view->menu(), u"Hotkey"_s)),
        QStringList { TriggerModifiers::displayName(TriggerModifier::leftControl) });
}

void TestMenuBarView::choosingTriggerStoresItAndAsksForRestart()
{
    QSignalSpy restarts(m_view.get(), &MenuBarView::triggerModifierChanged);
    const QString option = TriggerModifiers::displayName(TriggerModifier::rightOption);
    item(submenu(m_view->menu(), u"Hotkey"_s), option)->trigger();
    QCOMPARE(m_settings->value(SettingKeys::triggerModifier()), TriggerModifier::rightOption);
    QCOMPARE(restarts.size(), 1);
    QCOMPARE(item(m_view->menu(), u"Hotkey"_s)->text(), u"Hotkey: Triple-tap "_s + option);
    QCOMPARE(checked(submenu(m_view->menu(), u"Hotkey"_s)), QStringList({ u"Enabled"_s, option }));

    // Choosing the current one again keeps its checkmark (the click itself unchecks the item).
    item(submenu(m_view->menu(), u"Hotkey"_s), option)->trigger();
    QCOMPARE(restarts.size(), 2);
    QCOMPARE(checked(submenu(m_view->menu(), u"Hotkey"_s)), QStringList({ u"Enabled"_s, option }));
}

void TestMenuBarView::themeSubmenuWithDefaults()
{
    QMenu* themes = submenu(m_view->menu(), u"Theme"_s);
    QVERIFY(themes);
    QStringList names;
    for (const NamedTheme& theme : builtInThemes())
        names << theme.name;
    QCOMPARE(names.size(), 14);
    QCOMPARE(texts(themes), names);
    QCOMPARE(checked(themes), QStringList { u"Spacegray"_s });
    QVERIFY(!item(themes, ThemeLibrary::currentUnsavedText()));
}

void TestMenuBarView::editedThemeShowsCurrentUnsaved()
{
    ThemeConfig edited = m_settings->value(SettingKeys::activeThemeConfig());
    edited.keycapHue = std::fmod(edited.keycapHue + 0.1, 1.0);
    m_settings->setValue(SettingKeys::activeThemeConfig(), edited);

    QMenu* themes = submenu(m_view->menu(), u"Theme"_s);
    const QStringList shown = texts(themes);
    QCOMPARE(shown.mid(14), QStringList({ u"-"_s, u"Current (unsaved)"_s }));
    QVERIFY(!item(themes, u"Current (unsaved)"_s)->isEnabled());
    // The name keeps its checkmark beside the unsaved configuration.
    QCOMPARE(checked(themes), QStringList({ u"Spacegray"_s, u"Current (unsaved)"_s }));
    QCOMPARE(item(m_view->menu(), u"Theme"_s)->text(), u"Theme: Spacegray"_s);

    // Saving the configuration under any name makes it saved again.
    QList<NamedTheme> saved = m_settings->value(SettingKeys::savedThemes());
    saved.append(NamedTheme { QUuid::createUuid(), u"Edited"_s, edited });
    m_settings->setValue(SettingKeys::savedThemes(), saved);
    themes = submenu(m_view->menu(), u"Theme"_s);
    QCOMPARE(texts(themes).last(), u"Edited"_s);
    QCOMPARE(checked(themes), QStringList { u"Spacegray"_s });
}

void TestMenuBarView::choosingThemeUpdatesBothKeys()
{
    // Two entries with one configuration: only the chosen name is checked.
    const NamedTheme original = builtInThemes().at(3);
    const NamedTheme twin { QUuid::createUuid(), u"Twin"_s, original.config };
    QList<NamedTheme> saved = builtInThemes();
    saved.append(twin);
    m_settings->setValue(SettingKeys::savedThemes(), saved);

    item(submenu(m_view->menu(), u"Theme"_s), u"Twin"_s)->trigger();
    QCOMPARE(m_settings->value(SettingKeys::activeThemeConfig()), original.config);
    QCOMPARE(m_settings->value(SettingKeys::activeThemeName()), u"Twin"_s);
    QCOMPARE(item(m_view->menu(), u"Theme"_s)->text(), u"Theme: Twin"_s);
    QCOMPARE(checked(submenu(m_view->menu(), u"Theme"_s)), QStringList { u"Twin"_s });

    // Entries sharing the active name are all checked.
    saved.append(NamedTheme { QUuid::createUuid(), u"Twin"_s, builtInThemes().at(5).config });
    m_settings->setValue(SettingKeys::savedThemes(), saved);
    QCOMPARE(checked(submenu(m_view->menu(), u"Theme"_s)), QStringList({ u"Twin"_s, u"Twin"_s }));
}

void TestMenuBarView::followsChangesMadeElsewhere()
{
    QMenu* menu = m_view->menu();
    const NamedTheme other = builtInThemes().at(2);
    ThemeLibrary::chooseThemeFromMenu(*m_settings, other);
    QCOMPARE(item(menu, u"Theme"_s)->text(), u"Theme: "_s + other.name);
    QCOMPARE(checked(submenu(menu, u"Theme"_s)), QStringList { other.name });

    // Another process writes the file (the store re-reads it when it changes on disk).
    {
        SettingsStore elsewhere(m_settings->filePath());
        elsewhere.setValue(SettingKeys::triggerModifier(), TriggerModifier::capsLock);
        elsewhere.setValue(SettingKeys::activeThemeName(), u"Somewhere"_s);
    }
    m_settings->reload();
    QCOMPARE(m_view->menu(), menu);
    QCOMPARE(item(menu, u"Theme"_s)->text(), u"Theme: Somewhere"_s);
    QCOMPARE(checked(submenu(menu, u"Theme"_s)), QStringList());
    QCOMPARE(item(menu, u"Hotkey"_s)->text(),
        u"Hotkey: Triple-tap "_s + TriggerModifiers::displayName(TriggerModifier::capsLock));
}

void TestMenuBarView::aboutSubmenu()
{
    QMenu* about = submenu(m_view->menu(), u"About"_s);
    QVERIFY(about);
    QCOMPARE(texts(about),
        QStringList({ u"Version: 1.4.2"_s, u"Check for Updates..."_s, u"-"_s, u"Contact the developer"_s,
            u"Privacy policy"_s }));
    QVERIFY(!item(about, u"Version"_s)->isEnabled());

    item(about, u"Check for Updates..."_s)->trigger();
    QCOMPARE(m_actions.calls, QStringList { u"updates"_s });

    item(about, u"Contact the developer"_s)->trigger();
    item(about, u"Privacy policy"_s)->trigger();
    QCOMPARE(m_opened.size(), 2);
    const QUrl contact = m_opened.at(0);
    QCOMPARE(contact.adjusted(QUrl::RemoveQuery), AppConfig::contactUrl());
    const QUrlQuery query(contact);
    QCOMPARE(query.queryItems(), (QList<std::pair<QString, QString>> { { u"app"_s, u"Ordalis"_s } }));
    QCOMPARE(m_opened.at(1), AppConfig::privacyPolicyUrl());
}

void TestMenuBarView::trayIconCarriesTheMenu()
{
    QSystemTrayIcon* tray = m_view->trayIcon();
    QVERIFY(tray);
    QCOMPARE(tray->contextMenu(), m_view->menu());
    QVERIFY(!tray->icon().isNull());
    // The keyboard symbol is drawn: light strokes with a dark rim, on a transparent ground.
    const QImage image = tray->icon().pixmap(22, 22).toImage().convertToFormat(QImage::Format_ARGB32);
    int light = 0;
    int dark = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            if (pixel.alpha() > 200 && pixel.lightness() > 200)
                ++light;
            else if (pixel.alpha() > 60 && pixel.lightness() < 60)
                ++dark;
        }
    }
    QVERIFY2(light > 20 && dark > 20, qPrintable(u"light %1, dark %2"_s.arg(light).arg(dark)));
    QVERIFY(!tray->isVisible());
    m_view->show();
    // Without a tray host (offscreen) the icon is still asked to show, to be embedded once a tray appears.
    QCOMPARE(tray->isVisible(), true);
}

QTEST_MAIN(TestMenuBarView)
#include "testmenubarview.moc"
