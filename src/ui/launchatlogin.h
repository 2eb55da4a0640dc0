// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

class SettingsStore;

/**
 * Starts Ordalis at login through an XDG autostart entry, following the "launchAtLogin" setting: every change of
 * the setting writes the entry (on) or removes it (off). When that fails the setting is quietly set back to what it
 * was; nothing is shown or logged.
 *
 * The setting is the record of what the user asked for. Nothing is read back from the autostart folder, at start
 * or later: an entry the user removed by hand stays removed until the switch is turned on again, and an entry left
 * behind with the switch off is removed when the switch is next turned off.
 *
 * Main thread only.
 */
class LaunchAtLogin final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(LaunchAtLogin)

public:
    /** $XDG_CONFIG_HOME/autostart/com.quietmakers.Ordalis.desktop (normally under ~/.config). */
    static QString defaultEntryPath();

    /**
     * Follows "launchAtLogin" in `settings` (which must outlive this) from now on; nothing is written at
     * construction. `executable` is the program the entry starts: empty means the running binary.
     */
    explicit LaunchAtLogin(SettingsStore& settings, const QString& entryPath = defaultEntryPath(),
        const QString& executable = {}, QObject* parent = nullptr);
    ~LaunchAtLogin() override;

    QString entryPath() const { return m_entryPath; }
    QString executable() const { return m_executable; }

    /**
     * Writes the entry (atomically, replacing any entry there) or removes it; true when the autostart folder
     * now holds what was asked for. The setting is not touched.
     */
    bool apply(bool enabled);

    /** The text of the autostart entry that starts `executable`. */
    static QByteArray desktopEntry(const QString& executable);

    /** `program` as the value of a desktop entry's Exec key: quoted, escaped and with % doubled as needed. */
    static QString execValue(const QString& program);

private:
    void onSettingChanged(bool enabled);

    SettingsStore& m_settings;
    QString m_entryPath;
    QString m_executable;
    bool m_reverting = false;
};
