// SPDX-License-Identifier: GPL-3.0-or-later
// The command line, the key names it takes and the request lines it sends to a running Ordalis.
#include "app/commandline.h"
#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "keyboard/keynames.h"
#include "theme/themesettings.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using Mode = CommandLine::Invocation::Mode;
using Kind = RemoteCommand::Kind;

class TestCommandLine final : public QObject
{
    Q_OBJECT

private slots:
    void parses_data();
    void parses();
    void rejects_data();
    void rejects();
    void renderOptions();
    void everyKeyHasOneName();
    void requestLines_data();
    void requestLines();
    void settingsFileIsOnlyRead();
};

void TestCommandLine::parses_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("argument");

    QTest::newRow("nothing starts") << QStringList {} << int(Mode::start) << 0 << QString();
    QTest::newRow("help wins") << QStringList { u"--show"_s, u"--help"_s } << int(Mode::help) << 0 << QString();
    QTest::newRow("-v") << QStringList { u"-v"_s } << int(Mode::version) << 0 << QString();
    QTest::newRow("--hide") << QStringList { u"--hide"_s } << int(Mode::command) << int(Kind::hide) << QString();
    QTest::newRow("--pause") << QStringList { u"--pause"_s } << int(Mode::command) << int(Kind::pause) << QString();
    QTest::newRow("--resume") << QStringList { u"--resume"_s } << int(Mode::command) << int(Kind::resume) << QString();
    QTest::newRow("--theme with spaces") << QStringList { u"--theme"_s, u"Dark Beige"_s } << int(Mode::command)
                                         << int(Kind::theme) << u"Dark Beige"_s;
    QTest::newRow("--theme=") << QStringList { u"--theme=Black"_s } << int(Mode::command) << int(Kind::theme)
                              << u"Black"_s;
    QTest::newRow("--show measuring") << QStringList { u"--show"_s, u"--latency-report"_s, u"r.txt"_s }
                                      << int(Mode::command) << int(Kind::show) << QString();
    // What QApplication used to take before the options were read is still left to it.
    QTest::newRow("Qt options passed over")
        << QStringList { u"-platform"_s, u"offscreen"_s, u"--show"_s, u"-style=fusion"_s, u"-reverse"_s }
        << int(Mode::command) << int(Kind::show) << QString();
}

void TestCommandLine::parses()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, mode);
    QFETCH(int, kind);
    QFETCH(QString, argument);
    const CommandLine::Parsed parsed = CommandLine::parse(QStringList { u"/usr/bin/ordalis"_s } + arguments);
    QVERIFY2(parsed.ok(), qPrintable(parsed.error));
    QCOMPARE(int(parsed.invocation.mode), mode);
    QCOMPARE(parsed.invocation.latencyReport, arguments.contains(u"--latency-report"_s) ? arguments.last() : QString());
    if (parsed.invocation.mode == Mode::command) {
        QCOMPARE(int(parsed.invocation.command.kind), kind);
        QCOMPARE(parsed.invocation.command.argument, argument);
    }
}

void TestCommandLine::rejects_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("mentions");

    QTest::newRow("unknown option") << QStringList { u"--shw"_s } << u"shw"_s;
    QTest::newRow("stray argument") << QStringList { u"Black"_s } << u"\"Black\""_s;
    QTest::newRow("two commands") << QStringList { u"--show"_s, u"--hide"_s } << u"--show and --hide"_s;
    QTest::newRow("pause and resume") << QStringList { u"--pause"_s, u"--resume"_s } << u"--pause and --resume"_s;
    QTest::newRow("measuring a pause") << QStringList { u"--pause"_s, u"--latency-report=r.txt"_s }
                                       << u"only when starting"_s;
    QTest::newRow("command and render") << QStringList { u"--quit"_s, u"--render"_s, u"a.png"_s } << u"--render"_s;
    QTest::newRow("theme without name") << QStringList { u"--theme"_s } << u"theme"_s;
    QTest::newRow("render option alone") << QStringList { u"--width"_s, u"900"_s } << u"--render"_s;
    QTest::newRow("theme and theme file")
        << QStringList { u"--render=a.png"_s, u"--theme=Black"_s, u"--theme-file=t.json"_s } << u"together"_s;
    QTest::newRow("width too small") << QStringList { u"--render=a.png"_s, u"--width=99"_s } << u"100"_s;
    QTest::newRow("scale zero") << QStringList { u"--render=a.png"_s, u"--scale=0"_s } << u"--scale"_s;
    QTest::newRow("too many pixels") << QStringList { u"--render=a.png"_s, u"--width=9000"_s, u"--scale=2"_s }
                                     << u"18000"_s;
    QTest::newRow("no such colour") << QStringList { u"--render=a.png"_s, u"--background=blurple"_s } << u"blurple"_s;
    QTest::newRow("no such layout") << QStringList { u"--render=a.png"_s, u"--layout=klingon"_s }
                                    << u"localectl list-x11-keymap-layouts"_s;
    QTest::newRow("layout with a bad variant") << QStringList { u"--render=a.png"_s, u"--layout=de:nosuch"_s }
                                               << u"de:nosuch"_s;
    QTest::newRow("layout name that is no name") << QStringList { u"--render=a.png"_s, u"--layout=../../etc"_s }
                                                 << u"../../etc"_s;
    QTest::newRow("automatic shape on the command line")
        << QStringList { u"--render=a.png"_s, u"--shape=automatic"_s } << u"ansi or iso"_s;
    QTest::newRow("layout without render") << QStringList { u"--layout=de"_s } << u"--render"_s;
    QTest::newRow("latency report with a command that starts nothing")
        << QStringList { u"--hide"_s, u"--latency-report=r.txt"_s } << u"only when starting"_s;
    QTest::newRow("no such key") << QStringList { u"--render=a.png"_s, u"--keys=a,hyper"_s }
                                 << u"no key is named \"hyper\"; key names: escape, f1"_s;
}

void TestCommandLine::rejects()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, mentions);
    const CommandLine::Parsed parsed = CommandLine::parse(QStringList { u"ordalis"_s } + arguments);
    QVERIFY(!parsed.ok());
    QVERIFY2(parsed.error.contains(mentions), qPrintable(parsed.error));
}

void TestCommandLine::renderOptions()
{
    const CommandLine::Parsed parsed
        = CommandLine::parse({ u"ordalis"_s, u"--render"_s, u"out.png"_s, u"--theme"_s, u"Black"_s, u"--width=1200"_s,
            u"--scale=1.5"_s, u"--keys"_s, u"Shift_L, cmd_l,cmd_r,a"_s, u"--keys=o,a,,"_s, u"--background=#80ff0000"_s,
              u"--layout=de:nodeadkeys"_s, u"--shape=ISO"_s });
    QVERIFY2(parsed.ok(), qPrintable(parsed.error));
    QCOMPARE(parsed.invocation.mode, Mode::render);
    const CommandLine::RenderOptions& render = parsed.invocation.render;
    QCOMPARE(render.output, u"out.png"_s);
    QCOMPARE(render.themeName, u"Black"_s);
    QCOMPARE(render.themeFile, std::nullopt);
    QCOMPARE(render.width, 1200);
    QCOMPARE(render.scale, 1.5);
    // Names in any letter case, each key once, in the order first named.
    QCOMPARE(render.heldKeys, (QList<KeyCode> { 56, 55, 54, 0, 31 }));
    QCOMPARE(render.background, QColor(255, 0, 0, 128));
    QCOMPARE(render.layout, (XkbLayout { u"de"_s, u"nodeadkeys"_s }));
    QCOMPARE(render.shape, KeyboardShape::iso);

    const CommandLine::RenderOptions defaults
        = CommandLine::parse({ u"ordalis"_s, u"--render=x.png"_s }).invocation.render;
    QCOMPARE(defaults.width, 900);
    QCOMPARE(defaults.scale, 1.0);
    QVERIFY(defaults.heldKeys.isEmpty());
    QCOMPARE(defaults.background.alpha(), 0);
    QCOMPARE(defaults.layout, std::nullopt);
    QCOMPARE(defaults.shape, KeyboardShape::automatic);
}

void TestCommandLine::everyKeyHasOneName()
{
    // Canonical names in board order, one per key that can light: the layout's codes but the Touch ID key.
    QList<KeyCode> expected = allLayoutKeyCodes();
    expected.removeAll(touchIDKeyCode);
    QList<KeyCode> named;
    for (const QString& name : KeyNames::canonicalNames()) {
        named.append(KeyNames::keyCode(name).value_or(touchIDKeyCode));
        QCOMPARE(KeyNames::name(named.constLast()), name);
    }
    QCOMPARE(named, expected);
    QCOMPARE(KeyNames::keyCode(u"CTRL"), KeyCode(59));
    QCOMPARE(KeyNames::keyCode(u"esc"), KeyCode(53));
    QCOMPARE(KeyNames::keyCode(u"touchid"), std::nullopt);
    QCOMPARE(KeyNames::name(touchIDKeyCode), QString());
}

void TestCommandLine::requestLines_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("argument");

    QTest::newRow("show, as old starts send it") << "show\n"_ba << true << int(Kind::show) << QString();
    QTest::newRow("quit with CR LF") << "quit\r\n"_ba << true << int(Kind::quit) << QString();
    QTest::newRow("encoded theme") << "theme Dark%20Beige"_ba << true << int(Kind::theme) << u"Dark Beige"_s;
    QTest::newRow("UTF-8 theme") << "theme Gr%C3%BCn"_ba << true << int(Kind::theme) << u"Grün"_s;
    QTest::newRow("unknown verb") << "explode"_ba << false << 0 << QString();
    QTest::newRow("argument to show") << "show now"_ba << false << 0 << QString();
    QTest::newRow("raw space in name") << "theme Dark Beige"_ba << false << 0 << QString();
    QTest::newRow("bad escape") << "theme %zz"_ba << false << 0 << QString();
    QTest::newRow("not UTF-8") << "theme %FF%FE"_ba << false << 0 << QString();
}

void TestCommandLine::requestLines()
{
    QFETCH(QByteArray, line);
    QFETCH(bool, valid);
    QFETCH(int, kind);
    QFETCH(QString, argument);
    const std::optional<RemoteCommand> command = RemoteCommand::fromLine(line);
    QCOMPARE(command.has_value(), valid);
    if (!valid)
        return;
    QCOMPARE(int(command->kind), kind);
    QCOMPARE(command->argument, argument);
    // What a later start sends is read back as the same command.
    QCOMPARE(RemoteCommand::fromLine(command->toLine()), command);
}

void TestCommandLine::settingsFileIsOnlyRead()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(u"settings.json"_s);
    // No file: the defaults, as the settings store gives them; and no file appears.
    QCOMPARE(CommandLine::storedSavedThemes(path), builtInThemes());
    QCOMPARE(CommandLine::storedActiveTheme(path), defaultThemeConfig());
    QVERIFY(!QFile::exists(path));

    const NamedTheme mine { QUuid::createUuid(), u"Mine"_s, builtInThemes().at(2).config };
    {
        SettingsStore settings(path);
        settings.setValue(SettingKeys::savedThemes(), QList<NamedTheme> { mine });
        settings.setValue(SettingKeys::activeThemeConfig(), mine.config);
    }
    QCOMPARE(CommandLine::storedSavedThemes(path), QList<NamedTheme> { mine });
    QCOMPARE(CommandLine::storedActiveTheme(path), mine.config);

    // A file that is not JSON is neither moved aside nor rewritten, as the settings store would do.
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write("{ not json");
    file.close();
    QCOMPARE(CommandLine::storedSavedThemes(path), builtInThemes());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), "{ not json"_ba);
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList { u"settings.json"_s });
}

QTEST_GUILESS_MAIN(TestCommandLine)
#include "testcommandline.moc"
