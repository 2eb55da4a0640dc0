// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/inputbackendfactory.h"

#include "input/devicebackend.h"
#include "input/evdevbackend.h"
#include "input/keyhelperbackend.h"
#include "input/x11backend.h"

#include <QGuiApplication>

using namespace Qt::StringLiterals;

bool isWaylandSession()
{
    return qEnvironmentVariable("XDG_SESSION_TYPE") == "wayland"_L1 || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

std::unique_ptr<InputBackend> createInputBackend(QObject* parent)
{
    const QString forced = qEnvironmentVariable("ORDALIS_INPUT").trimmed().toLower();
    // Under XWayland the X server hears only of keys typed into X windows, so the session decides, not the window.
    bool useX11 = !isWaylandSession() && QGuiApplication::platformName() == "xcb"_L1;
    if (forced == "x11"_L1)
        useX11 = true;
    else if (forced == "evdev"_L1)
        useX11 = false;

    if (useX11)
        return std::make_unique<X11Backend>(parent);
    return std::make_unique<DeviceBackend>(
        std::make_unique<EvdevBackend>(), std::make_unique<KeyHelperBackend>(), parent);
}
