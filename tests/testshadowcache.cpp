// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/shadowcache.h"

#include <QPainter>
#include <QPainterPath>
#include <QTest>

#include <cmath>
#include <limits>

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

/** Total alpha of an image and where it lies: mean and variance along each axis, in device pixels. */
struct Spread
{
    double total = 0;
    double meanX = 0, meanY = 0;
    double varianceX = 0, varianceY = 0;
};

Spread spreadOf(const QImage& image)
{
    Spread s;
    double sumX = 0, sumY = 0, sumXX = 0, sumYY = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const double a = qAlpha(image.pixel(x, y));
            s.total += a;
            sumX += a * (x + 0.5);
            sumY += a * (y + 0.5);
            sumXX += a * (x + 0.5) * (x + 0.5);
            sumYY += a * (y + 0.5) * (y + 0.5);
        }
    }
    if (s.total > 0) {
        s.meanX = sumX / s.total;
        s.meanY = sumY / s.total;
        s.varianceX = sumXX / s.total - s.meanX * s.meanX;
        s.varianceY = sumYY / s.total - s.meanY * s.meanY;
    }
    return s;
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
            if (qAlpha(piece.image.pixel(x, y)) == 0)
                continue;
            const QRectF square(piece.offset + QPointF(x, y) / dpr, QSizeF(1, 1) / dpr);
            if (!area.intersects(square))
                ++count;
        }
    }
    return count;
}

bool borderIsClear(const QImage& image)
{
    for (int x = 0; x < image.width(); ++x) {
        if (qAlpha(image.pixel(x, 0)) != 0 || qAlpha(image.pixel(x, image.height() - 1)) != 0)
            return false;
    }
    for (int y = 0; y < image.height(); ++y) {
        if (qAlpha(image.pixel(0, y)) != 0 || qAlpha(image.pixel(image.width() - 1, y)) != 0)
            return false;
    }
    return true;
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
    void blurKeepsTotalAndSpreadsBySigma_data();
    void blurKeepsTotalAndSpreadsBySigma();
    void blurKeepsTheColour_data();
    void blurKeepsTheColour();
    void blurTreatsBeyondTheEdgesAsTransparent_data();
    void blurTreatsBeyondTheEdgesAsTransparent();
    void blurIgnoresDegenerateInput();

    void dropShadowNeedsAVisibleColour_data();
    void dropShadowNeedsAVisibleColour();
    void sharpDropShadowIsTheInsetShape_data();
    void sharpDropShadowIsTheInsetShape();
    void blurredDropShadowFollowsTheOffset_data();
    void blurredDropShadowFollowsTheOffset();

    void innerShadowLiesInsideTheKey_data();
    void innerShadowLiesInsideTheKey();
    void innerShadowEdgeProfile_data();
    void innerShadowEdgeProfile();
    void strokeShowsOnlyWhereItReachesIn();

    void repeatedCallsHitTheCache();
    void cacheStaysWithinItsBudget();

    void degenerateSizesGiveNothing_data();
    void degenerateSizesGiveNothing();
    void unusableValuesActAsTheirDefaults_data();
    void unusableValuesActAsTheirDefaults();
    void extremeValuesFinish();
};

void TestShadowCache::blurKeepsTotalAndSpreadsBySigma_data()
{
    QTest::addColumn<double>("sigma");
    QTest::newRow("sigma 1") << 1.0;
    QTest::newRow("sigma 2.5") << 2.5;
    QTest::newRow("sigma 4") << 4.0;
    QTest::newRow("sigma 8, the widest exact kernel") << 8.0;
    QTest::newRow("sigma 12, box passes") << 12.0;
    QTest::newRow("sigma 30, box passes") << 30.0;
}

void TestShadowCache::blurKeepsTotalAndSpreadsBySigma()
{
    QFETCH(double, sigma);
    // Big enough that the blurred square keeps well above the rounding of 8-bit values.
    const int square = 16 + int(4 * sigma);
    const int side = square + 2 * (int(std::ceil(3 * sigma)) + 4);
    QImage image = squareImage(side, square, Qt::black, QImage::Format_ARGB32_Premultiplied);
    const Spread before = spreadOf(image);

    ShadowCache::gaussianBlur(image, sigma);
    const Spread after = spreadOf(image);

    QCOMPARE(image.size(), QSize(side, side));
    QVERIFY2(std::abs(after.total / before.total - 1) < 0.01, qPrintable(QString::number(after.total / before.total)));
    QVERIFY(std::abs(after.meanX - before.meanX) < 0.05);
    QVERIFY(std::abs(after.meanY - before.meanY) < 0.05);
    // Blurring adds sigma² to the variance along each axis.
    const double spreadX = std::sqrt(after.varianceX - before.varianceX);
    const double spreadY = std::sqrt(after.varianceY - before.varianceY);
    QVERIFY2(std::abs(spreadX / sigma - 1) < 0.05, qPrintable(QString::number(spreadX)));
    QVERIFY2(std::abs(spreadY / sigma - 1) < 0.05, qPrintable(QString::number(spreadY)));
}

void TestShadowCache::blurKeepsTheColour_data()
{
    QTest::addColumn<double>("sigma");
    QTest::addColumn<int>("format");
    QTest::newRow("premultiplied, exact kernel") << 3.0 << int(QImage::Format_ARGB32_Premultiplied);
    QTest::newRow("premultiplied, box passes") << 15.0 << int(QImage::Format_ARGB32_Premultiplied);
    QTest::newRow("straight alpha is converted first") << 3.0 << int(QImage::Format_ARGB32);
}

void TestShadowCache::blurKeepsTheColour()
{
    QFETCH(double, sigma);
    QFETCH(int, format);
    QImage image = squareImage(120, 20, QColor(255, 0, 0, 200), QImage::Format(format));

    ShadowCache::gaussianBlur(image, sigma);

    QCOMPARE(image.format(), QImage::Format_ARGB32_Premultiplied);
    int lit = 0;
    for (int y = 0; y < image.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            const QRgb p = line[x];
            if (qGreen(p) != 0 || qBlue(p) != 0 || std::abs(qRed(p) - qAlpha(p)) > 1)
                QFAIL(qPrintable(QStringLiteral("pixel %1,%2 is %3").arg(x).arg(y).arg(p, 8, 16)));
            lit += qAlpha(p) > 0;
        }
    }
    QVERIFY(lit > 400); // it did spread
}

void TestShadowCache::blurTreatsBeyondTheEdgesAsTransparent_data()
{
    QTest::addColumn<double>("sigma");
    QTest::newRow("exact kernel") << 3.0;
    QTest::newRow("box passes") << 15.0;
}

void TestShadowCache::blurTreatsBeyondTheEdgesAsTransparent()
{
    QFETCH(double, sigma);
    QImage image(61, 47, QImage::Format_Alpha8);
    image.fill(255);

    ShadowCache::gaussianBlur(image, sigma);

    // A corner keeps about a quarter (its centre is half a pixel in from both edges).
    const double inside = 0.5 * std::erfc(-0.5 / sigma / std::sqrt(2.0));
    QVERIFY2(std::abs(qAlpha(image.pixel(0, 0)) - 255 * inside * inside) < 3,
        qPrintable(QString::number(qAlpha(image.pixel(0, 0)))));
    const int w = image.width() - 1, h = image.height() - 1;
    for (int y = 0; y <= h; ++y) {
        for (int x = 0; x <= w; ++x) {
            const int a = qAlpha(image.pixel(x, y));
            if (std::abs(a - qAlpha(image.pixel(w - x, y))) > 1 || std::abs(a - qAlpha(image.pixel(x, h - y))) > 1)
                QFAIL(qPrintable(QStringLiteral("not symmetric at %1,%2").arg(x).arg(y)));
        }
    }
}

void TestShadowCache::blurIgnoresDegenerateInput()
{
    QImage null;
    ShadowCache::gaussianBlur(null, 4);
    QVERIFY(null.isNull());

    const QImage original = squareImage(40, 10, Qt::black, QImage::Format_ARGB32_Premultiplied);
    for (double sigma : { 0.0, -3.0, notANumber, -infinity }) {
        QImage image = original;
        ShadowCache::gaussianBlur(image, sigma);
        QCOMPARE(image, original);
    }

    QImage huge = original;
    ShadowCache::gaussianBlur(huge, infinity);
    QVERIFY(spreadOf(huge).total < spreadOf(original).total); // spread far beyond the edges

    QImage dot(1, 1, QImage::Format_ARGB32_Premultiplied);
    dot.fill(Qt::black);
    ShadowCache::gaussianBlur(dot, 5);
    QVERIFY(qAlpha(dot.pixel(0, 0)) < 255);
}

void TestShadowCache::dropShadowNeedsAVisibleColour_data()
{
    QTest::addColumn<QColor>("colour");
    QTest::addColumn<bool>("dropShows");
    QTest::addColumn<bool>("innerShows");
    QTest::newRow("transparent") << QColor(Qt::transparent) << false << false;
    QTest::newRow("red with alpha 0") << QColor(255, 0, 0, 0) << false << false;
    QTest::newRow("invalid colour") << QColor() << false << false;
    // The inner shadow's faint edge rounds away to nothing.
    QTest::newRow("alpha 1 of 255") << QColor(0, 0, 0, 1) << true << false;
    QTest::newRow("alpha 40 of 255") << QColor(0, 0, 0, 40) << true << true;
}

void TestShadowCache::dropShadowNeedsAVisibleColour()
{
    QFETCH(QColor, colour);
    QFETCH(bool, dropShows);
    QFETCH(bool, innerShows);
    ShadowCache cache;
    QCOMPARE(!cache.dropShadow(keySize, keyRadii, 4, { 0, 2 }, colour, 1).isNull(), dropShows);
    QCOMPARE(!cache.innerShadow(keySize, keyRadii, innerLook(colour), 1).isNull(), innerShows);
}

void TestShadowCache::sharpDropShadowIsTheInsetShape_data()
{
    QTest::addColumn<double>("dpr");
    QTest::newRow("dpr 1") << 1.0;
    QTest::newRow("dpr 2") << 2.0;
    QTest::newRow("dpr 1.5") << 1.5;
}

void TestShadowCache::sharpDropShadowIsTheInsetShape()
{
    QFETCH(double, dpr);
    ShadowCache cache;
    const ShadowCache::Piece piece = cache.dropShadow(keySize, keyRadii, 0, { 0, 0 }, QColor(0, 0, 0, 128), dpr);

    QVERIFY(!piece.isNull());
    QCOMPARE(piece.image.devicePixelRatio(), dpr);
    const QRectF inset = QRectF(QPointF(0, 0), keySize).adjusted(1, 1, -1, -1);
    QCOMPARE(pixelsOutside(piece, keyShapePath(inset, keyRadii)), 0);
    QCOMPARE(qAlpha(pixelAt(piece, { 30, 27.5 })), 128);
    QCOMPARE(qAlpha(pixelAt(piece, { 1.5, 27.5 })), 128);
    QCOMPARE(qAlpha(pixelAt(piece, { 0.5, 27.5 })), 0);
    QCOMPARE(qAlpha(pixelAt(piece, { 30, 54.5 })), 0);
    // The rounded corner of the inset, not a square one.
    QCOMPARE(qAlpha(pixelAt(piece, { 1.5, 1.5 })), 0);
}

void TestShadowCache::blurredDropShadowFollowsTheOffset_data()
{
    QTest::addColumn<double>("dpr");
    QTest::addColumn<QPointF>("offset");
    QTest::newRow("down, dpr 1") << 1.0 << QPointF(0, 4);
    QTest::newRow("down and left, dpr 2") << 2.0 << QPointF(-3, 2.5);
    QTest::newRow("fractional, dpr 1.25") << 1.25 << QPointF(0.3, 1.7);
}

void TestShadowCache::blurredDropShadowFollowsTheOffset()
{
    QFETCH(double, dpr);
    QFETCH(QPointF, offset);
    ShadowCache cache;
    const QColor colour(20, 30, 40, 180);
    const ShadowCache::Piece sharp = cache.dropShadow(keySize, keyRadii, 0, offset, colour, dpr);
    const ShadowCache::Piece soft = cache.dropShadow(keySize, keyRadii, 6, offset, colour, dpr);
    QVERIFY(!soft.isNull());

    QVERIFY2(borderIsClear(soft.image), "the blur was cut off");
    const Spread spread = spreadOf(soft.image);
    const QPointF centre = soft.offset + QPointF(spread.meanX, spread.meanY) / dpr;
    const QPointF expected = QRectF(QPointF(0, 0), keySize).center() + offset;
    QVERIFY2(std::abs(centre.x() - expected.x()) < 0.05 && std::abs(centre.y() - expected.y()) < 0.05,
        qPrintable(QStringLiteral("%1,%2").arg(centre.x()).arg(centre.y())));
    QVERIFY(std::abs(spread.total / spreadOf(sharp.image).total - 1) < 0.01);
    QVERIFY(spread.varianceX > spreadOf(sharp.image).varianceX);
    // A key well inside the shadow is wholly covered: the colour itself.
    const QRgb middle = pixelAt(soft, expected);
    QCOMPARE(middle, qPremultiply(colour.rgba()));
}

void TestShadowCache::innerShadowLiesInsideTheKey_data()
{
    QTest::addColumn<QSizeF>("size");
    QTest::addColumn<CornerRadii>("radii");
    QTest::addColumn<InnerShadowSpec>("look");
    QTest::addColumn<double>("dpr");
    QTest::addColumn<bool>("centreClear");

    const InnerShadowSpec ordinary = innerLook(QColor(0, 0, 0, 200));
    QTest::newRow("ordinary key") << keySize << CornerRadii::uniform(10) << ordinary << 1.0 << true;
    QTest::newRow("ordinary key, dpr 2") << keySize << CornerRadii::uniform(10) << ordinary << 2.0 << true;
    QTest::newRow("mixed corners, sharp shadow")
        << QSizeF(90, 40) << CornerRadii { 12, 0, 12, 3 } << innerLook(Qt::black, 0, { 0, 8 }) << 1.0 << true;
    InnerShadowSpec arrow = innerLook(QColor(0, 0, 0, 200));
    arrow.strokeWidth = 5;
    arrow.scaleX = 1.5;
    arrow.scaleY = 4.0;
    QTest::newRow("arrow key") << QSizeF(28, 13) << CornerRadii::uniform(4) << arrow << 2.0 << false;
}

void TestShadowCache::innerShadowLiesInsideTheKey()
{
    QFETCH(QSizeF, size);
    QFETCH(CornerRadii, radii);
    QFETCH(InnerShadowSpec, look);
    QFETCH(double, dpr);
    QFETCH(bool, centreClear);
    ShadowCache cache;
    const ShadowCache::Piece piece = cache.innerShadow(size, radii, look, dpr);

    QVERIFY(!piece.isNull());
    QCOMPARE(piece.offset, QPointF(0, 0));
    QCOMPARE(piece.image.devicePixelRatio(), dpr);
    QCOMPARE(piece.image.deviceIndependentSize(), size);
    QCOMPARE(pixelsOutside(piece, keyShapePath(QRectF(QPointF(0, 0), size), radii)), 0);
    const QPointF centre(size.width() / 2, size.height() / 2);
    if (centreClear)
        QCOMPARE(qAlpha(pixelAt(piece, centre)), 0);
    // The shadow moves down: it shows under the top edge, hardly or not at all over the bottom one.
    const int top = qAlpha(pixelAt(piece, { centre.x(), 0.5 }));
    const int bottom = qAlpha(pixelAt(piece, { centre.x(), size.height() - 0.5 }));
    QVERIFY2(top > 0 && top > bottom, qPrintable(QStringLiteral("top %1, bottom %2").arg(top).arg(bottom)));
}

void TestShadowCache::innerShadowEdgeProfile_data()
{
    QTest::addColumn<double>("keyHeight");
    QTest::addColumn<double>("strokeWidth");
    QTest::addColumn<double>("scaleY");
    QTest::addColumn<double>("offsetY");
    QTest::addColumn<double>("blur");
    QTest::addColumn<double>("dpr");
    QTest::newRow("ordinary key") << 60.0 << 8.0 << 1.6 << 10.0 << 6.0 << 1.0;
    QTest::newRow("ordinary key, dpr 2") << 60.0 << 8.0 << 1.6 << 10.0 << 6.0 << 2.0;
    QTest::newRow("wide blur, small offset") << 40.0 << 8.0 << 1.6 << 4.0 << 14.0 << 1.0;
    QTest::newRow("arrow key") << 30.0 << 5.0 << 4.0 << 8.0 << 4.0 << 1.0;
    QTest::newRow("arrow key, dpr 2") << 30.0 << 5.0 << 4.0 << 8.0 << 4.0 << 2.0;
}

void TestShadowCache::innerShadowEdgeProfile()
{
    QFETCH(double, keyHeight);
    QFETCH(double, strokeWidth);
    QFETCH(double, scaleY);
    QFETCH(double, offsetY);
    QFETCH(double, blur);
    QFETCH(double, dpr);
    InnerShadowSpec look = innerLook(Qt::black, blur, { 0, offsetY });
    look.strokeWidth = strokeWidth;
    look.scaleY = scaleY;
    ShadowCache cache;
    const ShadowCache::Piece piece = cache.innerShadow({ 100, keyHeight }, CornerRadii::uniform(4), look, dpr);
    QVERIFY(!piece.isNull());

    // Down the middle of the key, under the straight top edge, the shadow is the stroke's band blurred: the band
    // and the offset scaled about the centre, the blur scaled with them.
    const double centre = keyHeight / 2;
    const double inner = centre + (strokeWidth / 2 - centre + offsetY) * scaleY;
    const double outer = centre + (-strokeWidth / 2 - centre + offsetY) * scaleY;
    const double sigma = blur / 2 * scaleY;
    const auto below = [sigma](double edge, double y) { return 0.5 * std::erfc((y - edge) / sigma / std::sqrt(2.0)); };
    const int column = int(50 * dpr);
    for (int row = 0; row < int(centre * dpr); ++row) {
        const double y = (row + 0.5) / dpr;
        const double expected = 255 * (below(inner, y) - below(outer, y));
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

    // On an ordinary key the scaled stroke lies wholly outside.
    stroke.colour = Qt::transparent;
    QVERIFY(cache.innerShadow(keySize, keyRadii, stroke, 1).isNull());
    stroke.colour = QColor(0, 0, 0, 100);
    stroke.offset = { 0, 6 };
    const ShadowCache::Piece shadowOnly = cache.innerShadow(keySize, keyRadii, stroke, 1);
    QVERIFY(!shadowOnly.isNull());
    for (int y = 0; y < shadowOnly.image.height(); ++y) {
        for (int x = 0; x < shadowOnly.image.width(); ++x)
            QCOMPARE(qRed(shadowOnly.image.pixel(x, y)), 0);
    }
}

void TestShadowCache::repeatedCallsHitTheCache()
{
    ShadowCache cache;
    QCOMPARE(cache.bytesUsed(), 0);
    const QColor colour(0, 0, 0, 90);
    const ShadowCache::Piece drop = cache.dropShadow(keySize, keyRadii, 4, { 0, 2 }, colour, 2);
    const ShadowCache::Piece inner = cache.innerShadow(keySize, keyRadii, innerLook(colour), 2);
    QVERIFY(cache.bytesUsed() > drop.image.sizeInBytes() + inner.image.sizeInBytes());

    QCOMPARE(cache.dropShadow(keySize, keyRadii, 4, { 0, 2 }, colour, 2).image.cacheKey(), drop.image.cacheKey());
    QCOMPARE(cache.innerShadow(keySize, keyRadii, innerLook(colour), 2).image.cacheKey(), inner.image.cacheKey());
    // Sizes within the same quarter device pixel share a piece.
    QCOMPARE(
        cache.dropShadow({ 60.05, 54.95 }, keyRadii, 4, { 0, 2 }, colour, 2).image.cacheKey(), drop.image.cacheKey());

    const QColor other(0, 0, 0, 91);
    const ShadowCache::Piece otherDrop = cache.dropShadow(keySize, keyRadii, 4, { 0, 2 }, other, 2);
    QVERIFY(otherDrop.image.cacheKey() != drop.image.cacheKey());
    QCOMPARE(otherDrop.offset, drop.offset);
    QVERIFY(cache.innerShadow(keySize, keyRadii, innerLook(other), 2).image.cacheKey() != inner.image.cacheKey());
    InnerShadowSpec withStroke = innerLook(colour);
    withStroke.strokeColour = Qt::white;
    QVERIFY(cache.innerShadow(keySize, keyRadii, withStroke, 2).image.cacheKey() != inner.image.cacheKey());
    QVERIFY(cache.dropShadow(keySize, keyRadii, 4, { 0, 2 }, colour, 1).image.cacheKey() != drop.image.cacheKey());
    QVERIFY(cache.dropShadow(keySize, keyRadii, 4, { 0, 3 }, colour, 2).image.cacheKey() != drop.image.cacheKey());

    cache.clear();
    QCOMPARE(cache.bytesUsed(), 0);
    const ShadowCache::Piece again = cache.dropShadow(keySize, keyRadii, 4, { 0, 2 }, colour, 2);
    QVERIFY(again.image.cacheKey() != drop.image.cacheKey());
    QCOMPARE(again.image, drop.image);

    QCOMPARE(&ShadowCache::shared(), &ShadowCache::shared());
}

void TestShadowCache::cacheStaysWithinItsBudget()
{
    const qint64 budget = 256 * 1024;
    ShadowCache cache(budget);
    for (int width = 40; width < 100; ++width) {
        QVERIFY(!cache.dropShadow({ double(width), 40 }, keyRadii, 4, { 0, 2 }, Qt::black, 2).isNull());
        QVERIFY(!cache.innerShadow({ double(width), 40 }, keyRadii, innerLook(Qt::black), 2).isNull());
        QVERIFY(cache.bytesUsed() <= budget);
    }
    QVERIFY(cache.bytesUsed() > budget / 2);

    // A piece bigger than the whole budget is still made, just not kept.
    QVERIFY(!cache.dropShadow({ 400, 300 }, keyRadii, 4, { 0, 2 }, Qt::black, 2).isNull());
    QVERIFY(cache.bytesUsed() <= budget);

    ShadowCache none(0);
    QVERIFY(!none.dropShadow(keySize, keyRadii, 4, { 0, 2 }, Qt::black, 1).isNull());
    QCOMPARE(none.bytesUsed(), 0);
}

void TestShadowCache::degenerateSizesGiveNothing_data()
{
    QTest::addColumn<QSizeF>("size");
    QTest::addColumn<bool>("innerShows");
    QTest::newRow("zero") << QSizeF(0, 0) << false;
    QTest::newRow("zero width") << QSizeF(0, 50) << false;
    QTest::newRow("negative") << QSizeF(-60, -55) << false;
    QTest::newRow("NaN") << QSizeF(notANumber, 55) << false;
    QTest::newRow("infinite") << QSizeF(infinity, infinity) << false;
    QTest::newRow("too big to draw") << QSizeF(1e9, 1e9) << false;
    QTest::newRow("under one device pixel") << QSizeF(0.1, 0.1) << false;
    // Too small for an inset 1 point in, but still a key with an edge inside.
    QTest::newRow("1.5 points") << QSizeF(1.5, 40) << true;
}

void TestShadowCache::degenerateSizesGiveNothing()
{
    QFETCH(QSizeF, size);
    QFETCH(bool, innerShows);
    ShadowCache cache;
    QVERIFY(cache.dropShadow(size, keyRadii, 0, { 0, 0 }, Qt::black, 1).isNull());
    QVERIFY(cache.dropShadow(size, keyRadii, 5, { 0, 3 }, Qt::black, 2).isNull());
    InnerShadowSpec look = innerLook(Qt::black);
    look.strokeColour = Qt::red;
    QCOMPARE(!cache.innerShadow(size, keyRadii, look, 1).isNull(), innerShows);
}

void TestShadowCache::unusableValuesActAsTheirDefaults_data()
{
    QTest::addColumn<CornerRadii>("radii");
    QTest::addColumn<double>("blur");
    QTest::addColumn<QPointF>("offset");
    QTest::addColumn<double>("dpr");
    // ... and the values they act as
    QTest::addColumn<CornerRadii>("usableRadii");
    QTest::addColumn<double>("usableBlur");
    QTest::addColumn<QPointF>("usableOffset");
    QTest::addColumn<double>("usableDpr");

    const CornerRadii r = CornerRadii::uniform(6);
    const QPointF o(1, 2);
    QTest::newRow("NaN radii are 0") << CornerRadii { notANumber, notANumber, 6, notANumber } << 4.0 << o << 1.0
                                     << CornerRadii { 0, 0, 6, 0 } << 4.0 << o << 1.0;
    QTest::newRow("negative radii are 0")
        << CornerRadii { -3, 6, 6, 6 } << 4.0 << o << 1.0 << CornerRadii { 0, 6, 6, 6 } << 4.0 << o << 1.0;
    QTest::newRow("huge radii are half the shorter side")
        << CornerRadii::uniform(1e300) << 4.0 << o << 1.0 << CornerRadii::uniform(27.5) << 4.0 << o << 1.0;
    QTest::newRow("infinite radii are half the shorter side")
        << CornerRadii::uniform(infinity) << 4.0 << o << 2.0 << CornerRadii::uniform(27.5) << 4.0 << o << 2.0;
    QTest::newRow("NaN blur is none") << r << notANumber << o << 1.0 << r << 0.0 << o << 1.0;
    QTest::newRow("negative blur is none") << r << -5.0 << o << 1.0 << r << 0.0 << o << 1.0;
    QTest::newRow("NaN offset is none") << r << 4.0 << QPointF(notANumber, 2) << 1.0 << r << 4.0 << QPointF(0, 2)
                                        << 1.0;
    QTest::newRow("NaN dpr is 1") << r << 4.0 << o << notANumber << r << 4.0 << o << 1.0;
    QTest::newRow("zero dpr is 1") << r << 4.0 << o << 0.0 << r << 4.0 << o << 1.0;
}

void TestShadowCache::unusableValuesActAsTheirDefaults()
{
    QFETCH(CornerRadii, radii);
    QFETCH(double, blur);
    QFETCH(QPointF, offset);
    QFETCH(double, dpr);
    QFETCH(CornerRadii, usableRadii);
    QFETCH(double, usableBlur);
    QFETCH(QPointF, usableOffset);
    QFETCH(double, usableDpr);
    ShadowCache cache;
    const QColor colour(0, 0, 0, 120);

    const ShadowCache::Piece drop = cache.dropShadow(keySize, radii, blur, offset, colour, dpr);
    const ShadowCache::Piece usableDrop
        = cache.dropShadow(keySize, usableRadii, usableBlur, usableOffset, colour, usableDpr);
    QVERIFY(!drop.isNull());
    QCOMPARE(drop.image.cacheKey(), usableDrop.image.cacheKey());

    const ShadowCache::Piece inner = cache.innerShadow(keySize, radii, innerLook(colour, blur, offset), dpr);
    const ShadowCache::Piece usableInner
        = cache.innerShadow(keySize, usableRadii, innerLook(colour, usableBlur, usableOffset), usableDpr);
    QCOMPARE(inner.image.cacheKey(), usableInner.image.cacheKey());
}

void TestShadowCache::extremeValuesFinish()
{
    ShadowCache cache;
    // An endless blur is capped; the piece is large but made.
    const ShadowCache::Piece wide = cache.dropShadow(keySize, keyRadii, infinity, { 0, 0 }, Qt::black, 1);
    QVERIFY(!wide.isNull());
    QVERIFY(wide.image.width() > 1000 && wide.image.width() < 1500);
    QVERIFY(!cache.innerShadow(keySize, keyRadii, innerLook(Qt::black, infinity), 1).isNull());

    // Far-off shadows: the drop shadow simply lies far away, the inner one cannot reach the key.
    const ShadowCache::Piece far = cache.dropShadow(keySize, keyRadii, 2, { 1e12, -infinity }, Qt::black, 1);
    QVERIFY(!far.isNull());
    QVERIFY(far.offset.x() > 1000 && far.offset.y() < -1000);
    QVERIFY(cache.innerShadow(keySize, keyRadii, innerLook(Qt::black, 2, { 0, 1e12 }), 1).isNull());

    // Strokes: none at all, none to speak of, or vast.
    InnerShadowSpec look = innerLook(Qt::black);
    look.strokeColour = Qt::red;
    for (double width : { 0.0, -1.0, notANumber }) {
        look.strokeWidth = width;
        QVERIFY(cache.innerShadow(keySize, keyRadii, look, 1).isNull());
    }
    look.strokeWidth = 8;
    for (double scale : { 0.0, notANumber, 1e-9 }) {
        look.scaleX = scale;
        QVERIFY(cache.innerShadow(keySize, keyRadii, look, 1).isNull());
    }
    look.scaleX = infinity;
    look.scaleY = 1e9;
    look.strokeWidth = infinity;
    const ShadowCache::Piece vast = cache.innerShadow(keySize, keyRadii, look, 1);
    QCOMPARE(vast.image.deviceIndependentSize(), keySize);
}

QTEST_GUILESS_MAIN(TestShadowCache)
#include "testshadowcache.moc"
