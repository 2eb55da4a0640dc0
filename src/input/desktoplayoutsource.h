// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/keyboardlayoutsource.h"

#include <QDBusConnection>
#include <QFileSystemWatcher>
#include <QVariantMap>

#include <memory>

class QDBusPendingCallWatcher;

/**
 * GNOME's input sources from GSettings (org.gnome.desktop.input-sources): the xkb entries of `sources`, the first
 * of them in `mru-sources` as the current one, and `xkb-options`. Follows changes as GSettings reports them, which
 * needs Qt's GLib event loop.
 */
class GnomeLayoutSource final : public StoredLayoutSource
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(GnomeLayoutSource)

public:
    /** Null without the schema, and also when the desktop is not GNOME and no xkb source is set. */
    static std::unique_ptr<GnomeLayoutSource> create(const QString& currentDesktop, QObject* parent = nullptr);
    ~GnomeLayoutSource() override;

private:
    struct Settings;

    GnomeLayoutSource(std::unique_ptr<Settings> settings, QObject* parent);
    ActiveKeyboardLayouts read() const;

    std::unique_ptr<Settings> m_settings;
};

/**
 * KDE Plasma's keyboard service (org.kde.keyboard, /Layouts): the layout list and the index of the current one,
 * followed through its layoutChanged and layoutListChanged signals. Every call is asynchronous; until the first
 * answers arrive layouts() is us. When the service goes away the last layouts stay.
 */
class KdeLayoutSource final : public StoredLayoutSource
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(KdeLayoutSource)

public:
    /** Null when nobody owns org.kde.keyboard on `bus` (asked with a short timeout). */
    static std::unique_ptr<KdeLayoutSource> create(const QDBusConnection& bus, QObject* parent = nullptr);

private slots:
    void onLayoutChanged(uint index);
    void onLayoutListChanged();

private:
    KdeLayoutSource(const QDBusConnection& bus, QObject* parent);
    void requestIndex();
    void onIndexReply(QDBusPendingCallWatcher* watcher, quint64 generation);
    void onListReply(QDBusPendingCallWatcher* watcher);
    void publishPosition(int position);

    QDBusConnection m_bus;
    KeyboardLayoutNames::Parsed m_parsed;
    int m_position = 0;
    /** Counts index signals, so that an index asked for before one of them does not undo it. */
    quint64 m_indexGeneration = 0;
};

/** systemd's org.freedesktop.locale1: the system-wide X11 keyboard settings; the first layout counts as current. */
class Locale1LayoutSource final : public StoredLayoutSource
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Locale1LayoutSource)

public:
    /** Null when the service does not answer within a short timeout or names no layout. */
    static std::unique_ptr<Locale1LayoutSource> create(const QDBusConnection& bus, QObject* parent = nullptr);

private slots:
    void onPropertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList& invalidated);

private:
    Locale1LayoutSource(const QDBusConnection& bus, const QVariantMap& properties, QObject* parent);
    void apply(const QVariantMap& properties);
    void requestAll();

    QDBusConnection m_bus;
    QVariantMap m_properties;
};

/** Debian's /etc/default/keyboard (or another file in its format), read again whenever it changes. */
class DefaultKeyboardLayoutSource final : public StoredLayoutSource
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(DefaultKeyboardLayoutSource)

public:
    static QString systemPath();
    /** Null when the file cannot be read or sets no XKBLAYOUT. */
    static std::unique_ptr<DefaultKeyboardLayoutSource> create(const QString& path, QObject* parent = nullptr);

private:
    DefaultKeyboardLayoutSource(QString path, ActiveKeyboardLayouts initial, QObject* parent);
    void reread();

    QString m_path;
    QFileSystemWatcher m_watcher;
};
