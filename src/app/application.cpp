// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/application.h"

#include "app/appdelegate.h"
#include "app/clock.h"
#include "app/recordingsources.h"
#include "app/settingsstore.h"
#include "app/unixsignalwatcher.h"
#include "input/inputbackend.h"
#include "input/inputbackendfactory.h"

#include <QCoreApplication>

Application::Application(const QString& settingsPath, QObject* parent)
    : QObject(parent)
    , m_signals(new UnixSignalWatcher(this))
    , m_settings(std::make_unique<SettingsStore>(settingsPath.isEmpty() ? SettingsStore::defaultFilePath() : settingsPath))
    , m_clock(std::make_unique<SystemClock>())
    , m_backend(createInputBackend())
{
    connect(m_signals, &UnixSignalWatcher::terminationRequested, this, &Application::quit);
    AppDelegate::Environment environment;
    environment.backend = m_backend.get();
    environment.recordingSource = makeSystemRecordingSource();
    m_delegate = std::make_unique<AppDelegate>(*m_settings, *m_clock, std::move(environment));
    m_delegate->start();
}

Application::~Application()
{
    m_delegate->shutdown();
    m_delegate.reset();
}

void Application::quit()
{
    QCoreApplication::exit(0);
}
