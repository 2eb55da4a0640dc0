// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/application.h"

#include "app/appdelegate.h"
#include "base/clock.h"
#include "app/dbusservice.h"
#include "input/recordingsources.h"
#include "app/remotecontrol.h"
#include "base/settingsstore.h"
#include "app/unixsignalwatcher.h"
#include "input/inputbackend.h"
#include "input/inputbackendfactory.h"
#include "input/keyboardlayoutsource.h"
#include "input/privatemoments.h"

#include <QCoreApplication>
#include <QDBusConnection>

#include <cstdio>

Application::Application(const Options& options, QObject* parent)
    : QObject(parent)
    , m_signals(new UnixSignalWatcher(this))
    , m_settings(std::make_unique<SettingsStore>(
          options.settingsPath.isEmpty() ? SettingsStore::defaultFilePath() : options.settingsPath))
    , m_clock(std::make_unique<SystemClock>())
    , m_backend(createInputBackend())
{
    connect(m_signals, &UnixSignalWatcher::terminationRequested, this, &Application::quit);
    AppDelegate::Environment environment;
    environment.backend = m_backend.get();
    environment.recordingSource = makeSystemRecordingSource();
    environment.layoutSource = createKeyboardLayoutSource(isWaylandSession());
    environment.privateMoments = std::make_unique<PrivateMomentWatcher>(*m_settings);
    m_delegate = std::make_unique<AppDelegate>(*m_settings, *m_clock, std::move(environment));
    m_control = std::make_unique<RemoteControl>(*m_delegate, *m_settings);
    connect(m_delegate.get(), &AppDelegate::visibleChanged, m_control.get(), &RemoteControl::visibleChanged);
    connect(m_delegate.get(), &AppDelegate::pausedChanged, m_control.get(), &RemoteControl::pausedChanged);
    connect(m_delegate.get(), &AppDelegate::keySourceChanged, m_control.get(),
        [control = m_control.get()](InputBackend::Source source) {
            emit control->keySourceChanged(InputBackend::sourceName(source));
        });

    // Before the start, so that the keyboard is laid out for that theme from its first frame.
    if (options.themeName) {
        if (const std::optional<QString> error = m_control->chooseTheme(*options.themeName))
            std::fprintf(stderr, "Ordalis: %s\n", qPrintable(*error));
    }
    m_delegate->start();
    if (options.showKeyboard && !m_delegate->isVisible())
        m_delegate->showKeyboard();
    if (options.openSettings)
        m_delegate->openSettings();

    if (options.offerDBus) {
        m_dbus = std::make_unique<DBusService>(*m_control);
        // Without a session bus (a bare X server, a container) Ordalis simply goes without; that is no news.
        const QDBusConnection bus = QDBusConnection::sessionBus();
        if (bus.isConnected() && !m_dbus->registerOn(bus))
            std::fprintf(stderr, "Ordalis: %s; D-Bus control is off.\n", qPrintable(m_dbus->errorText()));
    }
}

Application::Application(const QString& settingsPath, QObject* parent)
    : Application(Options { settingsPath, {}, false, false, true }, parent)
{
}

Application::~Application()
{
    m_dbus.reset();
    m_delegate->shutdown();
    m_control.reset();
    m_delegate.reset();
}

void Application::quit()
{
    QCoreApplication::exit(0);
}
