// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/settingswindowplaceholder.h"

#include <QLabel>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

SettingsWindowPlaceholder::SettingsWindowPlaceholder(QWidget* parent)
    : QWidget(parent, Qt::Window)
{
    setWindowTitle(u"Ordalis Settings"_s);
    auto* layout = new QVBoxLayout(this);
    auto* note = new QLabel(tr("The settings will be here. Until then, use the tray menu."), this);
    note->setWordWrap(true);
    layout->addWidget(note);
    resize(420, 160);
}

SettingsWindowPlaceholder::~SettingsWindowPlaceholder() = default;

void SettingsWindowPlaceholder::bringToFront()
{
    if (isMinimized())
        showNormal();
    else
        show();
    raise();
    activateWindow();
}
