// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QPointer>

#include <cstdint>
#include <functional>
#include <vector>

class QTimer;

/**
 * Time as the program's logic sees it: a monotonic reading in seconds and single-shot delayed jobs that can be
 * cancelled. Everything that waits or measures intervals goes through a Clock, so tests can drive time by hand.
 *
 * Main thread only. A job is tied to a context object and never runs once that object is gone.
 */
class Clock
{
public:
    /** Identifies a scheduled job; 0 is never a job, so it can mean "none". */
    using JobHandle = std::uint64_t;

    Clock() = default;
    virtual ~Clock() = default;
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;

    /** Monotonic seconds since an arbitrary start; never goes backwards. */
    virtual double now() const = 0;

    /**
     * Runs `job` once, `seconds` from now (at once on the next turn for 0 or less), unless it is cancelled or
     * `context` has been destroyed by then. A null `context` ties the job to nothing but the clock itself.
     */
    virtual JobHandle schedule(double seconds, QObject* context, std::function<void()> job) = 0;

    /** Drops a pending job. Handles of jobs that already ran or were cancelled, and 0, are ignored. */
    virtual void cancel(JobHandle handle) = 0;
};

/**
 * Real time: QElapsedTimer for readings, one precise single-shot QTimer per pending job. The application owns one
 * and hands it to everything that needs time; it must be destroyed before the QCoreApplication.
 */
class SystemClock final : public Clock
{
public:
    SystemClock();
    ~SystemClock() override;

    double now() const override;
    JobHandle schedule(double seconds, QObject* context, std::function<void()> job) override;
    void cancel(JobHandle handle) override;

private:
    QElapsedTimer m_elapsed;
    // Parent of every pending timer, so they go with the clock.
    QObject m_timerOwner;
    QHash<JobHandle, QTimer*> m_pending;
    JobHandle m_lastHandle = 0;
};

/**
 * Time that only moves when told to, for tests. Jobs run inside advance()/advanceTo(), in the order in which they
 * fall due (jobs due at the same moment in the order they were scheduled), each seeing now() at its due time.
 */
class ManualClock final : public Clock
{
public:
    explicit ManualClock(double start = 0.0);

    double now() const override { return m_now; }
    JobHandle schedule(double seconds, QObject* context, std::function<void()> job) override;
    void cancel(JobHandle handle) override;

    /** Moves time forward by `seconds`, running every job that falls due up to the new time, also new ones. */
    void advance(double seconds);
    /** Moves time forward to `time` (no effect when it lies in the past), running due jobs as advance() does. */
    void advanceTo(double time);

    /** Jobs scheduled and neither run nor cancelled yet. */
    int pendingJobCount() const { return int(m_jobs.size()); }

private:
    struct Job
    {
        double due = 0.0;
        JobHandle handle = 0;
        bool hasContext = false;
        QPointer<QObject> context;
        std::function<void()> run;
    };

    double m_now = 0.0;
    std::vector<Job> m_jobs;
    JobHandle m_lastHandle = 0;
};
