// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/settingkeys.h"
#include "app/settingsstore.h"
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

class TestSettingsStore final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void freshStoreReadsDefaultsAndWritesNothing();
    void storedForms();
    void undecodableEntriesReadAsDefaultAndStayUntouched_data();
    void undecodableEntriesReadAsDefaultAndStayUntouched();
    void themeListSkipsBadElements();
    void optionalKeyRemovedByNone();
    void changeSignalOnlyOnRealChange();
    void externalEditIsAnnounced();
    void unreadableFileIsMovedAsideNotOverwritten();
    void fileBrokenWhileRunningIsKeptOnNextWrite();

private:
    QString path() const { return m_dir->filePath(u"ordalis/settings.json"_s); }
    QJsonObject fileObject() const;
    void writeFile(const QByteArray& text) const;

    std::unique_ptr<QTemporaryDir> m_dir;
};

QJsonObject TestSettingsStore::fileObject() const
{
    QFile file(path());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

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

void TestSettingsStore::freshStoreReadsDefaultsAndWritesNothing()
{
    SettingsStore store(path());
    QCOMPARE(store.value(SettingKeys::activeThemeConfig()), defaultThemeConfig());
    QCOMPARE(store.value(SettingKeys::activeThemeName()), u"Spacegray"_s);
    QCOMPARE(store.value(SettingKeys::savedThemes()), builtInThemes());
    QCOMPARE(store.value(SettingKeys::showOnScreenRecording()), true);
    QCOMPARE(store.value(SettingKeys::hideOnScreenRecordingEnd()), false);
    QCOMPARE(store.value(SettingKeys::launchAtLogin()), false);
    QCOMPARE(store.value(SettingKeys::triggerModifier()), TriggerModifier::leftControl);
    QCOMPARE(store.value(SettingKeys::enableGlobalHotkey()), true);
    QCOMPARE(store.value(SettingKeys::hyperKeyModifiers()), std::uint64_t(0));
    QCOMPARE(store.value(SettingKeys::hyperKeyShowAsCapsLock()), true);
    QCOMPARE(store.value(SettingKeys::glowDecay()), 0.15);
    QCOMPARE(store.value(SettingKeys::autoHideOnHover()), false);
    QCOMPARE(store.value(SettingKeys::autoHideOpacity()), 0.1);
    QCOMPARE(store.value(SettingKeys::escapeToHideOnHover()), false);
    QCOMPARE(store.value(SettingKeys::keyboardVisible()), false);
    QCOMPARE(store.value(SettingKeys::windowX()), std::nullopt);
    QCOMPARE(store.value(SettingKeys::windowY()), std::nullopt);
    QCOMPARE(store.value(SettingKeys::windowWidth()), 900.0);

    // Defaults sit in the registration layer only: nothing of them reaches the file, even after a write.
    store.setValue(SettingKeys::glowDecay(), 0.3);
    for (const QString& name : SettingKeys::allNames()) {
        if (name == u"glowDecay")
            continue;
        QVERIFY2(!store.hasStoredEntry(name), qPrintable(name));
        QVERIFY2(!fileObject().contains(name), qPrintable(name));
    }
    QCOMPARE(fileObject().keys(), QStringList { u"glowDecay"_s });
    QCOMPARE(store.registeredDefault(u"triggerModifier"_s), QVariant(u"\"leftControl\""_s));
    QVERIFY(!store.registeredDefault(u"windowX"_s).isValid());
}

void TestSettingsStore::storedForms()
{
    ThemeConfig config = builtInThemes().at(4).config;
    config.keySpacing = 0.1 + 0.2; // needs all 17 digits to survive
    config.dropShadow.enabled = false;
    {
        SettingsStore store(path());
        store.setValue(SettingKeys::activeThemeConfig(), config);
        store.setValue(SettingKeys::triggerModifier(), TriggerModifier::fn);
        store.setValue(SettingKeys::savedThemes(), builtInThemes().mid(0, 2));
        store.setValue(SettingKeys::hyperKeyModifiers(), std::uint64_t(0x1e0000));
    }
    const QJsonObject file = fileObject();
    QCOMPARE(file.value(u"triggerModifier"_s).toString(), u"\"fn\""_s);

    const QString configText = file.value(u"activeThemeConfig"_s).toString();
    QVERIFY(!configText.contains(u'\n'));
    const QStringList keys = QJsonDocument::fromJson(configText.toUtf8()).object().keys();
    QCOMPARE(keys.size(), 22);
    int previous = -1;
    for (const QString& key : keys) {
        const int at = int(configText.indexOf(u'"' + key + u'"'));
        QVERIFY2(at > previous, "keys are written in sorted order");
        previous = at;
    }
    const QJsonArray themes = file.value(u"savedThemes"_s).toArray();
    QCOMPARE(themes.size(), 2);
    QVERIFY(themes.at(1).isString());
    QCOMPARE(ThemeJson::decodeNamedTheme(themes.at(1).toString().toUtf8()), builtInThemes().at(1));

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
    QTest::newRow("Text where a switch belongs") << QByteArray(R"("launchAtLogin": "true")");
    QTest::newRow("Malformed theme JSON") << QByteArray(R"("activeThemeConfig": "{\"chassisHue\": ")");
    QTest::newRow("A theme as an object instead of text") << QByteArray(R"("activeThemeConfig": {"chassisHue": 1})");
    QTest::newRow("A theme with a wrong-typed field") << QByteArray(R"("activeThemeConfig": "{\"keySpacing\":\"7\"}")");
    QTest::newRow("A trigger in the wrong letter case") << QByteArray(R"("triggerModifier": "\"FN\"")");
    QTest::newRow("A trigger without its quotes") << QByteArray(R"("triggerModifier": "fn")");
    QTest::newRow("A trigger followed by junk") << QByteArray(R"("triggerModifier": "\"fn\"],[\"x\"")");
    QTest::newRow("A negative mask") << QByteArray(R"("hyperKeyModifiers": -1)");
    QTest::newRow("A fractional mask") << QByteArray(R"("hyperKeyModifiers": 1.5)");
    QTest::newRow("A mask beyond 64 bits") << QByteArray(R"("hyperKeyModifiers": 1e30)");
    QTest::newRow("A theme list that is not a list") << QByteArray(R"("savedThemes": "[]")");
    QTest::newRow("A position kept as text") << QByteArray(R"("windowX": "12")");
    QTest::newRow("A width that is null") << QByteArray(R"("windowWidth": null)");
    QTest::newRow("A width spelt as NaN text") << QByteArray(R"("windowWidth": "NaN")");
    QTest::newRow("A theme with an overflowing number") << QByteArray(R"("activeThemeConfig": "{\"keySpacing\":1e999}")");
    QTest::newRow("A name that is a list") << QByteArray(R"("activeThemeName": ["Dark"])");
}

void TestSettingsStore::undecodableEntriesReadAsDefaultAndStayUntouched()
{
    QFETCH(QByteArray, entry);
    const QByteArray text = "{" + entry + "}";
    writeFile(text);

    SettingsStore store(path());
    QCOMPARE(store.value(SettingKeys::glowDecay()), 0.15);
    QCOMPARE(store.value(SettingKeys::showOnScreenRecording()), true);
    QCOMPARE(store.value(SettingKeys::launchAtLogin()), false);
    QCOMPARE(store.value(SettingKeys::activeThemeConfig()), defaultThemeConfig());
    QCOMPARE(store.value(SettingKeys::triggerModifier()), TriggerModifier::leftControl);
    QCOMPARE(store.value(SettingKeys::hyperKeyModifiers()), std::uint64_t(0));
    QCOMPARE(store.value(SettingKeys::savedThemes()), builtInThemes());
    QCOMPARE(store.value(SettingKeys::windowX()), std::nullopt);
    QCOMPARE(store.value(SettingKeys::windowWidth()), 900.0);
    QCOMPARE(store.value(SettingKeys::activeThemeName()), u"Spacegray"_s);

    // Reading never repairs the entry behind the user's back.
    QFile file(path());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), text);
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

void TestSettingsStore::optionalKeyRemovedByNone()
{
    SettingsStore store(path());
    store.setValue(SettingKeys::windowX(), std::optional<double>(-120.5));
    QCOMPARE(store.value(SettingKeys::windowX()), std::optional<double>(-120.5));
    QVERIFY(fileObject().contains(u"windowX"_s));

    store.setValue(SettingKeys::windowX(), std::optional<double>());
    QCOMPARE(store.value(SettingKeys::windowX()), std::nullopt);
    QVERIFY(!store.hasStoredEntry(u"windowX"_s));
    QVERIFY(!fileObject().contains(u"windowX"_s));
}

void TestSettingsStore::changeSignalOnlyOnRealChange()
{
    SettingsStore store(path());
    QSignalSpy spy(&store, &SettingsStore::valueChanged);
    QList<double> seen;
    QObject view;
    store.bind(SettingKeys::glowDecay(), &view, [&seen](double value) { seen << value; });

    store.setValue(SettingKeys::glowDecay(), 0.15); // equal to the default it already reads as
    QCOMPARE(spy.count(), 0);
    store.setValue(SettingKeys::glowDecay(), 0.4);
    store.setValue(SettingKeys::glowDecay(), 0.4);
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(0).toString(), u"glowDecay"_s);
    store.remove(SettingKeys::glowDecay());
    QCOMPARE(seen, (QList<double> { 0.4, 0.15 }));

    // Same theme written again: no announcement, although the write happened.
    store.setValue(SettingKeys::activeThemeConfig(), builtInThemes().at(3).config);
    spy.clear();
    store.setValue(SettingKeys::activeThemeConfig(), builtInThemes().at(3).config);
    QCOMPARE(spy.count(), 0);
}

void TestSettingsStore::externalEditIsAnnounced()
{
    SettingsStore store(path());
    store.setValue(SettingKeys::autoHideOpacity(), 0.5);
    store.setValue(SettingKeys::activeThemeConfig(), builtInThemes().at(1).config);
    std::optional<ThemeConfig> seenConfig;
    QObject view;
    store.bind(SettingKeys::activeThemeConfig(), &view, [&](const ThemeConfig& config) { seenConfig = config; });
    QSignalSpy spy(&store, &SettingsStore::valueChanged);

    // Another program rewrites the file: same opacity (spelt differently), a new theme, a new switch.
    QJsonObject edited = fileObject();
    edited.insert(u"autoHideOpacity"_s, 0.50);
    edited.insert(u"activeThemeConfig"_s, QString::fromUtf8(ThemeJson::encodeConfig(builtInThemes().at(2).config)));
    edited.insert(u"keyboardVisible"_s, true);
    const QString replacement = path() + u".new"_s;
    QFile file(replacement);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QJsonDocument(edited).toJson(QJsonDocument::Indented));
    file.close();
    store.value(SettingKeys::keyboardVisible()); // a view bound to it would have registered it
    QVERIFY(QFile::remove(path()));
    QVERIFY(QFile::rename(replacement, path()));

    // The file watcher notices without being asked.
    QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 2, 5000);
    QStringList names { spy.at(0).at(0).toString(), spy.at(1).at(0).toString() };
    names.sort();
    QCOMPARE(names, (QStringList { u"activeThemeConfig"_s, u"keyboardVisible"_s }));
    QCOMPARE(seenConfig, builtInThemes().at(2).config);
    QCOMPARE(store.value(SettingKeys::keyboardVisible()), true);

    // Later saves are still watched after the file was replaced.
    spy.clear();
    edited.insert(u"keyboardVisible"_s, false);
    QFile again(path());
    QVERIFY(again.open(QIODevice::WriteOnly | QIODevice::Truncate));
    again.write(QJsonDocument(edited).toJson());
    again.close();
    QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 1, 5000);
    QCOMPARE(store.value(SettingKeys::keyboardVisible()), false);
}

void TestSettingsStore::unreadableFileIsMovedAsideNotOverwritten()
{
    const QByteArray broken = R"({"glowDecay": 0.3, "windowWidth": 1e999})";
    writeFile(broken);

    SettingsStore store(path());
    QCOMPARE(store.value(SettingKeys::glowDecay()), 0.15);
    store.setValue(SettingKeys::keyboardVisible(), true);

    const QStringList aside = QDir(QFileInfo(path()).absolutePath())
                                  .entryList({ u"settings.json.unreadable-*"_s }, QDir::Files);
    QCOMPARE(aside.size(), 1);
    QFile kept(QFileInfo(path()).absolutePath() + u'/' + aside.first());
    QVERIFY(kept.open(QIODevice::ReadOnly));
    QCOMPARE(kept.readAll(), broken);
    QCOMPARE(fileObject().value(u"keyboardVisible"_s), QJsonValue(true));
}

void TestSettingsStore::fileBrokenWhileRunningIsKeptOnNextWrite()
{
    SettingsStore store(path());
    store.setValue(SettingKeys::glowDecay(), 0.25);
    QSignalSpy moved(&store, &SettingsStore::unreadableFileMovedAside);

    const QByteArray broken = "{\"glowDecay\": 0.9,,,";
    writeFile(broken);
    store.setValue(SettingKeys::launchAtLogin(), true);

    QTRY_COMPARE_WITH_TIMEOUT(moved.count(), 1, 5000);
    QFile kept(moved.at(0).at(0).toString());
    QVERIFY(kept.open(QIODevice::ReadOnly));
    QCOMPARE(kept.readAll(), broken);
    QCOMPARE(fileObject().value(u"launchAtLogin"_s), QJsonValue(true));
    QCOMPARE(store.value(SettingKeys::launchAtLogin()), true);
}

QTEST_GUILESS_MAIN(TestSettingsStore)
#include "testsettingsstore.moc"
