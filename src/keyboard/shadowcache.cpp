// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/shadowcache.h"

#include <QCache>
#include <QHashFunctions>
#include <QPainter>
#include <QPainterPath>
#include <QTransform>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace {

constexpr double maxSigma = 200; // device pixels
constexpr double maxBlurRadius = 2 * maxSigma;
constexpr double maxOffset = 4096; // points
constexpr double maxDevicePixelRatio = 16;
constexpr double maxScale = 64;
constexpr double maxStrokeWidth = 4096;
constexpr double maxKeySide = 4096; // device pixels
// Below this a blur changes no pixel by more than rounding.
constexpr double minSigma = 0.05;
// Up to this sigma the exact kernel is used; wider blurs are three box passes, whose error is then under 2 %.
constexpr double maxKernelSigma = 8;

/** NaN and negative values give 0, +inf gives `limit`. */
double nonNegative(double value, double limit)
{
    if (!(value > 0))
        return 0;
    return std::min(value, limit);
}

double offsetComponent(double value)
{
    if (std::isnan(value))
        return 0;
    return std::clamp(value, -maxOffset, maxOffset) + 0.0; // + 0.0 turns -0 into 0 for hashing
}

QRgb rgbaOf(const QColor& colour)
{
    if (!colour.isValid())
        return 0;
    const QRgb rgba = colour.rgba();
    return qAlpha(rgba) == 0 ? 0 : rgba;
}

enum class Kind : quint8
{
    drop,
    inner
};

struct Key
{
    Kind kind = Kind::drop;
    int widthQuarters = 0; // device pixels × 4
    int heightQuarters = 0;
    double topLeft = 0, topRight = 0, bottomRight = 0, bottomLeft = 0;
    double blurRadius = 0;
    double offsetX = 0, offsetY = 0;
    double strokeWidth = 0, scaleX = 0, scaleY = 0;
    double notchWidth = 0, notchHeight = 0;
    double devicePixelRatio = 1;
    QRgb colour = 0;
    QRgb strokeColour = 0;

    friend bool operator==(const Key&, const Key&) = default;
};

size_t qHash(const Key& key, size_t seed = 0)
{
    return qHashMulti(seed, quint8(key.kind), key.widthQuarters, key.heightQuarters, key.topLeft, key.topRight,
        key.bottomRight, key.bottomLeft, key.blurRadius, key.offsetX, key.offsetY, key.strokeWidth, key.scaleX,
        key.scaleY, key.notchWidth, key.notchHeight, key.devicePixelRatio, key.colour, key.strokeColour);
}

/** The key's size and radii as a piece is built from them: quantised, sanitised, radii limited to what shows. */
struct KeyGeometry
{
    Key key;
    QSizeF size; // points, after quantisation
    CornerRadii radii;
    QSizeF notch; // points, cut from the bottom-left corner

    bool isEmpty() const { return key.widthQuarters <= 0 || key.heightQuarters <= 0; }
    double dpr() const { return key.devicePixelRatio; }
    QSize deviceSize() const { return { (key.widthQuarters + 3) / 4, (key.heightQuarters + 3) / 4 }; }
};

KeyGeometry keyGeometry(
    Kind kind, const QSizeF& keySize, const CornerRadii& radii, const QSizeF& notch, qreal devicePixelRatio)
{
    KeyGeometry geometry;
    Key& key = geometry.key;
    key.kind = kind;
    const double dpr = devicePixelRatio > 0 ? std::min(double(devicePixelRatio), maxDevicePixelRatio) : 1.0;
    key.devicePixelRatio = dpr;
    const double width = nonNegative(keySize.width(), 2 * maxKeySide) * dpr;
    const double height = nonNegative(keySize.height(), 2 * maxKeySide) * dpr;
    if (width > maxKeySide || height > maxKeySide)
        return geometry;
    key.widthQuarters = int(std::lround(width * 4));
    key.heightQuarters = int(std::lround(height * 4));
    geometry.size = QSizeF(key.widthQuarters / 4.0 / dpr, key.heightQuarters / 4.0 / dpr);

    const double limit = std::min(geometry.size.width(), geometry.size.height()) / 2;
    geometry.radii = { nonNegative(radii.topLeft, limit), nonNegative(radii.topRight, limit),
        nonNegative(radii.bottomRight, limit), nonNegative(radii.bottomLeft, limit) };
    key.topLeft = geometry.radii.topLeft;
    key.topRight = geometry.radii.topRight;
    key.bottomRight = geometry.radii.bottomRight;
    key.bottomLeft = geometry.radii.bottomLeft;
    const double notchWidth = nonNegative(notch.width(), geometry.size.width());
    const double notchHeight = nonNegative(notch.height(), geometry.size.height());
    if (notchWidth > 0 && notchHeight > 0 && notchWidth < geometry.size.width() && notchHeight < geometry.size.height()) {
        key.notchWidth = std::round(notchWidth * 1000) / 1000;
        key.notchHeight = std::round(notchHeight * 1000) / 1000;
        geometry.notch = QSizeF(key.notchWidth, key.notchHeight);
    }
    return geometry;
}

// --- Blur -----------------------------------------------------------------------------------------------------

/** Weights from -3 sigma to 3 sigma, adding up to 1. */
std::vector<float> gaussianKernel(double sigma)
{
    const int radius = int(std::ceil(3 * sigma));
    std::vector<double> weights(size_t(2 * radius + 1));
    double sum = 0;
    for (int i = -radius; i <= radius; ++i) {
        weights[size_t(i + radius)] = std::exp(-double(i) * i / (2 * sigma * sigma));
        sum += weights[size_t(i + radius)];
    }
    std::vector<float> kernel(weights.size());
    for (size_t i = 0; i < kernel.size(); ++i)
        kernel[i] = float(weights[i] / sum);
    return kernel;
}

/** Three odd box widths whose combined variance is closest to sigma². */
std::array<int, 3> boxWidths(double sigma)
{
    const double variance = sigma * sigma;
    int base = int(std::floor(std::sqrt(4 * variance + 1)));
    if (base % 2 == 0)
        --base;
    std::array<int, 3> best { 1, 1, 1 };
    double bestError = variance;
    for (int narrow : { base - 2, base }) {
        if (narrow < 1)
            continue;
        for (int narrowCount = 0; narrowCount <= 3; ++narrowCount) {
            const int wide = narrow + 2;
            const double boxVariance
                = (narrowCount * (narrow * narrow - 1.0) + (3 - narrowCount) * (wide * wide - 1.0)) / 12;
            const double error = std::abs(boxVariance - variance);
            if (error < bestError) {
                bestError = error;
                for (int i = 0; i < 3; ++i)
                    best[size_t(i)] = i < narrowCount ? narrow : wide;
            }
        }
    }
    return best;
}

/**
 * Working memory of the blur, kept between calls on the same thread: allocating (and so clearing) it afresh costs
 * more than a small blur itself.
 */
struct BlurBuffers
{
    std::vector<float> plane; // the image as floats, rows of width × channels values
    std::vector<float> spare; // two taller planes for box passes down the columns
    std::vector<float> line; // one row with room for the kernel on both sides
    std::vector<double> sums; // running sums along a row or down the columns

    static constexpr size_t keptValues = size_t(4) << 20;

    void trim()
    {
        if (plane.capacity() + spare.capacity() > keptValues)
            *this = BlurBuffers();
    }
};

thread_local BlurBuffers buffers;

/** Gaussian along one row, in place; `line` is zero outside the row. */
void gaussianRow(float* row, int stride, int channels, const std::vector<float>& kernel, std::vector<float>& line)
{
    const int radius = int(kernel.size() / 2);
    float* padded = line.data() + radius * channels;
    std::copy(row, row + stride, padded);
    const float centre = kernel[size_t(radius)];
    for (int i = 0; i < stride; ++i)
        row[i] = centre * padded[i];
    for (int k = 1; k <= radius; ++k) {
        const float weight = kernel[size_t(radius + k)];
        const float* before = padded - k * channels;
        const float* after = padded + k * channels;
        for (int i = 0; i < stride; ++i)
            row[i] += weight * (before[i] + after[i]);
    }
}

/** How far three box passes spread, in pixels. */
int reachOf(const std::array<int, 3>& boxes)
{
    return boxes[0] / 2 + boxes[1] / 2 + boxes[2] / 2;
}

/** Box of `width` (odd) along one row, in place. */
void boxRow(float* row, int pixels, int channels, int width, std::vector<double>& prefix)
{
    const int radius = width / 2;
    for (int c = 0; c < channels; ++c) {
        prefix[0] = 0;
        for (int x = 0; x < pixels; ++x)
            prefix[size_t(x) + 1] = prefix[size_t(x)] + row[x * channels + c];
        for (int x = 0; x < pixels; ++x) {
            const int from = std::max(0, x - radius);
            const int to = std::min(pixels, x + radius + 1);
            row[x * channels + c] = float((prefix[size_t(to)] - prefix[size_t(from)]) / width);
        }
    }
}

/** Box of `width` (odd) down the columns of `in` into `out`. */
void boxColumns(const float* in, float* out, int stride, int height, int width, std::vector<double>& window)
{
    const int radius = width / 2;
    std::fill(window.begin(), window.end(), 0.0);
    const auto add = [&](int y, double sign) {
        const float* row = in + qsizetype(y) * stride;
        for (int i = 0; i < stride; ++i)
            window[size_t(i)] += sign * row[i];
    };
    for (int y = 0; y < std::min(radius, height); ++y)
        add(y, 1);
    for (int y = 0; y < height; ++y) {
        if (y + radius < height)
            add(y + radius, 1);
        float* row = out + qsizetype(y) * stride;
        for (int i = 0; i < stride; ++i)
            row[i] = float(window[size_t(i)] / width);
        if (y - radius >= 0)
            add(y - radius, -1);
    }
}

void storeRow(const float* row, uchar* bytes, int stride)
{
    for (int i = 0; i < stride; ++i)
        bytes[i] = uchar(std::clamp(int(row[i] + 0.5f), 0, 255));
}

/**
 * Blurs the bytes of `image` (Alpha8: one channel, ARGB32_Premultiplied: four) in place, sigma per axis in pixels.
 * Up to a sigma of maxKernelSigma the kernel is exact; wider blurs are three box passes.
 */
void blurBytes(QImage& image, double sigmaX, double sigmaY)
{
    sigmaX = nonNegative(sigmaX, maxSigma);
    sigmaY = nonNegative(sigmaY, maxSigma);
    const bool acrossRows = sigmaX >= minSigma;
    const bool downColumns = sigmaY >= minSigma;
    if (image.isNull() || (!acrossRows && !downColumns))
        return;
    const int width = image.width();
    const int height = image.height();
    const int channels = image.format() == QImage::Format_Alpha8 ? 1 : 4;
    const int stride = width * channels;
    BlurBuffers& b = buffers;
    b.plane.resize(size_t(stride) * size_t(height));
    const auto planeRow = [&b, stride](int y) { return b.plane.data() + qsizetype(y) * stride; };

    const bool exactRows = sigmaX <= maxKernelSigma;
    const std::vector<float> rowKernel = acrossRows && exactRows ? gaussianKernel(sigmaX) : std::vector<float>();
    const std::array<int, 3> rowBoxes = boxWidths(sigmaX);
    // Box passes run over the row and as far beyond it as they spread, so that each pass sees what the one before
    // it spread outside, as a single Gaussian would.
    const int rowReach = reachOf(rowBoxes);
    if (acrossRows && exactRows) {
        b.line.assign(size_t(stride) + (rowKernel.size() - 1) * size_t(channels), 0.0f);
    } else if (acrossRows) {
        b.line.resize(size_t(width + 2 * rowReach) * size_t(channels));
        b.sums.resize(size_t(width + 2 * rowReach) + 1);
    }
    for (int y = 0; y < height; ++y) {
        const uchar* bytes = image.constScanLine(y);
        float* row = planeRow(y);
        if (acrossRows && exactRows) {
            std::copy(bytes, bytes + stride, row);
            gaussianRow(row, stride, channels, rowKernel, b.line);
        } else if (acrossRows) {
            float* padded = b.line.data() + rowReach * channels;
            std::fill(b.line.begin(), b.line.end(), 0.0f);
            std::copy(bytes, bytes + stride, padded);
            for (int box : rowBoxes)
                boxRow(b.line.data(), width + 2 * rowReach, channels, box, b.sums);
            std::copy(padded, padded + stride, row);
        } else {
            std::copy(bytes, bytes + stride, row);
        }
    }

    if (!downColumns) {
        for (int y = 0; y < height; ++y)
            storeRow(planeRow(y), image.scanLine(y), stride);
    } else if (sigmaY <= maxKernelSigma) {
        const std::vector<float> kernel = gaussianKernel(sigmaY);
        const int radius = int(kernel.size() / 2);
        b.line.resize(size_t(stride));
        float* sum = b.line.data();
        for (int y = 0; y < height; ++y) {
            const float* centre = planeRow(y);
            for (int i = 0; i < stride; ++i)
                sum[i] = kernel[size_t(radius)] * centre[i];
            for (int k = 1; k <= radius; ++k) {
                const float weight = kernel[size_t(radius + k)];
                if (y - k >= 0) {
                    const float* above = planeRow(y - k);
                    for (int i = 0; i < stride; ++i)
                        sum[i] += weight * above[i];
                }
                if (y + k < height) {
                    const float* below = planeRow(y + k);
                    for (int i = 0; i < stride; ++i)
                        sum[i] += weight * below[i];
                }
            }
            storeRow(sum, image.scanLine(y), stride);
        }
    } else {
        // As along the rows, the passes run as far above and below the image as they spread.
        const std::array<int, 3> boxes = boxWidths(sigmaY);
        const int reach = reachOf(boxes);
        const int tall = height + 2 * reach;
        const size_t tallSize = size_t(stride) * size_t(tall);
        b.spare.assign(2 * tallSize, 0.0f);
        b.sums.resize(size_t(stride));
        float* in = b.spare.data();
        float* out = in + tallSize;
        std::copy(b.plane.begin(), b.plane.end(), in + qsizetype(reach) * stride);
        for (int box : boxes) {
            boxColumns(in, out, stride, tall, box, b.sums);
            std::swap(in, out);
        }
        for (int y = 0; y < height; ++y)
            storeRow(in + qsizetype(y + reach) * stride, image.scanLine(y), stride);
    }
    b.trim();
}

bool anyNonZero(const QImage& image)
{
    const int bytes = image.width() * image.depth() / 8;
    for (int y = 0; y < image.height(); ++y) {
        const uchar* line = image.constScanLine(y);
        if (std::any_of(line, line + bytes, [](uchar v) { return v != 0; }))
            return true;
    }
    return false;
}

QImage blankAlpha(int width, int height)
{
    QImage image(width, height, QImage::Format_Alpha8);
    image.fill(0);
    return image;
}

// --- Masks: the blurred shapes, before colour ------------------------------------------------------------------

struct DropMask
{
    QImage alpha; // null: nothing to show
    QPoint origin; // device pixels from the key's top left
};

DropMask buildDropMask(const KeyGeometry& geometry)
{
    const double dpr = geometry.dpr();
    const Key& key = geometry.key;
    const QRectF inset(1 + key.offsetX, 1 + key.offsetY, geometry.size.width() - 2, geometry.size.height() - 2);
    if (inset.isEmpty())
        return {};
    const double sigma = std::min(key.blurRadius / 2 * dpr, maxSigma);
    const int margin = int(std::ceil(3 * sigma)) + 1;
    const int left = int(std::floor(inset.left() * dpr)) - margin;
    const int top = int(std::floor(inset.top() * dpr)) - margin;
    const int right = int(std::ceil(inset.right() * dpr)) + margin;
    const int bottom = int(std::ceil(inset.bottom() * dpr)) + margin;

    DropMask mask;
    mask.origin = QPoint(left, top);
    mask.alpha = blankAlpha(right - left, bottom - top);
    {
        QPainter painter(&mask.alpha);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.translate(-left, -top);
        painter.scale(dpr, dpr);
        painter.fillPath(keyShapePath(inset, geometry.radii, geometry.notch), Qt::black);
    }
    blurBytes(mask.alpha, sigma, sigma);
    return mask;
}

struct InnerMask
{
    // All the key's size in device pixels; a null image is all zero.
    QImage shadow; // the stroke's blurred shadow
    QImage stroke; // the stroke itself
    QImage cover; // the key's shape
    bool isEmpty() const { return shadow.isNull() && stroke.isNull(); }
};

/**
 * What a stroke `width` wide along the outline of `rect` covers, with mitred corners: the shape grown by half the
 * width less the shape shrunk by it. Filled rather than stroked, since QPainter's stroker loses wide strokes that
 * fold over themselves in a small key.
 */
QPainterPath strokeArea(const QRectF& rect, const CornerRadii& radii, const QSizeF& notch, double width)
{
    const double half = width / 2;
    // A sharp corner stays sharp outside (the mitre); inside, a corner rounder than the stroke keeps some rounding.
    const auto grown = [half](double radius) { return radius > 0 ? radius + half : 0.0; };
    const auto shrunk = [half](double radius) { return std::max(radius - half, 0.0); };
    QPainterPath area = keyShapePath(rect.adjusted(-half, -half, half, half),
        { grown(radii.topLeft), grown(radii.topRight), grown(radii.bottomRight), grown(radii.bottomLeft) }, notch);
    const QRectF inner = rect.adjusted(half, half, -half, -half);
    if (!inner.isEmpty()) {
        area.addPath(keyShapePath(inner,
            { shrunk(radii.topLeft), shrunk(radii.topRight), shrunk(radii.bottomRight), shrunk(radii.bottomLeft) },
            notch));
    }
    area.setFillRule(Qt::OddEvenFill);
    return area;
}

InnerMask buildInnerMask(const KeyGeometry& geometry)
{
    const Key& key = geometry.key;
    // A stroke scaled to (nearly) nothing shows nothing.
    constexpr double minScale = 1e-3;
    if (key.strokeWidth <= 0 || key.scaleX < minScale || key.scaleY < minScale)
        return {};
    const double dpr = geometry.dpr();
    const QSize size = geometry.deviceSize();
    const QRectF rect(QPointF(0, 0), geometry.size);
    const QPainterPath shape = keyShapePath(rect, geometry.radii, geometry.notch);
    QTransform aroundCentre;
    aroundCentre.translate(rect.center().x(), rect.center().y());
    aroundCentre.scale(key.scaleX, key.scaleY);
    aroundCentre.translate(-rect.center().x(), -rect.center().y());
    const QPainterPath stroke = strokeArea(rect, geometry.radii, geometry.notch, key.strokeWidth);

    InnerMask mask;
    mask.cover = blankAlpha(size.width(), size.height());
    {
        QPainter painter(&mask.cover);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.scale(dpr, dpr);
        painter.fillPath(shape, Qt::black);
    }

    mask.stroke = blankAlpha(size.width(), size.height());
    {
        QPainter painter(&mask.stroke);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.scale(dpr, dpr);
        painter.setTransform(aroundCentre, true);
        painter.fillPath(stroke, Qt::black);
    }

    // The shadow is drawn with room for the blur around the key, then cut to the key.
    const double sigmaX = std::min(key.blurRadius / 2 * key.scaleX * dpr, maxSigma);
    const double sigmaY = std::min(key.blurRadius / 2 * key.scaleY * dpr, maxSigma);
    const int marginX = int(std::ceil(3 * sigmaX)) + 1;
    const int marginY = int(std::ceil(3 * sigmaY)) + 1;
    QImage shadow = blankAlpha(size.width() + 2 * marginX, size.height() + 2 * marginY);
    {
        QPainter painter(&shadow);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.translate(marginX, marginY);
        painter.scale(dpr, dpr);
        painter.translate(key.offsetX * key.scaleX, key.offsetY * key.scaleY);
        painter.setTransform(aroundCentre, true);
        painter.fillPath(stroke, Qt::black);
    }
    blurBytes(shadow, sigmaX, sigmaY);
    mask.shadow = shadow.copy(marginX, marginY, size.width(), size.height());

    // Only what falls inside the key counts.
    const auto insideKey = [&mask, &size](const QImage& image) {
        for (int y = 0; y < size.height(); ++y) {
            const uchar* line = image.constScanLine(y);
            const uchar* cover = mask.cover.constScanLine(y);
            for (int x = 0; x < size.width(); ++x) {
                if (line[x] != 0 && cover[x] != 0)
                    return true;
            }
        }
        return false;
    };
    if (!insideKey(mask.stroke))
        mask.stroke = QImage();
    if (!insideKey(mask.shadow))
        mask.shadow = QImage();
    return mask;
}

// --- Colour ---------------------------------------------------------------------------------------------------

/** Premultiplied channels of a colour, 0 to 255. */
struct Premultiplied
{
    float red = 0, green = 0, blue = 0, alpha = 0;

    explicit Premultiplied(QRgb rgba)
    {
        const QRgb p = qPremultiply(rgba);
        red = float(qRed(p));
        green = float(qGreen(p));
        blue = float(qBlue(p));
        alpha = float(qAlpha(p));
    }
};

int channel(float value)
{
    return std::clamp(int(value + 0.5f), 0, 255);
}

/** `colour` at each of the 256 coverages of a mask. */
std::array<QRgb, 256> tintTable(QRgb colour)
{
    const Premultiplied c(colour);
    std::array<QRgb, 256> table;
    for (int i = 0; i < 256; ++i) {
        const float a = i / 255.0f;
        table[size_t(i)] = qRgba(channel(c.red * a), channel(c.green * a), channel(c.blue * a), channel(c.alpha * a));
    }
    return table;
}

QImage tintDrop(const QImage& alpha, QRgb colour, double dpr)
{
    const std::array<QRgb, 256> table = tintTable(colour);
    QImage image(alpha.size(), QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < image.height(); ++y) {
        const uchar* in = alpha.constScanLine(y);
        auto* out = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < image.width(); ++x)
            out[x] = table[in[x]];
    }
    image.setDevicePixelRatio(dpr);
    return image;
}

/** The stroke over its shadow, cut to the key's shape. */
QImage tintInner(const InnerMask& mask, QRgb colour, QRgb strokeColour, double dpr)
{
    const Premultiplied shade(colour);
    const Premultiplied line(strokeColour);
    const bool withShadow = !mask.shadow.isNull() && shade.alpha > 0;
    const bool withStroke = !mask.stroke.isNull() && line.alpha > 0;
    QImage image(mask.cover.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(0);
    if (withStroke) {
        for (int y = 0; y < image.height(); ++y) {
            const uchar* cover = mask.cover.constScanLine(y);
            const uchar* shadow = withShadow ? mask.shadow.constScanLine(y) : nullptr;
            const uchar* stroke = mask.stroke.constScanLine(y);
            auto* out = reinterpret_cast<QRgb*>(image.scanLine(y));
            for (int x = 0; x < image.width(); ++x) {
                const float k = cover[x] / 255.0f;
                const float s = stroke[x] / 255.0f;
                // Source-over of the stroke onto its shadow.
                const float b = shadow ? shadow[x] / 255.0f * (1 - line.alpha / 255.0f * s) : 0.0f;
                out[x] = qRgba(channel(k * (line.red * s + shade.red * b)),
                    channel(k * (line.green * s + shade.green * b)), channel(k * (line.blue * s + shade.blue * b)),
                    channel(k * (line.alpha * s + shade.alpha * b)));
            }
        }
    } else if (withShadow) {
        const std::array<QRgb, 256> table = tintTable(colour);
        for (int y = 0; y < image.height(); ++y) {
            const uchar* cover = mask.cover.constScanLine(y);
            const uchar* shadow = mask.shadow.constScanLine(y);
            auto* out = reinterpret_cast<QRgb*>(image.scanLine(y));
            for (int x = 0; x < image.width(); ++x)
                out[x] = table[(cover[x] * shadow[x] + 127) / 255];
        }
    }
    if (!anyNonZero(image))
        return {};
    image.setDevicePixelRatio(dpr);
    return image;
}

qsizetype costOf(const QImage& image)
{
    return qsizetype(sizeof(QImage)) + (image.isNull() ? 0 : image.sizeInBytes());
}

} // namespace

struct ShadowCache::Private
{
    QCache<Key, Piece> pieces;
    QCache<Key, DropMask> dropMasks;
    QCache<Key, InnerMask> innerMasks;

    explicit Private(qint64 maxBytes)
        : pieces(qsizetype(maxBytes / 4 * 3))
        , dropMasks(qsizetype(maxBytes / 8))
        , innerMasks(qsizetype(maxBytes / 8))
    {
    }

    Piece remember(const Key& key, Piece piece)
    {
        pieces.insert(key, new Piece(piece), costOf(piece.image));
        return piece;
    }
};

ShadowCache::ShadowCache(qint64 maxBytes)
    : d(std::make_unique<Private>(std::max<qint64>(maxBytes, 0)))
{
}

ShadowCache::~ShadowCache() = default;

ShadowCache::Piece ShadowCache::dropShadow(const QSizeF& keySize, const CornerRadii& radii, double blurRadius,
    const QPointF& shadowOffset, const QColor& colour, qreal devicePixelRatio, const QSizeF& notch)
{
    const QRgb rgba = rgbaOf(colour);
    if (rgba == 0)
        return {};
    KeyGeometry geometry = keyGeometry(Kind::drop, keySize, radii, notch, devicePixelRatio);
    if (geometry.isEmpty())
        return {};
    Key& key = geometry.key;
    key.blurRadius = nonNegative(blurRadius, maxBlurRadius);
    key.offsetX = offsetComponent(shadowOffset.x());
    key.offsetY = offsetComponent(shadowOffset.y());
    const Key maskKey = key;
    key.colour = rgba;
    if (const Piece* hit = d->pieces.object(key))
        return *hit;

    DropMask mask;
    if (const DropMask* known = d->dropMasks.object(maskKey)) {
        mask = *known;
    } else {
        mask = buildDropMask(geometry);
        d->dropMasks.insert(maskKey, new DropMask(mask), costOf(mask.alpha));
    }
    if (mask.alpha.isNull())
        return d->remember(key, {});
    const double dpr = geometry.dpr();
    return d->remember(key, { tintDrop(mask.alpha, rgba, dpr), QPointF(mask.origin) / dpr });
}

ShadowCache::Piece ShadowCache::innerShadow(
    const QSizeF& keySize, const CornerRadii& radii, const InnerShadowSpec& shadow, qreal devicePixelRatio,
    const QSizeF& notch)
{
    const QRgb rgba = rgbaOf(shadow.colour);
    const QRgb strokeRgba = rgbaOf(shadow.strokeColour);
    if (rgba == 0 && strokeRgba == 0)
        return {};
    KeyGeometry geometry = keyGeometry(Kind::inner, keySize, radii, notch, devicePixelRatio);
    if (geometry.isEmpty())
        return {};
    Key& key = geometry.key;
    key.blurRadius = nonNegative(shadow.blurRadius, maxBlurRadius);
    key.offsetX = offsetComponent(shadow.offset.x());
    key.offsetY = offsetComponent(shadow.offset.y());
    key.strokeWidth = nonNegative(shadow.strokeWidth, maxStrokeWidth);
    key.scaleX = nonNegative(shadow.scaleX, maxScale);
    key.scaleY = nonNegative(shadow.scaleY, maxScale);
    const Key maskKey = key;
    key.colour = rgba;
    key.strokeColour = strokeRgba;
    if (const Piece* hit = d->pieces.object(key))
        return *hit;

    InnerMask mask;
    if (const InnerMask* known = d->innerMasks.object(maskKey)) {
        mask = *known;
    } else {
        mask = buildInnerMask(geometry);
        if (mask.isEmpty())
            mask.cover = QImage();
        d->innerMasks.insert(
            maskKey, new InnerMask(mask), costOf(mask.shadow) + costOf(mask.stroke) + costOf(mask.cover));
    }
    if (mask.isEmpty())
        return d->remember(key, {});
    return d->remember(key, { tintInner(mask, rgba, strokeRgba, geometry.dpr()), QPointF(0, 0) });
}

void ShadowCache::gaussianBlur(QImage& image, double sigma)
{
    if (image.isNull() || nonNegative(sigma, maxSigma) < minSigma)
        return;
    if (image.format() != QImage::Format_Alpha8 && image.format() != QImage::Format_ARGB32_Premultiplied)
        image.convertTo(QImage::Format_ARGB32_Premultiplied);
    blurBytes(image, sigma, sigma);
}

