// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/keyhelperprotocol.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <linux/input.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const QString testingHelper = QStringLiteral(ORDALIS_KEYHELPER_TESTING_PATH);
const QList<int> keyboardCodes { KEY_A, KEY_Z, KEY_SPACE, KEY_B, KEY_C, KEY_D, KEY_LEFTSHIFT, KEY_LEFTCTRL };
const QList<int> touchpadCodes { BTN_LEFT, BTN_TOUCH, BTN_TOOL_FINGER, BTN_TOOL_DOUBLETAP };
const QString hello = u"hello 0 %1 0"_s.arg(KeyHelperProtocol::protocolVersion);

/** What a device does next: an event, or going away (`unplug`: the writer closes the pipe). */
struct Step
{
    int type = 0, code = 0, value = 0;
};

constexpr int unplug = -1;

Step key(int code, int value)
{
    return { EV_KEY, code, value };
}

Step wheel(int code, int value)
{
    return { EV_REL, code, value };
}

const Step syn { EV_SYN, SYN_REPORT, 0 };

/** A named pipe that the test build of the helper reads as an input device. */
class FakeDevice
{
public:
    FakeDevice(const QString& dir, const QString& name, const QList<int>& codes, const QList<int>& down = {},
        bool capsLockLed = false)
    {
        // The pipe may be there already. Open for reading too, so the open does not wait for the helper and what is
        // written waits in the pipe.
        const QByteArray path = QFile::encodeName(dir + u'/' + name);
        ::mkfifo(path.constData(), 0600);
        m_fd = ::open(path.constData(), O_RDWR | O_CLOEXEC);
        QByteArray header(2 * 96 + 1, '\0');
        for (int code : codes)
            header[code / 8] = char(header[code / 8] | 1 << code % 8);
        for (int code : down)
            header[96 + code / 8] = char(header[96 + code / 8] | 1 << code % 8);
        header[192] = capsLockLed;
        write(header);
    }
    ~FakeDevice() { send({ unplug }); }
    Q_DISABLE_COPY_MOVE(FakeDevice)

    void send(const Step& step)
    {
        if (step.type == unplug) {
            if (m_fd >= 0)
                ::close(std::exchange(m_fd, -1));
        } else {
            input_event event {};
            event.type = quint16(step.type);
            event.code = quint16(step.code);
            event.value = step.value;
            write(QByteArray(reinterpret_cast<const char*>(&event), sizeof event));
        }
    }

private:
    void write(const QByteArray& bytes) { QCOMPARE(::write(m_fd, bytes.constData(), bytes.size()), bytes.size()); }

    int m_fd = -1;
};

/** The test build of the helper reading `dir`, and the records it wrote as "kind device code value". */
class Helper
{
public:
    explicit Helper(const QString& dir) { process.start(testingHelper, { u"--device-dir"_s, dir }); }
    ~Helper()
    {
        process.kill();
        process.waitForFinished();
    }
    Q_DISABLE_COPY_MOVE(Helper)

    QStringList records()
    {
        static const QStringList kinds { u"?"_s, u"hello"_s, u"key"_s, u"capsLockLed"_s, u"stateBegin"_s, u"stateKey"_s,
            u"stateEnd"_s, u"removed"_s, u"scroll"_s };
        m_bytes += process.readAllStandardOutput();
        QStringList records;
        for (qsizetype at = 0; at + 8 <= m_bytes.size(); at += 8) {
            const KeyHelperProtocol::Record r = KeyHelperProtocol::decode(m_bytes.constData() + at);
            records.append(u"%1 %2 %3 %4"_s.arg(kinds.value(int(r.kind), u"?"_s)).arg(r.device).arg(r.code).arg(r.value)
                + (r.reserved ? u" ?"_s : QString()));
        }
        return records;
    }

    QProcess process;

private:
    QByteArray m_bytes;
};

} // namespace

Q_DECLARE_METATYPE(Step)

class TestKeyHelper final : public QObject
{
    Q_OBJECT

private slots:
    void oneDevice_data();
    void oneDevice();
    void readsKeyboardsAndPointersOnlyAndThosePluggedIn();
    void installedBuildTakesNoArguments();
};

void TestKeyHelper::oneDevice_data()
{
    QTest::addColumn<QList<int>>("codes");
    QTest::addColumn<QList<int>>("down");
    QTest::addColumn<bool>("capsLockLed");
    QTest::addColumn<QList<Step>>("steps");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("Keys down at start make its state")
        << keyboardCodes << QList<int> { KEY_LEFTSHIFT, KEY_A } << true << QList<Step> {}
        << QStringList { u"stateBegin 0 0 0"_s, u"stateKey 0 30 0"_s, u"stateKey 0 42 0"_s, u"stateEnd 0 0 1"_s };
    QTest::newRow("Press, repeat, release, Caps Lock LED changes; other events and nonsense left out")
        << keyboardCodes << QList<int> {} << false
        << QList<Step> { { EV_MSC, MSC_SCAN, 0x70004 }, key(KEY_A, 1), syn, key(KEY_A, 2), syn, key(KEY_A, 0), syn,
               { EV_LED, LED_CAPSL, 1 }, { EV_LED, LED_NUML, 1 }, { EV_LED, LED_CAPSL, 1 }, { EV_LED, LED_CAPSL, 0 },
               key(KEY_A, 3), key(KEY_A, -1), key(KEY_MAX + 1, 1), { EV_REL, REL_X, 5 }, key(KEY_B, 1) }
        << QStringList { u"stateBegin 0 0 0"_s, u"stateEnd 0 0 0"_s, u"key 0 30 1"_s, u"key 0 30 2"_s, u"key 0 30 0"_s,
               u"capsLockLed 0 0 1"_s, u"capsLockLed 0 0 0"_s, u"key 0 48 1"_s };
    // B was down at start; A and B go up and C and the LED on while events are lost.
    QTest::newRow("Dropped events bring a fresh state block")
        << keyboardCodes << QList<int> { KEY_B } << false
        << QList<Step> { key(KEY_A, 1), syn, { EV_SYN, SYN_DROPPED, 0 }, key(KEY_A, 0), key(KEY_C, 1),
               { EV_LED, LED_CAPSL, 1 }, key(KEY_B, 0), syn, { EV_LED, LED_CAPSL, 1 }, key(KEY_D, 1), syn }
        << QStringList { u"stateBegin 0 0 0"_s, u"stateKey 0 48 0"_s, u"stateEnd 0 0 0"_s, u"key 0 30 1"_s,
               u"stateBegin 0 0 0"_s, u"stateKey 0 46 0"_s, u"stateEnd 0 0 1"_s, u"key 0 32 1"_s };
    QTest::newRow("Unplugged with a key held")
        << keyboardCodes << QList<int> {} << false << QList<Step> { key(KEY_A, 1), syn, { unplug } }
        << QStringList { u"stateBegin 0 0 0"_s, u"stateEnd 0 0 0"_s, u"key 0 30 1"_s, u"removed 0 0 0"_s };

    // A clickpad: its button goes through as a key; fingers on it do not. Wheel steps are whole notches, each
    // sent once: the fine values (three of 40) count, the notch that comes with the last of them does not; a drop
    // forgets what was under a notch.
    QTest::newRow("A touchpad's button, a wheel's notches, fingers left out")
        << touchpadCodes << QList<int> { BTN_LEFT, BTN_TOUCH } << false
        << QList<Step> { key(BTN_TOOL_FINGER, 1), key(BTN_LEFT, 0), syn, wheel(REL_WHEEL, -2), syn,
               wheel(REL_HWHEEL, 1), syn, wheel(REL_WHEEL_HI_RES, 40), syn, wheel(REL_WHEEL_HI_RES, 40), syn,
               wheel(REL_WHEEL_HI_RES, 40), wheel(REL_WHEEL, 1), syn, wheel(REL_WHEEL_HI_RES, 80), syn,
               { EV_SYN, SYN_DROPPED, 0 }, syn, wheel(REL_WHEEL_HI_RES, 40), syn, key(BTN_TOUCH, 0), syn }
        << QStringList { u"stateBegin 0 0 0"_s, u"stateKey 0 272 0"_s, u"stateEnd 0 0 0"_s, u"key 0 272 0"_s,
               u"scroll 0 1 0"_s, u"scroll 0 1 0"_s, u"scroll 0 3 0"_s, u"scroll 0 0 0"_s, u"stateBegin 0 0 0"_s,
               u"stateEnd 0 0 0"_s };
}

void TestKeyHelper::oneDevice()
{
    QFETCH(QList<int>, codes);
    QFETCH(QList<int>, down);
    QFETCH(bool, capsLockLed);
    QFETCH(QList<Step>, steps);
    QFETCH(QStringList, expected);

    QTemporaryDir dir;
    FakeDevice device(dir.path(), u"event3"_s, codes, down, capsLockLed);
    Helper helper(dir.path());
    // Its state first: a device gone before the helper read it would be another case.
    QTRY_COMPARE(helper.records().filter(u"stateEnd"_s).size(), 1);
    for (const Step& step : std::as_const(steps))
        device.send(step);
    expected.prepend(hello);
    QTRY_COMPARE(helper.records(), expected);

    // The end of its input is the end.
    helper.process.closeWriteChannel();
    QVERIFY(helper.process.waitForFinished(2000));
    QCOMPARE(helper.process.exitCode(), 0);
}

void TestKeyHelper::readsKeyboardsAndPointersOnlyAndThosePluggedIn()
{
    QTemporaryDir dir;
    const QString path = dir.path();
    FakeDevice mouse(path, u"event0"_s, { BTN_LEFT, BTN_RIGHT, BTN_MIDDLE });
    FakeDevice lettersOnly(path, u"event1"_s, { KEY_A, KEY_B, KEY_C });
    FakeDevice noLeftButton(path, u"event4"_s, { BTN_RIGHT, BTN_MIDDLE, BTN_TOUCH });
    FakeDevice notAnEventNode(path, u"keyboard"_s, keyboardCodes, { KEY_A });
    Helper helper(path);
    // Written together with what the devices there at start had to say.
    QTRY_COMPARE(helper.records(), QStringList({ hello, u"stateBegin 0 0 0"_s, u"stateEnd 0 0 0"_s }));

    // udev finishes a node a moment after it appears: one that cannot be read at first is tried again.
    QCOMPARE(::mkfifo(QFile::encodeName(path + u"/event2"_s).constData(), 0600), 0);
    QTest::qWait(100);
    FakeDevice keyboard(path, u"event2"_s, keyboardCodes, { KEY_LEFTSHIFT });
    QTRY_COMPARE(helper.records().size(), 6);
    FakeDevice mediaKeys(path, u"event10"_s, { KEY_VOLUMEUP, KEY_VOLUMEDOWN, KEY_MUTE });
    QTRY_COMPARE(helper.records().size(), 8);
    mouse.send(key(BTN_LEFT, 1));
    QTRY_COMPARE(helper.records().size(), 9);
    noLeftButton.send(key(BTN_RIGHT, 1));
    mediaKeys.send(key(KEY_VOLUMEUP, 1));
    QTRY_COMPARE(helper.records().size(), 10);
    keyboard.send(key(KEY_A, 1));
    keyboard.send({ unplug });
    QTRY_COMPARE(helper.records(),
        QStringList({ hello, u"stateBegin 0 0 0"_s, u"stateEnd 0 0 0"_s, u"stateBegin 1 0 0"_s, u"stateKey 1 42 0"_s,
            u"stateEnd 1 0 0"_s, u"stateBegin 2 0 0"_s, u"stateEnd 2 0 0"_s, u"key 0 272 1"_s, u"key 2 115 1"_s,
            u"key 1 30 1"_s, u"removed 1 0 0"_s }));
}

void TestKeyHelper::installedBuildTakesNoArguments()
{
    QProcess helper;
    helper.start(QStringLiteral(ORDALIS_KEYHELPER_BUILD_PATH), { u"--device-dir"_s, u"/tmp"_s });
    QVERIFY(helper.waitForFinished(5000));
    QCOMPARE(helper.exitCode(), 2);
    QCOMPARE(helper.readAllStandardOutput(), QByteArray());
}

QTEST_GUILESS_MAIN(TestKeyHelper)
#include "testkeyhelper.moc"
