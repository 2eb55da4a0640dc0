# SPDX-License-Identifier: GPL-3.0-or-later
# ordalis-keyhelper: reads the keyboards and pointers for Ordalis where the display server will not give it keys (Wayland).
# Ordalis starts it through pkexec, so it runs as root: no Qt, only the C++ standard library and libevdev.
# Included from input/CMakeLists.txt.
include(GNUInstallDirs)
if(NOT TARGET PkgConfig::LIBEVDEV)
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(LIBEVDEV REQUIRED IMPORTED_TARGET GLOBAL libevdev)
endif()

set(_ordalis_keyhelper_dir "${CMAKE_CURRENT_LIST_DIR}")
set(_ordalis_keyhelper_sources
    "${_ordalis_keyhelper_dir}/keyhelper.h" "${_ordalis_keyhelper_dir}/keyhelper.cpp"
    "${_ordalis_keyhelper_dir}/evdevdevice.cpp" "${_ordalis_keyhelper_dir}/main.cpp"
    "${_ordalis_keyhelper_dir}/../keyhelperprotocol.h" "${_ordalis_keyhelper_dir}/../wheelsteps.h")

function(ordalis_add_keyhelper name)
    add_executable(${name} ${ARGN})
    target_include_directories(${name} PRIVATE "${CMAKE_BINARY_DIR}/include/input")
    target_link_libraries(${name} PRIVATE PkgConfig::LIBEVDEV ordalis_warnings)
    target_compile_options(${name} PRIVATE -fstack-protector-strong -fstack-clash-protection
        "$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
    target_link_options(${name} PRIVATE -Wl,-z,relro -Wl,-z,now)
    set_target_properties(${name} PROPERTIES AUTOMOC OFF POSITION_INDEPENDENT_CODE ON)
endfunction()

ordalis_add_keyhelper(ordalis-keyhelper ${_ordalis_keyhelper_sources})
install(TARGETS ordalis-keyhelper RUNTIME DESTINATION "${CMAKE_INSTALL_LIBEXECDIR}/ordalis")

# For the tests alone, never installed: reads --device-dir DIR, where named pipes stand in for devices.
if(ORDALIS_BUILD_TESTS)
    ordalis_add_keyhelper(ordalis-keyhelper-testing ${_ordalis_keyhelper_sources}
        "${_ordalis_keyhelper_dir}/fakedevice.cpp")
    target_compile_definitions(ordalis-keyhelper-testing PRIVATE ORDALIS_KEYHELPER_TESTING)
endif()

# Ordalis runs the helper by its full path, and polkit recognises it by that path, so the path is built in. It is
# where the Debian package puts it: the package installs under /usr (packaging.cmake packs with this prefix), where
# CMAKE_INSTALL_PREFIX is /usr/local unless set.
set(ORDALIS_PACKAGE_PREFIX /usr CACHE INTERNAL "Where the Debian package installs Ordalis")
set(ORDALIS_KEYHELPER_INSTALLED_PATH
    "${ORDALIS_PACKAGE_PREFIX}/${CMAKE_INSTALL_LIBEXECDIR}/ordalis/ordalis-keyhelper"
    CACHE INTERNAL "Full path of the installed ordalis-keyhelper")
set(ORDALIS_KEYHELPER_BUILD_PATH "$<TARGET_FILE:ordalis-keyhelper>"
    CACHE INTERNAL "Path of ordalis-keyhelper in the build tree (a generator expression)")

# Linked by whatever starts the helper: both paths as compile definitions, and the helper built along with it.
add_library(ordalis_keyhelper_paths INTERFACE)
target_compile_definitions(ordalis_keyhelper_paths INTERFACE
    ORDALIS_KEYHELPER_INSTALLED_PATH="${ORDALIS_KEYHELPER_INSTALLED_PATH}"
    ORDALIS_KEYHELPER_BUILD_PATH="${ORDALIS_KEYHELPER_BUILD_PATH}")
add_dependencies(ordalis_keyhelper_paths ordalis-keyhelper)
