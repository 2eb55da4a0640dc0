// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/application.h"

#include <QApplication>
#include <QCommandLineParser>

using namespace Qt::StringLiterals;

int main(int argc, char* argv[])
{
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

    Application ordalis;
    return QApplication::exec();
}
