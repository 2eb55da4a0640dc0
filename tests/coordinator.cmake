# SPDX-License-Identifier: GPL-3.0-or-later
# Tests of the coordinator and the one-instance rule. Included from tests/CMakeLists.txt.
ordalis_add_test(testcoordinator LIBS ordalis_app)
