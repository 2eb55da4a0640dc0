// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QList>
#include <QPointF>
#include <QRect>
#include <QRectF>
#include <QString>
#include <QStringView>

#include <optional>
#include <utility>

class QScreen;

/**
 * Where the keyboard goes on the connected screens, decided over plain rectangles so that it holds without windows:
 * which screen it shows on, where on that screen, how wide, and the place it had on each set-up of screens.
 *
 * A place on a screen is relative to the screen's available area: its top-left corner as the fraction of the room
 * left beside and below the keyboard (0 flush with the left or top edge, 1 flush with the right or bottom edge), so
 * that a keyboard at the bottom of one screen comes to the bottom of another of a different size.
 */
namespace ScreenPlacement {

/** One connected screen, in Qt's logical pixels. */
struct Screen
{
    QString name;
    QRect geometry;
    /** The part not taken by the desktop's own panels. */
    QRect available;

    bool operator==(const Screen&) const = default;
};

/** The keyboard's place on one set-up. */
struct Place
{
    /** The screen it lies on. */
    QString screen;
    /** Its top-left corner as fractions of the free room on that screen, each 0..1. */
    QPointF position { 0.5, 0.5 };
    /** The width the user gave it; it may show narrower on a screen too small for that. */
    double width = 0;

    bool operator==(const Place&) const = default;
};

/** Set-ups kept in the map; the one unused longest goes first. */
inline constexpr int maximumSetups = 16;

/** The settings' names for the choices that are no screen's name. */
inline constexpr QStringView pointerChoice = u"pointer";
inline constexpr QStringView primaryChoice = u"primary";

/** The screens Qt knows now, leaving out `leaving` (a screen being taken away). */
QList<Screen> connectedScreens(const QScreen* leaving = nullptr);

/** Names a set-up: its screens' names and geometries, in an order that does not depend on the order given. */
QString setupKey(QList<Screen> screens);

/** The index of the screen named `name`, or -1. */
qsizetype indexOf(const QList<Screen>& screens, const QString& name);
/** The screen containing `point`, else the one nearest to it; -1 when there is none. */
qsizetype screenAt(const QList<Screen>& screens, const QPointF& point);
/** The screen holding most of `frame`, else the one nearest to its centre; -1 when there is none. */
qsizetype screenOf(const QList<Screen>& screens, const QRectF& frame);

/**
 * The screen to show on for the setting `choice` ("pointer", "primary" or a screen's name): a named screen that is
 * not connected, like anything unknown, means the screen with the pointer. -1 only when there is no screen.
 */
qsizetype chooseScreen(
    const QList<Screen>& screens, const QString& choice, const QString& primary, const QPointF& pointer);
/**
 * The screen to stay on after the screens changed: the chosen screen when the choice names one (or the primary),
 * else `current` while it is still connected, else as chooseScreen().
 */
qsizetype screenAfterChange(const QList<Screen>& screens, const QString& choice, const QString& current,
    const QString& primary, const QPointF& pointer);

/**
 * The width to show: `wanted` within minimum..maximum, then narrowed until the keyboard (height width / ratio) fits
 * into `area`, below `minimum` if need be.
 */
double fittedWidth(double wanted, const QSizeF& area, double ratio, double minimum, double maximum);
/** `frame` moved (not resized) into `area`; along an axis where it does not fit, it starts at the area's start. */
QRectF clampedInto(const QRectF& frame, const QRectF& area);
/** The frame for `place` on the screen whose available area is `area`: fitted, and inside the area. */
QRectF frameFor(const Place& place, const QRectF& area, double ratio, double minimum, double maximum);
/**
 * The place of `frame` on the screen `screen` with available area `area`, remembering `width`. Where the frame
 * leaves no room to move along an axis, the fraction of `previous` is kept.
 */
Place placeOf(const QRectF& frame, const QString& screen, const QRectF& area, double width, const Place& previous);

/** One entry of the "Show On" choice: the setting's value and what the user reads. */
struct Choice
{
    QString value;
    QString label;

    bool operator==(const Choice&) const = default;
};
/**
 * "Screen with Pointer", "Primary Screen", then each screen by name and size; a chosen screen that is not
 * connected comes last, so the choice still shows.
 */
QList<Choice> choices(const QList<Screen>& screens, const QString& current);

/**
 * The places by set-up, the most recently used last, as kept in the "placesBySetup" setting: a JSON object mapping
 * each set-up key to {"screen", "x", "y", "width", "used"}, "used" ordering the entries by their last use.
 */
class PlaceMap final
{
public:
    /** Reads the setting's text; whatever does not make sense in it (and all of it when it is no JSON) is left out. */
    static PlaceMap fromJson(const QString& text);
    QString toJson() const;

    std::optional<Place> place(const QString& setup) const;
    /** Keeps `place` for `setup` as the most recent entry, dropping the oldest beyond maximumSetups. */
    void remember(const QString& setup, const Place& place);
    void forget(const QString& setup);
    qsizetype size() const { return m_entries.size(); }
    /** The set-up keys, the oldest first. */
    QStringList setups() const;

private:
    QList<std::pair<QString, Place>> m_entries;
};

} // namespace ScreenPlacement
