// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/symbolicons.h"

#include <QFile>
#include <QPainter>
#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;

namespace {

const QColor teal(20, 150, 140);

/** Pixels with any coverage, or -1 when an opaque one has another colour than `colour`. */
int paintedPixels(const QImage& image, const QColor& colour)
{
    int painted = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QRgb pixel = image.pixel(x, y);
            if (qAlpha(pixel) == 255 && (pixel & 0xffffff) != (colour.rgb() & 0xffffff))
                return -1;
            painted += qAlpha(pixel) > 0;
        }
    }
    return painted;
}

/** Sum of alpha over `area`, the whole image when it is null. */
int alphaSum(const QImage& image, QRect area = {})
{
    if (area.isNull())
        area = image.rect();
    int sum = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x)
            sum += qAlpha(image.pixel(x, y));
    }
    return sum;
}

} // namespace

class TestSymbolIcons final : public QObject
{
    Q_OBJECT

private slots:
    void everySymbolRendersInItsColour();
    void fileChoice_data();
    void fileChoice();
    void unknownNamesAndSizesGiveNothing();
    void imagesAreKeptApartByWhatChangesThem();
    void paintLandsOnDevicePixels();
};

void TestSymbolIcons::everySymbolRendersInItsColour()
{
    const QStringList names = SymbolIcons::symbolNames();
    QCOMPARE(names.size(), 42);
    for (const QString& name : names) {
        QVERIFY(SymbolIcons::hasSymbol(name));
        // Every file a weight can pick made it into the resource: light, regular and bold show at 10 and 17 px.
        for (double size : { 10.0, 17.0 }) {
            for (int w = int(SymbolWeight::thin); w <= int(SymbolWeight::heavy); ++w) {
                const QString file = SymbolIcons::fileFor(name, size, SymbolWeight(w));
                QVERIFY2(QFile::exists(file), qPrintable(file));
            }
        }
        const QImage image = SymbolIcons::shared().image(name, 14, SymbolWeight::medium, teal, 2);
        QCOMPARE(image.size(), QSize(34, 34)); // 1.2 × 14 × 2 = 33.6
        QCOMPARE(image.devicePixelRatio(), 2.0);
        // Also fails (-1) for an opaque pixel of another colour.
        const int painted = paintedPixels(image, teal);
        QVERIFY2(painted > 34 * 34 / 20, qPrintable(name + u": "_s + QString::number(painted)));
    }

    QVERIFY(SymbolIcons::licenseText().startsWith(u"MIT License"_s));
    QVERIFY(SymbolIcons::licenseText().contains(u"Copyright (c) 2023 Phosphor Icons"_s));
}

void TestSymbolIcons::fileChoice_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<double>("size");
    QTest::addColumn<SymbolWeight>("weight");
    QTest::addColumn<QString>("file");

    using W = SymbolWeight;
    const auto row = [](const char* tag, const char* name, double size, W weight, const char* file) {
        QTest::newRow(tag) << QString::fromLatin1(name) << size << weight << u":/symbols/"_s + QLatin1StringView(file);
    };
    row("regular at 16 px draws bold", "checkmark", 16, W::regular, "bold/check-bold.svg");
    row("regular at 16.1 px draws regular", "checkmark", 16.1, W::regular, "regular/check.svg");
    row("medium above 16 px draws bold", "checkmark", 17, W::medium, "bold/check-bold.svg");
    row("thin draws regular without a light file", "checkmark", 24, W::thin, "regular/check.svg");
    row("command at 10.9 px", "command", 10.9, W::regular, "light/command-light.svg");
    row("command at 11 px", "command", 11, W::heavy, "regular/command.svg");
    row("thin command stays light at 11 px", "command", 11, W::thin, "light/command-light.svg");
    row("globe at 11.9 px", "globe", 11.9, W::medium, "regular/globe.svg");
    row("globe at 12 px", "globe", 12, W::medium, "bold/globe-bold.svg");
    row("touch id below 14 px", "touchid", 13.9, W::heavy, "light/fingerprint-simple-light.svg");
    row("touch id at 14 px", "touchid", 14, W::heavy, "bold/fingerprint-simple-bold.svg");
    row("fill ignores weight", "arrowtriangle.up.fill", 8, W::thin, "fill/caret-up-fill.svg");
}

void TestSymbolIcons::fileChoice()
{
    QFETCH(QString, name);
    QFETCH(double, size);
    QFETCH(SymbolWeight, weight);
    QTEST(SymbolIcons::fileFor(name, size, weight), "file");
}

void TestSymbolIcons::unknownNamesAndSizesGiveNothing()
{
    SymbolIcons& icons = SymbolIcons::shared();
    for (const QString& name : { u"Command"_s, u"globe "_s, QString(), u"square.and.arrow"_s }) {
        QVERIFY(!SymbolIcons::hasSymbol(name));
        QVERIFY(SymbolIcons::fileFor(name, 12, SymbolWeight::regular).isEmpty());
        QVERIFY(icons.image(name, 12, SymbolWeight::regular, teal, 1).isNull());
    }
    for (double size : { 0.0, -4.0, std::numeric_limits<double>::quiet_NaN(), 2000.0 })
        QVERIFY2(
            icons.image(u"globe"_s, size, SymbolWeight::regular, teal, 1).isNull(), qPrintable(QString::number(size)));
    QVERIFY(icons.image(u"globe"_s, 12, SymbolWeight::regular, teal, 0).isNull());
}

void TestSymbolIcons::imagesAreKeptApartByWhatChangesThem()
{
    SymbolIcons& icons = SymbolIcons::shared();
    const auto image = [&icons](double size, const QColor& colour, qreal dpr = 1, bool mirror = false) {
        return icons.image(u"return"_s, size, SymbolWeight::medium, colour, dpr, mirror);
    };
    const QImage first = image(12, teal);
    QCOMPARE(image(12, teal).cacheKey(), first.cacheKey());

    // Each of these differs in one thing the cache tells images apart by, and must not be served the image above.
    QVERIFY(paintedPixels(image(12, Qt::red), Qt::red) > 0);
    QVERIFY(alphaSum(image(12, QColor(20, 150, 140, 100))) < alphaSum(first) / 2);
    const QImage sameDevicePixels = image(6, teal, 2);
    QCOMPARE(sameDevicePixels.size(), first.size());
    QCOMPARE(sameDevicePixels.devicePixelRatio(), 2.0);
    const QImage mirrored = image(12, teal, 1, true);
    QVERIFY(mirrored != first);
    QCOMPARE(mirrored, first.mirrored(true, false));

    // The resize handle's file points ↙↗ and is drawn ↖↘ unasked: its strokes fill the top-left corner.
    const QString handleName = u"arrow.up.left.and.arrow.down.right"_s;
    const QImage handle = icons.image(handleName, 20, SymbolWeight::heavy, teal, 1);
    QCOMPARE(icons.image(handleName, 20, SymbolWeight::heavy, teal, 1, true), handle.mirrored(true, false));
    const int quarter = handle.width() / 4;
    QVERIFY(alphaSum(handle, QRect(0, 0, quarter, quarter))
        > 4 * alphaSum(handle, QRect(handle.width() - quarter, 0, quarter, quarter)));
}

void TestSymbolIcons::paintLandsOnDevicePixels()
{
    SymbolIcons& icons = SymbolIcons::shared();
    QImage symbol = icons.image(u"shift"_s, 10, SymbolWeight::medium, teal, 2); // 24 × 24 device px
    QImage target(80, 80, QImage::Format_ARGB32_Premultiplied);
    target.fill(Qt::transparent);
    target.setDevicePixelRatio(2);
    QPainter painter(&target);
    painter.translate(0.3, 0.1);
    // A box 2 px wider than the image: centred, the image starts 1 px (2 device px) further right.
    // (10.3 + 0.3 + 1) × 2 = 23.2 → 23; (5.2 + 0.1) × 2 = 10.6 → 11.
    icons.paint(painter, QRectF(10.3, 5.2, 14, 12), u"shift"_s, 10, SymbolWeight::medium, teal);
    painter.end();
    target.setDevicePixelRatio(1);
    symbol.setDevicePixelRatio(1);
    QCOMPARE(target.copy(23, 11, 24, 24), symbol);
    QCOMPARE(alphaSum(target), alphaSum(symbol));
}

QTEST_MAIN(TestSymbolIcons)
#include "testsymbolicons.moc"
