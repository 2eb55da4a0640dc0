// SPDX-License-Identifier: GPL-3.0-or-later
#include "testsupport.h"
#include "base/clock.h"
#include "base/settingkeys.h"
#include "input/triggermodifier.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "theme/themejson.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// The names of the keys whose value does not read as their default.
QStringList notDefault(const SettingsStore& store)
{
    QStringList names;
    const auto check = [&](const auto& key) {
        using Codec = SettingCodec<typename std::decay_t<decltype(key)>::Value>;
        if (Codec::encode(store.value(key)) != Codec::encode(key.defaultValue()))
            names << key.name();
    };
    const auto checkAll = [&](const auto&... keys) { (check(keys), ...); };
    using namespace SettingKeys;
    checkAll(activeThemeConfig(), activeThemeName(), savedThemes(), showOnScreenRecording(), hideOnScreenRecordingEnd(),
        launchAtLogin(), triggerModifier(), enableGlobalHotkey(), hyperKeyModifiers(), hyperKeyShowAsCapsLock(),
        glowDecay(), autoHideOnHover(), autoHideOpacity(), escapeToHideOnHover(), keyboardVisible(), windowX(),
        windowY(), windowWidth());
    return names;
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestSettingsStore final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void defaultsNeverReachTheFile();
    void storedForms();
    void undecodableEntriesReadAsDefaultAndStayUntouched_data();
    void undecodableEntriesReadAsDefaultAndStayUntouched();
    void themeListSkipsBadElements();
    void changesAreAnnouncedOnlyWhenTheValueChanges();
    void unreadableFileIsMovedAsideNotOverwritten();
    void writesReachTheFileTogetherWithinTheDelay();

private:
    QString path() const { return m_dir->filePath(u"ordalis/settings.json"_s); }
    QJsonObject fileObject() const { return QJsonDocument::fromJson(readAll(path())).object(); }
    void writeFile(const QByteArray& text) const;

    std::unique_ptr<QTemporaryDir> m_dir;
    ManualClock m_clock;
};

void TestSettingsStore::writeFile(const QByteArray& text) const
{
    QDir().mkpath(QFileInfo(path()).absolutePath());
    QFile file(path());
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(text);
}

void TestSettingsStore::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void TestSettingsStore::defaultsNeverReachTheFile()
{
    SettingsStore store(path(), nullptr, &m_clock);
    QCOMPARE(notDefault(store), QStringList());
    // Defaults sit in the registration layer only: nothing of them reaches the file, even after a write.
    store.setValue(SettingKeys::glowDecay(), 0.3);
    store.setValue(SettingKeys::windowX(), std::optional<double>(-120.5));
    store.setValue(SettingKeys::windowX(), std::optional<double>()); // an empty optional removes the entry
    QCOMPARE(notDefault(store), QStringList { u"glowDecay"_s });
    store.flush();
    QCOMPARE(fileObject().keys(), QStringList { u"glowDecay"_s });
    QCOMPARE(store.registeredDefault(u"triggerModifier"_s), QVariant(u"\"leftControl\""_s));
    QVERIFY(!store.registeredDefault(u"windowX"_s).isValid());
    // No JSON file holds numbers that are not finite, but should another writer produce them, they read as defaults.
    QVERIFY(!SettingCodec<double>::decode(qQNaN()));
}

void TestSettingsStore::storedForms()
{
    ThemeConfig config = builtInThemes().at(4).config;
    config.keySpacing = 0.1 + 0.2; // needs all 17 digits to survive
    {
        SettingsStore store(path());
        store.setValue(SettingKeys::activeThemeConfig(), config);
        store.setValue(SettingKeys::triggerModifier(), TriggerModifier::fn);
        store.setValue(SettingKeys::savedThemes(), builtInThemes().mid(0, 2));
        store.setValue(SettingKeys::hyperKeyModifiers(), std::uint64_t(0x1e0000));
    }
    // Themes are kept as compact JSON text, one string each.
    const QJsonObject file = fileObject();
    QCOMPARE(file.value(u"triggerModifier"_s).toString(), u"\"fn\""_s);
    QCOMPARE(file.value(u"activeThemeConfig"_s).toString().toUtf8(), ThemeJson::encodeConfig(config));
    QCOMPARE(file.value(u"savedThemes"_s).toArray().at(1).toString().toUtf8(),
        ThemeJson::encodeNamedTheme(builtInThemes().at(1)));

    SettingsStore reopened(path());
    QCOMPARE(reopened.value(SettingKeys::activeThemeConfig()), config);
    QCOMPARE(reopened.value(SettingKeys::triggerModifier()), TriggerModifier::fn);
    QCOMPARE(reopened.value(SettingKeys::savedThemes()), builtInThemes().mid(0, 2));
    QCOMPARE(reopened.value(SettingKeys::hyperKeyModifiers()), std::uint64_t(0x1e0000));
}

void TestSettingsStore::undecodableEntriesReadAsDefaultAndStayUntouched_data()
{
    QTest::addColumn<QByteArray>("entry");
    QTest::newRow("A number kept as text") << QByteArray(R"("glowDecay": "0.5")");
    QTest::newRow("A number where a switch belongs") << QByteArray(R"("showOnScreenRecording": 0)");
    QTest::newRow("A theme as an object instead of text") << QByteArray(R"("activeThemeConfig": {"chassisHue": 1})");
    QTest::newRow("A trigger in the wrong letter case") << QByteArray(R"("triggerModifier": "\"FN\"")");
    QTest::newRow("A trigger followed by junk") << QByteArray(R"("triggerModifier": "\"fn\"],[\"x\"")");
    QTest::newRow("A negative mask") << QByteArray(R"("hyperKeyModifiers": -1)");
    QTest::newRow("A fractional mask") << QByteArray(R"("hyperKeyModifiers": 1.5)");
    QTest::newRow("A theme list that is not a list") << QByteArray(R"("savedThemes": "[]")");
    QTest::newRow("A position kept as text") << QByteArray(R"("windowX": "12")");
    QTest::newRow("A width that is null") << QByteArray(R"("windowWidth": null)");
    QTest::newRow("A theme with an overflowing number")
        << QByteArray(R"("activeThemeConfig": "{\"keySpacing\":1e999}")");
}

void TestSettingsStore::undecodableEntriesReadAsDefaultAndStayUntouched()
{
    QFETCH(QByteArray, entry);
    writeFile("{" + entry + "}");
    SettingsStore store(path());
    QCOMPARE(notDefault(store), QStringList());
    // Reading never repairs the entry behind the user's back.
    QCOMPARE(readAll(path()), "{" + entry + "}");
}

void TestSettingsStore::themeListSkipsBadElements()
{
    const QByteArray good = ThemeJson::encodeNamedTheme(builtInThemes().at(2));
    QJsonObject file;
    file.insert(u"savedThemes"_s,
        QJsonArray { u"{\"id\": \"nope\"}"_s, QString::fromUtf8(good), 42, u"not json"_s, QJsonValue::Null });
    writeFile(QJsonDocument(file).toJson());

    SettingsStore store(path());
    QCOMPARE(store.value(SettingKeys::savedThemes()), QList<NamedTheme> { builtInThemes().at(2) });

    writeFile(R"({"savedThemes": []})");
    store.reload();
    QCOMPARE(store.value(SettingKeys::savedThemes()), QList<NamedTheme> {});
}

void TestSettingsStore::changesAreAnnouncedOnlyWhenTheValueChanges()
{
    SettingsStore store(path());
    QSignalSpy spy(&store, &SettingsStore::valueChanged);
    QList<double> seen;
    std::optional<ThemeConfig> seenConfig;
    QObject view;
    store.bind(SettingKeys::glowDecay(), &view, [&seen](double value) { seen << value; });
    store.bind(SettingKeys::activeThemeConfig(), &view, [&](const ThemeConfig& config) { seenConfig = config; });

    store.setValue(SettingKeys::glowDecay(), 0.15); // equal to the default it already reads as
    QCOMPARE(spy.count(), 0);
    store.setValue(SettingKeys::glowDecay(), 0.4);
    store.setValue(SettingKeys::glowDecay(), 0.4);
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(0).toString(), u"glowDecay"_s);
    store.remove(SettingKeys::glowDecay());
    QCOMPARE(seen, (QList<double> { 0.4, 0.15 }));

    store.setValue(SettingKeys::autoHideOpacity(), 0.5);
    store.setValue(SettingKeys::activeThemeConfig(), builtInThemes().at(1).config);
    store.value(SettingKeys::keyboardVisible()); // a view bound to it would have registered it
    spy.clear();
    // Same theme written again: no announcement, although the write happened.
    store.setValue(SettingKeys::activeThemeConfig(), builtInThemes().at(1).config);
    QCOMPARE(spy.count(), 0);

    store.flush();
    // Another program replaces the file: same opacity (spelt differently), a new theme, a new switch.
    QJsonObject edited = fileObject();
    edited.insert(u"autoHideOpacity"_s, 0.50);
    edited.insert(u"activeThemeConfig"_s, QString::fromUtf8(ThemeJson::encodeConfig(builtInThemes().at(2).config)));
    edited.insert(u"keyboardVisible"_s, true);
    QFile replacement(path() + u".new"_s);
    QVERIFY(replacement.open(QIODevice::WriteOnly));
    replacement.write(QJsonDocument(edited).toJson(QJsonDocument::Indented));
    replacement.close();
    QVERIFY(QFile::remove(path()));
    QVERIFY(replacement.rename(path()));

    // The file watcher notices without being asked.
    QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 2, 5000);
    QStringList names { spy.at(0).at(0).toString(), spy.at(1).at(0).toString() };
    names.sort();
    QCOMPARE(names, (QStringList { u"activeThemeConfig"_s, u"keyboardVisible"_s }));
    QCOMPARE(seenConfig, builtInThemes().at(2).config);

    // Later saves are still watched after the file was replaced.
    spy.clear();
    edited.insert(u"keyboardVisible"_s, false);
    writeFile(QJsonDocument(edited).toJson());
    QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 1, 5000);
    QCOMPARE(store.value(SettingKeys::keyboardVisible()), false);
}

void TestSettingsStore::unreadableFileIsMovedAsideNotOverwritten()
{
    // An overflowing number makes the whole file unreadable.
    const QByteArray broken = R"({"glowDecay": 0.3, "windowWidth": 1e999})";
    writeFile(broken);
    SettingsStore store(path(), nullptr, &m_clock);
    QSignalSpy moved(&store, &SettingsStore::unreadableFileMovedAside);
    QCOMPARE(store.value(SettingKeys::glowDecay()), 0.15);
    store.setValue(SettingKeys::keyboardVisible(), true);
    store.flush();
    const QStringList aside
        = QDir(QFileInfo(path()).absolutePath()).entryList({ u"settings.json.unreadable-*"_s }, QDir::Files);
    QCOMPARE(aside.size(), 1);
    QCOMPARE(readAll(QFileInfo(path()).absolutePath() + u'/' + aside.first()), broken);
    QCOMPARE(fileObject().value(u"keyboardVisible"_s), QJsonValue(true));

    // Broken again while running: kept as well on the next write, beside the first one, which stays as it was.
    const QByteArray brokenAgain = "{\"glowDecay\": 0.9,,,";
    writeFile(brokenAgain);
    store.setValue(SettingKeys::launchAtLogin(), true);
    store.flush();
    QTRY_COMPARE_WITH_TIMEOUT(moved.count(), 1, 5000);
    QCOMPARE(readAll(moved.at(0).at(0).toString()), brokenAgain);
    QCOMPARE(readAll(QFileInfo(path()).absolutePath() + u'/' + aside.first()), broken);
    QCOMPARE(fileObject().value(u"launchAtLogin"_s), QJsonValue(true));
    QCOMPARE(store.value(SettingKeys::launchAtLogin()), true);
}

QTEST_GUILESS_MAIN(TestSettingsStore)
void TestSettingsStore::writesReachTheFileTogetherWithinTheDelay()
{
    auto store = std::make_unique<SettingsStore>(path(), nullptr, &m_clock);
    QSignalSpy spy(store.get(), &SettingsStore::valueChanged);
    // A slider dragged through many values: every reader sees each value at once, the file only the last.
    for (int step = 1; step <= 50; ++step)
        store->setValue(SettingKeys::autoHideOpacity(), step / 100.0);
    QCOMPARE(spy.count(), 50);
    QCOMPARE(store->value(SettingKeys::autoHideOpacity()), 0.5);
    QVERIFY(!fileObject().contains(u"autoHideOpacity"_s));
    m_clock.advance(SettingsStore::writeDelay * 0.9);
    QVERIFY(!fileObject().contains(u"autoHideOpacity"_s));
    m_clock.advance(SettingsStore::writeDelay * 0.2);
    QCOMPARE(fileObject().value(u"autoHideOpacity"_s), QJsonValue(0.5));
    QVERIFY(!store->hasPendingWrites());

    // A write still waiting when the store goes (the program quitting) reaches the file.
    store->setValue(SettingKeys::keyboardVisible(), true);
    QVERIFY(store->hasPendingWrites());
    store.reset();
    QCOMPARE(fileObject().value(u"keyboardVisible"_s), QJsonValue(true));
}

#include "testsettingsstore.moc"
