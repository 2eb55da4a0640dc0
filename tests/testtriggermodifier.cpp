// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/triggermodifier.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestTriggerModifier final : public QObject
{
    Q_OBJECT

private slots:
    void namesAndJson();
    void triggerPressed_data();
    void triggerPressed();
};

void TestTriggerModifier::namesAndJson()
{
    QStringList raw;
    for (TriggerModifier trigger : TriggerModifiers::all()) {
        raw << TriggerModifiers::rawValue(trigger);
        QCOMPARE(TriggerModifiers::fromRawValue(raw.last()), trigger);
        QCOMPARE(TriggerModifiers::fromJson(TriggerModifiers::toJson(trigger)), trigger);
    }
    // The raw values are what the settings file keeps; the order is that of the menus.
    QCOMPARE(raw.join(u' '), u"fn leftControl rightCommand leftCommand leftOption rightOption capsLock"_s);
    // Only the exact raw value is read: no case folding, no trimming, no display names, no other JSON types.
    for (const QJsonValue& wrong :
        { QJsonValue(u"CapsLock"_s), QJsonValue(u"Left Option"_s), QJsonValue(u" fn"_s), QJsonValue(3) })
        QVERIFY(!TriggerModifiers::fromJson(wrong));
}

void TestTriggerModifier::triggerPressed_data()
{
    QTest::addColumn<int>("trigger");
    QTest::addColumn<quint64>("flags");
    QTest::addColumn<int>("keyCode");
    QTest::addColumn<bool>("pressed");

    const auto row = [](const char* name, TriggerModifier t, ModifierFlags flags, int code, bool pressed) {
        QTest::newRow(name) << int(t) << quint64(flags) << code << pressed;
    };
    using enum TriggerModifier;
    row("fn is down with the function flag", fn, 0x800000, 63, true);
    row("Left Control needs its key code and the Control flag", leftControl, 0x40000 | 0x1, 59, true);
    row("A Shift change while Control is held is no Control press", leftControl, 0x40000 | 0x1 | 0x20002, 56, false);
    row("Left Control's code without the Control flag is its release", leftControl, 0, 59, false);
    row("Right Command looks at its side bit", rightCommand, 0x100000 | 0x10, 54, true);
    row("The generic Command flag alone is not Right Command", rightCommand, 0x100000, 54, false);
    row("Left Command looks at its side bit", leftCommand, 0x100000 | 0x8, 55, true);
    row("Left Option looks at its side bit", leftOption, 0x80000 | 0x20, 58, true);
    row("Right Option held does not count as Left Option", leftOption, 0x80000 | 0x40, 61, false);
    row("Caps Lock is down while locked, key up or not", capsLock, 0x10000, 0, true);
    row("Caps Lock unlocked is up", capsLock, 0x20000 | 0x2, 57, false);
}

void TestTriggerModifier::triggerPressed()
{
    QFETCH(int, trigger);
    QFETCH(quint64, flags);
    QFETCH(int, keyCode);
    QFETCH(bool, pressed);
    QCOMPARE(TriggerModifiers::isTriggerPressed(flags, KeyCode(keyCode), TriggerModifier(trigger)), pressed);
}

QTEST_GUILESS_MAIN(TestTriggerModifier)
#include "testtriggermodifier.moc"
