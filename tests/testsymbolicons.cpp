// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/symbolicons.h"

#include <QPainter>
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
            QCOMPARE(image.devicePixelRatio(), 2.0);
        }
        // Heavier weights draw heavier strokes.
        QVERIFY(alphaSum(icons.image(u"checkmark"_s, 24, SymbolWeight::heavy, teal, 1))
            > alphaSum(icons.image(u"checkmark"_s, 24, SymbolWeight::thin, teal, 1)));

        // Unknown names and unusable sizes give nothing.
        for (const QString& name : { u"Command"_s, u"globe "_s, QString() })
            QVERIFY(icons.image(name, 12, SymbolWeight::regular, teal, 1).isNull());
        for (double size : { 0.0, -4.0, qQNaN(), 2000.0 })
            QVERIFY(icons.image(u"globe"_s, size, SymbolWeight::regular, teal, 1).isNull());
        QVERIFY(icons.image(u"globe"_s, 12, SymbolWeight::regular, teal, 0).isNull());
    }

    void imagesAreKeptApartByWhatChangesThem()
    {
        SymbolIcons& icons = SymbolIcons::shared();
        const auto image = [&icons](double size, const QColor& colour, qreal dpr = 1, bool mirror = false) {
            return icons.image(u"return"_s, size, SymbolWeight::medium, colour, dpr, mirror);
        };
        const QImage first = image(12, teal);
        QCOMPARE(image(12, teal).cacheKey(), first.cacheKey());
        // Each differs in one thing the cache tells images apart by, and must not be served the image above.
        QVERIFY(alphaSum(image(12, Qt::red), Qt::red) > 0);
        QVERIFY(alphaSum(image(12, QColor(20, 150, 140, 100))) < alphaSum(first) / 2);
        QCOMPARE(image(6, teal, 2).devicePixelRatio(), 2.0);
        QCOMPARE(image(12, teal, 1, true), first.mirrored(true, false));

        // The resize handle's file points ↙↗ and is drawn ↖↘ unasked: its strokes fill the top-left corner.
        const QImage handle = icons.image(u"arrow.up.left.and.arrow.down.right"_s, 20, SymbolWeight::heavy, teal, 1);
        const int quarter = handle.width() / 4;
        QVERIFY(alphaSum(handle, teal, QRect(0, 0, quarter, quarter))
            > 4 * alphaSum(handle, teal, QRect(handle.width() - quarter, 0, quarter, quarter)));
    }

    void paintLandsOnDevicePixels()
    {
        QImage symbol = SymbolIcons::shared().image(u"shift"_s, 10, SymbolWeight::medium, teal, 2); // 24 × 24 px
        QImage target(80, 80, QImage::Format_ARGB32_Premultiplied);
        target.fill(Qt::transparent);
        target.setDevicePixelRatio(2);
        QPainter painter(&target);
        painter.translate(0.3, 0.1);
        // A box 2 px wider than the image: (10.3 + 0.3 + 1) × 2 = 23.2 → 23; (5.2 + 0.1) × 2 = 10.6 → 11.
        SymbolIcons::shared().paint(painter, QRectF(10.3, 5.2, 14, 12), u"shift"_s, 10, SymbolWeight::medium, teal);
        painter.end();
        target.setDevicePixelRatio(1);
        symbol.setDevicePixelRatio(1);
        QCOMPARE(target.copy(23, 11, 24, 24), symbol);
        QCOMPARE(alphaSum(target), alphaSum(symbol));
    }
};

QTEST_MAIN(TestSymbolIcons)
#include "testsymbolicons.moc"
