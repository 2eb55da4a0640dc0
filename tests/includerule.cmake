# SPDX-License-Identifier: GPL-3.0-or-later
# The folder rule at work: a file of the panel's library may include the keyboard's headers but not the tray menu's.
# Each case is a library left out of the normal build; the test builds it and reads the compiler's answer.
foreach(case panel_uses_ui panel_uses_keyboard)
    add_library(includerule_${case} OBJECT EXCLUDE_FROM_ALL includerule/${case}.cpp)
    target_link_libraries(includerule_${case} PRIVATE ordalis_panel)
    set_target_properties(includerule_${case} PROPERTIES AUTOMOC OFF)
    add_test(NAME includerule_${case}
        COMMAND ${CMAKE_COMMAND} --build ${CMAKE_BINARY_DIR} --target includerule_${case})
endforeach()
set_tests_properties(includerule_panel_uses_ui PROPERTIES
    PASS_REGULAR_EXPRESSION "ui/menubarview\\.h: No such file or directory")
# Run one after the other: both drive the same build tree.
set_tests_properties(includerule_panel_uses_keyboard PROPERTIES RESOURCE_LOCK ordalis_build_tree)
set_tests_properties(includerule_panel_uses_ui PROPERTIES RESOURCE_LOCK ordalis_build_tree)
