# SPDX-License-Identifier: GPL-3.0-or-later
# The drawn keyboard: geometry, key caps, press animations and the whole scene. QtGui only, so it draws into
# images without a display as well as into the panel. Included from src/CMakeLists.txt.
add_library(ordalis_keyboard STATIC
    ${CMAKE_CURRENT_SOURCE_DIR}/keyboard/keyboardview.h ${CMAKE_CURRENT_SOURCE_DIR}/keyboard/keyboardview.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/keyboard/keycapview.h ${CMAKE_CURRENT_SOURCE_DIR}/keyboard/keycapview.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/keyboard/keypressanimator.h ${CMAKE_CURRENT_SOURCE_DIR}/keyboard/keypressanimator.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/keyboard/keyboardscene.h ${CMAKE_CURRENT_SOURCE_DIR}/keyboard/keyboardscene.cpp
)
target_link_libraries(ordalis_keyboard PUBLIC ordalis_core ordalis_symbols ordalis_shadows Qt6::Gui
    PRIVATE ordalis_warnings)
