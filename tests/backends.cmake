# SPDX-License-Identifier: GPL-3.0-or-later
# Tests of the Linux input back ends. Included from tests/CMakeLists.txt.
ordalis_add_test(testlinuxkeymap LIBS ordalis_keyboard)
ordalis_add_test(testkeyeventprocessor LIBS ordalis_input)
ordalis_add_test(testevdevstream LIBS ordalis_input)
ordalis_add_test(testkeyhelperbackend LIBS ordalis_input)
