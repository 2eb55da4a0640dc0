# SPDX-License-Identifier: GPL-3.0-or-later
# The screen-recording watcher and the Linux sources it asks (QtCore only). Included from src/CMakeLists.txt.
add_library(ordalis_privacy STATIC
    ${CMAKE_CURRENT_SOURCE_DIR}/app/recordingsources.h ${CMAKE_CURRENT_SOURCE_DIR}/app/recordingsources.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/app/privacymonitor.h ${CMAKE_CURRENT_SOURCE_DIR}/app/privacymonitor.cpp
)
target_include_directories(ordalis_privacy PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(ordalis_privacy PUBLIC Qt6::Core PRIVATE ordalis_core ordalis_warnings)
