# SPDX-License-Identifier: GPL-3.0-or-later
add_executable(bench_recording bench_recording.cpp)
target_link_libraries(bench_recording PRIVATE ordalis_input benchmark::benchmark ordalis_warnings)
