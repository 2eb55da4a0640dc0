# SPDX-License-Identifier: GPL-3.0-or-later
# Tests of the input folder: key tables, the monitor and gestures, the back ends, the key helper and recording
# detection. Included from tests/CMakeLists.txt.
foreach(unit linuxkeymap keyeventprocessor keyhelperbackend keyboardmonitor hotkeymanager latencyprobe
        privacymonitor)
    ordalis_add_test(test${unit} LIBS ordalis_keyboard)
endforeach()
ordalis_add_test(testscreencast LIBS ordalis_input)
ordalis_add_test(testlayoutsource LIBS ordalis_input Qt6::DBus PkgConfig::GIO)
ordalis_add_test(testprivatemoments LIBS ordalis_input ordalis_theme PkgConfig::XCB)

# ordalis-keyhelper as Ordalis runs it, its test build reading named pipes that stand in for devices.
ordalis_add_test(testkeyhelper LIBS ordalis_keyhelper_paths)
target_include_directories(testkeyhelper PRIVATE "${CMAKE_BINARY_DIR}/include/input")
target_compile_definitions(testkeyhelper PRIVATE
    ORDALIS_KEYHELPER_TESTING_PATH="$<TARGET_FILE:ordalis-keyhelper-testing>")
add_dependencies(testkeyhelper ordalis-keyhelper-testing)
