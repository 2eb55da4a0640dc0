// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/modifiernames.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestModifierNames final : public QObject
{
    Q_OBJECT

private slots:
    void names_data();
    void names();
};

void TestModifierNames::names_data()
{
    QTest::addColumn<quint64>("mask");
    QTest::addColumn<QString>("expected");

    QTest::newRow("nothing recorded") << quint64(0) << QString();
    QTest::newRow("Caps Lock, numeric pad and help bits name nothing") << quint64(0x610000) << QString();
    QTest::newRow("generic bits alone count as the left keys") << quint64(0x1E0000) << u"lshift, lctrl, lalt, lcmd"_s;
    QTest::newRow("a generic bit with its right side bit is only the right key")
        << quint64(0x20004 | 0x42000 | 0x80040 | 0x100010) << u"rshift, rctrl, ralt, rcmd"_s;
    QTest::newRow("left side bits without generic bits") << quint64(0x2B) << u"lshift, lctrl, lalt, lcmd"_s;
    QTest::newRow("both sides of one modifier") << quint64(0x100018) << u"lcmd, rcmd"_s;
    QTest::newRow("left side bit and right side bit with the generic bit") << quint64(0x20006) << u"lshift, rshift"_s;
    QTest::newRow("fn") << quint64(0x800000) << u"fn"_s;
    QTest::newRow("everything, in table order")
        << quint64(0x9E207F) << u"lshift, rshift, lctrl, rctrl, lalt, ralt, lcmd, rcmd, fn"_s;
}

void TestModifierNames::names()
{
    QFETCH(quint64, mask);
    QFETCH(QString, expected);
    QCOMPARE(modifierNames(ModifierFlags(mask)), expected);
}

QTEST_APPLESS_MAIN(TestModifierNames)
#include "testmodifiernames.moc"
