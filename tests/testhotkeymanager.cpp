// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/clock.h"
#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "input/hotkeymanager.h"
#include "input/keyboardmonitor.h"
#include "input/triggermodifier.h"

#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

struct Fixture
{
    Fixture()
    {
        settings.setValue(SettingKeys::triggerModifier(), TriggerModifier::leftOption);
        manager.setPanelHoveredPredicate([this] { return hovered; });
        manager.setOnTripleTap([this] { ++fired[0]; });
        manager.setOnSingleTapWhileHovering([this] { ++fired[1]; });
        manager.setOnEscapeWhileHovering([this] { ++fired[2]; });
        manager.setOnSettingsHotkey([this] { ++fired[3]; });
        manager.start();
    }

    QTemporaryDir dir;
    SettingsStore settings { dir.filePath(u"settings.json"_s) };
    ManualClock clock;
    KeyboardMonitor monitor { settings, clock };
    HotkeyManager manager { monitor, settings, clock };
    bool hovered = false;
    // Triple taps, single taps while hovering, Escapes while hovering, settings hotkeys.
    QList<int> fired { 0, 0, 0, 0 };
};

} // namespace

class TestHotkeyManager final : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_f = std::make_unique<Fixture>(); }
    void scripts_data();
    void scripts();

private:
    std::unique_ptr<Fixture> m_f;
};

void TestHotkeyManager::scripts_data()
{
    // Steps separated by ';'; flags in hex, the rest in decimal. Left Option is the trigger unless "trigger R" (a
    // raw value, read by the manager as it is stored) says otherwise. "flags F K": a modifier report. "tap T [H]":
    // left Option pressed at T and released H (0.1) later. "key K": a key-down.
    // "at T": the clock moves to T. "hover", "escape", "global" 0|1: the panel hovered and the two switches.
    // "stop", "start". Checks: "fired T S E C" the triple taps,
    // single taps, Escapes and settings hotkeys so far (missing ones 0), "swallow K 0|1" a key-down and whether it
    // is kept from other applications.
    QTest::addColumn<QString>("script");

    QTest::newRow("Presses less than 0.3 s apart fire on every third, and the count starts again after each")
        << u"tap 0; tap .25; tap .5; fired 1; tap .75; tap 1; fired 1; tap 1.25; fired 2"_s;
    QTest::newRow("A gap of 0.3 s or more starts the count again")
        << u"tap 0; tap .3; tap .6; tap .8; fired 0; tap 1.15; tap 1.4; fired 0; tap 1.65; fired 1"_s;
    // Two seconds held, with Shift going down and up and a key typed: still the same press.
    QTest::newRow("A long press with other reports in between counts once")
        << u"hover 1; tap 0; tap .25; at .5; flags 80020 58; fired 1 2; at 1; flags a0022 56; key 0; flags 80020 56;"
           " at 2.5; flags 0 58; fired 1 2; tap 2.6; tap 2.8; fired 1 4"_s;
    QTest::newRow("A single tap is the trigger alone for less than 0.15 s while hovering; a modifier is no key")
        << u"hover 1; tap 0 .15; fired; at 1; flags 80020 58; at 1.1; flags 0 58; fired 0 1; at 2; flags 80020 58;"
           " key 0; at 2.1; flags 0 58; fired 0 1; at 3; flags 80020 58; flags a0020 56; at 3.1; flags 0 58;"
           " fired 0 2; hover 0; tap 4; fired 0 2"_s;
    // A Shift change while Control is held carries Shift's key code, so it ends the press; right Control is no
    // press at all.
    QTest::newRow("Left Control needs its own key code")
        << u"trigger leftControl; flags 42000 62; flags 0 62; flags 40001 59; at .1; flags 40003 56; at .15;"
           " flags 40001 56; at .2; flags 40001 59; at .25; flags 0 59; fired 0; at .3; flags 40001 59; fired 1"_s;
    // Each key press toggles the lock bit; the release of the key changes nothing.
    QTest::newRow("The Caps Lock trigger follows the lock")
        << u"trigger capsLock; flags 10000 57; at .1; flags 10000 57; at .2; flags 0 57; at .25; flags 10000 57;"
           " fired 0; at .4; flags 0 57; at .5; flags 10000 57; fired 1"_s;
    // Read when the third press comes, not when the manager started.
    QTest::newRow("The global hotkey switch silences only the triple tap")
        << u"global 0; escape 1; hover 1; tap 0; tap .25; tap .5; fired 0 3; swallow 53 1; fired 0 3 1;"
           " tap 1; tap 1.25; global 1; tap 1.5; fired 1 6 1"_s;
    QTest::newRow("Stopping ends listening and keeps the counters")
        << u"hover 1; escape 1; tap 0; stop; tap .12 .02; swallow 53 0; start; tap .2; tap .35; fired 1 3"_s;
    QTest::newRow("Only while hovering, Escape is swallowed as the setting says, Command-comma always")
        << u"escape 1; swallow 53 0; flags 100008 55; swallow 43 0; flags 0 55; fired; hover 1; escape 0; swallow 53 0;"
           " escape 1; swallow 53 1; fired 0 0 1; swallow 43 0; flags 40001 59; swallow 43 0; flags 100008 55;"
           " swallow 43 1; swallow 0 0; flags 100010 54; swallow 43 1; fired 0 0 1 2"_s;
}

void TestHotkeyManager::scripts()
{
    QFETCH(QString, script);
    HotkeyManager& manager = m_f->manager;
    KeyboardMonitor& monitor = m_f->monitor;
    const auto report = [&](ModifierFlags flags, KeyCode keyCode) { monitor.handleFlagsChanged(flags, keyCode); };
    for (const QString& step : script.split(u';', Qt::SkipEmptyParts)) {
        const QStringList w = step.split(u' ', Qt::SkipEmptyParts);
        const auto number = [&](int i) { return w.at(i).toInt(); };
        const QString& op = w.first();
        if (op == u"flags") {
            report(ModifierFlags(w.at(1).toULongLong(nullptr, 16)), KeyCode(number(2)));
        } else if (op == u"tap") {
            const double start = w.at(1).toDouble();
            m_f->clock.advanceTo(start);
            report(ModifierFlag::option | ModifierFlag::leftOption, 58);
            m_f->clock.advanceTo(start + (w.size() > 2 ? w.at(2).toDouble() : 0.1));
            report(0, 58);
        } else if (op == u"key") {
            monitor.handleKeyDown(KeyCode(number(1)));
        } else if (op == u"at") {
            m_f->clock.advanceTo(w.at(1).toDouble());
        } else if (op == u"trigger") {
            m_f->settings.setValue(SettingKeys::triggerModifier(), *TriggerModifiers::fromRawValue(w.at(1)));
        } else if (op == u"hover") {
            m_f->hovered = number(1) != 0;
        } else if (op == u"escape") {
            m_f->settings.setValue(SettingKeys::escapeToHideOnHover(), number(1) != 0);
            QCOMPARE(manager.swallowedShortcuts(), (HotkeyManager::SwallowedShortcuts { number(1) != 0, true }));
        } else if (op == u"global") {
            m_f->settings.setValue(SettingKeys::enableGlobalHotkey(), number(1) != 0);
        } else if (op == u"stop") {
            manager.stop();
        } else if (op == u"start") {
            manager.start();
        } else if (op == u"fired") {
            QList<int> expected { 0, 0, 0, 0 };
            for (int i = 1; i < w.size(); ++i)
                expected[i - 1] = number(i);
            QCOMPARE(m_f->fired, expected);
        } else if (op == u"swallow") {
            QCOMPARE(monitor.handleKeyDown(KeyCode(number(1))), number(2) != 0);
        } else {
            QFAIL(qPrintable(step));
        }
    }
}

QTEST_GUILESS_MAIN(TestHotkeyManager)
#include "testhotkeymanager.moc"
