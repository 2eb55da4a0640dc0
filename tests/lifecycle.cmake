# SPDX-License-Identifier: GPL-3.0-or-later
# Tests of launch at login and the updater. Included from tests/CMakeLists.txt.
foreach(unit launchatlogin updater)
    ordalis_add_test(test${unit} LIBS ordalis_ui)
endforeach()
