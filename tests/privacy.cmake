# SPDX-License-Identifier: GPL-3.0-or-later
ordalis_add_test(testprivacymonitor LIBS ordalis_privacy ordalis_core)
ordalis_add_test(testscreencast LIBS ordalis_privacy PkgConfig::PIPEWIRE)
