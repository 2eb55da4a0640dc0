// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/keyboardlayout.h"

#include <QSet>
#include <QTest>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

QList<const KeyDef*> allKeys()
{
    QList<const KeyDef*> keys;
    for (const KeyRow& row : keyboardLayout()) {
        for (const KeyDef& key : row)
            keys.append(&key);
    }
    keys.append({ &leftArrowKey(), &rightArrowKey(), &downArrowKey(), &upArrowKey() });
    return keys;
}

} // namespace

class TestKeyboardLayout : public QObject
{
    Q_OBJECT

private slots:
    void rowShape_data();
    void rowShape();
    void codesAndIdsAreUnique();
    void selectedKeys_data();
    void selectedKeys();
    void pairedModifiersShareLabels();
    void functionRowSymbolsInOrder();
    void arrowKeys();
    void keyForCode();
};

void TestKeyboardLayout::rowShape_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("keyCount");
    QTest::addColumn<double>("width");

    QTest::newRow("function") << 0 << 14 << 14.5;
    QTest::newRow("number") << 1 << 14 << 14.5;
    QTest::newRow("top letters") << 2 << 14 << 14.5;
    QTest::newRow("home") << 3 << 13 << 14.5;
    QTest::newRow("bottom letters") << 4 << 13 << 14.5;
    // The arrow cluster fills the rest of the bottom row's line.
    QTest::newRow("modifiers") << 5 << 7 << 11.5;
}

void TestKeyboardLayout::rowShape()
{
    QFETCH(int, row);
    QFETCH(int, keyCount);
    QFETCH(double, width);

    QCOMPARE(keyboardLayout().size(), 6);
    QCOMPARE(keyboardLayout().at(row).size(), keyCount);
    double sum = 0.0;
    for (const KeyDef& key : keyboardLayout().at(row))
        sum += key.widthMultiplier;
    QVERIFY2(std::abs(sum - width) < 1e-12, qPrintable(QString::number(sum, 'g', 17)));
}

void TestKeyboardLayout::codesAndIdsAreUnique()
{
    const QList<const KeyDef*> keys = allKeys();
    const QList<KeyCode>& codes = allLayoutKeyCodes();
    QCOMPARE(codes.size(), 79);
    QCOMPARE(QSet<KeyCode>(codes.cbegin(), codes.cend()).size(), 79);

    QSet<QString> ids;
    for (qsizetype i = 0; i < keys.size(); ++i) {
        QCOMPARE(codes.at(i), keys.at(i)->keycode);
        QCOMPARE(keys.at(i)->id, QString::number(keys.at(i)->keycode) + u'-' + keys.at(i)->label);
        ids.insert(keys.at(i)->id);
    }
    QCOMPARE(ids.size(), 79);
    // Ids that are easy to get wrong: empty label, a label equal to the separator, non-ASCII and escaped labels.
    for (const QString& id : { u"49-"_s, u"27--"_s, u"53-esc"_s, u"122-F1"_s, u"10-§"_s, u"42-\\"_s })
        QVERIFY2(ids.contains(id), qPrintable(id));
}

void TestKeyboardLayout::selectedKeys_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("position");
    QTest::addColumn<int>("keycode");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("secondary"); // null: no secondary label
    QTest::addColumn<double>("width");

    QTest::newRow("escape") << 0 << 0 << 53 << u"esc"_s << QString() << 1.5;
    QTest::newRow("touch id") << 0 << 13 << 999 << u"touchid"_s << QString() << 1.0;
    QTest::newRow("ISO section") << 1 << 0 << 10 << u"§"_s << u"±"_s << 1.0;
    QTest::newRow("backslash") << 2 << 13 << 42 << u"\\"_s << u"|"_s << 1.0;
    QTest::newRow("A, code 0") << 3 << 1 << 0 << u"A"_s << QString() << 1.0;
    QTest::newRow("quote") << 3 << 11 << 39 << u"'"_s << u"\""_s << 1.0;
    QTest::newRow("ISO grave") << 4 << 1 << 50 << u"`"_s << u"~"_s << 1.0;
    QTest::newRow("space") << 5 << 4 << 49 << QString() << QString() << 5.0;
}

void TestKeyboardLayout::selectedKeys()
{
    QFETCH(int, row);
    QFETCH(int, position);
    QFETCH(int, keycode);
    QFETCH(QString, label);
    QFETCH(QString, secondary);
    QFETCH(double, width);

    const KeyDef& key = keyboardLayout().at(row).at(position);
    QCOMPARE(key.keycode, KeyCode(keycode));
    QCOMPARE(key.label, label);
    QCOMPARE(key.secondaryLabel.has_value(), !secondary.isNull());
    QCOMPARE(key.secondaryLabel.value_or(QString()), secondary);
    QCOMPARE(key.widthMultiplier, width);
}

void TestKeyboardLayout::pairedModifiersShareLabels()
{
    // The right-hand key's code decides the side its symbol is drawn on, so both codes are pinned.
    const struct
    {
        const KeyDef& left;
        const KeyDef& right;
        QString label;
        KeyCode leftCode, rightCode;
        double leftWidth, rightWidth;
    } pairs[] = {
        { keyboardLayout()[4][0], keyboardLayout()[4][12], u"shift"_s, 56, 60, 1.25, 2.25 },
        { keyboardLayout()[5][3], keyboardLayout()[5][5], u"command"_s, 55, 54, 1.2, 1.2 },
        { keyboardLayout()[5][2], keyboardLayout()[5][6], u"option"_s, 58, 61, 1.05, 1.0 },
    };
    for (const auto& pair : pairs) {
        QCOMPARE(pair.left.label, pair.label);
        QCOMPARE(pair.right.label, pair.label);
        QCOMPARE(pair.left.keycode, pair.leftCode);
        QCOMPARE(pair.right.keycode, pair.rightCode);
        QCOMPARE(pair.left.widthMultiplier, pair.leftWidth);
        QCOMPARE(pair.right.widthMultiplier, pair.rightWidth);
        QVERIFY(pair.left.id != pair.right.id);
    }
}

void TestKeyboardLayout::functionRowSymbolsInOrder()
{
    const QStringList symbols { u"sun.min"_s, u"sun.max"_s, u"rectangle.3.group"_s, u"magnifyingglass"_s,
        u"microphone"_s, u"moon"_s, u"backward.end"_s, u"playpause"_s, u"forward.end"_s, u"speaker"_s,
        u"speaker.wave.1"_s, u"speaker.wave.3"_s };
    const QList<KeyCode> codes { 122, 120, 99, 118, 96, 97, 98, 100, 101, 109, 103, 111 };
    for (int i = 0; i < 12; ++i) {
        const KeyDef& key = keyboardLayout().first().at(i + 1);
        QCOMPARE(key.label, u"F"_s + QString::number(i + 1));
        QCOMPARE(key.secondaryLabel, std::optional(symbols.at(i)));
        QCOMPARE(key.keycode, codes.at(i));
    }
}

void TestKeyboardLayout::arrowKeys()
{
    const QList<const KeyDef*> arrows { &leftArrowKey(), &rightArrowKey(), &downArrowKey(), &upArrowKey() };
    const QStringList ids { u"123-←"_s, u"124-→"_s, u"125-↓"_s, u"126-↑"_s };
    for (qsizetype i = 0; i < arrows.size(); ++i) {
        QCOMPARE(arrows.at(i)->id, ids.at(i));
        QCOMPARE(arrows.at(i)->widthMultiplier, 1.0);
        QVERIFY(!arrows.at(i)->secondaryLabel.has_value());
    }
}

void TestKeyboardLayout::keyForCode()
{
    // The lookup hands out the table's own keys rather than copies, so callers may compare by address.
    for (const KeyDef* key : allKeys())
        QCOMPARE(::keyForCode(key->keycode), key);
    QCOMPARE(::keyForCode(0), &keyboardLayout().at(3).at(1));
    QCOMPARE(::keyForCode(touchIDKeyCode)->label, u"touchid"_s);
    QCOMPARE(::keyForCode(126), &upArrowKey());

    // 62 would be a right control key, which this board lacks; the others lie beyond every real code.
    for (const int code : { 62, 127, 998, 1000, 1023, 1024, 65535 })
        QVERIFY2(::keyForCode(KeyCode(code)) == nullptr, qPrintable(QString::number(code)));
}

QTEST_GUILESS_MAIN(TestKeyboardLayout)
#include "testkeyboardlayout.moc"
