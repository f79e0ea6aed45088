# The one place that names the libraries.
#   nlohmann-json  records, hook events and replies, agents' configuration files
#   libmd          one SHA-256 per project id; linked statically, so that it costs no start-up time. A cryptography
#                  library asks the processor at every start what it can do, which can cost a hook a tenth of its time
#                  in a virtual machine
#   lzfse          manifests. scripts/lib/lzfse makes an archive of it, which no package of Debian or Ubuntu holds
#   utf8proc       user-perceived characters, letters and numbers, lower case
#   GoogleTest, Google Benchmark: tests and micro benchmarks only
find_package(Threads REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)

add_library(tidewrack_dependencies INTERFACE)
target_link_libraries(tidewrack_dependencies INTERFACE Threads::Threads nlohmann_json::nlohmann_json)

set(own_libraries "${PROJECT_SOURCE_DIR}/build/libraries")
find_path(LZFSE_HEADERS lzfse.h HINTS "${own_libraries}" REQUIRED)
find_library(LZFSE_LIBRARY NAMES liblzfse.a lzfse HINTS "${own_libraries}" REQUIRED)
target_include_directories(tidewrack_dependencies SYSTEM INTERFACE ${LZFSE_HEADERS})
target_link_libraries(tidewrack_dependencies INTERFACE ${LZFSE_LIBRARY})

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
