# Language, warnings, sanitizers and link mode: one interface library that every target uses.
option(TIDEWRACK_WERROR "Treat warnings as errors" OFF)
option(TIDEWRACK_TESTS "Build the tests" OFF)
option(TIDEWRACK_BENCHMARKS "Build the benchmarks" OFF)
option(TIDEWRACK_FUZZ "Build the fuzz targets; needs clang" OFF)
set(TIDEWRACK_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize takes them")
set(TIDEWRACK_STATIC_LZFSE "" CACHE FILEPATH "On Linux: liblzfse.a. With it the program is linked statically as a whole")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")

add_library(tidewrack_settings INTERFACE)
target_compile_definitions(tidewrack_settings INTERFACE _FILE_OFFSET_BITS=64)
target_compile_options(tidewrack_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Woverloaded-virtual -Wno-missing-field-initializers)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(tidewrack_settings INTERFACE -Wno-restrict) # g++ 12 warns of every "text" + std::string
endif()
if(TIDEWRACK_WERROR)
  target_compile_options(tidewrack_settings INTERFACE -Werror)
endif()
if(TIDEWRACK_SANITIZE)
  # With sanitizers g++ takes much for uninitialised that is not.
  target_compile_options(tidewrack_settings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_compile_options(tidewrack_settings INTERFACE -fsanitize=${TIDEWRACK_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(tidewrack_settings INTERFACE -fsanitize=${TIDEWRACK_SANITIZE})
endif()
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  target_compile_options(tidewrack_settings INTERFACE -ffunction-sections -fdata-sections)
endif()

# Optimised as a whole: a seventh less to load at every start, and small functions are put into their callers across
# files. Not tried on a Mac.
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT APPLE)
  include(CheckIPOSupported)
  check_ipo_supported(RESULT TIDEWRACK_WHOLE_PROGRAM LANGUAGES CXX)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ${TIDEWRACK_WHOLE_PROGRAM})
endif()

# A hook is one short process per agent command, and most of its time is starting up. How each way of linking starts,
# as a whole process (`tidewrack version`, medians of 300 rounds by Benchmarks/StartUp, first in the machine's line):
#   everything static, position independent                    0.67 ms   taken where LZFSE is at hand as an archive
#   everything static, at a fixed address                      0.69 ms
#   the C library shared, the C++ runtime and the rest static  0.90 ms   taken elsewhere
#   the C++ runtime shared too                                 1.56 ms
# beside a static program that does nothing (0.58 ms) and /bin/true (0.97 ms). Agents choose much of what the program
# reads, so randomised addresses are welcome. What made no difference beyond chance or made it slower: lld, folding
# identical code, stripping, joining code and constants, writable relocations.
add_library(tidewrack_program_link INTERFACE)
if(NOT APPLE AND NOT TIDEWRACK_SANITIZE)
  target_link_options(tidewrack_program_link INTERFACE -Wl,--gc-sections)
  if(TIDEWRACK_STATIC_LZFSE)
    target_compile_options(tidewrack_settings INTERFACE -fPIE)
    target_link_options(tidewrack_program_link INTERFACE -static-pie)
  else()
    target_link_options(tidewrack_program_link INTERFACE -static-libstdc++ -static-libgcc -Wl,-z,now)
  endif()
endif()
