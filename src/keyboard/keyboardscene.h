// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "keyboard/keyboardlayout.h"
#include "keyboard/trackpadview.h"
#include "theme/themeconfig.h"
#include "theme/themestyle.h"

#include <QObject>
#include <QPainterPath>
#include <QRectF>
#include <QSizeF>

#include <memory>
#include <optional>

class Clock;
class KeyboardMonitor;
class KeyLabelProvider;
class QPainter;
class SettingsStore;

/**
 * Everything drawn inside the panel: the chassis and the keyboard on it, with each key lit while it is held and
 * fading back when released. It follows the monitor's held keys and Caps Lock light, the active theme and the glow
 * decay setting by itself, and says which rectangle needs repainting through updateRequested(); between key
 * changes it does nothing at all (no timers run while no key animates).
 *
 * Painting is plain QPainter work, so the same scene draws into a widget, an image or a benchmark.
 */
class KeyboardScene final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(KeyboardScene)

public:
    /** `settings`, `clock` and `monitor` (may be nullptr: nothing is ever lit) must outlive the scene. */
    KeyboardScene(SettingsStore& settings, Clock& clock, KeyboardMonitor* monitor, QObject* parent = nullptr);
    ~KeyboardScene() override;

    /**
     * Width over height of the panel for `config`: one spacing of chassis around the keys on every side, and the
     * trackpad below them when `trackpad` is on.
     */
    static double aspectRatio(const ThemeConfig& config, bool trackpad = false);
    /** Unit size for a content area of `size` under `config`: the keys plus one spacing of padding fit in it. */
    static double unitSizeFor(const QSizeF& size, const ThemeConfig& config, bool trackpad = false);

    /** Whether the trackpad is drawn: follows "showTrackpad" unless set here. */
    void setTrackpadShown(bool shown);
    bool isTrackpadShown() const;
    /** The trackpad's surface, empty when it is not drawn. */
    QRectF trackpadRect() const;
    /** A part of the trackpad is held or let go (buttons), or pulses once (scrolling). */
    void setTrackpadPart(TrackpadView::Part part, bool down);
    void pulseTrackpad(TrackpadView::Part part);
    /** How far a part is lit now, as drawn (in the steps of a key). */
    double trackpadProgress(TrackpadView::Part part) const;

    /** Draws `board` (its shape and legends); the table as printed until set. Laid out and repainted at once. */
    void setBoard(std::shared_ptr<const KeyBoard> board);
    const KeyBoard& board() const;
    /** Draws what `labels` decides from now on, following its changes; nullptr goes back to the printed board. */
    void followKeyLabels(KeyLabelProvider* labels);

    /**
     * Draws a lock on the chassis, left of the up arrow, telling that keys are being kept from the screen (not that
     * nothing is typed). Only that spot is repainted.
     */
    void setPaused(bool paused);
    bool isPaused() const;
    /** Where the lock is drawn while paused. */
    QRectF pauseSymbolRect() const;

    /** Draws `config` instead of the active theme; none follows "activeThemeConfig" again. */
    void setThemeConfig(const std::optional<ThemeConfig>& config);
    const ThemeConfig& themeConfig() const;

    /**
     * Whether what is painted can be see-through (a compositor blends the window with the desktop). When it
     * cannot, the chassis is painted opaque. On by default.
     */
    void setTranslucent(bool translucent);

    /**
     * Whether anything shows the scene. While nothing does, keys are followed but no animation frame runs; shown
     * again, the whole scene asks to be repainted. On by default.
     */
    void setShown(bool shown);

    /** The content area in logical pixels (points); the keyboard is laid out again for it. */
    void setSize(const QSizeF& size);
    QSizeF size() const;

    double unitSize() const;
    /** The theme's style scaled to unitSize(). */
    const ThemeStyle& scaledStyle() const;
    /** Outline of the chassis: the whole content area with the chassis corner radius. */
    QPainterPath chassisPath() const;
    /** Face rectangle of the key with `code` at rest (not scaled by a press), or an empty rectangle. */
    QRectF keyRect(KeyCode code) const;

    /** Paints the parts of the scene that intersect `exposed` (the whole scene for a null rectangle). */
    void paint(QPainter& painter, const QRectF& exposed = {}) const;

    /**
     * Whether the updateRequested() being emitted is a step of a running animation (rather than a change of state),
     * which may be drawn the moment animationFrameRequested() follows.
     */
    bool isAnimationFrame() const;
    /** Whether some key (or trackpad button) is still on its way to rest or to full light. */
    bool isAnimating() const;

signals:
    /** `rect` (in scene coordinates) shows something new and must be repainted. */
    void updateRequested(const QRectF& rect);
    /**
     * A frame of the running animations has passed every rectangle it changed through updateRequested() (maybe
     * none); isAnimating() tells whether more frames follow.
     */
    void animationFrameRequested();
    /** The theme or the size changed: the whole scene is laid out again and must be repainted. */
    void layoutChanged();

private:
    void relayout();
    void keyChanged(KeyCode code, bool down);
    void scheduleFrame();
    /** Asks for the repaint of every animating cap whose drawn step is not the one last asked for. */
    void requestChangedSteps();

    struct Private;
    std::unique_ptr<Private> d;
};
