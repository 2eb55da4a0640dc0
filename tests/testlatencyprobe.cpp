// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/latencyprobe.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

class TestLatencyProbe final : public QObject
{
    Q_OBJECT

private slots:
    void pairsPressesWithTheFrameThatShowsThem();
    void summary();
};

void TestLatencyProbe::pairsPressesWithTheFrameThatShowsThem()
{
    const LatencyProbe::TimePoint t0;
    LatencyProbe probe;

    // A press that lights nothing (a key not on the keyboard) is dropped when the next one arrives.
    probe.pressArrived(t0);
    probe.pressArrived(t0 + 10ms);
    // A second key shown by the same event is not measured twice; a frame before the keyboard drew the key does not
    // count it.
    probe.keyShown();
    probe.keyShown();
    probe.frameFinished(t0 + 11ms);
    QVERIFY(probe.samples().empty());

    probe.pressArrived(t0 + 12ms);
    probe.keyShown();
    probe.keyboardPainted();
    probe.frameFinished(t0 + 14ms);
    QCOMPARE(probe.samples(), (std::vector<double> { 4.0, 2.0 }));
    QCOMPARE(probe.frames(), std::size_t(2));
}

void TestLatencyProbe::summary()
{
    // 200 down to 1, in the order measured: nearest rank gives the 100th and the 198th smallest.
    std::vector<double> samples;
    for (int i = 200; i >= 1; --i)
        samples.push_back(i);
    QCOMPARE(LatencyProbe::describe(LatencyProbe::summarize(samples)),
        u"key-to-lit latency: 200 presses, p50 100.00 ms, p99 198.00 ms, max 200.00 ms"_s);
    QCOMPARE(LatencyProbe::summarize({}).count, std::size_t(0));
}

QTEST_GUILESS_MAIN(TestLatencyProbe)
#include "testlatencyprobe.moc"
