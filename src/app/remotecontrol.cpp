// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/remotecontrol.h"

#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "theme/themelibrary.h"
#include "ui/menubaractions.h"

#include <QStringDecoder>

#include <array>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr std::array<std::pair<RemoteCommand::Kind, QByteArrayView>, 8> verbs { {
    { RemoteCommand::Kind::show, "show" },
    { RemoteCommand::Kind::hide, "hide" },
    { RemoteCommand::Kind::toggle, "toggle" },
    { RemoteCommand::Kind::settings, "settings" },
    { RemoteCommand::Kind::theme, "theme" },
    { RemoteCommand::Kind::quit, "quit" },
    { RemoteCommand::Kind::pause, "pause" },
    { RemoteCommand::Kind::resume, "resume" },
} };

bool isUnreserved(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.'
        || c == '_' || c == '~';
}

bool isHexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

/** `encoded` decoded, when it is strictly percent-encoded UTF-8 text. */
std::optional<QString> decodeArgument(QByteArrayView encoded)
{
    for (qsizetype i = 0; i < encoded.size(); ++i) {
        if (isUnreserved(encoded[i]))
            continue;
        if (encoded[i] != '%' || i + 2 >= encoded.size() || !isHexDigit(encoded[i + 1]) || !isHexDigit(encoded[i + 2]))
            return std::nullopt;
        i += 2;
    }
    const QByteArray bytes = QByteArray::fromPercentEncoding(encoded.toByteArray());
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

} // namespace

QByteArray RemoteCommand::toLine() const
{
    QByteArray line;
    for (const auto& [verbKind, verb] : verbs) {
        if (verbKind == kind)
            line = verb.toByteArray();
    }
    if (kind == Kind::theme)
        line += ' ' + argument.toUtf8().toPercentEncoding();
    return line;
}

std::optional<RemoteCommand> RemoteCommand::fromLine(QByteArrayView line)
{
    line = line.trimmed();
    const qsizetype space = line.indexOf(' ');
    const QByteArrayView verb = space < 0 ? line : line.first(space);
    const std::optional<QByteArrayView> argument
        = space < 0 ? std::nullopt : std::optional<QByteArrayView>(line.sliced(space + 1));
    for (const auto& [kind, name] : verbs) {
        if (verb != name)
            continue;
        // Only "theme" takes an argument, and it needs one.
        if ((kind == Kind::theme) != argument.has_value())
            return std::nullopt;
        if (kind != Kind::theme)
            return RemoteCommand { kind, {} };
        std::optional<QString> decoded = decodeArgument(*argument);
        if (!decoded)
            return std::nullopt;
        return RemoteCommand { kind, std::move(*decoded) };
    }
    return std::nullopt;
}

std::optional<NamedTheme> findSavedTheme(const QList<NamedTheme>& saved, const QString& name)
{
    for (const NamedTheme& theme : saved) {
        if (theme.name == name)
            return theme;
    }
    return std::nullopt;
}

QString unknownThemeMessage(const QString& name, const QList<NamedTheme>& saved)
{
    if (saved.isEmpty())
        return u"no saved theme is named \"%1\"; there are no saved themes"_s.arg(name);
    QStringList names;
    for (const NamedTheme& theme : saved)
        names.append(theme.name);
    return u"no saved theme is named \"%1\"; saved themes: %2"_s.arg(name, names.join(u", "_s));
}

RemoteControl::RemoteControl(MenuBarActions& actions, SettingsStore& settings, QObject* parent)
    : QObject(parent)
    , m_actions(actions)
    , m_settings(settings)
{
}

RemoteControl::~RemoteControl() = default;

std::optional<QString> RemoteControl::run(const RemoteCommand& command)
{
    switch (command.kind) {
    case RemoteCommand::Kind::show:
        m_actions.setKeyboardVisible(true);
        break;
    case RemoteCommand::Kind::hide:
        m_actions.setKeyboardVisible(false);
        break;
    case RemoteCommand::Kind::toggle:
        m_actions.setKeyboardVisible(!m_actions.isKeyboardVisible());
        break;
    case RemoteCommand::Kind::settings:
        m_actions.openSettings();
        break;
    case RemoteCommand::Kind::theme:
        return chooseTheme(command.argument);
    case RemoteCommand::Kind::quit:
        m_actions.quit();
        break;
    case RemoteCommand::Kind::pause:
        m_actions.setPausedByHand(true);
        break;
    case RemoteCommand::Kind::resume:
        m_actions.setPausedByHand(false);
        break;
    }
    return std::nullopt;
}

std::optional<QString> RemoteControl::chooseTheme(const QString& name)
{
    const QList<NamedTheme> saved = m_settings.value(SettingKeys::savedThemes());
    const std::optional<NamedTheme> theme = findSavedTheme(saved, name);
    if (!theme)
        return unknownThemeMessage(name, saved);
    ThemeLibrary::chooseThemeFromMenu(m_settings, *theme);
    return std::nullopt;
}

bool RemoteControl::isPaused() const
{
    return m_actions.isPaused();
}

bool RemoteControl::isVisible() const
{
    return m_actions.isKeyboardVisible();
}

QString RemoteControl::keySource() const
{
    return InputBackend::sourceName(m_actions.keySource());
}
