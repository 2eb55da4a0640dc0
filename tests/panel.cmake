# SPDX-License-Identifier: GPL-3.0-or-later
# Tests of the panel inside the whole program. Included from tests/CMakeLists.txt.
ordalis_add_test(testapplicationpanel LIBS ordalis_app)

# Starts its own Xvfb and openbox, runs the real program and types with xdotool; skips when any is missing.
if(NOT TARGET PkgConfig::XCB_SHAPE)
    pkg_check_modules(XCB_SHAPE REQUIRED IMPORTED_TARGET xcb xcb-shape)
endif()
ordalis_add_test(testpanelx11 LIBS ordalis_keyboard PkgConfig::XCB_SHAPE)
target_compile_definitions(testpanelx11 PRIVATE ORDALIS_BINARY="$<TARGET_FILE:ordalis>")
add_dependencies(testpanelx11 ordalis)
set_tests_properties(testpanelx11 PROPERTIES TIMEOUT 300)
