// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/keycapview.h"

#include "keyboard/shadowcache.h"
#include "keyboard/symbolicons.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// The label opacities of every key at one size: about 0.3 MB at the default size.
constexpr qint64 labelCacheBytes = 2 * 1024 * 1024;
constexpr qint64 restCapCacheBytes = 24 * 1024 * 1024;
// Every step of about fifty keys at the default size: more than ordinary typing presses.
constexpr qint64 pressedCapCacheBytes = 10 * 1024 * 1024;

qint64 milli(double v)
{
    return std::isfinite(v) ? qint64(std::llround(v * 1000.0)) : 0;
}

QFont systemFont(double pixelSize, QFont::Weight weight, const QPaintDevice& device)
{
    QFont font = QGuiApplication::font();
    const double dpi = device.logicalDpiY() > 0 ? device.logicalDpiY() : 96.0;
    font.setPointSizeF(std::max(pixelSize, 0.5) * 72.0 / dpi);
    font.setWeight(weight);
    return font;
}

/** Text placed by the frame it occupies: its advance wide and one line high. */
class TextItem
{
public:
    TextItem(const QString& text, double pixelSize, QFont::Weight weight, const QPaintDevice& device)
        : m_text(text)
        , m_font(systemFont(pixelSize, weight, device))
        , m_metrics(m_font, &device)
    {
    }

    /** Shrinks the font (down to `minimumScale` of its size) until the text fits in `width`. */
    void fitWidth(double width, double minimumScale, const QPaintDevice& device)
    {
        const double advance = m_metrics.horizontalAdvance(m_text);
        if (advance <= width || advance <= 0)
            return;
        const double scale = std::max(minimumScale, width / advance);
        m_font.setPointSizeF(m_font.pointSizeF() * scale);
        m_metrics = QFontMetricsF(m_font, &device);
    }

    QSizeF size() const { return { m_metrics.horizontalAdvance(m_text), m_metrics.ascent() + m_metrics.descent() }; }

    void draw(QPainter& painter, QPointF topLeft) const
    {
        painter.setFont(m_font);
        painter.drawText(QPointF(topLeft.x(), topLeft.y() + m_metrics.ascent()), m_text);
    }

private:
    QString m_text;
    QFont m_font;
    QFontMetricsF m_metrics;
};

QString lowerLabel(const KeyDef& key)
{
    return key.label.toLower();
}

} // namespace

size_t qHash(const KeyCapView::RestKey& key, size_t seed) noexcept
{
    return qHashMulti(seed, quintptr(key.key), key.xMilli, key.yMilli, key.widthMilli, key.heightMilli, key.dprMilli,
        key.functionRow, key.lightOn, key.step);
}

size_t qHash(const KeyCapView::LabelKey& key, size_t seed) noexcept
{
    return qHashMulti(seed, quintptr(key.key), key.widthPx, key.heightPx, key.unitMilli, key.dprMilli, key.functionRow);
}

LabelRule KeyCapView::labelRule(const KeyDef& key, bool isFunctionRow)
{
    if (key.label == u"touchid"_s)
        return LabelRule::touchID;
    if (key.keycode == 49)
        return LabelRule::space;
    const QString lower = lowerLabel(key);
    if (lower == u"fn"_s)
        return LabelRule::fn;
    if (lower == u"control"_s || lower == u"option"_s || lower == u"command"_s)
        return LabelRule::modifier;
    if (lower == u"tab"_s)
        return LabelRule::tab;
    if (lower == u"delete"_s)
        return LabelRule::deleteKey;
    if (lower == u"caps lock"_s)
        return LabelRule::capsLock;
    if (lower == u"return"_s)
        return LabelRule::returnKey;
    if (lower == u"shift"_s)
        return LabelRule::shift;
    if (lower == u"esc"_s)
        return LabelRule::escape;
    if (isFunctionRow)
        return key.secondaryLabel ? LabelRule::functionSymbol : LabelRule::functionText;
    if (key.secondaryLabel)
        return LabelRule::twoLegends;
    return LabelRule::plainText;
}

CornerRadii KeyCapView::cornerRadii(const ThemeStyle& style, CornerKeyPosition corner)
{
    CornerRadii radii = CornerRadii::uniform(style.cornerRadius);
    switch (corner) {
    case CornerKeyPosition::none:
        break;
    case CornerKeyPosition::topLeft:
        radii.topLeft = style.cornerKeyRadius;
        break;
    case CornerKeyPosition::topRight:
        radii.topRight = style.cornerKeyRadius;
        break;
    case CornerKeyPosition::bottomLeft:
        radii.bottomLeft = style.cornerKeyRadius;
        break;
    case CornerKeyPosition::bottomRight:
        radii.bottomRight = style.cornerKeyRadius;
        break;
    }
    return radii;
}

QColor KeyCapView::shadowColour(const ShadowConfig& shadow)
{
    if (!shadow.enabled)
        return Qt::transparent;
    return HsbColor { shadow.hue, shadow.saturation, shadow.brightness, shadow.opacity }.toQColor();
}

int KeyCapView::pressStep(double progress)
{
    if (!(progress > 0))
        return 0;
    if (progress >= 1)
        return pressSteps;
    return std::clamp(int(std::ceil(progress * pressSteps - 1e-9)), 1, pressSteps);
}

bool KeyCapView::hasInnerShadow(const ThemeStyle& style)
{
    return style.innerShadowConfig.radius > 0 && style.innerShadowConfig.opacity > 0;
}

QColor KeyCapView::mix(const QColor& from, const QColor& to, double t)
{
    if (t <= 0)
        return from;
    if (t >= 1)
        return to;
    const auto lerp = [t](float a, float b) { return float(a + (b - a) * t); };
    return QColor::fromRgbF(lerp(from.redF(), to.redF()), lerp(from.greenF(), to.greenF()),
        lerp(from.blueF(), to.blueF()), lerp(from.alphaF(), to.alphaF()));
}

QRectF KeyCapView::paintedBounds(const QRectF& rect, const ThemeStyle& style)
{
    const ShadowConfig& drop = style.dropShadowConfig;
    const double blur = std::isfinite(drop.radius) ? std::max(drop.radius, 0.0) : 0.0;
    const double x = std::isfinite(drop.x) ? drop.x : 0.0;
    const double y = std::isfinite(drop.y) ? drop.y : 0.0;
    // The blur reaches three standard deviations (radius / 2 each) beyond the shape.
    const double margin = 1.5 * blur + 2;
    return rect.united(rect.translated(x, y).adjusted(-margin, -margin, margin, margin)).adjusted(-1, -1, 1, 1);
}

KeyCapView::KeyCapView(SymbolIcons& symbols, ShadowCache& shadows)
    : m_symbols(symbols)
    , m_shadows(shadows)
    , m_labels(labelCacheBytes)
    , m_restCaps(restCapCacheBytes)
    , m_pressedCaps(pressedCapCacheBytes)
{
}

void KeyCapView::clearCache()
{
    m_labels.clear();
    m_restCaps.clear();
    m_pressedCaps.clear();
}

void KeyCapView::paint(QPainter& painter, const KeyPlacement& placement, const ThemeStyle& style, double unitSize,
    double progress, bool capsLockOn)
{
    if (placement.rect.isEmpty() || placement.key == nullptr)
        return;
    const double p = std::clamp(std::isfinite(progress) ? progress : 0.0, 0.0, 1.0);
    const qreal dpr = painter.device()->devicePixelRatioF();
    // A move by whole device pixels keeps the cached caps on the pixel grid; any other transformation draws live.
    const QTransform& transform = painter.transform();
    const auto whole = [dpr](qreal v) { return std::abs(v * dpr - std::round(v * dpr)) < 1e-6; };
    const bool onGrid = transform.type() <= QTransform::TxTranslate && whole(transform.dx()) && whole(transform.dy());
    if (!onGrid || !(dpr > 0)) {
        paintLive(painter, placement, style, unitSize, p, capsLockOn, dpr);
        return;
    }

    // Caps are drawn once per step into an image aligned to the device pixels, shadow included, and copied from
    // then on: a full frame is one copy per key, and so is each frame of a press.
    const QRectF bounds = paintedBounds(placement.rect, style);
    const QPointF origin(std::floor(bounds.left() * dpr) / dpr, std::floor(bounds.top() * dpr) / dpr);
    const QSize sizePx(int(std::ceil((bounds.right() - origin.x()) * dpr)), int(std::ceil((bounds.bottom() - origin.y()) * dpr)));
    if (sizePx.isEmpty() || sizePx.width() > 4096 || sizePx.height() > 4096) {
        paintLive(painter, placement, style, unitSize, p, capsLockOn, dpr);
        return;
    }
    const RestKey key { placement.key, milli(placement.rect.x()), milli(placement.rect.y()),
        milli(placement.rect.width()), milli(placement.rect.height()), milli(dpr), placement.isFunctionRow,
        capsLockOn && labelRule(*placement.key, placement.isFunctionRow) == LabelRule::capsLock,
        pressStep(p) };
    QCache<RestKey, QImage>& cache = key.step == 0 ? m_restCaps : m_pressedCaps;
    const QImage* cached = cache.object(key);
    if (cached == nullptr) {
        auto* image = new QImage(sizePx, QImage::Format_ARGB32_Premultiplied);
        image->fill(Qt::transparent);
        image->setDevicePixelRatio(dpr);
        {
            QPainter imagePainter(image);
            imagePainter.translate(-origin);
            paintLive(imagePainter, placement, style, unitSize, double(key.step) / pressSteps, capsLockOn, dpr);
        }
        cache.insert(key, image, std::max<qint64>(image->sizeInBytes(), 1));
        cached = cache.object(key);
        if (cached == nullptr)
            return;
    }
    painter.drawImage(origin, *cached);
}

void KeyCapView::paintLive(QPainter& painter, const KeyPlacement& placement, const ThemeStyle& style,
    double unitSize, double p, bool capsLockOn, qreal dpr)
{
    const QRectF rect = placement.rect;
    const CornerRadii radii = cornerRadii(style, placement.corner);
    const QColor face = mix(style.keyBackground.toQColor(), style.keyPressedBackground.toQColor(), p);
    const QColor border = mix(style.keyBorder.toQColor(), style.keyPressedBorder.toQColor(), p);
    const QColor label = mix(style.textColor.toQColor(), style.pressedTextColor.toQColor(), p);

    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    // At rest the cached pieces are copied pixel for pixel; only a pressed (scaled) cap needs filtering.
    painter.setRenderHint(QPainter::SmoothPixmapTransform, p > 0);
    const auto imageAt = [&painter, p, dpr](QPointF position, const QImage& image) {
        if (p > 0)
            painter.drawImage(position, image);
        else
            painter.drawImage(QPointF(std::round(position.x() * dpr) / dpr, std::round(position.y() * dpr) / dpr), image);
    };
    if (p > 0) {
        const double scale = 1.0 - (1.0 - pressedScale) * p;
        const QPointF centre = rect.center();
        painter.translate(centre);
        painter.scale(scale, scale);
        painter.translate(-centre);
    }

    const ShadowConfig& drop = style.dropShadowConfig;
    const QColor dropColour = shadowColour(drop);
    if (dropColour.alpha() > 0) {
        const ShadowCache::Piece piece
            = m_shadows.dropShadow(rect.size(), radii, drop.radius, QPointF(drop.x, drop.y), dropColour, dpr, placement.notch);
        if (!piece.image.isNull())
            imageAt(rect.topLeft() + piece.offset, piece.image);
    }

    const QPainterPath shape = keyShapePath(rect, radii, placement.notch);
    if (style.gradient && !placement.isArrow) {
        QLinearGradient gradient(rect.topLeft(), rect.bottomLeft());
        QColor top = face;
        top.setAlphaF(std::min(1.0f, face.alphaF() * 1.1f));
        QColor bottom = face;
        bottom.setAlphaF(face.alphaF() * 0.85f);
        gradient.setColorAt(0, top);
        gradient.setColorAt(1, bottom);
        painter.fillPath(shape, gradient);
    } else {
        painter.fillPath(shape, face);
    }

    if (style.borderWidth > 0) {
        const double inset = style.borderWidth / 2;
        const CornerRadii inner { std::max(radii.topLeft - inset, 0.0), std::max(radii.topRight - inset, 0.0),
            std::max(radii.bottomRight - inset, 0.0), std::max(radii.bottomLeft - inset, 0.0) };
        QPen pen(border, style.borderWidth, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin);
        pen.setMiterLimit(10);
        painter.strokePath(keyShapePath(rect.adjusted(inset, inset, -inset, -inset), inner, placement.notch), pen);
    }

    if (placement.isArrow) {
        static const QString arrowSymbols[] = { u"arrowtriangle.left.fill"_s, u"arrowtriangle.right.fill"_s,
            u"arrowtriangle.down.fill"_s, u"arrowtriangle.up.fill"_s };
        const int index = std::clamp(int(placement.key->keycode) - 123, 0, 3);
        const double size = unitSize * 0.18;
        const double side = SymbolIcons::boxSide(size);
        const QRectF box(rect.center() - QPointF(side / 2, side / 2), QSizeF(side, side));
        m_symbols.paint(painter, box, arrowSymbols[index], size, SymbolWeight::medium, label);
    } else if (label.alpha() > 0) {
        const QImage image = labelImage(placement, unitSize, dpr, label);
        if (!image.isNull())
            imageAt(rect.topLeft(), image);
    }

    if (labelRule(*placement.key, placement.isFunctionRow) == LabelRule::capsLock) {
        // The lock light follows Caps Lock itself, not the key, so it is drawn outside the cached label.
        const QRectF area = rect.adjusted(0.08 * unitSize, 0.04 * unitSize, -0.08 * unitSize, -0.04 * unitSize);
        const double d = 0.1 * unitSize;
        QColor light = label;
        if (capsLockOn)
            light = capsLockLightColour();
        else
            light.setAlphaF(light.alphaF() * 0.15f);
        painter.setPen(Qt::NoPen);
        painter.setBrush(light);
        painter.drawEllipse(QRectF(area.left() + 2, area.top() + 4, d, d));
    }

    if (hasInnerShadow(style)) {
        const ShadowConfig& innerConfig = style.innerShadowConfig;
        InnerShadowSpec shadow;
        shadow.blurRadius = innerConfig.radius;
        shadow.offset = QPointF(innerConfig.x, innerConfig.y);
        shadow.colour = shadowColour(innerConfig);
        shadow.strokeWidth = placement.isArrow ? 5 : 8;
        shadow.scaleX = placement.isArrow ? 1.5 : 1.6;
        shadow.scaleY = placement.isArrow ? 4.0 : 1.6;
        // The stroke is scaled out of the key; only on tiny keys does its inner edge reach back in.
        const double halfWidth = rect.width() / 2, halfHeight = rect.height() / 2;
        const bool strokeReaches = shadow.scaleX * (halfWidth - shadow.strokeWidth / 2) < halfWidth
            || shadow.scaleY * (halfHeight - shadow.strokeWidth / 2) < halfHeight;
        if (strokeReaches)
            shadow.strokeColour = face;
        if (shadow.colour.alpha() > 0 || strokeReaches) {
            const ShadowCache::Piece piece = m_shadows.innerShadow(rect.size(), radii, shadow, dpr, placement.notch);
            if (!piece.image.isNull())
                imageAt(rect.topLeft() + piece.offset, piece.image);
        }
    }

    painter.restore();
}

QImage KeyCapView::labelImage(const KeyPlacement& placement, double unitSize, qreal dpr, const QColor& colour)
{
    const qint64 widthPx = qint64(std::ceil(placement.rect.width() * dpr));
    const qint64 heightPx = qint64(std::ceil(placement.rect.height() * dpr));
    if (widthPx <= 0 || heightPx <= 0 || widthPx > 4096 || heightPx > 4096)
        return {};
    const LabelKey key { placement.key, widthPx, heightPx, milli(unitSize), milli(dpr), placement.isFunctionRow };

    QImage* mask = m_labels.object(key);
    if (mask == nullptr) {
        // Only the opacities are kept: a quarter of the memory.
        auto* rendered = new QImage(renderLabelMask(placement, unitSize, dpr).convertToFormat(QImage::Format_Alpha8));
        const qint64 cost = std::max<qint64>(rendered->sizeInBytes(), 1);
        m_labels.insert(key, rendered, cost);
        mask = m_labels.object(key);
        if (mask == nullptr)
            return {};
    }

    if (colour.alpha() == 0)
        return {};
    // Tinted copies are not kept: a label is tinted only while a cap image is drawn, and the cap is kept instead.
    QImage tinted(mask->size(), QImage::Format_ARGB32_Premultiplied);
    tinted.fill(colour);
    {
        QPainter p(&tinted);
        p.setCompositionMode(QPainter::CompositionMode_DestinationIn);
        p.drawImage(QRect(QPoint(0, 0), mask->size()), *mask);
    }
    tinted.setDevicePixelRatio(dpr);
    return tinted;
}

QImage KeyCapView::renderLabelMask(const KeyPlacement& placement, double u, qreal dpr) const
{
    const QRectF rect = placement.rect;
    QImage image(QSize(int(std::ceil(rect.width() * dpr)), int(std::ceil(rect.height() * dpr))),
        QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    image.setDevicePixelRatio(dpr);

    const KeyDef& key = *placement.key;
    const LabelRule rule = labelRule(key, placement.isFunctionRow);
    if (rule == LabelRule::space)
        return image;

    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.setPen(Qt::white);
    const QColor white(Qt::white);
    // The padded label area, in the image's coordinates.
    const QRectF area = QRectF(QPointF(0, 0), rect.size()).adjusted(0.08 * u, 0.04 * u, -0.08 * u, -0.04 * u);
    const double corner = 1.2 * 0.23 * u;

    const auto symbolAt = [&](const QString& name, double size, SymbolWeight weight, QPointF topLeft,
                              double opacity = 1.0) {
        const double side = SymbolIcons::boxSide(size);
        painter.setOpacity(opacity);
        m_symbols.paint(painter, QRectF(topLeft, QSizeF(side, side)), name, size, weight, white);
        painter.setOpacity(1.0);
    };
    const auto symbolSide = [](double size) { return SymbolIcons::boxSide(size); };
    // Bottom-corner symbols of the word keys: 4 points above the bottom edge, 2 from the side.
    const auto bottomLeftSymbol = [&](const QString& name) {
        symbolAt(name, corner, SymbolWeight::regular,
            QPointF(area.left() + 2, area.bottom() - 4 - symbolSide(corner)));
    };
    const auto bottomRightSymbol = [&](const QString& name) {
        symbolAt(name, corner, SymbolWeight::regular,
            QPointF(area.right() - 2 - symbolSide(corner), area.bottom() - 4 - symbolSide(corner)));
    };

    switch (rule) {
    case LabelRule::touchID: {
        const double d = 0.55 * u;
        const double line = 0.03 * u;
        const QRectF ring(area.center() - QPointF(d / 2, d / 2), QSizeF(d, d));
        painter.setOpacity(0.4);
        painter.setPen(QPen(white, line));
        painter.setBrush(Qt::NoBrush);
        painter.drawEllipse(ring.adjusted(line / 2, line / 2, -line / 2, -line / 2));
        painter.setOpacity(1.0);
        const double side = symbolSide(0.28 * u);
        symbolAt(u"touchid"_s, 0.28 * u, SymbolWeight::thin, area.center() - QPointF(side / 2, side / 2), 0.5);
        break;
    }
    case LabelRule::space:
        break;
    case LabelRule::fn: {
        TextItem text(u"fn"_s, 0.21 * u, QFont::Medium, image);
        text.draw(painter, QPointF(area.right() - 2 - text.size().width(), area.top() + 2));
        const double side = symbolSide(0.25 * u);
        symbolAt(u"globe"_s, 0.25 * u, SymbolWeight::medium, QPointF(area.left() + 2, area.bottom() - 2 - side));
        break;
    }
    case LabelRule::modifier: {
        const QString lower = lowerLabel(key);
        const double side = symbolSide(0.25 * u);
        const bool rightHand = key.keycode == 61 || key.keycode == 54;
        const double x = rightHand ? area.left() + 2 : area.right() - 2 - side;
        symbolAt(lower, 0.25 * u, SymbolWeight::medium, QPointF(x, area.top() + 2));
        TextItem text(key.label, 0.21 * u, QFont::Medium, image);
        text.fitWidth(area.width(), 0.5, image);
        const QSizeF size = text.size();
        text.draw(painter, QPointF(area.center().x() - size.width() / 2, area.bottom() - 2 - size.height()));
        break;
    }
    case LabelRule::tab:
        bottomLeftSymbol(u"arrow.right.to.line"_s);
        break;
    case LabelRule::deleteKey:
        bottomRightSymbol(u"delete.backward"_s);
        break;
    case LabelRule::capsLock:
        // The light itself is drawn live over the cached label.
        bottomLeftSymbol(u"capslock"_s);
        break;
    case LabelRule::returnKey:
        bottomRightSymbol(u"return"_s);
        break;
    case LabelRule::shift:
        if (key.keycode == 60)
            bottomRightSymbol(u"shift"_s);
        else
            bottomLeftSymbol(u"shift"_s);
        break;
    case LabelRule::escape: {
        TextItem text(key.label, 0.23 * u, QFont::Normal, image);
        text.draw(painter, QPointF(area.left() + 2, area.bottom() - 4 - text.size().height()));
        break;
    }
    case LabelRule::functionSymbol: {
        const double side = symbolSide(0.26 * u);
        TextItem text(key.label, 0.18 * u, QFont::Bold, image);
        const QSizeF size = text.size();
        const double spacing = 0.06 * u;
        const double top = area.center().y() - (side + spacing + size.height()) / 2;
        symbolAt(*key.secondaryLabel, 0.26 * u, SymbolWeight::medium, QPointF(area.center().x() - side / 2, top));
        text.draw(painter, QPointF(area.center().x() - size.width() / 2, top + side + spacing));
        break;
    }
    case LabelRule::functionText:
    case LabelRule::plainText: {
        TextItem text(key.label, (rule == LabelRule::functionText ? 0.26 : 0.35) * u,
            rule == LabelRule::functionText ? QFont::Medium : QFont::Normal, image);
        const QSizeF size = text.size();
        text.draw(painter, area.center() - QPointF(size.width() / 2, size.height() / 2));
        break;
    }
    case LabelRule::twoLegends: {
        TextItem upper(*key.secondaryLabel, 0.25 * u, QFont::Medium, image);
        upper.draw(painter, QPointF(area.center().x() - upper.size().width() / 2, area.top()));
        TextItem lower(key.label, 0.3 * u, QFont::Normal, image);
        const QSizeF size = lower.size();
        lower.draw(painter, QPointF(area.center().x() - size.width() / 2, area.bottom() - 2 - size.height()));
        break;
    }
    }
    if (key.altGrLabel && (rule == LabelRule::plainText || rule == LabelRule::twoLegends)) {
        // What AltGr types, small in the bottom-right corner, where printed keyboards put it.
        TextItem text(*key.altGrLabel, 0.2 * u, QFont::Normal, image);
        const QSizeF size = text.size();
        text.draw(painter, QPointF(area.right() - 2 - size.width(), area.bottom() - 2 - size.height()));
    }
    return image;
}
