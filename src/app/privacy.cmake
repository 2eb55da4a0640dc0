# SPDX-License-Identifier: GPL-3.0-or-later
# The screen-recording watcher and the Linux sources it asks (QtCore only). Included from src/CMakeLists.txt.
add_library(ordalis_privacy STATIC
    ${CMAKE_CURRENT_SOURCE_DIR}/app/recordingsources.h ${CMAKE_CURRENT_SOURCE_DIR}/app/recordingsources.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/app/privacymonitor.h ${CMAKE_CURRENT_SOURCE_DIR}/app/privacymonitor.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/app/screencastgraph.h ${CMAKE_CURRENT_SOURCE_DIR}/app/screencastgraph.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/app/pipewirerecordingsource.h
    ${CMAKE_CURRENT_SOURCE_DIR}/app/pipewirerecordingsource.cpp
)
# PipeWire's headers are C with macros that trip our warnings; include them as system headers.
if(NOT TARGET PkgConfig::PIPEWIRE)
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(PIPEWIRE REQUIRED IMPORTED_TARGET GLOBAL libpipewire-0.3)
    get_target_property(_pipewire_includes PkgConfig::PIPEWIRE INTERFACE_INCLUDE_DIRECTORIES)
    set_target_properties(PkgConfig::PIPEWIRE PROPERTIES INTERFACE_SYSTEM_INCLUDE_DIRECTORIES "${_pipewire_includes}")
endif()
target_include_directories(ordalis_privacy PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(ordalis_privacy PUBLIC Qt6::Core PRIVATE ordalis_core PkgConfig::PIPEWIRE ordalis_warnings)
