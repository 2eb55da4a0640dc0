# SPDX-License-Identifier: GPL-3.0-or-later
# The command line, the commands a later start or D-Bus sends to the running program, and pictures of the keyboard
# drawn without a window. No widgets. Included from src/CMakeLists.txt.
find_package(Qt6 6.4 REQUIRED COMPONENTS DBus)

add_library(ordalis_cli STATIC
    ${CMAKE_CURRENT_SOURCE_DIR}/keyboard/keynames.h ${CMAKE_CURRENT_SOURCE_DIR}/keyboard/keynames.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/app/remotecontrol.h ${CMAKE_CURRENT_SOURCE_DIR}/app/remotecontrol.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/app/commandline.h ${CMAKE_CURRENT_SOURCE_DIR}/app/commandline.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/app/renderer.h ${CMAKE_CURRENT_SOURCE_DIR}/app/renderer.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/app/dbusservice.h ${CMAKE_CURRENT_SOURCE_DIR}/app/dbusservice.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/app/singleinstance.h ${CMAKE_CURRENT_SOURCE_DIR}/app/singleinstance.cpp
)
target_include_directories(ordalis_cli PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(ordalis_cli
    PUBLIC ordalis_core ordalis_keyboard ordalis_themelibrary Qt6::Gui Qt6::Network Qt6::DBus
    PRIVATE ordalis_warnings)

# docs/keyboard.png, as the README shows it: the default theme, 900 pixels wide, Shift, Command, A and O held.
# The settings are read from an empty folder, so the user's own themes never end up in the picture.
add_custom_target(docs-pictures
    COMMAND ${CMAKE_COMMAND} -E env XDG_CONFIG_HOME=${CMAKE_BINARY_DIR}/docs-pictures-config
        $<TARGET_FILE:ordalis> --render ${PROJECT_SOURCE_DIR}/docs/keyboard.png --theme Spacegray --width 900
        --keys shift_l,cmd_l,a,o
    COMMENT "Drawing docs/keyboard.png"
    VERBATIM)
add_dependencies(docs-pictures ordalis)
