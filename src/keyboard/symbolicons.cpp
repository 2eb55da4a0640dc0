// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/symbolicons.h"

#include <QHash>
#include <QPainter>
#include <QSvgRenderer>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

// The icon files a symbol can be drawn from. Outline icons come in light, regular and bold; fill and duotone icons
// are one file each whatever the weight.
enum class FileWeight : quint8 { light, regular, bold };

enum class Drawing : quint8
{
    outline, // regular and bold files
    outlineAndLight, // light, regular and bold files
    fill,
    duotone,
};

// Below `below` px the symbol is drawn no heavier than `heaviest`.
struct SizeLimit
{
    double below = 0;
    FileWeight heaviest = FileWeight::bold;
};

struct SymbolRow
{
    const char16_t* name;
    const char16_t* icon; // Phosphor's base name
    Drawing drawing = Drawing::outline;
    std::array<SizeLimit, 2> limits {};
    bool mirrored = false; // drawn flipped left to right
};

constexpr FileWeight light = FileWeight::light;
constexpr FileWeight regular = FileWeight::regular;

// clang-format off
constexpr SymbolRow rows[] = {
    // Key caps.
    // Touch ID is mush below 14 px in any weight; command's bold loops fill in below 12 px.
    { u"touchid", u"fingerprint-simple", Drawing::outlineAndLight, { { { 14, light } } } },
    { u"globe", u"globe", Drawing::outline, { { { 12, regular } } } },
    { u"control", u"control" },
    { u"option", u"option" },
    { u"command", u"command", Drawing::outlineAndLight, { { { 11, light }, { 12, regular } } } },
    { u"arrow.right.to.line", u"arrow-line-right" },
    { u"delete.backward", u"backspace" },
    { u"capslock", u"arrow-fat-line-up" },
    { u"return", u"arrow-elbow-down-left" },
    { u"shift", u"arrow-fat-up" },
    { u"sun.min", u"sun-dim" },
    { u"sun.max", u"sun" },
    { u"rectangle.3.group", u"squares-four" },
    { u"magnifyingglass", u"magnifying-glass" },
    { u"microphone", u"microphone" },
    { u"moon", u"moon" },
    { u"backward.end", u"skip-back" },
    { u"playpause", u"play-pause" },
    { u"forward.end", u"skip-forward" },
    { u"speaker", u"speaker-none" },
    { u"speaker.wave.1", u"speaker-low" },
    { u"speaker.wave.3", u"speaker-high" },
    { u"arrowtriangle.up.fill", u"caret-up", Drawing::fill },
    { u"arrowtriangle.left.fill", u"caret-left", Drawing::fill },
    { u"arrowtriangle.down.fill", u"caret-down", Drawing::fill },
    { u"arrowtriangle.right.fill", u"caret-right", Drawing::fill },
    // Tray, menus, panel and windows.
    { u"keyboard", u"keyboard" },
    { u"arrow.triangle.2.circlepath", u"arrows-clockwise" },
    { u"arrow.up.left.and.arrow.down.right", u"arrows-out-simple", Drawing::outline, {}, true }, // the file is ↙↗
    { u"checkmark", u"check" },
    { u"square.and.arrow.down.on.square", u"floppy-disk-back" },
    { u"plus.circle.fill", u"plus-circle", Drawing::fill },
    { u"square.and.arrow.up", u"export" },
    { u"square.and.arrow.down", u"tray-arrow-down" },
    { u"chevron.right", u"caret-right" },
    { u"keyboard.badge.ellipsis", u"keyboard" },
    { u"xmark.circle.fill", u"x-circle", Drawing::fill },
    { u"rectangle.inset.filled", u"rectangle", Drawing::duotone },
    { u"hand.tap", u"hand-tap" },
    { u"shadow", u"selection", Drawing::duotone }, // no shadow icon; drawn as square.dashed.inset.filled
    { u"square.dashed.inset.filled", u"selection", Drawing::duotone },
    { u"textformat", u"text-aa" },
    { u"lock.fill", u"lock-simple", Drawing::fill },
};
// clang-format on

struct Symbol
{
    std::array<int, 3> files {}; // index into Catalogue::files, by FileWeight
    std::array<SizeLimit, 2> limits {};
    bool mirrored = false;
};

struct Catalogue
{
    QHash<QString, int> index;
    QStringList names;
    std::vector<Symbol> symbols;
    QStringList files; // resource paths
};

const Catalogue& catalogue()
{
    static const Catalogue built = [] {
        Catalogue c;
        QHash<QString, int> fileIndex;
        const auto file = [&](const QString& path) {
            const auto found = fileIndex.constFind(path);
            if (found != fileIndex.cend())
                return *found;
            c.files.append(path);
            return *fileIndex.insert(path, int(c.files.size()) - 1);
        };
        for (const SymbolRow& row : rows) {
            const QString icon = QString::fromUtf16(row.icon);
            Symbol symbol { {}, row.limits, row.mirrored };
            switch (row.drawing) {
            case Drawing::outline:
            case Drawing::outlineAndLight: {
                const int regularFile = file(u":/symbols/regular/"_s + icon + u".svg"_s);
                const int boldFile = file(u":/symbols/bold/"_s + icon + u"-bold.svg"_s);
                const int lightFile = row.drawing == Drawing::outlineAndLight
                    ? file(u":/symbols/light/"_s + icon + u"-light.svg"_s)
                    : regularFile;
                symbol.files = { lightFile, regularFile, boldFile };
                break;
            }
            case Drawing::fill:
                symbol.files.fill(file(u":/symbols/fill/"_s + icon + u"-fill.svg"_s));
                break;
            case Drawing::duotone:
                symbol.files.fill(file(u":/symbols/duotone/"_s + icon + u"-duotone.svg"_s));
                break;
            }
            const QString name = QString::fromUtf16(row.name);
            c.index.insert(name, int(c.symbols.size()));
            c.names.append(name);
            c.symbols.push_back(symbol);
        }
        return c;
    }();
    return built;
}

// Phosphor strokes run about one step lighter than the weights the layout asks for, and thin ones vanish at key
// cap sizes.
FileWeight fileWeight(const Symbol& symbol, double pointSize, SymbolWeight weight)
{
    FileWeight chosen = FileWeight::bold;
    switch (weight) {
    case SymbolWeight::thin:
    case SymbolWeight::light:
        chosen = FileWeight::light;
        break;
    case SymbolWeight::regular:
        chosen = pointSize <= 16 ? FileWeight::bold : FileWeight::regular;
        break;
    case SymbolWeight::medium:
    case SymbolWeight::semibold:
    case SymbolWeight::bold:
    case SymbolWeight::heavy:
        break;
    }
    for (const SizeLimit& limit : symbol.limits) {
        if (pointSize < limit.below && limit.heaviest < chosen)
            chosen = limit.heaviest;
    }
    return chosen;
}

int fileOf(const Symbol& symbol, double pointSize, SymbolWeight weight)
{
    return symbol.files[size_t(fileWeight(symbol, pointSize, weight))];
}

const Symbol* find(const QString& name)
{
    const Catalogue& c = catalogue();
    const int index = c.index.value(name, -1);
    return index < 0 ? nullptr : &c.symbols[size_t(index)];
}

// 0 when there is nothing sensible to render.
int devicePixels(double pointSize, qreal devicePixelRatio)
{
    const double side = SymbolIcons::boxSide(pointSize) * devicePixelRatio;
    if (!std::isfinite(side) || side > SymbolIcons::maxDevicePixels() || !(devicePixelRatio > 0))
        return 0;
    return std::max(0, int(std::lround(side)));
}

QImage render(const QString& file, int side, QRgb rgba, bool mirrored)
{
    QSvgRenderer renderer(file);
    if (!renderer.isValid())
        return {};
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter, QRectF(0, 0, side, side));
    // The icon keeps its alpha and takes the colour.
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(image.rect(), QColor::fromRgba(rgba));
    painter.end();
    return mirrored ? std::move(image).mirrored(true, false) : image;
}

} // namespace

SymbolIcons::SymbolIcons()
    : m_cache(cacheBytes())
{
}

SymbolIcons& SymbolIcons::shared()
{
    static SymbolIcons icons;
    return icons;
}

QStringList SymbolIcons::symbolNames()
{
    return catalogue().names;
}

double SymbolIcons::boxSide(double pointSize)
{
    return 1.2 * pointSize;
}

QImage SymbolIcons::image(const QString& name, double pointSize, SymbolWeight weight, const QColor& colour,
    qreal devicePixelRatio, bool mirrored)
{
    const Symbol* symbol = find(name);
    const int side = devicePixels(pointSize, devicePixelRatio);
    if (!symbol || side == 0)
        return {};
    const Key key { fileOf(*symbol, pointSize, weight), side, colour.rgba(), symbol->mirrored != mirrored,
        devicePixelRatio };
    if (const QImage* cached = m_cache.object(key))
        return *cached;

    QImage image = render(catalogue().files[key.file], side, key.rgba, key.mirrored);
    if (image.isNull())
        return image;
    image.setDevicePixelRatio(devicePixelRatio);
    // An image over the whole budget is not kept (QCache drops it at once); the caller still gets it.
    m_cache.insert(key, new QImage(image), image.sizeInBytes());
    return image;
}

void SymbolIcons::paint(QPainter& painter, const QRectF& box, const QString& name, double pointSize,
    SymbolWeight weight, const QColor& colour, bool mirrored)
{
    if (!painter.isActive())
        return;
    const QImage symbol = image(name, pointSize, weight, colour, painter.device()->devicePixelRatio(), mirrored);
    if (symbol.isNull())
        return;
    const QSizeF size = symbol.deviceIndependentSize();
    QPointF topLeft = box.center() - QPointF(size.width() / 2, size.height() / 2);
    // Land on whole device pixels so the image is copied, not resampled; under rotation or shear there are none.
    const QTransform& toDevice = painter.deviceTransform();
    if (toDevice.type() <= QTransform::TxScale && toDevice.isInvertible()) {
        const QPointF onDevice = toDevice.map(topLeft);
        topLeft = toDevice.inverted().map(QPointF(std::round(onDevice.x()), std::round(onDevice.y())));
    }
    painter.drawImage(topLeft, symbol);
}
