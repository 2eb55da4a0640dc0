// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "ui/launchatlogin.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString program = u"/opt/Ordalis/bin/ordalis"_s;

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(text) == text.size();
}

} // namespace

class TestLaunchAtLogin final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void entryFollowsTheSwitch();
    void execValue_data();
    void execValue();
    void failureQuietlySetsTheSwitchBack();
    void startLeavesSwitchAndFolderAsTheyAre();

private:
    QString settingsPath() const { return m_dir->filePath(u"ordalis/settings.json"_s); }
    QString autostartDir() const { return m_dir->filePath(u"autostart"_s); }
    QString entryPath() const { return autostartDir() + u"/com.quietmakers.Ordalis.desktop"_s; }

    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestLaunchAtLogin::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
}

void TestLaunchAtLogin::entryFollowsTheSwitch()
{
    // The entry goes where the session looks for it, under $XDG_CONFIG_HOME.
    const QByteArray oldConfigHome = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", m_dir->path().toLocal8Bit());
    const QString defaultPath = LaunchAtLogin::defaultEntryPath();
    qputenv("XDG_CONFIG_HOME", oldConfigHome);
    QCOMPARE(defaultPath, entryPath());

    SettingsStore settings(settingsPath());
    LaunchAtLogin launch(settings, entryPath(), program);
    // The autostart folder is made when missing; each change writes or removes the entry.
    settings.setValue(SettingKeys::launchAtLogin(), true);
    QCOMPARE(readAll(entryPath()), LaunchAtLogin::desktopEntry(program));
    settings.setValue(SettingKeys::launchAtLogin(), false);
    QVERIFY(!QFileInfo::exists(entryPath()));
}

void TestLaunchAtLogin::execValue_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("value");

    // The values are the text of the file: string escapes (\\ for one backslash) come on top of the quoting.
    QTest::newRow("plain path as it is") << u"/usr/bin/ordalis"_s << u"/usr/bin/ordalis"_s;
    QTest::newRow("space quoted") << u"/home/a b/ordalis"_s << uR"("/home/a b/ordalis")"_s;
    QTest::newRow("double quote escaped twice") << uR"(/opt/"x"/o)"_s << uR"("/opt/\\"x\\"/o")"_s;
    QTest::newRow("dollar and backtick escaped twice") << u"/opt/$HOME/`x`"_s << uR"("/opt/\\$HOME/\\`x\\`")"_s;
    QTest::newRow("backslash becomes four") << uR"(/opt/a\b)"_s << uR"("/opt/a\\\\b")"_s;
    QTest::newRow("percent doubled inside quotes") << u"/opt/50% off/o"_s << uR"("/opt/50%% off/o")"_s;
}

void TestLaunchAtLogin::execValue()
{
    QFETCH(QString, path);
    QFETCH(QString, value);
    QCOMPARE(LaunchAtLogin::execValue(path), value);
    // Hidden=true would make the session skip the entry; NoDisplay only keeps it out of menus.
    QCOMPARE(LaunchAtLogin::desktopEntry(path),
        (u"[Desktop Entry]\nType=Application\nName=Ordalis\nExec="_s + value
            + u"\nTerminal=false\nX-GNOME-Autostart-enabled=true\nNoDisplay=false\n"_s)
            .toUtf8());
}

void TestLaunchAtLogin::failureQuietlySetsTheSwitchBack()
{
    // Nothing of a failure may reach the log.
    QTest::failOnWarning(QRegularExpression(u".*"_s));

    // A regular file where the autostart folder should be: no entry can be written, not even by root.
    QVERIFY(writeFile(autostartDir(), "not a folder"));
    SettingsStore settings(settingsPath());
    LaunchAtLogin launch(settings, entryPath(), program);
    settings.setValue(SettingKeys::launchAtLogin(), true);
    QCOMPARE(settings.value(SettingKeys::launchAtLogin()), false);

    // Once the folder can be made, the next change works: the failure left nothing stuck.
    QVERIFY(QFile::remove(autostartDir()));
    settings.setValue(SettingKeys::launchAtLogin(), true);
    QCOMPARE(readAll(entryPath()), LaunchAtLogin::desktopEntry(program));
}

void TestLaunchAtLogin::startLeavesSwitchAndFolderAsTheyAre()
{
    // The switch records what the user asked for; what is in the folder is never read back into it.
    QVERIFY(QDir().mkpath(autostartDir()));
    for (const auto& [switchOn, entryOnDisk] :
        QList<std::pair<bool, QByteArray>> { { true, {} }, { false, "[Desktop Entry]\nExec=/old/ordalis\n" } }) {
        QFile::remove(entryPath());
        if (!entryOnDisk.isEmpty())
            QVERIFY(writeFile(entryPath(), entryOnDisk));
        SettingsStore settings(settingsPath());
        settings.setValue(SettingKeys::launchAtLogin(), switchOn);
        LaunchAtLogin launch(settings, entryPath(), program);
        QCOMPARE(settings.value(SettingKeys::launchAtLogin()), switchOn);
        QCOMPARE(readAll(entryPath()), entryOnDisk);
    }
}

QTEST_GUILESS_MAIN(TestLaunchAtLogin)
#include "testlaunchatlogin.moc"
