// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/clock.h"
#include "app/settingkeys.h"
#include "app/settingsstore.h"
#include "input/inputbackend.h"
#include "input/keyboardmonitor.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

class FakeBackend final : public InputBackend
{
public:
    QString name() const override { return u"fake"_s; }
    Access access() const override { return Access::granted; }
    QString accessHelp() const override { return {}; }
    bool start() override { return true; }
    void stop() override { }
    bool capsLockOn() const override { return m_lockOn; }

    bool m_lockOn = false;
};

// Members in the order they depend on each other, so they are torn down in the right order.
struct Fixture
{
    Fixture() { monitor.attach(&backend); }

    QTemporaryDir dir;
    SettingsStore settings { dir.filePath(u"settings.json"_s) };
    ManualClock clock;
    FakeBackend backend;
    KeyboardMonitor monitor { settings, clock };
};

QList<KeyCode> sorted(QList<KeyCode> codes)
{
    std::sort(codes.begin(), codes.end());
    return codes;
}

// A remapped Caps Lock holding Shift, Control, Option and Command, reported with left side bits.
constexpr ModifierFlags hyperKeyCombination = 0x1E0000 | 0x2 | 0x1 | 0x20 | 0x8;
const QList<KeyCode> hyperKeyModifiers { 55, 56, 58, 59 };

} // namespace

class TestKeyboardMonitor final : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_f = std::make_unique<Fixture>(); }
    void clocksRunJobsInOrderOnlyForLiveContexts();
    void keysAreShownFromDownToUp();
    void modifierKeysFromFlags_data();
    void modifierKeysFromFlags();
    void keyStreamReportTouchesOnlyItsKey();
    void capsLockWithoutCombination();
    void hyperKeyDisplay_data();
    void hyperKeyDisplay();
    void releaseWithinDebounceLeavesNothing();
    void keyCodesForModifiers_data();
    void keyCodesForModifiers();
    void hyperKeyRecording_data();
    void hyperKeyRecording();
    void releaseAllForgetsEverything();

private:
    QList<KeyCode> shown() const { return m_f->monitor.pressedKeys().toList(); }

    std::unique_ptr<Fixture> m_f;
};

void TestKeyboardMonitor::clocksRunJobsInOrderOnlyForLiveContexts()
{
    ManualClock clock(1.0);
    QObject context;
    auto gone = std::make_unique<QObject>();
    QList<double> ran;
    const auto job = [&](double tag) { return [&ran, tag] { ran << tag; }; };
    clock.schedule(0.2, &context, job(4));
    clock.schedule(0.1, &context, [&] {
        ran << 1;
        clock.schedule(0.05, &context, [&] { ran << clock.now(); });
    });
    clock.schedule(0.1, &context, job(2));
    clock.schedule(0.1, gone.get(), job(-1));
    clock.cancel(clock.schedule(0.12, &context, job(-2)));
    clock.schedule(0.3, nullptr, job(5));
    gone.reset();

    clock.advance(0.099);
    QVERIFY(ran.isEmpty());
    clock.advance(0.301);
    QCOMPARE(ran, (QList<double> { 1, 2, 1.1 + 0.05, 4, 5 }));
    QCOMPARE(clock.now(), 1.4);
    QCOMPARE(clock.pendingJobCount(), 0);

    // The real clock runs due jobs from the event loop.
    SystemClock system;
    ran.clear();
    system.schedule(0, &context, job(1));
    system.cancel(system.schedule(0, &context, job(-1)));
    system.schedule(3600, &context, job(-2));
    for (int turn = 0; turn < 5 && ran.isEmpty(); ++turn)
        QCoreApplication::processEvents();
    QCOMPARE(ran, QList<double> { 1 });
}

void TestKeyboardMonitor::keysAreShownFromDownToUp()
{
    KeyboardMonitor& monitor = m_f->monitor;
    QVERIFY(monitor.pressedKeys().isEmpty());
    QCOMPARE(monitor.modifierFlags(), ModifierFlags(0));
    QVERIFY(!monitor.handleKeyDown(0));

    QSignalSpy changed(&monitor, &KeyboardMonitor::pressedKeysChanged);
    QSignalSpy keyChanged(&monitor, &KeyboardMonitor::keyChanged);
    int looked = 0;
    monitor.setOnKeyDown([&](KeyCode code) {
        ++looked;
        return code == 53;
    });

    // Auto-repeat: the set stays as it was, yet observers and the hook hear of every key-down.
    emit m_f->backend.keyDown(0);
    QCOMPARE(changed.count(), 1);
    QCOMPARE(keyChanged.count(), 0);
    QCOMPARE(looked, 1);

    // A swallowed key-down is still shown until its key-up.
    QVERIFY(monitor.handleKeyDown(53));
    QCOMPARE(shown(), (QList<KeyCode> { 0, 53 }));
    emit m_f->backend.keyUp(53);
    emit m_f->backend.keyUp(0);
    QVERIFY(monitor.pressedKeys().isEmpty());
    QCOMPARE(keyChanged.last(), (QVariantList { QVariant::fromValue(KeyCode(0)), false }));

    // Media keys arrive as the F-key carrying their symbol; types outside the table mean nothing.
    emit m_f->backend.mediaKey(111, true);
    QCOMPARE(shown(), QList<KeyCode> { 111 });
    emit m_f->backend.mediaKey(111, false);
    QVERIFY(monitor.pressedKeys().isEmpty());
    QCOMPARE(KeyboardMonitor::mediaKeyCode(0), std::optional<KeyCode>(111));
    QCOMPARE(KeyboardMonitor::mediaKeyCode(4), std::nullopt);
    QCOMPARE(KeyboardMonitor::mediaKeyCode(6), std::nullopt);
}

void TestKeyboardMonitor::modifierKeysFromFlags_data()
{
    QTest::addColumn<quint64>("flags");
    QTest::addColumn<QList<KeyCode>>("expected");

    QTest::newRow("Shift reported without side bits shows the left Shift only")
        << quint64(0x20000) << QList<KeyCode> { 56 };
    QTest::newRow("Both Shift keys") << quint64(0x20006) << QList<KeyCode> { 56, 60 };
    QTest::newRow("Releasing the right Shift keeps the left one") << quint64(0x20002) << QList<KeyCode> { 56 };
    QTest::newRow("The right Command side bit alone") << quint64(0x10) << QList<KeyCode> { 54 };
    QTest::newRow("Command without side bits shows the left Command") << quint64(0x100000) << QList<KeyCode> { 55 };
    QTest::newRow("fn is shown while its bit is set") << quint64(0x800000) << QList<KeyCode> { 63 };
    QTest::newRow("Lock, numeric pad and help bits light nothing") << quint64(0x610000) << QList<KeyCode> {};
}

void TestKeyboardMonitor::modifierKeysFromFlags()
{
    QFETCH(quint64, flags);
    QFETCH(QList<KeyCode>, expected);

    // From everything held to `flags`: keys go as well as come, and other keys stay.
    emit m_f->backend.keyDown(0);
    m_f->monitor.handleFlagsChangedEvent(KeyboardMonitor::hyperKeyModifierMask | ModifierFlag::function, 56);
    QCOMPARE(m_f->monitor.pressedKeys().size(), 10);
    m_f->monitor.handleFlagsChangedEvent(flags, 56);
    QCOMPARE(shown(), sorted(expected << 0));
    QCOMPARE(m_f->monitor.modifierFlags(), flags);
}

void TestKeyboardMonitor::keyStreamReportTouchesOnlyItsKey()
{
    KeyboardMonitor& monitor = m_f->monitor;
    monitor.handleTapFlagsChanged(0x20002, 56);
    monitor.handleTapFlagsChanged(0x20006, 60);
    QCOMPARE(shown(), (QList<KeyCode> { 56, 60 }));
    monitor.handleTapFlagsChanged(0x20002, 60);
    QCOMPARE(shown(), QList<KeyCode> { 56 });

    QSignalSpy changed(&monitor, &KeyboardMonitor::pressedKeysChanged);
    monitor.handleTapFlagsChanged(0x10000, KeyboardMonitor::capsLockKeyCode);
    QCOMPARE(changed.count(), 0);
    QCOMPARE(monitor.modifierFlags(), ModifierFlags(0x10000));

    // A back end's report goes down both paths: the hook hears it twice, the flags change once.
    QList<QPair<ModifierFlags, KeyCode>> reports;
    monitor.setOnFlagsChanged([&](ModifierFlags flags, KeyCode code) { reports.append({ flags, code }); });
    QSignalSpy flagsChanged(&monitor, &KeyboardMonitor::modifierFlagsChanged);
    emit m_f->backend.flagsChanged(0x80040, 61);
    QCOMPARE(reports, (QList<QPair<ModifierFlags, KeyCode>> { { 0x80040, 61 }, { 0x80040, 61 } }));
    QCOMPARE(flagsChanged.count(), 1);
    QCOMPARE(shown(), QList<KeyCode> { 61 });
}

void TestKeyboardMonitor::capsLockWithoutCombination()
{
    KeyboardMonitor& monitor = m_f->monitor;
    m_f->backend.m_lockOn = true;
    QVERIFY(monitor.start());
    QVERIFY(monitor.capsLockOn());
    QSignalSpy lockChanged(&monitor, &KeyboardMonitor::capsLockOnChanged);

    emit m_f->backend.capsLockKey(true);
    QCOMPARE(shown(), QList<KeyCode> { 57 });
    m_f->backend.m_lockOn = false;
    m_f->clock.advance(0.09);
    QVERIFY(monitor.capsLockOn());
    m_f->clock.advanceTo(0.1);
    QVERIFY(!monitor.capsLockOn());

    // The release is followed by a read as well.
    emit m_f->backend.capsLockKey(false);
    QVERIFY(monitor.pressedKeys().isEmpty());
    m_f->backend.m_lockOn = true;
    m_f->clock.advance(KeyboardMonitor::capsLockRefreshDelay);
    QVERIFY(monitor.capsLockOn());
    QCOMPARE(lockChanged.count(), 2);
}

void TestKeyboardMonitor::hyperKeyDisplay_data()
{
    QTest::addColumn<bool>("showAsCapsLock");
    QTest::addColumn<bool>("flagsFirst");
    QTest::addColumn<QList<KeyCode>>("expected");

    QTest::newRow("Shown as Caps Lock, the flags after the key") << true << false << QList<KeyCode> { 57 };
    QTest::newRow("Shown as Caps Lock, the flags before the key") << true << true << QList<KeyCode> { 57 };
    QTest::newRow("Shown as modifiers, the flags after the key") << false << false << hyperKeyModifiers;
    QTest::newRow("Shown as modifiers, the flags before the key") << false << true << hyperKeyModifiers;
}

void TestKeyboardMonitor::hyperKeyDisplay()
{
    QFETCH(bool, showAsCapsLock);
    QFETCH(bool, flagsFirst);
    QFETCH(QList<KeyCode>, expected);
    m_f->settings.setValue(SettingKeys::hyperKeyModifiers(), std::uint64_t(0x1E0000));
    m_f->settings.setValue(SettingKeys::hyperKeyShowAsCapsLock(), showAsCapsLock);

    if (flagsFirst) {
        emit m_f->backend.flagsChanged(hyperKeyCombination, 56);
        emit m_f->backend.capsLockKey(true);
        // The flags came before the key knew it was held: nothing changes until the delay is over.
        QCOMPARE(shown(), hyperKeyModifiers);
    } else {
        emit m_f->backend.capsLockKey(true);
        QVERIFY(m_f->monitor.pressedKeys().isEmpty());
        emit m_f->backend.flagsChanged(hyperKeyCombination, 56);
        QCOMPARE(shown(), expected);
    }
    m_f->clock.advance(KeyboardMonitor::hyperKeyDebounceDelay);
    QCOMPARE(shown(), expected);

    // Another modifier while held is shown as usual.
    emit m_f->backend.flagsChanged(hyperKeyCombination | ModifierFlag::rightShift, 60);
    QCOMPARE(shown(), sorted(expected << 60));

    emit m_f->backend.capsLockKey(false);
    emit m_f->backend.flagsChanged(0, 56);
    QVERIFY(m_f->monitor.pressedKeys().isEmpty());
}

void TestKeyboardMonitor::releaseWithinDebounceLeavesNothing()
{
    m_f->settings.setValue(SettingKeys::hyperKeyModifiers(), std::uint64_t(0x1E0000));
    emit m_f->backend.capsLockKey(true);
    m_f->clock.advance(0.03);
    emit m_f->backend.capsLockKey(false);
    m_f->clock.advance(0.1);
    QVERIFY(m_f->monitor.pressedKeys().isEmpty());

    // A new press waits its own full delay.
    emit m_f->backend.capsLockKey(true);
    m_f->clock.advance(0.04);
    QVERIFY(m_f->monitor.pressedKeys().isEmpty());
    m_f->clock.advance(0.02);
    QCOMPARE(shown(), QList<KeyCode> { 57 });
}

void TestKeyboardMonitor::keyCodesForModifiers_data()
{
    QTest::addColumn<quint64>("modifiers");
    QTest::addColumn<QList<KeyCode>>("expected");

    // Not sorted: the order is part of the result.
    QTest::newRow("Control and Command without side bits") << quint64(0x140000) << QList<KeyCode> { 59, 55 };
    QTest::newRow("Shift, Control, Option and Command") << quint64(0x1E0000) << QList<KeyCode> { 56, 59, 58, 55 };
    QTest::newRow("Every bit of the mask, in table order")
        << quint64(KeyboardMonitor::hyperKeyModifierMask) << QList<KeyCode> { 56, 60, 59, 62, 58, 61, 55, 54 };
    QTest::newRow("fn and Caps Lock are never listed") << quint64(0x810000) << QList<KeyCode> {};
}

void TestKeyboardMonitor::keyCodesForModifiers()
{
    QFETCH(quint64, modifiers);
    QFETCH(QList<KeyCode>, expected);
    const QVarLengthArray<KeyCode, 8> result = KeyboardMonitor::keyCodesForModifiers(modifiers);
    QCOMPARE(QList<KeyCode>(result.begin(), result.end()), expected);
}

void TestKeyboardMonitor::hyperKeyRecording_data()
{
    QTest::addColumn<bool>("capsLockHeld");
    QTest::addColumn<quint64>("flags");
    QTest::addColumn<qint64>("recorded"); // -1: nothing

    QTest::newRow("A plain Shift press without Caps Lock records nothing") << false << quint64(0x20002) << qint64(-1);
    QTest::newRow("Only the Caps Lock and fn bits record nothing") << true << quint64(0x810000) << qint64(-1);
    QTest::newRow("Control and left Command are recorded") << true << quint64(0x140009) << qint64(0x140009);
    QTest::newRow("Lock, numeric pad, help and fn bits are stripped")
        << true << quint64(0xFFFFFF) << qint64(KeyboardMonitor::hyperKeyModifierMask);
}

void TestKeyboardMonitor::hyperKeyRecording()
{
    QFETCH(bool, capsLockHeld);
    QFETCH(quint64, flags);
    QFETCH(qint64, recorded);

    // As the settings window does it: store, then end recording by clearing the callback from inside it.
    qint64 delivered = -1;
    m_f->monitor.setRecordingHyperKey(true);
    m_f->monitor.setOnHyperKeyRecorded([&](ModifierFlags mask) {
        delivered = qint64(mask);
        m_f->monitor.setOnHyperKeyRecorded(nullptr);
    });
    if (capsLockHeld)
        emit m_f->backend.capsLockKey(true);

    m_f->monitor.handleTapFlagsChanged(flags, 56);
    QCOMPARE(delivered, qint64(-1));
    m_f->monitor.handleFlagsChangedEvent(flags, 56);
    QCOMPARE(delivered, recorded);
    QCOMPARE(m_f->monitor.isRecordingHyperKey(), recorded == -1);
}

void TestKeyboardMonitor::releaseAllForgetsEverything()
{
    m_f->settings.setValue(SettingKeys::hyperKeyModifiers(), std::uint64_t(0x1E0000));
    emit m_f->backend.keyDown(999);
    emit m_f->backend.flagsChanged(0x20002, 56);
    emit m_f->backend.capsLockKey(true);

    QSignalSpy changed(&m_f->monitor, &KeyboardMonitor::pressedKeysChanged);
    QSignalSpy keyChanged(&m_f->monitor, &KeyboardMonitor::keyChanged);
    m_f->monitor.releaseAll();
    QVERIFY(m_f->monitor.pressedKeys().isEmpty());
    QCOMPARE(m_f->monitor.modifierFlags(), ModifierFlags(0));
    QCOMPARE(changed.count(), 1);
    QCOMPARE(keyChanged.count(), 2);
    // The pending HyperKey step went with the held key.
    m_f->clock.advance(0.2);
    QVERIFY(m_f->monitor.pressedKeys().isEmpty());
}

QTEST_GUILESS_MAIN(TestKeyboardMonitor)
#include "testkeyboardmonitor.moc"
