// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QList>
#include <QPointF>
#include <QPointer>
#include <QRect>
#include <QRegion>
#include <QWidget>

#include <memory>
#include <optional>

class Clock;
class KeyboardMonitor;
class KeyboardPanel;
class KeyboardScene;
class PanelActions;
class QMenu;
class ResizeHandle;
class SettingsStore;
class X11FrameSink;

/**
 * The drawn content of the keyboard panel: the keyboard scene in the active theme, sized to the panel, with the
 * resize handle in its bottom-right corner and the context menu. Dragging it with the left button anywhere but on
 * the handle moves the panel.
 *
 * Main thread only. `settings`, `clock` and `monitor` must outlive the view; `panel` and `actions` may be nullptr,
 * which leaves the drag and the menu's actions without effect.
 */
class KeyboardContentView final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(KeyboardContentView)

public:
    KeyboardContentView(KeyboardPanel* panel, SettingsStore& settings, Clock& clock, KeyboardMonitor* monitor,
        PanelActions* actions, QWidget* parent = nullptr);
    ~KeyboardContentView() override;

    KeyboardScene& scene() const { return *m_scene; }

    /**
     * Hides the keyboard and the handle while the panel's size changes. The keyboard is laid out only when it shows
     * again, for the size it has then.
     */
    void setContentHidden(bool hidden);

    /** Fills `menu` with the context menu as the settings stand now. */
    void populateContextMenu(QMenu& menu);

    /**
     * The rectangles a repaint of `region` paints, each on its own: the region's pieces joined wherever they touch
     * or overlap, so that no two of them touch.
     */
    static QList<QRect> paintAreas(const QRegion& region);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    void placeHandle();
    /** Draws the animation frame asked for since the last one, straight to the window where it can. */
    void showAnimationFrame();
    /** Paints `region` and puts it on the window past the widget repaint (X11); false where that cannot be done. */
    bool drawDirectly(const QRegion& region);

    QPointer<KeyboardPanel> m_panel;
    SettingsStore& m_settings;
    PanelActions* m_actions;
    KeyboardScene* m_scene;
    ResizeHandle* m_handle;
    bool m_hidden = false;
    std::unique_ptr<X11FrameSink> m_sink;
    bool m_sinkTried = false;
    /** What the animation frame being asked for changes. */
    QRegion m_frame;
    /** Put on the window directly and not repainted since: the backing store still holds older pictures there. */
    QRegion m_directlyDrawn;
    /** Pointer position minus the panel's top-left corner while the background is dragged. */
    std::optional<QPointF> m_dragOffset;
    bool m_moving = false;
};
