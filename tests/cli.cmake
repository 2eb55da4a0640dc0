# SPDX-License-Identifier: GPL-3.0-or-later
# The command line, remote commands (instance socket and D-Bus) and pictures of the keyboard. Included from
# tests/CMakeLists.txt. The D-Bus test starts a dbus-daemon of its own and skips without one; the real program is
# driven end to end in teste2e (e2e.cmake).
foreach(unit commandline remotecontrol renderer)
    ordalis_add_test(test${unit} LIBS ordalis_app)
endforeach()
