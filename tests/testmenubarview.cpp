// SPDX-License-Identifier: GPL-3.0-or-later
// The tray menu on the offscreen platform, compared as a whole through a text dump of its items.
#include "base/settingkeys.h"
#include "input/triggermodifier.h"
#include "testsupport.h"
#include "theme/themelibrary.h"
#include "theme/themesettings.h"
#include "ui/menubaractions.h"
#include "ui/menubarview.h"

#include <QMenu>
#include <QSystemTrayIcon>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

class RecordingActions final : public MenuBarActions
{
public:
    bool visible = false;
    InputBackend::Source source = InputBackend::Source::x11;
    bool requestable = false;
    QStringList calls;

    bool isKeyboardVisible() const override { return visible; }
    void setKeyboardVisible(bool on) override { calls << (on ? u"show"_s : u"hide"_s), visible = on; }
    void openSettings() override { calls << u"settings"_s; }
    void checkForUpdates() override { calls << u"updates"_s; }
    void quit() override { calls << u"quit"_s; }
    InputBackend::Source keySource() const override { return source; }
    bool canRequestKeyAccess() const override { return requestable; }
    void requestKeyAccess() override { calls << u"allow"_s; }
    bool paused = false;
    QStringList reasons;
    bool isPaused() const override { return paused || !reasons.isEmpty(); }
    bool isPausedByHand() const override { return paused; }
    void setPausedByHand(bool on) override { calls << (on ? u"pause"_s : u"resume"_s), paused = on; }
    QStringList pauseReasons() const override { return paused ? QStringList { u"on request"_s } + reasons : reasons; }
};

/**
 * One line per item: "[x] " checked, "[ ] " checkable, "-" a separator, " (off)" disabled, the shortcut in
 * brackets; a submenu's items follow its title, indented, when `open` names it (by the start of its title).
 */
QStringList dump(const QMenu* menu, const QStringList& open = {}, const QString& indent = {})
{
    QStringList lines;
    for (const QAction* item : menu->actions()) {
        if (item->isSeparator()) {
            lines << indent + u"-"_s;
            continue;
        }
        QString line = indent + (item->isCheckable() ? (item->isChecked() ? u"[x] "_s : u"[ ] "_s) : QString())
            + item->text() + (item->isEnabled() ? QString() : u" (off)"_s);
        if (!item->shortcut().isEmpty())
            line += u" ("_s + item->shortcut().toString() + u")"_s;
        lines << line;
        if (item->menu()
            && std::any_of(open.begin(), open.end(), [&](const QString& t) { return item->text().startsWith(t); }))
            lines << dump(item->menu(), open, indent + u"  "_s);
    }
    return lines;
}

QAction* find(const QMenu* menu, const QStringList& path)
{
    for (QAction* item : menu->actions()) {
        if (item->text().startsWith(path.first()))
            return path.size() == 1 ? item : find(item->menu(), path.mid(1));
    }
    return nullptr;
}

QStringList themeLines(const QList<NamedTheme>& themes, const QString& active)
{
    QStringList lines;
    for (const NamedTheme& theme : themes)
        lines << u"  "_s + (theme.name == active ? u"[x] "_s : QString()) + theme.name;
    return lines;
}

const MenuBarView::Links allLinks { QUrl(u"https://example.org/contact?from=tray"_s),
    QUrl(u"https://example.org/privacy"_s), QUrl(u"https://example.org/feed.json"_s) };

} // namespace

class TestMenuBarView final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_view.reset(), m_store.reset(); }

    void wholeMenu();
    void accessLine();
    void itemsDoWhatTheySay();
    void themeMenu();
    void aboutFollowsTheBuildsAddresses();

private:
    void make(const MenuBarView::Links& links)
    {
        m_view = std::make_unique<MenuBarView>(**m_store, m_actions, links);
        m_view->setUrlOpener([this](const QUrl& url) { m_opened << url; });
    }
    QMenu* menu() const { return m_view->menu(); }
    SettingsStore& settings() const { return **m_store; }

    std::unique_ptr<TestSupport::TemporaryStore> m_store;
    RecordingActions m_actions;
    std::unique_ptr<MenuBarView> m_view;
    QList<QUrl> m_opened;
};

void TestMenuBarView::init()
{
    QCoreApplication::setApplicationName(u"Ordalis"_s);
    QCoreApplication::setApplicationVersion(u"1.4.2"_s);
    m_store = std::make_unique<TestSupport::TemporaryStore>();
    m_actions = RecordingActions();
    m_opened.clear();
    make(allLinks);
}

void TestMenuBarView::wholeMenu()
{
    QStringList expected { u"Keys: X11 (off)"_s, u"-"_s, u"Show Keyboard"_s, u"[ ] Pause Showing Keys"_s, u"-"_s,
        u"[x] Show on Screen Recording"_s,
        u"[ ] Launch at Login"_s, u"-"_s, u"Hotkey: Triple-tap Left Control"_s, u"  [x] Enabled"_s, u"  -"_s };
    for (TriggerModifier trigger : TriggerModifiers::all())
        expected << u"  "_s + (trigger == TriggerModifier::leftControl ? u"[x] "_s : QString())
                + TriggerModifiers::displayName(trigger);
    expected << u"Theme: Spacegray"_s << themeLines(builtInThemes(), u"Spacegray"_s);
    expected << QStringList { u"-"_s, u"Settings… (Ctrl+,)"_s, u"About"_s, u"  Version: 1.4.2 (off)"_s,
        u"  Check for Updates..."_s, u"  -"_s, u"  Contact the developer"_s, u"  Privacy policy"_s, u"-"_s,
        u"Quit Ordalis (Ctrl+Q)"_s };
    QCOMPARE(dump(menu(), { u"Hotkey"_s, u"Theme"_s, u"About"_s }), expected);
}

void TestMenuBarView::accessLine()
{
    using enum InputBackend::Source;
    const QList<std::tuple<InputBackend::Source, bool, QStringList>> cases {
        { x11, false, { u"Keys: X11"_s } },
        { none, true, { u"Keys: no access — Allow…"_s, u"Allow Key Access…"_s } },
    };
    for (const auto& [source, requestable, lines] : cases) {
        m_actions.source = source;
        m_actions.requestable = requestable;
        m_view->refresh();
        QCOMPARE(m_view->trayIcon()->toolTip(), u"Ordalis\n"_s + lines.first());
        QCOMPARE(dump(menu()).mid(0, lines.size() + 1),
            QStringList { lines.first() + u" (off)"_s } + lines.mid(1) + QStringList { u"-"_s });
    }
    m_actions.requestable = true;
    m_view->refresh();
    menu()->actions().at(1)->trigger();
    QCOMPARE(m_actions.calls, QStringList { u"allow"_s });
}

void TestMenuBarView::itemsDoWhatTheySay()
{
    for (const QString& item : { u"Show Keyboard"_s, u"Hide Keyboard"_s, u"Settings"_s, u"Quit"_s })
        find(menu(), { item })->trigger();
    QCOMPARE(m_actions.calls, (QStringList { u"show"_s, u"hide"_s, u"settings"_s, u"quit"_s }));
    // Each toggle writes its own setting, and a setting written back (a refused autostart) shows.
    find(menu(), { u"Show on Screen Recording"_s })->trigger();
    find(menu(), { u"Launch at Login"_s })->trigger();
    QVERIFY(!settings().value(SettingKeys::showOnScreenRecording()));
    QVERIFY(settings().value(SettingKeys::launchAtLogin()));
    settings().setValue(SettingKeys::launchAtLogin(), false);
    QCOMPARE(dump(menu()).mid(5, 2), (QStringList { u"[ ] Show on Screen Recording"_s, u"[ ] Launch at Login"_s }));

    // Pausing by hand is checked in the menu; the tooltip names every reason while paused.
    m_actions.calls.clear();
    find(menu(), { u"Pause Showing Keys"_s })->trigger();
    m_actions.reasons = QStringList { u"screen locked"_s };
    m_view->refresh();
    QCOMPARE(m_actions.calls, QStringList { u"pause"_s });
    QVERIFY(find(menu(), { u"Pause Showing Keys"_s })->isChecked());
    QCOMPARE(m_view->trayIcon()->toolTip(), u"Ordalis\nKeys: X11\nPaused: on request, screen locked"_s);
    find(menu(), { u"Pause Showing Keys"_s })->trigger();
    m_actions.reasons.clear();
    m_view->refresh();
    QCOMPARE(m_view->trayIcon()->toolTip(), u"Ordalis\nKeys: X11"_s);

    find(menu(), { u"Hotkey"_s, u"Enabled"_s })->trigger();
    QVERIFY(!settings().value(SettingKeys::enableGlobalHotkey()));
    const QString option = TriggerModifiers::displayName(TriggerModifier::rightOption);
    // Chosen twice: the second click changes no setting but must not leave the item unchecked.
    for (int i = 0; i < 2; ++i)
        find(menu(), { u"Hotkey"_s, option })->trigger();
    QCOMPARE(settings().value(SettingKeys::triggerModifier()), TriggerModifier::rightOption);
    const QStringList lines = dump(menu(), { u"Hotkey"_s });
    QCOMPARE(lines.at(8), u"Hotkey: Triple-tap "_s + option);
    QCOMPARE(lines.filter(u"  [x]"_s), (QStringList { u"  [x] "_s + option }));
}

void TestMenuBarView::themeMenu()
{
    // A twin of a built-in theme, then the twin chosen: the name decides the checkmark, the configuration is copied.
    QList<NamedTheme> saved = builtInThemes();
    const NamedTheme twin { QUuid::createUuid(), u"Twin"_s, saved.at(3).config };
    saved << twin;
    settings().setValue(SettingKeys::savedThemes(), saved);
    find(menu(), { u"Theme"_s, u"Twin"_s })->trigger();
    QCOMPARE(settings().value(SettingKeys::activeThemeConfig()), twin.config);
    QCOMPARE(settings().value(SettingKeys::activeThemeName()), u"Twin"_s);

    // An edit no saved theme holds: the name keeps its mark and a dimmed, checked line tells.
    ThemeConfig edited = twin.config;
    edited.keycapBrightness += 0.01;
    settings().setValue(SettingKeys::activeThemeConfig(), edited);
    QCOMPARE(dump(menu(), { u"Theme"_s }).filter(u"  "_s),
        (themeLines(saved, u"Twin"_s) + QStringList { u"  -"_s, u"  [x] Current (unsaved) (off)"_s }));
}

void TestMenuBarView::aboutFollowsTheBuildsAddresses()
{
    // Contact, privacy and feed addresses each given or not, and the About menu then.
    const QList<std::tuple<bool, bool, bool, QStringList>> cases {
        { false, false, false, {} },
        { false, false, true, { u"Check for Updates..."_s } },
        { true, true, false, { u"-"_s, u"Contact the developer"_s, u"Privacy policy"_s } },
    };
    for (const auto& [contact, privacy, feed, items] : cases) {
        m_opened.clear();
        m_actions.calls.clear();
        make({ contact ? allLinks.contact : QUrl(), privacy ? allLinks.privacyPolicy : QUrl(),
            feed ? allLinks.updateFeed : QUrl() });
        QCOMPARE(dump(find(menu(), { u"About"_s })->menu()), QStringList { u"Version: 1.4.2 (off)"_s } + items);
        for (const QString& item : items) {
            if (QAction* action = find(menu(), { u"About"_s, item }))
                action->trigger();
        }
        QCOMPARE(m_actions.calls, feed ? QStringList { u"updates"_s } : QStringList());
        const QList<QUrl> pages { QUrl(u"https://example.org/contact?from=tray&app=Ordalis"_s),
            allLinks.privacyPolicy };
        QCOMPARE(m_opened, contact ? pages : QList<QUrl>());
    }
}

QTEST_MAIN(TestMenuBarView)
#include "testmenubarview.moc"
