# SPDX-License-Identifier: GPL-3.0-or-later
# Loads the icons from the resource compiled into ordalis_keyboard, so it also proves the resource survives static
# linking.
ordalis_add_test(testsymbolicons LIBS ordalis_keyboard)
