// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/evdevbackend.h"
#include "input/evdeveventstream.h"
#include "testsupport.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <linux/input.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

/** One item of a recorded stream: an event as read, or what the reading side does around it (see below). */
struct Item
{
    int type = 0;
    int code = 0;
    int value = 0;
    QList<int> keysDown = {};
};

constexpr int resyncOp = -1; // the device state is read: `keysDown`, and the Caps Lock LED as `value`
constexpr int removeOp = -2; // the device is gone

Item key(int code, int value)
{
    return { EV_KEY, code, value };
}

const Item syn { EV_SYN, SYN_REPORT, 0 };
const Item dropped { EV_SYN, SYN_DROPPED, 0 };
const Item removed { removeOp };

} // namespace

Q_DECLARE_METATYPE(Item)

class TestEvdevStream final : public QObject
{
    Q_OBJECT

private slots:
    void recordedStreams_data();
    void recordedStreams();
    void keyboardDetection();
    void backendAccessFollowsTheDeviceDirectory();
};

void TestEvdevStream::recordedStreams_data()
{
    QTest::addColumn<QList<Item>>("items");
    QTest::addColumn<QStringList>("expected");

    // Every key event of a real keyboard comes with a scan code (EV_MSC) and ends its frame with SYN_REPORT.
    QTest::newRow("Typing a letter with auto-repeat") << QList<Item> { { EV_MSC, MSC_SCAN, 0x70004 }, key(KEY_A, 1),
        syn, key(KEY_A, 2), syn, key(KEY_A, 2), syn, { EV_MSC, MSC_SCAN, 0x70004 }, key(KEY_A, 0),
        syn } << QStringList { u"down 0"_s, u"down 0"_s, u"down 0"_s, u"up 0"_s };
    QTest::newRow("A key released while events were dropped comes out released")
        << QList<Item> { key(KEY_LEFTSHIFT, 1), syn, key(KEY_A, 1), syn, dropped, key(KEY_A, 0), syn, key(KEY_B, 1),
               syn, { resyncOp, 0, 0, { KEY_LEFTSHIFT, KEY_B } }, key(KEY_B, 0), syn }
        << QStringList { u"flags 20002 56"_s, u"down 0"_s, u"up 0"_s, u"down 11"_s, u"up 11"_s };
    QTest::newRow("Events between a drop and the resync are ignored, even a complete press") << QList<Item> { dropped,
        key(KEY_C, 1), syn, key(KEY_C, 0), syn, { resyncOp }, key(KEY_D, 1), syn } << QStringList { u"down 2"_s };
    QTest::newRow("A resync releases before it presses, so modifiers never overlap, and takes the LED state")
        << QList<Item> { key(KEY_LEFTCTRL, 1), syn, dropped, { resyncOp, 0, 1, { KEY_LEFTMETA } } }
        << QStringList { u"flags 40001 59"_s, u"flags 0 59"_s, u"flags 100008 55"_s, u"flags 110008 57"_s };
    QTest::newRow("An unplugged keyboard releases what it held")
        << QList<Item> { key(KEY_RIGHTALT, 1), syn, key(KEY_UP, 1), key(KEY_MUTE, 1), syn, removed }
        << QStringList { u"flags 80040 61"_s, u"down 126"_s, u"media 109 down"_s, u"flags 0 61"_s, u"up 126"_s,
               u"media 109 up"_s };
    QTest::newRow("The Caps Lock LED sets the lock bit")
        << QList<Item> { key(KEY_CAPSLOCK, 1), syn, { EV_LED, LED_CAPSL, 1 }, syn, key(KEY_CAPSLOCK, 0), syn,
               { EV_LED, LED_NUML, 1 }, { EV_LED, LED_CAPSL, 1 }, key(KEY_LEFTSHIFT, 1), syn }
        << QStringList { u"caps down"_s, u"flags 10000 57"_s, u"caps up"_s, u"flags 30002 56"_s };
    QTest::newRow("Nonsense values and codes are ignored") << QList<Item> { key(KEY_A, 3), key(KEY_A, -1),
        key(KEY_MAX, 1), key(0xffff, 1), { EV_REL, REL_X, 5 }, { 0x7f, 0, 0 }, key(KEY_A, 0) }
                                                           << QStringList {};
}

void TestEvdevStream::recordedStreams()
{
    QFETCH(QList<Item>, items);
    QFETCH(QStringList, expected);

    // The back end's lock is this one device's LED, as EvdevBackend reads it.
    TestSupport::FakeInputBackend backend;
    KeyEventProcessor processor(backend);
    EvdevEventStream stream(processor, 4);

    QStringList lines;
    connect(&backend, &InputBackend::keyDown, this, [&lines](KeyCode k) { lines << u"down %1"_s.arg(k); });
    connect(&backend, &InputBackend::keyUp, this, [&lines](KeyCode k) { lines << u"up %1"_s.arg(k); });
    connect(&backend, &InputBackend::flagsChanged, this,
        [&lines](ModifierFlags f, KeyCode k) { lines << u"flags %1 %2"_s.arg(f, 0, 16).arg(k); });
    connect(&backend, &InputBackend::capsLockKey, this,
        [&lines](bool pressed) { lines << (pressed ? u"caps down"_s : u"caps up"_s); });
    connect(&backend, &InputBackend::mediaKey, this,
        [&lines](KeyCode k, bool pressed) { lines << u"media %1 %2"_s.arg(k).arg(pressed ? u"down"_s : u"up"_s); });

    for (const Item& item : std::as_const(items)) {
        if (item.type == resyncOp) {
            QVERIFY(stream.needsResync());
            EvdevEventStream::DeviceState state;
            for (int code : item.keysDown)
                state.keys.set(code);
            state.capsLockLed = item.value != 0;
            backend.lockOn = state.capsLockLed;
            stream.resync(state);
            QVERIFY(!stream.needsResync());
        } else if (item.type == removeOp) {
            stream.deviceRemoved();
            QVERIFY(!processor.isHeld(KEY_UP));
        } else {
            input_event event {};
            event.type = std::uint16_t(item.type);
            event.code = std::uint16_t(item.code);
            event.value = item.value;
            if (item.type == EV_LED && item.code == LED_CAPSL)
                backend.lockOn = item.value != 0;
            stream.processEvent(event);
        }
    }
    QCOMPARE(lines, expected);
}

void TestEvdevStream::keyboardDetection()
{
    const auto isKeyboard = [](std::initializer_list<int> codes) {
        std::bitset<LinuxKeymap::codeCount> bits;
        for (int code : codes)
            bits.set(code);
        return EvdevEventStream::isKeyboard(bits);
    };
    // A keyboard has letters and a space bar; laptop brightness buttons and a headset's volume buttons count too.
    QVERIFY(isKeyboard({ KEY_ESC, KEY_A, KEY_Z, KEY_SPACE }));
    QVERIFY(isKeyboard({ KEY_BRIGHTNESSDOWN, KEY_BRIGHTNESSUP }));
    QVERIFY(isKeyboard({ KEY_VOLUMEUP }));
    // A mouse, a power button or a numeric keypad do not.
    QVERIFY(!isKeyboard({ BTN_LEFT, BTN_RIGHT, BTN_MIDDLE }));
    QVERIFY(!isKeyboard({ KEY_POWER }));
    QVERIFY(!isKeyboard({ KEY_KP1, KEY_KP2, KEY_KPENTER }));
}

void TestEvdevStream::backendAccessFollowsTheDeviceDirectory()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    EvdevBackend backend(dir.path());
    QCOMPARE(backend.name(), u"evdev"_s);
    QCOMPARE(backend.access(), InputBackend::Access::unavailable);
    QVERIFY(!backend.start());

    // A readable node that is no keyboard (here not even a device) grants nothing: access means a keyboard.
    QFile file(dir.filePath(u"event0"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("not an input device");
    file.close();
    QCOMPARE(backend.access(), InputBackend::Access::denied);
    QVERIFY(backend.accessHelp().contains(u"Key access"_s));
    QVERIFY(!backend.accessHelp().contains(u"usermod"_s));
    QVERIFY(!backend.start());
    QCOMPARE(backend.source(), InputBackend::Source::none);
    QVERIFY(file.remove());
    QCOMPARE(backend.access(), InputBackend::Access::unavailable);
}

QTEST_GUILESS_MAIN(TestEvdevStream)
#include "testevdevstream.moc"
