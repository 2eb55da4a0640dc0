# SPDX-License-Identifier: GPL-3.0-or-later
# Tests of the ui folder: the tray menu, the key-access prompt, the settings window's building blocks and tabs,
# launch at login and the updater. Included from tests/CMakeLists.txt.
ordalis_add_test(testthemelibrary LIBS ordalis_theme)
foreach(unit menubarview widgets generalsettingstab stylingsettingstab launchatlogin updater)
    ordalis_add_test(test${unit} LIBS ordalis_ui)
endforeach()
# A private dbus-daemon stands in for the session bus, and a fake notification service for the desktop's.
ordalis_add_test(testkeyaccessprompt LIBS ordalis_ui Qt6::DBus)
