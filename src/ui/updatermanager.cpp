// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/updatermanager.h"

#include "ui/appconfig.h"
#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "ui/updaterfeed.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

#include <algorithm>
#include <cmath>
#include <utility>

using namespace Qt::StringLiterals;

namespace UpdateCheckIntervals {

const QList<UpdateCheckInterval>& all()
{
    static const QList<UpdateCheckInterval> cases {
        UpdateCheckInterval::daily,
        UpdateCheckInterval::every3Days,
        UpdateCheckInterval::weekly,
    };
    return cases;
}

double seconds(UpdateCheckInterval interval)
{
    return double(qint64(interval));
}

QString label(UpdateCheckInterval interval)
{
    switch (interval) {
    case UpdateCheckInterval::daily:
        return u"Daily"_s;
    case UpdateCheckInterval::every3Days:
        return u"Every 3 days"_s;
    case UpdateCheckInterval::weekly:
        break;
    }
    return u"Weekly"_s;
}

UpdateCheckInterval fromSeconds(double seconds)
{
    // Checked before truncating: converting a value beyond 64 bits to an integer is undefined.
    if (!std::isfinite(seconds) || std::abs(seconds) > 1e15)
        return UpdateCheckInterval::weekly;
    switch (qint64(seconds)) {
    case qint64(UpdateCheckInterval::daily):
        return UpdateCheckInterval::daily;
    case qint64(UpdateCheckInterval::every3Days):
        return UpdateCheckInterval::every3Days;
    default:
        return UpdateCheckInterval::weekly;
    }
}

} // namespace UpdateCheckIntervals

namespace {

QString timedOutMessage()
{
    return u"The update server did not answer in time."_s;
}

QString unreachableMessage()
{
    return u"The update server could not be reached."_s;
}

QString tooLargeMessage()
{
    return u"The update information is too large."_s;
}

QString unreadableMessage()
{
    return u"The update information could not be read."_s;
}

QString noFeedMessage()
{
    return u"This copy of Ordalis is updated by its package manager."_s;
}

QString unknownVersionMessage()
{
    return u"The version of this copy of Ordalis is unknown."_s;
}

} // namespace

UpdaterManager::UpdaterManager(SettingsStore& settings, Clock& clock, UpdaterEnvironment environment, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_clock(clock)
    , m_feedUrl(environment.feedUrl.value_or(AppConfig::updateFeedUrl()))
    , m_currentVersion(
          environment.currentVersion.isEmpty() ? QCoreApplication::applicationVersion() : environment.currentVersion)
    , m_wallClock(environment.wallClock ? std::move(environment.wallClock)
                                        : [] { return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0; })
    , m_network(std::make_unique<QNetworkAccessManager>())
{
    m_settings.bind(SettingKeys::automaticallyChecksForUpdates(), this, [this](bool) { scheduleAutomaticCheck(); });
    m_settings.bind(SettingKeys::updateCheckInterval(), this, [this](double) { scheduleAutomaticCheck(); });
    scheduleAutomaticCheck();
}

UpdaterManager::~UpdaterManager()
{
    endCheck();
    m_clock.cancel(m_automaticJob);
}

void UpdaterManager::checkForUpdates(bool userInitiated)
{
    if (m_reply) {
        m_userInitiated = m_userInitiated || userInitiated;
        return;
    }
    if (m_feedUrl.isEmpty()) {
        QMetaObject::invokeMethod(
            this, [this, userInitiated] { emit failed(noFeedMessage(), userInitiated); }, Qt::QueuedConnection);
        return;
    }
    m_userInitiated = userInitiated;
    m_body.clear();
    m_settings.setValue(SettingKeys::lastUpdateCheckTime(), std::optional<double>(m_wallClock()));
    scheduleAutomaticCheck();

    QNetworkRequest request(m_feedUrl);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setHeader(QNetworkRequest::UserAgentHeader, QString(u"Ordalis/"_s + m_currentVersion));
    request.setRawHeader("Accept", "application/json");
    // Errors, even for an address that cannot be fetched at all, arrive through finished on a later turn.
    QNetworkReply* reply = m_network->get(request);
    m_reply = reply;
    connect(reply, &QNetworkReply::metaDataChanged, this, &UpdaterManager::readBody);
    connect(reply, &QNetworkReply::readyRead, this, &UpdaterManager::readBody);
    connect(reply, &QNetworkReply::finished, this, &UpdaterManager::onFinished);
    m_timeoutJob = m_clock.schedule(checkTimeout, this, [this] {
        m_timeoutJob = 0;
        fail(timedOutMessage());
    });
}

bool UpdaterManager::isChecking() const
{
    return m_reply != nullptr;
}

bool UpdaterManager::automaticallyChecksForUpdates() const
{
    return m_settings.value(SettingKeys::automaticallyChecksForUpdates());
}

void UpdaterManager::setAutomaticallyChecksForUpdates(bool enabled)
{
    m_settings.setValue(SettingKeys::automaticallyChecksForUpdates(), enabled);
}

UpdateCheckInterval UpdaterManager::updateCheckInterval() const
{
    return UpdateCheckIntervals::fromSeconds(m_settings.value(SettingKeys::updateCheckInterval()));
}

void UpdaterManager::setUpdateCheckInterval(UpdateCheckInterval interval)
{
    m_settings.setValue(SettingKeys::updateCheckInterval(), UpdateCheckIntervals::seconds(interval));
}

std::optional<double> UpdaterManager::nextAutomaticCheck() const
{
    if (!m_automaticJob)
        return std::nullopt;
    return m_automaticDue;
}

void UpdaterManager::scheduleAutomaticCheck()
{
    m_clock.cancel(m_automaticJob);
    m_automaticJob = 0;
    if (!automaticallyChecksForUpdates() || m_feedUrl.isEmpty())
        return;

    const double interval = UpdateCheckIntervals::seconds(updateCheckInterval());
    double delay = 0.0;
    // A last check that lies ahead means the system clock was set back: wait one interval, not longer.
    if (const std::optional<double> last = m_settings.value(SettingKeys::lastUpdateCheckTime()))
        delay = std::clamp(*last + interval - m_wallClock(), 0.0, interval);
    planAutomaticCheck(delay);
}

void UpdaterManager::planAutomaticCheck(double delay)
{
    m_automaticDue = m_clock.now() + delay;
    m_automaticJob = m_clock.schedule(delay, this, [this] {
        m_automaticJob = 0;
        if (!isChecking()) {
            checkForUpdates(false);
            return;
        }
        // The running check stands for this one. Planned from now rather than from its start, so that a system
        // clock that jumped ahead cannot make this job fall due again at once, and again.
        planAutomaticCheck(UpdateCheckIntervals::seconds(updateCheckInterval()));
    });
}

void UpdaterManager::readBody()
{
    if (!m_reply)
        return;
    const QVariant announced = m_reply->header(QNetworkRequest::ContentLengthHeader);
    if (announced.isValid() && announced.toLongLong() > maxFeedSize) {
        fail(tooLargeMessage());
        return;
    }
    // One byte more than allowed is enough to know the feed is too large; the rest is never read.
    m_body += m_reply->read(maxFeedSize + 1 - m_body.size());
    if (m_body.size() > maxFeedSize)
        fail(tooLargeMessage());
}

void UpdaterManager::onFinished()
{
    readBody();
    if (!m_reply)
        return;
    if (m_reply->error() != QNetworkReply::NoError) {
        fail(unreachableMessage());
        return;
    }
    const QByteArray feed = std::exchange(m_body, {});
    const bool userInitiated = endCheck();
    report(feed, userInitiated);
}

bool UpdaterManager::endCheck()
{
    m_clock.cancel(m_timeoutJob);
    m_timeoutJob = 0;
    if (QNetworkReply* reply = m_reply.data()) {
        m_reply = nullptr;
        reply->disconnect(this);
        if (reply->isRunning())
            reply->abort();
        reply->deleteLater();
    }
    m_body.clear();
    return std::exchange(m_userInitiated, false);
}

void UpdaterManager::fail(const QString& message)
{
    const bool userInitiated = endCheck();
    emit failed(message, userInitiated);
}

void UpdaterManager::report(const QByteArray& feed, bool userInitiated)
{
    const std::optional<QList<quint64>> current = UpdaterVersions::parse(m_currentVersion);
    if (!current) {
        emit failed(unknownVersionMessage(), userInitiated);
        return;
    }
    const std::optional<UpdaterFeedEntry> entry = UpdaterFeedEntry::fromJson(feed);
    if (!entry) {
        emit failed(unreadableMessage(), userInitiated);
        return;
    }
    if (UpdaterVersions::compare(*UpdaterVersions::parse(entry->version), *current) > 0)
        emit updateAvailable(entry->version, entry->notes, entry->download, userInitiated);
    else
        emit upToDate(userInitiated);
}
