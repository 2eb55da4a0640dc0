# SPDX-License-Identifier: GPL-3.0-or-later
# Tests of the settings window's Styling tab. Included from tests/CMakeLists.txt.
ordalis_add_test(teststylingsettingstab LIBS ordalis_ui ordalis_keyboard)
ordalis_add_test(testthemelistview LIBS ordalis_ui)
