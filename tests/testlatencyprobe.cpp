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
    probe.keyShown();
    // A second key shown by the same event (none arrived in between) is not measured twice.
    probe.keyShown();
    // A frame before the keyboard has drawn the key does not count it.
    probe.frameFinished(t0 + 11ms);
    QVERIFY(probe.samples().empty());

    probe.pressArrived(t0 + 12ms);
    probe.keyShown();
    probe.keyboardPainted();
    probe.frameFinished(t0 + 14ms);
    QCOMPARE(probe.samples(), (std::vector<double> { 4.0, 2.0 }));
    QCOMPARE(probe.frames(), std::size_t(2));

    // Drawn presses are measured once.
    probe.frameFinished(t0 + 20ms);
    QCOMPARE(probe.samples().size(), std::size_t(2));
}

void TestLatencyProbe::summary()
{
    QCOMPARE(LatencyProbe::describe(LatencyProbe::summarize({})),
        u"key-to-lit latency: 0 presses, p50 0.00 ms, p99 0.00 ms, max 0.00 ms"_s);

    // 200 down to 1, in the order measured: nearest rank gives the 100th and the 198th smallest.
    std::vector<double> samples;
    for (int i = 200; i >= 1; --i)
        samples.push_back(i);
    const LatencyProbe::Summary s = LatencyProbe::summarize(samples);
    QCOMPARE(s.count, std::size_t(200));
    QCOMPARE(s.p50, 100.0);
    QCOMPARE(s.p99, 198.0);
    QCOMPARE(s.max, 200.0);

    const LatencyProbe::Summary one = LatencyProbe::summarize({ 3.5 });
    QCOMPARE(one.p50, 3.5);
    QCOMPARE(one.p99, 3.5);
}

QTEST_GUILESS_MAIN(TestLatencyProbe)
#include "testlatencyprobe.moc"
