// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "keyboard/keyboardlayout.h"
#include "keyboard/trackpadview.h"
#include "theme/themeconfig.h"

#include <QColor>
#include <QImage>
#include <QList>
#include <QSize>
#include <QString>

#include <variant>

namespace CommandLine {
struct RenderOptions;
}

/**
 * Pictures of the keyboard without a window: the same KeyboardScene the panel paints, drawn into an image with
 * some keys held and their press animation finished.
 */
namespace KeyboardRenderer {

struct Picture
{
    ThemeConfig theme;
    /** In logical pixels. */
    int width = 900;
    /** Device pixel ratio of the image. */
    double scale = 1.0;
    QList<KeyCode> heldKeys;
    QColor background = QColor(Qt::transparent);
    bool trackpad = false;
    QList<TrackpadView::Part> trackpadParts;
    /** The shape and legends drawn; the printed US board when null. */
    std::shared_ptr<const KeyBoard> board;
};

/** The size in logical pixels of the keyboard `width` wide in `theme`, as the panel would lay it out. */
QSize logicalSize(int width, const ThemeConfig& theme, bool trackpad = false);

/** Draws `picture`; the image carries its scale as device pixel ratio. Needs a QGuiApplication. */
QImage render(const Picture& picture);

/**
 * The theme in the file at `path`: the first theme of a theme document (a JSON array, as the settings window
 * exports), a single saved theme, or a bare theme configuration. Otherwise the reason it is none of them.
 */
std::variant<ThemeConfig, QString> themeFromFile(const QString& path);

/**
 * `ordalis --render`: finds the theme (saved themes and the active theme come from the settings file at
 * `settingsPath`, which is only read), draws and writes the PNG. Reports on stderr; returns the exit status.
 * Needs a QGuiApplication.
 */
int run(const CommandLine::RenderOptions& options, const QString& settingsPath);

} // namespace KeyboardRenderer
