// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/application.h"

#include "app/clock.h"
#include "app/settingkeys.h"
#include "app/settingsstore.h"
#include "app/unixsignalwatcher.h"
#include "input/hotkeymanager.h"
#include "input/inputbackend.h"
#include "input/inputbackendfactory.h"
#include "input/keyboardmonitor.h"
#include "panel/keyboardpanel.h"

#include <QCoreApplication>
#include <QTimer>

#include <cstdio>

Application::Application(const QString& settingsPath, QObject* parent)
    : QObject(parent)
    , m_signals(new UnixSignalWatcher(this))
    , m_settings(std::make_unique<SettingsStore>(settingsPath.isEmpty() ? SettingsStore::defaultFilePath() : settingsPath))
    , m_clock(std::make_unique<SystemClock>())
    , m_backend(createInputBackend())
    , m_monitor(new KeyboardMonitor(*m_settings, *m_clock, this))
    , m_hotkeys(new HotkeyManager(*m_monitor, *m_settings, *m_clock, this))
    , m_accessPoll(new QTimer(this))
{
    connect(m_signals, &UnixSignalWatcher::terminationRequested, this, &Application::quit);
    KeyboardMonitor::setShared(m_monitor);
    HotkeyManager::setShared(m_hotkeys);
    m_monitor->attach(m_backend.get());

    m_hotkeys->setOnTripleTap([this] { toggleKeyboard(); });
    m_hotkeys->setOnSingleTapWhileHovering([this] { onSingleTapWhileHovering(); });
    m_hotkeys->setOnEscapeWhileHovering([this] { hideKeyboard(); });
    m_hotkeys->setOnSettingsHotkey([this] { openSettings(); });
    m_hotkeys->setPanelHoveredPredicate([this] { return m_panel && m_panel->isHovering(); });

    m_accessPoll->setInterval(2000);
    connect(m_accessPoll, &QTimer::timeout, this, &Application::startInputWhenPermitted);
    startInputWhenPermitted();

    if (m_settings->value(SettingKeys::keyboardVisible()))
        showKeyboard();
}

Application::~Application()
{
    // Hooks and the back end go first, while the monitor and the clock they refer to still exist.
    m_accessPoll->stop();
    m_hotkeys->stop();
    m_monitor->stop();
    m_monitor->attach(nullptr);
    HotkeyManager::setShared(nullptr);
    KeyboardMonitor::setShared(nullptr);
    m_panel.reset();
}

bool Application::isVisible() const
{
    return m_panel && m_panel->isVisible();
}

void Application::showKeyboard()
{
    if (!m_panel)
        m_panel = std::make_unique<KeyboardPanel>(*m_settings, *m_clock, m_monitor, this);
    m_panel->show();
    m_panel->raise();
    m_panel->setShownAt(m_clock->now());
    m_settings->setValue(SettingKeys::keyboardVisible(), true);
}

void Application::hideKeyboard()
{
    if (m_panel)
        m_panel->hide();
    m_settings->setValue(SettingKeys::keyboardVisible(), false);
}

void Application::toggleKeyboard()
{
    if (isVisible())
        hideKeyboard();
    else
        showKeyboard();
}

void Application::openSettings() { }

void Application::onSingleTapWhileHovering()
{
    // A tap that belongs to the gesture that just showed the panel must not switch auto-hide as well.
    if (m_panel && m_clock->now() - m_panel->shownAt() > 1.0)
        m_panel->toggleAutoHide();
}

void Application::startInputWhenPermitted()
{
    if (m_inputStarted || !m_backend)
        return;
    const InputBackend::Access access = m_backend->access();
    if (access == InputBackend::Access::granted && m_monitor->start()) {
        m_hotkeys->start();
        m_inputStarted = true;
        m_accessPoll->stop();
        return;
    }
    if (access == InputBackend::Access::denied && !m_accessHelpShown) {
        m_accessHelpShown = true;
        std::fprintf(stderr, "Ordalis cannot read the keyboard yet.\n%s\n", qPrintable(m_backend->accessHelp()));
    }
    if (access != InputBackend::Access::unavailable && !m_accessPoll->isActive())
        m_accessPoll->start();
}

void Application::quit()
{
    QCoreApplication::exit(0);
}
