# SPDX-License-Identifier: GPL-3.0-or-later
# The platform-free key state monitor, the gesture recogniser and the clock they run on.
target_sources(ordalis_core PRIVATE
    ${CMAKE_CURRENT_SOURCE_DIR}/app/clock.h ${CMAKE_CURRENT_SOURCE_DIR}/app/clock.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/input/inputbackend.h
    ${CMAKE_CURRENT_SOURCE_DIR}/input/keyboardmonitor.h ${CMAKE_CURRENT_SOURCE_DIR}/input/keyboardmonitor.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/input/hotkeymanager.h ${CMAKE_CURRENT_SOURCE_DIR}/input/hotkeymanager.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/input/latencyprobe.h ${CMAKE_CURRENT_SOURCE_DIR}/input/latencyprobe.cpp
)
