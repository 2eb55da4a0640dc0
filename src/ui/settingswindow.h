// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QPointer>
#include <QTabWidget>
#include <QWidget>

#include <memory>

class GeneralSettingsTab;
class KeyboardMonitor;
class QtThemeFileAccess;
class SettingsStore;
class StylingSettingsTab;
class UpdaterManager;

/**
 * The settings window: the "Styling" and "General" tabs. It is an ordinary titled window, so it has a task-bar
 * entry while it is open, unlike the keyboard panel.
 *
 * Its content is made afresh every time the window opens and dropped when it closes, so what only lives while
 * editing (the theme list's selection, a name being typed, a HyperKey recording, collapsed sections) starts over
 * with every opening. Each opening shows the "Styling" tab first. Window size and place are kept while the program
 * runs.
 */
class SettingsWindow final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SettingsWindow)

public:
    /**
     * `settings` must outlive the window; `monitor` may be null (no HyperKey recording), and so may `updater` (a
     * build without an update feed).
     */
    SettingsWindow(SettingsStore& settings, KeyboardMonitor* monitor, UpdaterManager* updater = nullptr,
        QWidget* parent = nullptr);
    ~SettingsWindow() override;

    /** Shows the window (restored if minimised, with fresh content if it was closed), raises it and focuses it. */
    void bringToFront();

    /** The tabs while the window is open; nullptr once it closed. */
    QTabWidget* tabs() const { return m_tabs; }
    StylingSettingsTab* stylingTab() const;
    GeneralSettingsTab* generalTab() const;

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void buildContent();
    void dropContent();

    SettingsStore& m_settings;
    QPointer<KeyboardMonitor> m_monitor;
    QPointer<UpdaterManager> m_updater;
    std::unique_ptr<QtThemeFileAccess> m_files;
    QPointer<QTabWidget> m_tabs;
};
