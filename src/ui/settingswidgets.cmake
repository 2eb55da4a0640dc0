# SPDX-License-Identifier: GPL-3.0-or-later
# The settings window's building blocks (gradient slider, switch, segmented picker, collapsible section, rows) and
# its General tab with the Updates section. Included from src/CMakeLists.txt.
set(_ordalis_ui "${CMAKE_CURRENT_SOURCE_DIR}/ui")
add_library(ordalis_settingswidgets STATIC
    ${_ordalis_ui}/modifiernames.h ${_ordalis_ui}/modifiernames.cpp
    ${_ordalis_ui}/settingsstyle.h ${_ordalis_ui}/settingsstyle.cpp
    ${_ordalis_ui}/toggleswitch.h ${_ordalis_ui}/toggleswitch.cpp
    ${_ordalis_ui}/gradientslider.h ${_ordalis_ui}/gradientslider.cpp
    ${_ordalis_ui}/segmentedcontrol.h ${_ordalis_ui}/segmentedcontrol.cpp
    ${_ordalis_ui}/settingssection.h ${_ordalis_ui}/settingssection.cpp
    ${_ordalis_ui}/settingsrows.h ${_ordalis_ui}/settingsrows.cpp
    ${_ordalis_ui}/updatersettingssection.h ${_ordalis_ui}/updatersettingssection.cpp
    ${_ordalis_ui}/generalsettingstab.h ${_ordalis_ui}/generalsettingstab.cpp
)
target_include_directories(ordalis_settingswidgets PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(ordalis_settingswidgets
    PUBLIC ordalis_core ordalis_lifecycle ordalis_symbols Qt6::Widgets
    PRIVATE ordalis_warnings)
