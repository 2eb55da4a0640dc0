// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/keyboardlayout.h"

#include <QSet>
#include <QTest>

using namespace Qt::StringLiterals;

class TestKeyboardLayout final : public QObject
{
    Q_OBJECT

private slots:
    void everyKey();
};

void TestKeyboardLayout::everyKey()
{
    // Every row is as wide as the board, except the modifier row, which leaves room for the arrows.
    QList<int> counts;
    QList<double> widths;
    QList<const KeyDef*> keys;
    for (const KeyRow& row : keyboardLayout()) {
        counts << int(row.size());
        widths << 0;
        for (const KeyDef& key : row) {
            widths.last() += key.widthMultiplier;
            keys.append(&key);
        }
    }
    QCOMPARE(counts, (QList<int> { 14, 14, 14, 13, 13, 7 }));
    QCOMPARE(widths, (QList<double> { 14.5, 14.5, 14.5, 14.5, 14.5, 11.5 }));
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

    // Code, label, secondary label and width: code 0 is a real key, touch id no key at all, space has no label.
    const auto key = [](int row, int position) {
        const KeyDef& k = keyboardLayout().at(row).at(position);
        return u"%1 %2 %3 %4"_s.arg(k.keycode).arg(k.label, k.secondaryLabel.value_or(u"-"_s)).arg(k.widthMultiplier);
    };
    QCOMPARE(key(0, 1), u"122 F1 sun.min 1"_s);
    QCOMPARE(key(0, 13), u"999 touchid - 1"_s);
    QCOMPARE(key(3, 1), u"0 A - 1"_s);
    QCOMPARE(key(5, 4), u"49  - 5"_s);
}

QTEST_GUILESS_MAIN(TestKeyboardLayout)
#include "testkeyboardlayout.moc"
