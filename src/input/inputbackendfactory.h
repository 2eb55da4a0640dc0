// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>

class InputBackend;
class QObject;

/**
 * The back end for this session: X11 on the xcb platform, evdev otherwise (Wayland, where other clients' keys
 * cannot be read from the display server). The environment variable ORDALIS_INPUT=x11 or ORDALIS_INPUT=evdev forces
 * one. Call after the QGuiApplication exists; the back end is not started.
 */
std::unique_ptr<InputBackend> createInputBackend(QObject* parent = nullptr);
