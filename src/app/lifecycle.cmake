# SPDX-License-Identifier: GPL-3.0-or-later
# Launch at login and the updater. Included from src/CMakeLists.txt.
add_library(ordalis_lifecycle STATIC
    ${CMAKE_CURRENT_SOURCE_DIR}/app/appconfig.h
    ${CMAKE_CURRENT_SOURCE_DIR}/app/launchatlogin.h ${CMAKE_CURRENT_SOURCE_DIR}/app/launchatlogin.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/app/updaterfeed.h ${CMAKE_CURRENT_SOURCE_DIR}/app/updaterfeed.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/app/updatermanager.h ${CMAKE_CURRENT_SOURCE_DIR}/app/updatermanager.cpp
)
target_include_directories(ordalis_lifecycle PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(ordalis_lifecycle PUBLIC ordalis_core Qt6::Core Qt6::Network PRIVATE ordalis_warnings)
