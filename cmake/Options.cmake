# What a builder may choose, and the flags that every target of ours is compiled with.

option(QX_BUILD_TESTS "Build the tests" ${PROJECT_IS_TOP_LEVEL})
option(QX_BUILD_BENCHMARKS "Build the benchmarks" ${PROJECT_IS_TOP_LEVEL})
option(QX_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" ${PROJECT_IS_TOP_LEVEL})
set(QX_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread")
option(QX_COVERAGE "Instrument for coverage" OFF)
option(QX_FUZZERS "Build the fuzzers; Clang only, see the preset fuzz" OFF)

# Backtraces and profiles need functions and lines; the rest of the debug information is a quarter of the compile time.
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1 -DNDEBUG")

find_program(QX_CCACHE ccache)
if(QX_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${QX_CCACHE})
endif()

add_library(qx_options INTERFACE)
target_compile_options(qx_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Woverloaded-virtual)
if(QX_WARNINGS_AS_ERRORS)
    target_compile_options(qx_options INTERFACE -Werror)
endif()
if(QX_SANITIZE)
    target_compile_options(qx_options INTERFACE
        -fsanitize=${QX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(qx_options INTERFACE -fsanitize=${QX_SANITIZE})
endif()
if(QX_COVERAGE)
    target_compile_options(qx_options INTERFACE --coverage)
    target_link_options(qx_options INTERFACE --coverage)
endif()

# For targets that use std::regex: with sanitizers, GCC 12 takes its moved-from states for uninitialised ones.
add_library(qx_regex INTERFACE)
target_compile_options(qx_regex INTERFACE -Wno-maybe-uninitialized)
