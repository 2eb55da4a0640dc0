// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/triggermodifier.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestTriggerModifier final : public QObject
{
    Q_OBJECT

private slots:
    void namesAndOrder();
    void rawValueConstruction_data();
    void rawValueConstruction();
    void jsonForm();
    void triggerPressed_data();
    void triggerPressed();
};

void TestTriggerModifier::namesAndOrder()
{
    const QList<TriggerModifier>& all = TriggerModifiers::all();
    QStringList raw, display;
    QList<KeyCode> codes;
    for (TriggerModifier trigger : all) {
        raw << TriggerModifiers::rawValue(trigger);
        display << TriggerModifiers::displayName(trigger);
        codes << TriggerModifiers::keyCode(trigger);
    }
    QCOMPARE(raw, (QStringList { u"fn"_s, u"leftControl"_s, u"rightCommand"_s, u"leftCommand"_s, u"leftOption"_s,
                      u"rightOption"_s, u"capsLock"_s }));
    QCOMPARE(display, (QStringList { u"fn"_s, u"Left Control"_s, u"Right Command"_s, u"Left Command"_s,
                          u"Left Option"_s, u"Right Option"_s, u"Caps Lock"_s }));
    QCOMPARE(codes, (QList<KeyCode> { 63, 59, 54, 55, 58, 61, 57 }));
}

void TestTriggerModifier::rawValueConstruction_data()
{
    QTest::addColumn<QString>("raw");
    QTest::addColumn<int>("expected"); // -1: no value

    QTest::newRow("The raw value of Caps Lock gives Caps Lock") << u"capsLock"_s << int(TriggerModifier::capsLock);
    QTest::newRow("fn is found") << u"fn"_s << int(TriggerModifier::fn);
    QTest::newRow("A difference in letter case gives nothing") << u"CapsLock"_s << -1;
    QTest::newRow("Upper-case fn gives nothing") << u"FN"_s << -1;
    QTest::newRow("The empty string gives nothing") << QString() << -1;
    QTest::newRow("A display name is not a raw value") << u"Left Option"_s << -1;
    QTest::newRow("Surrounding space is not trimmed") << u" fn"_s << -1;
}

void TestTriggerModifier::rawValueConstruction()
{
    QFETCH(QString, raw);
    QFETCH(int, expected);
    const std::optional<TriggerModifier> trigger = TriggerModifiers::fromRawValue(raw);
    QCOMPARE(trigger ? int(*trigger) : -1, expected);
}

void TestTriggerModifier::jsonForm()
{
    const QJsonValue encoded = TriggerModifiers::toJson(TriggerModifier::rightCommand);
    QCOMPARE(encoded, QJsonValue(u"rightCommand"_s));
    QCOMPARE(TriggerModifiers::fromJson(encoded), TriggerModifier::rightCommand);
    QVERIFY(!TriggerModifiers::fromJson(QJsonValue(u"rightcommand"_s)));
    QVERIFY(!TriggerModifiers::fromJson(QJsonValue(3)));
    QVERIFY(!TriggerModifiers::fromJson(QJsonValue()));
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
    row("fn is down with the function flag", TriggerModifier::fn, 0x800000, 63, true);
    row("fn is up without it", TriggerModifier::fn, 0x100000 | 0x8, 55, false);
    row("Left Control needs its key code and the Control flag", TriggerModifier::leftControl, 0x40000 | 0x1, 59, true);
    row("A Shift change while Control is held is not a Control press", TriggerModifier::leftControl,
        0x40000 | 0x1 | 0x20000 | 0x2, 56, false);
    row("Left Control's code without the Control flag is its release", TriggerModifier::leftControl, 0, 59, false);
    row("Right Command looks at its side bit", TriggerModifier::rightCommand, 0x100000 | 0x10, 54, true);
    row("The generic Command flag alone is not Right Command", TriggerModifier::rightCommand, 0x100000, 54, false);
    row("The generic Command flag alone is not Left Command", TriggerModifier::leftCommand, 0x100000, 55, false);
    row("Left Command looks at its side bit", TriggerModifier::leftCommand, 0x100000 | 0x8, 55, true);
    row("Right Command held does not count as Left Command", TriggerModifier::leftCommand, 0x100000 | 0x10, 54,
        false);
    row("Left Option looks at its side bit", TriggerModifier::leftOption, 0x80000 | 0x20, 58, true);
    row("Right Option held does not count as Left Option", TriggerModifier::leftOption, 0x80000 | 0x40, 61, false);
    row("Right Option looks at its side bit", TriggerModifier::rightOption, 0x80000 | 0x40, 61, true);
    row("Caps Lock is down while locked, key up or not", TriggerModifier::capsLock, 0x10000, 0, true);
    row("Caps Lock unlocked is up", TriggerModifier::capsLock, 0x20000 | 0x2, 57, false);
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
