# SPDX-License-Identifier: GPL-3.0-or-later
add_executable(bench_drawing bench_drawing.cpp)
target_link_libraries(bench_drawing PRIVATE ordalis_keyboard benchmark::benchmark ordalis_warnings)
