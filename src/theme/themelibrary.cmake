# SPDX-License-Identifier: GPL-3.0-or-later
# The theme library: the operations on the saved themes and the active theme. No widgets. Included from
# src/CMakeLists.txt.
add_library(ordalis_themelibrary STATIC
    ${CMAKE_CURRENT_SOURCE_DIR}/theme/themefileaccess.h
    ${CMAKE_CURRENT_SOURCE_DIR}/theme/themelibrary.h ${CMAKE_CURRENT_SOURCE_DIR}/theme/themelibrary.cpp
)
target_link_libraries(ordalis_themelibrary PUBLIC ordalis_core Qt6::Core Qt6::Gui PRIVATE ordalis_warnings)
