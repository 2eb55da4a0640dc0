// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/clock.h"
#include "panel/clockanimation.h"
#include "panel/screenplacement.h"

#include <QPointer>
#include <QRectF>
#include <QWidget>

#include <utility>

#include <limits>

class HoverTrackingView;
class KeyboardContentView;
class KeyboardMonitor;
class KeyLabelProvider;
class PanelActions;
class QScreen;
class SettingsStore;

/**
 * The floating window that carries the keyboard: frameless, always on top, on every desktop, kept out of task bars,
 * never taking the focus or activating Ordalis. Its width over height stays at the ratio of the keyboard drawing
 * (fixed when it is made), it remembers its width and place, fades and lets clicks through while the pointer is over
 * it (when the user wants that), and shows a flat placeholder instead of the keyboard while its size changes.
 *
 * Coordinates are Qt's: logical pixels, y growing downwards. The settings keep the bottom-left corner: "windowX" is
 * the left edge and "windowY" the bottom edge.
 *
 * Each time it is shown it goes to the screen "showOnScreen" asks for, at its place relative to that screen. Its
 * place is kept per set-up of screens ("placesBySetup"), and when the screens change it goes to the place it had on
 * the new set-up, or stays on its screen, or moves onto another one: always wholly on a screen. On a screen too
 * small for it, it shows narrower (below the minimum width if need be) and takes its own width back on a larger one.
 *
 * Main thread only. `settings`, `clock` and `monitor` must outlive the panel; `actions` may be nullptr.
 */
class KeyboardPanel final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(KeyboardPanel)

public:
    /** Narrowest width the panel takes, in logical pixels. */
    static constexpr double minimumPanelWidth = 700;
    /**
     * Widest width the panel takes: wider than any screen, yet small enough that the window's pixels fit an int and
     * its image fits in memory, whatever a hand-edited settings file asks for.
     */
    static constexpr double maximumPanelWidth = 8192;
    /** Seconds of the fade to and from the hover opacity; click-through follows this long after entering. */
    static constexpr double fadeDuration = 0.15;
    /** Seconds after the last size change at which the keyboard replaces the placeholder. */
    static constexpr double resizeSettleDelay = 0.2;

    KeyboardPanel(SettingsStore& settings, Clock& clock, KeyboardMonitor* monitor, PanelActions* actions,
        QWidget* parent = nullptr);
    ~KeyboardPanel() override;

    /** Draws the shape and legends `labels` decides (the printed board until then). */
    void setKeyLabels(KeyLabelProvider* labels);
    /** Shows that keys are being kept from the screen: a lock on the chassis. */
    void setPaused(bool paused);

    /** Width over height of every frame, from the theme active when the panel was made. */
    double currentAspectRatio() const { return m_ratio; }
    /** Where it is on the current set-up of screens, with the width the user gave it. */
    ScreenPlacement::Place place() const { return m_place; }
    /** The frame as last set, at full precision (the window itself lies on whole pixels). */
    QRectF frame() const { return m_frame; }
    /** The smallest frame: minimumPanelWidth wide, at the panel's ratio. */
    QSizeF minimumFrameSize() const;

    /**
     * The one way the frame changes. Keeps the requested left and top edges and width (within the minimum and maximum)
     * and takes the height from the ratio; the requested height is ignored. A change of size shows the placeholder
     * and (re)starts its removal timer. Stores the width and the place.
     */
    void setFrame(const QRectF& requested);
    /** Moves the panel's top-left corner to `topLeft` without changing its size, and stores the place. */
    void setFrameOrigin(const QPointF& topLeft);

    /**
     * Between these two, a pointer drag moves or resizes the panel: the frame follows every step, but the width and
     * place are stored once, at the end, rather than rewriting the settings file many times a second.
     */
    void beginGesture();
    void endGesture();

    /** The pointer is over the panel. Written only by the hover tracking view; read by the gesture hotkeys. */
    bool isHovering() const { return m_isHovering; }
    void setHovering(bool hovering)
    {
        if (std::exchange(m_isHovering, hovering) != hovering)
            emit hoveringChanged(hovering);
    }

    /** Clock time at which the panel was last shown, set by whoever shows it; minus infinity before that. */
    double shownAt() const { return m_shownAt; }
    void setShownAt(double time) { m_shownAt = time; }

    /** Called right after isHovering became true: fades and, 0.15 s later, lets clicks through if auto-hide is on. */
    void hoverEntered();
    /** Called right after isHovering became false: comes back to full opacity. */
    void hoverExited();
    /** Switches "autoHideOnHover" over; switched on while hovering, the panel fades at once. */
    void toggleAutoHide();

    /** Puts the placeholder in the chassis colour over everything and hides the keyboard. */
    void showResizeOverlay();
    /** Removes the placeholder and shows the keyboard again, laid out for the current size. */
    void hideResizeOverlay();
    /** Pointer clicks pass through to the windows below. */
    bool isClickThrough() const { return m_clickThrough; }

    HoverTrackingView* hoverTrackingView() const { return m_tracking; }
    KeyboardContentView* contentView() const { return m_content; }

signals:
    /** The panel started or stopped letting clicks through. */
    void clickThroughChanged(bool clickThrough);
    /** isHovering() changed. */
    void hoveringChanged(bool hovering);

protected:
    bool event(QEvent* event) override;
    void moveEvent(QMoveEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void applyFrame(const QRectF& frame);
    /** Stores the frame and keeps it as the place on the current set-up (on the screen `screen` when given). */
    void storeFrame(const QString& screen = {});
    void rememberPlace(const QString& screen = {});
    /** Shows `place` on screens[index]. */
    void placeOn(const QList<ScreenPlacement::Screen>& screens, qsizetype index, const ScreenPlacement::Place& place);
    /** Goes to the screen "showOnScreen" asks for. */
    void placeForShowing();
    /** Follows a change of the screens; `leaving` is a screen being taken away. */
    void followScreens(const QScreen* leaving = nullptr);
    void watchScreen(QScreen* screen);
    void followWindowSystem();
    void setClickThrough(bool on);
    void fadeTo(double opacity);
    void updateBlurBehind();
    void updateWindowShape();
    static QRect pixelRect(const QRectF& frame);
    bool placeIsOnAScreen(const QRectF& frame) const;

    SettingsStore& m_settings;
    Clock& m_clock;
    double m_ratio = 2.67;
    QRectF m_frame;
    ScreenPlacement::Place m_place;
    /** The set-up the place was last kept for. */
    QString m_setup;
    const QScreen* m_leavingScreen = nullptr;
    bool m_isHovering = false;
    double m_shownAt = -std::numeric_limits<double>::infinity();
    bool m_clickThrough = false;
    bool m_applyingFrame = false;
    bool m_inGesture = false;
    bool m_frameUnstored = false;
    bool m_blurRequested = false;
    bool m_shaped = false;
    ClockAnimation m_alpha;
    Clock::JobHandle m_resizeTimer = 0;
    Clock::JobHandle m_clickThroughJob = 0;
    HoverTrackingView* m_tracking = nullptr;
    KeyboardContentView* m_content = nullptr;
    QPointer<QWidget> m_resizeOverlay;
};
