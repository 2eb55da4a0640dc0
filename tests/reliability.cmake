# SPDX-License-Identifier: GPL-3.0-or-later
# Reliability: crash-safe settings, keystroke privacy and memory over a long run.
# Included from tests/CMakeLists.txt. The tests that need a display start their own Xvfb and skip without it.

# Kills a writer of its own many times while it saves; starts two copies of the real program at once.
ordalis_add_test(testsettingsdurability LIBS ordalis_keyboard)
target_compile_definitions(testsettingsdurability PRIVATE ORDALIS_BINARY="$<TARGET_FILE:ordalis>")
add_dependencies(testsettingsdurability ordalis)
set_tests_properties(testsettingsdurability PROPERTIES TIMEOUT 240)

# The real program on a private Xvfb; each skips without Xvfb and xdotool.
foreach(unit keystrokeprivacy longrun)
    ordalis_add_test(test${unit} LIBS ordalis_keyboard PkgConfig::XCB Qt6::Gui)
    target_compile_definitions(test${unit} PRIVATE ORDALIS_BINARY="$<TARGET_FILE:ordalis>")
    add_dependencies(test${unit} ordalis)
endforeach()
set_tests_properties(testkeystrokeprivacy PROPERTIES TIMEOUT 180)
# Two minutes of typing; ORDALIS_LONG_RUN_SECONDS=1800 (with a longer --timeout) runs it for half an hour.
set_tests_properties(testlongrun PROPERTIES TIMEOUT 300)
# AddressSanitizer keeps freed memory aside (256 MB by default) to catch late uses, which a resident-memory
# measurement would count as growth. For this one test of the sanitized build it keeps only 4 MB.
set_property(TEST testlongrun PROPERTY ENVIRONMENT_MODIFICATION "ASAN_OPTIONS=string_append::quarantine_size_mb=4")
