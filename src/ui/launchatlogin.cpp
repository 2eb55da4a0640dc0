// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/launchatlogin.h"

#include "ui/appconfig.h"
#include "base/settingkeys.h"
#include "base/settingsstore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSaveFile>
#include <QScopedValueRollback>
#include <QStandardPaths>

#include <algorithm>

using namespace Qt::StringLiterals;

QString LaunchAtLogin::defaultEntryPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + u"/autostart/"_s
        + AppConfig::applicationId() + u".desktop"_s;
}

LaunchAtLogin::LaunchAtLogin(
    SettingsStore& settings, const QString& entryPath, const QString& executable, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_entryPath(entryPath)
    , m_executable(executable.isEmpty() ? QCoreApplication::applicationFilePath() : executable)
{
    m_settings.bind(SettingKeys::launchAtLogin(), this, [this](bool enabled) { onSettingChanged(enabled); });
}

LaunchAtLogin::~LaunchAtLogin() = default;

bool LaunchAtLogin::apply(bool enabled)
{
    if (!enabled) {
        const QFileInfo entry(m_entryPath);
        if (!entry.exists() && !entry.isSymLink())
            return true;
        return QFile::remove(m_entryPath);
    }

    if (!QDir().mkpath(QFileInfo(m_entryPath).absolutePath()))
        return false;
    // The session manager may read the folder at any moment: it sees the old entry or the new one, never half.
    QSaveFile file(m_entryPath);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    const QByteArray text = desktopEntry(m_executable);
    if (file.write(text) != text.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

void LaunchAtLogin::onSettingChanged(bool enabled)
{
    // Our own write-back below comes round again as a change; the folder already matches it.
    if (m_reverting)
        return;
    if (apply(enabled))
        return;
    const QScopedValueRollback reverting(m_reverting, true);
    m_settings.setValue(SettingKeys::launchAtLogin(), !enabled);
}

QByteArray LaunchAtLogin::desktopEntry(const QString& executable)
{
    const QString text = u"[Desktop Entry]\n"
                         u"Type=Application\n"
                         u"Name=Ordalis\n"
                         u"Exec="_s
        + execValue(executable)
        + u"\n"
          u"Terminal=false\n"
          u"X-GNOME-Autostart-enabled=true\n"
          u"NoDisplay=false\n"_s;
    return text.toUtf8();
}

QString LaunchAtLogin::execValue(const QString& program)
{
    // An argument holding any of these must be quoted; inside the quotes ", `, $ and \ take a backslash.
    static const QString reserved = u" \t\n\"'\\><~|&;$*?#()`"_s;
    const bool quote = program.isEmpty()
        || std::any_of(program.cbegin(), program.cend(), [](QChar c) { return reserved.contains(c); });

    QString argument;
    if (quote)
        argument += u'"';
    for (QChar c : program) {
        if (quote && (c == u'"' || c == u'`' || c == u'$' || c == u'\\'))
            argument += u'\\';
        argument += c;
    }
    if (quote)
        argument += u'"';
    // % starts a field code.
    argument.replace(u'%', u"%%"_s);

    // The value is also a desktop entry string, whose own escapes are undone before the quoting is read.
    QString value;
    value.reserve(argument.size());
    for (QChar c : argument) {
        switch (c.unicode()) {
        case u'\\':
            value += u"\\\\"_s;
            break;
        case u'\n':
            value += u"\\n"_s;
            break;
        case u'\t':
            value += u"\\t"_s;
            break;
        case u'\r':
            value += u"\\r"_s;
            break;
        default:
            value += c;
        }
    }
    return value;
}
