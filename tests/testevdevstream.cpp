// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/evdevbackend.h"
#include "input/evdeveventstream.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <linux/input.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

/** One item of a recorded stream: an event as read, or what the reading side does around it. */
struct Item
{
    enum Op
    {
        event,
        resync,
        remove
    };
    Op op = event;
    input_event ev {};
    QList<int> keysDown;
    bool led = false;
};

Item ev(int type, int code, int value)
{
    Item item;
    item.ev.type = std::uint16_t(type);
    item.ev.code = std::uint16_t(code);
    item.ev.value = value;
    return item;
}

Item key(int code, int value)
{
    return ev(EV_KEY, code, value);
}

Item syn()
{
    return ev(EV_SYN, SYN_REPORT, 0);
}

Item dropped()
{
    return ev(EV_SYN, SYN_DROPPED, 0);
}

Item resyncTo(QList<int> keysDown, bool led = false)
{
    Item item;
    item.op = Item::resync;
    item.keysDown = std::move(keysDown);
    item.led = led;
    return item;
}

Item removed()
{
    Item item;
    item.op = Item::remove;
    return item;
}

} // namespace

Q_DECLARE_METATYPE(Item)

class TestEvdevStream final : public QObject
{
    Q_OBJECT

private slots:
    void recordedStreams_data();
    void recordedStreams();
    void keyboardDetection_data();
    void keyboardDetection();
    void backendAccessFollowsTheDeviceDirectory();
};

void TestEvdevStream::recordedStreams_data()
{
    QTest::addColumn<QList<Item>>("items");
    QTest::addColumn<QStringList>("expected");

    // Every key event of a real keyboard comes with a scan code (EV_MSC) and ends its frame with SYN_REPORT.
    QTest::newRow("Typing a letter with auto-repeat") << QList<Item> { ev(EV_MSC, MSC_SCAN, 0x70004), key(KEY_A, 1),
        syn(), key(KEY_A, 2), syn(), key(KEY_A, 2), syn(), ev(EV_MSC, MSC_SCAN, 0x70004), key(KEY_A, 0),
        syn() } << QStringList { u"down 0"_s, u"down 0"_s, u"down 0"_s, u"up 0"_s };
    QTest::newRow("A Shift chord") << QList<Item> { key(KEY_LEFTSHIFT, 1), syn(), key(KEY_K, 1), syn(), key(KEY_K, 0),
        syn(), key(KEY_LEFTSHIFT, 0), syn() }
                                   << QStringList { u"flags 20002 56"_s, u"down 40"_s, u"up 40"_s, u"flags 0 56"_s };
    QTest::newRow("A key released while events were dropped comes out released")
        << QList<Item> { key(KEY_LEFTSHIFT, 1), syn(), key(KEY_A, 1), syn(), dropped(), key(KEY_A, 0), syn(),
               key(KEY_B, 1), syn(), resyncTo({ KEY_LEFTSHIFT, KEY_B }), key(KEY_B, 0), syn() }
        << QStringList { u"flags 20002 56"_s, u"down 0"_s, u"up 0"_s, u"down 11"_s, u"up 11"_s };
    QTest::newRow("Events between a drop and the resync are ignored, even a complete press") << QList<Item> { dropped(),
        key(KEY_C, 1), syn(), key(KEY_C, 0), syn(), resyncTo({}), key(KEY_D, 1), syn() } << QStringList { u"down 2"_s };
    QTest::newRow("A resync releases before it presses, so modifiers never overlap")
        << QList<Item> { key(KEY_LEFTCTRL, 1), syn(), dropped(), resyncTo({ KEY_LEFTMETA }) }
        << QStringList { u"flags 40001 59"_s, u"flags 0 59"_s, u"flags 100008 55"_s };
    QTest::newRow("An unplugged keyboard releases what it held")
        << QList<Item> { key(KEY_RIGHTALT, 1), syn(), key(KEY_UP, 1), key(KEY_MUTE, 1), syn(), removed() }
        << QStringList { u"flags 80040 61"_s, u"down 126"_s, u"media 109 down"_s, u"flags 0 61"_s, u"up 126"_s,
               u"media 109 up"_s };
    QTest::newRow("The Caps Lock LED sets the lock bit")
        << QList<Item> { key(KEY_CAPSLOCK, 1), syn(), ev(EV_LED, LED_CAPSL, 1), syn(), key(KEY_CAPSLOCK, 0), syn(),
               ev(EV_LED, LED_NUML, 1), ev(EV_LED, LED_CAPSL, 1), key(KEY_LEFTSHIFT, 1), syn() }
        << QStringList { u"caps down"_s, u"flags 10000 57"_s, u"caps up"_s, u"flags 30002 56"_s };
    QTest::newRow("A resync takes the LED state too")
        << QList<Item> { dropped(), resyncTo({}, true) } << QStringList { u"flags 10000 57"_s };
    QTest::newRow("Nonsense values and codes are ignored") << QList<Item> { key(KEY_A, 3), key(KEY_A, -1),
        key(KEY_MAX, 1), key(0xffff, 1), ev(EV_REL, REL_X, 5), ev(0x7f, 0, 0), key(KEY_A, 0) }
                                                           << QStringList {};
}

void TestEvdevStream::recordedStreams()
{
    QFETCH(QList<Item>, items);
    QFETCH(QStringList, expected);

    KeyEventProcessor processor;
    EvdevEventStream stream(processor, 4);
    processor.setLockStateProvider([&stream] { return stream.capsLockLed(); });

    QStringList lines;
    connect(&processor, &KeyEventProcessor::keyDown, this, [&lines](KeyCode k) { lines << u"down %1"_s.arg(k); });
    connect(&processor, &KeyEventProcessor::keyUp, this, [&lines](KeyCode k) { lines << u"up %1"_s.arg(k); });
    connect(&processor, &KeyEventProcessor::flagsChanged, this,
        [&lines](ModifierFlags f, KeyCode k) { lines << u"flags %1 %2"_s.arg(f, 0, 16).arg(k); });
    connect(&processor, &KeyEventProcessor::capsLockKey, this,
        [&lines](bool pressed) { lines << (pressed ? u"caps down"_s : u"caps up"_s); });
    connect(&processor, &KeyEventProcessor::mediaKey, this,
        [&lines](KeyCode k, bool pressed) { lines << u"media %1 %2"_s.arg(k).arg(pressed ? u"down"_s : u"up"_s); });

    for (const Item& item : std::as_const(items)) {
        switch (item.op) {
        case Item::event:
            stream.processEvent(item.ev);
            break;
        case Item::resync: {
            QVERIFY(stream.needsResync());
            EvdevEventStream::DeviceState state;
            for (int code : item.keysDown)
                state.keys.set(code);
            state.capsLockLed = item.led;
            stream.resync(state);
            QVERIFY(!stream.needsResync());
            break;
        }
        case Item::remove:
            stream.deviceRemoved();
            QVERIFY(!processor.isHeld(KEY_UP));
            break;
        }
    }
    QCOMPARE(lines, expected);
}

void TestEvdevStream::keyboardDetection_data()
{
    QTest::addColumn<QList<int>>("keys");
    QTest::addColumn<bool>("keyboard");

    QTest::newRow("A keyboard has letters and a space bar") << QList<int> { KEY_ESC, KEY_A, KEY_Z, KEY_SPACE } << true;
    QTest::newRow("Laptop brightness buttons count") << QList<int> { KEY_BRIGHTNESSDOWN, KEY_BRIGHTNESSUP } << true;
    QTest::newRow("A headset's volume buttons count") << QList<int> { KEY_VOLUMEUP } << true;
    QTest::newRow("A mouse does not") << QList<int> { BTN_LEFT, BTN_RIGHT, BTN_MIDDLE } << false;
    QTest::newRow("A power button does not") << QList<int> { KEY_POWER } << false;
    QTest::newRow("A numeric keypad does not") << QList<int> { KEY_KP1, KEY_KP2, KEY_KPENTER } << false;
}

void TestEvdevStream::keyboardDetection()
{
    QFETCH(QList<int>, keys);
    QFETCH(bool, keyboard);
    std::bitset<LinuxKeymap::codeCount> bits;
    for (int code : keys)
        bits.set(code);
    QCOMPARE(EvdevEventStream::isKeyboard(bits), keyboard);
}

void TestEvdevStream::backendAccessFollowsTheDeviceDirectory()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    EvdevBackend backend(dir.path());
    QCOMPARE(backend.name(), u"evdev"_s);
    QCOMPARE(backend.access(), InputBackend::Access::unavailable);
    QVERIFY(!backend.start());

    // Files that are no event devices are readable but never read from, and do not upset anything.
    QFile file(dir.filePath(u"event0"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("not an input device");
    file.close();
    QCOMPARE(backend.access(), InputBackend::Access::granted);
    QVERIFY(backend.accessHelp().isEmpty());
    QVERIFY(backend.start());
    QCOMPARE(backend.deviceCount(), 0);
    QVERIFY(!backend.capsLockOn());

    QSignalSpy accessChanged(&backend, &InputBackend::accessChanged);
    QVERIFY(file.remove());
    QVERIFY(accessChanged.wait(5000));
    QCOMPARE(backend.access(), InputBackend::Access::unavailable);
    backend.stop();

    if (::geteuid() != 0) {
        QFile locked(dir.filePath(u"event1"_s));
        QVERIFY(locked.open(QIODevice::WriteOnly));
        locked.close();
        QVERIFY(locked.setPermissions({}));
        QCOMPARE(backend.access(), InputBackend::Access::denied);
        QVERIFY(backend.accessHelp().contains(u"sudo usermod -aG input $USER"_s));
        QVERIFY(!backend.start());
    }
}

QTEST_GUILESS_MAIN(TestEvdevStream)
#include "testevdevstream.moc"
