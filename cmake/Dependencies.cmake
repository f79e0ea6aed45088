# The one place that names the libraries.
#   nlohmann-json  records, hook events and replies, agents' configuration files
#   libmd          one SHA-256 per project id; linked statically, so that it costs no start-up time. A cryptography
#                  library asks the processor at every start what it can do, which can cost a hook a tenth of its time
#                  in a virtual machine
#   lzfse          manifests; loaded at the first manifest, because most hooks read none. Linked on macOS, where
#                  TIDEWRACK_STATIC_LZFSE names it, and where the library bears another name than in Debian's package
#   utf8proc       user-perceived characters, letters and numbers, lower case
#   GoogleTest, Google Benchmark: tests and micro benchmarks only
find_package(Threads REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)

add_library(tidewrack_dependencies INTERFACE)
target_link_libraries(tidewrack_dependencies INTERFACE Threads::Threads nlohmann_json::nlohmann_json ${CMAKE_DL_LIBS})

find_path(LZFSE_INCLUDE_DIR lzfse.h REQUIRED)
target_include_directories(tidewrack_dependencies SYSTEM INTERFACE ${LZFSE_INCLUDE_DIR})
find_library(LZFSE_LOADABLE liblzfse.so.1)
set(TIDEWRACK_LZFSE_LINKED ON)
if(TIDEWRACK_STATIC_LZFSE)
  target_link_libraries(tidewrack_dependencies INTERFACE ${TIDEWRACK_STATIC_LZFSE})
elseif(APPLE OR NOT LZFSE_LOADABLE)
  find_library(LZFSE_LIBRARY lzfse REQUIRED)
  target_link_libraries(tidewrack_dependencies INTERFACE ${LZFSE_LIBRARY})
else()
  set(TIDEWRACK_LZFSE_LINKED OFF)
endif()

find_path(UTF8PROC_INCLUDE_DIR utf8proc.h REQUIRED)
find_library(UTF8PROC_LIBRARY NAMES libutf8proc.a utf8proc REQUIRED)
target_include_directories(tidewrack_dependencies SYSTEM INTERFACE ${UTF8PROC_INCLUDE_DIR})
target_compile_definitions(tidewrack_dependencies INTERFACE UTF8PROC_STATIC)
target_link_libraries(tidewrack_dependencies INTERFACE ${UTF8PROC_LIBRARY})

if(NOT APPLE)
  find_path(MD_INCLUDE_DIR sha2.h REQUIRED)
  find_library(MD_LIBRARY NAMES libmd.a md REQUIRED)
  target_include_directories(tidewrack_dependencies SYSTEM INTERFACE ${MD_INCLUDE_DIR})
  target_link_libraries(tidewrack_dependencies INTERFACE ${MD_LIBRARY})
endif()

if(TIDEWRACK_TESTS AND CMAKE_CROSSCOMPILING)
  find_path(GTEST_INCLUDE_DIR gtest/gtest.h REQUIRED)
elseif(TIDEWRACK_TESTS)
  find_package(GTest REQUIRED)
endif()
if(TIDEWRACK_BENCHMARKS)
  find_package(benchmark REQUIRED)
endif()
