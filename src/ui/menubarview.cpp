// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/menubarview.h"

#include "ui/appconfig.h"
#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "input/triggermodifier.h"
#include "keyboard/symbolicons.h"
#include "panel/thememenu.h"
#include "theme/themesettings.h"
#include "ui/menubaractions.h"

#include <QCoreApplication>
#include <QCursor>
#include <QDesktopServices>
#include <QIcon>
#include <QKeySequence>
#include <QMenu>
#include <QPainter>
#include <QSystemTrayIcon>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {

/**
 * The keyboard symbol in white with a dark rim one pixel wide, so that it reads on light and dark panels alike.
 */
QImage trayImage(int side)
{
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    // Leave room for the rim; the symbol's box is 1.2 times its point size.
    const double pointSize = (side - 2) / 1.2;
    SymbolIcons& icons = SymbolIcons::shared();
    const QImage rim = icons.image(u"keyboard"_s, pointSize, SymbolWeight::regular, QColor(0, 0, 0, 150), 1.0);
    const QImage glyph = icons.image(u"keyboard"_s, pointSize, SymbolWeight::regular, Qt::white, 1.0);
    if (glyph.isNull())
        return image;

    QPainter painter(&image);
    const QPoint origin((side - glyph.width()) / 2, (side - glyph.height()) / 2);
    for (int dx = -1; dx <= 1; ++dx) {
        for (int dy = -1; dy <= 1; ++dy) {
            if (dx != 0 || dy != 0)
                painter.drawImage(origin + QPoint(dx, dy), rim);
        }
    }
    painter.drawImage(origin, glyph);
    return image;
}

QIcon keyboardIcon()
{
    QIcon icon;
    for (int side : { 16, 22, 24, 32, 48, 64 })
        icon.addPixmap(QPixmap::fromImage(trayImage(side)));
    return icon;
}

/** The settings the menu shows; a change of any of them rebuilds it. */
bool isShownKey(const QString& name)
{
    return name == SettingKeys::showOnScreenRecording().name() || name == SettingKeys::launchAtLogin().name()
        || name == SettingKeys::activeThemeConfig().name() || name == SettingKeys::activeThemeName().name()
        || name == SettingKeys::savedThemes().name() || name == SettingKeys::enableGlobalHotkey().name()
        || name == SettingKeys::triggerModifier().name();
}

} // namespace

MenuBarView::Links MenuBarView::Links::fromBuild()
{
    return Links { AppConfig::contactUrl(), AppConfig::privacyPolicyUrl(), AppConfig::updateFeedUrl() };
}

MenuBarView::MenuBarView(SettingsStore& settings, MenuBarActions& actions, Links links, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_actions(actions)
    , m_links(std::move(links))
    , m_menu(std::make_unique<QMenu>())
    , m_trayIcon(new QSystemTrayIcon(this))
{
    m_trayIcon->setIcon(keyboardIcon());
    m_trayIcon->setToolTip(applicationName());
    m_trayIcon->setContextMenu(m_menu.get());
    // Most Linux trays open the menu on the right button only; the left one opens it too.
    connect(m_trayIcon, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger && !m_menu->isVisible())
            m_menu->popup(QCursor::pos());
    });

    connect(&m_settings, &SettingsStore::valueChanged, this, [this](const QString& name) {
        if (isShownKey(name))
            rebuild();
    });
    rebuild();
}

MenuBarView::~MenuBarView()
{
    // The tray icon refers to the menu.
    delete m_trayIcon;
    m_trayIcon = nullptr;
}

QMenu* MenuBarView::menu() const
{
    return m_menu.get();
}

QSystemTrayIcon* MenuBarView::trayIcon() const
{
    return m_trayIcon;
}

bool MenuBarView::isTrayAvailable()
{
    return QSystemTrayIcon::isSystemTrayAvailable();
}

void MenuBarView::show()
{
    // Shown even without a tray: Qt embeds the icon once a tray appears.
    m_trayIcon->show();
}

void MenuBarView::refresh()
{
    rebuild();
}

QString MenuBarView::applicationName()
{
    const QString name = QCoreApplication::applicationName();
    return name.isEmpty() ? u"Ordalis"_s : name;
}

QString MenuBarView::keySourceText(InputBackend::Source source, bool canAllow)
{
    switch (source) {
    case InputBackend::Source::x11:
        return tr("Keys: X11");
    case InputBackend::Source::devices:
        return tr("Keys: devices");
    case InputBackend::Source::helper:
        return tr("Keys: helper");
    case InputBackend::Source::none:
        break;
    }
    return canAllow ? tr("Keys: no access — Allow…") : tr("Keys: no access");
}

QString MenuBarView::versionText()
{
    const QString version = QCoreApplication::applicationVersion();
    return version.isEmpty() ? u"?"_s : version;
}

QUrl MenuBarView::contactUrl(const QUrl& page)
{
    QUrl url = page;
    if (!url.isValid() || url.isEmpty())
        return {};
    QUrlQuery query(url);
    query.addQueryItem(u"app"_s, applicationName());
    url.setQuery(query);
    return url.isValid() ? url : QUrl();
}

void MenuBarView::setUrlOpener(UrlOpener opener)
{
    m_urlOpener = std::move(opener);
}

void MenuBarView::openUrl(const QUrl& url) const
{
    if (!url.isValid() || url.isEmpty())
        return;
    if (m_urlOpener)
        m_urlOpener(url);
    else
        QDesktopServices::openUrl(url);
}

void MenuBarView::rebuild()
{
    // An item may be rebuilding the menu from its own triggered(), so the old items go later, not now.
    const QList<QAction*> old = m_menu->actions();
    for (QAction* action : old) {
        m_menu->removeAction(action);
        if (QMenu* submenu = action->menu())
            submenu->deleteLater();
        else if (action->parent() == m_menu.get())
            action->deleteLater();
    }

    const bool visible = m_actions.isKeyboardVisible();
    const InputBackend::Source source = m_actions.keySource();
    const bool canAllow = source == InputBackend::Source::none && m_actions.canRequestKeyAccess();
    const QString access = keySourceText(source, canAllow);
    m_menu->addAction(access)->setEnabled(false);
    if (canAllow)
        connect(m_menu->addAction(tr("Allow Key Access…")), &QAction::triggered, this,
            [this] { m_actions.requestKeyAccess(); });
    QString tip = applicationName() + u"\n"_s + access;
    if (m_actions.isPaused())
        tip += u"\n"_s + tr("Paused: %1").arg(m_actions.pauseReasons().join(u", "_s));
    m_trayIcon->setToolTip(tip);
    m_menu->addSeparator();

    QAction* visibility = m_menu->addAction(visible ? tr("Hide Keyboard") : tr("Show Keyboard"));
    connect(visibility, &QAction::triggered, this, [this] {
        m_actions.setKeyboardVisible(!m_actions.isKeyboardVisible());
        rebuild();
    });

    QAction* pause = m_menu->addAction(tr("Pause Showing Keys"));
    pause->setCheckable(true);
    pause->setChecked(m_actions.isPausedByHand());
    connect(pause, &QAction::toggled, this, [this](bool on) {
        m_actions.setPausedByHand(on);
        rebuild();
    });

    m_menu->addSeparator();

    QAction* recording = m_menu->addAction(tr("Show on Screen Recording"));
    recording->setCheckable(true);
    recording->setChecked(m_settings.value(SettingKeys::showOnScreenRecording()));
    connect(recording, &QAction::toggled, this,
        [this](bool on) { m_settings.setValue(SettingKeys::showOnScreenRecording(), on); });

    QAction* login = m_menu->addAction(tr("Launch at Login"));
    login->setCheckable(true);
    login->setChecked(m_settings.value(SettingKeys::launchAtLogin()));
    connect(login, &QAction::toggled, this, [this](bool on) { m_settings.setValue(SettingKeys::launchAtLogin(), on); });

    m_menu->addSeparator();

    addHotkeyMenu();
    addThemeMenu();

    m_menu->addSeparator();

    QAction* settings = m_menu->addAction(tr("Settings…"));
    settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    connect(settings, &QAction::triggered, this, [this] { m_actions.openSettings(); });

    addAboutMenu();

    m_menu->addSeparator();

    QAction* quit = m_menu->addAction(tr("Quit %1").arg(applicationName()));
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    quit->setMenuRole(QAction::QuitRole);
    connect(quit, &QAction::triggered, this, [this] { m_actions.quit(); });
}

void MenuBarView::addHotkeyMenu()
{
    const TriggerModifier current = m_settings.value(SettingKeys::triggerModifier());
    QMenu* hotkey = m_menu->addMenu(tr("Hotkey: Triple-tap %1").arg(TriggerModifiers::displayName(current)));

    QAction* enabled = hotkey->addAction(tr("Enabled"));
    enabled->setCheckable(true);
    enabled->setChecked(m_settings.value(SettingKeys::enableGlobalHotkey()));
    connect(enabled, &QAction::toggled, this,
        [this](bool on) { m_settings.setValue(SettingKeys::enableGlobalHotkey(), on); });

    hotkey->addSeparator();

    // Only the current choice is checkable, so the others read as plain commands.
    for (TriggerModifier trigger : TriggerModifiers::all()) {
        QAction* choice = hotkey->addAction(TriggerModifiers::displayName(trigger));
        if (trigger == current) {
            choice->setCheckable(true);
            choice->setChecked(true);
        }
        connect(choice, &QAction::triggered, this, [this, trigger] { chooseTrigger(trigger); });
    }
}

void MenuBarView::chooseTrigger(TriggerModifier trigger)
{
    m_settings.setValue(SettingKeys::triggerModifier(), trigger);
    // Choosing the current trigger again changes no setting, but the click unchecked its item.
    rebuild();
}

void MenuBarView::addThemeMenu()
{
    ThemeMenu::addTo(*m_menu, m_settings, [this] { rebuild(); });
}

void MenuBarView::addAboutMenu()
{
    QMenu* about = m_menu->addMenu(tr("About"));

    // Disabled, so it is drawn dimmed and does nothing.
    QAction* version = about->addAction(tr("Version: %1").arg(versionText()));
    version->setEnabled(false);

    // Without a feed the package manager brings updates.
    if (!m_links.updateFeed.isEmpty()) {
        QAction* updates = about->addAction(tr("Check for Updates..."));
        connect(updates, &QAction::triggered, this, [this] { m_actions.checkForUpdates(); });
    }

    const QUrl contact = contactUrl(m_links.contact);
    const QUrl privacy = m_links.privacyPolicy;
    if (contact.isEmpty() && privacy.isEmpty())
        return;
    about->addSeparator();
    if (!contact.isEmpty())
        connect(about->addAction(tr("Contact the developer")), &QAction::triggered, this,
            [this, contact] { openUrl(contact); });
    if (!privacy.isEmpty())
        connect(about->addAction(tr("Privacy policy")), &QAction::triggered, this,
            [this, privacy] { openUrl(privacy); });
}
