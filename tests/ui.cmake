# SPDX-License-Identifier: GPL-3.0-or-later
# Tests of the theme library and the tray menu. Included from tests/CMakeLists.txt.
ordalis_add_test(testthemelibrary LIBS ordalis_theme)
ordalis_add_test(testmenubarview LIBS ordalis_ui)
# A private dbus-daemon stands in for the session bus, and a fake notification service for the desktop's.
ordalis_add_test(testkeyaccessprompt LIBS ordalis_ui Qt6::DBus)
