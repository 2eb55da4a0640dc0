// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "keyboard/keyboardview.h"
#include "keyboard/keyshape.h"
#include "theme/themestyle.h"

#include <QCache>
#include <QColor>
#include <QImage>
#include <QRectF>

class QPainter;
class ShadowCache;
class SymbolIcons;

/** What a key cap shows, decided by the first matching rule, in this order. */
enum class LabelRule {
    touchID = 1, ///< a ring with a fingerprint
    space, ///< nothing
    fn, ///< "fn" top right, a globe bottom left
    modifier, ///< control, option, command: symbol in a top corner, word at the bottom
    tab,
    deleteKey,
    capsLock, ///< the lock light top left, the symbol bottom left
    returnKey,
    shift,
    escape,
    functionSymbol, ///< F-key with its symbol above the name
    functionText, ///< function-row key with only a name
    twoLegends, ///< shifted character on top, plain one at the bottom
    plainText, ///< the label, centred
};

/**
 * Draws key caps: drop shadow, face, inside border, label and inner shadow, scaled down slightly and recoloured as
 * the key is pressed. A press is a progress from 0 (at rest) to 1 (fully lit) so that animations can draw any frame
 * in between.
 *
 * Shadows come from a ShadowCache and labels are rendered once per key and size into cached images; a cap at rest
 * is kept whole as one image, so it costs a single copy; so is each step of a press (pressSteps). The caches hold one theme: clearCache() when it changes.
 * Main thread only.
 */
class KeyCapView
{
public:
    /** Scale of a fully pressed cap about its centre. */
    static constexpr double pressedScale = 0.95;
    /**
     * Frames of a press drawn between rest and fully lit: a progress is drawn at the next of these steps up, so that
     * each step of each cap is drawn once and copied from then on, and a press that has just begun already shows.
     * A step changes the colour by an eighth of the way and the size by less than half a pixel at ordinary sizes.
     */
    static constexpr int pressSteps = 8;
    /** The step `progress` (0 to 1) is drawn at: 0 only at rest, pressSteps only fully lit. */
    static int pressStep(double progress);
    /** The lock light when Caps Lock is on: the toolkit's standard green. */
    static QColor capsLockLightColour() { return QColor(52, 199, 89); }

    static LabelRule labelRule(const KeyDef& key, bool isFunctionRow);
    /** Every corner takes the key radius but the one named by `corner`, which takes the corner-key radius. */
    static CornerRadii cornerRadii(const ThemeStyle& style, CornerKeyPosition corner);
    /** Colour of a shadow: its hue, saturation and brightness at `opacity`; transparent when disabled. */
    static QColor shadowColour(const ShadowConfig& shadow);
    /** Whether the inner shadow is drawn at all (both its radius and its opacity are positive). */
    static bool hasInnerShadow(const ThemeStyle& style);
    /** Linear blend of two colours in RGBA, `t` from 0 (`from`) to 1 (`to`). */
    static QColor mix(const QColor& from, const QColor& to, double t);

    /** The area a cap at `rect` may paint into at any press progress: the cap and its drop shadow. */
    static QRectF paintedBounds(const QRectF& rect, const ThemeStyle& style);

    KeyCapView(SymbolIcons& symbols, ShadowCache& shadows);

    /**
     * Paints the cap of `placement` at press `progress` (0 at rest, 1 lit). `capsLockOn` drives the Caps Lock
     * key's light. The painter's device pixel ratio decides the resolution of cached pieces.
     */
    void paint(QPainter& painter, const KeyPlacement& placement, const ThemeStyle& style, double unitSize,
        double progress, bool capsLockOn);

    /** Drops every cached label image (the font or the theme's text changed). */
    void clearCache();

private:
    struct LabelKey
    {
        const KeyDef* key;
        qint64 widthPx;
        qint64 heightPx;
        qint64 unitMilli;
        qint64 dprMilli;
        bool functionRow;
        friend bool operator==(const LabelKey&, const LabelKey&) = default;
    };
    friend size_t qHash(const LabelKey& key, size_t seed) noexcept;

    struct RestKey
    {
        const KeyDef* key;
        qint64 xMilli;
        qint64 yMilli;
        qint64 widthMilli;
        qint64 heightMilli;
        qint64 dprMilli;
        bool functionRow;
        bool lightOn;
        /** 0 at rest, pressSteps fully lit. */
        int step;
        friend bool operator==(const RestKey&, const RestKey&) = default;
    };
    friend size_t qHash(const RestKey& key, size_t seed) noexcept;

    void paintLive(QPainter& painter, const KeyPlacement& placement, const ThemeStyle& style, double unitSize,
        double progress, bool capsLockOn, qreal dpr);

    QImage labelImage(const KeyPlacement& placement, double unitSize, qreal dpr, const QColor& colour);
    QImage renderLabelMask(const KeyPlacement& placement, double unitSize, qreal dpr) const;

    SymbolIcons& m_symbols;
    ShadowCache& m_shadows;
    // The labels' opacities (Alpha8), tinted when a cap is drawn.
    QCache<LabelKey, QImage> m_labels;
    // Whole caps at rest, shadows included, for the current theme and layout.
    QCache<RestKey, QImage> m_restCaps;
    // The same for the steps of a press; kept apart, so that pressing many keys never pushes out caps at rest.
    QCache<RestKey, QImage> m_pressedCaps;
};
