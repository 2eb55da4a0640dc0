# SPDX-License-Identifier: GPL-3.0-or-later
# ordalis-keyhelper as Ordalis runs it, its test build reading named pipes that stand in for devices. Included
# from tests/CMakeLists.txt.
ordalis_add_test(testkeyhelper LIBS ordalis_keyhelper_paths)
target_include_directories(testkeyhelper PRIVATE "${CMAKE_BINARY_DIR}/include/input")
target_compile_definitions(testkeyhelper PRIVATE
    ORDALIS_KEYHELPER_TESTING_PATH="$<TARGET_FILE:ordalis-keyhelper-testing>")
add_dependencies(testkeyhelper ordalis-keyhelper-testing)
