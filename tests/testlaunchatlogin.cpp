// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/launchatlogin.h"
#include "base/settingkeys.h"
#include "base/settingsstore.h"

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
    void startLeavesSwitchAndFolderAsTheyAre_data();
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
    QVERIFY(m_dir->isValid());
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
    QVERIFY(!QFileInfo::exists(autostartDir()));

    // The autostart folder is made when missing; each change writes or removes the entry.
    settings.setValue(SettingKeys::launchAtLogin(), true);
    QCOMPARE(readAll(entryPath()), LaunchAtLogin::desktopEntry(program));
    settings.setValue(SettingKeys::launchAtLogin(), false);
    QVERIFY(!QFileInfo::exists(entryPath()));
    QVERIFY(QFileInfo(autostartDir()).isDir());
    settings.setValue(SettingKeys::launchAtLogin(), true);
    QVERIFY(QFileInfo::exists(entryPath()));
    // The atomic write leaves nothing else behind.
    QCOMPARE(QDir(autostartDir()).entryList(QDir::Files | QDir::Hidden), QStringList { QFileInfo(entryPath()).fileName() });
}

void TestLaunchAtLogin::execValue_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("value");

    // The values are the text of the file: string escapes (\\ for one backslash) come on top of the quoting.
    QTest::newRow("plain path as it is") << u"/usr/bin/ordalis"_s << u"/usr/bin/ordalis"_s;
    QTest::newRow("non-ASCII kept") << u"/home/zoë/ordalis"_s << u"/home/zoë/ordalis"_s;
    QTest::newRow("space quoted") << u"/home/a b/ordalis"_s << uR"("/home/a b/ordalis")"_s;
    QTest::newRow("other reserved characters quoted") << u"/opt/a&b;c|d/(e)"_s << uR"x("/opt/a&b;c|d/(e)")x"_s;
    QTest::newRow("double quote escaped twice") << uR"(/opt/"x"/o)"_s << uR"("/opt/\\"x\\"/o")"_s;
    QTest::newRow("dollar and backtick escaped twice") << u"/opt/$HOME/`x`"_s << uR"("/opt/\\$HOME/\\`x\\`")"_s;
    QTest::newRow("backslash becomes four") << uR"(/opt/a\b)"_s << uR"("/opt/a\\\\b")"_s;
    QTest::newRow("percent doubled inside quotes") << u"/opt/50% off/o"_s << uR"("/opt/50%% off/o")"_s;
    QTest::newRow("newline and tab as string escapes") << u"/opt/a\nb\tc"_s << uR"("/opt/a\nb\tc")"_s;
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
    {
        SettingsStore settings(settingsPath());
        LaunchAtLogin launch(settings, entryPath(), program);
        settings.setValue(SettingKeys::launchAtLogin(), true);
        QCOMPARE(settings.value(SettingKeys::launchAtLogin()), false);
        QCOMPARE(readAll(autostartDir()), "not a folder");

        // Once the folder can be made, the next change works: the failure left nothing stuck.
        QVERIFY(QFile::remove(autostartDir()));
        settings.setValue(SettingKeys::launchAtLogin(), true);
        QCOMPARE(settings.value(SettingKeys::launchAtLogin()), true);
        QCOMPARE(readAll(entryPath()), LaunchAtLogin::desktopEntry(program));
    }
    // The reverted value is what the settings file keeps.
    QVERIFY(QFile::remove(entryPath()));
    QVERIFY(QDir().mkpath(entryPath() + u"/blocker"_s));
    {
        SettingsStore settings(settingsPath());
        LaunchAtLogin launch(settings, entryPath(), program);
        // A folder in the entry's place cannot be removed: turning off fails and the switch stays on.
        settings.setValue(SettingKeys::launchAtLogin(), false);
        QCOMPARE(settings.value(SettingKeys::launchAtLogin()), true);
        QVERIFY(QFileInfo(entryPath() + u"/blocker"_s).isDir());
    }
    SettingsStore reopened(settingsPath());
    QCOMPARE(reopened.value(SettingKeys::launchAtLogin()), true);
}

void TestLaunchAtLogin::startLeavesSwitchAndFolderAsTheyAre_data()
{
    QTest::addColumn<bool>("switchOn");
    QTest::addColumn<QByteArray>("entryOnDisk");

    QTest::newRow("switch on, entry removed by hand") << true << QByteArray();
    QTest::newRow("switch off, an old entry left behind")
        << false << QByteArray("[Desktop Entry]\nExec=/old/ordalis\n");
}

void TestLaunchAtLogin::startLeavesSwitchAndFolderAsTheyAre()
{
    QFETCH(bool, switchOn);
    QFETCH(QByteArray, entryOnDisk);

    // The switch records what the user asked for; what is in the folder is never read back into it.
    QVERIFY(QDir().mkpath(autostartDir()));
    if (!entryOnDisk.isEmpty())
        QVERIFY(writeFile(entryPath(), entryOnDisk));
    SettingsStore settings(settingsPath());
    settings.setValue(SettingKeys::launchAtLogin(), switchOn);

    LaunchAtLogin launch(settings, entryPath(), program);
    QCOMPARE(settings.value(SettingKeys::launchAtLogin()), switchOn);
    QCOMPARE(readAll(entryPath()), entryOnDisk);

    // The next two changes of the switch put the folder in line, whatever it held.
    settings.setValue(SettingKeys::launchAtLogin(), !switchOn);
    settings.setValue(SettingKeys::launchAtLogin(), switchOn);
    QCOMPARE(settings.value(SettingKeys::launchAtLogin()), switchOn);
    QCOMPARE(readAll(entryPath()), switchOn ? LaunchAtLogin::desktopEntry(program) : QByteArray());
}

QTEST_GUILESS_MAIN(TestLaunchAtLogin)
#include "testlaunchatlogin.moc"
