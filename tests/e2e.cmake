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

# The real program in a Wayland session (headless weston with XWayland) and in an X11 session.
ordalis_add_test(teste2esessions LIBS ordalis_keyboard PkgConfig::XCB Qt6::Gui Qt6::DBus)
target_compile_definitions(teste2esessions PRIVATE ORDALIS_BINARY="$<TARGET_FILE:ordalis>"
    ORDALIS_KEYHELPER_TESTING_BINARY="$<TARGET_FILE:ordalis-keyhelper-testing>")
add_dependencies(teste2esessions ordalis ordalis-keyhelper-testing)
set_tests_properties(teste2esessions PROPERTIES TIMEOUT 180)
