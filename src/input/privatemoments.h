// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <array>
#include <memory>
#include <optional>

class PrivateX11Windows;
class QDBusMessage;
class QDBusPendingCallWatcher;
class SettingsStore;

/** Why keys must not be shown; PrivateMomentWatcher::active() ORs them. */
enum class PrivateMoment : quint8
{
    screenLocked = 1,
    passwordPrompt = 2,
    privateApp = 4
};

namespace PrivateMoments {

/** Entries of privateAppClasses past this many are left out. */
inline constexpr qsizetype maxAppClasses = 200;
/** Longer entries (after trimming) are left out: no real window class comes near. */
inline constexpr qsizetype maxAppClassLength = 256;

/**
 * Whether a window of this WM_CLASS (instance and class) is a password or authentication prompt: polkit agents,
 * gcr-prompter, pinentry, the ssh-askpass family. Letter case does not matter.
 */
bool isPasswordPrompt(QStringView instance, QStringView windowClass);

/**
 * The entry of `appClasses` (trimmed, as the list spells it) that names the instance or the class of a window,
 * without regard to letter case; empty when none does. Empty and overlong entries never match, and only the first
 * maxAppClasses entries are looked at.
 */
QString privateAppMatch(const QStringList& appClasses, QStringView instance, QStringView windowClass);

} // namespace PrivateMoments

/**
 * What PrivateMomentWatcher watches; the defaults are the real ones. (Declared outside the class: a nested type's
 * member defaults cannot serve the default argument of its own class's constructor.)
 */
struct PrivateMomentConnections
{
    /** The buses to watch; none means the real system and session buses. */
    std::optional<QDBusConnection> systemBus, sessionBus;
    /** Whether to watch the X server named by $DISPLAY, on a connection of our own. */
    bool useX11 = true;
};

/**
 * Tells when keys must not be shown: while the session is locked, while a password prompt is open and while a
 * private app (privateAppClasses) has the focus. Each source can be switched off in the settings and then never
 * counts.
 *
 * Everything is followed as it happens, nothing is polled:
 * - the lock through logind's LockedHint of our session (system bus) and the desktop's screen saver
 *   (org.freedesktop.ScreenSaver, org.gnome.ScreenSaver on the session bus); locked when any of them says so, and a
 *   service that goes away counts as unlocked;
 * - prompts through GNOME's keyring prompter names on the session bus and, on X11, the class of every client
 *   window the window manager lists;
 * - the focus through the X server's active window. A Wayland compositor shows nobody the focused window, so private
 *   apps are recognised only on X11 (and for XWayland windows where the compositor keeps _NET_ACTIVE_WINDOW).
 *
 * Calls on D-Bus are asynchronous, with replies overtaken by a signal thrown away. Main thread only.
 */
class PrivateMomentWatcher final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(PrivateMomentWatcher)

public:
    using Connections = PrivateMomentConnections;

    PrivateMomentWatcher(SettingsStore& settings, Connections connections = {}, QObject* parent = nullptr);
    ~PrivateMomentWatcher() override;

    /** Begins watching; no effect the second time. */
    void start();

    /** PrivateMoment bits in force now; sources switched off in the settings never count. */
    quint8 active() const { return m_active; }
    bool isActive(PrivateMoment moment) const { return (m_active & quint8(moment)) != 0; }

    /**
     * Short texts for the tray tooltip, in a fixed order: "screen locked", "password prompt open",
     * "<App> has the focus" (the window class as the setting lists it).
     */
    QStringList reasons() const { return m_reasons; }

signals:
    /** active() or reasons() changed. */
    void changed();

private slots:
    void onSessionPropertiesChanged(
        const QString& interface, const QVariantMap& changedProperties, const QStringList& invalidated);
    void onScreenSaverActiveChanged(bool active, const QDBusMessage& message);

private:
    /** Who can report a lock: logind, then the screen saver objects in screenSaverObjects order. */
    static constexpr int lockSourceCount = 4;
    static constexpr int logindSource = 0;

    void watchLogind();
    void lookUpSession();
    void onSessionReply(QDBusPendingCallWatcher* watcher, quint64 generation, bool byPid);
    void followSession(const QString& path);
    void forgetSession();
    void requestLockedHint();

    void watchScreenSavers();
    void requestScreenSaverActive(int source);

    void watchPrompters();

    void setLocked(int source, bool locked);
    /** Works out active() and reasons() afresh; emits changed() when either differs. */
    void update();

    SettingsStore& m_settings;
    QDBusConnection m_systemBus;
    QDBusConnection m_sessionBus;
    bool m_useX11 = true;
    bool m_started = false;

    std::array<bool, lockSourceCount> m_locked {};
    /** Counts the news per lock source, so that an answer asked for before the latest news is dropped. */
    std::array<quint64, lockSourceCount> m_lockNews {};
    QString m_sessionPath;

    /** Prompter names with an owner, and the news counted per name as for the lock sources. */
    QHash<QString, bool> m_prompterOwned;
    QHash<QString, quint64> m_prompterNews;

    std::unique_ptr<PrivateX11Windows> m_x11;

    quint8 m_active = 0;
    QStringList m_reasons;
};
