// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/privatemoments.h"

#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "input/privatex11windows.h"

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QDBusVariant>

#include <algorithm>
#include <functional>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int callTimeoutMs = 500;

const QString dbusService = u"org.freedesktop.DBus"_s;
const QString dbusPath = u"/org/freedesktop/DBus"_s;
const QString propertiesInterface = u"org.freedesktop.DBus.Properties"_s;
const QString login1Service = u"org.freedesktop.login1"_s;
const QString login1Path = u"/org/freedesktop/login1"_s;
const QString login1Manager = u"org.freedesktop.login1.Manager"_s;
const QString login1Session = u"org.freedesktop.login1.Session"_s;
const QString lockedHint = u"LockedHint"_s;

struct ScreenSaverObject
{
    QString service;
    QString path;
    QString interface;
};

/** Plasma and most others answer on both freedesktop paths; GNOME Shell keeps its own name. */
const std::array<ScreenSaverObject, 3> screenSaverObjects { {
    { u"org.freedesktop.ScreenSaver"_s, u"/org/freedesktop/ScreenSaver"_s, u"org.freedesktop.ScreenSaver"_s },
    { u"org.freedesktop.ScreenSaver"_s, u"/ScreenSaver"_s, u"org.freedesktop.ScreenSaver"_s },
    { u"org.gnome.ScreenSaver"_s, u"/org/gnome/ScreenSaver"_s, u"org.gnome.ScreenSaver"_s },
} };

/**
 * gcr-prompter owns one of these while it runs, on Wayland as well: it is started for a keyring or GnuPG prompt and
 * quits a little while after the last one, so the pause may outlast the prompt by those seconds.
 */
const QStringList prompterNames { u"org.gnome.keyring.SystemPrompter"_s, u"org.gnome.keyring.PrivatePrompter"_s };

bool isPromptName(QStringView name)
{
    static const QStringList exact {
        u"lxpolkit"_s,
        u"xfce-polkit"_s,
        u"gcr-prompter"_s,
        u"ksshaskpass"_s,
    };
    const QString lower = name.toString().toLower();
    if (lower.isEmpty())
        return false;
    // polkit-{gnome,kde,mate}-authentication-agent-1, lxqt-policykit-agent, hyprpolkitagent and the like.
    const bool polkitAgent
        = (lower.contains("polkit"_L1) || lower.contains("policykit"_L1)) && lower.contains("agent"_L1);
    // pinentry-gtk-2, pinentry-qt, org.gnupg.pinentry-qt; ssh-askpass, x11-, gnome-, seahorse-, lxqt-openssh-askpass.
    return polkitAgent || exact.contains(lower) || lower.contains("pinentry"_L1) || lower.endsWith("ssh-askpass"_L1);
}

} // namespace

namespace PrivateMoments {

bool isPasswordPrompt(QStringView instance, QStringView windowClass)
{
    return isPromptName(instance) || isPromptName(windowClass);
}

QString privateAppMatch(const QStringList& appClasses, QStringView instance, QStringView windowClass)
{
    const qsizetype count = std::min(appClasses.size(), maxAppClasses);
    for (qsizetype i = 0; i < count; ++i) {
        const QString entry = appClasses.at(i).trimmed();
        if (entry.isEmpty() || entry.size() > maxAppClassLength)
            continue;
        if (entry.compare(instance, Qt::CaseInsensitive) == 0 || entry.compare(windowClass, Qt::CaseInsensitive) == 0)
            return entry;
    }
    return {};
}

} // namespace PrivateMoments

PrivateMomentWatcher::PrivateMomentWatcher(SettingsStore& settings, Connections connections, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_systemBus(connections.systemBus.value_or(QDBusConnection::systemBus()))
    , m_sessionBus(connections.sessionBus.value_or(QDBusConnection::sessionBus()))
    , m_useX11(connections.useX11)
{
    const auto settingChanged = [this](const auto&) { update(); };
    settings.bind(SettingKeys::pauseWhenLocked(), this, settingChanged);
    settings.bind(SettingKeys::pauseForPasswordPrompts(), this, settingChanged);
    settings.bind(SettingKeys::pauseForPrivateApps(), this, settingChanged);
    settings.bind(SettingKeys::privateAppClasses(), this, settingChanged);
}

PrivateMomentWatcher::~PrivateMomentWatcher() = default;

void PrivateMomentWatcher::start()
{
    if (m_started)
        return;
    m_started = true;
    if (m_systemBus.isConnected())
        watchLogind();
    if (m_sessionBus.isConnected()) {
        watchScreenSavers();
        watchPrompters();
    }
    if (m_useX11 && !qEnvironmentVariableIsEmpty("DISPLAY")) {
        m_x11 = PrivateX11Windows::create();
        if (m_x11)
            connect(m_x11.get(), &PrivateX11Windows::changed, this, &PrivateMomentWatcher::update);
    }
    update();
}

// logind -----------------------------------------------------------------------------------------------------------

void PrivateMomentWatcher::watchLogind()
{
    auto* watcher = new QDBusServiceWatcher(login1Service, m_systemBus,
        QDBusServiceWatcher::WatchForRegistration | QDBusServiceWatcher::WatchForUnregistration, this);
    connect(watcher, &QDBusServiceWatcher::serviceRegistered, this, &PrivateMomentWatcher::lookUpSession);
    connect(watcher, &QDBusServiceWatcher::serviceUnregistered, this, [this] {
        forgetSession();
        ++m_lockNews[logindSource];
        setLocked(logindSource, false);
    });
    lookUpSession();
}

void PrivateMomentWatcher::lookUpSession()
{
    const quint64 generation = ++m_lockNews[logindSource];
    QDBusMessage call = QDBusMessage::createMethodCall(login1Service, login1Path, login1Manager, u"GetSessionByPID"_s);
    call.setArguments({ uint(::getpid()) });
    auto* watcher = new QDBusPendingCallWatcher(m_systemBus.asyncCall(call, callTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
        [this, generation](QDBusPendingCallWatcher* w) { onSessionReply(w, generation, true); });
}

void PrivateMomentWatcher::onSessionReply(QDBusPendingCallWatcher* watcher, quint64 generation, bool byPid)
{
    watcher->deleteLater();
    if (generation != m_lockNews[logindSource])
        return;
    const QDBusMessage reply = watcher->reply();
    if (reply.type() == QDBusMessage::ReplyMessage && reply.signature() == "o"_L1) {
        followSession(reply.arguments().constFirst().value<QDBusObjectPath>().path());
        return;
    }
    // A process started by the user's service manager is in no session; the one it was started for still counts.
    const QString sessionId = qEnvironmentVariable("XDG_SESSION_ID");
    if (!byPid || sessionId.isEmpty())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(login1Service, login1Path, login1Manager, u"GetSession"_s);
    call.setArguments({ sessionId });
    auto* next = new QDBusPendingCallWatcher(m_systemBus.asyncCall(call, callTimeoutMs), this);
    connect(next, &QDBusPendingCallWatcher::finished, this,
        [this, generation](QDBusPendingCallWatcher* w) { onSessionReply(w, generation, false); });
}

void PrivateMomentWatcher::followSession(const QString& path)
{
    forgetSession();
    m_sessionPath = path;
    // Signals whose arguments are of other types match no slot and are dropped by Qt.
    m_systemBus.connect(login1Service, m_sessionPath, propertiesInterface, u"PropertiesChanged"_s, this,
        SLOT(onSessionPropertiesChanged(QString, QVariantMap, QStringList)));
    requestLockedHint();
}

void PrivateMomentWatcher::forgetSession()
{
    if (m_sessionPath.isEmpty())
        return;
    m_systemBus.disconnect(login1Service, m_sessionPath, propertiesInterface, u"PropertiesChanged"_s, this,
        SLOT(onSessionPropertiesChanged(QString, QVariantMap, QStringList)));
    m_sessionPath.clear();
}

void PrivateMomentWatcher::requestLockedHint()
{
    const quint64 generation = ++m_lockNews[logindSource];
    QDBusMessage call = QDBusMessage::createMethodCall(login1Service, m_sessionPath, propertiesInterface, u"Get"_s);
    call.setArguments({ login1Session, lockedHint });
    auto* watcher = new QDBusPendingCallWatcher(m_systemBus.asyncCall(call, callTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, generation](QDBusPendingCallWatcher* w) {
        w->deleteLater();
        const QDBusMessage reply = w->reply();
        if (generation != m_lockNews[logindSource] || reply.type() != QDBusMessage::ReplyMessage
            || reply.signature() != "v"_L1)
            return;
        const QVariant value = reply.arguments().constFirst().value<QDBusVariant>().variant();
        if (value.typeId() == QMetaType::Bool)
            setLocked(logindSource, value.toBool());
    });
}

void PrivateMomentWatcher::onSessionPropertiesChanged(
    const QString& interface, const QVariantMap& changedProperties, const QStringList& invalidated)
{
    if (interface != login1Session)
        return;
    const auto found = changedProperties.constFind(lockedHint);
    if (found != changedProperties.constEnd() && found->typeId() == QMetaType::Bool) {
        ++m_lockNews[logindSource];
        setLocked(logindSource, found->toBool());
    } else if (invalidated.contains(lockedHint)) {
        requestLockedHint();
    }
}

// Screen savers ----------------------------------------------------------------------------------------------------

void PrivateMomentWatcher::watchScreenSavers()
{
    for (const ScreenSaverObject& object : screenSaverObjects) {
        m_sessionBus.connect(object.service, object.path, object.interface, u"ActiveChanged"_s, this,
            SLOT(onScreenSaverActiveChanged(bool, QDBusMessage)));
    }
    const QStringList services { screenSaverObjects[0].service, screenSaverObjects[2].service };
    auto* watcher = new QDBusServiceWatcher(this);
    watcher->setConnection(m_sessionBus);
    watcher->setWatchMode(QDBusServiceWatcher::WatchForRegistration | QDBusServiceWatcher::WatchForUnregistration);
    watcher->setWatchedServices(services);
    const auto forEachObjectOf = [](const QString& service, const auto& action) {
        for (std::size_t i = 0; i < screenSaverObjects.size(); ++i) {
            if (screenSaverObjects[i].service == service)
                action(int(i) + 1);
        }
    };
    connect(watcher, &QDBusServiceWatcher::serviceRegistered, this, [this, forEachObjectOf](const QString& service) {
        forEachObjectOf(service, [this](int source) { requestScreenSaverActive(source); });
    });
    connect(watcher, &QDBusServiceWatcher::serviceUnregistered, this, [this, forEachObjectOf](const QString& service) {
        forEachObjectOf(service, [this](int source) {
            ++m_lockNews[source];
            setLocked(source, false);
        });
    });
    for (int source = 1; source < lockSourceCount; ++source)
        requestScreenSaverActive(source);
}

void PrivateMomentWatcher::requestScreenSaverActive(int source)
{
    const ScreenSaverObject& object = screenSaverObjects[std::size_t(source - 1)];
    const quint64 generation = ++m_lockNews[source];
    const QDBusMessage call
        = QDBusMessage::createMethodCall(object.service, object.path, object.interface, u"GetActive"_s);
    auto* watcher = new QDBusPendingCallWatcher(m_sessionBus.asyncCall(call, callTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, source, generation](QDBusPendingCallWatcher* w) {
        w->deleteLater();
        const QDBusMessage reply = w->reply();
        if (generation == m_lockNews[source] && reply.type() == QDBusMessage::ReplyMessage
            && reply.signature() == "b"_L1)
            setLocked(source, reply.arguments().constFirst().toBool());
    });
}

void PrivateMomentWatcher::onScreenSaverActiveChanged(bool active, const QDBusMessage& message)
{
    for (std::size_t i = 0; i < screenSaverObjects.size(); ++i) {
        if (screenSaverObjects[i].path == message.path() && screenSaverObjects[i].interface == message.interface()) {
            const int source = int(i) + 1;
            ++m_lockNews[source];
            setLocked(source, active);
        }
    }
}

// Keyring prompter -------------------------------------------------------------------------------------------------

void PrivateMomentWatcher::watchPrompters()
{
    auto* watcher = new QDBusServiceWatcher(this);
    watcher->setConnection(m_sessionBus);
    watcher->setWatchMode(QDBusServiceWatcher::WatchForOwnerChange);
    watcher->setWatchedServices(prompterNames);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
        [this](const QString& name, const QString&, const QString& newOwner) {
            ++m_prompterNews[name];
            m_prompterOwned[name] = !newOwner.isEmpty();
            update();
        });
    for (const QString& name : prompterNames) {
        const quint64 generation = ++m_prompterNews[name];
        QDBusMessage call = QDBusMessage::createMethodCall(dbusService, dbusPath, dbusService, u"NameHasOwner"_s);
        call.setArguments({ name });
        auto* pending = new QDBusPendingCallWatcher(m_sessionBus.asyncCall(call, callTimeoutMs), this);
        connect(
            pending, &QDBusPendingCallWatcher::finished, this, [this, name, generation](QDBusPendingCallWatcher* w) {
                w->deleteLater();
                const QDBusMessage reply = w->reply();
                if (generation != m_prompterNews[name] || reply.type() != QDBusMessage::ReplyMessage
                    || reply.signature() != "b"_L1)
                    return;
                m_prompterOwned[name] = reply.arguments().constFirst().toBool();
                update();
            });
    }
}

// Result -----------------------------------------------------------------------------------------------------------

void PrivateMomentWatcher::setLocked(int source, bool locked)
{
    m_locked[std::size_t(source)] = locked;
    update();
}

void PrivateMomentWatcher::update()
{
    quint8 active = 0;
    QStringList reasons;
    if (m_settings.value(SettingKeys::pauseWhenLocked()) && std::ranges::any_of(m_locked, std::identity())) {
        active |= quint8(PrivateMoment::screenLocked);
        reasons.append(u"screen locked"_s);
    }
    const bool prompterShown = std::ranges::any_of(m_prompterOwned, std::identity());
    if (m_settings.value(SettingKeys::pauseForPasswordPrompts()) && (prompterShown || (m_x11 && m_x11->promptOpen()))) {
        active |= quint8(PrivateMoment::passwordPrompt);
        reasons.append(u"password prompt open"_s);
    }
    if (m_x11 && m_settings.value(SettingKeys::pauseForPrivateApps())) {
        const PrivateX11Windows::WindowClass focused = m_x11->activeClass();
        const QString app = PrivateMoments::privateAppMatch(
            m_settings.value(SettingKeys::privateAppClasses()), focused.instance, focused.windowClass);
        if (!app.isEmpty()) {
            active |= quint8(PrivateMoment::privateApp);
            reasons.append(u"%1 has the focus"_s.arg(app));
        }
    }
    if (active == m_active && reasons == m_reasons)
        return;
    m_active = active;
    m_reasons = std::move(reasons);
    emit changed();
}
