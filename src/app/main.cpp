// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/appdelegate.h"
#include "app/application.h"
#include "app/singleinstance.h"

#include <QApplication>
#include <QCommandLineParser>

using namespace Qt::StringLiterals;

namespace {

/**
 * In a Wayland session with XWayland at hand, runs on X11 unless the user chose a platform: a Wayland client can
 * neither place its own window nor keep it above the others, and the keyboard panel needs both.
 */
void preferXWayland()
{
    const bool waylandSession
        = qEnvironmentVariable("XDG_SESSION_TYPE") == u"wayland"_s || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    if (waylandSession && !qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");
}

} // namespace

int main(int argc, char* argv[])
{
    preferXWayland();
    QApplication app(argc, argv);
    QApplication::setApplicationName(u"Ordalis"_s);
    QApplication::setApplicationVersion(QStringLiteral(ORDALIS_VERSION));
    QApplication::setDesktopFileName(u"com.quietmakers.Ordalis"_s);
    // A tray program: closing a window never ends it.
    QApplication::setQuitOnLastWindowClosed(false);

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Shows the keys you press on an on-screen keyboard."_s);
    parser.addHelpOption();
    parser.addVersionOption();
    parser.process(app);

    // A second start only brings the keyboard of the running instance up.
    SingleInstance instance;
    if (instance.claim() == SingleInstance::Role::secondary)
        return 0;

    Application ordalis;
    QObject::connect(
        &instance, &SingleInstance::showRequested, &ordalis, [&ordalis] { ordalis.delegate().showKeyboard(); });
    return QApplication::exec();
}
