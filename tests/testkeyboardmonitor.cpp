// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/clock.h"
#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "input/inputbackend.h"
#include "input/keyboardmonitor.h"
#include "testsupport.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const QStringList buttonNames { u"left"_s, u"right"_s, u"middle"_s, u"back"_s, u"forward"_s };
const QStringList directionNames { u"up"_s, u"down"_s, u"left"_s, u"right"_s };

struct Fixture
{
    Fixture()
    {
        monitor.attach(&backend);
        QObject::connect(&monitor, &KeyboardMonitor::buttonChanged, &monitor,
            [this](PointerButton b, bool down) { pointer << buttonNames.at(int(b)) + (down ? u"+"_s : u"-"_s); });
        QObject::connect(&monitor, &KeyboardMonitor::scrolled, &monitor,
            [this](ScrollDirection d) { pointer << u"wheel-"_s + directionNames.at(int(d)); });
    }

    QTemporaryDir dir;
    SettingsStore settings { dir.filePath(u"settings.json"_s) };
    ManualClock clock;
    TestSupport::FakeInputBackend backend;
    KeyboardMonitor monitor { settings, clock };
    QSignalSpy changed { &monitor, &KeyboardMonitor::pressedKeysChanged };
    QSignalSpy keyChanged { &monitor, &KeyboardMonitor::keyChanged };
    /** What the monitor told of buttons ("left+", "left-") and scrolling ("wheel-up"), in order. */
    QStringList pointer;
    qint64 recorded = -1;
    int hookCalls = 0;
};

} // namespace

class TestKeyboardMonitor final : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_f = std::make_unique<Fixture>(); }
    void scripts_data();
    void scripts();

private:
    QList<KeyCode> shown() const { return m_f->monitor.pressedKeys().toList(); }

    std::unique_ptr<Fixture> m_f;
};

void TestKeyboardMonitor::scripts_data()
{
    // Steps separated by ';', numbers in decimal except flags (hex). From the back end: "down K", "up K",
    // "media K 0|1", "caps 0|1" (the Caps Lock key), "flags F K" (a modifier report). "hyper F 0|1": the recorded
    // combination and whether it shows as Caps Lock. "record": start recording one, as the settings window does.
    // "hook K": K is kept from other applications, as the gestures keep Escape.
    // "at T": the clock moves to T. Checks: "= K..." the keys shown, "on 0|1" the lock state, "mods F" the flags,
    // "recorded F|-" what recording delivered, "changes N M" the pressedKeysChanged and keyChanged signals since
    // the last "changes".
    QTest::addColumn<QString>("script");

    QTest::newRow("Auto-repeat is announced although nothing changes; media keys show on their F-key")
        << u"down 0; changes; down 0; changes 1 0; media 111 1; = 0 111; up 0; media 111 0; =; changes 3 3"_s;
    // From everything held to each state: keys go as well as come, and other keys stay.
    QTest::newRow("A key kept from other applications is still shown") << u"hook 53; down 0; down 53; = 0 53"_s;
    QTest::newRow("A left key also counts by the generic bit, unless the right side bit is set")
        << u"down 0; flags 9e207f 56; = 0 54 55 56 58 59 60 61 62 63; flags 20000 56; = 0 56; flags 20006 60;"
           " = 0 56 60; flags 20002 60; = 0 56; flags 10 54; = 0 54; flags 100000 55; = 0 55; mods 100000"_s;
    QTest::newRow("fn shows by its bit; lock, numeric pad and help bits light nothing")
        << u"down 0; flags 9e207f 56; flags 800000 63; = 0 63; flags 610000 56; = 0; mods 610000"_s;
    QTest::newRow("Each report sets every modifier key, once, from the flags alone")
        << u"flags 20002 56; flags 20006 60; = 56 60; changes 18 2; flags 20002 60; = 56; flags 60000 57; = 56 59;"
           " mods 60000"_s;
    QTest::newRow("Caps Lock without a combination shows at once; its light is the lock bit of the flags")
        << u"caps 1; = 57; on 0; flags 10000 57; on 1; = 57; caps 0; =; on 1; flags 0 57; on 0"_s;
    QTest::newRow("HyperKey shown as Caps Lock, the flags after the key")
        << u"hyper 1e0000 1; caps 1; =; flags 1e002b 56; = 57; at .05; = 57; flags 1e002f 60; = 57 60; caps 0;"
           " flags 0 56; ="_s;
    // The flags came before the key knew it was held: nothing changes until the delay is over.
    QTest::newRow("HyperKey shown as Caps Lock, the flags before the key")
        << u"hyper 1e0000 1; flags 1e002b 56; caps 1; = 55 56 58 59; at .049; = 55 56 58 59; at .05; = 57;"
           " flags 1e002f 60; = 57 60; caps 0; flags 0 56; ="_s;
    QTest::newRow("HyperKey shown as modifiers, the flags after the key")
        << u"hyper 1e0000 0; caps 1; =; flags 1e002b 56; = 55 56 58 59; at .05; = 55 56 58 59; flags 1e002f 60;"
           " = 55 56 58 59 60; caps 0; flags 0 56; ="_s;
    QTest::newRow("HyperKey let go while its modifiers are still held shows them again")
        << u"hyper 1e0000 1; flags 1e002b 56; caps 1; at .05; = 57; caps 0; = 55 56 58 59; flags 0 56; ="_s;
    QTest::newRow("HyperKey released within the delay leaves nothing; a new press waits its own full delay")
        << u"hyper 1e0000 1; caps 1; at .03; caps 0; at .1; =; caps 1; at .12; caps 0; at .13; caps 1; at .17; =;"
           " at .19; = 57"_s;

    QTest::newRow("Recording needs Caps Lock held and ignores Caps Lock and fn bits alone")
        << u"record; flags 20002 56; recorded -; caps 1; flags 810000 56; recorded -; flags 140009 56;"
           " recorded 140009"_s;
    QTest::newRow("Recording strips lock, numeric pad, help and fn bits")
        << u"record; caps 1; flags ffffff 56; recorded 1e207f"_s;

    // "pause", "resume": keys kept from the screen; "hooked N": the key-down hook ran N times in all.
    QTest::newRow("A pause lets every key go and tells nothing; resuming shows exactly the keys held then")
        << u"hook 53; down 0; down 12; flags 20002 56; = 0 12 56; changes; pause; =; changes 1 3; down 1; up 0;"
           " down 53; flags 0 56; flags 20006 60; media 111 1; caps 1; =; changes 0 0; hooked 2; resume;"
           " = 1 12 53 56 57 60 111; changes 1 7; down 2; hooked 3"_s;
    QTest::newRow("The Caps Lock light and the flags stand still while paused")
        << u"flags 10000 57; on 1; pause; flags 0 57; on 1; flags 20002 56; =; resume; on 0; mods 20002"_s;
    QTest::newRow("No HyperKey is recorded while paused")
        << u"record; pause; caps 1; flags 140009 56; recorded -; resume; flags 140009 56; recorded 140009"_s;

    // "button B 0|1", "scroll D": from the back end. "told E...": what the monitor told since the last "told",
    // "held B...": the buttons it shows.
    QTest::newRow("Buttons are told only when they change; every scroll step is told")
        << u"button left 1; button left 1; button right 1; scroll down; scroll down; button left 0; button left 0;"
           " told left+ right+ wheel-down wheel-down left-; held right; button forward 1; held right forward"_s;
    QTest::newRow("A pause lets the buttons go; resuming shows exactly those held then; scrolls in between are lost")
        << u"button left 1; button back 1; told left+ back+; pause; told left- back-; button left 0; button middle 1;"
           " scroll up; button back 0; button back 1; told; held; resume; told middle+ back+; held middle back;"
           " scroll left; told wheel-left"_s;
}

void TestKeyboardMonitor::scripts()
{
    QFETCH(QString, script);
    KeyboardMonitor& monitor = m_f->monitor;
    TestSupport::FakeInputBackend& backend = m_f->backend;
    for (const QString& step : script.split(u';', Qt::SkipEmptyParts)) {
        const QStringList w = step.split(u' ', Qt::SkipEmptyParts);
        const auto number = [&](int i) { return KeyCode(w.at(i).toUInt()); };
        const auto flags = [&](int i) { return ModifierFlags(w.at(i).toULongLong(nullptr, 16)); };
        const QString& op = w.first();
        if (op == u"down") {
            emit backend.keyDown(number(1));
        } else if (op == u"up") {
            emit backend.keyUp(number(1));
        } else if (op == u"media") {
            emit backend.mediaKey(number(1), number(2) != 0);
        } else if (op == u"button") {
            emit backend.pointerButton(PointerButton(buttonNames.indexOf(w.at(1))), number(2) != 0);
        } else if (op == u"scroll") {
            emit backend.scrolled(ScrollDirection(directionNames.indexOf(w.at(1))));
        } else if (op == u"told") {
            QCOMPARE(m_f->pointer, w.mid(1));
            m_f->pointer.clear();
        } else if (op == u"held") {
            QStringList held;
            for (int b = 0; b < buttonNames.size(); ++b) {
                if (monitor.isButtonHeld(PointerButton(b)))
                    held << buttonNames.at(b);
            }
            QCOMPARE(held, w.mid(1));
        } else if (op == u"caps") {
            emit backend.capsLockKey(number(1) != 0);
        } else if (op == u"flags") {
            emit backend.flagsChanged(flags(1), number(2));
        } else if (op == u"hyper") {
            m_f->settings.setValue(SettingKeys::hyperKeyModifiers(), std::uint64_t(flags(1)));
            m_f->settings.setValue(SettingKeys::hyperKeyShowAsCapsLock(), number(2) != 0);
        } else if (op == u"hook") {
            monitor.setOnKeyDown([this, key = number(1)](KeyCode code) {
                ++m_f->hookCalls;
                return code == key;
            });
        } else if (op == u"hooked") {
            QCOMPARE(m_f->hookCalls, int(number(1)));
        } else if (op == u"pause" || op == u"resume") {
            monitor.setPaused(op == u"pause");
        } else if (op == u"record") {
            // The callback stores the result and ends recording by clearing itself.
            monitor.setRecordingHyperKey(true);
            monitor.setOnHyperKeyRecorded([&](ModifierFlags mask) {
                m_f->recorded = qint64(mask);
                monitor.setOnHyperKeyRecorded(nullptr);
            });
        } else if (op == u"at") {
            m_f->clock.advanceTo(w.at(1).toDouble());
        } else if (op == u"=") {
            QList<KeyCode> expected;
            for (int i = 1; i < w.size(); ++i)
                expected << number(i);
            QCOMPARE(shown(), expected);
        } else if (op == u"on") {
            QCOMPARE(monitor.capsLockOn(), number(1) != 0);
        } else if (op == u"mods") {
            QCOMPARE(monitor.modifierFlags(), flags(1));
        } else if (op == u"recorded") {
            QCOMPARE(m_f->recorded, w.at(1) == u"-" ? -1 : qint64(flags(1)));
            QCOMPARE(monitor.isRecordingHyperKey(), w.at(1) == u"-");
        } else if (op == u"changes") {
            if (w.size() > 1) {
                QCOMPARE(m_f->changed.count(), int(number(1)));
                QCOMPARE(m_f->keyChanged.count(), int(number(2)));
            }
            m_f->changed.clear();
            m_f->keyChanged.clear();
        } else {
            QFAIL(qPrintable(step));
        }
    }
}

QTEST_GUILESS_MAIN(TestKeyboardMonitor)
#include "testkeyboardmonitor.moc"
