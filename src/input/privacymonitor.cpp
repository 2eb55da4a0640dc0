// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/privacymonitor.h"

#include "input/recordingsources.h"

PrivacyMonitor::PrivacyMonitor(Clock& clock, std::unique_ptr<RecordingSource> source, QObject* parent)
    : QObject(parent)
    , m_clock(clock)
    , m_source(std::move(source))
{
}

PrivacyMonitor::~PrivacyMonitor()
{
    stop();
}

void PrivacyMonitor::start()
{
    if (isRunning())
        return;
    // The next poll is booked before this one runs, so a listener that calls stop() from the change signal
    // cancels it.
    scheduleNextPoll();
    pollScreenRecording();
}

void PrivacyMonitor::stop()
{
    m_clock.cancel(m_pollJob);
    m_pollJob = 0;
}

void PrivacyMonitor::pollScreenRecording()
{
    bool active = false;
    if (m_source) {
        try {
            active = m_source->isRecording();
        } catch (...) {
            active = false;
        }
    }
    if (active == m_screenRecordingActive)
        return;
    m_screenRecordingActive = active;
    emit screenRecordingActiveChanged(active);
}

void PrivacyMonitor::scheduleNextPoll()
{
    m_pollJob = m_clock.schedule(pollInterval, this, [this] {
        m_pollJob = 0;
        scheduleNextPoll();
        pollScreenRecording();
    });
}
