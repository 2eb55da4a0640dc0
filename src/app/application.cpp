// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/application.h"

#include "app/settingkeys.h"
#include "app/settingsstore.h"
#include "app/unixsignalwatcher.h"

#include <QCoreApplication>

Application::Application(const QString& settingsPath, QObject* parent)
    : QObject(parent)
    , m_signals(new UnixSignalWatcher(this))
    , m_settings(std::make_unique<SettingsStore>(settingsPath.isEmpty() ? SettingsStore::defaultFilePath() : settingsPath))
{
    connect(m_signals, &UnixSignalWatcher::terminationRequested, this, &Application::quit);
}

Application::~Application() = default;

void Application::quit()
{
    QCoreApplication::exit(0);
}
