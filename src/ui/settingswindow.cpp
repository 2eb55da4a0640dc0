// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/settingswindow.h"

#include "input/hotkeymanager.h"
#include "input/keyboardmonitor.h"
#include "ui/generalsettingstab.h"
#include "ui/qtthemefileaccess.h"
#include "ui/stylingsettingstab.h"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QScreen>
#include <QTabWidget>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

// Wide enough for the label, control and value columns with room for the sliders; tall enough for a section or
// two without scrolling. The tabs scroll beyond that.
constexpr QSize preferredSize { 600, 720 };

} // namespace

SettingsWindow::SettingsWindow(
    SettingsStore& settings, KeyboardMonitor* monitor, UpdaterManager* updater, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_settings(settings)
    , m_monitor(monitor)
    , m_updater(updater)
    , m_files(std::make_unique<QtThemeFileAccess>(this))
{
    setWindowTitle(tr("Ordalis Settings"));
    setObjectName(u"settingsWindow"_s);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 8, 8, 8);

    QSize size = preferredSize;
    if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        const QRect available = screen->availableGeometry();
        size = size.boundedTo(available.size() * 0.9);
    }
    resize(size);
}

SettingsWindow::~SettingsWindow()
{
    // The tabs end HyperKey recordings and disconnect from the store as they go; do that before the file access.
    dropContent();
}

void SettingsWindow::buildContent()
{
    if (m_tabs)
        return;
    m_tabs = new QTabWidget(this);
    m_tabs->setDocumentMode(true);
    auto* styling = new StylingSettingsTab(m_settings, *m_files, m_tabs);
    styling->setObjectName(u"styling"_s);
    m_tabs->addTab(styling, tr("Styling"));
    auto* general = new GeneralSettingsTab(m_settings, m_monitor.data(), m_updater.data(), m_tabs);
    general->setObjectName(u"general"_s);
    m_tabs->addTab(general, tr("General"));
    m_tabs->setCurrentIndex(0);
    layout()->addWidget(m_tabs);
    setMinimumWidth(std::max(styling->minimumSizeHint().width(), general->minimumSizeHint().width()) + 16);
}

void SettingsWindow::dropContent()
{
    delete m_tabs.data();
}

StylingSettingsTab* SettingsWindow::stylingTab() const
{
    return m_tabs ? qobject_cast<StylingSettingsTab*>(m_tabs->widget(0)) : nullptr;
}

GeneralSettingsTab* SettingsWindow::generalTab() const
{
    return m_tabs ? qobject_cast<GeneralSettingsTab*>(m_tabs->widget(1)) : nullptr;
}

void SettingsWindow::bringToFront()
{
    buildContent();
    if (isMinimized())
        showNormal();
    else
        show();
    raise();
    activateWindow();
}

void SettingsWindow::closeEvent(QCloseEvent* event)
{
    QWidget::closeEvent(event);
    if (event->isAccepted())
        dropContent();
}
