# SPDX-License-Identifier: GPL-3.0-or-later
# Fuzz harnesses for what Ordalis reads from outside: theme documents, the settings file, evdev event streams, the
# update feed and the key helper's records. Included from tests/CMakeLists.txt.
#
# With ORDALIS_FUZZ (the "fuzz" preset, clang only) each harness becomes a libFuzzer program fuzz_<name>, run by
# scripts/fuzz.sh from tests/fuzz/corpus/<name>/. Without it, each harness is linked to a small driver instead and
# CTest replays its corpus, so every input that once broke something stays a regression test of the regular build.

option(ORDALIS_FUZZ "Build the libFuzzer harnesses (needs clang and -fsanitize=fuzzer)" OFF)

set(_ordalis_fuzz_dir "${CMAKE_CURRENT_LIST_DIR}")
set(_ordalis_fuzzers themejson settings evdev updaterfeed keyhelper)
set(_ordalis_fuzz_libs_themejson ordalis_theme)
set(_ordalis_fuzz_libs_settings ordalis_keyboard ordalis_ui)
set(_ordalis_fuzz_libs_evdev ordalis_keyboard)
set(_ordalis_fuzz_libs_updaterfeed ordalis_ui)
set(_ordalis_fuzz_libs_keyhelper ordalis_keyboard)

if(ORDALIS_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR "ORDALIS_FUZZ needs clang (libFuzzer); use the fuzz preset")
    endif()
    add_custom_target(fuzzers)
    foreach(name IN LISTS _ordalis_fuzzers)
        add_executable(fuzz_${name} ${_ordalis_fuzz_dir}/fuzz${name}.cpp ${_ordalis_fuzz_dir}/fuzzsupport.h)
        target_link_libraries(fuzz_${name} PRIVATE ${_ordalis_fuzz_libs_${name}} ordalis_warnings)
        target_compile_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
        target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
        add_dependencies(fuzzers fuzz_${name})
    endforeach()
else()
    foreach(name IN LISTS _ordalis_fuzzers)
        add_executable(fuzzreplay_${name} ${_ordalis_fuzz_dir}/fuzz${name}.cpp ${_ordalis_fuzz_dir}/replaymain.cpp
            ${_ordalis_fuzz_dir}/fuzzsupport.h)
        target_link_libraries(fuzzreplay_${name} PRIVATE ${_ordalis_fuzz_libs_${name}} ordalis_warnings)
        add_test(NAME fuzzreplay_${name} COMMAND fuzzreplay_${name} ${_ordalis_fuzz_dir}/corpus/${name})
        set_tests_properties(fuzzreplay_${name} PROPERTIES
            ENVIRONMENT "QT_QPA_PLATFORM=offscreen;LANG=C.UTF-8"
            TIMEOUT 120)
    endforeach()
endif()
