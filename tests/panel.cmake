# SPDX-License-Identifier: GPL-3.0-or-later
# Tests of the keyboard panel. Included from tests/CMakeLists.txt.
ordalis_add_test(testkeyboardpanel LIBS ordalis_panel)
