// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/inputbackendfactory.h"

#include "input/evdevbackend.h"
#include "input/x11backend.h"

#include <QGuiApplication>

using namespace Qt::StringLiterals;

std::unique_ptr<InputBackend> createInputBackend(QObject* parent)
{
    const QString forced = qEnvironmentVariable("ORDALIS_INPUT").trimmed().toLower();
    bool useX11 = QGuiApplication::platformName() == "xcb"_L1;
    if (forced == "x11"_L1)
        useX11 = true;
    else if (forced == "evdev"_L1)
        useX11 = false;

    if (useX11)
        return std::make_unique<X11Backend>(parent);
    return std::make_unique<EvdevBackend>(parent);
}
