# Compiler settings of the whole tree, and the three functions that folders use to declare themselves.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

option(VELD_BENCH "build the benchmarks" OFF)
set(VELD_SANITIZE "" CACHE STRING "sanitizers, as for -fsanitize: address,undefined or thread")

# The standard headers, compiled once for all sources: a quarter of the compiler's work. Sources still include what they
# use; the presets with sanitizers build without it and so find an #include that is missing.
option(VELD_PCH "precompiled standard headers" ON)

find_program(CCACHE ccache)
if(CCACHE)
  # Without this sloppiness the cache takes no source that uses a precompiled header.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE})
endif()

# No fused multiply-add by the compiler's choice: results are then the same on every x86-64 machine.
# -Wrestrict has false alarms on std::string in this compiler version.
add_compile_options(-Wall -Wextra -Wshadow -Wpedantic -Werror -Wno-restrict -ffp-contract=off -fno-math-errno)
if(VELD_SANITIZE)
  # The compiler's own documents tell of false -Wmaybe-uninitialized alarms under sanitizers.
  add_compile_options(-fsanitize=${VELD_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all
                      -Wno-maybe-uninitialized)
  add_link_options(-fsanitize=${VELD_SANITIZE})
  add_compile_definitions(VELD_SANITIZED)
endif()
# Names in the backtrace of a crash report.
add_link_options(-rdynamic)

if(VELD_PCH)
  file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/pch/standard.cpp CONTENT "")
  add_library(standard_headers OBJECT ${CMAKE_BINARY_DIR}/pch/standard.cpp)
  target_link_libraries(standard_headers PRIVATE Threads::Threads)
  target_precompile_headers(standard_headers PRIVATE <algorithm> <cmath> <cstdio> <cstring> <fstream> <functional>
                            <iomanip> <iostream> <map> <memory> <mutex> <set> <sstream> <string> <thread> <vector>)
endif()
function(veld_standard_headers name)
  if(VELD_PCH)
    # Alarms inside std::string that the compiler keeps quiet when it reads the header itself.
    target_compile_options(${name} PRIVATE -Wno-stringop-overflow -Wno-array-bounds)
    target_precompile_headers(${name} REUSE_FROM standard_headers)
  endif()
endfunction()

# target_link_libraries takes the bare word "general" for a keyword, so that library goes by an alias there.
macro(veld_spell_general)
  list(TRANSFORM A_LIBS REPLACE "^general$" "veld::general")
endmacro()

# veld_library(name SOURCES a.cpp ... [LIBS x y])
function(veld_library name)
  cmake_parse_arguments(A "" "" "SOURCES;LIBS" ${ARGN})
  veld_spell_general()
  add_library(${name} STATIC ${A_SOURCES})
  add_library(veld::${name} ALIAS ${name})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${A_LIBS} Threads::Threads)
  veld_standard_headers(${name})
endfunction()

# veld_test(name SOURCES a_test.cpp ... [LIBS x y]): one GoogleTest executable, registered with CTest.
function(veld_test name)
  cmake_parse_arguments(A "" "" "SOURCES;LIBS" ${ARGN})
  veld_spell_general()
  add_executable(${name} ${A_SOURCES})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${A_LIBS} test_support GTest::gtest GTest::gtest_main)
  add_test(NAME ${name} COMMAND ${name})
endfunction()

# veld_bench(name SOURCES a_bench.cpp ... [LIBS x y]): one Google Benchmark executable.
function(veld_bench name)
  cmake_parse_arguments(A "" "" "SOURCES;LIBS" ${ARGN})
  veld_spell_general()
  add_executable(${name} ${A_SOURCES})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${A_LIBS} benchmark::benchmark benchmark::benchmark_main)
endfunction()
