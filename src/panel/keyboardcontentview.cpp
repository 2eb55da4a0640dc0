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

#include <QActionGroup>
#include <QContextMenuEvent>
#include <QGuiApplication>
#include <QMenu>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QWindow>

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
        if (!m_hidden)
            update(rect.toAlignedRect());
    });
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

void KeyboardContentView::paintEvent(QPaintEvent* event)
{
    if (m_hidden)
        return;
    QPainter painter(this);
    m_scene->paint(painter, QRectF(event->rect()));
    if (LatencyProbe* probe = LatencyProbe::active())
        probe->keyboardPainted();
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
