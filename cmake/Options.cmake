# What a builder may choose, and the flags that every target of ours is compiled with.

option(QX_BUILD_TESTS "Build the tests" ${PROJECT_IS_TOP_LEVEL})
option(QX_BUILD_BENCHMARKS "Build the benchmarks" ${PROJECT_IS_TOP_LEVEL})
option(QX_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" ${PROJECT_IS_TOP_LEVEL})
set(QX_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread")
option(QX_COVERAGE "Instrument for coverage" OFF)
option(QX_FUZZERS "Build the fuzzers; Clang only, see the preset fuzz" OFF)

option(QX_DEBIAN_PACKAGES "Prepare for cpack, which makes Debian packages; see the preset packages" OFF)

if(QX_DEBIAN_PACKAGES)
    # The system's own folders need no search path. The same sources give the same bytes in any folder: paths are relative
    # to the sources or the program, and names of local symbols, some of which have a path in them, are left out.
    set(CMAKE_SKIP_INSTALL_RPATH ON)
    set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
    add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
    add_link_options(-Wl,-s)
    # What Debian hardens its packages with: checks of the stack and of the C library's buffers, symbols bound at the start.
    add_compile_options(-fstack-protector-strong -fstack-clash-protection -fcf-protection)
    add_compile_definitions(_FORTIFY_SOURCE=2)
    add_link_options(-Wl,-z,relro,-z,now)
else()
    # An installation may be moved: programs and libraries find each other from where they are.
    file(RELATIVE_PATH QX_BIN_TO_LIB ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set(CMAKE_INSTALL_RPATH "$ORIGIN/${QX_BIN_TO_LIB}" "$ORIGIN")
endif()

option(QX_UNITY "Compile several sources of a target as one, which takes a third of the time from scratch" ON)
if(QX_UNITY)
    set(CMAKE_UNITY_BUILD ON)
    set(CMAKE_UNITY_BUILD_BATCH_SIZE 10)
endif()

# Backtraces and profiles need functions and lines; the rest of the debug information is a quarter of the compile time.
# Under sanitizers, -O2 takes twice as long to compile as -O1.
if(QX_SANITIZE)
    set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1 -g1 -DNDEBUG")
else()
    set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1 -DNDEBUG")
endif()

find_program(QX_CCACHE ccache)
if(QX_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${QX_CCACHE})
endif()

add_library(qx_options INTERFACE)
target_compile_options(qx_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Woverloaded-virtual)
# Compiled as one, a source's locals shadow what is local to another source, and its anonymous types look like a header's.
# Clang knows neither of GCC's options for this; it looks for shadows where sources are compiled by themselves.
if(QX_UNITY)
    target_compile_options(qx_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local;-Wno-subobject-linkage>)
else()
    target_compile_options(qx_options INTERFACE -Wshadow)
endif()
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
target_compile_options(qx_regex INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
