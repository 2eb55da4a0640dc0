// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/keycapview.h"
#include "keyboard/shadowcache.h"

#include <QPainter>
#include <QPainterPath>
#include <QTest>

#include <cmath>
#include <limits>

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

/** Total alpha of an image and where it lies: mean and variance along x, in device pixels. */
struct Spread
{
    double total = 0, meanX = 0, meanY = 0, varianceX = 0;
};

Spread spreadOf(const QImage& image)
{
    double sum[4] = {}; // alpha times 1, x, y, x² at pixel centres
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const double a = qAlpha(image.pixel(x, y)), cx = x + 0.5;
            sum[0] += a, sum[1] += a * cx, sum[2] += a * (y + 0.5), sum[3] += a * cx * cx;
        }
    }
    const double t = sum[0] > 0 ? sum[0] : 1;
    return { sum[0], sum[1] / t, sum[2] / t, sum[3] / t - std::pow(sum[1] / t, 2) };
}

/** Pixels of `piece` with any alpha whose square lies wholly outside `area` (in key points). */
int pixelsOutside(const ShadowCache::Piece& piece, const QPainterPath& area)
{
    const double dpr = piece.image.devicePixelRatio();
    int count = 0;
    for (int y = 0; y < piece.image.height(); ++y) {
        for (int x = 0; x < piece.image.width(); ++x) {
            const QRectF square(piece.offset + QPointF(x, y) / dpr, QSizeF(1, 1) / dpr);
            count += qAlpha(piece.image.pixel(x, y)) != 0 && !area.intersects(square);
        }
    }
    return count;
}

const QSizeF keySize(60, 55);
const CornerRadii keyRadii = CornerRadii::uniform(8);

} // namespace

class TestShadowCache final : public QObject
{
    Q_OBJECT

private slots:
    void gaussianBlur_data()
    {
        QTest::addColumn<double>("sigma");
        QTest::addColumn<int>("format");
        QTest::newRow("sigma 2.5") << 2.5 << int(QImage::Format_ARGB32_Premultiplied);
        QTest::newRow("sigma 15, box passes, straight alpha") << 15.0 << int(QImage::Format_ARGB32);
    }

    void gaussianBlur()
    {
        QFETCH(double, sigma);
        QFETCH(int, format);
        // A square big enough that the blurred values stay well above 8-bit rounding.
        const int square = 16 + int(4 * sigma);
        const int side = square + 2 * (int(std::ceil(3 * sigma)) + 4);
        QImage image(side, side, QImage::Format(format));
        image.fill(Qt::transparent);
        QPainter(&image).fillRect((side - square) / 2, (side - square) / 2, square, square, QColor(255, 0, 0, 200));
        const Spread before = spreadOf(image);
        ShadowCache::gaussianBlur(image, sigma);
        const Spread after = spreadOf(image);

        QVERIFY(std::abs(after.total / before.total - 1) < 0.01);
        QVERIFY(std::abs(after.meanX - before.meanX) < 0.05);
        // Blurring adds sigma² to the variance.
        const double spread = std::sqrt(after.varianceX - before.varianceX);
        QVERIFY2(std::abs(spread / sigma - 1) < 0.05, qPrintable(QString::number(spread)));
    }

    void dropShadow_data()
    {
        QTest::addColumn<double>("dpr");
        QTest::addColumn<QPointF>("offset");
        QTest::newRow("down and left, dpr 2") << 2.0 << QPointF(-3, 2.5);
        QTest::newRow("fractional, dpr 1.25") << 1.25 << QPointF(0.3, 1.7);
    }

    void dropShadow()
    {
        QFETCH(double, dpr);
        QFETCH(QPointF, offset);
        ShadowCache cache;
        const QColor colour(20, 30, 40, 180);
        const ShadowCache::Piece sharp = cache.dropShadow(keySize, keyRadii, 0, offset, colour, dpr);
        const ShadowCache::Piece soft = cache.dropShadow(keySize, keyRadii, 6, offset, colour, dpr);

        // Unblurred, it is the key's shape 1 point in, moved.
        const QRectF inset = QRectF(QPointF(0, 0), keySize).adjusted(1, 1, -1, -1).translated(offset);
        QCOMPARE(pixelsOutside(sharp, keyShapePath(inset, keyRadii)), 0);
        const Spread sharpSpread = spreadOf(sharp.image);

        // Blurred, it keeps its centre and its alpha and spreads out, uncut by the image's edges.
        const Spread spread = spreadOf(soft.image);
        QCOMPARE(spreadOf(soft.image.copy(soft.image.rect().adjusted(1, 1, -1, -1))).total, spread.total);
        const QPointF centre = soft.offset + QPointF(spread.meanX, spread.meanY) / dpr;
        const QPointF expected = QRectF(QPointF(0, 0), keySize).center() + offset;
        QVERIFY((centre - expected).manhattanLength() < 0.1);
        QVERIFY(std::abs(spread.total / sharpSpread.total - 1) < 0.01);

        // A cap's painted area holds all of its drop shadow.
        ThemeStyle style;
        style.dropShadowConfig = { true, 8, 1, 0, 0, 0, offset.x(), offset.y() };
        const QRectF key(QPointF(100, 50), keySize);
        const ShadowCache::Piece wide = cache.dropShadow(keySize, keyRadii, 8, offset, Qt::black, dpr);
        QPainterPath painted;
        painted.addRect(KeyCapView::paintedBounds(key, style).translated(-key.topLeft()));
        QCOMPARE(pixelsOutside(wide, painted), 0);
    }

    void innerShadow()
    {
        ShadowCache cache;
        const CornerRadii radii = CornerRadii::uniform(10);
        const InnerShadowSpec look { .blurRadius = 4, .offset = { 0, 12 }, .colour = QColor(0, 0, 0, 200) };
        const ShadowCache::Piece piece = cache.innerShadow(keySize, radii, look, 2);
        QCOMPARE(piece.offset, QPointF(0, 0));
        QCOMPARE(piece.image.deviceIndependentSize(), keySize);
        QCOMPARE(pixelsOutside(piece, keyShapePath(QRectF(QPointF(0, 0), keySize), radii)), 0);
        // Cast down from the top edge: dark under it, clear in the middle.
        const int x = int(keySize.width());
        QVERIFY(qAlpha(piece.image.pixel(x, 4)) > 150);
        QCOMPARE(qAlpha(piece.image.pixel(x, int(keySize.height()))), 0);
    }

    void unusableInput()
    {
        // Nothing to show: no colour; an empty, unknown or undrawably big key.
        ShadowCache cache;
        QVERIFY(cache.dropShadow(keySize, keyRadii, 4, { 0, 2 }, Qt::transparent, 1).isNull());
        QVERIFY(cache.innerShadow(keySize, keyRadii, { .offset = {}, .colour = Qt::transparent }, 1).isNull());
        for (const QSizeF size : { QSizeF(0, 50), QSizeF(notANumber, 55), QSizeF(1e9, 1e9) }) {
            QVERIFY(cache.dropShadow(size, keyRadii, 5, { 0, 3 }, Qt::black, 2).isNull());
            QVERIFY(cache.innerShadow(size, keyRadii, { .offset = {}, .colour = Qt::black }, 1).isNull());
        }

        // Radii beyond half the shorter side act as that half; an endless blur is capped.
        const QRectF wideKey(0, 0, 60, 20);
        QCOMPARE(
            keyShapePath(wideKey, CornerRadii::uniform(infinity)), keyShapePath(wideKey, CornerRadii::uniform(10)));
        QVERIFY(cache.dropShadow(keySize, keyRadii, infinity, { 0, 0 }, Qt::black, 1).image.width() < 1500);
    }
};

QTEST_GUILESS_MAIN(TestShadowCache)
#include "testshadowcache.moc"
