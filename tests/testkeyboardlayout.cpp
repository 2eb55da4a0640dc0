// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/keyboardlayout.h"

#include <QSet>
#include <QTest>

using namespace Qt::StringLiterals;

class TestKeyboardLayout final : public QObject
{
    Q_OBJECT

private slots:
    void rowShape_data();
    void rowShape();
    void everyKey();
    void selectedKeys_data();
    void selectedKeys();
};

void TestKeyboardLayout::rowShape_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("keyCount");
    QTest::addColumn<double>("width");

    QTest::newRow("the function row") << 0 << 14 << 14.5;
    QTest::newRow("the number row") << 1 << 14 << 14.5;
    QTest::newRow("the top letter row") << 2 << 14 << 14.5;
    QTest::newRow("the home row") << 3 << 13 << 14.5;
    QTest::newRow("the bottom letter row") << 4 << 13 << 14.5;
    QTest::newRow("the modifier row leaves room for the arrows") << 5 << 7 << 11.5;
}

void TestKeyboardLayout::rowShape()
{
    QFETCH(int, row);
    QCOMPARE(keyboardLayout().size(), 6);
    double width = 0;
    for (const KeyDef& key : keyboardLayout().at(row))
        width += key.widthMultiplier;
    QTEST(int(keyboardLayout().at(row).size()), "keyCount");
    QTEST(width, "width");
}

void TestKeyboardLayout::everyKey()
{
    QList<const KeyDef*> keys;
    for (const KeyRow& row : keyboardLayout()) {
        for (const KeyDef& key : row)
            keys.append(&key);
    }
    keys.append({ &leftArrowKey(), &rightArrowKey(), &downArrowKey(), &upArrowKey() });

    const QList<KeyCode>& codes = allLayoutKeyCodes();
    QCOMPARE(codes.size(), 79);
    QCOMPARE(QSet<KeyCode>(codes.cbegin(), codes.cend()).size(), 79);
    QCOMPARE(codes.sliced(75), QList<KeyCode>({ 123, 124, 125, 126 }));
    for (qsizetype i = 0; i < keys.size(); ++i) {
        QCOMPARE(codes.at(i), keys.at(i)->keycode);
        QCOMPARE(keys.at(i)->id, QString::number(keys.at(i)->keycode) + u'-' + keys.at(i)->label);
        // The lookup hands out the table's own keys, so callers may compare by address.
        QCOMPARE(::keyForCode(keys.at(i)->keycode), keys.at(i));
    }
    // 62 would be a right control key, which this board lacks; the others lie beyond every real code.
    for (const int code : { 62, 127, 998, 1023, 1024, 65535 })
        QVERIFY2(::keyForCode(KeyCode(code)) == nullptr, qPrintable(QString::number(code)));
}

void TestKeyboardLayout::selectedKeys_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("position");
    QTest::addColumn<int>("keycode");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("secondary"); // null: no secondary label
    QTest::addColumn<double>("width");

    QTest::newRow("escape is wide") << 0 << 0 << 53 << u"esc"_s << QString() << 1.5;
    QTest::newRow("F1 dims the screen") << 0 << 1 << 122 << u"F1"_s << u"sun.min"_s << 1.0;
    QTest::newRow("F12 turns the volume up") << 0 << 12 << 111 << u"F12"_s << u"speaker.wave.3"_s << 1.0;
    QTest::newRow("touch id ends the function row") << 0 << 13 << 999 << u"touchid"_s << QString() << 1.0;
    QTest::newRow("ISO section starts the number row") << 1 << 0 << 10 << u"§"_s << u"±"_s << 1.0;
    QTest::newRow("backslash ends the top row") << 2 << 13 << 42 << u"\\"_s << u"|"_s << 1.0;
    QTest::newRow("A has code 0") << 3 << 1 << 0 << u"A"_s << QString() << 1.0;
    QTest::newRow("ISO grave follows the short shift") << 4 << 1 << 50 << u"`"_s << u"~"_s << 1.0;
    QTest::newRow("the ISO left shift is short") << 4 << 0 << 56 << u"shift"_s << QString() << 1.25;
    QTest::newRow("the right shift is long") << 4 << 12 << 60 << u"shift"_s << QString() << 2.25;
    QTest::newRow("right command has its own code") << 5 << 5 << 54 << u"command"_s << QString() << 1.2;
    QTest::newRow("right option has its own code") << 5 << 6 << 61 << u"option"_s << QString() << 1.0;
    QTest::newRow("space has no label") << 5 << 4 << 49 << QString() << QString() << 5.0;
}

void TestKeyboardLayout::selectedKeys()
{
    QFETCH(int, row);
    QFETCH(int, position);
    QFETCH(QString, secondary);

    const KeyDef& key = keyboardLayout().at(row).at(position);
    QTEST(int(key.keycode), "keycode");
    QTEST(key.label, "label");
    QCOMPARE(key.secondaryLabel.has_value(), !secondary.isNull());
    QCOMPARE(key.secondaryLabel.value_or(QString()), secondary);
    QTEST(key.widthMultiplier, "width");
}

QTEST_GUILESS_MAIN(TestKeyboardLayout)
#include "testkeyboardlayout.moc"
