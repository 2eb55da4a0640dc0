// SPDX-License-Identifier: GPL-3.0-or-later
#include "panel/keyboardcontentview.h"

#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "input/keyboardmonitor.h"
#include "input/latencyprobe.h"
#include "keyboard/keyboardscene.h"
#include "panel/keyboardpanel.h"
#include "panel/panelactions.h"
#include "panel/resizehandle.h"
#include "panel/screenplacement.h"
#include "panel/thememenu.h"
#include "panel/x11framesink.h"

#include <QActionGroup>
#include <QContextMenuEvent>
#include <QGuiApplication>
#include <QMenu>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QWindow>

#include <algorithm>
#include <cmath>
#include <utility>

using namespace Qt::StringLiterals;

KeyboardContentView::KeyboardContentView(KeyboardPanel* panel, SettingsStore& settings, Clock& clock,
    KeyboardMonitor* monitor, PanelActions* actions, QWidget* parent)
    : QWidget(parent)
    , m_panel(panel)
    , m_settings(settings)
    , m_actions(actions)
    , m_scene(new KeyboardScene(settings, clock, monitor, this))
    , m_handle(new ResizeHandle(panel, clock, this))
{
    setFocusPolicy(Qt::NoFocus);
    connect(m_scene, &KeyboardScene::updateRequested, this, [this](const QRectF& rect) {
        if (m_hidden)
            return;
        if (m_scene->isAnimationFrame())
            m_frame |= rect.toAlignedRect();
        else
            update(rect.toAlignedRect());
    });
    connect(m_scene, &KeyboardScene::animationFrameRequested, this, &KeyboardContentView::showAnimationFrame);
    connect(m_scene, &KeyboardScene::layoutChanged, this, [this] { update(); });
    // Connected after the scene, which asks for the repaint of a key first.
    if (LatencyProbe::active() && monitor) {
        connect(monitor, &KeyboardMonitor::keyChanged, this, [](KeyCode, bool down) {
            if (LatencyProbe* probe = LatencyProbe::active(); probe && down)
                probe->keyShown();
        });
    }
}

KeyboardContentView::~KeyboardContentView() = default;

void KeyboardContentView::setContentHidden(bool hidden)
{
    if (m_hidden == hidden)
        return;
    m_hidden = hidden;
    m_handle->setConcealed(hidden);
    if (!hidden)
        m_scene->setSize(QSizeF(size()));
    update();
}

void KeyboardContentView::showAnimationFrame()
{
    const QRegion frame = std::exchange(m_frame, {}) & rect();
    if (!frame.isEmpty() && !drawDirectly(frame))
        update(frame);
    // Once nothing moves, the backing store catches up with what was put on the screen past it.
    if (!m_scene->isAnimating() && !m_directlyDrawn.isEmpty())
        update(std::exchange(m_directlyDrawn, {}));
}

bool KeyboardContentView::drawDirectly(const QRegion& region)
{
    QWindow* handle = window()->windowHandle();
    if (m_hidden || !isVisible() || !handle || !handle->isExposed())
        return false;
    if (!m_sinkTried) {
        m_sinkTried = true;
        m_sink = X11FrameSink::create(window());
    }
    if (!m_sink)
        return false;
    // The resize handle is drawn over the keyboard; where it lies, the widget repaint draws both.
    const QList<QWidget*> children = findChildren<QWidget*>(Qt::FindDirectChildrenOnly);
    if (std::ranges::any_of(
            children, [&region](QWidget* child) { return child->isVisible() && region.intersects(child->geometry()); }))
        return false;

    const qreal dpr = devicePixelRatioF();
    const QPoint offset = mapTo(window(), QPoint(0, 0));
    for (const QRect& area : paintAreas(region)) {
        // Whole device pixels, in the window's coordinates.
        const QRectF logical = QRectF(area.translated(offset));
        const QRect device(QPoint(int(std::floor(logical.left() * dpr)), int(std::floor(logical.top() * dpr))),
            QPoint(int(std::ceil(logical.right() * dpr)) - 1, int(std::ceil(logical.bottom() * dpr)) - 1));
        QImage image(device.size(), QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(dpr);
        image.fill(Qt::transparent);
        {
            QPainter painter(&image);
            const QPointF origin = QPointF(device.topLeft()) / dpr - QPointF(offset);
            painter.translate(-origin);
            m_scene->paint(painter, QRectF(origin, QSizeF(device.size()) / dpr));
        }
        if (!m_sink->put(image, device.topLeft())) {
            m_sink.reset();
            m_sinkTried = false;
            return false;
        }
        m_directlyDrawn |= area;
    }
    if (LatencyProbe* probe = LatencyProbe::active())
        probe->frameFinished();
    return true;
}

void KeyboardContentView::paintEvent(QPaintEvent* event)
{
    if (m_hidden)
        return;
    m_directlyDrawn -= event->region();
    QPainter painter(this);
    // Keys far apart are painted apart: the bounding rectangle of two keys at both ends would hold the whole row.
    const QList<QRect> areas = paintAreas(event->region());
    for (const QRect& area : areas) {
        if (areas.size() > 1)
            painter.setClipRect(area);
        m_scene->paint(painter, QRectF(area));
    }
    if (LatencyProbe* probe = LatencyProbe::active())
        probe->keyboardPainted();
}

QList<QRect> KeyboardContentView::paintAreas(const QRegion& region)
{
    // A region keeps its rectangles in bands, so one key's rectangle may come in several pieces: pieces that touch
    // are joined again, until no two areas touch.
    QList<QRect> areas(region.begin(), region.end());
    for (bool joined = true; joined;) {
        joined = false;
        for (qsizetype i = 0; i < areas.size() && !joined; ++i) {
            for (qsizetype j = i + 1; j < areas.size(); ++j) {
                if (areas[i].adjusted(0, 0, 1, 1).intersects(areas[j])) {
                    areas[i] |= areas.takeAt(j);
                    joined = true;
                    break;
                }
            }
        }
    }
    return areas;
}

void KeyboardContentView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    m_scene->setShown(true);
}

void KeyboardContentView::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    // Nobody sees the keys light while the panel is hidden: no frames run.
    m_scene->setShown(false);
}

void KeyboardContentView::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    placeHandle();
    // While the size is changing only the placeholder shows; the keyboard is laid out once, when it settles.
    if (!m_hidden)
        m_scene->setSize(QSizeF(size()));
}

void KeyboardContentView::placeHandle()
{
    const int side = ResizeHandle::side();
    // It overhangs the corner; the window cuts off what lies outside.
    const int overhang = int(ResizeHandle::overhang);
    m_handle->setGeometry(width() - side + overhang, height() - side + overhang, side, side);
}

void KeyboardContentView::populateContextMenu(QMenu& menu)
{
    const bool visible = m_actions && m_actions->isVisible();
    QAction* visibility = menu.addAction(visible ? tr("Hide Keyboard") : tr("Show Keyboard"));
    connect(visibility, &QAction::triggered, this, [this, visible] {
        if (!m_actions)
            return;
        if (visible)
            m_actions->hideKeyboard();
        else
            m_actions->showKeyboard();
    });

    QAction* pause = menu.addAction(tr("Pause Showing Keys"));
    pause->setCheckable(true);
    pause->setChecked(m_actions && m_actions->isPausedByHand());
    connect(pause, &QAction::toggled, this, [this](bool on) {
        if (m_actions)
            m_actions->setPausedByHand(on);
    });

    QAction* trackpad = menu.addAction(tr("Show Trackpad"));
    trackpad->setCheckable(true);
    trackpad->setChecked(m_settings.value(SettingKeys::showTrackpad()));
    connect(trackpad, &QAction::toggled, this, [this](bool on) { m_settings.setValue(SettingKeys::showTrackpad(), on); });

    menu.addSeparator();

    ThemeMenu::addTo(menu, m_settings);

    QMenu* showOn = menu.addMenu(tr("Show On"));
    auto* screens = new QActionGroup(showOn);
    const QString chosen = m_settings.value(SettingKeys::showOnScreen());
    for (const ScreenPlacement::Choice& choice :
        ScreenPlacement::choices(ScreenPlacement::connectedScreens(), chosen)) {
        QAction* item = showOn->addAction(choice.label);
        item->setCheckable(true);
        item->setChecked(choice.value == chosen);
        screens->addAction(item);
        connect(item, &QAction::triggered, this,
            [this, value = choice.value] { m_settings.setValue(SettingKeys::showOnScreen(), value); });
    }

    menu.addSeparator();

    QAction* settings = menu.addAction(tr("Settings…"));
    connect(settings, &QAction::triggered, this, [this] {
        if (m_actions)
            m_actions->openSettings();
    });
}

void KeyboardContentView::contextMenuEvent(QContextMenuEvent* event)
{
    if (QMenu* full = m_actions ? m_actions->fullMenu() : nullptr) {
        full->exec(event->globalPos());
        return;
    }
    QMenu menu(this);
    populateContextMenu(menu);
    menu.exec(event->globalPos());
}

void KeyboardContentView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton || !m_panel) {
        QWidget::mousePressEvent(event);
        return;
    }
    // A Wayland client cannot place its own window; the compositor moves it instead.
    if (QGuiApplication::platformName().startsWith(u"wayland"_s)) {
        if (QWindow* window = m_panel->windowHandle())
            window->startSystemMove();
        return;
    }
    m_dragOffset = event->globalPosition() - m_panel->frame().topLeft();
}

void KeyboardContentView::mouseMoveEvent(QMouseEvent* event)
{
    if (!m_dragOffset || !m_panel || !(event->buttons() & Qt::LeftButton)) {
        QWidget::mouseMoveEvent(event);
        return;
    }
    if (!m_moving) {
        m_moving = true;
        m_panel->beginGesture();
    }
    m_panel->setFrameOrigin(event->globalPosition() - *m_dragOffset);
}

void KeyboardContentView::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) {
        m_dragOffset.reset();
        if (m_moving && m_panel)
            m_panel->endGesture();
        m_moving = false;
    }
    QWidget::mouseReleaseEvent(event);
}
