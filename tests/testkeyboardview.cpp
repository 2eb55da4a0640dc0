// SPDX-License-Identifier: GPL-3.0-or-later
// Keyboard geometry, corner keys and the choice of label for every key.
#include "keyboard/keyboardview.h"
#include "keyboard/keycapview.h"

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

/** Right edge of the last cap of `row` (the right arrow for the bottom row). */
double rowRight(const KeyboardView& view, int row)
{
    double right = -1e9;
    for (const KeyPlacement& p : view.keys()) {
        if (p.row == row)
            right = std::max(right, p.rect.right());
    }
    return right;
}

double rowLeft(const KeyboardView& view, int row)
{
    double left = 1e9;
    for (const KeyPlacement& p : view.keys()) {
        if (p.row == row)
            left = std::min(left, p.rect.left());
    }
    return left;
}

} // namespace

class TestKeyboardView final : public QObject
{
    Q_OBJECT

private slots:
    void unitSizeFollowsTheLimitingSide_data()
    {
        QTest::addColumn<double>("spacing");
        QTest::addColumn<double>("factor");
        QTest::newRow("default spacing") << 7.0 << 60.0;
        QTest::newRow("no spacing") << 0.0 << 37.5;
        QTest::newRow("wide spacing") << 12.0 << 44.0;
    }

    void unitSizeFollowsTheLimitingSide()
    {
        QFETCH(double, spacing);
        QFETCH(double, factor);
        const double k = spacing / 60;
        const QSizeF natural((14.5 + 13.5 * k) * factor, (5.52 + 5 * k) * factor);
        QCOMPARE(KeyboardView::computedUnitSize(natural, spacing), factor);

        // Twice as wide: the height limits the unit, and the keyboard sits centred with equal margins.
        const QRectF wide(10, 20, natural.width() * 2, natural.height());
        const KeyboardView view(withSpacing(spacing), wide);
        QCOMPARE(view.unitSize(), factor);
        const QRectF bounds = view.boundingRect();
        QVERIFY(std::abs((bounds.left() - wide.left()) - (wide.right() - bounds.right())) < 1e-9);
        QVERIFY(std::abs(bounds.width() - natural.width()) < 1e-9);
        QVERIFY(std::abs(bounds.top() - wide.top()) < 1e-9);
    }

    void noSpacingUsesTheBareUnits()
    {
        QCOMPARE(KeyboardView::computedUnitSize(QSizeF(1450, 1000), 0), 100.0);
        QCOMPARE(KeyboardView::computedUnitSize(QSizeF(5000, 552), 0), 552 / 5.5200000000000005);
        QCOMPARE(KeyboardView::rowsHeightUnits, 5.5200000000000005);
    }

    void everyRowSpansTheSameWidth_data()
    {
        QTest::addColumn<double>("spacing");
        QTest::addColumn<double>("unit");
        QTest::newRow("7 at 60") << 7.0 << 60.0;
        QTest::newRow("12 at 60") << 12.0 << 60.0;
        QTest::newRow("0 at 41.3") << 0.0 << 41.3;
    }

    void everyRowSpansTheSameWidth()
    {
        QFETCH(double, spacing);
        QFETCH(double, unit);
        const double s = spacing * unit / 60;
        const QRectF rect(0, 0, 14.5 * unit + 13.5 * s, 5.52 * unit + 5 * s);
        const KeyboardView view(withSpacing(spacing), rect);
        QVERIFY(std::abs(view.unitSize() - unit) < 1e-9);
        for (int row = 0; row < 6; ++row) {
            QVERIFY2(std::abs(rowLeft(view, row)) < 1e-9, qPrintable(QString::number(row)));
            QVERIFY2(std::abs(rowRight(view, row) - rect.width()) < 1e-9, qPrintable(QString::number(row)));
        }
        // Keys are 0.92 units high, one spacing apart in both directions.
        const KeyPlacement* q = view.placement(12);
        const KeyPlacement* w = view.placement(13);
        const KeyPlacement* a = view.placement(0);
        QVERIFY(q && w && a);
        QCOMPARE(q->rect.height(), unit * 0.92);
        QVERIFY(std::abs(w->rect.left() - q->rect.right() - s) < 1e-9);
        QVERIFY(std::abs(a->rect.top() - q->rect.bottom() - s) < 1e-9);
        QVERIFY(std::abs(view.placement(60)->rect.width() - (2.25 * unit + 1.25 * s)) < 1e-9);
        QCOMPARE(view.placement(0)->rect.width(), unit);
    }

    void arrowClusterIsAnInvertedT()
    {
        // Spacing 12 at unit 60: horizontal gaps of 12, the vertical gap capped at 3.
        const KeyboardView view(withSpacing(12), QRectF(0, 0, 14.5 * 60 + 13.5 * 12, 5.52 * 60 + 5 * 12));
        const QRectF up = view.placement(126)->rect, left = view.placement(123)->rect;
        const QRectF down = view.placement(125)->rect, right = view.placement(124)->rect;
        const double height = (60 * 0.92 - 3) / 2;
        for (const QRectF& r : { up, left, down, right }) {
            QCOMPARE(r.width(), 60.0);
            QVERIFY(std::abs(r.height() - height) < 1e-9);
        }
        QVERIFY(std::abs(down.top() - up.bottom() - 3) < 1e-9);
        QVERIFY(std::abs(down.left() - left.right() - 12) < 1e-9);
        QVERIFY(std::abs(right.left() - down.right() - 12) < 1e-9);
        QCOMPARE(up.left(), down.left());
        const KeyPlacement* fn = view.placement(63);
        QCOMPARE(up.top(), fn->rect.top());
        QVERIFY(std::abs(right.bottom() - fn->rect.bottom()) < 1e-9);
        // The cluster follows the last key of the row after one spacing.
        QVERIFY(std::abs(left.left() - view.placement(61)->rect.right() - 12) < 1e-9);

        const KeyboardView tight(withSpacing(0), QRectF(0, 0, 1450, 552));
        QCOMPARE(tight.placement(125)->rect.top(), tight.placement(126)->rect.bottom());
    }

    void overriddenStyleDrivesTheStacks()
    {
        // The unit comes from one spacing, the stacks use another: the keyboard no longer fills the rectangle.
        ThemeStyle style = ThemeStyle(withSpacing(7)).scaled(60);
        style.keySpacing = 20;
        const QRectF rect(0, 0, 14.5 * 60 + 13.5 * 7, 5.52 * 60 + 5 * 7);
        const KeyboardView view(withSpacing(7), rect, 60.0, style);
        QCOMPARE(view.boundingRect().width(), 14.5 * 60 + 13.5 * 20);
        QVERIFY(view.boundingRect().left() < 0);
    }

    void fourKeysCarryTheOuterCorners()
    {
        const KeyboardView view(defaultThemeConfig(), QRectF(0, 0, 900, 350));
        QMap<KeyCode, CornerKeyPosition> corners;
        for (const KeyPlacement& p : view.keys()) {
            if (p.corner != CornerKeyPosition::none)
                corners.insert(p.key->keycode, p.corner);
        }
        const QMap<KeyCode, CornerKeyPosition> expected { { 53, CornerKeyPosition::topLeft },
            { touchIDKeyCode, CornerKeyPosition::topRight }, { 63, CornerKeyPosition::bottomLeft },
            { 124, CornerKeyPosition::bottomRight } };
        QCOMPARE(corners, expected);

        const ThemeStyle style = ThemeStyle(defaultThemeConfig());
        const CornerRadii radii = KeyCapView::cornerRadii(style, CornerKeyPosition::bottomLeft);
        QCOMPARE(radii.bottomLeft, style.cornerKeyRadius);
        QCOMPARE(radii.topLeft, style.cornerRadius);
        QCOMPARE(radii.bottomRight, style.cornerRadius);
    }

    void everyKeyTakesItsLabelRule()
    {
        const KeyboardView view(defaultThemeConfig(), QRectF(0, 0, 900, 350));
        QMap<LabelRule, int> counts;
        for (const KeyPlacement& p : view.keys()) {
            if (p.isArrow)
                continue;
            const LabelRule rule = KeyCapView::labelRule(*p.key, p.isFunctionRow);
            counts[rule] += 1;
            const QString lower = p.key->label.toLower();
            LabelRule expected = LabelRule::plainText;
            if (p.key->keycode == touchIDKeyCode)
                expected = LabelRule::touchID;
            else if (p.key->keycode == 49)
                expected = LabelRule::space;
            else if (p.key->keycode == 63)
                expected = LabelRule::fn;
            else if (QList<KeyCode> { 59, 62, 58, 61, 55, 54 }.contains(p.key->keycode))
                expected = LabelRule::modifier;
            else if (p.key->keycode == 48)
                expected = LabelRule::tab;
            else if (p.key->keycode == 51)
                expected = LabelRule::deleteKey;
            else if (p.key->keycode == 57)
                expected = LabelRule::capsLock;
            else if (p.key->keycode == 36)
                expected = LabelRule::returnKey;
            else if (p.key->keycode == 56 || p.key->keycode == 60)
                expected = LabelRule::shift;
            else if (p.key->keycode == 53)
                expected = LabelRule::escape;
            else if (p.row == 0)
                expected = LabelRule::functionSymbol;
            else if (p.key->secondaryLabel)
                expected = LabelRule::twoLegends;
            QVERIFY2(rule == expected, qPrintable(p.key->id));
        }
        QCOMPARE(counts.value(LabelRule::functionSymbol), 12);
        QCOMPARE(counts.value(LabelRule::plainText), 26);

        // Word rules ignore case, the Touch ID rule does not; an empty label falls through to plain text.
        QCOMPARE(KeyCapView::labelRule({ u"x"_s, u"Caps Lock"_s, {}, 300, 1 }, false), LabelRule::capsLock);
        QCOMPARE(KeyCapView::labelRule({ u"x"_s, u"TouchID"_s, {}, 300, 1 }, false), LabelRule::plainText);
        QCOMPARE(KeyCapView::labelRule({ u"x"_s, u"TouchID"_s, {}, 300, 1 }, true), LabelRule::functionText);
        QCOMPARE(KeyCapView::labelRule({ u"x"_s, QString(), {}, 300, 1 }, false), LabelRule::plainText);
    }
};

QTEST_GUILESS_MAIN(TestKeyboardView)
#include "testkeyboardview.moc"
