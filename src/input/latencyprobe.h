// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>

#include <chrono>
#include <vector>

/**
 * Measures how long a key takes to show: from the moment its press event reaches the program to the end of the
 * first repaint of the keyboard that draws it held. Off unless a probe has been made active (the program's
 * --latency-report option); while none is, every hook is a null check.
 *
 * Only durations are kept: never which key, never when. A press whose key is not on the keyboard, or that changes
 * nothing shown, is dropped as soon as the next event arrives. Main thread only.
 */
class LatencyProbe
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    LatencyProbe() = default;
    ~LatencyProbe();
    LatencyProbe(const LatencyProbe&) = delete;
    LatencyProbe& operator=(const LatencyProbe&) = delete;

    /** The probe the hooks report to, or null. */
    static LatencyProbe* active() { return s_active; }
    /** Makes `probe` (or null) the one the hooks report to; the probe stops being active when destroyed. */
    static void setActive(LatencyProbe* probe) { s_active = probe; }

    /** A key press event arrived and is about to be handled. */
    void pressArrived(TimePoint when = std::chrono::steady_clock::now());
    /** Handling the press made a key show as held; it waits for the next repaint of the keyboard. */
    void keyShown();
    /** The keyboard drew what changed; the presses waiting until now are drawn. */
    void keyboardPainted();
    /** The window's repaint is finished and on its way to the screen: every drawn press is one measurement. */
    void frameFinished(TimePoint when = std::chrono::steady_clock::now());

    /** Latencies measured so far, in milliseconds, in the order they happened. */
    const std::vector<double>& samples() const { return m_samples; }
    /** Repaints of the window finished so far, whatever they drew. */
    std::size_t frames() const { return m_frames; }

    struct Summary
    {
        std::size_t count = 0;
        double p50 = 0;
        double p99 = 0;
        double max = 0;
    };
    /** Nearest-rank percentiles of `samples` (all zero when there are none). */
    static Summary summarize(std::vector<double> samples);
    /** One line: "key-to-lit latency: N presses, p50 … ms, p99 … ms, max … ms". */
    static QString describe(const Summary& summary);

private:
    static inline LatencyProbe* s_active = nullptr;

    // The press being handled: set on arrival, taken by keyShown(), dropped by the next arrival.
    TimePoint m_arrival;
    bool m_arrivalPending = false;
    std::vector<TimePoint> m_awaitingPaint;
    std::vector<TimePoint> m_painted;
    std::vector<double> m_samples;
    std::size_t m_frames = 0;
};
