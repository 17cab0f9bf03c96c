# Options of the build and the flags that every target of ours gets (interface target tamrel_flags).
set(TAMREL_SNMPPP AUTO CACHE STRING "SNMP++ and AGENT++ value types: AUTO (installed one, else own), SYSTEM, COMPAT")
set_property(CACHE TAMREL_SNMPPP PROPERTY STRINGS AUTO SYSTEM COMPAT)
set(TAMREL_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize takes them: address,undefined or thread")
option(TAMREL_FUZZER "Link fuzz targets with libFuzzer (clang only) instead of a replay program" OFF)
option(TAMREL_TESTS "Build the tests (tests/, fuzz/)" ON)
option(TAMREL_BENCHMARKS "Build the benchmarks (bench/)" ON)
set(TAMREL_JOIN "" CACHE STRING "What is compiled several sources at a time (cmake/join.cmake): of TESTS, TOOLS, SOURCES")
set(TAMREL_PRODUCT_ROOT ${CMAKE_INSTALL_FULL_DATADIR}/vrx CACHE STRING "Product root where neither --root nor VRX_ROOT names one")
set(TAMREL_UNIT_DIR lib/systemd/system CACHE STRING "Where systemd's unit files are installed")

add_library(tamrel_flags INTERFACE)
target_include_directories(tamrel_flags INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(tamrel_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2
    -Wcast-align -Wundef -Wshadow -Werror)
# Reports, traces and profiles show lines; more than that is for debuggers, and a third of an optimising compiler's time.
if(TAMREL_SANITIZE OR NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    target_compile_options(tamrel_flags INTERFACE -g1)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(tamrel_flags INTERFACE -Wlogical-op -Wduplicated-cond)
else()
    # Clang counts a format that comes with its va_list among these; GCC knows better. Clang alone reads the annotations of
    # locks (host/base/mutex.h); beta is the order of locks.
    target_compile_options(tamrel_flags INTERFACE -Wno-format-nonliteral -Wthread-safety -Wthread-safety-beta)
    # From 19 on it tells of templates that headers of libraries use among themselves: std::stable_sort, fmt, nlohmann.
    if(CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 19)
        target_compile_options(tamrel_flags INTERFACE -Wno-deprecated-declarations)
    endif()
endif()
if(TAMREL_SANITIZE)
    target_compile_options(tamrel_flags INTERFACE -fsanitize=${TAMREL_SANITIZE} -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    target_link_options(tamrel_flags INTERFACE -fsanitize=${TAMREL_SANITIZE})
endif()
# Clang links its runtime into each program, whose malloc() then comes before that of a preloaded library: the fault tests
# could make none fail. As a library it comes after. It stands beside ours, where each program looks.
if(TAMREL_SANITIZE MATCHES "address" AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND NOT TAMREL_FUZZER)
    set(runtime libclang_rt.asan-${CMAKE_SYSTEM_PROCESSOR}.so)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${runtime} OUTPUT_VARIABLE runtime_path
        OUTPUT_STRIP_TRAILING_WHITESPACE)
    file(MAKE_DIRECTORY ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
    file(CREATE_LINK ${runtime_path} ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/${runtime} SYMBOLIC)
    target_link_options(tamrel_flags INTERFACE -shared-libasan)
    set(CMAKE_BUILD_RPATH ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
endif()

# LLVM's linker takes a quarter of the time of the usual one, which links what ships.
set(tamrel_quick_linker)
find_program(TAMREL_LLD ld.lld)
if(TAMREL_LLD AND NOT CMAKE_CROSSCOMPILING)
    set(tamrel_quick_linker -fuse-ld=lld)
endif()
if(TAMREL_SANITIZE)
    add_link_options(${tamrel_quick_linker})
endif()

# What ships is hardened where it is optimised: _FORTIFY_SOURCE works in no other build, and sanitizers look deeper. Its third
# level counts the sizes, too, that are known at run time only.
include(CheckPIESupported)
check_pie_supported()
set(TAMREL_HARDENED OFF)
if(CMAKE_BUILD_TYPE MATCHES "^(RelWithDebInfo|Release|MinSizeRel)$" AND NOT TAMREL_SANITIZE)
    set(TAMREL_HARDENED ON)
    add_compile_options("SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3" -fstack-protector-strong -fstack-clash-protection)
    add_link_options(-Wl,-z,relro -Wl,-z,now)
endif()
