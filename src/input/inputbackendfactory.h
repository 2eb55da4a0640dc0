// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>

class InputBackend;
class QObject;

/** Whether this is a Wayland session (XDG_SESSION_TYPE=wayland, or WAYLAND_DISPLAY set), whatever Qt runs on. */
bool isWaylandSession();

/**
 * The back end for this session: X11 on an X11 session, the keyboard devices on a Wayland session (even while the
 * window goes through XWayland, whose X server hears only of keys typed into X windows) and wherever there is no X
 * display. The environment variable ORDALIS_INPUT=x11 or ORDALIS_INPUT=evdev forces one. Call after the
 * QGuiApplication exists; the back end is not started.
 */
std::unique_ptr<InputBackend> createInputBackend(QObject* parent = nullptr);
