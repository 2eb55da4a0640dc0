# SPDX-License-Identifier: GPL-3.0-or-later
# Tests of the theme values, the drawn keyboard and the keyboard panel. Included from tests/CMakeLists.txt.
ordalis_add_test(testtheme LIBS ordalis_theme)
# testsymbolicons loads the icons from the resource compiled into ordalis_keyboard, so it also proves the resource
# survives static linking.
foreach(unit keyboardview keyboardscene shadowcache symbolicons keylegends)
    ordalis_add_test(test${unit} LIBS ordalis_keyboard)
endforeach()
ordalis_add_test(testkeyboardpanel LIBS ordalis_panel)
ordalis_add_test(testscreenplacement LIBS ordalis_panel)
