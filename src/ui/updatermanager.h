// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/clock.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

class QNetworkAccessManager;
class QNetworkReply;
class SettingsStore;

/** How often automatic update checks run. The raw value is the interval in seconds. */
enum class UpdateCheckInterval : qint64 {
    daily = 86400,
    every3Days = 259200,
    weekly = 604800,
};

namespace UpdateCheckIntervals {

/** Every case in declaration order, the order of the picker. */
const QList<UpdateCheckInterval>& all();

/** The interval in seconds, as stored: 86400.0, 259200.0 or 604800.0. */
double seconds(UpdateCheckInterval interval);

/** "Daily", "Every 3 days" or "Weekly". */
QString label(UpdateCheckInterval interval);

/** Whole seconds (truncated) of 86400 and 259200 read as their case; every other value reads as weekly. */
UpdateCheckInterval fromSeconds(double seconds);

} // namespace UpdateCheckIntervals

/** What an UpdaterManager needs from the world besides settings and time; tests replace it. */
struct UpdaterEnvironment
{
    /** Where the feed is fetched; unset means AppConfig::updateFeedUrl(). Without a feed nothing is ever fetched. */
    std::optional<QUrl> feedUrl;
    /** The running version; empty means QCoreApplication::applicationVersion(). */
    QString currentVersion;
    /** Seconds since 1970-01-01 UTC, for the last check time kept across restarts; unset means the system's. */
    std::function<double()> wallClock;
};

/**
 * The updater: fetches the update feed, compares its version with the running one and reports the outcome. The
 * caller decides what to show; every outcome says whether the user asked for the check, so that an automatic check
 * bothers nobody unless it found a newer version. It also runs the automatic checks, off until the user turns them on.
 *
 * Automatic checks and their interval live in their own settings, followed as they change. The start of every
 * check, automatic or not, is kept in "lastUpdateCheckTime", and the next automatic check falls one interval after
 * it, so a restart does not check again early. A check is bounded: it fails after checkTimeout seconds, and a
 * feed larger than maxFeedSize is dropped unread.
 *
 * Main thread only.
 */
class UpdaterManager final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(UpdaterManager)

public:
    /** Seconds a check may take from request to last byte. */
    static constexpr double checkTimeout = 15.0;
    /** Bytes a feed may have. */
    static constexpr qint64 maxFeedSize = 64 * 1024;

    /** `settings` and `clock` must outlive the manager. An automatic check due already runs on the next turn. */
    UpdaterManager(
        SettingsStore& settings, Clock& clock, UpdaterEnvironment environment = {}, QObject* parent = nullptr);
    ~UpdaterManager() override;

    /**
     * Starts a check, unless one is running: then the running one counts as asked by the user if this is.
     * Exactly one of updateAvailable(), upToDate() and failed() follows, never before this returns. Without a feed
     * nothing is fetched and failed() follows.
     */
    void checkForUpdates(bool userInitiated);
    bool isChecking() const;

    bool automaticallyChecksForUpdates() const;
    void setAutomaticallyChecksForUpdates(bool enabled);
    UpdateCheckInterval updateCheckInterval() const;
    void setUpdateCheckInterval(UpdateCheckInterval interval);

    /** Clock seconds at which the next automatic check runs; none while automatic checks are off or without a feed. */
    std::optional<double> nextAutomaticCheck() const;

    QUrl feedUrl() const { return m_feedUrl; }
    QString currentVersion() const { return m_currentVersion; }

signals:
    /** The feed names a version newer than the running one. */
    void updateAvailable(const QString& version, const QUrl& notes, const QUrl& download, bool userInitiated);
    /** The feed's version is the running one or older. */
    void upToDate(bool userInitiated);
    /** The check did not come to an answer; `message` is a sentence for the user. */
    void failed(const QString& message, bool userInitiated);

private:
    /** Plans the next automatic check from the last check's start, when automatic checks are on. */
    void scheduleAutomaticCheck();
    void planAutomaticCheck(double delay);
    void readBody();
    void onFinished();
    /** Drops the running check and its timeout; gives whether the user asked for it. */
    bool endCheck();
    void fail(const QString& message);
    void report(const QByteArray& feed, bool userInitiated);

    SettingsStore& m_settings;
    Clock& m_clock;
    QUrl m_feedUrl;
    QString m_currentVersion;
    std::function<double()> m_wallClock;
    std::unique_ptr<QNetworkAccessManager> m_network;

    QPointer<QNetworkReply> m_reply;
    QByteArray m_body;
    bool m_userInitiated = false;
    Clock::JobHandle m_timeoutJob = 0;
    Clock::JobHandle m_automaticJob = 0;
    double m_automaticDue = 0.0;
};
