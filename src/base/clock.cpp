// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/clock.h"

#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cmath>

SystemClock::SystemClock()
{
    m_elapsed.start();
}

SystemClock::~SystemClock() = default;

double SystemClock::now() const
{
    return double(m_elapsed.nsecsElapsed()) / 1e9;
}

Clock::JobHandle SystemClock::schedule(double seconds, QObject* context, std::function<void()> job)
{
    const JobHandle handle = ++m_lastHandle;
    auto* timer = new QTimer(&m_timerOwner);
    timer->setSingleShot(true);
    // Coarse timers may fire 5 % early or late; the debounce and animation steps want their interval.
    timer->setTimerType(Qt::PreciseTimer);
    // Rounded up: a job must never run before its time has come.
    const double milliseconds = std::ceil(std::max(seconds, 0.0) * 1000.0);
    timer->setInterval(std::chrono::milliseconds(qint64(std::min(milliseconds, double(INT32_MAX)))));
    QObject::connect(timer, &QTimer::timeout, timer,
        [this, handle, timer, hasContext = context != nullptr, target = QPointer<QObject>(context),
            run = std::move(job)] {
            m_pending.remove(handle);
            // Deleting a timer inside its own timeout is unsafe; the job's captures stay alive until then.
            timer->deleteLater();
            if (!hasContext || target)
                run();
        });
    m_pending.insert(handle, timer);
    timer->start();
    return handle;
}

void SystemClock::cancel(JobHandle handle)
{
    if (QTimer* timer = m_pending.take(handle)) {
        timer->stop();
        timer->deleteLater();
    }
}

ManualClock::ManualClock(double start)
    : m_now(start)
{
}

Clock::JobHandle ManualClock::schedule(double seconds, QObject* context, std::function<void()> job)
{
    const JobHandle handle = ++m_lastHandle;
    m_jobs.push_back(Job { m_now + std::max(seconds, 0.0), handle, context != nullptr, context, std::move(job) });
    return handle;
}

void ManualClock::cancel(JobHandle handle)
{
    std::erase_if(m_jobs, [handle](const Job& job) { return job.handle == handle; });
}

void ManualClock::advance(double seconds)
{
    advanceTo(m_now + seconds);
}

void ManualClock::advanceTo(double time)
{
    for (;;) {
        // Handles grow with scheduling order, so they break ties between jobs due at the same moment.
        const auto next = std::min_element(m_jobs.begin(), m_jobs.end(),
            [](const Job& a, const Job& b) { return a.due < b.due || (a.due == b.due && a.handle < b.handle); });
        if (next == m_jobs.end() || next->due > time)
            break;
        Job job = std::move(*next);
        m_jobs.erase(next);
        m_now = std::max(m_now, job.due);
        if (!job.hasContext || job.context)
            job.run();
    }
    m_now = std::max(m_now, time);
}
