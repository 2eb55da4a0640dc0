# SPDX-License-Identifier: GPL-3.0-or-later
# The floating keyboard window: the panel, its hover tracking, its content and resize handle, and the X11 window
# properties it needs. Included from src/CMakeLists.txt.
# xcb-shape comes with libxcb-xinput-dev (through libxcb-xfixes0-dev).
find_package(PkgConfig REQUIRED)
if(NOT TARGET PkgConfig::XCB_SHAPE)
    pkg_check_modules(XCB_SHAPE REQUIRED IMPORTED_TARGET GLOBAL xcb xcb-shape)
endif()

add_library(ordalis_panel STATIC
    ${CMAKE_CURRENT_SOURCE_DIR}/panel/panelactions.h
    ${CMAKE_CURRENT_SOURCE_DIR}/panel/clockanimation.h ${CMAKE_CURRENT_SOURCE_DIR}/panel/clockanimation.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/panel/x11windowhints.h ${CMAKE_CURRENT_SOURCE_DIR}/panel/x11windowhints.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/panel/keyboardpanel.h ${CMAKE_CURRENT_SOURCE_DIR}/panel/keyboardpanel.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/panel/hovertrackingview.h ${CMAKE_CURRENT_SOURCE_DIR}/panel/hovertrackingview.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/panel/keyboardcontentview.h ${CMAKE_CURRENT_SOURCE_DIR}/panel/keyboardcontentview.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/panel/resizehandle.h ${CMAKE_CURRENT_SOURCE_DIR}/panel/resizehandle.cpp
)
target_link_libraries(ordalis_panel
    PUBLIC ordalis_keyboard ordalis_symbols ordalis_themelibrary ordalis_core Qt6::Widgets
    PRIVATE PkgConfig::XCB_SHAPE ordalis_warnings)
