// SPDX-License-Identifier: GPL-3.0-or-later
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

/** Total alpha of an image and where it lies: mean and variance along each axis, in device pixels. */
struct Spread
{
    double total = 0, meanX = 0, meanY = 0, varianceX = 0, varianceY = 0;
};

Spread spreadOf(const QImage& image)
{
    double sum[5] = {}; // alpha times 1, x, y, x², y² at pixel centres
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const double a = qAlpha(image.pixel(x, y)), cx = x + 0.5, cy = y + 0.5;
            const double terms[5] = { a, a * cx, a * cy, a * cx * cx, a * cy * cy };
            for (int i = 0; i < 5; ++i)
                sum[i] += terms[i];
        }
    }
    const double t = sum[0] > 0 ? sum[0] : 1;
    return { sum[0], sum[1] / t, sum[2] / t, sum[3] / t - std::pow(sum[1] / t, 2),
        sum[4] / t - std::pow(sum[2] / t, 2) };
}

QImage squareImage(int side, int square, const QColor& colour, QImage::Format format)
{
    QImage image(side, side, format);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    const int start = (side - square) / 2;
    painter.fillRect(start, start, square, square, colour);
    return image;
}

/** The pixel of `piece` under `keyPoint` (points from the key's top left); transparent outside the piece. */
QRgb pixelAt(const ShadowCache::Piece& piece, const QPointF& keyPoint)
{
    const QPointF device = (keyPoint - piece.offset) * piece.image.devicePixelRatio();
    const QPoint pixel(int(std::floor(device.x())), int(std::floor(device.y())));
    return piece.image.rect().contains(pixel) ? piece.image.pixel(pixel) : 0;
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
    void gaussianBlur_data();
    void gaussianBlur();

    void dropShadowIsTheInsetShapeMovedAndBlurred_data();
    void dropShadowIsTheInsetShapeMovedAndBlurred();

    void innerShadowIsTheStrokesShadowInsideTheKey_data();
    void innerShadowIsTheStrokesShadowInsideTheKey();
    void strokeShowsOnlyWhereItReachesIn();

    void cacheHitsMissesAndBudget();

    void degenerateInputGivesNothing();
    void unusableValuesActAsTheirDefaultsOrAreCapped();
};

void TestShadowCache::gaussianBlur_data()
{
    QTest::addColumn<double>("sigma");
    QTest::addColumn<int>("format");
    const int premultiplied = QImage::Format_ARGB32_Premultiplied;
    QTest::newRow("sigma 2.5") << 2.5 << premultiplied;
    QTest::newRow("sigma 8, the widest exact kernel") << 8.0 << premultiplied;
    QTest::newRow("sigma 15, box passes") << 15.0 << premultiplied;
    QTest::newRow("straight alpha is converted first") << 3.0 << int(QImage::Format_ARGB32);
}

void TestShadowCache::gaussianBlur()
{
    QFETCH(double, sigma);
    QFETCH(int, format);
    // Big enough that the blurred square keeps well above the rounding of 8-bit values.
    const int square = 16 + int(4 * sigma);
    const int side = square + 2 * (int(std::ceil(3 * sigma)) + 4);
    QImage image = squareImage(side, square, QColor(255, 0, 0, 200), QImage::Format(format));
    const Spread before = spreadOf(image);

    ShadowCache::gaussianBlur(image, sigma);
    const Spread after = spreadOf(image);

    QCOMPARE(image.size(), QSize(side, side));
    QCOMPARE(image.format(), QImage::Format_ARGB32_Premultiplied);
    QVERIFY2(std::abs(after.total / before.total - 1) < 0.01, qPrintable(QString::number(after.total / before.total)));
    QVERIFY(std::abs(after.meanX - before.meanX) < 0.05);
    QVERIFY(std::abs(after.meanY - before.meanY) < 0.05);
    // Blurring adds sigma² to the variance along each axis.
    const double spreadX = std::sqrt(after.varianceX - before.varianceX);
    const double spreadY = std::sqrt(after.varianceY - before.varianceY);
    QVERIFY2(std::abs(spreadX / sigma - 1) < 0.05, qPrintable(QString::number(spreadX)));
    QVERIFY2(std::abs(spreadY / sigma - 1) < 0.05, qPrintable(QString::number(spreadY)));
    // All four channels are blurred alike: every pixel is still the same red.
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QRgb p = image.pixel(x, y);
            if (qGreen(p) != 0 || qBlue(p) != 0 || std::abs(qRed(p) - qAlpha(p)) > 1)
                QFAIL(qPrintable(QStringLiteral("pixel %1,%2 is %3").arg(x).arg(y).arg(p, 8, 16)));
        }
    }

    // Beyond the edges counts as transparent: of a full image, each corner keeps about a quarter (its centre is half
    // a pixel in from both edges).
    QImage full(61, 47, QImage::Format_Alpha8);
    full.fill(255);
    ShadowCache::gaussianBlur(full, sigma);
    const double inside = 0.5 * std::erfc(-0.5 / sigma / std::sqrt(2.0));
    for (const QPoint corner : { QPoint(0, 0), QPoint(60, 0), QPoint(0, 46), QPoint(60, 46) }) {
        const int alpha = qAlpha(full.pixel(corner));
        QVERIFY2(std::abs(alpha - 255 * inside * inside) < 3, qPrintable(QString::number(alpha)));
    }
}

void TestShadowCache::dropShadowIsTheInsetShapeMovedAndBlurred_data()
{
    QTest::addColumn<double>("dpr");
    QTest::addColumn<QPointF>("offset");
    QTest::newRow("down, dpr 1") << 1.0 << QPointF(0, 4);
    QTest::newRow("down and left, dpr 2") << 2.0 << QPointF(-3, 2.5);
    QTest::newRow("fractional, dpr 1.25") << 1.25 << QPointF(0.3, 1.7);
}

void TestShadowCache::dropShadowIsTheInsetShapeMovedAndBlurred()
{
    QFETCH(double, dpr);
    QFETCH(QPointF, offset);
    ShadowCache cache;
    const QColor colour(20, 30, 40, 180);
    const ShadowCache::Piece sharp = cache.dropShadow(keySize, keyRadii, 0, offset, colour, dpr);
    const ShadowCache::Piece soft = cache.dropShadow(keySize, keyRadii, 6, offset, colour, dpr);
    QVERIFY(!sharp.isNull() && !soft.isNull());
    QCOMPARE(soft.image.devicePixelRatio(), dpr);

    // Unblurred, it is the key's shape 1 point in, moved: nothing outside, and as much as the inset's area (its
    // rounded corners cut off).
    const QRectF inset = QRectF(QPointF(0, 0), keySize).adjusted(1, 1, -1, -1).translated(offset);
    QCOMPARE(pixelsOutside(sharp, keyShapePath(inset, keyRadii)), 0);
    const double area = inset.width() * inset.height() - (4 - std::numbers::pi) * 8 * 8;
    const Spread sharpSpread = spreadOf(sharp.image);
    const double covered = sharpSpread.total / 180 / (dpr * dpr);
    QVERIFY2(std::abs(covered / area - 1) < 0.003, qPrintable(QString::number(covered)));

    const Spread spread = spreadOf(soft.image);
    QCOMPARE(spreadOf(soft.image.copy(soft.image.rect().adjusted(1, 1, -1, -1))).total, spread.total); // no cut
    const QPointF centre = soft.offset + QPointF(spread.meanX, spread.meanY) / dpr;
    const QPointF expected = QRectF(QPointF(0, 0), keySize).center() + offset;
    QVERIFY2(std::abs(centre.x() - expected.x()) < 0.05 && std::abs(centre.y() - expected.y()) < 0.05,
        qPrintable(QStringLiteral("%1,%2").arg(centre.x()).arg(centre.y())));
    QVERIFY(std::abs(spread.total / sharpSpread.total - 1) < 0.01);
    QVERIFY(spread.varianceX > sharpSpread.varianceX);
    // A key well inside the shadow is wholly covered: the colour itself.
    QCOMPARE(pixelAt(soft, expected), qPremultiply(colour.rgba()));
}

void TestShadowCache::innerShadowIsTheStrokesShadowInsideTheKey_data()
{
    QTest::addColumn<QSizeF>("size");
    QTest::addColumn<CornerRadii>("radii");
    QTest::addColumn<InnerShadowSpec>("look");
    QTest::addColumn<double>("dpr");

    QTest::newRow("ordinary key") << keySize << CornerRadii::uniform(10) << innerLook(QColor(0, 0, 0, 200)) << 1.0;
    QTest::newRow("deeper shadow, dpr 2")
        << QSizeF(100, 60) << CornerRadii::uniform(4) << innerLook(Qt::black, 6, { 0, 10 }) << 2.0;
    QTest::newRow("wide blur, box passes")
        << QSizeF(100, 40) << CornerRadii::uniform(4) << innerLook(Qt::black, 14, { 0, 4 }) << 1.0;
    QTest::newRow("mixed corners, sharp shadow")
        << QSizeF(90, 40) << CornerRadii { 12, 0, 12, 3 } << innerLook(Qt::black, 0, { 0, 8 }) << 1.0;
    InnerShadowSpec arrow = innerLook(QColor(0, 0, 0, 200));
    arrow.strokeWidth = 5;
    arrow.scaleX = 1.5;
    arrow.scaleY = 4.0;
    QTest::newRow("arrow key, dpr 2") << QSizeF(28, 13) << CornerRadii::uniform(4) << arrow << 2.0;
}

void TestShadowCache::innerShadowIsTheStrokesShadowInsideTheKey()
{
    QFETCH(QSizeF, size);
    QFETCH(CornerRadii, radii);
    QFETCH(InnerShadowSpec, look);
    QFETCH(double, dpr);
    ShadowCache cache;
    const ShadowCache::Piece piece = cache.innerShadow(size, radii, look, dpr);

    QVERIFY(!piece.isNull());
    QCOMPARE(piece.offset, QPointF(0, 0));
    QCOMPARE(piece.image.devicePixelRatio(), dpr);
    QCOMPARE(piece.image.deviceIndependentSize(), size);
    QCOMPARE(pixelsOutside(piece, keyShapePath(QRectF(QPointF(0, 0), size), radii)), 0);

    // Down the middle of the key, under the straight top edge, the shadow is the stroke's band blurred: the band
    // and the offset scaled about the centre, the blur scaled with them. A sharp band is only checked away from
    // its edges.
    const double centre = size.height() / 2;
    const double inner = centre + (look.strokeWidth / 2 - centre + look.offset.y()) * look.scaleY;
    const double outer = centre + (-look.strokeWidth / 2 - centre + look.offset.y()) * look.scaleY;
    const double sigma = look.blurRadius / 2 * look.scaleY;
    const auto below = [sigma](double edge, double y) {
        return sigma > 0 ? 0.5 * std::erfc((y - edge) / sigma / std::sqrt(2.0)) : double(y < edge);
    };
    const int column = int(size.width() / 2 * dpr);
    for (int row = 0; row < int(centre * dpr); ++row) {
        const double y = (row + 0.5) / dpr;
        if (sigma == 0 && std::abs(y - inner) < 1)
            continue;
        const double expected = look.colour.alpha() * (below(inner, y) - below(outer, y));
        const int actual = qAlpha(piece.image.pixel(column, row));
        // Wide blurs are box passes, within about 1.5 % of the Gaussian.
        if (std::abs(actual - expected) > 4)
            QFAIL(qPrintable(QStringLiteral("at %1: %2, not %3").arg(y).arg(actual).arg(expected)));
    }
}

void TestShadowCache::strokeShowsOnlyWhereItReachesIn()
{
    ShadowCache cache;
    InnerShadowSpec stroke = innerLook(Qt::transparent, 0, { 0, 0 });
    stroke.strokeColour = Qt::red;

    // 12 × 10: the stroke, 4 points inside the edge at rest, still covers the outer 2.8 × 3.4 points when scaled.
    const QSizeF tiny(12, 10);
    const ShadowCache::Piece piece = cache.innerShadow(tiny, CornerRadii::uniform(4), stroke, 1);
    QVERIFY(!piece.isNull());
    QCOMPARE(pixelAt(piece, { 0.5, 5 }), qRgb(255, 0, 0));
    QCOMPARE(pixelAt(piece, { 6, 1.5 }), qRgb(255, 0, 0));
    QCOMPARE(qAlpha(pixelAt(piece, { 6, 5 })), 0);
    QCOMPARE(qAlpha(pixelAt(piece, { 0.2, 0.2 })), 0); // outside the rounded corner

    // The stroke hides its own shadow where it is opaque.
    stroke.colour = Qt::blue;
    stroke.blurRadius = 2;
    const ShadowCache::Piece covered = cache.innerShadow(tiny, CornerRadii::uniform(4), stroke, 1);
    QCOMPARE(pixelAt(covered, { 0.5, 5 }), qRgb(255, 0, 0));
    QVERIFY(qBlue(pixelAt(covered, { 4.5, 5 })) > 0); // just past the stroke, its shadow

    // On an ordinary key the scaled stroke lies wholly outside: alone it gives nothing, and no red joins a shadow.
    stroke.colour = Qt::transparent;
    QVERIFY(cache.innerShadow(keySize, keyRadii, stroke, 1).isNull());
    stroke.colour = QColor(0, 0, 0, 100);
    stroke.offset = { 0, 6 };
    const QImage shadowOnly = cache.innerShadow(keySize, keyRadii, stroke, 1).image;
    QVERIFY(!shadowOnly.isNull());
    for (int y = 0; y < shadowOnly.height(); ++y) {
        for (int x = 0; x < shadowOnly.width(); ++x)
            QCOMPARE(qRed(shadowOnly.pixel(x, y)), 0);
    }
}

void TestShadowCache::cacheHitsMissesAndBudget()
{
    ShadowCache cache;
    QCOMPARE(cache.bytesUsed(), 0);
    const QColor colour(0, 0, 0, 90);
    const auto drop = [&cache](const QColor& c, qreal dpr = 2, QPointF offset = { 0, 2 }, QSizeF size = keySize) {
        return cache.dropShadow(size, keyRadii, 4, offset, c, dpr);
    };
    const auto inner = [&cache](const InnerShadowSpec& look) { return cache.innerShadow(keySize, keyRadii, look, 2); };
    const ShadowCache::Piece first = drop(colour);
    const qint64 key = first.image.cacheKey();
    const qint64 innerKey = inner(innerLook(colour)).image.cacheKey();
    // The blurred shapes behind the pieces count too.
    QVERIFY(cache.bytesUsed() > first.image.sizeInBytes() * 2);
    QCOMPARE(drop(colour).image.cacheKey(), key);
    QCOMPARE(inner(innerLook(colour)).image.cacheKey(), innerKey);
    // Sizes within the same quarter device pixel share a piece.
    QCOMPARE(drop(colour, 2, { 0, 2 }, { 60.05, 54.95 }).image.cacheKey(), key);

    // Any other colour, device pixel ratio, offset or stroke is another piece.
    for (const qint64 other : { drop(QColor(0, 0, 0, 91)).image.cacheKey(), drop(colour, 1).image.cacheKey(),
             drop(colour, 2, { 0, 3 }).image.cacheKey() })
        QVERIFY(other != key);
    InnerShadowSpec withStroke = innerLook(colour);
    withStroke.strokeColour = Qt::white;
    QVERIFY(inner(innerLook(QColor(0, 0, 0, 91))).image.cacheKey() != innerKey);
    QVERIFY(inner(withStroke).image.cacheKey() != innerKey);

    cache.clear();
    QCOMPARE(cache.bytesUsed(), 0);
    const ShadowCache::Piece again = drop(colour);
    QVERIFY(again.image.cacheKey() != key);
    QCOMPARE(again.image, first.image);

    // A small cache stays within its budget; a piece bigger than the whole budget is still made, just not kept.
    const qint64 budget = 256 * 1024;
    ShadowCache small(budget);
    for (double width = 40; width < 100; ++width) {
        QVERIFY(!small.dropShadow({ width, 40 }, keyRadii, 4, { 0, 2 }, Qt::black, 2).isNull());
        QVERIFY(!small.innerShadow({ width, 40 }, keyRadii, innerLook(Qt::black), 2).isNull());
        QVERIFY(small.bytesUsed() <= budget);
    }
    QVERIFY(small.bytesUsed() > budget / 2);
    QVERIFY(!small.dropShadow({ 400, 300 }, keyRadii, 4, { 0, 2 }, Qt::black, 2).isNull());
    QVERIFY(small.bytesUsed() <= budget);
}

void TestShadowCache::degenerateInputGivesNothing()
{
    // A blur of no image or by no usable sigma changes nothing; an endless one is capped and spreads far beyond the
    // edges, as a single pixel does.
    QImage null;
    ShadowCache::gaussianBlur(null, 4);
    QVERIFY(null.isNull());
    const QImage original = squareImage(40, 10, Qt::black, QImage::Format_ARGB32_Premultiplied);
    for (const double sigma : { 0.0, -3.0, notANumber, -infinity, infinity }) {
        QImage image = original;
        ShadowCache::gaussianBlur(image, sigma);
        QVERIFY(sigma == infinity ? spreadOf(image).total < spreadOf(original).total : image == original);
    }
    QImage dot(1, 1, QImage::Format_ARGB32_Premultiplied);
    dot.fill(Qt::black);
    ShadowCache::gaussianBlur(dot, 5);
    QVERIFY(qAlpha(dot.pixel(0, 0)) < 255);

    // No colour to show.
    ShadowCache cache;
    for (const QColor& colour : { QColor(Qt::transparent), QColor(255, 0, 0, 0), QColor() }) {
        QVERIFY(cache.dropShadow(keySize, keyRadii, 4, { 0, 2 }, colour, 1).isNull());
        QVERIFY(cache.innerShadow(keySize, keyRadii, innerLook(colour), 1).isNull());
    }
    // Alpha 1 of 255 still shows in the drop shadow; the inner shadow's faint edge rounds away to nothing.
    QVERIFY(!cache.dropShadow(keySize, keyRadii, 4, { 0, 2 }, QColor(0, 0, 0, 1), 1).isNull());
    QVERIFY(cache.innerShadow(keySize, keyRadii, innerLook(QColor(0, 0, 0, 1)), 1).isNull());

    InnerShadowSpec look = innerLook(Qt::black);
    look.strokeColour = Qt::red;
    // Empty, negative, not a number, too big to draw, under one device pixel.
    for (const QSizeF size : { QSizeF(0, 0), QSizeF(0, 50), QSizeF(-60, -55), QSizeF(notANumber, 55),
             QSizeF(infinity, infinity), QSizeF(1e9, 1e9), QSizeF(0.1, 0.1) }) {
        const QByteArray what = QByteArray::number(size.width()) + " × " + QByteArray::number(size.height());
        QVERIFY2(cache.dropShadow(size, keyRadii, 0, { 0, 0 }, Qt::black, 1).isNull(), what);
        QVERIFY2(cache.dropShadow(size, keyRadii, 5, { 0, 3 }, Qt::black, 2).isNull(), what);
        QVERIFY2(cache.innerShadow(size, keyRadii, look, 1).isNull(), what);
    }
    // Too small for an inset 1 point in, but still a key with an edge inside.
    QVERIFY(cache.dropShadow({ 1.5, 40 }, keyRadii, 0, { 0, 0 }, Qt::black, 1).isNull());
    QVERIFY(!cache.innerShadow({ 1.5, 40 }, keyRadii, look, 1).isNull());

    // Strokes of no width, scaled to nothing, or whose shadow lies far off the key.
    for (const double width : { 0.0, -1.0, notANumber }) {
        look.strokeWidth = width;
        QVERIFY(cache.innerShadow(keySize, keyRadii, look, 1).isNull());
    }
    look.strokeWidth = 8;
    for (const double scale : { 0.0, notANumber, 1e-9 }) {
        look.scaleX = scale;
        QVERIFY(cache.innerShadow(keySize, keyRadii, look, 1).isNull());
    }
    QVERIFY(cache.innerShadow(keySize, keyRadii, innerLook(Qt::black, 2, { 0, 1e12 }), 1).isNull());
}

void TestShadowCache::unusableValuesActAsTheirDefaultsOrAreCapped()
{
    struct Look
    {
        CornerRadii radii = CornerRadii::uniform(6);
        double blur = 4;
        QPointF offset { 1, 2 };
        double dpr = 1;
    };
    // Each unusable look, then the one it acts as.
    const std::pair<Look, Look> cases[] = {
        { { .radii = { notANumber, notANumber, 6, notANumber } }, { .radii = { 0, 0, 6, 0 } } },
        // Radii beyond half the shorter side are that half.
        { { .radii = CornerRadii::uniform(infinity), .dpr = 2 }, { .radii = CornerRadii::uniform(27.5), .dpr = 2 } },
        { { .blur = notANumber }, { .blur = 0 } },
        { { .offset = { notANumber, 2 } }, { .offset = { 0, 2 } } },
        { { .dpr = notANumber }, { .dpr = 1 } },
    };
    ShadowCache cache;
    const QColor colour(0, 0, 0, 120);
    const auto drop = [&](const Look& look) {
        return cache.dropShadow(keySize, look.radii, look.blur, look.offset, colour, look.dpr).image.cacheKey();
    };
    const auto inner = [&](const Look& look) {
        return cache.innerShadow(keySize, look.radii, innerLook(colour, look.blur, look.offset), look.dpr)
            .image.cacheKey();
    };
    for (const auto& [unusable, usable] : cases) {
        QVERIFY(drop(unusable) != 0);
        QCOMPARE(drop(unusable), drop(usable));
        QCOMPARE(inner(unusable), inner(usable));
    }

    // Endless values are capped: the blur (the piece is large but made), the offset (the drop shadow simply lies
    // far away) and the stroke.
    const ShadowCache::Piece wide = cache.dropShadow(keySize, keyRadii, infinity, { 0, 0 }, Qt::black, 1);
    QVERIFY(wide.image.width() > 1000 && wide.image.width() < 1500);
    QVERIFY(!cache.innerShadow(keySize, keyRadii, innerLook(Qt::black, infinity), 1).isNull());
    const ShadowCache::Piece far = cache.dropShadow(keySize, keyRadii, 2, { 1e12, -infinity }, Qt::black, 1);
    QVERIFY(far.offset.x() > 1000 && far.offset.y() < -1000);
    InnerShadowSpec vast = innerLook(Qt::black);
    vast.strokeColour = Qt::red;
    vast.strokeWidth = infinity;
    vast.scaleX = infinity;
    vast.scaleY = 1e9;
    QCOMPARE(cache.innerShadow(keySize, keyRadii, vast, 1).image.deviceIndependentSize(), keySize);
}

QTEST_GUILESS_MAIN(TestShadowCache)
#include "testshadowcache.moc"
