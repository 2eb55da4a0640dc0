// SPDX-License-Identifier: GPL-3.0-or-later
#include "panel/screenplacement.h"

#include <QGuiApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QScreen>

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

using namespace Qt::StringLiterals;

namespace ScreenPlacement {

namespace {

/** Beyond these, an entry of the stored map is somebody's editing, not ours. */
constexpr qsizetype longestKey = 4096;
constexpr qsizetype longestName = 256;
constexpr double widestStored = 1e6;
/** A text this long is no map of sixteen places. */
constexpr qsizetype longestText = 1 << 20;

double distance(const QRectF& rect, const QPointF& point)
{
    const double dx = std::max({ rect.left() - point.x(), 0.0, point.x() - rect.right() });
    const double dy = std::max({ rect.top() - point.y(), 0.0, point.y() - rect.bottom() });
    return std::hypot(dx, dy);
}

qsizetype nearest(const QList<Screen>& screens, const QPointF& point)
{
    qsizetype best = -1;
    double bestDistance = std::numeric_limits<double>::infinity();
    for (qsizetype i = 0; i < screens.size(); ++i) {
        const double d = distance(QRectF(screens[i].geometry), point);
        if (best < 0 || d < bestDistance) {
            best = i;
            bestDistance = d;
        }
    }
    return best;
}

double clampedFraction(double fraction)
{
    return std::isfinite(fraction) ? std::clamp(fraction, 0.0, 1.0) : 0.5;
}

} // namespace

QList<Screen> connectedScreens(const QScreen* leaving)
{
    QList<Screen> screens;
    for (const QScreen* screen : QGuiApplication::screens()) {
        if (screen != leaving)
            screens.append({ screen->name(), screen->geometry(), screen->availableGeometry() });
    }
    return screens;
}

QString setupKey(QList<Screen> screens)
{
    const auto order = [](const Screen& s) {
        return std::make_tuple(s.name, s.geometry.x(), s.geometry.y(), s.geometry.width(), s.geometry.height());
    };
    std::ranges::sort(screens, [&](const Screen& a, const Screen& b) { return order(a) < order(b); });
    QStringList parts;
    for (const Screen& s : screens) {
        const QRect& g = s.geometry;
        parts << u"%1@%2,%3,%4x%5"_s.arg(s.name).arg(g.x()).arg(g.y()).arg(g.width()).arg(g.height());
    }
    return parts.join(u';');
}

qsizetype indexOf(const QList<Screen>& screens, const QString& name)
{
    const auto it = std::ranges::find(screens, name, &Screen::name);
    return it == screens.end() ? -1 : it - screens.begin();
}

qsizetype screenAt(const QList<Screen>& screens, const QPointF& point)
{
    for (qsizetype i = 0; i < screens.size(); ++i) {
        if (screens[i].geometry.contains(point.toPoint()))
            return i;
    }
    return nearest(screens, point);
}

qsizetype screenOf(const QList<Screen>& screens, const QRectF& frame)
{
    qsizetype best = -1;
    double bestArea = 0;
    for (qsizetype i = 0; i < screens.size(); ++i) {
        const QRectF common = QRectF(screens[i].geometry).intersected(frame);
        const double area = common.width() * common.height();
        if (area > bestArea) {
            best = i;
            bestArea = area;
        }
    }
    return best >= 0 ? best : nearest(screens, frame.center());
}

qsizetype chooseScreen(
    const QList<Screen>& screens, const QString& choice, const QString& primary, const QPointF& pointer)
{
    if (screens.isEmpty())
        return -1;
    if (choice == primaryChoice) {
        const qsizetype index = indexOf(screens, primary);
        return index >= 0 ? index : 0;
    }
    if (choice != pointerChoice) {
        if (const qsizetype named = indexOf(screens, choice); named >= 0)
            return named;
    }
    return screenAt(screens, pointer);
}

qsizetype screenAfterChange(const QList<Screen>& screens, const QString& choice, const QString& current,
    const QString& primary, const QPointF& pointer)
{
    if (choice == primaryChoice || (choice != pointerChoice && indexOf(screens, choice) >= 0))
        return chooseScreen(screens, choice, primary, pointer);
    if (const qsizetype stays = indexOf(screens, current); stays >= 0)
        return stays;
    return chooseScreen(screens, choice, primary, pointer);
}

double fittedWidth(double wanted, const QSizeF& area, double ratio, double minimum, double maximum)
{
    double width = std::isfinite(wanted) ? std::clamp(wanted, minimum, maximum) : minimum;
    if (area.width() > 0 && area.height() > 0 && ratio > 0)
        width = std::min({ width, area.width(), area.height() * ratio });
    return width;
}

QRectF clampedInto(const QRectF& frame, const QRectF& area)
{
    const auto along = [](double start, double length, double areaStart, double areaLength) {
        return length >= areaLength ? areaStart : std::clamp(start, areaStart, areaStart + areaLength - length);
    };
    return { along(frame.x(), frame.width(), area.x(), area.width()),
        along(frame.y(), frame.height(), area.y(), area.height()), frame.width(), frame.height() };
}

QRectF frameFor(const Place& place, const QRectF& area, double ratio, double minimum, double maximum)
{
    const double width = fittedWidth(place.width, area.size(), ratio, minimum, maximum);
    const QSizeF size(width, width / ratio);
    const double roomX = std::max(area.width() - size.width(), 0.0);
    const double roomY = std::max(area.height() - size.height(), 0.0);
    const QPointF topLeft(
        area.x() + clampedFraction(place.position.x()) * roomX, area.y() + clampedFraction(place.position.y()) * roomY);
    return clampedInto(QRectF(topLeft, size), area);
}

Place placeOf(const QRectF& frame, const QString& screen, const QRectF& area, double width, const Place& previous)
{
    // Less than a pixel of room says nothing about where the user would have it.
    const auto along = [](double start, double length, double areaStart, double areaLength, double kept) {
        const double room = areaLength - length;
        return room >= 1 ? clampedFraction((start - areaStart) / room) : kept;
    };
    return { screen,
        { along(frame.x(), frame.width(), area.x(), area.width(), previous.position.x()),
            along(frame.y(), frame.height(), area.y(), area.height(), previous.position.y()) },
        width };
}

QList<Choice> choices(const QList<Screen>& screens, const QString& current)
{
    QList<Choice> list { { pointerChoice.toString(), u"Screen with Pointer"_s },
        { primaryChoice.toString(), u"Primary Screen"_s } };
    for (const Screen& s : screens) {
        // A screen without a name could not be chosen again by it.
        if (!s.name.isEmpty())
            list.append({ s.name, u"%1 (%2×%3)"_s.arg(s.name).arg(s.geometry.width()).arg(s.geometry.height()) });
    }
    if (!current.isEmpty() && std::ranges::find(list, current, &Choice::value) == list.end())
        list.append({ current, u"%1 (not connected)"_s.arg(current) });
    return list;
}

PlaceMap PlaceMap::fromJson(const QString& text)
{
    PlaceMap map;
    if (text.size() > longestText)
        return map;
    const QJsonObject object = QJsonDocument::fromJson(text.toUtf8()).object();
    QList<std::pair<double, std::pair<QString, Place>>> found;
    for (auto it = object.begin(); it != object.end(); ++it) {
        const QJsonObject entry = it.value().toObject();
        const QJsonValue screen = entry.value(u"screen"_s);
        const QJsonValue x = entry.value(u"x"_s);
        const QJsonValue y = entry.value(u"y"_s);
        const QJsonValue width = entry.value(u"width"_s);
        if (it.key().isEmpty() || it.key().size() > longestKey || !screen.isString() || screen.toString().isEmpty()
            || screen.toString().size() > longestName || !x.isDouble() || !y.isDouble() || !width.isDouble())
            continue;
        const double w = width.toDouble();
        if (!std::isfinite(x.toDouble()) || !std::isfinite(y.toDouble()) || !(w > 0 && w <= widestStored))
            continue;
        const double used = entry.value(u"used"_s).toDouble(0);
        found.append({ std::isfinite(used) ? used : 0.0,
            { it.key(),
                Place { screen.toString(), { clampedFraction(x.toDouble()), clampedFraction(y.toDouble()) }, w } } });
    }
    std::ranges::stable_sort(found, {}, &std::pair<double, std::pair<QString, Place>>::first);
    for (qsizetype i = std::max<qsizetype>(found.size() - maximumSetups, 0); i < found.size(); ++i)
        map.m_entries.append(found[i].second);
    return map;
}

QString PlaceMap::toJson() const
{
    QJsonObject object;
    for (qsizetype i = 0; i < m_entries.size(); ++i) {
        const Place& p = m_entries[i].second;
        object.insert(m_entries[i].first,
            QJsonObject { { u"screen"_s, p.screen }, { u"x"_s, p.position.x() }, { u"y"_s, p.position.y() },
                { u"width"_s, p.width }, { u"used"_s, double(i) } });
    }
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

std::optional<Place> PlaceMap::place(const QString& setup) const
{
    const auto it = std::ranges::find(m_entries, setup, &std::pair<QString, Place>::first);
    return it == m_entries.end() ? std::nullopt : std::optional<Place>(it->second);
}

void PlaceMap::remember(const QString& setup, const Place& place)
{
    forget(setup);
    m_entries.append({ setup, place });
    if (m_entries.size() > maximumSetups)
        m_entries.remove(0, m_entries.size() - maximumSetups);
}

void PlaceMap::forget(const QString& setup)
{
    m_entries.removeIf([&](const std::pair<QString, Place>& entry) { return entry.first == setup; });
}

QStringList PlaceMap::setups() const
{
    QStringList keys;
    for (const auto& entry : m_entries)
        keys << entry.first;
    return keys;
}

} // namespace ScreenPlacement
