// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/trackpadview.h"

#include "keyboard/keycapview.h"
#include "keyboard/keyshape.h"
#include "keyboard/shadowcache.h"
#include "keyboard/symbolicons.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace TrackpadView {

namespace {

/** The click zones take the lowest part of the pad, as on a clickpad's button area. */
constexpr double buttonZoneShare = 0.3;

double radiusOf(const ThemeStyle& style, const QRectF& pad)
{
    // Rounder than a key, as trackpads are, but never more than a quarter of its height.
    return std::clamp(style.cornerRadius * 2, 0.0, pad.height() / 4);
}

} // namespace

QRectF partRect(const QRectF& pad, Part part, double u)
{
    const double zoneTop = pad.bottom() - pad.height() * buttonZoneShare;
    const double inset = std::min(0.12 * u, pad.height() / 10);
    const double mark = std::min(0.45 * u, pad.height() / 4);
    const double upperMiddle = (pad.top() + zoneTop) / 2;
    switch (part) {
    case Part::left:
        return QRectF(QPointF(pad.left(), zoneTop), QPointF(pad.center().x(), pad.bottom()));
    case Part::right:
        return QRectF(QPointF(pad.center().x(), zoneTop), QPointF(pad.right(), pad.bottom()));
    case Part::middle: {
        const double w = pad.width() * 0.16, h = pad.height() * buttonZoneShare * 0.55;
        return QRectF(pad.center().x() - w / 2, (zoneTop + pad.bottom()) / 2 - h / 2, w, h);
    }
    case Part::back:
        return QRectF(pad.left() + inset, upperMiddle - mark / 2, mark * 0.8, mark);
    case Part::forward:
        return QRectF(pad.right() - inset - mark * 0.8, upperMiddle - mark / 2, mark * 0.8, mark);
    case Part::scrollUp:
        return QRectF(pad.center().x() - pad.width() * 0.15, pad.top() + inset, pad.width() * 0.3, mark * 0.7);
    case Part::scrollDown:
        return QRectF(pad.center().x() - pad.width() * 0.15, zoneTop - inset - mark * 0.7, pad.width() * 0.3, mark * 0.7);
    case Part::scrollLeft:
        return QRectF(pad.left() + inset + mark, upperMiddle - (zoneTop - pad.top()) * 0.2, mark * 0.7,
            (zoneTop - pad.top()) * 0.4);
    case Part::scrollRight:
        return QRectF(pad.right() - inset - mark - mark * 0.7, upperMiddle - (zoneTop - pad.top()) * 0.2, mark * 0.7,
            (zoneTop - pad.top()) * 0.4);
    }
    return {};
}

QRectF paintedBounds(const QRectF& pad, const ThemeStyle& style)
{
    return KeyCapView::paintedBounds(pad, style);
}

void paint(QPainter& painter, const QRectF& pad, const ThemeStyle& style, double u,
    const std::function<double(Part)>& progress, SymbolIcons& symbols, ShadowCache& shadows)
{
    if (pad.isEmpty())
        return;
    const double radius = radiusOf(style, pad);
    const CornerRadii radii = CornerRadii::uniform(radius);
    const QPainterPath shape = keyShapePath(pad, radii);
    const QColor rest = style.keyBackground.toQColor();
    const QColor lit = style.keyPressedBackground.toQColor();
    const QColor text = style.textColor.toQColor();
    const QColor litText = style.pressedTextColor.toQColor();
    const qreal dpr = painter.device() ? painter.device()->devicePixelRatioF() : 1.0;

    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);

    const ShadowConfig& drop = style.dropShadowConfig;
    const QColor dropColour = KeyCapView::shadowColour(drop);
    if (dropColour.alpha() > 0) {
        const ShadowCache::Piece piece
            = shadows.dropShadow(pad.size(), radii, drop.radius, QPointF(drop.x, drop.y), dropColour, dpr);
        if (!piece.image.isNull())
            painter.drawImage(pad.topLeft() + piece.offset, piece.image);
    }
    painter.fillPath(shape, rest);

    // Zones light inside the pad's outline only.
    painter.save();
    painter.setClipPath(shape, Qt::IntersectClip);
    for (Part zone : { Part::left, Part::right }) {
        const double p = std::clamp(progress(zone), 0.0, 1.0);
        if (p > 0)
            painter.fillRect(partRect(pad, zone, u), KeyCapView::mix(rest, lit, p));
    }
    painter.restore();

    // Faint lines where the click zones meet, so that a viewer reads which side was clicked.
    QColor line = text;
    line.setAlphaF(line.alphaF() * 0.18f);
    const double zoneTop = partRect(pad, Part::left, u).top();
    painter.setPen(QPen(line, std::max(1.0, 0.015 * u)));
    painter.drawLine(QPointF(pad.left() + radius, zoneTop), QPointF(pad.right() - radius, zoneTop));
    painter.drawLine(QPointF(pad.center().x(), zoneTop), QPointF(pad.center().x(), pad.bottom()));

    const auto capsule = [&](const QRectF& rect, double p, const QColor& restColour) {
        const double r = std::min(rect.width(), rect.height()) / 2;
        painter.setPen(Qt::NoPen);
        painter.setBrush(KeyCapView::mix(restColour, lit, p));
        painter.drawRoundedRect(rect, r, r);
    };
    const auto symbol = [&](const QRectF& rect, const QString& name, double p, double restOpacity) {
        const double size = std::min(rect.width(), rect.height()) * 0.6;
        if (size <= 0)
            return;
        const double side = SymbolIcons::boxSide(size);
        QColor colour = KeyCapView::mix(text, litText, p);
        colour.setAlphaF(colour.alphaF() * float(restOpacity + (1 - restOpacity) * p));
        symbols.paint(painter, QRectF(rect.center() - QPointF(side / 2, side / 2), QSizeF(side, side)), name, size,
            SymbolWeight::medium, colour);
    };

    const double middle = std::clamp(progress(Part::middle), 0.0, 1.0);
    QColor middleRest = rest;
    middleRest = KeyCapView::mix(rest, text, 0.12);
    capsule(partRect(pad, Part::middle, u), middle, middleRest);

    for (const auto& [part, name] : { std::pair { Part::back, u"arrowtriangle.left.fill"_s },
             std::pair { Part::forward, u"arrowtriangle.right.fill"_s } }) {
        const double p = std::clamp(progress(part), 0.0, 1.0);
        const QRectF rect = partRect(pad, part, u);
        if (p > 0)
            capsule(rect, p, rest);
        symbol(rect, name, p, 0.3);
    }

    // Scroll pulses show only while they fade.
    for (const auto& [part, name] : { std::pair { Part::scrollUp, u"arrowtriangle.up.fill"_s },
             std::pair { Part::scrollDown, u"arrowtriangle.down.fill"_s },
             std::pair { Part::scrollLeft, u"arrowtriangle.left.fill"_s },
             std::pair { Part::scrollRight, u"arrowtriangle.right.fill"_s } }) {
        const double p = std::clamp(progress(part), 0.0, 1.0);
        if (p <= 0)
            continue;
        const QRectF rect = partRect(pad, part, u);
        painter.save();
        painter.setOpacity(p);
        capsule(rect, 1.0, lit);
        symbol(rect, name, 1.0, 1.0);
        painter.restore();
    }

    if (style.borderWidth > 0) {
        const double inset = style.borderWidth / 2;
        QPen pen(style.keyBorder.toQColor(), style.borderWidth, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin);
        painter.setPen(pen);
        painter.setBrush(Qt::NoBrush);
        painter.drawPath(keyShapePath(pad.adjusted(inset, inset, -inset, -inset),
            CornerRadii::uniform(std::max(radius - inset, 0.0))));
    }
    painter.restore();
}

} // namespace TrackpadView
