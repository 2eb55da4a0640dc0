// SPDX-License-Identifier: GPL-3.0-or-later
// Ordalis sees every key, passwords included, and must keep none of them. The real program runs on a private Xvfb
// with every option on while a known secret is typed; then everything it could have written is searched for the
// secret, in plain text and as the key names or key codes it is made of. Skips when Xvfb or xdotool is missing.
#include "ordalisprogram.h"

#include <QDirIterator>
#include <QRegularExpression>
#include <QSet>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;
using namespace X11Test;

namespace {

constexpr char secret[] = "hunter2-Zq9";

/** Ways the secret could have been kept, other than as it was typed. */
QList<QRegularExpression> secretForms()
{
    // The codes of the first six keys of the secret (h u n t e r) in a row, with anything but digits between: the
    // key codes logged one key to a line would be found.
    const auto run = [](const QList<int>& codes) {
        QStringList parts;
        for (int code : codes)
            parts << QString::number(code);
        return QRegularExpression(u"(?<!\\d)"_s + parts.join(u"\\D{1,24}"_s) + u"(?!\\d)"_s);
    };
    const QRegularExpression::PatternOption noCase = QRegularExpression::CaseInsensitiveOption;
    return {
        QRegularExpression(u"h\\W{0,3}u\\W{0,3}n\\W{0,3}t\\W{0,3}e\\W{0,3}r"_s, noCase),
        QRegularExpression(u"z\\W{0,3}q\\W{0,3}9"_s, noCase),
        QRegularExpression(u"key_?h\\W{1,3}key_?u\\W{1,3}key_?n"_s, noCase),
        run({ 4, 32, 45, 17, 14, 15 }), // the layout's key codes
        run({ 35, 22, 49, 20, 18, 19 }), // Linux key codes
        run({ 43, 30, 57, 28, 26, 27 }), // X keycodes
    };
}

/** Anything that names a key, for the program's log output, where no key may be named at all. */
const QRegularExpression keyNames(
    u"\\b(KEY_[A-Z0-9]+|Key_[A-Za-z0-9]+|keycode|key code|keysym|Shift_[LR]|Control_[LR]|Caps_Lock|Super_[LR])\\b"_s,
    QRegularExpression::CaseInsensitiveOption);

/** Every regular file below `folder`, at most `depth` levels down. */
QStringList filesBelow(const QString& folder, int depth)
{
    QStringList files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot | QDir::System,
        depth > 1 ? QDirIterator::Subdirectories : QDirIterator::NoIteratorFlags);
    while (it.hasNext()) {
        const QString path = it.next();
        if (QDir(folder).relativeFilePath(path).count(u'/') < depth)
            files << path;
    }
    return files;
}

bool hasTray()
{
    const Reply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
        connection(), xcb_get_selection_owner(connection(), atom("_NET_SYSTEM_TRAY_S0")), nullptr));
    return reply && reply->owner != XCB_NONE;
}

QSet<QString> tmpEntries()
{
    const QStringList names = QDir(u"/tmp"_s).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    return QSet<QString>(names.cbegin(), names.cend());
}

} // namespace

class TestKeystrokePrivacy final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void secretLeavesNoTrace_data();
    void secretLeavesNoTrace();

private:
    /** Triple-taps the trigger, left Control, which hides or shows the keyboard and saves that. */
    static bool tripleTap()
    {
        return xdotool({ u"key"_s, u"--delay"_s, u"100"_s, u"Control_L"_s, u"Control_L"_s, u"Control_L"_s });
    }

    // Ended in reverse order: the tray before the window manager.
    Helper m_windowManager;
    Helper m_tray;
};

void TestKeystrokePrivacy::initTestCase()
{
    if (QGuiApplication::platformName() != u"xcb"_s)
        QSKIP("Xvfb is not installed or did not start");
    if (QStandardPaths::findExecutable(u"xdotool"_s).isEmpty())
        QSKIP("xdotool is not installed");
    // A desktop with a tray: without one the keyboard stays up as the only way to reach Ordalis, and the triple tap
    // would not hide it.
    for (const QString& tool : { u"openbox"_s, u"trayer"_s }) {
        if (QStandardPaths::findExecutable(tool).isEmpty())
            QSKIP(qPrintable(tool + u" is not installed"_s));
    }
    m_windowManager = launch(u"openbox"_s, { u"--sm-disable"_s }, QProcessEnvironment::systemEnvironment());
    QTRY_VERIFY_WITH_TIMEOUT(!propertyBytes(root(), "_NET_SUPPORTING_WM_CHECK").isEmpty(), deadline);
    m_tray = launch(u"trayer"_s, { u"--edge"_s, u"bottom"_s, u"--SetDockType"_s, u"true"_s },
        QProcessEnvironment::systemEnvironment());
    QTRY_VERIFY_WITH_TIMEOUT(hasTray(), deadline);
}

void TestKeystrokePrivacy::secretLeavesNoTrace_data()
{
    QTest::addColumn<QString>("loggingRules");
    QTest::newRow("Default logging") << QString();
    QTest::newRow("Every category at debug level") << u"*.debug=true"_s;
}

void TestKeystrokePrivacy::secretLeavesNoTrace()
{
    QFETCH(QString, loggingRules);
    OrdalisProgram::Home home;
    QVERIFY(home.create());
    QVERIFY(QDir().mkpath(home.path(u"output"_s)));
    OrdalisProgram::switchEverythingOn(home.settingsPath());
    {
        // Switched on again below, while it runs, which writes the autostart entry.
        SettingsStore settings(home.settingsPath());
        settings.setValue(SettingKeys::launchAtLogin(), false);
    }
    QProcessEnvironment env = home.environment();
    if (!loggingRules.isEmpty())
        env.insert(u"QT_LOGGING_RULES"_s, loggingRules);
    const QSet<QString> tmpBefore = tmpEntries();

    const QString out = home.path(u"output/stdout"_s);
    const QString err = home.path(u"output/stderr"_s);
    Helper ordalis = OrdalisProgram::start(env, out, err);
    QVERIFY(ordalis);
    QTRY_VERIFY_WITH_TIMEOUT(OrdalisProgram::panel() != 0, deadline);
    // Off the panel: over it, Escape would hide it.
    QVERIFY(xdotool({ u"mousemove"_s, u"--sync"_s, u"1"_s, u"1"_s }));
    const QString autostart = home.path(u"config/autostart/com.quietmakers.Ordalis.desktop"_s);
    SettingsStore(home.settingsPath()).setValue(SettingKeys::launchAtLogin(), true);
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(autostart), deadline);

    // The secret as a password is typed, then again key by key with Shift held by hand, and around it Caps Lock
    // (remapped), both Shifts, Escape, and the triple tap, which saves the settings while keys are being read.
    QVERIFY(xdotool({ u"type"_s, u"--delay"_s, u"40"_s, QString::fromLatin1(secret) }));
    QVERIFY(
        xdotool({ u"key"_s, u"--delay"_s, u"40"_s, u"Return"_s, u"Caps_Lock"_s, u"h"_s, u"Caps_Lock"_s, u"Escape"_s }));
    QVERIFY(
        xdotool({ u"key"_s, u"--delay"_s, u"40"_s, u"h"_s, u"u"_s, u"n"_s, u"t"_s, u"e"_s, u"r"_s, u"2"_s, u"minus"_s,
            u"keydown"_s, u"Shift_R"_s, u"key"_s, u"z"_s, u"keyup"_s, u"Shift_R"_s, u"key"_s, u"q"_s, u"9"_s }));
    QVERIFY(tripleTap());
    QTRY_VERIFY_WITH_TIMEOUT(OrdalisProgram::panel() == 0, deadline);
    QVERIFY(xdotool({ u"type"_s, u"--delay"_s, u"40"_s, QString::fromLatin1(secret) }));
    QVERIFY(tripleTap());
    QTRY_VERIFY_WITH_TIMEOUT(OrdalisProgram::panel() != 0, deadline);
    QVERIFY(xdotool({ u"type"_s, u"--delay"_s, u"40"_s, QString::fromLatin1(secret) }));

    // Ended as the session ends it, so that whatever it saves on the way out is there to search too.
    ordalis->terminate();
    QVERIFY(ordalis->waitForFinished(deadline));
    QCOMPARE(ordalis->exitStatus(), QProcess::NormalExit);
    ordalis.reset();

    QStringList searched = filesBelow(home.dir.path(), 16);
    const QSet<QString> tmpAfter = tmpEntries();
    for (const QString& name : tmpAfter - tmpBefore) {
        const QString path = u"/tmp/"_s + name;
        searched << (QFileInfo(path).isDir() ? filesBelow(path, 2) : QStringList { path });
    }
    // The settings, the autostart entry and the output are there to search: the search looks where it should.
    QVERIFY(searched.contains(home.settingsPath()));
    QVERIFY(searched.contains(autostart));
    QVERIFY(searched.contains(out) && searched.contains(err));

    const QList<QRegularExpression> forms = secretForms();
    qsizetype bytes = 0;
    for (const QString& path : std::as_const(searched)) {
        QFile file(path);
        if (file.size() > 16 * 1024 * 1024 || !file.open(QIODevice::ReadOnly))
            continue;
        const QByteArray content = file.readAll();
        bytes += content.size();
        const QString text = QString::fromLatin1(content);
        QVERIFY2(!content.contains(secret) && !content.toLower().contains("hunter2"), qPrintable(path));
        QVERIFY2(!content.contains(QByteArray(reinterpret_cast<const char*>(u"hunter2"), 14)), qPrintable(path));
        for (const QRegularExpression& form : forms) {
            const QRegularExpressionMatch match = form.match(text);
            QVERIFY2(!match.hasMatch(), qPrintable(path + u": "_s + match.captured()));
        }
        if (path == out || path == err) {
            const QRegularExpressionMatch match = keyNames.match(text);
            QVERIFY2(!match.hasMatch(), qPrintable(path + u": "_s + match.captured()));
            // Qt's own debug lines (for every key event one, without the key) would separate lines of Ordalis's own
            // about each key too widely for the forms above: those are searched again without them.
            static const QRegularExpression qtLine(
                u"^(qt\\.[\\w.]+:|\\s).*\\n?"_s, QRegularExpression::MultilineOption);
            const QString own = QString(text).remove(qtLine);
            for (const QRegularExpression& form : forms) {
                const QRegularExpressionMatch ownMatch = form.match(own);
                QVERIFY2(!ownMatch.hasMatch(), qPrintable(path + u": "_s + ownMatch.captured()));
            }
        }
    }
    qInfo("searched %lld files, %lld bytes, %lld bytes of output", qlonglong(searched.size()), qlonglong(bytes),
        qlonglong(QFileInfo(out).size() + QFileInfo(err).size()));
}

int main(int argc, char** argv)
{
    // Before anything connects to a display: the test brings its own and never touches the user's.
    const Helper server = startXServer(1280, 800);
    QTemporaryDir runtimeDir;
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtimeDir.path()));
    QGuiApplication app(argc, argv);
    TestKeystrokePrivacy test;
    return QTest::qExec(&test, argc, argv);
}

#include "testkeystrokeprivacy.moc"
