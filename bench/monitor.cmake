# SPDX-License-Identifier: GPL-3.0-or-later
add_executable(bench_monitor bench_monitor.cpp)
target_link_libraries(bench_monitor PRIVATE ordalis_keyboard benchmark::benchmark ordalis_warnings)
