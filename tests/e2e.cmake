# SPDX-License-Identifier: GPL-3.0-or-later
# End to end: the real program under its own Xvfb with openbox and a trayer tray, driven with xdotool as a user would.
# Included from tests/CMakeLists.txt; skips when Xvfb, openbox, trayer or xdotool is missing.
if(NOT TARGET PkgConfig::XCB_SHAPE)
    pkg_check_modules(XCB_SHAPE REQUIRED IMPORTED_TARGET xcb xcb-shape)
endif()
ordalis_add_test(teste2etray LIBS ordalis_keyboard PkgConfig::XCB_SHAPE)
target_compile_definitions(teste2etray PRIVATE ORDALIS_BINARY="$<TARGET_FILE:ordalis>")
add_dependencies(teste2etray ordalis)
set_tests_properties(teste2etray PROPERTIES TIMEOUT 300)
