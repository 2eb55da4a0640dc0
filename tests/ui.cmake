# SPDX-License-Identifier: GPL-3.0-or-later
# Tests of the theme library and the tray menu. Included from tests/CMakeLists.txt.
ordalis_add_test(testthemelibrary LIBS ordalis_themelibrary)
ordalis_add_test(testmenubarview LIBS ordalis_ui)
