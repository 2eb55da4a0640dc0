// SPDX-License-Identifier: GPL-3.0-or-later
// The key table, the keyboard's geometry, the corner keys and the choice of label for every key.
#include "keyboard/keyboardview.h"
#include "keyboard/keycapview.h"

#include <QSet>
#include <QTest>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

ThemeConfig withSpacing(double spacing)
{
    ThemeConfig config = defaultThemeConfig();
    config.keySpacing = spacing;
    return config;
}

bool near(double a, double b)
{
    return std::abs(a - b) < 1e-9;
}

} // namespace

class TestKeyboardView final : public QObject
{
    Q_OBJECT

private slots:
    void keyTable();
    void geometry_data();
    void geometry();
    void arrowClusterIsAnInvertedT();
    void cornerKeys();
    void labelRules();
};

void TestKeyboardView::keyTable()
{
    // Every row is as wide as the board, except the modifier row, which leaves room for the arrows.
    QList<int> counts;
    QList<double> widths;
    for (const KeyRow& row : keyboardLayout()) {
        counts << int(row.size());
        widths << 0;
        for (const KeyDef& key : row) {
            widths.last() += key.widthMultiplier;
            QCOMPARE(key.id, QString::number(key.keycode) + u'-' + key.label);
        }
    }
    QCOMPARE(counts, (QList<int> { 14, 14, 14, 13, 13, 7 }));
    QCOMPARE(widths, (QList<double> { 14.5, 14.5, 14.5, 14.5, 14.5, 11.5 }));

    const QList<KeyCode>& codes = allLayoutKeyCodes();
    QCOMPARE(QSet<KeyCode>(codes.cbegin(), codes.cend()).size(), 79);
    QCOMPARE(codes.sliced(75), QList<KeyCode>({ 123, 124, 125, 126 }));
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

void TestKeyboardView::geometry_data()
{
    QTest::addColumn<double>("spacing");
    QTest::addColumn<double>("unit");
    QTest::newRow("spacing 7 at 60") << 7.0 << 60.0;
    QTest::newRow("spacing 12 at 44") << 12.0 << 44.0;
    QTest::newRow("spacing 0 at 41.3") << 0.0 << 41.3;
}

void TestKeyboardView::geometry()
{
    QFETCH(double, spacing);
    QFETCH(double, unit);
    const double s = spacing * unit / 60;
    const QSizeF natural(14.5 * unit + 13.5 * s, 5.52 * unit + 5 * s);
    QVERIFY(near(KeyboardView::computedUnitSize(natural, spacing), unit));

    // Twice as wide: the height limits the unit, and the keyboard sits centred with equal margins.
    const QRectF rect(10, 20, natural.width() * 2, natural.height());
    const KeyboardView view(withSpacing(spacing), rect);
    QVERIFY(near(view.unitSize(), unit));
    const double left = rect.left() + natural.width() / 2;
    for (int row = 0; row < 6; ++row) {
        double rowLeft = 1e9, rowRight = -1e9;
        for (const KeyPlacement& p : view.keys()) {
            if (p.row == row) {
                rowLeft = std::min(rowLeft, p.rect.left());
                rowRight = std::max(rowRight, p.rect.right());
            }
        }
        QVERIFY2(near(rowLeft, left) && near(rowRight, left + natural.width()), qPrintable(QString::number(row)));
    }
    // Keys are 0.92 units high, one spacing apart in both directions; a wide key spans the gaps it replaces.
    const QRectF q = view.placement(12)->rect, w = view.placement(13)->rect, a = view.placement(0)->rect;
    QVERIFY(near(view.placement(53)->rect.top(), rect.top()));
    QVERIFY(near(q.height(), unit * 0.92));
    QVERIFY(near(w.left() - q.right(), s));
    QVERIFY(near(a.top() - q.bottom(), s));
    QVERIFY(near(a.width(), unit));
    QVERIFY(near(view.placement(60)->rect.width(), 2.25 * unit + 1.25 * s));
}

void TestKeyboardView::arrowClusterIsAnInvertedT()
{
    // Spacing 12 at unit 60: horizontal gaps of 12, the vertical gap capped at 3.
    const KeyboardView view(withSpacing(12), QRectF(0, 0, 14.5 * 60 + 13.5 * 12, 5.52 * 60 + 5 * 12));
    const QRectF up = view.placement(126)->rect, left = view.placement(123)->rect;
    const QRectF down = view.placement(125)->rect, right = view.placement(124)->rect;
    for (const QRectF& r : { up, left, down, right })
        QVERIFY(near(r.width(), 60) && near(r.height(), (60 * 0.92 - 3) / 2));
    QVERIFY(near(down.top() - up.bottom(), 3));
    QVERIFY(near(down.left() - left.right(), 12) && near(right.left() - down.right(), 12));
    QCOMPARE(up.left(), down.left());
    const QRectF fn = view.placement(63)->rect;
    QVERIFY(near(up.top(), fn.top()) && near(right.bottom(), fn.bottom()));
    QVERIFY(near(left.left() - view.placement(61)->rect.right(), 12));
}

void TestKeyboardView::cornerKeys()
{
    const KeyboardView view(defaultThemeConfig(), QRectF(0, 0, 900, 350));
    QMap<KeyCode, CornerKeyPosition> corners;
    for (const KeyPlacement& p : view.keys()) {
        if (p.corner != CornerKeyPosition::none)
            corners.insert(p.key->keycode, p.corner);
    }
    QCOMPARE(corners,
        (QMap<KeyCode, CornerKeyPosition> { { 53, CornerKeyPosition::topLeft },
            { touchIDKeyCode, CornerKeyPosition::topRight }, { 63, CornerKeyPosition::bottomLeft },
            { 124, CornerKeyPosition::bottomRight } }));

    // Each corner key takes the corner-key radius in its own corner only.
    ThemeStyle style;
    style.cornerRadius = 1;
    style.cornerKeyRadius = 9;
    const auto radii = [&style](CornerKeyPosition corner) {
        const CornerRadii r = KeyCapView::cornerRadii(style, corner);
        return QList<double> { r.topLeft, r.topRight, r.bottomRight, r.bottomLeft };
    };
    QCOMPARE(radii(CornerKeyPosition::none), (QList<double> { 1, 1, 1, 1 }));
    QCOMPARE(radii(CornerKeyPosition::topLeft), (QList<double> { 9, 1, 1, 1 }));
    QCOMPARE(radii(CornerKeyPosition::topRight), (QList<double> { 1, 9, 1, 1 }));
    QCOMPARE(radii(CornerKeyPosition::bottomRight), (QList<double> { 1, 1, 9, 1 }));
    QCOMPARE(radii(CornerKeyPosition::bottomLeft), (QList<double> { 1, 1, 1, 9 }));
}

void TestKeyboardView::labelRules()
{
    const KeyboardView view(defaultThemeConfig(), QRectF(0, 0, 900, 350));
    QMap<LabelRule, QList<KeyCode>> byRule;
    for (const KeyPlacement& p : view.keys()) {
        if (!p.isArrow)
            byRule[KeyCapView::labelRule(*p.key, p.isFunctionRow)] << p.key->keycode;
    }
    // The keys with a look of their own; every other key shows its legends.
    const QMap<LabelRule, QList<KeyCode>> special { { LabelRule::touchID, { touchIDKeyCode } },
        { LabelRule::space, { 49 } }, { LabelRule::fn, { 63 } }, { LabelRule::modifier, { 59, 58, 55, 54, 61 } },
        { LabelRule::tab, { 48 } }, { LabelRule::deleteKey, { 51 } }, { LabelRule::capsLock, { 57 } },
        { LabelRule::returnKey, { 36 } }, { LabelRule::shift, { 56, 60 } }, { LabelRule::escape, { 53 } } };
    for (auto it = special.cbegin(); it != special.cend(); ++it)
        QCOMPARE(byRule.value(it.key()), it.value());
    QCOMPARE(byRule.value(LabelRule::functionSymbol).size(), 12);
    QCOMPARE(byRule.value(LabelRule::twoLegends).size(), 22);
    QCOMPARE(byRule.value(LabelRule::plainText).size(), 26);

    // Word rules ignore case, the Touch ID rule does not; an empty label falls through to plain text.
    QCOMPARE(KeyCapView::labelRule({ u"x"_s, u"Caps Lock"_s, {}, 300, 1 }, false), LabelRule::capsLock);
    QCOMPARE(KeyCapView::labelRule({ u"x"_s, u"TouchID"_s, {}, 300, 1 }, false), LabelRule::plainText);
    QCOMPARE(KeyCapView::labelRule({ u"x"_s, u"TouchID"_s, {}, 300, 1 }, true), LabelRule::functionText);
    QCOMPARE(KeyCapView::labelRule({ u"x"_s, QString(), {}, 300, 1 }, false), LabelRule::plainText);
}

QTEST_GUILESS_MAIN(TestKeyboardView)
#include "testkeyboardview.moc"
