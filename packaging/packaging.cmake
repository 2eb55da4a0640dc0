# SPDX-License-Identifier: GPL-3.0-or-later
# Desktop integration (menu entry, AppStream metadata, application icon) and the Debian package.
# Included from the top-level CMakeLists.txt, after every other install rule.

set(ORDALIS_APP_ID com.quietmakers.Ordalis)
# The day PROJECT_VERSION was released; moves together with it.
set(ORDALIS_RELEASE_DATE 2026-11-23)
set(ORDALIS_PACKAGE_MAINTAINER "Quiet Makers <packages@ordalis.quietmakers.invalid>" CACHE STRING
    "Maintainer field of the Debian package")

set(_ordalis_pkg_src "${CMAKE_CURRENT_LIST_DIR}")
set(_ordalis_pkg_out "${PROJECT_BINARY_DIR}/packaging")

# The addresses are build options (src/ui/CMakeLists.txt); lines for those left unset are left out.
set(ORDALIS_METAINFO_URLS "")
set(ORDALIS_COPYRIGHT_SOURCE "")
set(ORDALIS_POLICY_VENDOR_URL "")
if(ORDALIS_HOMEPAGE_URL)
    string(APPEND ORDALIS_METAINFO_URLS "  <url type=\"homepage\">${ORDALIS_HOMEPAGE_URL}</url>\n")
    set(ORDALIS_COPYRIGHT_SOURCE "Source: ${ORDALIS_HOMEPAGE_URL}\n")
    set(ORDALIS_POLICY_VENDOR_URL "  <vendor_url>${ORDALIS_HOMEPAGE_URL}</vendor_url>\n")
endif()
if(ORDALIS_CONTACT_URL)
    string(APPEND ORDALIS_METAINFO_URLS "  <url type=\"contact\">${ORDALIS_CONTACT_URL}</url>\n")
    string(PREPEND ORDALIS_COPYRIGHT_SOURCE "Upstream-Contact: ${ORDALIS_CONTACT_URL}\n")
endif()

configure_file("${_ordalis_pkg_src}/${ORDALIS_APP_ID}.metainfo.xml.in"
    "${_ordalis_pkg_out}/${ORDALIS_APP_ID}.metainfo.xml" @ONLY)
configure_file("${_ordalis_pkg_src}/copyright.in" "${_ordalis_pkg_out}/copyright" @ONLY)
# What pkexec asks before it starts ordalis-keyhelper, which it finds by the helper's installed path.
if(NOT ORDALIS_KEYHELPER_INSTALLED_PATH)
    message(FATAL_ERROR "packaging: src/input/keyhelper/keyhelper.cmake did not set the helper's installed path")
endif()
configure_file("${_ordalis_pkg_src}/${ORDALIS_APP_ID}.policy.in" "${_ordalis_pkg_out}/${ORDALIS_APP_ID}.policy" @ONLY)

install(FILES "${_ordalis_pkg_src}/${ORDALIS_APP_ID}.desktop" DESTINATION share/applications)
install(FILES "${_ordalis_pkg_out}/${ORDALIS_APP_ID}.metainfo.xml" DESTINATION share/metainfo)
install(FILES "${_ordalis_pkg_out}/copyright" DESTINATION share/doc/ordalis)
install(FILES "${_ordalis_pkg_out}/${ORDALIS_APP_ID}.policy" DESTINATION share/polkit-1/actions)

# The icon: drawn once as SVG, rendered to the fixed sizes of the hicolor theme at build time.
set(ORDALIS_ICON_SIZES 16 24 32 48 64 128 256)
add_executable(ordalis_render_icon "${_ordalis_pkg_src}/rendericon.cpp")
target_link_libraries(ordalis_render_icon PRIVATE Qt6::Gui Qt6::Svg ordalis_warnings)
set_target_properties(ordalis_render_icon PROPERTIES AUTOMOC OFF)

set(_ordalis_icon_svg "${_ordalis_pkg_src}/${ORDALIS_APP_ID}.svg")
set(_ordalis_icon_pngs)
foreach(size IN LISTS ORDALIS_ICON_SIZES)
    list(APPEND _ordalis_icon_pngs "${_ordalis_pkg_out}/icons/${size}x${size}/apps/${ORDALIS_APP_ID}.png")
endforeach()
list(JOIN ORDALIS_ICON_SIZES ", " _ordalis_icon_size_text)
add_custom_command(
    OUTPUT ${_ordalis_icon_pngs}
    # A sanitizer build would otherwise fail here on whatever Qt keeps until exit.
    COMMAND ${CMAKE_COMMAND} -E env ASAN_OPTIONS=detect_leaks=0
        $<TARGET_FILE:ordalis_render_icon> "${_ordalis_icon_svg}" "${_ordalis_pkg_out}/icons" ${ORDALIS_APP_ID}
        ${ORDALIS_ICON_SIZES}
    DEPENDS "${_ordalis_icon_svg}" ordalis_render_icon
    COMMENT "Rendering the application icon at ${_ordalis_icon_size_text} pixels"
    VERBATIM)
add_custom_target(ordalis_icons ALL DEPENDS ${_ordalis_icon_pngs})

install(FILES "${_ordalis_icon_svg}" DESTINATION share/icons/hicolor/scalable/apps)
foreach(size IN LISTS ORDALIS_ICON_SIZES)
    install(FILES "${_ordalis_pkg_out}/icons/${size}x${size}/apps/${ORDALIS_APP_ID}.png"
        DESTINATION share/icons/hicolor/${size}x${size}/apps)
endforeach()

# The Debian package: cpack --config <build>/CPackConfig.cmake (scripts/package.sh does it all).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ordalis)
set(CPACK_PACKAGE_VENDOR "Quiet Makers")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_CONTACT "${ORDALIS_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_HOMEPAGE_URL "${ORDALIS_HOMEPAGE_URL}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "shows the keys you press on an on-screen keyboard")
# Debian shows the long description as it is, so it is wrapped here.
set(CPACK_PACKAGE_DESCRIPTION [=[Ordalis floats a picture of a laptop keyboard on the screen and lights up each
key while it is held down, whatever application has the focus. It is made for
screen recordings, live demonstrations and teaching.
A tray item controls it, and it can appear by itself when a screen recording
starts. It never writes, logs or sends the keys you type.]=])
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_PACKAGE_NAME ordalis)
# The prefix the helper's built-in path was made with (src/input/keyhelper/keyhelper.cmake).
set(CPACK_PACKAGING_INSTALL_PREFIX "${ORDALIS_PACKAGE_PREFIX}")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${ORDALIS_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "${ORDALIS_HOMEPAGE_URL}")
# Depends comes from the libraries the binary links (Qt 6, libevdev, PipeWire, xcb), through dpkg-shlibdeps,
# after pkexec: on Wayland Ordalis reads the keyboards through ordalis-keyhelper, which it starts with pkexec.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS pkexec)
# Loaded only at run time: Qt's Wayland platform, for sessions with no X display to fall back on.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "qt6-wayland")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

include(CPack)

# Builds the package from this build tree, checks what it holds and installs it (as root) to run it.
if(ORDALIS_BUILD_TESTS AND NOT ORDALIS_SANITIZE)
    add_test(NAME testpackage
        COMMAND bash "${_ordalis_pkg_src}/testpackage.sh" "${PROJECT_BINARY_DIR}" "${PROJECT_VERSION}")
    set_tests_properties(testpackage PROPERTIES
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;LANG=C.UTF-8"
        SKIP_RETURN_CODE 77
        TIMEOUT 240)
endif()
