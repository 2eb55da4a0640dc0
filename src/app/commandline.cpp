// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/commandline.h"

#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "keyboard/keylegends.h"
#include "keyboard/keynames.h"
#include "keyboard/xkblayoutlist.h"

#include <QCommandLineParser>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <array>
#include <cmath>

using namespace Qt::StringLiterals;

namespace CommandLine {

namespace {

// Options QGuiApplication and QApplication take from the command line; the ones in the first list take a value.
constexpr std::array<QStringView, 14> qtOptionsWithValue { u"platform", u"platformpluginpath", u"platformtheme",
    u"plugin", u"qwindowgeometry", u"qwindowicon", u"qwindowtitle", u"session", u"display", u"geometry", u"title",
    u"name", u"style", u"stylesheet" };
constexpr std::array<QStringView, 7> qtFlags { u"reverse", u"widgetcount", u"nograb", u"dograb", u"sync",
    u"qmljsdebugger", u"testability" };

/** The Qt option `argument` is, without dashes and "=value"; empty when it is none. */
QStringView qtOption(QStringView argument)
{
    if (!argument.startsWith(u'-'))
        return {};
    argument = argument.sliced(argument.startsWith(u"--") ? 2 : 1);
    if (const qsizetype equals = argument.indexOf(u'='); equals >= 0)
        argument = argument.first(equals);
    for (QStringView option : qtOptionsWithValue) {
        if (argument == option)
            return option;
    }
    for (QStringView flag : qtFlags) {
        if (argument == flag)
            return flag;
    }
    return {};
}

/** `arguments` without the Qt options and their values. */
QStringList withoutQtOptions(const QStringList& arguments)
{
    QStringList kept;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == u"--") {
            kept += arguments.mid(i);
            break;
        }
        const QStringView option = i == 0 ? QStringView() : qtOption(argument);
        if (option.isEmpty()) {
            kept.append(argument);
            continue;
        }
        const bool takesValue
            = std::find(qtOptionsWithValue.begin(), qtOptionsWithValue.end(), option) != qtOptionsWithValue.end();
        if (takesValue && !argument.contains(u'='))
            ++i;
    }
    return kept;
}

/** The JSON value stored for `name` in the settings file at `path`, or an invalid one. */
QVariant storedEntry(const QString& path, const QString& name)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
    if (!document.isObject())
        return {};
    const QJsonValue value = document.object().value(name);
    return value.isUndefined() ? QVariant() : value.toVariant();
}

/** The one value of a single-valued option, or an error when it was given more than once. */
QString singleValue(const QCommandLineParser& parser, const QString& name, QString& error)
{
    const QStringList values = parser.values(name);
    if (values.size() > 1 && error.isEmpty())
        error = u"--%1 may be given only once"_s.arg(name);
    return values.isEmpty() ? QString() : values.constLast();
}

void parseRenderOptions(const QCommandLineParser& parser, RenderOptions& render, QString& error)
{
    render.output = singleValue(parser, u"render"_s, error);
    if (render.output.isEmpty() && error.isEmpty())
        error = u"--render needs the name of the picture file to write"_s;

    if (parser.isSet(u"theme"_s))
        render.themeName = singleValue(parser, u"theme"_s, error);
    if (parser.isSet(u"theme-file"_s))
        render.themeFile = singleValue(parser, u"theme-file"_s, error);
    if (render.themeName && render.themeFile && error.isEmpty())
        error = u"--theme and --theme-file cannot be used together"_s;

    if (parser.isSet(u"width"_s)) {
        bool number = false;
        const int width = singleValue(parser, u"width"_s, error).trimmed().toInt(&number);
        if ((!number || width < minimumWidth || width > maximumWidth) && error.isEmpty())
            error = u"--width must be a whole number of pixels from %1 to %2"_s.arg(minimumWidth).arg(maximumWidth);
        else
            render.width = width;
    }
    if (parser.isSet(u"scale"_s)) {
        bool number = false;
        const double scale = singleValue(parser, u"scale"_s, error).trimmed().toDouble(&number);
        if ((!number || !(scale >= minimumScale && scale <= maximumScale)) && error.isEmpty())
            error = u"--scale must be a number from %1 to %2"_s.arg(minimumScale).arg(maximumScale);
        else
            render.scale = scale;
    }
    if (error.isEmpty() && std::lround(render.width * render.scale) > maximumPixelWidth)
        error = u"the picture would be %1 pixels wide; at most %2 are drawn (lower --width or --scale)"_s
                    .arg(std::lround(render.width * render.scale))
                    .arg(maximumPixelWidth);

    if (parser.isSet(u"background"_s)) {
        const QString name = singleValue(parser, u"background"_s, error).trimmed();
        const QColor colour = QColor::fromString(name);
        if (!colour.isValid() && error.isEmpty())
            error
                = u"--background: \"%1\" is not a colour (use a name such as white, #rrggbb or #aarrggbb)"_s.arg(name);
        else
            render.background = colour;
    }

    if (parser.isSet(u"layout"_s)) {
        const QString name = singleValue(parser, u"layout"_s, error).trimmed();
        QString written = name;
        // NAME:VARIANT on the command line, as the layout(variant) XKB writes.
        if (const qsizetype colon = name.indexOf(u':'); colon >= 0)
            written = name.left(colon) + u'(' + name.mid(colon + 1) + u')';
        const std::optional<XkbLayout> layout = XkbLayout::fromString(written);
        const bool known = layout && (XkbLayoutList::all().isEmpty() ? bool(KeyLegends::compile(*layout))
                                                                     : XkbLayoutList::find(*layout).has_value());
        if (!known && error.isEmpty()) {
            error = u"--layout: no keyboard layout is named \"%1\". Names are those of xkb-data, such as us, de, fr, "
                    u"ru or de:nodeadkeys; \"localectl list-x11-keymap-layouts\" lists the layouts and "
                    u"\"localectl list-x11-keymap-variants de\" the variants of one (or see %2)"_s
                        .arg(name, XkbLayoutList::registryPath());
        } else if (known) {
            render.layout = layout;
        }
    }
    if (parser.isSet(u"shape"_s)) {
        const QString name = singleValue(parser, u"shape"_s, error).trimmed().toLower();
        const std::optional<KeyboardShape> shape = KeyboardShapes::fromRawValue(name);
        if ((!shape || *shape == KeyboardShape::automatic) && error.isEmpty())
            error = u"--shape must be ansi or iso"_s;
        else if (shape)
            render.shape = *shape;
    }

    render.trackpad = parser.isSet(u"trackpad"_s) || parser.isSet(u"buttons"_s);
    static const QList<std::pair<QString, TrackpadView::Part>> parts {
        { u"left"_s, TrackpadView::Part::left },
        { u"right"_s, TrackpadView::Part::right },
        { u"middle"_s, TrackpadView::Part::middle },
        { u"back"_s, TrackpadView::Part::back },
        { u"forward"_s, TrackpadView::Part::forward },
        { u"scroll_up"_s, TrackpadView::Part::scrollUp },
        { u"scroll_down"_s, TrackpadView::Part::scrollDown },
        { u"scroll_left"_s, TrackpadView::Part::scrollLeft },
        { u"scroll_right"_s, TrackpadView::Part::scrollRight },
    };
    for (const QString& list : parser.values(u"buttons"_s)) {
        for (const QString& item : list.split(u',')) {
            const QString name = item.trimmed().toLower();
            if (name.isEmpty())
                continue;
            const auto it = std::find_if(parts.cbegin(), parts.cend(), [&](const auto& p) { return p.first == name; });
            if (it == parts.cend()) {
                if (error.isEmpty()) {
                    QStringList names;
                    for (const auto& p : parts)
                        names << p.first;
                    error = u"--buttons: nothing is named \"%1\"; names: %2"_s.arg(name, names.join(u", "_s));
                }
                return;
            }
            if (!render.trackpadParts.contains(it->second))
                render.trackpadParts.append(it->second);
        }
    }

    if (error.isEmpty())
        error = parseKeys(parser.values(u"keys"_s), render.heldKeys);
}

} // namespace

Parsed parse(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsOptions);
    const QCommandLineOption help(QStringList { u"h"_s, u"help"_s });
    const QCommandLineOption version(QStringList { u"v"_s, u"version"_s });
    parser.addOptions({
        help,
        version,
        QCommandLineOption(u"show"_s),
        QCommandLineOption(u"hide"_s),
        QCommandLineOption(u"toggle"_s),
        QCommandLineOption(u"settings"_s),
        QCommandLineOption(u"theme"_s, {}, u"name"_s),
        QCommandLineOption(u"quit"_s),
        QCommandLineOption(u"pause"_s),
        QCommandLineOption(u"resume"_s),
        QCommandLineOption(u"render"_s, {}, u"file"_s),
        QCommandLineOption(u"theme-file"_s, {}, u"file"_s),
        QCommandLineOption(u"width"_s, {}, u"pixels"_s),
        QCommandLineOption(u"scale"_s, {}, u"ratio"_s),
        QCommandLineOption(u"keys"_s, {}, u"names"_s),
        QCommandLineOption(u"background"_s, {}, u"colour"_s),
        QCommandLineOption(u"layout"_s, {}, u"name"_s),
        QCommandLineOption(u"shape"_s, {}, u"shape"_s),
        QCommandLineOption(u"trackpad"_s),
        QCommandLineOption(u"buttons"_s, {}, u"names"_s),
        QCommandLineOption(u"latency-report"_s, {}, u"file"_s),
    });

    Parsed result;
    QStringList kept = withoutQtOptions(arguments);
    if (kept.isEmpty())
        kept.append(u"ordalis"_s);
    if (!parser.parse(kept)) {
        result.error = parser.errorText();
        return result;
    }
    if (!parser.positionalArguments().isEmpty()) {
        result.error = u"unexpected argument \"%1\""_s.arg(parser.positionalArguments().constFirst());
        return result;
    }
    // Help and the version win over everything else, as they do everywhere.
    if (parser.isSet(help)) {
        result.invocation.mode = Invocation::Mode::help;
        return result;
    }
    if (parser.isSet(version)) {
        result.invocation.mode = Invocation::Mode::version;
        return result;
    }

    const bool rendering = parser.isSet(u"render"_s);
    struct Command
    {
        QString option;
        RemoteCommand::Kind kind;
    };
    const Command commands[] = {
        { u"show"_s, RemoteCommand::Kind::show },
        { u"hide"_s, RemoteCommand::Kind::hide },
        { u"toggle"_s, RemoteCommand::Kind::toggle },
        { u"settings"_s, RemoteCommand::Kind::settings },
        { u"theme"_s, RemoteCommand::Kind::theme },
        { u"quit"_s, RemoteCommand::Kind::quit },
        { u"pause"_s, RemoteCommand::Kind::pause },
        { u"resume"_s, RemoteCommand::Kind::resume },
    };
    QStringList given;
    for (const Command& command : commands) {
        // With --render, --theme picks the theme to draw.
        if (parser.isSet(command.option) && !(rendering && command.kind == RemoteCommand::Kind::theme)) {
            given.append(u"--"_s + command.option);
            result.invocation.mode = Invocation::Mode::command;
            result.invocation.command.kind = command.kind;
        }
    }
    if (rendering) {
        given.append(u"--render"_s);
        result.invocation.mode = Invocation::Mode::render;
    }
    if (given.size() > 1) {
        result.error = u"%1 cannot be used together: give one of --show, --hide, --toggle, --settings, --theme, "
                       u"--quit, --pause, --resume and --render"_s.arg(given.join(u" and "_s));
        return result;
    }

    if (parser.isSet(u"latency-report"_s)) {
        const RemoteCommand::Kind kind = result.invocation.command.kind;
        const bool starts = result.invocation.mode == Invocation::Mode::start
            || (result.invocation.mode == Invocation::Mode::command && kind != RemoteCommand::Kind::hide
                && kind != RemoteCommand::Kind::quit && kind != RemoteCommand::Kind::pause
                && kind != RemoteCommand::Kind::resume);
        if (!starts) {
            result.error = u"--latency-report is used only when starting Ordalis"_s;
            return result;
        }
        result.invocation.latencyReport = singleValue(parser, u"latency-report"_s, result.error);
        if (result.invocation.latencyReport.isEmpty() && result.error.isEmpty())
            result.error = u"--latency-report needs the name of the file to write"_s;
    }

    if (rendering) {
        parseRenderOptions(parser, result.invocation.render, result.error);
        return result;
    }
    for (const QString& option :
        { u"theme-file"_s, u"width"_s, u"scale"_s, u"keys"_s, u"background"_s, u"layout"_s, u"shape"_s,
            u"trackpad"_s, u"buttons"_s }) {
        if (parser.isSet(option)) {
            result.error = u"--%1 is used only with --render"_s.arg(option);
            return result;
        }
    }
    if (result.invocation.command.kind == RemoteCommand::Kind::theme) {
        result.invocation.command.argument = singleValue(parser, u"theme"_s, result.error);
        if (result.invocation.command.argument.isEmpty() && result.error.isEmpty())
            result.error = u"--theme needs the name of a saved theme"_s;
    }
    return result;
}

QString parseKeys(const QStringList& lists, QList<KeyCode>& keys)
{
    for (const QString& list : lists) {
        for (const QString& part : list.split(u',')) {
            const QString name = part.trimmed();
            if (name.isEmpty())
                continue;
            const std::optional<KeyCode> code = KeyNames::keyCode(name);
            if (!code) {
                return u"no key is named \"%1\"; key names: %2; also: %3"_s.arg(
                    name, KeyNames::canonicalNames().join(u", "_s), KeyNames::aliases().join(u", "_s));
            }
            if (!keys.contains(*code))
                keys.append(*code);
        }
    }
    return {};
}

QString helpText()
{
    return uR"(Usage: ordalis [--show | --hide | --toggle | --settings | --theme NAME | --quit | --pause | --resume]
       ordalis --render FILE [--theme NAME | --theme-file FILE] [--width PX] [--scale DPR]
               [--keys NAMES] [--background COLOUR] [--layout NAME[:VARIANT]] [--shape ansi|iso]
               [--trackpad] [--buttons NAMES]

Ordalis shows the keys you press on an on-screen keyboard. Started with no option, it runs as a tray item, or
shows the keyboard of the Ordalis already running.

Commands for the running Ordalis (the command then ends at once):
  --show           Shows the keyboard. Starts Ordalis showing it when none runs.
  --hide           Hides the keyboard. Does nothing when Ordalis is not running.
  --toggle         Shows or hides the keyboard. Starts Ordalis showing it when none runs.
  --settings       Opens the settings window. Starts Ordalis with it open when none runs.
  --theme NAME     Chooses the saved theme NAME (the exact name, as in the Theme menu). Starts Ordalis with it
                   when none runs.
  --quit           Quits Ordalis. Does nothing when Ordalis is not running.
  --pause          Stops showing keys (the keyboard stays where it is, keys held are let go) until --resume.
                   Does nothing when Ordalis is not running.
  --resume         Shows keys again, unless a private moment (a locked screen, a password prompt) keeps them
                   hidden. Does nothing when Ordalis is not running.

Drawing the keyboard into a PNG picture (needs no display):
  --render FILE    Writes the picture to FILE.
  --theme NAME     Draws the saved theme NAME (default: the active theme).
  --theme-file F   Draws the first theme of the theme document F, or the theme configuration in F.
  --width PX       Width in pixels, 100 to 10000 (default 900); the height follows the keyboard's shape.
  --scale DPR      Draws for a screen of that pixel ratio: the picture is PX × DPR pixels (default 1).
  --keys NAMES     Keys drawn held, comma-separated X key names such as a,shift_l,super_l,f5,space,left, or
                   the aliases cmd_l, cmd_r, option_l, option_r, ctrl, shift, esc, enter. An unknown name
                   lists them all.
  --background C   Fills behind the keyboard with C (a name such as white, #rrggbb or #aarrggbb);
                   transparent by default.
  --layout L       Labels the keys as the keyboard layout L types them: an XKB name such as de, fr, ru or
                   de:nodeadkeys (default: the US labels as printed).
  --shape S        ansi (one-row Return) or iso (tall Return); by default ISO where the layout has a key
                   left of Z, except for US layouts.
  --trackpad       Draws the laptop's trackpad below the keys.
  --buttons NAMES  Trackpad parts drawn lit (implies --trackpad), comma-separated: left, right, middle, back,
                   forward, scroll_up, scroll_down, scroll_left, scroll_right.

Measuring:
  --latency-report F  When this starts Ordalis: measures the time from each key press reaching Ordalis to the
                   end of the repaint that shows it, and writes a summary (count, p50, p99, max) to F on
                   quitting. Only times are kept, never keys.

  -h, --help       Shows this help.
  -v, --version    Shows the version.

Exit status: 0 when done; 1 when something failed (a picture that could not be written, a running Ordalis that
did not answer); 2 for a command line that cannot be followed, an unknown theme, key name or layout.
The same commands are offered over D-Bus as com.quietmakers.Ordalis (see the README).
)"_s;
}

QList<NamedTheme> storedSavedThemes(const QString& settingsPath)
{
    return SettingCodec<QList<NamedTheme>>::decode(storedEntry(settingsPath, SettingKeys::savedThemes().name()))
        .value_or(SettingKeys::savedThemes().defaultValue());
}

ThemeConfig storedActiveTheme(const QString& settingsPath)
{
    return SettingCodec<ThemeConfig>::decode(storedEntry(settingsPath, SettingKeys::activeThemeConfig().name()))
        .value_or(SettingKeys::activeThemeConfig().defaultValue());
}

} // namespace CommandLine
