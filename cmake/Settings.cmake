# Language, warnings and sanitizers: one interface library that every target uses.
option(TIDEWRACK_WERROR "Treat warnings as errors" OFF)
option(TIDEWRACK_TESTS "Build the tests" OFF)
option(TIDEWRACK_BENCHMARKS "Build the benchmarks" OFF)
option(TIDEWRACK_FUZZ "Build the fuzz targets; needs clang" OFF)
set(TIDEWRACK_FUZZ_ENGINE "" CACHE STRING "What drives the fuzz targets, where that is not clang's libFuzzer")
set(TIDEWRACK_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize takes them")

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
  # Half of g++'s time went into asking each pointer whether it is null or crooked. The fuzz targets' compiler asks at once.
  target_compile_options(tidewrack_settings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-fno-sanitize=null,alignment>)
  target_link_options(tidewrack_settings INTERFACE -fsanitize=${TIDEWRACK_SANITIZE})
  # At a fixed address: a million addresses of what the sanitizers know would be put right at every start, which takes
  # more than half of it, and the tests start the program many thousand times.
  if(NOT APPLE AND TIDEWRACK_SANITIZE MATCHES "address")
    target_compile_options(tidewrack_settings INTERFACE -fno-pie)
    target_link_options(tidewrack_settings INTERFACE -no-pie)
  endif()
endif()
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  target_compile_options(tidewrack_settings INTERFACE -ffunction-sections -fdata-sections)
endif()

# What keeps a fault in reading hostile input from becoming more than an end of the process.
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  # No path of the building machine gets into the program.
  target_compile_options(tidewrack_settings INTERFACE "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
  target_compile_options(tidewrack_settings INTERFACE
    -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong)
  if(NOT APPLE)
    target_compile_options(tidewrack_settings INTERFACE -fstack-clash-protection)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(tidewrack_settings INTERFACE -Wno-unused-result) # it asks for more than (void)
  endif()
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64" AND NOT APPLE)
    target_compile_options(tidewrack_settings INTERFACE -fcf-protection=full)
  elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    target_compile_options(tidewrack_settings INTERFACE -mbranch-protection=standard)
  endif()
endif()

# Optimised as a whole: a seventh less to load at every start, and small functions are put into their callers across
# files. Not tried on a Mac.
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT APPLE)
  include(CheckIPOSupported)
  check_ipo_supported(RESULT TIDEWRACK_WHOLE_PROGRAM LANGUAGES CXX)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ${TIDEWRACK_WHOLE_PROGRAM})
endif()
