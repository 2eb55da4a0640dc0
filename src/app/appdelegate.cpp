// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/appdelegate.h"

#include "ui/launchatlogin.h"
#include "input/privacymonitor.h"
#include "input/privatemoments.h"
#include "input/recordingsources.h"
#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "ui/appconfig.h"
#include "ui/updatermanager.h"
#include "input/hotkeymanager.h"
#include "input/inputbackend.h"
#include "input/keyboardmonitor.h"
#include "input/triggermodifier.h"
#include "keyboard/keylabelprovider.h"
#include "panel/keyboardpanel.h"
#include "ui/menubarview.h"
#include "ui/keyaccessprompt.h"
#include "ui/settingswindow.h"

#include <QCoreApplication>
#include <QDir>
#include <QMessageBox>
#include <QSystemTrayIcon>
#include <QUrl>

#include <cstdio>
#include <utility>

using namespace Qt::StringLiterals;

AppDelegate::AppDelegate(SettingsStore& settings, Clock& clock, Environment environment, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_clock(clock)
    , m_backend(environment.backend)
    , m_monitor(std::make_unique<KeyboardMonitor>(settings, clock))
    , m_hotkeys(std::make_unique<HotkeyManager>(*m_monitor, settings, clock))
    , m_privacy(std::make_unique<PrivacyMonitor>(clock, std::move(environment.recordingSource)))
    , m_trayAvailable(environment.trayAvailable.value_or(MenuBarView::isTrayAvailable()))
    , m_updateFeed(environment.updateFeed.value_or(AppConfig::updateFeedUrl()))
{
    m_layoutSource = std::move(environment.layoutSource);
    m_keyLabels = std::make_unique<KeyLabelProvider>(settings, m_layoutSource.get());
    m_privateMoments = std::move(environment.privateMoments);
    if (m_privateMoments)
        connect(m_privateMoments.get(), &PrivateMomentWatcher::changed, this, &AppDelegate::updatePause);
    m_monitor->attach(m_backend);
    connect(&m_settings, &SettingsStore::valueChanged, this, [this](const QString& name) {
        if (name == SettingKeys::escapeToHideOnHover().name())
            updateHeldBackShortcuts();
    });
    if (m_backend) {
        connect(m_backend, &InputBackend::accessChanged, this, &AppDelegate::onAccessChanged);
        connect(m_backend, &InputBackend::accessRequestFailed, this, &AppDelegate::onAccessRequestFailed);
    }
    m_hotkeys->setPanelHoveredPredicate([this] { return m_isVisible && m_panel && m_panel->isHovering(); });
}

AppDelegate::~AppDelegate()
{
    shutdown();
    // The panel and the windows refer to the monitor and the settings, so they go first. Messages still open go
    // with the coordinator: after the event loop has ended, closing them would no longer delete them.
    for (const QPointer<QMessageBox>& box : std::as_const(m_openMessages))
        delete box.data();
    m_settingsWindow.reset();
    m_panel.reset();
    m_menuBar.reset();
}

QWidget* AppDelegate::settingsWindow() const
{
    return m_settingsWindow.get();
}

void AppDelegate::start()
{
    if (m_started)
        return;
    m_started = true;

    m_launchAtLogin = std::make_unique<LaunchAtLogin>(m_settings);
    // Without a feed the package manager brings updates: no updater, and nothing in the menus asks for one.
    if (!m_updateFeed.isEmpty()) {
        m_updater = std::make_unique<UpdaterManager>(m_settings, m_clock, UpdaterEnvironment { m_updateFeed, {}, {} });
        UpdaterManager* updater = m_updater.get();
        connect(updater, &UpdaterManager::updateAvailable, this,
            [this](const QString& version, const QUrl& notes, const QUrl& download, bool) {
                onUpdateAvailable(version, notes, download);
            });
        connect(updater, &UpdaterManager::upToDate, this, &AppDelegate::onUpToDate);
        connect(updater, &UpdaterManager::failed, this, &AppDelegate::onUpdateFailed);
    }

    MenuBarView::Links links = MenuBarView::Links::fromBuild();
    links.updateFeed = m_updateFeed;
    m_menuBar = std::make_unique<MenuBarView>(m_settings, *this, links);
    m_menuBar->show();
    if (!m_trayAvailable)
        std::fprintf(stderr,
            "Ordalis: no system tray is available; the keyboard is shown instead, and its right-click menu has "
            "the tray menu's items.\n");

    if (m_privateMoments) {
        m_privateMoments->start();
        updatePause();
    }

    connect(&m_settings, &SettingsStore::unreadableFileMovedAside, this, &AppDelegate::explainUnreadableSettings);
    if (!m_settings.movedAsideFile().isEmpty())
        explainUnreadableSettings(m_settings.movedAsideFile());

    if (m_settings.value(SettingKeys::keyboardVisible()) || !m_trayAvailable)
        showKeyboard();
    // After the keyboard, so that a request for key access opens above it.
    checkAccess();
    scheduleRecordingCheck();
}

void AppDelegate::shutdown()
{
    if (m_shutDown)
        return;
    if (m_backend)
        m_backend->setSwallowedShortcuts(false, false);
    m_shutDown = true;

    m_monitor->stop();
    m_privacy->stop();
    m_hotkeys->stop();
    m_clock.cancel(m_accessPoll);
    m_clock.cancel(m_recordingCheck);
    m_accessPoll = m_recordingCheck = 0;
    m_monitoring = false;
    m_monitor->attach(nullptr);
    if (m_backend)
        m_backend->disconnect(this);
    m_accessPrompt.reset();

    if (m_started) {
        m_updater.reset();
    }
}

void AppDelegate::checkAccess()
{
    m_clock.cancel(m_accessPoll);
    m_accessPoll = 0;
    if (m_monitoring || m_shutDown || !m_backend)
        return;
    const InputBackend::Access access = m_backend->access();
    if (access == InputBackend::Access::granted) {
        setupMonitoring();
        onAccessChanged();
        if (m_monitoring)
            return;
    } else {
        explainAccess(access);
        if (access == InputBackend::Access::unavailable)
            return;
    }
    // Only looks again (a udev rule may have been added): the user is asked once, never again by itself.
    m_accessPoll = m_clock.schedule(accessPollInterval, this, [this] { checkAccess(); });
}

void AppDelegate::explainAccess(InputBackend::Access access)
{
    if (m_accessExplained)
        return;
    m_accessExplained = true;
    if (access == InputBackend::Access::denied && m_backend->canRequestAccess()) {
        showAccessPrompt(tr("Ordalis needs permission to see which keys you press"),
            tr("On this desktop Ordalis reads the keyboard itself to show the keys you press in every application. "
               "A small helper does the reading once you allow it with your password; it tells Ordalis which keys "
               "go down and up, nothing else, until Ordalis quits."));
        return;
    }
    const QString help = m_backend->accessHelp();
    if (help.isEmpty())
        return;
    const QString title = tr("Ordalis cannot read the keyboard yet");
    if (m_trayAvailable && m_menuBar && m_menuBar->trayIcon())
        m_menuBar->trayIcon()->showMessage(title, help, QSystemTrayIcon::Warning);
    else
        showMessage(title, title, help);
}

void AppDelegate::onAccessChanged()
{
    if (!m_monitoring && !m_shutDown && m_backend && m_backend->access() == InputBackend::Access::granted) {
        // Granted now (the helper greeted): no need to wait for the next look.
        checkAccess();
        return;
    }
    const InputBackend::Source source = keySource();
    if (source != InputBackend::Source::none && m_accessPrompt)
        m_accessPrompt->close();
    refreshMenu();
    if (std::exchange(m_keySource, source) != source)
        emit keySourceChanged(source);
}

void AppDelegate::onAccessRequestFailed(const QString& message)
{
    if (m_shutDown)
        return;
    showAccessPrompt(tr("Ordalis cannot see which keys you press"), message);
    refreshMenu();
}

void AppDelegate::showAccessPrompt(const QString& title, const QString& text)
{
    if (!m_accessPrompt) {
        m_accessPrompt = std::make_unique<KeyAccessPrompt>();
        connect(m_accessPrompt.get(), &KeyAccessPrompt::accepted, this, &AppDelegate::requestKeyAccess);
    }
    m_accessPrompt->show(title, text);
}

InputBackend::Source AppDelegate::keySource() const
{
    return m_backend && m_monitoring ? m_backend->source() : InputBackend::Source::none;
}

bool AppDelegate::canRequestKeyAccess() const
{
    return m_backend && !m_shutDown && keySource() == InputBackend::Source::none && m_backend->canRequestAccess();
}

void AppDelegate::requestKeyAccess()
{
    if (m_accessPrompt)
        m_accessPrompt->close();
    if (canRequestKeyAccess())
        m_backend->requestAccess();
}

QMenu* AppDelegate::fullMenu() const
{
    return !m_trayAvailable && m_menuBar ? m_menuBar->menu() : nullptr;
}

void AppDelegate::explainHiddenWithoutTray()
{
    if (m_trayAvailable || m_settings.value(SettingKeys::hiddenWithoutTrayExplained()))
        return;
    m_settings.setValue(SettingKeys::hiddenWithoutTrayExplained(), true);
    const QString title = tr("The keyboard is hidden");
    showMessage(title, title,
        tr("This desktop has no tray for Ordalis's menu. To show the keyboard again, tap %1 three times, run "
           "\"ordalis --show\", or start Ordalis again from the application menu.")
            .arg(TriggerModifiers::displayName(m_settings.value(SettingKeys::triggerModifier()))),
        true);
}

void AppDelegate::explainUnreadableSettings(const QString& movedTo)
{
    if (m_explainedMovedAside == movedTo)
        return;
    m_explainedMovedAside = movedTo;
    const QString title = tr("Ordalis could not read its settings");
    const QString text = tr("The settings file could not be read, so Ordalis uses its default settings. The old file "
                            "was kept as %1.")
                             .arg(QDir::toNativeSeparators(movedTo));
    if (m_trayAvailable && m_menuBar && m_menuBar->trayIcon())
        m_menuBar->trayIcon()->showMessage(title, text, QSystemTrayIcon::Warning);
    else
        showMessage(title, title, text, true);
}

void AppDelegate::setupMonitoring()
{
    if (m_monitoring || m_shutDown)
        return;
    if (!m_monitor->start())
        return;
    m_privacy->start();

    m_hotkeys->setOnTripleTap([this] { toggleKeyboard(); });
    m_hotkeys->setOnSingleTapWhileHovering([this] { singleTapWhileHovering(); });
    m_hotkeys->setOnEscapeWhileHovering([this] { hideKeyboard(); });
    m_hotkeys->setOnSettingsHotkey([this] { openSettings(); });
    m_hotkeys->start();
    m_monitoring = true;
}

void AppDelegate::scheduleRecordingCheck()
{
    m_recordingCheck = m_clock.schedule(recordingCheckInterval, this, [this] {
        checkScreenRecording();
        if (!m_shutDown)
            scheduleRecordingCheck();
    });
}

void AppDelegate::checkScreenRecording()
{
    if (!m_settings.value(SettingKeys::showOnScreenRecording()))
        return;
    if (m_privacy->screenRecordingActive()) {
        m_wasRecording = true;
        if (m_isVisible || m_userHid)
            return;
        m_autoShownByRecording = true;
        showKeyboard();
        return;
    }
    if (m_wasRecording) {
        if (m_settings.value(SettingKeys::hideOnScreenRecordingEnd()) && m_isVisible && m_autoShownByRecording)
            hideKeyboard();
        m_userHid = false;
        m_autoShownByRecording = false;
    }
    m_wasRecording = false;
}

void AppDelegate::singleTapWhileHovering()
{
    // A tap that belongs to the gesture that just showed the panel must not switch auto-hide as well.
    if (m_panel && m_clock.now() - m_panel->shownAt() > singleTapGrace)
        m_panel->toggleAutoHide();
}

void AppDelegate::updateHeldBackShortcuts()
{
    if (!m_backend || m_shutDown)
        return;
    const bool hovered = m_isVisible && m_panel && m_panel->isHovering();
    m_backend->setSwallowedShortcuts(hovered && m_settings.value(SettingKeys::escapeToHideOnHover()), hovered);
}

void AppDelegate::showKeyboard()
{
    if (!m_panel) {
        m_panel = std::make_unique<KeyboardPanel>(m_settings, m_clock, m_monitor.get(), this);
        m_panel->setKeyLabels(m_keyLabels.get());
        m_panel->setPaused(m_paused);
        connect(m_panel.get(), &KeyboardPanel::hoveringChanged, this, &AppDelegate::updateHeldBackShortcuts);
    }
    m_panel->show();
    m_panel->raise();
    m_panel->setShownAt(m_clock.now());
    const bool wasVisible = std::exchange(m_isVisible, true);
    m_userHid = false;
    m_settings.setValue(SettingKeys::keyboardVisible(), true);
    refreshMenu();
    if (!wasVisible)
        emit visibleChanged(true);
}

void AppDelegate::hideKeyboard()
{
    if (m_panel)
        m_panel->hide();
    const bool wasVisible = std::exchange(m_isVisible, false);
    updateHeldBackShortcuts();
    m_userHid = true;
    m_settings.setValue(SettingKeys::keyboardVisible(), false);
    refreshMenu();
    if (wasVisible) {
        emit visibleChanged(false);
        explainHiddenWithoutTray();
    }
}

void AppDelegate::toggleKeyboard()
{
    if (m_isVisible)
        hideKeyboard();
    else
        showKeyboard();
}

void AppDelegate::setKeyboardVisible(bool visible)
{
    if (visible)
        showKeyboard();
    else
        hideKeyboard();
}

void AppDelegate::setPausedByHand(bool paused)
{
    if (m_pausedByHand == paused)
        return;
    m_pausedByHand = paused;
    updatePause();
    refreshMenu();
}

QStringList AppDelegate::pauseReasons() const
{
    QStringList reasons;
    if (m_pausedByHand)
        reasons << tr("on request");
    if (m_privateMoments && m_privateMoments->active() != 0)
        reasons << m_privateMoments->reasons();
    return reasons;
}

void AppDelegate::updatePause()
{
    const bool paused = m_pausedByHand || (m_privateMoments && m_privateMoments->active() != 0);
    // Told to the monitor first: nothing typed from here on reaches the keyboard, its views or the gestures.
    m_monitor->setPaused(paused);
    if (m_panel)
        m_panel->setPaused(paused);
    // The tooltip names the reasons, which may change while the pause goes on.
    refreshMenu();
    if (std::exchange(m_paused, paused) != paused)
        emit pausedChanged(paused);
}

void AppDelegate::refreshMenu()
{
    if (m_menuBar)
        m_menuBar->refresh();
}

void AppDelegate::openSettings()
{
    if (!m_settingsWindow)
        m_settingsWindow = std::make_unique<SettingsWindow>(m_settings, m_monitor.get(), m_updater.get());
    m_settingsWindow->bringToFront();
    // Some window managers refuse the first activation of a window that was not asked for with a click.
    QPointer<QWidget> window = m_settingsWindow.get();
    m_clock.schedule(settingsReactivationDelay, this, [window] {
        if (window && window->isVisible())
            window->activateWindow();
    });
}

void AppDelegate::checkForUpdates()
{
    if (m_updater)
        m_updater->checkForUpdates(true);
}

void AppDelegate::quit()
{
    QCoreApplication::exit(0);
}

void AppDelegate::onUpdateAvailable(const QString& version, const QUrl& notes, const QUrl& download)
{
    // Shown for automatic checks too: a newer version is the one outcome worth an interruption.
    QString details = tr("You have version %1.").arg(QCoreApplication::applicationVersion().toHtmlEscaped());
    if (notes.isValid())
        details += u" <a href=\"%1\">%2</a>"_s.arg(notes.toString(QUrl::FullyEncoded).toHtmlEscaped(),
            tr("What is new"));
    if (download.isValid())
        details += u" <a href=\"%1\">%2</a>"_s.arg(download.toString(QUrl::FullyEncoded).toHtmlEscaped(),
            tr("Download"));
    showMessage(tr("Update Available"), tr("Ordalis %1 is available.").arg(version), details);
}

void AppDelegate::onUpToDate(bool userInitiated)
{
    if (userInitiated)
        showMessage(tr("No Update"), tr("Ordalis is up to date."),
            tr("Version %1 is the newest.").arg(QCoreApplication::applicationVersion().toHtmlEscaped()));
}

void AppDelegate::onUpdateFailed(const QString& message, bool userInitiated)
{
    if (userInitiated)
        showMessage(tr("Update Check Failed"), tr("The update check failed."), message);
}

void AppDelegate::showMessage(const QString& title, const QString& text, const QString& details, bool alongside)
{
    // Not modal: the tray and the keyboard keep working while it is open. A newer message replaces an older one.
    if (m_message && !alongside)
        m_message->close();
    auto* box = new QMessageBox(QMessageBox::Information, title, text, QMessageBox::Ok);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setTextFormat(Qt::PlainText);
    box->setInformativeText(details);
    box->setTextInteractionFlags(Qt::TextBrowserInteraction);
    box->setModal(false);
    box->show();
    box->raise();
    box->activateWindow();
    if (!alongside)
        m_message = box;
    m_openMessages.removeAll(nullptr);
    m_openMessages.append(box);
}
