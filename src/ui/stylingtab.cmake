# SPDX-License-Identifier: GPL-3.0-or-later
# The settings window's Styling tab: the theme library's list, save field and toolbar, and the sections editing the
# active theme. Included from src/CMakeLists.txt after settingswidgets.cmake.
set(_ordalis_ui "${CMAKE_CURRENT_SOURCE_DIR}/ui")
add_library(ordalis_stylingtab STATIC
    ${_ordalis_ui}/themefieldrows.h ${_ordalis_ui}/themefieldrows.cpp
    ${_ordalis_ui}/shadoweditor.h ${_ordalis_ui}/shadoweditor.cpp
    ${_ordalis_ui}/themelistview.h ${_ordalis_ui}/themelistview.cpp
    ${_ordalis_ui}/themelibrarypanel.h ${_ordalis_ui}/themelibrarypanel.cpp
    ${_ordalis_ui}/stylingsettingstab.h ${_ordalis_ui}/stylingsettingstab.cpp
)
target_include_directories(ordalis_stylingtab PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(ordalis_stylingtab
    PUBLIC ordalis_settingswidgets ordalis_themelibrary ordalis_core Qt6::Widgets
    PRIVATE ordalis_symbols ordalis_warnings)
