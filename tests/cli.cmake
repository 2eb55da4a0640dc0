# SPDX-License-Identifier: GPL-3.0-or-later
# The command line, remote commands (instance socket and D-Bus) and pictures of the keyboard. Included from
# tests/CMakeLists.txt. The D-Bus tests start a dbus-daemon of their own and skip without one.
ordalis_add_test(testcommandline LIBS ordalis_app)
ordalis_add_test(testremotecontrol LIBS ordalis_app)
ordalis_add_test(testrenderer LIBS ordalis_app)

# The real program, driven from its command line and over D-Bus.
ordalis_add_test(teste2ecli LIBS ordalis_app ordalis_panel)
target_compile_definitions(teste2ecli PRIVATE ORDALIS_BINARY="$<TARGET_FILE:ordalis>")
add_dependencies(teste2ecli ordalis)
set_tests_properties(teste2ecli PROPERTIES TIMEOUT 300)
