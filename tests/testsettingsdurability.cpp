// SPDX-License-Identifier: GPL-3.0-or-later
// The settings file survives being killed in the middle of saving themes. (Several copies of Ordalis started at the
// same moment are tried end to end in teste2e.)
//
// Run with "--write-themes <file> <first>" the test binary is the writer that gets killed: it saves numbered theme
// lists and themes as fast as it can and tells each completed save on its standard output.
#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "theme/themesettings.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <csignal>
#include <cstring>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

/** Milliseconds any one thing may take on a busy two-core machine. */
constexpr int deadline = 20000;

/** The theme list of save number `n`: a dozen themes, so that each save takes a while to write. */
QList<NamedTheme> themesFor(qint64 n)
{
    QList<NamedTheme> themes;
    for (int i = 0; i < 12; ++i) {
        NamedTheme theme;
        theme.id = QUuid::createUuidV5(QUuid(), u"%1-%2"_s.arg(n).arg(i));
        theme.name = u"Theme %1 of save %2"_s.arg(i).arg(n);
        theme.config = defaultThemeConfig();
        theme.config.keySpacing = double(n % 1000);
        theme.config.chassisCornerRadius = double(i);
        themes.append(theme);
    }
    return themes;
}

/** The save number whose theme list `themes` is, or -1. */
qint64 themesNumber(const QList<NamedTheme>& themes)
{
    static const QRegularExpression pattern(u"^Theme 0 of save (\\d+)$"_s);
    const QRegularExpressionMatch match = themes.isEmpty() ? QRegularExpressionMatch() : pattern.match(themes[0].name);
    if (!match.hasMatch())
        return -1;
    const qint64 n = match.captured(1).toLongLong();
    return themesFor(n) == themes ? n : -1;
}

/** The writer: saves forever, and says "T <n>" after each save has returned. */
int writeThemes(const QString& path, qint64 first)
{
    SettingsStore settings(path);
    for (qint64 n = first;; ++n) {
        settings.setValue(SettingKeys::savedThemes(), themesFor(n));
        settings.flush();
        const QByteArray saved = "T " + QByteArray::number(n) + '\n';
        if (::write(STDOUT_FILENO, saved.constData(), size_t(saved.size())) < 0)
            return 1;
    }
}

/** The last number the writer reported, or -1. */
qint64 lastReported(const QByteArray& output)
{
    const QByteArray last = output.trimmed().split('\n').constLast();
    return last.startsWith("T ") ? last.mid(2).toLongLong() : -1;
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool parsesAsSettings(const QByteArray& text)
{
    QJsonParseError error {};
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    return error.error == QJsonParseError::NoError && document.isObject();
}

QStringList filesBeside(const QString& path, const QString& pattern)
{
    return QDir(QFileInfo(path).absolutePath()).entryList({ pattern }, QDir::Files | QDir::Hidden);
}

} // namespace

class TestSettingsDurability final : public QObject
{
    Q_OBJECT

private slots:
    void killedWhileSavingThemes();
};

void TestSettingsDurability::killedWhileSavingThemes()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(u"ordalis/settings.json"_s);
    {
        SettingsStore settings(path);
        settings.setValue(SettingKeys::savedThemes(), themesFor(0));
        settings.setValue(SettingKeys::keyboardVisible(), true);
    }

    const quint32 seed = QRandomGenerator::system()->generate();
    qInfo("kill timing seed %u", seed);
    QRandomGenerator random(seed);
    qint64 themesBefore = 0;
    for (int round = 1; round <= 120; ++round) {
        const qint64 first = qint64(round) * 1000000;
        QProcess writer;
        writer.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        writer.start(QCoreApplication::applicationFilePath(), { u"--write-themes"_s, path, QString::number(first) });
        QVERIFY(writer.waitForStarted(deadline));
        // Mostly in the middle of the saves; now and then while it is still starting and reading the file.
        if (random.bounded(8) != 0) {
            QVERIFY2(writer.waitForReadyRead(deadline), "the writer never saved");
            QThread::usleep(random.bounded(60000));
        } else {
            QThread::usleep(random.bounded(20000));
        }
        ::kill(pid_t(writer.processId()), SIGKILL);
        QVERIFY(writer.waitForFinished(deadline));
        QCOMPARE(writer.exitStatus(), QProcess::CrashExit);
        const QByteArray output = writer.readAllStandardOutput();
        const qint64 themesSaved = lastReported(output);

        // The file parses, nothing was moved aside, and it holds the last save that returned or the one under way.
        const QString where
            = u"kill %1 after \"%2\""_s.arg(round).arg(QString::fromLatin1(output.right(24).simplified()));
        QVERIFY2(parsesAsSettings(readAll(path)), qPrintable(where));
        QVERIFY2(filesBeside(path, u"*unreadable*"_s).isEmpty(), qPrintable(where));
        SettingsStore settings(path);
        const qint64 themes = themesNumber(settings.value(SettingKeys::savedThemes()));
        const QList<qint64> themesAllowed
            = themesSaved < 0 ? QList<qint64> { themesBefore, first } : QList<qint64> { themesSaved, themesSaved + 1 };
        QVERIFY2(themesAllowed.contains(themes), qPrintable(where + u": theme list of save %1"_s.arg(themes)));
        QCOMPARE(settings.value(SettingKeys::keyboardVisible()), true);
        themesBefore = themes;
    }
    // Lock files must not pile up beside the settings: QSettings's lock may stay behind a killed writer, and the
    // next save takes it over. A kill between QSaveFile's giving its temporary file a name and renaming it leaves
    // that file (about one kill in a hundred); more than a few would mean that every save leaves one.
    QStringList left = filesBeside(path, u"*"_s);
    left.removeOne(u"settings.json.lock"_s);
    static const QRegularExpression saveFileTemporary(u"^settings\\.json\\.[A-Za-z0-9]{6}$"_s);
    const qsizetype temporaries
        = left.removeIf([](const QString& name) { return saveFileTemporary.match(name).hasMatch(); });
    QVERIFY2(left == QStringList { u"settings.json"_s }, qPrintable(left.join(u", "_s)));
    QVERIFY2(temporaries <= 4, qPrintable(u"%1 temporary files left"_s.arg(temporaries)));
}

int main(int argc, char** argv)
{
    if (argc == 4 && std::strcmp(argv[1], "--write-themes") == 0) {
        QCoreApplication app(argc, argv);
        return writeThemes(QString::fromLocal8Bit(argv[2]), QByteArray(argv[3]).toLongLong());
    }
    QCoreApplication app(argc, argv);
    TestSettingsDurability test;
    return QTest::qExec(&test, argc, argv);
}

#include "testsettingsdurability.moc"
