# SPDX-License-Identifier: GPL-3.0-or-later
# The settings window's cost as the user feels it: a slider of the Styling tab dragged until the keyboard shows it.
find_package(Qt6 6.4 REQUIRED COMPONENTS Test)
add_executable(bench_settings bench_settings.cpp)
target_link_libraries(bench_settings
    PRIVATE ordalis_ui ordalis_keyboard Qt6::Test benchmark::benchmark ordalis_warnings)
