// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/keycapview.h"
#include "keyboard/shadowcache.h"

#include <QPainter>
#include <QPainterPath>
#include <QTest>

#include <cmath>
#include <limits>
#include <numbers>

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

InnerShadowSpec innerLook(const QColor& colour, double blur = 4, QPointF offset = { 0, 3 })
{
    InnerShadowSpec look;
    look.blurRadius = blur;
    look.offset = offset;
    look.colour = colour;
    return look;
}

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
        QTest::newRow("sigma 15, box passes") << 15.0 << int(QImage::Format_ARGB32_Premultiplied);
        QTest::newRow("straight alpha is converted first") << 3.0 << int(QImage::Format_ARGB32);
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

        QCOMPARE(image.format(), QImage::Format_ARGB32_Premultiplied);
        QVERIFY(std::abs(after.total / before.total - 1) < 0.01);
        QVERIFY(std::abs(after.meanX - before.meanX) < 0.05);
        // Blurring adds sigma² to the variance.
        const double spread = std::sqrt(after.varianceX - before.varianceX);
        QVERIFY2(std::abs(spread / sigma - 1) < 0.05, qPrintable(QString::number(spread)));
        // All four channels are blurred alike: the middle row is still the same red.
        for (int x = 0; x < side; ++x) {
            const QRgb p = image.pixel(x, side / 2);
            QVERIFY(qGreen(p) == 0 && qBlue(p) == 0 && std::abs(qRed(p) - qAlpha(p)) <= 1);
        }

        // Beyond the edges counts as transparent: of a full image, a corner keeps about a quarter.
        QImage full(61, 47, QImage::Format_Alpha8);
        full.fill(255);
        ShadowCache::gaussianBlur(full, sigma);
        const double inside = 0.5 * std::erfc(-0.5 / sigma / std::sqrt(2.0));
        for (const QPoint corner : { QPoint(0, 0), QPoint(60, 46) })
            QVERIFY(std::abs(qAlpha(full.pixel(corner)) - 255 * inside * inside) < 3);
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
        QCOMPARE(soft.image.devicePixelRatio(), dpr);

        // Unblurred, it is the key's shape 1 point in, moved: nothing outside, and the inset's area.
        const QRectF inset = QRectF(QPointF(0, 0), keySize).adjusted(1, 1, -1, -1).translated(offset);
        QCOMPARE(pixelsOutside(sharp, keyShapePath(inset, keyRadii)), 0);
        const double area = inset.width() * inset.height() - (4 - std::numbers::pi) * 8 * 8;
        const Spread sharpSpread = spreadOf(sharp.image);
        QVERIFY(std::abs(sharpSpread.total / 180 / (dpr * dpr) / area - 1) < 0.003);

        // Blurred, it keeps its centre and its alpha and spreads out, uncut by the image's edges.
        const Spread spread = spreadOf(soft.image);
        QCOMPARE(spreadOf(soft.image.copy(soft.image.rect().adjusted(1, 1, -1, -1))).total, spread.total);
        const QPointF centre = soft.offset + QPointF(spread.meanX, spread.meanY) / dpr;
        const QPointF expected = QRectF(QPointF(0, 0), keySize).center() + offset;
        QVERIFY((centre - expected).manhattanLength() < 0.1);
        QVERIFY(std::abs(spread.total / sharpSpread.total - 1) < 0.01);
        QVERIFY(spread.varianceX > sharpSpread.varianceX);

        // A cap's painted area holds all of its drop shadow.
        ThemeStyle style;
        style.dropShadowConfig = { true, 8, 1, 0, 0, 0, offset.x(), offset.y() };
        const QRectF key(QPointF(100, 50), keySize);
        const ShadowCache::Piece wide = cache.dropShadow(keySize, keyRadii, 8, offset, Qt::black, dpr);
        QPainterPath painted;
        painted.addRect(KeyCapView::paintedBounds(key, style).translated(-key.topLeft()));
        QCOMPARE(pixelsOutside(wide, painted), 0);
    }

    void innerShadow_data()
    {
        QTest::addColumn<QSizeF>("size");
        QTest::addColumn<CornerRadii>("radii");
        QTest::addColumn<InnerShadowSpec>("look");
        QTest::addColumn<double>("dpr");

        QTest::newRow("ordinary key") << keySize << CornerRadii::uniform(10) << innerLook(QColor(0, 0, 0, 200)) << 1.0;
        QTest::newRow("wide blur, box passes, dpr 2")
            << QSizeF(100, 40) << CornerRadii::uniform(4) << innerLook(Qt::black, 14, { 0, 4 }) << 2.0;
        InnerShadowSpec arrow = innerLook(QColor(0, 0, 0, 200));
        arrow.strokeWidth = 5;
        arrow.scaleX = 1.5;
        arrow.scaleY = 4.0;
        QTest::newRow("arrow key, dpr 2") << QSizeF(28, 13) << CornerRadii::uniform(4) << arrow << 2.0;
    }

    void innerShadow()
    {
        QFETCH(QSizeF, size);
        QFETCH(CornerRadii, radii);
        QFETCH(InnerShadowSpec, look);
        QFETCH(double, dpr);
        ShadowCache cache;
        const ShadowCache::Piece piece = cache.innerShadow(size, radii, look, dpr);
        QCOMPARE(piece.offset, QPointF(0, 0));
        QCOMPARE(piece.image.deviceIndependentSize(), size);
        QCOMPARE(pixelsOutside(piece, keyShapePath(QRectF(QPointF(0, 0), size), radii)), 0);

        // Down the middle of the key, under its top edge, the shadow is the stroke's band blurred: the band and the
        // offset scaled about the centre, the blur scaled with them. A sharp band is only checked away from its edges.
        const double centre = size.height() / 2;
        const double inner = centre + (look.strokeWidth / 2 - centre + look.offset.y()) * look.scaleY;
        const double outer = centre + (-look.strokeWidth / 2 - centre + look.offset.y()) * look.scaleY;
        const double sigma = look.blurRadius / 2 * look.scaleY;
        const auto below = [sigma](double edge, double y) {
            return sigma > 0 ? 0.5 * std::erfc((y - edge) / sigma / std::sqrt(2.0)) : double(y < edge);
        };
        for (int row = 0; row < int(centre * dpr); ++row) {
            const double y = (row + 0.5) / dpr;
            if (sigma == 0 && std::abs(y - inner) < 1)
                continue;
            const double expected = look.colour.alpha() * (below(inner, y) - below(outer, y));
            const int actual = qAlpha(piece.image.pixel(int(size.width() / 2 * dpr), row));
            QVERIFY2(std::abs(actual - expected) <= 4, qPrintable(QStringLiteral("at %1: %2").arg(y).arg(actual)));
        }
    }

    void cacheKeepsPiecesApart()
    {
        ShadowCache cache;
        const QColor colour(0, 0, 0, 90);
        const auto drop = [&cache](const QColor& c, qreal dpr = 2, QPointF offset = { 0, 2 }, QSizeF size = keySize) {
            return cache.dropShadow(size, keyRadii, 4, offset, c, dpr).image.cacheKey();
        };
        const auto inner = [&cache](const InnerShadowSpec& look) {
            return cache.innerShadow(keySize, keyRadii, look, 2).image.cacheKey();
        };
        const qint64 key = drop(colour), innerKey = inner(innerLook(colour));
        QCOMPARE(drop(colour), key);
        QCOMPARE(inner(innerLook(colour)), innerKey);
        QCOMPARE(drop(colour, 2, { 0, 2 }, { 60.05, 54.95 }), key); // within the same quarter device pixel
        for (const qint64 other : { drop(QColor(0, 0, 0, 91)), drop(colour, 1), drop(colour, 2, { 0, 3 }) })
            QVERIFY(other != key);
        InnerShadowSpec withStroke = innerLook(colour);
        withStroke.strokeColour = Qt::white;
        QVERIFY(inner(innerLook(QColor(0, 0, 0, 91))) != innerKey && inner(withStroke) != innerKey);
    }

    void unusableInput()
    {
        // A blur of no image or by no usable sigma changes nothing; an endless one is capped.
        QImage null;
        ShadowCache::gaussianBlur(null, 4);
        QImage original(40, 40, QImage::Format_ARGB32_Premultiplied);
        original.fill(Qt::black);
        for (const double sigma : { 0.0, -3.0, notANumber, -infinity }) {
            QImage image = original;
            ShadowCache::gaussianBlur(image, sigma);
            QCOMPARE(image, original);
        }
        QImage endless = original;
        ShadowCache::gaussianBlur(endless, infinity);
        QVERIFY(qAlpha(endless.pixel(20, 20)) < 255);

        ShadowCache cache;
        InnerShadowSpec look = innerLook(Qt::black);
        look.strokeColour = Qt::red;
        // Nothing to show: no colour; an empty, negative, unknown, undrawably big or sub-pixel key.
        for (const QColor& colour : { QColor(Qt::transparent), QColor() }) {
            QVERIFY(cache.dropShadow(keySize, keyRadii, 4, { 0, 2 }, colour, 1).isNull());
            QVERIFY(cache.innerShadow(keySize, keyRadii, innerLook(colour), 1).isNull());
        }
        for (const QSizeF size : { QSizeF(0, 50), QSizeF(-60, -55), QSizeF(notANumber, 55), QSizeF(infinity, infinity),
                 QSizeF(1e9, 1e9), QSizeF(0.1, 0.1) }) {
            QVERIFY(cache.dropShadow(size, keyRadii, 5, { 0, 3 }, Qt::black, 2).isNull());
            QVERIFY(cache.innerShadow(size, keyRadii, look, 1).isNull());
        }

        // Each unusable look acts as a usable one: unknown values as 0 or 1, radii beyond half the shorter side as that
        // half.
        struct Look
        {
            CornerRadii radii = CornerRadii::uniform(6);
            double blur = 4;
            QPointF offset { 1, 2 };
            double dpr = 1;
        };
        const std::pair<Look, Look> cases[] = {
            { { .radii = { notANumber, notANumber, 6, notANumber } }, { .radii = { 0, 0, 6, 0 } } },
            { { .radii = CornerRadii::uniform(infinity), .dpr = 2 },
                { .radii = CornerRadii::uniform(27.5), .dpr = 2 } },
            { { .blur = notANumber }, { .blur = 0 } },
            { { .offset = { notANumber, 2 } }, { .offset = { 0, 2 } } },
            { { .dpr = notANumber }, { .dpr = 1 } },
        };
        const QColor colour(0, 0, 0, 120);
        const auto drop
            = [&](const Look& l) { return cache.dropShadow(keySize, l.radii, l.blur, l.offset, colour, l.dpr); };
        const auto inner = [&](const Look& l) {
            return cache.innerShadow(keySize, l.radii, innerLook(colour, l.blur, l.offset), l.dpr);
        };
        const QRectF wideKey(0, 0, 60, 20);
        QCOMPARE(
            keyShapePath(wideKey, CornerRadii::uniform(infinity)), keyShapePath(wideKey, CornerRadii::uniform(10)));
        for (const auto& [unusable, usable] : cases) {
            QVERIFY(!drop(unusable).isNull());
            QCOMPARE(drop(unusable).image, drop(usable).image);
            QCOMPARE(inner(unusable).image, inner(usable).image);
        }
        // Endless lengths are capped: the blur, the offset and the stroke.
        const ShadowCache::Piece wide = cache.dropShadow(keySize, keyRadii, infinity, { 0, 0 }, Qt::black, 1);
        QVERIFY(wide.image.width() > 1000 && wide.image.width() < 1500);
        const ShadowCache::Piece far = cache.dropShadow(keySize, keyRadii, 2, { 1e12, -infinity }, Qt::black, 1);
        QVERIFY(far.offset.x() > 1000 && far.offset.y() < -1000);
        look.strokeWidth = look.scaleX = infinity;
        QCOMPARE(cache.innerShadow(keySize, keyRadii, look, 1).image.deviceIndependentSize(), keySize);
    }
};

QTEST_GUILESS_MAIN(TestShadowCache)
#include "testshadowcache.moc"
