# macOS on Intel processors, built elsewhere: see scripts/cross-macos.
set(CMAKE_SYSTEM_PROCESSOR x86_64)
include("${CMAKE_CURRENT_LIST_DIR}/macos.cmake")
