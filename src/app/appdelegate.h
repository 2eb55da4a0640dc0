// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/clock.h"
#include "input/recordingsources.h"
#include "input/inputbackend.h"
#include "input/keyboardlayoutsource.h"
#include "input/privatemoments.h"
#include "panel/panelactions.h"
#include "ui/menubaractions.h"

#include <QObject>
#include <QPointer>
#include <QUrl>

#include <memory>
#include <optional>

class HotkeyManager;
class InputBackend;
class KeyAccessPrompt;
class KeyboardMonitor;
class KeyboardPanel;
class KeyLabelProvider;
class LaunchAtLogin;
class MenuBarView;
class PrivacyMonitor;
class QMessageBox;
class QUrl;
class SettingsStore;
class SettingsWindow;
class UpdaterManager;

/**
 * The coordinator of the running program. start() brings the pieces up in order: the tray item, key capture once
 * the input back end may read keys (asking every accessPollInterval seconds until then), the recording check,
 * and the keyboard if it was showing at the last quit. shutdown() takes key capture down again.
 *
 * It owns the keyboard panel and whether it shows, and shows the keyboard by itself while a screen recording runs:
 * at the first check that sees a recording, unless the keyboard already shows or the user hid it; at the end of
 * that recording it hides it again if the recording had shown it and "hideOnScreenRecordingEnd" is on.
 *
 * Main thread only. The settings, the clock and the back end must outlive the coordinator.
 */
class AppDelegate final : public QObject, public PanelActions, public MenuBarActions
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(AppDelegate)

public:
    /** Seconds between two access checks while the back end may not read keys. */
    static constexpr double accessPollInterval = 2.0;
    /** Seconds between two recording checks. */
    static constexpr double recordingCheckInterval = 2.5;
    /** Seconds after the keyboard appeared during which a single tap of the trigger is ignored. */
    static constexpr double singleTapGrace = 1.0;
    /** Seconds after opening the settings window at which it is activated once more. */
    static constexpr double settingsReactivationDelay = 0.1;

    /** What the coordinator is given besides settings and time. */
    struct Environment
    {
        /** Where keys come from; not owned. nullptr: no key capture at all. */
        InputBackend* backend = nullptr;
        /** What the recording watcher asks; nullptr never sees a recording. */
        std::unique_ptr<RecordingSource> recordingSource;
        /** Whether a tray can show the item; unset asks the desktop. */
        std::optional<bool> trayAvailable;
        /** The update feed; unset means the build's (AppConfig::updateFeedUrl()). Empty: no updater. */
        std::optional<QUrl> updateFeed;
        /** Which keyboard layouts the user types with; nullptr: US. */
        std::unique_ptr<KeyboardLayoutSource> layoutSource;
        /** Tells when keys must not be shown (a locked screen, a password prompt); nullptr: never. */
        std::unique_ptr<PrivateMomentWatcher> privateMoments;
    };

    AppDelegate(SettingsStore& settings, Clock& clock, Environment environment, QObject* parent = nullptr);
    /** Runs shutdown() if it has not run. */
    ~AppDelegate() override;


    /** The start-up sequence. Call once. */
    void start();
    /** Stops key capture, the recording watcher and the gestures, in that order. Later calls do nothing. */
    void shutdown();

    SettingsStore& settings() const { return m_settings; }
    KeyboardMonitor& keyboardMonitor() const { return *m_monitor; }
    HotkeyManager& hotkeys() const { return *m_hotkeys; }
    PrivacyMonitor& privacyMonitor() const { return *m_privacy; }
    /** The updater between start() and shutdown(); always nullptr without an update feed. */
    UpdaterManager* updater() const { return m_updater.get(); }
    /** The tray item; nullptr before start(). */
    MenuBarView* menuBarView() const { return m_menuBar.get(); }
    /** nullptr until the keyboard was first shown. */
    KeyboardPanel* keyboardPanel() const { return m_panel.get(); }
    /** nullptr until the settings were first opened. */
    QWidget* settingsWindow() const;
    /** Whether key capture, the recording watcher and the gestures run. */
    bool isMonitoring() const { return m_monitoring; }
    bool isTrayAvailable() const { return m_trayAvailable; }

    bool isVisible() const override { return m_isVisible; }
    /** The user hid the keyboard; while set, a running recording does not show it again. */
    bool userHid() const { return m_userHid; }
    /** A recording was running at the previous recording check. */
    bool wasRecording() const { return m_wasRecording; }
    /** The keyboard showing was brought up by a recording, not by the user. */
    bool autoShownByRecording() const { return m_autoShownByRecording; }

    /** Shows the keyboard (making the panel the first time) and remembers it for the next start. */
    void showKeyboard() override;
    /** Hides the keyboard and remembers it for the next start. */
    void hideKeyboard() override;
    void toggleKeyboard();
    /** Opens the settings window and brings it to the front. */
    void openSettings() override;

    bool isKeyboardVisible() const override { return m_isVisible; }
    void setKeyboardVisible(bool visible) override;
    /** Asks the updater now; the outcome is shown whatever it is. */
    void checkForUpdates() override;
    /** Leaves the event loop with exit code 0; shutdown follows from the owner. */
    void quit() override;
    /** How keys reach Ordalis now. */
    InputBackend::Source keySource() const override;
    bool canRequestKeyAccess() const override;
    /** Asks for key access (the helper's password dialog may follow); the outcome is told once. */
    void requestKeyAccess() override;
    /** Without a tray, the keyboard's right-click menu is the tray menu. */
    QMenu* fullMenu() const override;

    /** Keys are kept from the screen: paused by hand, or a private moment is under way. */
    bool isPaused() const override { return m_paused; }
    bool isPausedByHand() const override { return m_pausedByHand; }
    /** Pausing is not hiding: the keyboard stays where it is, with nothing lit and a lock on its chassis. */
    void setPausedByHand(bool paused) override;
    QStringList pauseReasons() const override;

    /** The request for key access or its report, while one is up. */
    KeyAccessPrompt* keyAccessPrompt() const { return m_accessPrompt.get(); }

    /** One recording check; runs every recordingCheckInterval seconds from start(). */
    void checkScreenRecording();
    /** Starts key capture, the recording watcher and the gestures, in that order. */
    void setupMonitoring();
    /** A single tap of the trigger over the panel switches auto-hide, unless the panel appeared just now. */
    void singleTapWhileHovering();

signals:
    /** isVisible() changed: the keyboard was shown or hidden. */
    void visibleChanged(bool visible);
    /** keySource() changed. */
    void keySourceChanged(InputBackend::Source source);
    /** isPaused() changed. */
    void pausedChanged(bool paused);

private:
    void updatePause();
    /** Starts monitoring once the back end may read keys; says once how to allow it, and asks again later. */
    void checkAccess();
    void explainAccess(InputBackend::Access access);
    void onAccessChanged();
    void onAccessRequestFailed(const QString& message);
    /** Puts up the request for key access, with its "Allow Key Access…" button. */
    void showAccessPrompt(const QString& title, const QString& text);
    /**
     * While the keyboard is hovered, Escape (with "escapeToHideOnHover" on) and Super+comma go to Ordalis alone, where
     * the back end can keep keys from other applications.
     */
    void updateHeldBackShortcuts();
    /** Without a tray, says once how to bring a hidden keyboard back. */
    void explainHiddenWithoutTray();
    /** Tells the user, once per file, that the settings file could not be read and where it was kept. */
    void explainUnreadableSettings(const QString& movedTo);
    void scheduleRecordingCheck();
    void onUpdateAvailable(const QString& version, const QUrl& notes, const QUrl& download);
    void onUpToDate(bool userInitiated);
    void onUpdateFailed(const QString& message, bool userInitiated);
    /** A message box; by default it replaces the one open, `alongside` keeps that one open too. */
    void showMessage(const QString& title, const QString& text, const QString& details, bool alongside = false);
    void refreshMenu();

    SettingsStore& m_settings;
    Clock& m_clock;
    InputBackend* m_backend = nullptr;
    std::unique_ptr<KeyboardMonitor> m_monitor;
    std::unique_ptr<HotkeyManager> m_hotkeys;
    std::unique_ptr<PrivacyMonitor> m_privacy;
    std::unique_ptr<LaunchAtLogin> m_launchAtLogin;
    std::unique_ptr<UpdaterManager> m_updater;
    std::unique_ptr<MenuBarView> m_menuBar;
    // After everything the panel and the window use, so that they go first.
    std::unique_ptr<KeyboardLayoutSource> m_layoutSource;
    std::unique_ptr<PrivateMomentWatcher> m_privateMoments;
    bool m_pausedByHand = false;
    bool m_paused = false;
    std::unique_ptr<KeyLabelProvider> m_keyLabels;
    std::unique_ptr<KeyboardPanel> m_panel;
    std::unique_ptr<SettingsWindow> m_settingsWindow;
    QPointer<QMessageBox> m_message;
    QList<QPointer<QMessageBox>> m_openMessages;
    std::unique_ptr<KeyAccessPrompt> m_accessPrompt;
    InputBackend::Source m_keySource = InputBackend::Source::none;

    bool m_trayAvailable = false;
    QUrl m_updateFeed;
    bool m_started = false;
    bool m_shutDown = false;
    bool m_monitoring = false;
    bool m_accessExplained = false;
    QString m_explainedMovedAside;
    Clock::JobHandle m_accessPoll = 0;
    Clock::JobHandle m_recordingCheck = 0;

    bool m_isVisible = false;
    bool m_userHid = false;
    bool m_wasRecording = false;
    bool m_autoShownByRecording = false;
};
