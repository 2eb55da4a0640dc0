# SPDX-License-Identifier: GPL-3.0-or-later
# Tests of the settings window's building blocks and its General tab. Included from tests/CMakeLists.txt.
foreach(unit modifiernames gradientslider settingssection settingsrows generalsettingstab)
    ordalis_add_test(test${unit} LIBS ordalis_ui)
endforeach()
# The launch-at-login service that answers the tab's switch.
target_link_libraries(testgeneralsettingstab PRIVATE ordalis_ui)
