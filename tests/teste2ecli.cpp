// SPDX-License-Identifier: GPL-3.0-or-later
// The real ordalis driven from its command line and over D-Bus: a running instance on the offscreen platform with a
// private session bus, later starts that command it, and pictures drawn with --render.
#include "base/clock.h"
#include "app/dbusservice.h"
#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "dbustestsupport.h"
#include "input/keyboardmonitor.h"
#include "panel/keyboardcontentview.h"

#include <QDBusConnectionInterface>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <sys/prctl.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int deadline = 30000;

struct Run
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

Run run(const QString& program, const QStringList& arguments, const QProcessEnvironment& env)
{
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(program, arguments);
    Run result;
    if (!process.waitForFinished(deadline) || process.exitStatus() != QProcess::NormalExit) {
        process.kill();
        process.waitForFinished();
        result.err = "did not end normally";
        return result;
    }
    return { process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError() };
}

/**
 * The panel's content view in `theme` at `size`, with `held` down and every animation finished, through its own
 * paint path (without the resize handle over the corner), in straight alpha as a PNG file keeps it.
 */
QImage panelDrawing(const ThemeConfig& theme, const QSize& size, const QList<KeyCode>& held)
{
    QTemporaryDir dir;
    SettingsStore settings(dir.filePath(u"settings.json"_s));
    settings.setValue(SettingKeys::activeThemeConfig(), theme);
    ManualClock clock;
    KeyboardMonitor monitor(settings, clock);
    KeyboardContentView view(nullptr, settings, clock, &monitor, nullptr);
    view.resize(size);
    // Shown, as in the panel, so that the scene is laid out before the keys go down.
    view.setAttribute(Qt::WA_DontShowOnScreen);
    view.show();
    for (KeyCode code : held)
        monitor.handleKeyDown(code);
    clock.advance(5.0);
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    view.render(&image, {}, {}, QWidget::RenderFlags());
    return image.convertToFormat(QImage::Format_ARGB32);
}

} // namespace

/** Records PropertiesChanged of Ordalis's object: the values of Visible, in order. */
class VisibleWatcher final : public QObject
{
    Q_OBJECT

public:
    QList<bool> values;

public slots:
    void changed(const QString&, const QVariantMap& changed, const QStringList&)
    {
        if (changed.contains(u"Visible"_s))
            values.append(changed.value(u"Visible"_s).toBool());
    }
};

class TestE2eCli final : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void answersWithoutADisplay_data();
    void answersWithoutADisplay();
    void controlsTheRunningInstance();
    void renderedPictureIsThePanelsDrawing_data();
    void renderedPictureIsThePanelsDrawing();

private:
    Run ordalis(const QStringList& arguments) const { return run(QStringLiteral(ORDALIS_BINARY), arguments, m_env); }
    /** The value the settings file holds for `key`. */
    QJsonValue stored(const QString& key) const;

    std::unique_ptr<QTemporaryDir> m_home;
    QProcessEnvironment m_env;
};

void TestE2eCli::init()
{
    m_home = std::make_unique<QTemporaryDir>();
    m_env = QProcessEnvironment::systemEnvironment();
    m_env.insert(u"HOME"_s, m_home->path());
    m_env.insert(u"XDG_CONFIG_HOME"_s, m_home->filePath(u"config"_s));
    m_env.insert(u"XDG_RUNTIME_DIR"_s, m_home->path());
    m_env.insert(u"LANG"_s, u"C.UTF-8"_s);
    m_env.remove(u"DBUS_SESSION_BUS_ADDRESS"_s);
}

QJsonValue TestE2eCli::stored(const QString& key) const
{
    QFile file(m_home->filePath(u"config/ordalis/settings.json"_s));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object().value(key);
}

void TestE2eCli::answersWithoutADisplay_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("err");

    QTest::newRow("help") << QStringList { u"--help"_s } << 0 << "--render FILE"_ba << QByteArray();
    QTest::newRow("version") << QStringList { u"--version"_s } << 0 << "Ordalis 0.1.0\n"_ba << QByteArray();
    QTest::newRow("unknown option") << QStringList { u"--shw"_s } << 2 << QByteArray()
                                    << "ordalis: Unknown option 'shw'."_ba;
    QTest::newRow("unknown theme") << QStringList { u"--theme"_s, u"Nope"_s } << 2 << QByteArray()
                                   << "ordalis: no saved theme is named \"Nope\"; saved themes: Spacegray, Chiclet"_ba;
    QTest::newRow("hide, nothing running") << QStringList { u"--hide"_s } << 0 << QByteArray() << QByteArray();
    QTest::newRow("quit, nothing running") << QStringList { u"--quit"_s } << 0 << QByteArray() << QByteArray();
    QTest::newRow("unknown key") << QStringList { u"--render=x.png"_s, u"--keys=a,meta"_s } << 2 << QByteArray()
                                 << "ordalis: no key is named \"meta\""_ba;
    QTest::newRow("unreadable theme file")
        << QStringList { u"--render=x.png"_s, u"--theme-file=/nonexistent.json"_s } << 2 << QByteArray()
        << "ordalis: cannot read the theme file /nonexistent.json"_ba;
    QTest::newRow("unwritable picture") << QStringList { u"--render=/nonexistent/x.png"_s } << 1 << QByteArray()
                                        << "ordalis: cannot write /nonexistent/x.png"_ba;
}

void TestE2eCli::answersWithoutADisplay()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, err);
    // A platform that cannot start: anything that made a QApplication here would abort.
    m_env.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
    m_env.remove(u"DISPLAY"_s);
    m_env.remove(u"WAYLAND_DISPLAY"_s);
    const Run result = ordalis(arguments);
    QVERIFY2(result.err.startsWith(err), result.err.constData());
    QCOMPARE(result.exitCode, exitCode);
    QVERIFY2(out.isEmpty() ? result.out.isEmpty() : result.out.contains(out), result.out.constData());
    // Nothing was written: no settings folder, not even an empty one.
    QVERIFY(!QDir(m_home->filePath(u"config"_s)).exists());
}

void TestE2eCli::controlsTheRunningInstance()
{
    DBusTest::PrivateBus bus;
    if (bus.address().isEmpty())
        QSKIP("dbus-daemon is not installed or did not start");
    m_env.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, bus.address());
    m_env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    QDBusConnection client = bus.connect();
    const QString service = QString::fromLatin1(DBusService::serviceName);
    const QString path = QString::fromLatin1(DBusService::objectPath);
    const QString interface = QString::fromLatin1(DBusService::interfaceName);
    VisibleWatcher watcher;
    QVERIFY(client.connect(service, path, u"org.freedesktop.DBus.Properties"_s, u"PropertiesChanged"_s, &watcher,
        SLOT(changed(QString, QVariantMap, QStringList))));
    const auto visible = [&] { return DBusTest::visible(client); };

    // Nothing runs: --theme checks the name, chooses the theme and starts.
    QProcess instance;
    instance.setProcessEnvironment(m_env);
    instance.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    instance.setProcessChannelMode(QProcess::ForwardedChannels);
    instance.start(QStringLiteral(ORDALIS_BINARY), { u"--theme"_s, u"Black"_s });
    QVERIFY(instance.waitForStarted(deadline));
    QVERIFY(QTest::qWaitFor([&] { return client.interface()->isServiceRegistered(service).value(); }, deadline));
    QCOMPARE(stored(u"activeThemeName"_s).toString(), u"Black"_s);
    // No tray on the offscreen platform, so the keyboard shows from the start.
    QCOMPARE(visible(), QVariant(true));

    // Later starts command it, and D-Bus sees every change.
    const struct
    {
        QStringList arguments;
        bool visibleAfter;
    } commands[] = {
        { { u"--hide"_s }, false },
        { { u"--show"_s }, true },
        { { u"--toggle"_s }, false },
        { {}, true }, // a plain start shows the keyboard of the running one
        { { u"--settings"_s }, true },
    };
    for (const auto& command : commands) {
        const Run result = ordalis(command.arguments);
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(visible(), QVariant(command.visibleAfter));
    }
    QTRY_COMPARE_WITH_TIMEOUT(watcher.values, (QList<bool> { false, true, false, true }), deadline);

    const Run theme = ordalis({ u"--theme=Light Rose"_s });
    QCOMPARE(theme.exitCode, 0);
    QCOMPARE(stored(u"activeThemeName"_s).toString(), u"Light Rose"_s);
    const Run unknown = ordalis({ u"--theme"_s, u"Nope"_s });
    QCOMPARE(unknown.exitCode, 2);
    QVERIFY2(unknown.err.startsWith("ordalis: no saved theme is named \"Nope\"; saved themes: Spacegray"),
        unknown.err.constData());
    QCOMPARE(stored(u"activeThemeName"_s).toString(), u"Light Rose"_s);

    // The README's gdbus lines.
    if (!QStandardPaths::findExecutable(u"gdbus"_s).isEmpty()) {
        const QStringList call { u"call"_s, u"--session"_s, u"--dest"_s, service, u"--object-path"_s, path,
            u"--method"_s };
        QCOMPARE(run(u"gdbus"_s, call + QStringList { interface + u".Toggle"_s }, m_env).exitCode, 0);
        QCOMPARE(visible(), QVariant(false));
        const Run refused = run(u"gdbus"_s, call + QStringList { interface + u".ChooseTheme"_s, u"Nope"_s }, m_env);
        QVERIFY(refused.exitCode != 0);
        QVERIFY2(refused.err.contains("org.freedesktop.DBus.Error.InvalidArgs"), refused.err.constData());
        QCOMPARE(run(u"gdbus"_s, call + QStringList { interface + u".ChooseTheme"_s, u"Black"_s }, m_env).exitCode, 0);
        QCOMPARE(stored(u"activeThemeName"_s).toString(), u"Black"_s);
    }

    // --quit returns once that instance has ended; then there is nobody to hide.
    const Run quit = ordalis({ u"--quit"_s });
    QCOMPARE(quit.exitCode, 0);
    QVERIFY(instance.waitForFinished(2000));
    QCOMPARE(instance.exitStatus(), QProcess::NormalExit);
    QCOMPARE(instance.exitCode(), 0);
    QVERIFY(!client.interface()->isServiceRegistered(service).value());
    QCOMPARE(ordalis({ u"--hide"_s }).exitCode, 0);
}

void TestE2eCli::renderedPictureIsThePanelsDrawing_data()
{
    QTest::addColumn<int>("theme");
    QTest::addColumn<int>("width");
    QTest::addColumn<QString>("keys");
    QTest::addColumn<QList<KeyCode>>("held");
    QTest::newRow("docs picture") << 0 << 900 << u"shift_l,cmd_l,a,o"_s << QList<KeyCode> { 56, 55, 0, 31 };
    QTest::newRow("nothing held") << 0 << 900 << QString() << QList<KeyCode> {};
    QTest::newRow("Black, narrow") << 2 << 703 << u"space,left,up,fn"_s << QList<KeyCode> { 49, 123, 126, 63 };
}

void TestE2eCli::renderedPictureIsThePanelsDrawing()
{
    QFETCH(int, theme);
    QFETCH(int, width);
    QFETCH(QString, keys);
    QFETCH(QList<KeyCode>, held);
    const NamedTheme& named = builtInThemes().at(theme);
    const QString file = m_home->filePath(u"keyboard.png"_s);
    // No display at all: the picture is drawn offscreen whatever the platform says.
    m_env.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
    m_env.remove(u"DISPLAY"_s);
    const Run result = ordalis(
        { u"--render"_s, file, u"--theme"_s, named.name, u"--width"_s, QString::number(width), u"--keys"_s, keys });
    QVERIFY2(result.exitCode == 0, result.err.constData());
    const QImage rendered = QImage(file).convertToFormat(QImage::Format_ARGB32);
    QCOMPARE(rendered.width(), width);
    const QImage panel = panelDrawing(named.config, rendered.size(), held);
    QCOMPARE(rendered, panel);
    // Not two pictures of nothing: the held keys do show.
    if (!held.isEmpty())
        QVERIFY(panelDrawing(named.config, rendered.size(), {}) != panel);
}

QTEST_MAIN(TestE2eCli)
#include "teste2ecli.moc"
