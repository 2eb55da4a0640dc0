// SPDX-License-Identifier: GPL-3.0-or-later
// Key events as the processor reports them, fed directly and through the evdev event stream.
#include "input/evdevbackend.h"
#include "input/evdeveventstream.h"
#include "input/keyeventprocessor.h"
#include "testsupport.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <linux/input.h>

using namespace Qt::StringLiterals;
using Action = KeyEventProcessor::Action;

namespace {

/** Every report of `backend` as a short line, so a whole sequence compares at once. */
class Reports : public QStringList
{
public:
    explicit Reports(TestSupport::FakeInputBackend& backend)
    {
        QObject::connect(
            &backend, &InputBackend::keyDown, &m_context, [this](KeyCode k) { *this << u"down %1"_s.arg(k); });
        QObject::connect(&backend, &InputBackend::keyUp, &m_context, [this](KeyCode k) { *this << u"up %1"_s.arg(k); });
        QObject::connect(&backend, &InputBackend::flagsChanged, &m_context,
            [this](ModifierFlags f, KeyCode k) { *this << u"flags %1 %2"_s.arg(f, 0, 16).arg(k); });
        QObject::connect(&backend, &InputBackend::capsLockKey, &m_context,
            [this](bool pressed) { *this << (pressed ? u"caps down"_s : u"caps up"_s); });
        QObject::connect(&backend, &InputBackend::mediaKey, &m_context,
            [this](KeyCode k, bool pressed) { *this << u"media %1 %2"_s.arg(k).arg(pressed ? u"down"_s : u"up"_s); });
        static const QStringList buttons { u"left"_s, u"right"_s, u"middle"_s, u"back"_s, u"forward"_s };
        static const QStringList directions { u"up"_s, u"down"_s, u"left"_s, u"right"_s };
        QObject::connect(&backend, &InputBackend::pointerButton, &m_context, [this](PointerButton b, bool pressed) {
            *this << u"button %1 %2"_s.arg(buttons.at(int(b)), pressed ? u"down"_s : u"up"_s);
        });
        QObject::connect(&backend, &InputBackend::scrolled, &m_context,
            [this](ScrollDirection direction) { *this << u"scroll "_s + directions.at(int(direction)); });
    }

private:
    QObject m_context;
};

} // namespace

class TestKeyEventProcessor final : public QObject
{
    Q_OBJECT

private slots:
    void sequences_data();
    void sequences();
    void backendAccessFollowsTheDeviceDirectory();
};

void TestKeyEventProcessor::sequences_data()
{
    // Steps separated by ';', Linux codes in decimal. To the processor, on keyboard D (1 unless given): "d C [D]",
    // "u C [D]", "r C [D]" (press, release, auto-repeat), "rk C" (release by code), "rd D" (keyboard removed), "ra"
    // (release all), "lock 0|1" (what the back end reads), "refresh" (the lock read again), "push 0|1" (a lock state
    // told by the platform). Through an evdev stream: "k C V" (a key event), "ev T C V", "syn", "drop"
    // (SYN_DROPPED), "resync L K..." (the device state read: the Caps Lock LED and the keys down), "remove".
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("reports");

    QTest::newRow("Auto-repeat reports the key down again, and counts as the press of a key held before reading")
        << u"r 48; u 48; d 36; r 36; u 36"_s << u"down 11, up 11, down 38, down 38, up 38"_s;
    QTest::newRow("Duplicate releases and releases of keys never pressed are ignored, and leave the key working")
        << u"u 16; d 58; u 58; u 58; d 30; u 30; u 30; d 58; u 58; d 30"_s
        << u"caps down, caps up, down 0, up 0, caps down, caps up, down 0"_s;
    QTest::newRow("Both Shifts, then the right one released, keep the left Shift's bits")
        << u"d 42; d 54; u 54; u 42"_s << u"flags 20002 56, flags 20006 60, flags 20002 60, flags 0 56"_s;
    QTest::newRow("Modifiers of different kinds add up and a modifier's repeat reports nothing")
        << u"d 29; d 100; r 100; d 126; d 464; u 29"_s
        << u"flags 40001 59, flags c0041 61, flags 1c0051 54, flags 9c0051 63, flags 980050 59"_s;
    QTest::newRow("A key held on two keyboards goes up when the last one lets go, also when released by its code")
        << u"d 30 1; d 30 2; u 30 1; u 30 1; u 30 2; d 31 1; d 31 2; rk 31; u 31 1"_s
        << u"down 0, up 0, down 1, up 1"_s;
    QTest::newRow("A removed keyboard lets go of everything it alone held, one that holds nothing of nothing")
        << u"d 30; d 42; d 115; d 31; d 31 2; rd 3; rd 1; u 30; u 31 2"_s
        << u"down 0, flags 20002 56, media 111 down, down 1, up 0, flags 0 56, media 111 up, up 1"_s;
    QTest::newRow("Releasing all lets go of every key on every keyboard")
        << u"d 30 1; d 97 2; d 58 3; ra; u 30"_s << u"down 0, flags 42000 62, caps down, up 0, flags 0 62, caps up"_s;
    QTest::newRow("Caps Lock reports the key and, once the lock turns on, the lock bit with its code")
        << u"lock 1; d 58; u 58; d 125; lock 0; d 58; u 58"_s
        << u"caps down, flags 10000 57, caps up, flags 110008 55, caps down, flags 100008 57, caps up"_s;
    QTest::newRow("A lock change learnt of later is reported once, with the Caps Lock key code")
        << u"d 42; lock 1; refresh; refresh"_s << u"flags 20002 56, flags 30002 57"_s;
    // The back end still says off: a lock the platform tells of is taken without asking.
    QTest::newRow("A lock the platform tells of is reported once, without asking the back end")
        << u"push 0; push 1; push 1; d 58"_s << u"flags 10000 57, caps down, flags 0 57"_s;
    QTest::newRow("An F-key and a media key on the same cap: the cap goes up when the last of them does")
        << u"d 59; d 224; u 59; u 224; d 113; d 68; u 113; u 68"_s
        << u"down 122, media 122 up, media 109 down, down 109, up 109"_s;
    QTest::newRow("Keys outside the table are ignored") << u"d 96; u 96; d 768; d -5; u 119"_s << QString();

    // Every key event of a real keyboard comes with a scan code (EV_MSC 4) and ends its frame with SYN_REPORT.
    QTest::newRow("Typing a letter with auto-repeat")
        << u"ev 4 4 458756; k 30 1; syn; k 30 2; syn; k 30 2; syn; ev 4 4 458756; k 30 0; syn"_s
        << u"down 0, down 0, down 0, up 0"_s;
    QTest::newRow("A key released while events were dropped comes out released")
        << u"k 42 1; syn; k 30 1; syn; drop; k 30 0; syn; k 48 1; syn; resync 0 42 48; k 48 0; syn"_s
        << u"flags 20002 56, down 0, up 0, down 11, up 11"_s;
    QTest::newRow("Events between a drop and the resync are ignored, even a complete press")
        << u"drop; k 46 1; syn; k 46 0; syn; resync 0; k 32 1; syn"_s << u"down 2"_s;
    QTest::newRow("A resync releases before it presses, so modifiers never overlap, and takes the LED state")
        << u"k 29 1; syn; drop; resync 1 125"_s << u"flags 40001 59, flags 0 59, flags 100008 55, flags 110008 57"_s;
    QTest::newRow("An unplugged keyboard releases what it held")
        << u"k 100 1; syn; k 103 1; k 113 1; syn; remove"_s
        << u"flags 80040 61, down 126, media 109 down, flags 0 61, up 126, media 109 up"_s;
    // EV_LED is 17; LED_CAPSL 1, LED_NUML 0.
    QTest::newRow("The Caps Lock LED sets the lock bit")
        << u"k 58 1; syn; ev 17 1 1; syn; k 58 0; syn; ev 17 0 1; ev 17 1 1; k 42 1; syn"_s
        << u"caps down, flags 10000 57, caps up, flags 30002 56"_s;
    QTest::newRow("Nonsense values, codes and types are ignored")
        << u"k 30 3; k 30 -1; k 767 1; k 65535 1; ev 2 0 5; ev 127 0 0; k 30 0"_s << QString();

    // Buttons are key codes: BTN_LEFT 272, RIGHT 273, MIDDLE 274, SIDE 275, EXTRA 276, FORWARD 277, BACK 278.
    QTest::newRow("Mouse buttons; side and back are one button, extra and forward another, as on two mice")
        << u"k 272 1; k 273 1; k 274 1; syn; k 275 1; k 278 1; k 278 0; k 275 0; d 277 2; k 276 1; u 277 2;"
           " k 276 2; k 276 0; k 272 0; k 273 0; k 274 0; syn"_s
        << u"button left down, button right down, button middle down, button back down, button back up,"
           " button forward down, button forward up, button left up, button right up, button middle up"_s;
    QTest::newRow("A drop or an unplugged mouse lets go of the buttons it held")
        << u"k 272 1; k 276 1; syn; drop; k 272 0; syn; resync 0 273 276; remove"_s
        << u"button left down, button forward down, button left up, button right down, button right up,"
           " button forward up"_s;
    // EV_REL is 2: REL_WHEEL 8, REL_HWHEEL 6, REL_WHEEL_HI_RES 11, REL_HWHEEL_HI_RES 12, REL_X 0.
    QTest::newRow("Wheel notches, one step each, when the frame ends")
        << u"ev 2 8 1; ev 2 0 5; syn; ev 2 8 -2; syn; ev 2 6 1; ev 2 6 -1; syn; ev 2 6 -1; ev 2 8 1"_s
        << u"scroll up, scroll down, scroll down"_s;
    QTest::newRow("Fine wheel values in steps of 40: three make a step, and the notch sent with them is not another")
        << u"ev 2 11 40; syn; ev 2 11 40; syn; ev 2 11 40; ev 2 8 1; syn; ev 2 8 1; ev 2 11 120; syn; ev 2 8 1;"
           " syn; ev 2 11 -240; ev 2 8 -2; syn"_s
        << u"scroll up, scroll up, scroll down, scroll down"_s;
    QTest::newRow("Horizontal fine values; turning back starts afresh")
        << u"ev 2 12 80; ev 2 6 0; syn; ev 2 12 -40; syn; ev 2 12 -80; syn; ev 2 12 120; syn"_s
        << u"scroll left, scroll right"_s;
    QTest::newRow("A drop forgets what was under a step")
        << u"ev 2 11 80; syn; drop; ev 2 11 40; syn; resync 0; ev 2 11 40; syn; ev 2 11 80; syn"_s << u"scroll up"_s;
    QTest::newRow("A frame of more than 16 notches gives 16 steps")
        << u"ev 2 8 100000; syn; ev 2 8 1; syn"_s << QStringList(17, u"scroll up"_s).join(u", "_s);
}

void TestKeyEventProcessor::sequences()
{
    QFETCH(QString, script);
    QFETCH(QString, reports);

    TestSupport::FakeInputBackend backend;
    KeyEventProcessor processor(backend);
    EvdevEventStream stream(processor, 4);
    Reports lines(backend);
    const auto event = [&](int type, int code, int value) {
        // The back end's lock is this one device's LED, as EvdevBackend reads it.
        if (type == EV_LED && code == LED_CAPSL)
            backend.lockOn = value != 0;
        input_event e {};
        e.type = std::uint16_t(type);
        e.code = std::uint16_t(code);
        e.value = value;
        stream.processEvent(e);
    };
    for (const QString& step : script.split(u';', Qt::SkipEmptyParts)) {
        const QStringList w = step.split(u' ', Qt::SkipEmptyParts);
        const auto number = [&](int i, int fallback = 0) { return i < w.size() ? w.at(i).toInt() : fallback; };
        const QString& op = w.first();
        if (op == u"d" || op == u"u" || op == u"r") {
            const Action action = op == u"d" ? Action::press : op == u"u" ? Action::release : Action::repeat;
            processor.processKey(number(1), action, number(2, 1));
        } else if (op == u"rk") {
            processor.releaseKey(number(1));
        } else if (op == u"rd") {
            processor.releaseDevice(number(1));
        } else if (op == u"ra") {
            processor.releaseAll();
        } else if (op == u"lock") {
            backend.lockOn = number(1) != 0;
        } else if (op == u"refresh") {
            processor.refreshLockState();
        } else if (op == u"push") {
            processor.setLockState(number(1) != 0);
        } else if (op == u"k") {
            event(EV_KEY, number(1), number(2));
        } else if (op == u"ev") {
            event(number(1), number(2), number(3));
        } else if (op == u"syn" || op == u"drop") {
            event(EV_SYN, op == u"syn" ? SYN_REPORT : SYN_DROPPED, 0);
        } else if (op == u"resync") {
            QVERIFY(stream.needsResync());
            EvdevEventStream::DeviceState state;
            for (int i = 2; i < w.size(); ++i)
                state.keys.set(number(i));
            state.capsLockLed = number(1) != 0;
            backend.lockOn = state.capsLockLed;
            stream.resync(state);
            QVERIFY(!stream.needsResync());
        } else if (op == u"remove") {
            stream.deviceRemoved();
        } else {
            QFAIL(qPrintable(step));
        }
    }
    QCOMPARE(lines.join(u", "_s), reports);
}

void TestKeyEventProcessor::backendAccessFollowsTheDeviceDirectory()
{
    QTemporaryDir dir;
    EvdevBackend backend(dir.path());
    QCOMPARE(backend.access(), InputBackend::Access::unavailable);
    // A readable node that is no keyboard (here not even a device) grants nothing: access means a keyboard.
    QFile file(dir.filePath(u"event0"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(backend.access(), InputBackend::Access::denied);
    QVERIFY(backend.accessHelp().contains(u"Key access"_s));
    QVERIFY(!backend.start());
}

QTEST_GUILESS_MAIN(TestKeyEventProcessor)
#include "testkeyeventprocessor.moc"
