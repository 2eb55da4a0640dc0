// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/clock.h"
#include "app/settingkeys.h"
#include "app/settingsstore.h"
#include "input/hotkeymanager.h"
#include "input/keyboardmonitor.h"

#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Left Option is the trigger unless a test says otherwise: its down state is its side bit with the generic bit.
constexpr ModifierFlags optionDown = ModifierFlag::option | ModifierFlag::leftOption;
constexpr KeyCode optionKey = 58;

enum class Meanwhile
{
    nothing,
    keyDown,
    shiftChange,
};

// Members in the order they depend on each other, so they are torn down in the right order.
struct Fixture
{
    Fixture()
    {
        settings.setValue(SettingKeys::triggerModifier(), TriggerModifier::leftOption);
        manager.setPanelHoveredPredicate([this] { return hovered; });
        manager.setOnTripleTap([this] { ++tripleTaps; });
        manager.setOnSingleTapWhileHovering([this] { ++singleTaps; });
        manager.setOnEscapeWhileHovering([this] { ++escapes; });
        manager.setOnSettingsHotkey([this] { ++settingsHotkeys; });
        manager.start();
    }

    QTemporaryDir dir;
    SettingsStore settings { dir.filePath(u"settings.json"_s) };
    ManualClock clock;
    KeyboardMonitor monitor { settings, clock };
    HotkeyManager manager { monitor, settings, clock };
    bool hovered = false;
    int tripleTaps = 0;
    int singleTaps = 0;
    int escapes = 0;
    int settingsHotkeys = 0;
};

} // namespace

class TestHotkeyManager final : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_f = std::make_unique<Fixture>(); }
    void tripleTap_data();
    void tripleTap();
    void longPressWithOtherReportsCountsOnce();
    void singleTapWhileHovering_data();
    void singleTapWhileHovering();
    void leftControlNeedsItsOwnKeyCode();
    void capsLockTriggerFollowsTheLock();
    void swallowing_data();
    void swallowing();
    void globalHotkeySwitchSilencesOnlyTheTripleTap();
    void stopRemovesHooksAndKeepsCounters();

private:
    // Both paths of the monitor hear it, so the manager gets every report twice, as in the running program.
    void report(ModifierFlags flags, KeyCode keyCode)
    {
        m_f->monitor.handleTapFlagsChanged(flags, keyCode);
        m_f->monitor.handleFlagsChangedEvent(flags, keyCode);
    }
    void tapOption(double start, double hold = 0.1)
    {
        m_f->clock.advanceTo(start);
        report(optionDown, optionKey);
        m_f->clock.advanceTo(start + hold);
        report(0, optionKey);
    }

    std::unique_ptr<Fixture> m_f;
};

void TestHotkeyManager::tripleTap_data()
{
    QTest::addColumn<QList<double>>("starts");
    QTest::addColumn<bool>("hovered");
    QTest::addColumn<int>("tripleTaps");
    QTest::addColumn<qint64>("tapCount");
    QTest::addColumn<int>("singleTaps");

    QTest::newRow("Three presses 0.25 s apart fire once") << QList<double> { 0, 0.25, 0.5 } << false << 1 << 0LL << 0;
    QTest::newRow("A fourth press 0.25 s later starts a new count at 1")
        << QList<double> { 0, 0.25, 0.5, 0.75 } << false << 1 << 1LL << 0;
    QTest::newRow("Gaps of 0.2 s and then 0.35 s leave the count at 1")
        << QList<double> { 0, 0.2, 0.55 } << false << 0 << 1LL << 0;
    QTest::newRow("A gap of exactly 0.3 s is too long") << QList<double> { 0, 0.3, 0.6 } << false << 0 << 1LL << 0;
    QTest::newRow("Six quick presses fire twice")
        << QList<double> { 0, 0.25, 0.5, 0.75, 1.0, 1.25 } << false << 2 << 0LL << 0;
    QTest::newRow("Each tap of a triple tap while hovering is a single tap too")
        << QList<double> { 0, 0.25, 0.5 } << true << 1 << 0LL << 3;
}

void TestHotkeyManager::tripleTap()
{
    QFETCH(QList<double>, starts);
    QFETCH(bool, hovered);
    QFETCH(int, tripleTaps);
    QFETCH(qint64, tapCount);
    QFETCH(int, singleTaps);

    m_f->hovered = hovered;
    for (double start : starts)
        tapOption(start);
    QCOMPARE(m_f->tripleTaps, tripleTaps);
    QCOMPARE(m_f->manager.tapCount(), tapCount);
    QCOMPARE(m_f->manager.lastTapTime(), tapCount == 0 ? std::nullopt : std::optional<double>(starts.last()));
    QCOMPARE(m_f->singleTaps, singleTaps);
}

void TestHotkeyManager::longPressWithOtherReportsCountsOnce()
{
    m_f->hovered = true;
    tapOption(0);
    tapOption(0.25);
    m_f->clock.advanceTo(0.5);
    report(optionDown, optionKey);
    QCOMPARE(m_f->tripleTaps, 1);

    // Two seconds held, with Shift going down and up and a key typed: still the same press.
    m_f->clock.advanceTo(1.0);
    report(optionDown | ModifierFlag::shift | ModifierFlag::leftShift, 56);
    m_f->monitor.handleKeyDown(0);
    report(optionDown, 56);
    m_f->clock.advanceTo(2.5);
    report(0, optionKey);
    QCOMPARE(m_f->tripleTaps, 1);
    QCOMPARE(m_f->singleTaps, 2);
    QVERIFY(!m_f->manager.pressTime());

    tapOption(2.6);
    QCOMPARE(m_f->manager.tapCount(), 1);
}

void TestHotkeyManager::singleTapWhileHovering_data()
{
    QTest::addColumn<bool>("hovered");
    QTest::addColumn<double>("hold");
    QTest::addColumn<Meanwhile>("meanwhile");
    QTest::addColumn<int>("singleTaps");

    QTest::newRow("A 0.1 s tap alone while hovering fires") << true << 0.1 << Meanwhile::nothing << 1;
    QTest::newRow("A tap of exactly 0.15 s is too long") << true << 0.15 << Meanwhile::nothing << 0;
    QTest::newRow("A key typed during the tap cancels it") << true << 0.1 << Meanwhile::keyDown << 0;
    QTest::newRow("Another modifier during the tap is no key") << true << 0.1 << Meanwhile::shiftChange << 1;
    QTest::newRow("A tap while not hovering fires nothing") << false << 0.1 << Meanwhile::nothing << 0;
}

void TestHotkeyManager::singleTapWhileHovering()
{
    QFETCH(bool, hovered);
    QFETCH(double, hold);
    QFETCH(Meanwhile, meanwhile);
    QFETCH(int, singleTaps);

    m_f->hovered = hovered;
    report(optionDown, optionKey);
    QCOMPARE(m_f->manager.pressTime(), 0.0);
    if (meanwhile == Meanwhile::keyDown)
        m_f->monitor.handleKeyDown(0);
    if (meanwhile == Meanwhile::shiftChange)
        report(optionDown | ModifierFlag::shift, 56);
    QCOMPARE(m_f->manager.otherKeyDuringPress(), meanwhile == Meanwhile::keyDown);
    m_f->clock.advanceTo(hold);
    report(0, optionKey);
    QCOMPARE(m_f->singleTaps, singleTaps);
}

void TestHotkeyManager::leftControlNeedsItsOwnKeyCode()
{
    m_f->settings.setValue(SettingKeys::triggerModifier(), TriggerModifier::leftControl);
    report(0x40001, 56);
    report(0x42000, 62);
    QVERIFY(!m_f->manager.wasPressed());

    report(0x40001, 59);
    QVERIFY(m_f->manager.wasPressed());
    // A Shift change while Control is held carries Shift's key code, so it ends the press.
    m_f->clock.advanceTo(0.05);
    report(0x40003, 56);
    QVERIFY(!m_f->manager.wasPressed());
    QVERIFY(!m_f->manager.pressTime());

    m_f->clock.advanceTo(0.1);
    report(0x40001, 56);
    report(0, 59);
    report(0x40001, 59);
    QCOMPARE(m_f->manager.tapCount(), 2);
}

void TestHotkeyManager::capsLockTriggerFollowsTheLock()
{
    m_f->settings.setValue(SettingKeys::triggerModifier(), TriggerModifier::capsLock);
    // Each key press toggles the lock bit; the release of the key changes nothing.
    const QList<std::pair<double, ModifierFlags>> lockReports { { 0.0, 0x10000 }, { 0.1, 0x10000 }, { 0.2, 0 },
        { 0.25, 0x10000 }, { 0.4, 0 }, { 0.5, 0x10000 } };
    for (const auto& [time, flags] : lockReports) {
        m_f->clock.advanceTo(time);
        report(flags, KeyboardMonitor::capsLockKeyCode);
        if (time == 0.25)
            QCOMPARE(m_f->manager.tapCount(), 2);
    }
    QCOMPARE(m_f->tripleTaps, 1);
    QVERIFY(m_f->manager.wasPressed());
}

void TestHotkeyManager::swallowing_data()
{
    QTest::addColumn<bool>("hovered");
    QTest::addColumn<bool>("escapeSetting");
    QTest::addColumn<int>("keyCode");
    QTest::addColumn<quint64>("flags");
    QTest::addColumn<bool>("swallowed");
    QTest::addColumn<int>("escapes");
    QTest::addColumn<int>("settingsHotkeys");

    QTest::newRow("Escape while hovering with the setting on is swallowed")
        << true << true << 53 << quint64(0) << true << 1 << 0;
    QTest::newRow("Escape while hovering with the setting off passes")
        << true << false << 53 << quint64(0) << false << 0 << 0;
    QTest::newRow("Escape while not hovering passes") << false << true << 53 << quint64(0) << false << 0 << 0;
    QTest::newRow("Command-comma while hovering is swallowed")
        << true << false << 43 << quint64(0x100008) << true << 0 << 1;
    QTest::newRow("Right Command-comma while hovering is swallowed")
        << true << false << 43 << quint64(0x100010) << true << 0 << 1;
    QTest::newRow("Comma without Command while hovering passes") << true << true << 43 << quint64(0) << false << 0 << 0;
    QTest::newRow("Control-comma while hovering passes") << true << true << 43 << quint64(0x40001) << false << 0 << 0;
    QTest::newRow("Command-comma while not hovering passes")
        << false << true << 43 << quint64(0x100008) << false << 0 << 0;
    QTest::newRow("Another key while hovering passes") << true << true << 0 << quint64(0x100008) << false << 0 << 0;
}

void TestHotkeyManager::swallowing()
{
    QFETCH(bool, hovered);
    QFETCH(bool, escapeSetting);
    QFETCH(int, keyCode);
    QFETCH(quint64, flags);
    QFETCH(bool, swallowed);
    QFETCH(int, escapes);
    QFETCH(int, settingsHotkeys);

    m_f->hovered = hovered;
    m_f->settings.setValue(SettingKeys::escapeToHideOnHover(), escapeSetting);
    report(flags, 55);
    QCOMPARE(m_f->monitor.handleKeyDown(KeyCode(keyCode)), swallowed);
    QCOMPARE(m_f->escapes, escapes);
    QCOMPARE(m_f->settingsHotkeys, settingsHotkeys);
    QCOMPARE(m_f->manager.swallowedShortcuts(), (HotkeyManager::SwallowedShortcuts { escapeSetting, true }));

    // The decision does not depend on anyone listening.
    m_f->manager.setOnEscapeWhileHovering(nullptr);
    m_f->manager.setOnSettingsHotkey(nullptr);
    QCOMPARE(m_f->monitor.handleKeyDown(KeyCode(keyCode)), swallowed);
}

void TestHotkeyManager::globalHotkeySwitchSilencesOnlyTheTripleTap()
{
    m_f->settings.setValue(SettingKeys::enableGlobalHotkey(), false);
    m_f->settings.setValue(SettingKeys::escapeToHideOnHover(), true);
    m_f->hovered = true;
    tapOption(0);
    tapOption(0.25);
    tapOption(0.5);
    QCOMPARE(m_f->tripleTaps, 0);
    QCOMPARE(m_f->manager.tapCount(), 0);
    QCOMPARE(m_f->singleTaps, 3);
    QVERIFY(m_f->monitor.handleKeyDown(53));
    QCOMPARE(m_f->escapes, 1);

    // Read when the third press comes, not when the manager started.
    tapOption(1.0);
    tapOption(1.25);
    m_f->settings.setValue(SettingKeys::enableGlobalHotkey(), true);
    tapOption(1.5);
    QCOMPARE(m_f->tripleTaps, 1);
}

void TestHotkeyManager::stopRemovesHooksAndKeepsCounters()
{
    m_f->hovered = true;
    m_f->settings.setValue(SettingKeys::escapeToHideOnHover(), true);
    tapOption(0);
    m_f->manager.stop();
    QVERIFY(!m_f->monitor.onKeyDown());
    QVERIFY(!m_f->monitor.onFlagsChanged());
    tapOption(0.12, 0.02);
    QVERIFY(!m_f->monitor.handleKeyDown(53));
    QCOMPARE(m_f->manager.tapCount(), 1);

    m_f->manager.start();
    tapOption(0.2);
    QCOMPARE(m_f->manager.tapCount(), 2);

    // A manager that goes away takes its hooks with it.
    std::make_unique<HotkeyManager>(m_f->monitor, m_f->settings, m_f->clock)->start();
    QVERIFY(!m_f->monitor.onKeyDown());
    QVERIFY(!m_f->monitor.onFlagsChanged());
}

QTEST_GUILESS_MAIN(TestHotkeyManager)
#include "testhotkeymanager.moc"
