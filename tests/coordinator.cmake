# SPDX-License-Identifier: GPL-3.0-or-later
# The coordinator with a scripted key source: start-up, gestures over the panel, recordings.
ordalis_add_test(testcoordinator LIBS ordalis_app Qt6::DBus)
