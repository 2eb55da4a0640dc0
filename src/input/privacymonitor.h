// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/clock.h"

#include <QObject>

#include <memory>

class RecordingSource;

/**
 * Watches whether a screen recording is running, so that the keyboard can appear when one starts and go when it
 * ends (what to do is the caller's choice). There is no notification for this, so the watcher asks its
 * RecordingSource once at start() and every two seconds from then on.
 *
 * screenRecordingActive is exactly the answer of the latest poll: no smoothing, no delay beyond the poll interval.
 * Every failure of the source, including an exception, reads as no recording.
 *
 * Main thread only. The clock must outlive the watcher.
 */
class PrivacyMonitor final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool screenRecordingActive READ screenRecordingActive NOTIFY screenRecordingActiveChanged)

public:
    static constexpr double pollInterval = 2.0;

    /** A null `source` never reports a recording. */
    PrivacyMonitor(Clock& clock, std::unique_ptr<RecordingSource> source, QObject* parent = nullptr);
    ~PrivacyMonitor() override;

    bool screenRecordingActive() const { return m_screenRecordingActive; }
    bool isRunning() const { return m_pollJob != 0; }

    /** Polls at once, then every pollInterval seconds. No effect while running. */
    void start();
    /** Ends the polling; screenRecordingActive keeps the answer of the last poll. */
    void stop();

    /** One poll; also used by start() and the repeating job. */
    void pollScreenRecording();

signals:
    /** Only when the value changes. */
    void screenRecordingActiveChanged(bool active);

private:
    void scheduleNextPoll();

    Clock& m_clock;
    std::unique_ptr<RecordingSource> m_source;
    Clock::JobHandle m_pollJob = 0;
    bool m_screenRecordingActive = false;
};
