# SPDX-License-Identifier: GPL-3.0-or-later
# Reliability: crash-safe settings. Included from tests/CMakeLists.txt. The end-to-end privacy check and the typing
# soak are scenarios of teste2e (e2e.cmake); the key streams are the evdev fuzzer's (fuzz/fuzz.cmake).

# Kills a writer of its own many times while it saves.
ordalis_add_test(testsettingsdurability LIBS ordalis_keyboard)
set_tests_properties(testsettingsdurability PROPERTIES TIMEOUT 240)
