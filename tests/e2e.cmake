# SPDX-License-Identifier: GPL-3.0-or-later
# The real program end to end, in one program with one harness: from its command line and over a private D-Bus
# bus, on a private Xvfb with openbox and a trayer tray driven with xdotool, and in a headless weston session. Each
# scenario skips when a tool it needs is missing. ORDALIS_LONG_RUN_SECONDS=1800 (with a longer --timeout) turns its
# short typing session into a half-hour soak with a memory check.
pkg_check_modules(E2E_X11 REQUIRED IMPORTED_TARGET xcb xcb-shape)
ordalis_add_test(teste2e LIBS ordalis_keyboard PkgConfig::E2E_X11 Qt6::Gui Qt6::DBus)
target_compile_definitions(teste2e PRIVATE ORDALIS_BINARY="$<TARGET_FILE:ordalis>"
    ORDALIS_KEYHELPER_TESTING_BINARY="$<TARGET_FILE:ordalis-keyhelper-testing>")
add_dependencies(teste2e ordalis ordalis-keyhelper-testing)
set_tests_properties(teste2e PROPERTIES TIMEOUT 300)
# AddressSanitizer keeps freed memory aside (256 MB by default) to catch late uses, which the soak's resident-memory
# measurement would count as growth.
set_property(TEST teste2e PROPERTY ENVIRONMENT_MODIFICATION "ASAN_OPTIONS=string_append::quarantine_size_mb=4")
