# SPDX-License-Identifier: GPL-3.0-or-later
foreach(unit keyboardmonitor hotkeymanager latencyprobe)
    ordalis_add_test(test${unit} LIBS ordalis_keyboard)
endforeach()
