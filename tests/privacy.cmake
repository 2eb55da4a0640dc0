# SPDX-License-Identifier: GPL-3.0-or-later
ordalis_add_test(testprivacymonitor LIBS ordalis_input ordalis_keyboard)
ordalis_add_test(testscreencast LIBS ordalis_input PkgConfig::PIPEWIRE)
