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
    void keyTable()
    {
        // Every row is as wide as the board, except the modifier row, which leaves room for the arrows.
        QList<int> counts;
        QList<double> widths;
        for (const KeyRow& row : keyboardLayout()) {
            counts << int(row.size());
            widths << 0;
            for (const KeyDef& key : row)
                widths.last() += key.widthMultiplier;
        }
        QCOMPARE(counts, (QList<int> { 14, 14, 14, 13, 13, 7 }));
        QCOMPARE(widths, (QList<double> { 14.5, 14.5, 14.5, 14.5, 14.5, 11.5 }));

        const QList<KeyCode>& codes = allLayoutKeyCodes();
        QCOMPARE(QSet<KeyCode>(codes.cbegin(), codes.cend()).size(), 79);
        // Code 0 is a real key, touch id no key at all; function keys carry a symbol too.
        QCOMPARE(keyboardLayout()[3][1].id, u"0-A"_s);
        QCOMPARE(keyboardLayout()[0][13].keycode, touchIDKeyCode);
        QCOMPARE(keyboardLayout()[0][1].secondaryLabel, u"sun.min"_s);
    }

    void geometry_data()
    {
        QTest::addColumn<double>("spacing");
        QTest::addColumn<double>("unit");
        QTest::newRow("spacing 7 at 60") << 7.0 << 60.0;
        QTest::newRow("spacing 12 at 44") << 12.0 << 44.0;
        QTest::newRow("spacing 0 at 41.3") << 0.0 << 41.3;
    }

    void geometry()
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
        QVERIFY(near(q.height(), unit * 0.92));
        QVERIFY(near(w.left() - q.right(), s));
        QVERIFY(near(a.top() - q.bottom(), s));
        QVERIFY(near(view.placement(60)->rect.width(), 2.25 * unit + 1.25 * s));
    }

    void arrowClusterIsAnInvertedT()
    {
        // Spacing 12 at unit 60: horizontal gaps of 12, the vertical gap capped at 3.
        const KeyboardView view(withSpacing(12), QRectF(0, 0, 14.5 * 60 + 13.5 * 12, 5.52 * 60 + 5 * 12));
        const QRectF up = view.placement(126)->rect, left = view.placement(123)->rect;
        const QRectF down = view.placement(125)->rect, right = view.placement(124)->rect;
        QVERIFY(near(up.height(), (60 * 0.92 - 3) / 2) && near(down.top() - up.bottom(), 3));
        QVERIFY(near(down.left() - left.right(), 12) && near(right.left() - down.right(), 12));
        QCOMPARE(up.left(), down.left());
        const QRectF fn = view.placement(63)->rect;
        QVERIFY(near(up.top(), fn.top()) && near(right.bottom(), fn.bottom()));
    }

    void cornerKeys()
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
        const CornerKeyPosition clockwise[] = { CornerKeyPosition::topLeft, CornerKeyPosition::topRight,
            CornerKeyPosition::bottomRight, CornerKeyPosition::bottomLeft };
        for (int i = 0; i < 4; ++i) {
            const CornerRadii r = KeyCapView::cornerRadii(style, clockwise[i]);
            const QList<double> radii { r.topLeft, r.topRight, r.bottomRight, r.bottomLeft };
            QVERIFY(radii.indexOf(9) == i && radii.count(1) == 3);
        }
    }
};

QTEST_GUILESS_MAIN(TestKeyboardView)
#include "testkeyboardview.moc"
