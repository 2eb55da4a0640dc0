// SPDX-License-Identifier: GPL-3.0-or-later
// Shared by the tests that run on a private X server: the server itself, helper programs that end with the test, X
// queries over Qt's own connection, xdotool, and reading the screen back.
#pragma once

#include <QGuiApplication>
#include <QImage>
#include <QPixmap>
#include <QProcess>
#include <QRect>
#include <QScreen>
#include <QStandardPaths>
#include <QTest>

#include <csignal>
#include <cstdlib>
#include <memory>

#include <sys/prctl.h>
#include <xcb/xcb.h>

namespace X11Test {

using namespace Qt::StringLiterals;

/** Milliseconds any one thing may take to show up on a busy two-core machine. */
inline constexpr int deadline = 20000;

template <typename T> struct FreeDeleter
{
    void operator()(T* p) const { std::free(p); }
};

template <typename T> using Reply = std::unique_ptr<T, FreeDeleter<T>>;

/** Ends a helper program: asks it to, and waits until it has. */
struct Ending
{
    void operator()(QProcess* process) const
    {
        process->terminate();
        process->waitForFinished(deadline);
        delete process;
    }
};

using Helper = std::unique_ptr<QProcess, Ending>;

/**
 * Starts a helper program that ends with the test, also when a timeout kills the test; null when it did not start.
 * Its output goes to the files named, or is kept for reading; its errors are passed on unless a file is named.
 */
inline Helper launch(const QString& program, const QStringList& args, const QProcessEnvironment& env,
    const QString& out = {}, const QString& err = {})
{
    Helper process(new QProcess);
    process->setProcessEnvironment(env);
    process->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    if (!out.isEmpty())
        process->setStandardOutputFile(out);
    if (err.isEmpty())
        process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    else
        process->setStandardErrorFile(err);
    process->start(program, args);
    return process->waitForStarted(deadline) ? std::move(process) : nullptr;
}

inline xcb_connection_t* connection()
{
    return qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
}

inline xcb_window_t root()
{
    return xcb_setup_roots_iterator(xcb_get_setup(connection())).data->root;
}

inline xcb_atom_t atom(const char* name)
{
    const Reply<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(connection(), xcb_intern_atom(connection(), 0, quint16(qstrlen(name)), name), nullptr));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

/** The bytes of a property, empty when it is missing. */
inline QByteArray propertyBytes(xcb_window_t window, const char* name)
{
    const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection(),
        xcb_get_property(connection(), 0, window, atom(name), XCB_GET_PROPERTY_TYPE_ANY, 0, 4096), nullptr));
    if (!reply)
        return {};
    return { static_cast<const char*>(xcb_get_property_value(reply.get())),
        xcb_get_property_value_length(reply.get()) };
}

/** Where `window` lies on the screen. */
inline QRect geometry(xcb_window_t window)
{
    xcb_connection_t* c = connection();
    const Reply<xcb_get_geometry_reply_t> size(xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr));
    const Reply<xcb_translate_coordinates_reply_t> place(
        xcb_translate_coordinates_reply(c, xcb_translate_coordinates(c, window, root(), 0, 0), nullptr));
    return size && place ? QRect(place->dst_x, place->dst_y, size->width, size->height) : QRect();
}

inline bool xdotool(const QStringList& args)
{
    return QProcess::execute(u"xdotool"_s, args) == 0;
}

/** Whether two colours agree to within rounding. */
inline bool near(const QColor& a, const QColor& b)
{
    return std::abs(a.red() - b.red()) <= 2 && std::abs(a.green() - b.green()) <= 2
        && std::abs(a.blue() - b.blue()) <= 2;
}

inline QColor screenColour(const QPoint& point)
{
    const QImage pixel = QGuiApplication::primaryScreen()->grabWindow(0, point.x(), point.y(), 1, 1).toImage();
    return pixel.isNull() ? QColor() : pixel.pixelColor(0, 0);
}

/** Waits until the screen at `point` shows `colour`; says what it shows instead when it never does. */
inline bool waitForColour(const QPoint& point, const QColor& colour)
{
    if (QTest::qWaitFor([&] { return near(screenColour(point), colour); }, deadline))
        return true;
    qWarning("%d,%d shows %s, not %s", point.x(), point.y(), qPrintable(screenColour(point).name()),
        qPrintable(colour.name()));
    return false;
}

/**
 * Starts a private Xvfb on the first free display and points DISPLAY and the Qt platform at it (offscreen when it
 * could not start, so the tests skip). Call it before the QGuiApplication exists; keep the result for the whole run.
 */
inline Helper startXServer(int width, int height)
{
    Helper server = QStandardPaths::findExecutable(u"Xvfb"_s).isEmpty()
        ? nullptr
        : launch(u"Xvfb"_s,
            { u"-displayfd"_s, u"1"_s, u"-nolisten"_s, u"tcp"_s, u"-screen"_s, u"0"_s,
                u"%1x%2x24"_s.arg(width).arg(height) },
            QProcessEnvironment::systemEnvironment());
    QByteArray display;
    while (server && !display.endsWith('\n') && server->waitForReadyRead(deadline))
        display += server->readAllStandardOutput();
    display = display.trimmed();
    qputenv("DISPLAY", display.isEmpty() ? QByteArray() : ':' + display);
    qputenv("QT_QPA_PLATFORM", display.isEmpty() ? "offscreen" : "xcb");
    return server;
}

} // namespace X11Test
