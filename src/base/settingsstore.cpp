// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/settingsstore.h"

#include "base/jsonsettingsformat.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSettings>
#include <QStandardPaths>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <limits>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

bool isNumber(const QVariant& v)
{
    switch (v.typeId()) {
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return true;
    default:
        return false;
    }
}


/** Whether the lock file open as `fd` was left by a process that is gone. */
bool isAbandonedLock(int fd)
{
    struct stat status = {};
    if (::fstat(fd, &status) != 0)
        return false;
    if (status.st_size == 0) {
        // Killed between creating the file and writing to it, or alive and about to write: a live process does
        // that within microseconds, so look again a moment later, and stay off its flock meanwhile.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        if (::fstat(fd, &status) != 0)
            return false;
    }
    // A live holder keeps an flock on its lock file from before writing to it until it removes it.
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0)
        return false;
    if (status.st_size == 0)
        return true;
    // The first line is the holder's process id.
    QByteArray text(64, '\0');
    const ssize_t length = ::pread(fd, text.data(), size_t(text.size()), 0);
    const qint64 pid = length > 0 ? text.left(text.indexOf('\n')).toLongLong() : 0;
    return pid > 0 && ::kill(pid_t(pid), 0) != 0 && errno == ESRCH;
}

/**
 * QSettings guards each save with a lock file (QLockFile), and with "<lock>.rmlock" while it removes a lock whose
 * holder is gone. A process killed between creating either and writing its id into it leaves an empty file, for
 * which QSettings waits 30 s, blocking the event loop, before the next save; and each removal killed half-way
 * leaves another file behind. Such files are removed before QSettings gets to them.
 */
void removeAbandonedLocks(const QString& filePath)
{
    QStringList chain;
    for (QString name = filePath + u".lock"_s; QFileInfo::exists(name) && chain.size() < 8; name += u".rmlock"_s)
        chain.prepend(name);
    for (const QString& name : std::as_const(chain)) {
        const QByteArray path = QFile::encodeName(name);
        const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            continue;
        if (isAbandonedLock(fd))
            ::unlink(path.constData());
        ::close(fd);
    }
}

} // namespace

bool SettingCodecs::isString(const QVariant& v)
{
    return v.typeId() == QMetaType::QString;
}

std::optional<bool> SettingCodec<bool>::decode(const QVariant& stored)
{
    if (stored.typeId() != QMetaType::Bool)
        return std::nullopt;
    return stored.toBool();
}

std::optional<double> SettingCodec<double>::decode(const QVariant& stored)
{
    if (!isNumber(stored))
        return std::nullopt;
    const double value = stored.toDouble();
    if (!std::isfinite(value))
        return std::nullopt;
    return value;
}

QVariant SettingCodec<std::uint64_t>::encode(std::uint64_t value)
{
    if (value <= static_cast<std::uint64_t>(std::numeric_limits<qint64>::max()))
        return QVariant::fromValue(static_cast<qint64>(value));
    return QVariant::fromValue(static_cast<qulonglong>(value));
}

std::optional<std::uint64_t> SettingCodec<std::uint64_t>::decode(const QVariant& stored)
{
    switch (stored.typeId()) {
    case QMetaType::Int:
    case QMetaType::LongLong: {
        const qint64 value = stored.toLongLong();
        if (value < 0)
            return std::nullopt;
        return static_cast<std::uint64_t>(value);
    }
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        return static_cast<std::uint64_t>(stored.toULongLong());
    case QMetaType::Double: {
        // JSON readers hand large or written-with-exponent integers over as doubles.
        const double value = stored.toDouble();
        constexpr double limit = 18446744073709551616.0; // 2^64
        if (!std::isfinite(value) || value < 0 || value >= limit || std::trunc(value) != value)
            return std::nullopt;
        return static_cast<std::uint64_t>(value);
    }
    default:
        return std::nullopt;
    }
}

std::optional<QString> SettingCodec<QString>::decode(const QVariant& stored)
{
    if (!SettingCodecs::isString(stored))
        return std::nullopt;
    return stored.toString();
}

std::optional<QStringList> SettingCodec<QStringList>::decode(const QVariant& stored)
{
    if (stored.typeId() != QMetaType::QVariantList && stored.typeId() != QMetaType::QStringList)
        return std::nullopt;
    QStringList texts;
    for (const QVariant& element : stored.toList()) {
        if (SettingCodecs::isString(element))
            texts.append(element.toString());
    }
    return texts;
}

std::optional<std::optional<double>> SettingCodec<std::optional<double>>::decode(const QVariant& stored)
{
    std::optional<double> number = SettingCodec<double>::decode(stored);
    if (!number)
        return std::nullopt;
    return std::optional<double>(*number);
}

SettingsStore::SettingsStore(const QString& filePath, QObject* parent, Clock* clock)
    : QObject(parent)
    , m_filePath(QFileInfo(filePath).absoluteFilePath())
    , m_ownClock(clock ? nullptr : std::make_unique<SystemClock>())
    , m_clock(clock ? clock : m_ownClock.get())
{
    QDir().mkpath(QFileInfo(m_filePath).absolutePath());
    openSettings();
    syncAndRecover();
    watchFile();
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, this, [this] {
        watchFile();
        reload();
    });
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, [this] {
        watchFile();
        reload();
    });
    // Quitting by the menu, a signal or the session ending all pass here; destruction may come too late for a
    // process that exits without unwinding.
    if (QCoreApplication* application = QCoreApplication::instance())
        connect(application, &QCoreApplication::aboutToQuit, this, &SettingsStore::flush);
}

SettingsStore::~SettingsStore()
{
    flush();
}

void SettingsStore::flush()
{
    if (m_pendingWrite == 0)
        return;
    m_clock->cancel(m_pendingWrite);
    m_pendingWrite = 0;
    syncAndRecover();
    announceChanges();
}

QString SettingsStore::defaultFilePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + u"/ordalis/settings.json"_s;
}

bool SettingsStore::hasStoredEntry(const QString& name) const
{
    return m_settings->contains(name);
}

QVariant SettingsStore::registeredDefault(const QString& name) const
{
    return m_registered.value(name).encodedDefault;
}

void SettingsStore::reload()
{
    // sync() writes what is pending along with reading, so nothing stays pending.
    if (m_pendingWrite != 0) {
        m_clock->cancel(m_pendingWrite);
        m_pendingWrite = 0;
    }
    syncAndRecover();
    announceChanges();
}

void SettingsStore::registerKey(const QString& name, Registration registration) const
{
    const QVariant stored = storedValue(name);
    m_observed.insert(name, Observed { stored, registration.canonical(stored) });
    m_registered.insert(name, std::move(registration));
}

QVariant SettingsStore::storedValue(const QString& name) const
{
    return m_settings->value(name);
}

void SettingsStore::writeStoredValue(const QString& name, const QVariant& stored)
{
    if (stored.isValid())
        m_settings->setValue(name, stored);
    else
        m_settings->remove(name);
    announceChanges();
    if (m_pendingWrite == 0)
        m_pendingWrite = m_clock->schedule(writeDelay, this, [this] {
            m_pendingWrite = 0;
            syncAndRecover();
            announceChanges();
        });
}

void SettingsStore::openSettings()
{
    m_settings = std::make_unique<QSettings>(m_filePath, JsonSettingsFormat::format());
    m_settings->setFallbacksEnabled(false);
}

bool SettingsStore::syncAndRecover()
{
    removeAbandonedLocks(m_filePath);
    m_settings->sync();
    if (m_settings->status() != QSettings::FormatError)
        return true;

    // The file does not parse. Keep it for the user under a new name instead of writing over it, and carry on
    // with the defaults plus whatever this process has just written.
    QVariantMap pending;
    const QStringList keys = m_settings->allKeys();
    for (const QString& key : keys)
        pending.insert(key, m_settings->value(key));
    m_settings.reset();

    const QString stamp = QDateTime::currentDateTime().toString(u"yyyyMMdd-HHmmss"_s);
    QString movedTo = m_filePath + u".unreadable-"_s + stamp;
    for (int n = 2; QFile::exists(movedTo); ++n)
        movedTo = m_filePath + u".unreadable-"_s + stamp + u'-' + QString::number(n);
    const bool moved = QFile::rename(m_filePath, movedTo);

    openSettings();
    for (auto it = pending.cbegin(); it != pending.cend(); ++it)
        m_settings->setValue(it.key(), it.value());
    m_settings->sync();
    if (moved) {
        // Said here and not only by the signal: the file is usually found unreadable while the store is being
        // constructed, before anyone could connect to it.
        qWarning("Ordalis: the settings file %s could not be read. It was kept as %s, and the default settings are "
                 "used.",
            qPrintable(QDir::toNativeSeparators(m_filePath)), qPrintable(QDir::toNativeSeparators(movedTo)));
        m_movedAside = movedTo;
        emit unreadableFileMovedAside(movedTo);
    }
    return false;
}

void SettingsStore::announceChanges()
{
    QStringList changed;
    for (auto it = m_observed.begin(); it != m_observed.end(); ++it) {
        const QVariant stored = storedValue(it.key());
        if (stored == it->stored)
            continue;
        it->stored = stored;
        QVariant canonical = m_registered.value(it.key()).canonical(stored);
        if (canonical == it->canonical)
            continue;
        it->canonical = std::move(canonical);
        changed.append(it.key());
    }
    for (const QString& name : std::as_const(changed))
        emit valueChanged(name);
}

void SettingsStore::watchFile()
{
    const QString directory = QFileInfo(m_filePath).absolutePath();
    if (!m_watcher.directories().contains(directory))
        m_watcher.addPath(directory);
    // Saving replaces the file, which ends a watch on the old one; watch the new one again.
    if (QFile::exists(m_filePath) && !m_watcher.files().contains(m_filePath))
        m_watcher.addPath(m_filePath);
}
