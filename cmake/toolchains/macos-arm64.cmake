# macOS on Apple processors, built elsewhere: see scripts/cross-macos.
set(CMAKE_SYSTEM_PROCESSOR arm64)
include("${CMAKE_CURRENT_LIST_DIR}/macos.cmake")
