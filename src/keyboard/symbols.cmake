# SPDX-License-Identifier: GPL-3.0-or-later
# Symbol images drawn on key caps and in the windows, from the Phosphor icon set (MIT). The icons are a build
# dependency fetched by scripts/fetch-icons.sh; only the files below go into the binary, as the resource
# :/symbols/<weight>/<file>.svg, together with Phosphor's licence at :/symbols/LICENSE.
# Included from keyboard/CMakeLists.txt.

set(ORDALIS_ICONS_DIR "${PROJECT_SOURCE_DIR}/.deps/phosphor-icons-core-2.1.1/package" CACHE PATH
    "The package folder of @phosphor-icons/core 2.1.1 (holding LICENSE and assets/)")

# Outline symbols ship in regular and bold; symbolicons.cpp picks between them by size and weight.
set(_ordalis_outline_icons
    fingerprint-simple globe control option command arrow-line-right backspace arrow-fat-line-up
    arrow-elbow-down-left arrow-fat-up sun-dim sun squares-four magnifying-glass microphone moon skip-back
    play-pause skip-forward speaker-none speaker-low speaker-high keyboard arrows-clockwise arrows-out-simple
    check floppy-disk-back export tray-arrow-down caret-right hand-tap text-aa)
set(_ordalis_icon_files)
foreach(icon IN LISTS _ordalis_outline_icons)
    list(APPEND _ordalis_icon_files regular/${icon}.svg bold/${icon}-bold.svg)
endforeach()
# Light only where small sizes or thin strokes call for it.
list(APPEND _ordalis_icon_files light/command-light.svg light/fingerprint-simple-light.svg)
foreach(icon IN ITEMS caret-up caret-left caret-down caret-right plus-circle x-circle lock-simple)
    list(APPEND _ordalis_icon_files fill/${icon}-fill.svg)
endforeach()
list(APPEND _ordalis_icon_files duotone/rectangle-duotone.svg duotone/selection-duotone.svg)
set(_ordalis_icon_paths)
foreach(file IN LISTS _ordalis_icon_files)
    list(APPEND _ordalis_icon_paths "${ORDALIS_ICONS_DIR}/assets/${file}")
endforeach()

function(_ordalis_missing_icons out)
    set(missing)
    foreach(path IN LISTS _ordalis_icon_paths ITEMS "${ORDALIS_ICONS_DIR}/LICENSE")
        if(NOT EXISTS "${path}")
            list(APPEND missing "${path}")
        endif()
    endforeach()
    set(${out} "${missing}" PARENT_SCOPE)
endfunction()

_ordalis_missing_icons(_ordalis_missing)
if(_ordalis_missing)
    # fetch-icons.sh unpacks into DEST/package, so it can only fill a folder named "package".
    get_filename_component(_ordalis_icons_leaf "${ORDALIS_ICONS_DIR}" NAME)
    if(NOT _ordalis_icons_leaf STREQUAL "package")
        list(LENGTH _ordalis_missing _ordalis_missing_count)
        list(GET _ordalis_missing 0 _ordalis_first_missing)
        message(FATAL_ERROR "ORDALIS_ICONS_DIR=${ORDALIS_ICONS_DIR} lacks ${_ordalis_missing_count} of the icon "
            "files the build needs, ${_ordalis_first_missing} among them. Point it at the package folder of "
            "@phosphor-icons/core 2.1.1, or unset it to have the icons fetched.")
    endif()
    get_filename_component(_ordalis_icons_dest "${ORDALIS_ICONS_DIR}" DIRECTORY)
    message(STATUS "Fetching @phosphor-icons/core 2.1.1 into ${_ordalis_icons_dest}")
    execute_process(
        COMMAND "${PROJECT_SOURCE_DIR}/scripts/fetch-icons.sh" "${_ordalis_icons_dest}"
        RESULT_VARIABLE _ordalis_fetch_result)
    if(NOT _ordalis_fetch_result EQUAL 0)
        message(FATAL_ERROR "scripts/fetch-icons.sh failed (${_ordalis_fetch_result}): the Phosphor icons are "
            "needed to build. Run it by hand to see why (it needs npm, curl or wget and access to "
            "registry.npmjs.org), or set ORDALIS_ICONS_DIR to an unpacked copy of @phosphor-icons/core 2.1.1.")
    endif()
    _ordalis_missing_icons(_ordalis_missing)
    if(_ordalis_missing)
        list(JOIN _ordalis_missing "\n  " _ordalis_missing)
        message(FATAL_ERROR "The fetched icons lack files:\n  ${_ordalis_missing}")
    endif()
endif()

set_source_files_properties("${ORDALIS_ICONS_DIR}/LICENSE" PROPERTIES QT_RESOURCE_ALIAS LICENSE)
# On a static library Qt compiles the resource into an object library that every executable linking
# ordalis_keyboard links whole, so the linker cannot drop it for want of a reference.
qt_add_resources(ordalis_keyboard phosphor_symbols
    PREFIX /symbols
    BASE "${ORDALIS_ICONS_DIR}/assets"
    FILES ${_ordalis_icon_paths} "${ORDALIS_ICONS_DIR}/LICENSE"
)

install(FILES "${ORDALIS_ICONS_DIR}/LICENSE" DESTINATION share/doc/ordalis RENAME phosphor-icons-LICENSE)
