// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/renderer.h"

#include "base/clock.h"
#include "app/commandline.h"
#include "app/remotecontrol.h"
#include "base/settingsstore.h"
#include "input/keyboardmonitor.h"
#include "keyboard/keyboardscene.h"
#include "keyboard/keylabelprovider.h"
#include "theme/themejson.h"

#include <QFile>
#include <QImageWriter>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPainter>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace KeyboardRenderer {

namespace {

// A theme file is a few kilobytes; a document with every built-in theme stays far below this.
constexpr qint64 maxThemeFileSize = 4 * 1024 * 1024;
// Seconds after the keys go down at which every press animation has long finished.
constexpr double settleTime = 5.0;

void report(const QString& text)
{
    std::fprintf(stderr, "ordalis: %s\n", qPrintable(text));
}

/** Whether `object` has at least one key of a theme configuration, so that it is meant as one. */
bool looksLikeThemeConfig(const QJsonObject& object)
{
    const QStringList keys = ThemeJson::toJson(ThemeConfig {}).keys();
    return std::any_of(keys.begin(), keys.end(), [&object](const QString& key) { return object.contains(key); });
}

} // namespace

QSize logicalSize(int width, const ThemeConfig& theme, bool trackpad)
{
    double ratio = KeyboardScene::aspectRatio(theme, trackpad);
    if (!std::isfinite(ratio) || ratio <= 0)
        ratio = KeyboardScene::aspectRatio(defaultThemeConfig(), trackpad);
    const double height = std::clamp(double(width) / ratio, 1.0, double(CommandLine::maximumPixelWidth));
    // Rounded as the panel rounds its frame to whole pixels.
    return { width, qRound(height) };
}

QImage render(const Picture& picture)
{
    // The scene and the monitor read a few settings; they get a store of their own, so the user's stay untouched.
    QTemporaryDir folder;
    SettingsStore settings(folder.filePath(u"settings.json"_s));
    ManualClock clock;
    KeyboardMonitor monitor(settings, clock);
    KeyboardScene scene(settings, clock, &monitor);
    scene.setThemeConfig(picture.theme);
    if (picture.board)
        scene.setBoard(picture.board);
    scene.setTrackpadShown(picture.trackpad);
    const QSize size = logicalSize(picture.width, picture.theme, picture.trackpad);
    scene.setSize(QSizeF(size));
    for (KeyCode code : picture.heldKeys)
        monitor.handleKeyDown(code);
    for (TrackpadView::Part part : picture.trackpadParts) {
        if (!TrackpadView::isPulse(part))
            scene.setTrackpadPart(part, true);
    }
    clock.advance(settleTime);
    // Pulses fade by themselves: they are drawn at the moment they start.
    for (TrackpadView::Part part : picture.trackpadParts) {
        if (TrackpadView::isPulse(part))
            scene.pulseTrackpad(part);
    }

    QImage image((QSizeF(size) * picture.scale).toSize(), QImage::Format_ARGB32_Premultiplied);
    if (image.isNull())
        return image;
    image.setDevicePixelRatio(picture.scale);
    image.fill(picture.background);
    QPainter painter(&image);
    scene.paint(painter);
    painter.end();
    return image;
}

std::variant<ThemeConfig, QString> themeFromFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return u"cannot read the theme file %1: %2"_s.arg(path, file.errorString());
    const QByteArray bytes = file.read(maxThemeFileSize + 1);
    if (bytes.size() > maxThemeFileSize)
        return u"%1 is too large to be a theme file"_s.arg(path);
    QJsonParseError error {};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError)
        return u"%1 is not JSON: %2 at byte %3"_s.arg(path, error.errorString()).arg(error.offset);

    if (document.isArray()) {
        const std::optional<QList<NamedTheme>> themes = ThemeJson::decodeDocument(bytes);
        if (!themes)
            return u"%1 is not a theme document: each element must be a theme with an id, a name and a config"_s.arg(
                path);
        if (themes->isEmpty())
            return u"the theme document %1 holds no theme"_s.arg(path);
        return themes->constFirst().config;
    }
    const QJsonObject object = document.object();
    if (object.contains(u"config"_s)) {
        if (const std::optional<NamedTheme> theme = ThemeJson::namedThemeFromJson(object))
            return theme->config;
        return u"%1 is not a theme: it needs an id, a name and a config of the right kinds"_s.arg(path);
    }
    if (!looksLikeThemeConfig(object))
        return u"%1 is neither a theme document nor a theme configuration"_s.arg(path);
    if (const std::optional<ThemeConfig> config = ThemeJson::configFromJson(object))
        return *config;
    return u"%1 is not a theme configuration: a value has the wrong kind"_s.arg(path);
}

int run(const CommandLine::RenderOptions& options, const QString& settingsPath)
{
    Picture picture;
    picture.width = options.width;
    picture.scale = options.scale;
    picture.heldKeys = options.heldKeys;
    picture.background = options.background;
    picture.trackpad = options.trackpad;
    picture.trackpadParts = options.trackpadParts;
    if (options.layout || options.shape != KeyboardShape::automatic) {
        const KeyLabels labels = options.layout ? KeyLabels { KeyLabels::Mode::fixedLayout, *options.layout }
                                                : KeyLabels { KeyLabels::Mode::printed, {} };
        XkbLayout shown;
        picture.board = KeyLabelProvider::boardFor(labels, options.shape, {}, &shown);
        if (options.layout && shown != *options.layout)
            report(u"the keyboard layout %1 could not be read; the keys show US labels"_s.arg(options.layout->toString()));
    }

    if (options.themeFile) {
        std::variant<ThemeConfig, QString> theme = themeFromFile(*options.themeFile);
        if (const QString* error = std::get_if<QString>(&theme)) {
            report(*error);
            return CommandLine::exitUsage;
        }
        picture.theme = std::get<ThemeConfig>(theme);
    } else if (options.themeName) {
        QList<NamedTheme> saved = CommandLine::storedSavedThemes(settingsPath);
        if (saved.isEmpty())
            saved = builtInThemes();
        const std::optional<NamedTheme> theme = findSavedTheme(saved, *options.themeName);
        if (!theme) {
            report(unknownThemeMessage(*options.themeName, saved));
            return CommandLine::exitUsage;
        }
        picture.theme = theme->config;
    } else {
        picture.theme = CommandLine::storedActiveTheme(settingsPath);
    }

    const QImage image = render(picture);
    if (image.isNull()) {
        report(u"not enough memory for a picture of that size"_s);
        return CommandLine::exitFailure;
    }
    QImageWriter writer(options.output, "png");
    if (!writer.write(image)) {
        report(u"cannot write %1: %2"_s.arg(options.output, writer.errorString()));
        return CommandLine::exitFailure;
    }
    return CommandLine::exitSuccess;
}

} // namespace KeyboardRenderer
