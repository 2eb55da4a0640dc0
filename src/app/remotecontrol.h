// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "theme/themeconfig.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QObject>
#include <QString>

#include <optional>

class MenuBarActions;
class SettingsStore;

/**
 * One thing asked of the running Ordalis from outside: by a later start of the program (`ordalis --hide`, sent over
 * the instance socket) or over D-Bus.
 *
 * On the instance socket a command is one line: the verb, and for "theme" a space and the theme name
 * percent-encoded (UTF-8, every byte but A-Z a-z 0-9 - . _ ~ as %XX), so that any name fits on one line.
 */
struct RemoteCommand
{
    enum class Kind
    {
        show,
        hide,
        toggle,
        settings,
        theme,
        quit,
        pause,
        resume,
    };

    Kind kind = Kind::show;
    /** The theme name for `theme`; empty otherwise. */
    QString argument;

    /** The line sent for this command, without its line break. */
    QByteArray toLine() const;
    /** The command `line` (surrounding white space ignored) stands for; none for anything else. */
    static std::optional<RemoteCommand> fromLine(QByteArrayView line);

    friend bool operator==(const RemoteCommand&, const RemoteCommand&) = default;
};

/** The first theme of `saved` named exactly `name`; none when no theme has that name. */
std::optional<NamedTheme> findSavedTheme(const QList<NamedTheme>& saved, const QString& name);

/** Why `name` cannot be chosen: names the saved themes, or says there are none. */
QString unknownThemeMessage(const QString& name, const QList<NamedTheme>& saved);

/**
 * Carries out remote commands on the running program through the same actions as the tray menu, and tells when
 * the keyboard is shown or hidden. Main thread only; `actions` and `settings` must outlive it.
 */
class RemoteControl final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(RemoteControl)

public:
    RemoteControl(MenuBarActions& actions, SettingsStore& settings, QObject* parent = nullptr);
    ~RemoteControl() override;

    /** Carries `command` out; the reason when it could not be (an unknown theme), else none. */
    std::optional<QString> run(const RemoteCommand& command);

    /**
     * Makes the saved theme called exactly `name` the active one, as the theme menus do; the reason when there is
     * no such theme, and then nothing changes.
     */
    std::optional<QString> chooseTheme(const QString& name);

    bool isVisible() const;
    /** Whether keys are being kept from the screen, for any reason. */
    bool isPaused() const;
    /** How keys reach Ordalis now: "x11", "devices", "helper" or "none". */
    QString keySource() const;

signals:
    /** The keyboard was shown or hidden, whoever did it; the owner connects the coordinator's signal here. */
    void visibleChanged(bool visible);
    /** keySource() changed; the owner connects the coordinator's signal here. */
    void keySourceChanged(const QString& source);
    /** isPaused() changed; the owner connects the coordinator's signal here. */
    void pausedChanged(bool paused);

private:
    MenuBarActions& m_actions;
    SettingsStore& m_settings;
};
