// SPDX-License-Identifier: GPL-3.0-or-later
// A hand-edited settings file of arbitrary bytes, read back through every settings key. Each key reads its default
// or a value that survives storing it again; a file that is not JSON is kept, byte for byte, beside the new one;
// and writing one key changes what no other key reads.
#include "fuzzsupport.h"

#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "ui/updatermanager.h"
#include "theme/themestyle.h"
#include "../testsupport.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QSet>
#include <QTemporaryDir>

#include <tuple>

using namespace Qt::StringLiterals;

namespace {

auto allKeys()
{
    using namespace SettingKeys;
    return std::tie(activeThemeConfig(), activeThemeName(), savedThemes(), showOnScreenRecording(),
        hideOnScreenRecordingEnd(), launchAtLogin(), triggerModifier(), enableGlobalHotkey(), hyperKeyModifiers(),
        hyperKeyShowAsCapsLock(), glowDecay(), autoHideOnHover(), autoHideOpacity(), escapeToHideOnHover(),
        keyboardVisible(), windowX(), windowY(), windowWidth(), automaticallyChecksForUpdates(), updateCheckInterval(),
        lastUpdateCheckTime());
}

using Values = std::tuple<ThemeConfig, QString, QList<NamedTheme>, bool, bool, bool, TriggerModifier, bool,
    std::uint64_t, bool, double, bool, double, bool, bool, std::optional<double>, std::optional<double>, double, bool,
    double, std::optional<double>>;

// Where some values sit in Values, which follows the order of allKeys().
constexpr std::size_t activeThemeConfigAt = 0;
constexpr std::size_t savedThemesAt = 2;
constexpr std::size_t windowWidthAt = 17;
constexpr std::size_t updateCheckIntervalAt = 19;

Values readAll(const SettingsStore& settings)
{
    return std::apply([&](const auto&... key) { return Values { settings.value(key)... }; }, allKeys());
}

template <typename T> void checkStoredForm(const SettingsStore& settings, const SettingKey<T>& key)
{
    const T value = settings.value(key);
    if (!settings.hasStoredEntry(key.name()))
        FUZZ_CHECK(value == key.defaultValue());
    // Whatever was read is stored and read again as the same value.
    const std::optional<T> again = SettingCodec<T>::decode(SettingCodec<T>::encode(value));
    if constexpr (std::is_same_v<T, std::optional<double>>) {
        // None is kept as no entry, which reads as "no value" and so as the default (also none).
        FUZZ_CHECK(value ? again && *again == value : !again.has_value());
    } else {
        FUZZ_CHECK(again && *again == value);
    }
}

// What the program derives from the values it reads must stay defined whatever the file held.
void useValues(const Values& values)
{
    const ThemeStyle style(std::get<activeThemeConfigAt>(values));
    (void)style.scaled(60);
    for (const NamedTheme& theme : std::get<savedThemesAt>(values))
        (void)ThemeStyle(theme.config).scaled(60);
    (void)UpdateCheckIntervals::fromSeconds(std::get<updateCheckIntervalAt>(values));
}

bool isJsonObject(const QByteArray& text)
{
    QJsonParseError error {};
    return QJsonDocument::fromJson(text, &error).isObject() && error.error == QJsonParseError::NoError;
}

QString nextPath(const QTemporaryDir& dir)
{
    // A new name for every input: QSettings caches files by path and would not notice a rewrite of the same size
    // within the file system's timestamp resolution.
    static quint64 counter = 0;
    return dir.filePath(u"settings-%1.json"_s.arg(++counter));
}

void removeAll(const QTemporaryDir& dir)
{
    QDir folder(dir.path());
    for (const QString& name : folder.entryList(QDir::Files))
        folder.remove(name);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzSupport::ensureApplication();
    static QTemporaryDir dir;
    const QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));
    const QString path = nextPath(dir);
    {
        QFile file(path);
        FUZZ_CHECK(file.open(QIODevice::WriteOnly) && file.write(input) == input.size());
    }

    {
        SettingsStore settings(path);
        const QStringList movedAside = QDir(dir.path()).entryList({ QFileInfo(path).fileName() + u".unreadable-*"_s });
        // QSettings does not read an empty file at all, so that is not unreadable but empty.
        FUZZ_CHECK(movedAside.isEmpty() == (input.isEmpty() || isJsonObject(input)));
        if (!movedAside.isEmpty()) {
            // Unreadable: kept as it was under another name, and every key reads its default.
            FUZZ_CHECK(movedAside.size() == 1);
            QFile kept(dir.filePath(movedAside.first()));
            FUZZ_CHECK(kept.open(QIODevice::ReadOnly) && kept.readAll() == input);
        }
        std::apply([&](const auto&... key) { (checkStoredForm(settings, key), ...); }, allKeys());
        const Values before = readAll(settings);
        QSet<QString> stored;
        for (const QString& name : TestSupport::allSettingNames()) {
            if (settings.hasStoredEntry(name))
                stored.insert(name);
        }
        useValues(before);

        // Another key written by this process leaves every other value as it was, also as read from the file that
        // was written (a copy under a new name, so that nothing cached stands in for it).
        const double width = std::get<windowWidthAt>(before) + 1;
        settings.setValue(SettingKeys::windowWidth(), width);
        settings.flush();
        const QString copy = nextPath(dir);
        FUZZ_CHECK(QFile::copy(path, copy));
        SettingsStore reopened(copy);
        for (const SettingsStore* store : { &settings, &reopened }) {
            Values after = readAll(*store);
            FUZZ_CHECK(std::get<windowWidthAt>(after) == width);
            std::get<windowWidthAt>(after) = std::get<windowWidthAt>(before);
            FUZZ_CHECK(after == before);
            // Entries that do not decode are kept too, not dropped or replaced by defaults.
            for (const QString& name : TestSupport::allSettingNames()) {
                const bool expected = stored.contains(name) || name == SettingKeys::windowWidth().name();
                FUZZ_CHECK(store->hasStoredEntry(name) == expected);
            }
        }
    }
    removeAll(dir);
    return 0;
}
