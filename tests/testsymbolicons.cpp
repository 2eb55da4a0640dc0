// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/symbolicons.h"

#include <QFile>
#include <QPainter>
#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;

namespace {

const QColor teal(20, 150, 140);

// Counts pixels with any coverage; fails the test if an opaque one has another colour than `colour`.
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

int alphaSum(const QImage& image, const QRect& area)
{
    int sum = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            sum += qAlpha(image.pixel(x, y));
    return sum;
}

QImage canvas(QSize size, qreal devicePixelRatio)
{
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    image.setDevicePixelRatio(devicePixelRatio);
    return image;
}

} // namespace

class TestSymbolIcons final : public QObject
{
    Q_OBJECT

private slots:
    void everySymbolRendersInItsColour_data();
    void everySymbolRendersInItsColour();
    void fileChoice_data();
    void fileChoice();
    void unknownNamesAndSizesGiveNothing();
    void cache();
    void mirroring();
    void paintLandsOnDevicePixels();
    void license();
};

void TestSymbolIcons::everySymbolRendersInItsColour_data()
{
    QTest::addColumn<QString>("name");
    const char* const names[] = { "touchid", "globe", "control", "option", "command", "arrow.right.to.line",
        "delete.backward", "capslock", "return", "shift", "sun.min", "sun.max", "rectangle.3.group", "magnifyingglass",
        "microphone", "moon", "backward.end", "playpause", "forward.end", "speaker", "speaker.wave.1", "speaker.wave.3",
        "arrowtriangle.up.fill", "arrowtriangle.left.fill", "arrowtriangle.down.fill", "arrowtriangle.right.fill",
        "keyboard", "arrow.triangle.2.circlepath", "arrow.up.left.and.arrow.down.right", "checkmark",
        "square.and.arrow.down.on.square", "plus.circle.fill", "square.and.arrow.up", "square.and.arrow.down",
        "chevron.right", "keyboard.badge.ellipsis", "xmark.circle.fill", "rectangle.inset.filled", "hand.tap", "shadow",
        "square.dashed.inset.filled", "textformat" };
    for (const char* name : names)
        QTest::newRow(name) << QString::fromLatin1(name);
    QCOMPARE(SymbolIcons::symbolNames().size(), qsizetype(std::size(names)));
}

void TestSymbolIcons::everySymbolRendersInItsColour()
{
    QFETCH(QString, name);
    QVERIFY(SymbolIcons::hasSymbol(name));
    // Every file any size or weight can pick must have made it into the resource.
    for (double size : { 8.0, 10.0, 11.0, 12.0, 14.0, 16.0, 17.0, 30.0 }) {
        for (int w = int(SymbolWeight::thin); w <= int(SymbolWeight::heavy); ++w) {
            const QString file = SymbolIcons::fileFor(name, size, SymbolWeight(w));
            QVERIFY2(QFile::exists(file), qPrintable(file));
        }
    }

    const QImage image = SymbolIcons::shared().image(name, 14, SymbolWeight::medium, teal, 2);
    QCOMPARE(image.size(), QSize(34, 34)); // 1.2 × 14 × 2 = 33.6
    QCOMPARE(image.devicePixelRatio(), 2.0);
    const int painted = paintedPixels(image, teal);
    QVERIFY2(painted >= 0, "an opaque pixel has another colour");
    QVERIFY2(painted > 34 * 34 / 20, qPrintable(QString::number(painted)));
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
    row("tab at u = 60", "arrow.right.to.line", 16.56, W::regular, "regular/arrow-line-right.svg");
    row("command at 10.9 px", "command", 10.9, W::regular, "light/command-light.svg");
    row("command at 11 px", "command", 11, W::heavy, "regular/command.svg");
    row("command at 12 px", "command", 12, W::medium, "bold/command-bold.svg");
    row("thin command stays light at 11 px", "command", 11, W::thin, "light/command-light.svg");
    row("globe at 11.9 px", "globe", 11.9, W::medium, "regular/globe.svg");
    row("globe at 12 px", "globe", 12, W::medium, "bold/globe-bold.svg");
    row("touch id below 14 px", "touchid", 13.9, W::heavy, "light/fingerprint-simple-light.svg");
    row("touch id at 14 px", "touchid", 14, W::heavy, "bold/fingerprint-simple-bold.svg");
    row("fill ignores weight", "arrowtriangle.up.fill", 8, W::thin, "fill/caret-up-fill.svg");
    row("chevron is the outline caret", "chevron.right", 10, W::semibold, "bold/caret-right-bold.svg");
    row("badge falls back to the keyboard", "keyboard.badge.ellipsis", 12, W::medium, "bold/keyboard-bold.svg");
    row("shadow falls back", "shadow", 12, W::medium, "duotone/selection-duotone.svg");
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

    QImage target = canvas(QSize(40, 40), 1);
    QPainter painter(&target);
    icons.paint(painter, QRectF(0, 0, 40, 40), u"Globe"_s, 20, SymbolWeight::regular, teal);
    QCOMPARE(alphaSum(target, target.rect()), 0);
    icons.paint(painter, QRectF(0, 0, 40, 40), u"globe"_s, 20, SymbolWeight::regular, teal);
    QVERIFY(alphaSum(target, target.rect()) > 0);
}

void TestSymbolIcons::cache()
{
    SymbolIcons& icons = SymbolIcons::shared();
    const QImage first = icons.image(u"return"_s, 12, SymbolWeight::medium, teal, 1);
    QCOMPARE(icons.image(u"return"_s, 12, SymbolWeight::medium, teal, 1).cacheKey(), first.cacheKey());
    // Medium and bold pick the same file at this size, so they share the image.
    QCOMPARE(icons.image(u"return"_s, 12, SymbolWeight::bold, teal, 1).cacheKey(), first.cacheKey());

    // Each of these differs in one part of the key and must not be served the image above.
    const QImage red = icons.image(u"return"_s, 12, SymbolWeight::medium, Qt::red, 1);
    QVERIFY(paintedPixels(red, Qt::red) > 0);
    const QImage translucent = icons.image(u"return"_s, 12, SymbolWeight::medium, QColor(20, 150, 140, 100), 1);
    QVERIFY(alphaSum(translucent, translucent.rect()) < alphaSum(first, first.rect()) / 2);
    const QImage sameDevicePixels = icons.image(u"return"_s, 6, SymbolWeight::medium, teal, 2);
    QCOMPARE(sameDevicePixels.size(), first.size());
    QCOMPARE(sameDevicePixels.devicePixelRatio(), 2.0);

    // Bigger than the whole cache: handed out, never kept.
    const QImage huge = icons.image(u"return"_s, 850, SymbolWeight::medium, teal, 2);
    QCOMPARE(huge.width(), 2040);
    QVERIFY(icons.image(u"return"_s, 850, SymbolWeight::medium, teal, 2).cacheKey() != huge.cacheKey());
}

void TestSymbolIcons::mirroring()
{
    SymbolIcons& icons = SymbolIcons::shared();
    for (const QString& name : { u"return"_s, u"arrow.up.left.and.arrow.down.right"_s }) {
        const QImage plain = icons.image(name, 20, SymbolWeight::heavy, teal, 1);
        const QImage mirrored = icons.image(name, 20, SymbolWeight::heavy, teal, 1, true);
        QVERIFY(mirrored != plain);
        QCOMPARE(mirrored, plain.mirrored(true, false));
    }
    // The resize handle points ↖↘ unasked: its strokes fill the top-left corner, not the top-right.
    const QImage handle = icons.image(u"arrow.up.left.and.arrow.down.right"_s, 20, SymbolWeight::heavy, teal, 1);
    const int quarter = handle.width() / 4;
    QVERIFY(alphaSum(handle, QRect(0, 0, quarter, quarter))
        > 4 * alphaSum(handle, QRect(handle.width() - quarter, 0, quarter, quarter)));
}

void TestSymbolIcons::paintLandsOnDevicePixels()
{
    SymbolIcons& icons = SymbolIcons::shared();
    const QImage symbol = icons.image(u"shift"_s, 10, SymbolWeight::medium, teal, 2); // 24 × 24 device px
    QImage target = canvas(QSize(80, 80), 2);
    QPainter painter(&target);
    painter.translate(0.3, 0.1);
    // A box 2 px wider than the image: centred, the image starts 1 px (2 device px) further right.
    // (10.3 + 0.3 + 1) × 2 = 23.2 → 23; (5.2 + 0.1) × 2 = 10.6 → 11.
    icons.paint(painter, QRectF(10.3, 5.2, 14, 12), u"shift"_s, 10, SymbolWeight::medium, teal);
    painter.end();

    QImage expected = canvas(QSize(80, 80), 1);
    QPainter copy(&expected);
    copy.setCompositionMode(QPainter::CompositionMode_Source);
    QImage unscaled = symbol;
    unscaled.setDevicePixelRatio(1);
    copy.drawImage(23, 11, unscaled);
    copy.end();
    target.setDevicePixelRatio(1);
    QCOMPARE(target, expected);

    // The painter's opacity carries through.
    QImage faded = canvas(QSize(40, 40), 1);
    QPainter fader(&faded);
    fader.setOpacity(0.5);
    icons.paint(fader, QRectF(0, 0, 40, 40), u"arrowtriangle.up.fill"_s, 30, SymbolWeight::medium, teal);
    fader.end();
    int strongest = 0;
    for (int y = 0; y < faded.height(); ++y)
        for (int x = 0; x < faded.width(); ++x)
            strongest = std::max(strongest, qAlpha(faded.pixel(x, y)));
    QVERIFY2(strongest >= 126 && strongest <= 129, qPrintable(QString::number(strongest)));
}

void TestSymbolIcons::license()
{
    const QString text = SymbolIcons::licenseText();
    QVERIFY(text.startsWith(u"MIT License"_s));
    QVERIFY(text.contains(u"Copyright (c) 2023 Phosphor Icons"_s));
}

QTEST_MAIN(TestSymbolIcons)
#include "testsymbolicons.moc"
