// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/keyeventprocessor.h"
#include "testsupport.h"

#include <QTest>

#include <linux/input-event-codes.h>

using namespace Qt::StringLiterals;
using Action = KeyEventProcessor::Action;

namespace {

/** One step of a scripted sequence; the first three are key events with the values of Action. */
struct Step
{
    enum Op
    {
        release,
        press,
        repeat,
        releaseKey,
        removeDevice,
        releaseAll,
        setLock,
        refreshLock,
        pushLock
    };
    Op op;
    int code = 0;
    int device = 1;
};

Step down(int code, int device = 1)
{
    return { Step::press, code, device };
}

Step up(int code, int device = 1)
{
    return { Step::release, code, device };
}

} // namespace

Q_DECLARE_METATYPE(Step)

class TestKeyEventProcessor final : public QObject
{
    Q_OBJECT

private slots:
    void sequences_data();
    void sequences();
};

void TestKeyEventProcessor::sequences_data()
{
    QTest::addColumn<QList<Step>>("steps");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("Auto-repeat reports the key down again, and counts as the press of a key held before reading")
        << QList<Step> { { Step::repeat, KEY_B }, up(KEY_B), down(KEY_J), { Step::repeat, KEY_J }, up(KEY_J) }
        << QStringList { u"down 11"_s, u"up 11"_s, u"down 38"_s, u"down 38"_s, u"up 38"_s };
    QTest::newRow("Duplicate releases and releases of keys never pressed are ignored, and leave the key working")
        << QList<Step> { up(KEY_Q), down(KEY_CAPSLOCK), up(KEY_CAPSLOCK), up(KEY_CAPSLOCK), down(KEY_A), up(KEY_A),
               up(KEY_A), down(KEY_CAPSLOCK), up(KEY_CAPSLOCK), down(KEY_A) }
        << QStringList { u"caps down"_s, u"caps up"_s, u"down 0"_s, u"up 0"_s, u"caps down"_s, u"caps up"_s,
               u"down 0"_s };
    QTest::newRow("Both Shifts, then the right one released, keep the left Shift's bits")
        << QList<Step> { down(KEY_LEFTSHIFT), down(KEY_RIGHTSHIFT), up(KEY_RIGHTSHIFT), up(KEY_LEFTSHIFT) }
        << QStringList { u"flags 20002 56"_s, u"flags 20006 60"_s, u"flags 20002 60"_s, u"flags 0 56"_s };
    QTest::newRow("Modifiers of different kinds add up and a modifier's repeat reports nothing")
        << QList<Step> { down(KEY_LEFTCTRL), down(KEY_RIGHTALT), { Step::repeat, KEY_RIGHTALT }, down(KEY_RIGHTMETA),
               down(KEY_FN), up(KEY_LEFTCTRL) }
        << QStringList { u"flags 40001 59"_s, u"flags c0041 61"_s, u"flags 1c0051 54"_s, u"flags 9c0051 63"_s,
               u"flags 980050 59"_s };
    QTest::newRow("A key held on two keyboards goes up when the last one lets go") << QList<Step> { down(KEY_A, 1),
        down(KEY_A, 2), up(KEY_A, 1), up(KEY_A, 1), up(KEY_A, 2) } << QStringList { u"down 0"_s, u"up 0"_s };
    QTest::newRow("A removed keyboard lets go of everything it alone held, one that holds nothing of nothing")
        << QList<Step> { down(KEY_A, 1), down(KEY_LEFTSHIFT, 1), down(KEY_VOLUMEUP, 1), down(KEY_S, 1), down(KEY_S, 2),
               { Step::removeDevice, 0, 3 }, { Step::removeDevice, 0, 1 }, up(KEY_A, 1), up(KEY_S, 2) }
        << QStringList { u"down 0"_s, u"flags 20002 56"_s, u"media 111 down"_s, u"down 1"_s, u"up 0"_s, u"flags 0 56"_s,
               u"media 111 up"_s, u"up 1"_s };
    QTest::newRow("Releasing all lets go of every key on every keyboard") << QList<Step> {
        down(KEY_A, 1), down(KEY_RIGHTCTRL, 2), down(KEY_CAPSLOCK, 3), { Step::releaseAll }, up(KEY_A, 1)
    } << QStringList { u"down 0"_s, u"flags 42000 62"_s, u"caps down"_s, u"up 0"_s, u"flags 0 62"_s, u"caps up"_s };
    QTest::newRow("Caps Lock reports the key and, once the lock turns on, the lock bit with its code")
        << QList<Step> { { Step::setLock, 1 }, down(KEY_CAPSLOCK), up(KEY_CAPSLOCK), down(KEY_LEFTMETA),
               { Step::setLock, 0 }, down(KEY_CAPSLOCK), up(KEY_CAPSLOCK) }
        << QStringList { u"caps down"_s, u"flags 10000 57"_s, u"caps up"_s, u"flags 110008 55"_s, u"caps down"_s,
               u"flags 100008 57"_s, u"caps up"_s };
    QTest::newRow("A lock change learnt of later is reported once, with the Caps Lock key code")
        << QList<Step> { down(KEY_LEFTSHIFT), { Step::setLock, 1 }, { Step::refreshLock }, { Step::refreshLock } }
        << QStringList { u"flags 20002 56"_s, u"flags 30002 57"_s };
    // The back end still says off: a lock the platform tells of is taken without asking.
    QTest::newRow("A lock the platform tells of is reported once, without asking the back end")
        << QList<Step> { { Step::pushLock, 0 }, { Step::pushLock, 1 }, { Step::pushLock, 1 }, down(KEY_CAPSLOCK) }
        << QStringList { u"flags 10000 57"_s, u"caps down"_s, u"flags 0 57"_s };
    QTest::newRow("Releasing a key by its code lets go of it on every keyboard") << QList<Step> {
        down(KEY_A, 1), down(KEY_A, 2), { Step::releaseKey, KEY_A }, up(KEY_A, 1), { Step::releaseKey, KEY_A }
    } << QStringList { u"down 0"_s, u"up 0"_s };
    QTest::newRow("Media keys sharing an F-key report it down once and up when the last is released")
        << QList<Step> { down(KEY_PLAYPAUSE), down(KEY_PLAY), up(KEY_PLAYPAUSE), up(KEY_PLAY), down(KEY_BRIGHTNESSDOWN),
               up(KEY_BRIGHTNESSDOWN) }
        << QStringList { u"media 100 down"_s, u"media 100 up"_s, u"media 122 down"_s, u"media 122 up"_s };
    QTest::newRow("An F-key and a media key on the same cap: the cap goes up when the last of them does")
        << QList<Step> { down(KEY_F1), down(KEY_BRIGHTNESSDOWN), up(KEY_F1), up(KEY_BRIGHTNESSDOWN), down(KEY_MUTE),
               down(KEY_F10), up(KEY_MUTE), up(KEY_F10) }
        << QStringList { u"down 122"_s, u"media 122 up"_s, u"media 109 down"_s, u"down 109"_s, u"up 109"_s };
    QTest::newRow("Keys outside the table are ignored")
        << QList<Step> { down(KEY_KPENTER), up(KEY_KPENTER), down(KEY_CNT), down(-5), up(KEY_PAUSE) } << QStringList {};
}

void TestKeyEventProcessor::sequences()
{
    QFETCH(QList<Step>, steps);
    QFETCH(QStringList, expected);

    TestSupport::FakeInputBackend backend;
    KeyEventProcessor processor(backend);
    // Every report as a short line, so a whole sequence compares at once.
    QStringList lines;
    connect(&backend, &InputBackend::keyDown, this, [&lines](KeyCode k) { lines << u"down %1"_s.arg(k); });
    connect(&backend, &InputBackend::keyUp, this, [&lines](KeyCode k) { lines << u"up %1"_s.arg(k); });
    connect(&backend, &InputBackend::flagsChanged, this,
        [&lines](ModifierFlags f, KeyCode k) { lines << u"flags %1 %2"_s.arg(f, 0, 16).arg(k); });
    connect(&backend, &InputBackend::capsLockKey, this,
        [&lines](bool pressed) { lines << (pressed ? u"caps down"_s : u"caps up"_s); });
    connect(&backend, &InputBackend::mediaKey, this,
        [&lines](KeyCode k, bool pressed) { lines << u"media %1 %2"_s.arg(k).arg(pressed ? u"down"_s : u"up"_s); });

    for (const Step& step : std::as_const(steps)) {
        switch (step.op) {
        case Step::press:
        case Step::release:
        case Step::repeat:
            processor.processKey(step.code, Action(step.op), step.device);
            break;
        case Step::releaseKey:
            processor.releaseKey(step.code);
            break;
        case Step::removeDevice:
            processor.releaseDevice(step.device);
            break;
        case Step::releaseAll:
            processor.releaseAll();
            break;
        case Step::setLock:
            backend.lockOn = step.code != 0;
            break;
        case Step::refreshLock:
            processor.refreshLockState();
            break;
        case Step::pushLock:
            processor.setLockState(step.code != 0);
            break;
        }
    }
    QCOMPARE(lines, expected);
}

QTEST_GUILESS_MAIN(TestKeyEventProcessor)
#include "testkeyeventprocessor.moc"
