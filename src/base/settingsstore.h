// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once


#include "base/clock.h"

#include <QFileSystemWatcher>
#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

class QSettings;

/**
 * How a value type is kept in the settings file. decode() is strict: a stored value of another type, or text that
 * does not decode, gives no value and the reader falls back to the key's default.
 */
template<typename T>
struct SettingCodec;

namespace SettingCodecs {
/** Whether a stored value is text (numbers and lists never read as text). */
bool isString(const QVariant& stored);
} // namespace SettingCodecs

template<>
struct SettingCodec<bool>
{
    static QVariant encode(bool value) { return value; }
    static std::optional<bool> decode(const QVariant& stored);
};

template<>
struct SettingCodec<double>
{
    static QVariant encode(double value) { return value; }
    /** Any finite JSON number. */
    static std::optional<double> decode(const QVariant& stored);
};

template<>
struct SettingCodec<std::uint64_t>
{
    static QVariant encode(std::uint64_t value);
    /** A non-negative whole number that fits 64 bits. */
    static std::optional<std::uint64_t> decode(const QVariant& stored);
};

template<>
struct SettingCodec<QString>
{
    static QVariant encode(const QString& value) { return value; }
    static std::optional<QString> decode(const QVariant& stored);
};

template<>
struct SettingCodec<QStringList>
{
    static QVariant encode(const QStringList& value) { return value; }
    /** A list; elements that are not text are left out. */
    static std::optional<QStringList> decode(const QVariant& stored);
};

template<>
struct SettingCodec<std::optional<double>>
{
    /** None is kept as no entry at all. */
    static QVariant encode(const std::optional<double>& value) { return value ? QVariant(*value) : QVariant(); }
    static std::optional<std::optional<double>> decode(const QVariant& stored);
};

/** A typed settings key: the entry name, its value type and the value read when there is no usable entry. */
template<typename T>
class SettingKey final
{
public:
    using Value = T;

    SettingKey(QString name, T defaultValue)
        : m_name(std::move(name))
        , m_default(std::move(defaultValue))
    {
    }

    const QString& name() const { return m_name; }
    const T& defaultValue() const { return m_default; }

private:
    QString m_name;
    T m_default;
};

/**
 * The user's settings, kept in one JSON file through QSettings, read and written only through typed keys.
 *
 * Defaults live in a registration layer in memory and never reach the file. Reads always go to the store (the file
 * is re-read when it changes on disk). Writes take effect at once for every reader in this process and reach the
 * file at most writeDelay seconds later, so a slider dragged through a hundred values writes the file a few times,
 * not a hundred; anything still pending is written by flush(), on quitting and when the store is destroyed. valueChanged fires once per key whose value really changed, whoever changed
 * it: this process, or another process or the user editing the file. Main thread only.
 */
class SettingsStore final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SettingsStore)

public:
    /** How long a write may wait for others to join it before the file is written, in seconds. */
    static constexpr double writeDelay = 0.3;

    /**
     * Opens (or will create) the settings file at `filePath`. Pending writes wait on `clock` (the real time when
     * null).
     */
    explicit SettingsStore(const QString& filePath, QObject* parent = nullptr, Clock* clock = nullptr);
    ~SettingsStore() override;

    /** $XDG_CONFIG_HOME/ordalis/settings.json (normally ~/.config/ordalis/settings.json). */
    static QString defaultFilePath();

    QString filePath() const { return m_filePath; }
    /**
     * Where the last settings file that could not be read was moved, or empty when none was. The file is usually
     * found unreadable while the store is made, before anyone could connect to unreadableFileMovedAside().
     */
    QString movedAsideFile() const { return m_movedAside; }

    /** The stored value, or the key's default when there is no entry or it does not decode (it is not rewritten). */
    template<typename T>
    T value(const SettingKey<T>& key) const
    {
        ensureRegistered(key);
        if (std::optional<T> decoded = SettingCodec<T>::decode(storedValue(key.name())))
            return std::move(*decoded);
        return key.defaultValue();
    }

    /** Stores `value` (an empty optional removes the entry); the file follows within writeDelay. */
    template<typename T>
    void setValue(const SettingKey<T>& key, const T& value)
    {
        ensureRegistered(key);
        writeStoredValue(key.name(), SettingCodec<T>::encode(value));
    }

    /** Removes the entry, so reads give the default again. */
    template<typename T>
    void remove(const SettingKey<T>& key)
    {
        ensureRegistered(key);
        writeStoredValue(key.name(), QVariant());
    }

    /**
     * Calls `onChange(value)` whenever the value of `key` changes, for as long as `context` lives.
     * Nothing is called for the current value.
     */
    template<typename T, typename F>
    QMetaObject::Connection bind(const SettingKey<T>& key, const QObject* context, F&& onChange)
    {
        ensureRegistered(key);
        return connect(this, &SettingsStore::valueChanged, context,
            [this, key, callback = std::forward<F>(onChange)](const QString& name) {
                if (name == key.name())
                    callback(value(key));
            });
    }

    /** Whether the file itself has an entry for `name` (registered defaults never count). */
    bool hasStoredEntry(const QString& name) const;

    /** The encoded default registered for `name`; invalid when nothing is registered. */
    QVariant registeredDefault(const QString& name) const;

    /** Re-reads the file now and announces every key whose value changed. Also runs when the file changes. */
    void reload();

    /** Writes pending changes to the file now. */
    void flush();

    /** Whether changes are waiting to be written. */
    bool hasPendingWrites() const { return m_pendingWrite != 0; }

signals:
    /** A key's value changed; `name` is the key's entry name. */
    void valueChanged(const QString& name);

    /**
     * The settings file could not be read at all; it was moved to `movedTo` and the defaults are in use.
     * Emitted once per such file.
     */
    void unreadableFileMovedAside(const QString& movedTo);

private:
    struct Registration
    {
        QVariant encodedDefault;
        // Decodes a stored value and encodes it again, or gives the encoded default: two stored forms with the
        // same meaning compare equal this way.
        std::function<QVariant(const QVariant&)> canonical;
    };

    struct Observed
    {
        QVariant stored;
        QVariant canonical;
    };

    template<typename T>
    void ensureRegistered(const SettingKey<T>& key) const
    {
        if (m_registered.contains(key.name()))
            return;
        QVariant encodedDefault = SettingCodec<T>::encode(key.defaultValue());
        auto canonical = [encodedDefault](const QVariant& stored) {
            if (std::optional<T> decoded = SettingCodec<T>::decode(stored))
                return SettingCodec<T>::encode(*decoded);
            return encodedDefault;
        };
        registerKey(key.name(), Registration { std::move(encodedDefault), std::move(canonical) });
    }

    void registerKey(const QString& name, Registration registration) const;
    QVariant storedValue(const QString& name) const;
    void writeStoredValue(const QString& name, const QVariant& stored);
    void openSettings();
    bool syncAndRecover();
    void announceChanges();
    void watchFile();

    QString m_filePath;
    QString m_movedAside;
    std::unique_ptr<SystemClock> m_ownClock;
    Clock* m_clock = nullptr;
    Clock::JobHandle m_pendingWrite = 0;
    std::unique_ptr<QSettings> m_settings;
    QFileSystemWatcher m_watcher;
    mutable QHash<QString, Registration> m_registered;
    mutable QHash<QString, Observed> m_observed;
};
