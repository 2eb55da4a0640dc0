# SPDX-License-Identifier: GPL-3.0-or-later
# The Linux input back ends: the key table and event processing they share, evdev (directly, or through the key
# helper), X11, and the factory that picks one. Included from src/CMakeLists.txt.
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBEVDEV REQUIRED IMPORTED_TARGET GLOBAL libevdev)
pkg_check_modules(XCB REQUIRED IMPORTED_TARGET GLOBAL xcb xcb-xkb xcb-xinput)

# Platform-free: translation to the layout's key codes and the per-device key bookkeeping.
add_library(ordalis_input_common STATIC
    ${CMAKE_CURRENT_SOURCE_DIR}/input/linuxkeymap.h ${CMAKE_CURRENT_SOURCE_DIR}/input/linuxkeymap.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/input/keyeventprocessor.h ${CMAKE_CURRENT_SOURCE_DIR}/input/keyeventprocessor.cpp
)
target_link_libraries(ordalis_input_common PUBLIC ordalis_core Qt6::Core PRIVATE ordalis_warnings)

add_library(ordalis_input_evdev STATIC
    ${CMAKE_CURRENT_SOURCE_DIR}/input/evdeveventstream.h ${CMAKE_CURRENT_SOURCE_DIR}/input/evdeveventstream.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/input/evdevbackend.h ${CMAKE_CURRENT_SOURCE_DIR}/input/evdevbackend.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/input/keyhelperprotocol.h
    ${CMAKE_CURRENT_SOURCE_DIR}/input/keyhelperstream.h ${CMAKE_CURRENT_SOURCE_DIR}/input/keyhelperstream.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/input/keyhelperbackend.h ${CMAKE_CURRENT_SOURCE_DIR}/input/keyhelperbackend.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/input/devicebackend.h ${CMAKE_CURRENT_SOURCE_DIR}/input/devicebackend.cpp
)
target_link_libraries(ordalis_input_evdev PUBLIC ordalis_input_common
    PRIVATE PkgConfig::LIBEVDEV ordalis_warnings $<TARGET_NAME_IF_EXISTS:ordalis_keyhelper_paths>)

add_library(ordalis_input_x11 STATIC
    ${CMAKE_CURRENT_SOURCE_DIR}/input/x11backend.h ${CMAKE_CURRENT_SOURCE_DIR}/input/x11backend.cpp
)
target_link_libraries(ordalis_input_x11 PUBLIC ordalis_input_common Qt6::Gui PRIVATE PkgConfig::XCB ordalis_warnings)

# What the application links: the factory and, through it, both back ends.
add_library(ordalis_input STATIC
    ${CMAKE_CURRENT_SOURCE_DIR}/input/inputbackendfactory.h ${CMAKE_CURRENT_SOURCE_DIR}/input/inputbackendfactory.cpp
)
target_link_libraries(ordalis_input PUBLIC ordalis_input_evdev ordalis_input_x11 PRIVATE ordalis_warnings)
