# SPDX-License-Identifier: GPL-3.0-or-later
ordalis_add_test(testshadowcache LIBS ordalis_keyboard)
