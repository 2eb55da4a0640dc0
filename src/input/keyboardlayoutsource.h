// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/xkblayout.h"

#include <QByteArrayView>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringView>

#include <memory>
#include <optional>
#include <utility>

/** The XKB layouts the user switches between and which of them is in use. */
struct ActiveKeyboardLayouts
{
    /** In group order; never empty once known. */
    QList<XkbLayout> layouts;
    /** Index into layouts (clamped to range). */
    int current = 0;
    /** XKB model, e.g. "pc105"; empty for the default. */
    QString model;
    /** XKB options, e.g. "grp:alt_shift_toggle"; may be empty. */
    QString options;

    /** layouts[current], or us when there are none. */
    XkbLayout currentLayout() const;

    friend bool operator==(const ActiveKeyboardLayouts&, const ActiveKeyboardLayouts&) = default;
};

/** Where the session's keyboard layouts are read from; follows them while they change. */
class KeyboardLayoutSource : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(KeyboardLayoutSource)

public:
    explicit KeyboardLayoutSource(QObject* parent = nullptr)
        : QObject(parent)
    {
    }

    virtual ActiveKeyboardLayouts layouts() const = 0;
    /** Short name of where layouts come from, for diagnostics: "x11", "gnome", "kde", "locale1",
     *  "default-keyboard", "fallback". */
    virtual QString origin() const = 0;

signals:
    /** Emitted only when layouts() actually changed. */
    void changed();
};

/**
 * Picks the best source for this session. On X11 the X server. On Wayland GNOME's settings, then KDE's keyboard
 * service, then org.freedesktop.locale1, then /etc/default/keyboard, then XWayland's names (which describe its
 * startup keymap rather than the compositor's, so they come last), then a fixed us.
 */
std::unique_ptr<KeyboardLayoutSource> createKeyboardLayoutSource(bool waylandSession, QObject* parent = nullptr);

/** A source that holds what it is given; emits changed() when a different value is set. */
class StoredLayoutSource : public KeyboardLayoutSource
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(StoredLayoutSource)

public:
    StoredLayoutSource(QString origin, ActiveKeyboardLayouts initial, QObject* parent = nullptr);

    ActiveKeyboardLayouts layouts() const override { return m_layouts; }
    QString origin() const override { return m_origin; }

protected:
    /** Stores `layouts` (made valid) and emits changed() if that differs from before. */
    void publish(ActiveKeyboardLayouts layouts);

private:
    QString m_origin;
    ActiveKeyboardLayouts m_layouts;
};

/** Turns the names the various sources hand out into layouts, skipping any that are no valid XKB names. */
namespace KeyboardLayoutNames {

/** Valid layouts, with the position each had in the source's list, which is what group numbers count. */
struct Parsed
{
    QList<XkbLayout> layouts;
    QList<int> positions;

    /** Index in layouts of the source's position; 0 for a position that was skipped or is out of range. */
    int indexOf(int position) const;
    void add(std::optional<XkbLayout> layout, int position);
};

/** The comma lists of setxkbmap and friends: "us,de" with ",nodeadkeys" gives us, de(nodeadkeys). */
Parsed fromLists(QStringView layouts, QStringView variants);
/** GNOME's input sources, (type, id) pairs: ('xkb', 'de+nodeadkeys'); other types are left out. */
Parsed fromGnomeSources(const QList<std::pair<QString, QString>>& sources);
/** The position in `sources` of the first xkb entry of `mru` that `sources` has; none without one. */
std::optional<int> gnomeCurrent(
    const QList<std::pair<QString, QString>>& sources, const QList<std::pair<QString, QString>>& mru);

/** A model name, or empty for an invalid one. */
QString validModel(QStringView model);
/** An options list such as "grp:alt_shift_toggle,ctrl:nocaps", or empty for an invalid one. */
QString validOptions(QStringView options);

/** The result of a parse: us when nothing valid was found, current mapped from the source's position. */
ActiveKeyboardLayouts assemble(const Parsed& parsed, int position, QStringView model, QStringView options);

/** The root window property _XKB_RULES_NAMES: rules, model, layouts, variants, options, each ended by NUL. */
struct XkbRulesNames
{
    QString rules;
    QString model;
    QString layouts;
    QString variants;
    QString options;

    static XkbRulesNames fromProperty(QByteArrayView property);
    ActiveKeyboardLayouts at(int group) const { return assemble(fromLists(layouts, variants), group, model, options); }
};

/** Debian's /etc/default/keyboard contents: XKBLAYOUT="us,de" and friends; none without XKBLAYOUT. */
std::optional<ActiveKeyboardLayouts> fromDefaultKeyboard(QByteArrayView contents);

} // namespace KeyboardLayoutNames
