// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/appdelegate.h"
#include "app/application.h"
#include "app/commandline.h"
#include "app/remotecontrol.h"
#include "app/renderer.h"
#include "base/settingsstore.h"
#include "app/singleinstance.h"
#include "input/inputbackendfactory.h"
#include "input/latencyprobe.h"

#include <QApplication>
#include <QSaveFile>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

/**
 * In a Wayland session with XWayland at hand, runs on X11 unless the user chose a platform: a Wayland client can
 * neither place its own window nor keep it above the others, and the keyboard panel needs both.
 */
void preferXWayland()
{
    if (isWaylandSession() && !qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");
}

void complain(const QString& text)
{
    std::fprintf(stderr, "ordalis: %s\n", qPrintable(text));
}

/** The exit status for what the running instance answered, with its complaint on stderr. */
int reportAnswer(const SingleInstance::Answer& answer)
{
    if (answer.status == SingleInstance::Answer::Status::noReply) {
        complain(u"the running Ordalis did not answer"_s);
        return CommandLine::exitFailure;
    }
    // An instance from before replies existed closes without one; it understood "show", the only request it knew.
    if (const std::optional<QString> error = answer.error()) {
        complain(*error);
        return CommandLine::exitUsage;
    }
    return CommandLine::exitSuccess;
}

/** `ordalis --render`: draws offscreen, so it needs no display server. */
int render(const CommandLine::RenderOptions& options, char* program)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Qt's own options (a -platform among them) have no say here.
    int argc = 1;
    char* argv[] = { program, nullptr };
    QGuiApplication app(argc, argv);
    return KeyboardRenderer::run(options, SettingsStore::defaultFilePath());
}

/** Writes the probe's summary, one line, to `path`. */
bool writeLatencyReport(const LatencyProbe& probe, const QString& path)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
        return false;
    file.write(LatencyProbe::describe(LatencyProbe::summarize(probe.samples())).toUtf8() + '\n');
    file.write(QByteArray("window repaints: ") + QByteArray::number(qulonglong(probe.frames())) + '\n');
    return file.commit();
}

} // namespace

int main(int argc, char* argv[])
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    const CommandLine::Parsed parsed = CommandLine::parse(arguments);
    if (!parsed.ok()) {
        complain(parsed.error);
        std::fputs("Try \"ordalis --help\" for the options.\n", stderr);
        return CommandLine::exitUsage;
    }
    const CommandLine::Invocation& invocation = parsed.invocation;
    using Mode = CommandLine::Invocation::Mode;
    switch (invocation.mode) {
    case Mode::help:
        std::fputs(qPrintable(CommandLine::helpText()), stdout);
        return CommandLine::exitSuccess;
    case Mode::version:
        std::printf("Ordalis %s\n", ORDALIS_VERSION);
        return CommandLine::exitSuccess;
    case Mode::render:
        return render(invocation.render, argv[0]);
    case Mode::start:
    case Mode::command:
        break;
    }

    // A running instance is asked first, without a display: a plain start asks it to show the keyboard.
    const bool command = invocation.mode == Mode::command;
    const RemoteCommand::Kind kind = invocation.command.kind;
    const QByteArray request = command ? invocation.command.toLine() : QByteArray(SingleInstance::showMessage);
    const QString serverName = SingleInstance::defaultServerName();
    // After "quit", wait until that instance has ended, so that a start right after finds none.
    const SingleInstance::Answer answer
        = SingleInstance::ask(serverName, request, command && kind == RemoteCommand::Kind::quit);
    if (answer.reached()) {
        if (!invocation.latencyReport.isEmpty()) {
            complain(u"Ordalis is already running; --latency-report measures only an Ordalis this command starts"_s);
            return CommandLine::exitFailure;
        }
        return reportAnswer(answer);
    }
    if (command
        && (kind == RemoteCommand::Kind::hide || kind == RemoteCommand::Kind::quit || kind == RemoteCommand::Kind::pause
            || kind == RemoteCommand::Kind::resume))
        return CommandLine::exitSuccess;
    if (command && kind == RemoteCommand::Kind::theme) {
        const QList<NamedTheme> saved = CommandLine::storedSavedThemes(SettingsStore::defaultFilePath());
        if (!findSavedTheme(saved, invocation.command.argument)) {
            complain(unknownThemeMessage(invocation.command.argument, saved));
            return CommandLine::exitUsage;
        }
    }

    preferXWayland();
    QApplication app(argc, argv);
    QApplication::setApplicationName(u"Ordalis"_s);
    QApplication::setApplicationVersion(QStringLiteral(ORDALIS_VERSION));
    QApplication::setDesktopFileName(u"com.quietmakers.Ordalis"_s);
    // A tray program: closing a window never ends it.
    QApplication::setQuitOnLastWindowClosed(false);

    // Asked once more: another instance may have started in the meantime.
    SingleInstance instance(serverName);
    if (instance.claim(request) == SingleInstance::Role::secondary)
        return reportAnswer(instance.answer());

    Application::Options options;
    if (command && kind == RemoteCommand::Kind::theme)
        options.themeName = invocation.command.argument;
    options.showKeyboard = command && (kind == RemoteCommand::Kind::show || kind == RemoteCommand::Kind::toggle);
    options.openSettings = command && kind == RemoteCommand::Kind::settings;
    LatencyProbe probe;
    if (!invocation.latencyReport.isEmpty())
        LatencyProbe::setActive(&probe);
    Application ordalis(options);
    instance.setHandler([&ordalis](const RemoteCommand& remote) { return ordalis.remoteControl().run(remote); });
    const int status = QApplication::exec();
    if (!invocation.latencyReport.isEmpty() && !writeLatencyReport(probe, invocation.latencyReport))
        complain(u"could not write the latency report to %1"_s.arg(invocation.latencyReport));
    return status;
}
