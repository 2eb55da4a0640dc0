// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QCache>
#include <QColor>
#include <QImage>
#include <QString>
#include <QStringList>
#include <QtGlobal>

class QPainter;
class QRectF;

/** The stroke weight a symbol is asked for in. The icon set has fewer weights; SymbolIcons picks the nearest file. */
enum class SymbolWeight { thin, light, regular, medium, semibold, bold, heavy };

/**
 * Symbol images for key caps and windows, drawn from the Phosphor icons compiled into the binary (:/symbols/).
 * Symbols are known by the names the keyboard layout and the drawing code use ("command", "globe",
 * "arrowtriangle.up.fill", ...); each maps to an icon and picks its file by size and weight: thin and light strokes
 * draw light (regular where an icon ships no light file), regular and heavier strokes draw bold up to 16 px and only
 * medium and heavier do above that, and a few symbols whose shapes clog at small sizes cap their weight there
 * (command, globe, touchid). Filled and duotone symbols have one file for every size and weight.
 *
 * Images are tinted to one colour and kept in a cache bounded in bytes. Main thread only.
 */
class SymbolIcons
{
public:
    static SymbolIcons& shared();

    /** Every known symbol name, in a fixed order. */
    static QStringList symbolNames();
    /** Side of the square box a symbol of font size `pointSize` is drawn in (1.2 × pointSize). */
    static double boxSide(double pointSize);

    /**
     * Tinted symbol image, box of boxSide(pointSize) logical px, rendered at `devicePixelRatio`, devicePixelRatio set
     * on the image; cached by (name, device px, weight file, colour rgba, mirrored). Null image for unknown names, and
     * for sizes that are not positive or whose box would exceed maxDevicePixels().
     */
    QImage image(const QString& name, double pointSize, SymbolWeight weight, const QColor& colour,
        qreal devicePixelRatio, bool mirrored = false);
    /**
     * Draws image(...) centred in `box`, its top-left rounded to device pixels, using the painter's device pixel
     * ratio and its current opacity. Unknown names draw nothing.
     */
    void paint(QPainter& painter, const QRectF& box, const QString& name, double pointSize, SymbolWeight weight,
        const QColor& colour, bool mirrored = false);

    /** Largest side, in device pixels, of an image this class renders. */
    static constexpr int maxDevicePixels() { return 2048; }
    /** Bytes of image data the cache keeps at most. */
    static constexpr qsizetype cacheBytes() { return 4 * 1024 * 1024; }

private:
    SymbolIcons();

    struct Key
    {
        int file;
        int side;
        QRgb rgba;
        bool mirrored;
        qreal devicePixelRatio;

        friend bool operator==(const Key&, const Key&) = default;
        friend size_t qHash(const Key& key, size_t seed = 0) noexcept
        {
            return qHashMulti(seed, key.file, key.side, key.rgba, key.mirrored, key.devicePixelRatio);
        }
    };

    QCache<Key, QImage> m_cache;
};
