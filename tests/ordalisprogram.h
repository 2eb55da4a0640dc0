// SPDX-License-Identifier: GPL-3.0-or-later
// Shared by the tests that run the real ordalis for a while on a private X server: a home of its own with every
// option switched on, the program with its output kept in files, and its keyboard panel.
#pragma once

#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "x11testsupport.h"

#include <QDir>
#include <QFile>
#include <QProcessEnvironment>
#include <QTemporaryDir>

namespace OrdalisProgram {

using namespace Qt::StringLiterals;

/** A home with every XDG folder inside it, a private temporary folder and a file for each output channel. */
struct Home
{
    QTemporaryDir dir;

    QString path(const QString& relative) const { return dir.filePath(relative); }
    QString settingsPath() const { return path(u"config/ordalis/settings.json"_s); }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"HOME"_s, path(u"home"_s));
        env.insert(u"XDG_CONFIG_HOME"_s, path(u"config"_s));
        env.insert(u"XDG_CACHE_HOME"_s, path(u"cache"_s));
        env.insert(u"XDG_DATA_HOME"_s, path(u"data"_s));
        env.insert(u"XDG_STATE_HOME"_s, path(u"state"_s));
        env.insert(u"XDG_RUNTIME_DIR"_s, path(u"run"_s));
        env.insert(u"TMPDIR"_s, path(u"tmp"_s));
        env.remove(u"QT_QPA_PLATFORM"_s);
        env.remove(u"QT_LOGGING_RULES"_s);
        return env;
    }

    bool create() const
    {
        for (const QString& folder :
            { u"home"_s, u"config"_s, u"cache"_s, u"data"_s, u"state"_s, u"run"_s, u"tmp"_s }) {
            if (!QDir().mkpath(path(folder)))
                return false;
        }
        return QFile::setPermissions(
            path(u"run"_s), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    }
};

/**
 * Every option a user can switch on, on: the keyboard shown, auto-hide and Escape over it, the recording options,
 * launch at login, the triple tap, Caps Lock remapped to a HyperKey, automatic update checks. (The autostart entry
 * is written when launch at login is switched on while Ordalis runs, not at start.)
 */
inline void switchEverythingOn(const QString& settingsPath)
{
    SettingsStore settings(settingsPath);
    using namespace SettingKeys;
    settings.setValue(keyboardVisible(), true);
    settings.setValue(autoHideOnHover(), true);
    settings.setValue(autoHideOpacity(), 0.4);
    settings.setValue(escapeToHideOnHover(), true);
    settings.setValue(showOnScreenRecording(), true);
    settings.setValue(hideOnScreenRecordingEnd(), true);
    settings.setValue(launchAtLogin(), true);
    settings.setValue(enableGlobalHotkey(), true);
    settings.setValue(hyperKeyModifiers(), std::uint64_t(0x1E0000));
    settings.setValue(hyperKeyShowAsCapsLock(), true);
    settings.setValue(automaticallyChecksForUpdates(), true);
    settings.setValue(glowDecay(), 0.5);
}

/** The first viewable window below `parent` (at any depth) that `match` accepts, or 0. */
template <typename Match> xcb_window_t findWindow(xcb_window_t parent, const Match& match)
{
    using namespace X11Test;
    const Reply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(connection(), xcb_query_tree(connection(), parent), nullptr));
    const xcb_window_t* children = tree ? xcb_query_tree_children(tree.get()) : nullptr;
    for (int i = 0; tree && i < xcb_query_tree_children_length(tree.get()); ++i) {
        if (isViewable(children[i]) && match(children[i]))
            return children[i];
        if (const xcb_window_t found = findWindow(children[i], match))
            return found;
    }
    return 0;
}

/** The keyboard panel while it is on screen, or 0. */
inline xcb_window_t panel()
{
    return findWindow(X11Test::root(),
        [](xcb_window_t w) { return X11Test::propertyBytes(w, "_NET_WM_NAME") == "Ordalis Keyboard"; });
}

/** Starts ordalis with its standard output and errors written to `out` and `err`; null when it did not start. */
inline X11Test::Helper start(const QProcessEnvironment& env, const QString& out, const QString& err)
{
    X11Test::Helper process(new QProcess);
    process->setProcessEnvironment(env);
    process->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    process->setStandardOutputFile(out);
    process->setStandardErrorFile(err);
    process->start(QStringLiteral(ORDALIS_BINARY), {});
    return process->waitForStarted(X11Test::deadline) ? std::move(process) : nullptr;
}

/** The resident memory of process `pid` in kB, from /proc; -1 when it cannot be read. */
inline qint64 residentKb(qint64 pid)
{
    QFile status(u"/proc/%1/status"_s.arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

} // namespace OrdalisProgram
