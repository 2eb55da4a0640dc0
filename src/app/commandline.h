// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "app/remotecontrol.h"
#include "input/xkblayout.h"
#include "keyboard/keyboardlayout.h"
#include "keyboard/keylabelsettings.h"
#include "keyboard/trackpadview.h"
#include "theme/themeconfig.h"

#include <QColor>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

/**
 * What the program was asked to do on its command line. Parsing needs no Qt application object, so help, the
 * version and every mistake are reported without a display. Qt's own options (-platform, -style, -display, ...) are
 * passed over here and left to the application object.
 */
namespace CommandLine {

/** Exit status: done. */
inline constexpr int exitSuccess = 0;
/** Exit status: something failed while doing it (a file could not be written, the running Ordalis did not answer). */
inline constexpr int exitFailure = 1;
/** Exit status: the command line asks for something that does not exist or cannot be (also an unknown theme). */
inline constexpr int exitUsage = 2;

/** `ordalis --render FILE ...`: a picture of the keyboard. */
struct RenderOptions
{
    QString output;
    /** A saved theme by exact name; with neither this nor a theme file, the active theme is drawn. */
    std::optional<QString> themeName;
    std::optional<QString> themeFile;
    /** In logical pixels; the height follows from the theme. */
    int width = 900;
    /** Device pixel ratio: the picture has width × scale pixels. */
    double scale = 1.0;
    /** Keys drawn held, in the order named, without repeats. */
    QList<KeyCode> heldKeys;
    QColor background = QColor(Qt::transparent);
    /** Legends of this layout; the printed US ones without. */
    std::optional<XkbLayout> layout;
    KeyboardShape shape = KeyboardShape::automatic;
    /** The trackpad below the keys, with these parts lit (buttons held, scroll pulses at their brightest). */
    bool trackpad = false;
    QList<TrackpadView::Part> trackpadParts;
};

inline constexpr int minimumWidth = 100;
inline constexpr int maximumWidth = 10000;
inline constexpr double minimumScale = 0.25;
inline constexpr double maximumScale = 8;
/** The widest picture drawn, in pixels (width × scale). */
inline constexpr int maximumPixelWidth = 16384;

struct Invocation
{
    enum class Mode
    {
        /** No option: start Ordalis, or show the keyboard of the one running. */
        start,
        help,
        version,
        /** One of --show, --hide, --toggle, --settings, --theme, --quit. */
        command,
        render,
    };

    Mode mode = Mode::start;
    /** For Mode::command. */
    RemoteCommand command;
    /** For Mode::render. */
    RenderOptions render;
    /**
     * --latency-report FILE (for measuring, off by default): when this start runs Ordalis, it measures how long
     * each key press takes to show and writes a summary to FILE when it quits.
     */
    QString latencyReport;
};

struct Parsed
{
    Invocation invocation;
    /** Why the command line cannot be followed; empty when it can. */
    QString error;

    bool ok() const { return error.isEmpty(); }
};

/** Reads `arguments`, the program's name first. */
Parsed parse(const QStringList& arguments);

/** The text --help prints. */
QString helpText();

/**
 * Appends the keys named in `lists` (each a comma-separated list of KeyNames names) to `keys`, leaving out repeats.
 * Returns the error, which lists every valid name, or an empty text.
 */
QString parseKeys(const QStringList& lists, QList<KeyCode>& keys);

/**
 * The saved themes as the settings file at `settingsPath` holds them, read without ever writing or moving the
 * file: what the settings store would give (the default list when the file or the entry is missing or unreadable).
 */
QList<NamedTheme> storedSavedThemes(const QString& settingsPath);

/** The active theme configuration as the settings file at `settingsPath` holds it, read the same way. */
ThemeConfig storedActiveTheme(const QString& settingsPath);

} // namespace CommandLine
