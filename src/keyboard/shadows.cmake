# SPDX-License-Identifier: GPL-3.0-or-later
# Cached, blurred key shadows: drawing a key only blits ready-made pieces.
add_library(ordalis_shadows STATIC
    ${CMAKE_CURRENT_SOURCE_DIR}/keyboard/shadowcache.h ${CMAKE_CURRENT_SOURCE_DIR}/keyboard/shadowcache.cpp
)
target_link_libraries(ordalis_shadows PUBLIC ordalis_core PRIVATE ordalis_warnings)
