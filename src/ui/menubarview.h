// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/inputbackend.h"

#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>

enum class TriggerModifier;
class MenuBarActions;
class QMenu;
class QSystemTrayIcon;
class SettingsStore;

/**
 * The tray item and its menu:
 *
 *   Keys: X11 / devices / helper / no access — Allow…  (dimmed: how keys are read)
 *   Allow Key Access…                         (while keys cannot be read and access can be asked for)
 *   ----
 *   Hide Keyboard / Show Keyboard
 *   ----
 *   Show on Screen Recording                  (toggle)
 *   Launch at Login                           (toggle)
 *   ----
 *   Hotkey: Triple-tap <trigger>   > Enabled (toggle), ----, one item per trigger modifier, the current one checked
 *   Theme: <active theme name>     > see ThemeMenu
 *   ----
 *   Settings…                                 Ctrl+,
 *   About                          > Version: <version> (dimmed), Check for Updates... (with an update feed),
 *                                    ----, Contact the developer, Privacy policy (each with its address)
 *   ----
 *   Quit Ordalis                              Ctrl+Q
 *
 * The QMenu object lives as long as the view; its items are rebuilt from the settings whenever one of the keys it
 * shows changes, and by refresh(): the keyboard's visibility belongs to the application, which calls refresh() when
 * it changes. Toggles write their setting and nothing else (launch at login follows the setting by itself). Main
 * thread only.
 */
class MenuBarView final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MenuBarView)

public:
    /** The addresses the About submenu offers; an empty one leaves its item out. */
    struct Links
    {
        QUrl contact;
        QUrl privacyPolicy;
        /** Without a feed there is no "Check for Updates...". */
        QUrl updateFeed;

        /** The addresses this build was made with (AppConfig). */
        static Links fromBuild();
    };

    /** `settings` and `actions` must outlive the view. The tray icon stays hidden until show(). */
    MenuBarView(SettingsStore& settings, MenuBarActions& actions, Links links = Links::fromBuild(),
        QObject* parent = nullptr);
    ~MenuBarView() override;

    /** The tray menu. */
    QMenu* menu() const;
    QSystemTrayIcon* trayIcon() const;
    /** Whether the desktop has a tray to show the icon in (QSystemTrayIcon::isSystemTrayAvailable()). */
    static bool isTrayAvailable();

    /** Shows the tray icon (the keyboard symbol). */
    void show();
    /** Rebuilds the menu now; the application calls it when the keyboard is shown or hidden. */
    void refresh();

    /** The name the menu gives the application: QCoreApplication::applicationName(), or "Ordalis" when empty. */
    static QString applicationName();
    /** The version shown in About: QCoreApplication::applicationVersion(), or "?" when empty. */
    static QString versionText();
    /** The access line for `source`: "Keys: X11", …, "Keys: no access — Allow…" (`canAllow`) or "Keys: no access". */
    static QString keySourceText(InputBackend::Source source, bool canAllow);

    /** `page` with the query item "app" set to applicationName(); empty if that cannot be formed. */
    static QUrl contactUrl(const QUrl& page);

    /** Opens web pages (the default browser unless replaced); tests put a recorder here. */
    using UrlOpener = std::function<void(const QUrl&)>;
    void setUrlOpener(UrlOpener opener);

private:
    void rebuild();
    void addHotkeyMenu();
    void addThemeMenu();
    void addAboutMenu();
    void chooseTrigger(TriggerModifier trigger);
    void openUrl(const QUrl& url) const;

    SettingsStore& m_settings;
    MenuBarActions& m_actions;
    Links m_links;
    std::unique_ptr<QMenu> m_menu;
    QSystemTrayIcon* m_trayIcon = nullptr;
    UrlOpener m_urlOpener;
};
