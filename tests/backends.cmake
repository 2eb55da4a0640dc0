# SPDX-License-Identifier: GPL-3.0-or-later
# Tests of the Linux input back ends. Included from tests/CMakeLists.txt.
ordalis_add_test(testlinuxkeymap LIBS ordalis_keyboard)
ordalis_add_test(testkeyeventprocessor LIBS ordalis_input)
ordalis_add_test(testevdevstream LIBS ordalis_input)

# Starts its own Xvfb and types with xdotool; skips when either is missing.
ordalis_add_test(testx11backend LIBS ordalis_input PkgConfig::XCB)
set_tests_properties(testx11backend PROPERTIES TIMEOUT 180)
ordalis_add_test(testkeyhelperbackend LIBS ordalis_input)
