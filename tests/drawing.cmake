# SPDX-License-Identifier: GPL-3.0-or-later
# Tests of the drawn keyboard. Included from tests/CMakeLists.txt.
ordalis_add_test(testkeyboardview LIBS ordalis_keyboard)
ordalis_add_test(testkeyboardscene LIBS ordalis_keyboard)
