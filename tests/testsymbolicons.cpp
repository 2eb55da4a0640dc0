// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/symbolicons.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QColor teal(20, 150, 140);

/** Sum of alpha over `area`, the whole image when it is null; -1 when an opaque pixel is not `colour`. */
int alphaSum(const QImage& image, const QColor& colour = teal, QRect area = {})
{
    int sum = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QRgb pixel = image.pixel(x, y);
            if (qAlpha(pixel) == 255 && (pixel & 0xffffff) != (colour.rgb() & 0xffffff))
                return -1;
            sum += area.isNull() || area.contains(x, y) ? qAlpha(pixel) : 0;
        }
    }
    return sum;
}

} // namespace

class TestSymbolIcons final : public QObject
{
    Q_OBJECT

private slots:
    void everySymbolRendersInItsColour()
    {
        SymbolIcons& icons = SymbolIcons::shared();
        for (const QString& name : SymbolIcons::symbolNames()) {
            // Every weight at a small and a large size picks a file that made it into the resource.
            for (int w = int(SymbolWeight::thin); w <= int(SymbolWeight::heavy); ++w) {
                for (double size : { 10.0, 17.0 })
                    QVERIFY2(alphaSum(icons.image(name, size, SymbolWeight(w), teal, 1)) > 0, qPrintable(name));
            }
            const QImage image = icons.image(name, 14, SymbolWeight::medium, teal, 2);
            QCOMPARE(image.size(), QSize(34, 34)); // 1.2 × 14 × 2 = 33.6
        }

        // Unknown names and unusable sizes give nothing.
        QVERIFY(icons.image(u"Command"_s, 12, SymbolWeight::regular, teal, 1).isNull());
        for (double size : { 0.0, qQNaN(), 2000.0 })
            QVERIFY(icons.image(u"globe"_s, size, SymbolWeight::regular, teal, 1).isNull());
    }

    void orientation()
    {
        SymbolIcons& icons = SymbolIcons::shared();
        const QImage first = icons.image(u"return"_s, 12, SymbolWeight::medium, teal, 1);
        QCOMPARE(icons.image(u"return"_s, 12, SymbolWeight::medium, teal, 1, true), first.mirrored(true, false));

        // The resize handle's file points ↙↗ and is drawn ↖↘ unasked: its strokes fill the top-left corner.
        const QImage handle = icons.image(u"arrow.up.left.and.arrow.down.right"_s, 20, SymbolWeight::heavy, teal, 1);
        const int quarter = handle.width() / 4;
        QVERIFY(alphaSum(handle, teal, QRect(0, 0, quarter, quarter))
            > 4 * alphaSum(handle, teal, QRect(handle.width() - quarter, 0, quarter, quarter)));
    }
};

QTEST_MAIN(TestSymbolIcons)
#include "testsymbolicons.moc"
