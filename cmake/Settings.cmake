# Language, warnings, sanitizers and link mode: one interface library that every target uses.
option(TIDEWRACK_WERROR "Treat warnings as errors" OFF)
option(TIDEWRACK_TESTS "Build the tests" OFF)
option(TIDEWRACK_BENCHMARKS "Build the benchmarks" OFF)
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
  target_compile_options(tidewrack_settings INTERFACE -fsanitize=${TIDEWRACK_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(tidewrack_settings INTERFACE -fsanitize=${TIDEWRACK_SANITIZE})
endif()
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  target_compile_options(tidewrack_settings INTERFACE -ffunction-sections -fdata-sections)
endif()

# A hook is one short process per agent command: the C++ runtime is linked in, because loading it
# costs more than everything a harmless command needs.
add_library(tidewrack_program_link INTERFACE)
if(NOT APPLE AND NOT TIDEWRACK_SANITIZE)
  target_link_options(tidewrack_program_link INTERFACE -static-libstdc++ -static-libgcc -Wl,--gc-sections -Wl,-z,now)
endif()
