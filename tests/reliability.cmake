# SPDX-License-Identifier: GPL-3.0-or-later
# Reliability: long random key streams and crash-safe settings. Included from tests/CMakeLists.txt. The end-to-end
# privacy check and the typing soak are scenarios of teste2e (e2e.cmake).

# The evdev soak runs everywhere; its X11 half needs Xvfb and xdotool.
ordalis_add_test(testkeysoak LIBS ordalis_input)
set_tests_properties(testkeysoak PROPERTIES TIMEOUT 240)

# Kills a writer of its own many times while it saves.
ordalis_add_test(testsettingsdurability LIBS ordalis_keyboard)
set_tests_properties(testsettingsdurability PROPERTIES TIMEOUT 240)
