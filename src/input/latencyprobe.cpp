// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/latencyprobe.h"

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

LatencyProbe::~LatencyProbe()
{
    if (s_active == this)
        s_active = nullptr;
}

void LatencyProbe::pressArrived(TimePoint when)
{
    m_arrival = when;
    m_arrivalPending = true;
}

void LatencyProbe::keyShown()
{
    if (!m_arrivalPending)
        return;
    m_arrivalPending = false;
    m_awaitingPaint.push_back(m_arrival);
}

void LatencyProbe::keyboardPainted()
{
    m_painted.insert(m_painted.end(), m_awaitingPaint.begin(), m_awaitingPaint.end());
    m_awaitingPaint.clear();
}

void LatencyProbe::frameFinished(TimePoint when)
{
    ++m_frames;
    for (const TimePoint arrival : m_painted)
        m_samples.push_back(std::chrono::duration<double, std::milli>(when - arrival).count());
    m_painted.clear();
}

LatencyProbe::Summary LatencyProbe::summarize(std::vector<double> samples)
{
    Summary summary;
    summary.count = samples.size();
    if (samples.empty())
        return summary;
    std::sort(samples.begin(), samples.end());
    // Nearest rank: the smallest sample with at least p% of all samples at or below it.
    const auto rank = [&samples](double percent) {
        const auto index = std::size_t(std::ceil(percent / 100.0 * double(samples.size())));
        return samples[std::clamp<std::size_t>(index, 1, samples.size()) - 1];
    };
    summary.p50 = rank(50);
    summary.p99 = rank(99);
    summary.max = samples.back();
    return summary;
}

QString LatencyProbe::describe(const Summary& summary)
{
    return u"key-to-lit latency: %1 presses, p50 %2 ms, p99 %3 ms, max %4 ms"_s.arg(summary.count)
        .arg(summary.p50, 0, 'f', 2)
        .arg(summary.p99, 0, 'f', 2)
        .arg(summary.max, 0, 'f', 2);
}
