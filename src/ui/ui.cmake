# SPDX-License-Identifier: GPL-3.0-or-later
# The tray item and its menu (Qt Widgets). Included from src/CMakeLists.txt.
find_package(Qt6 6.4 REQUIRED COMPONENTS DBus)
add_library(ordalis_ui STATIC
    ${CMAKE_CURRENT_SOURCE_DIR}/ui/menubaractions.h
    ${CMAKE_CURRENT_SOURCE_DIR}/ui/menubarview.h ${CMAKE_CURRENT_SOURCE_DIR}/ui/menubarview.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/ui/qtthemefileaccess.h ${CMAKE_CURRENT_SOURCE_DIR}/ui/qtthemefileaccess.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/ui/keyaccessprompt.h ${CMAKE_CURRENT_SOURCE_DIR}/ui/keyaccessprompt.cpp
)
target_include_directories(ordalis_ui PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(ordalis_ui
    PUBLIC ordalis_themelibrary ordalis_core Qt6::Widgets
    PRIVATE Qt6::DBus ordalis_symbols ordalis_warnings)
