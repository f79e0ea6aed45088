# The page of `tidewrack browse`: a library that the tests link too, and the program with the server and with the picker
# of `tidewrack timeline -i`.
#   cpp-httplib     the server. It is one header, so that the program links statically for both systems without another
#                   library's build; Boost.Beast would take a part of Boost for it, and libmicrohttpd's archive asks for
#                   GnuTLS. Debian's package splits it into a header and a shared library, so scripts/setup fetches that
#                   package's source
#   FTXUI           draws the picker. Debian packages it only later, and as shared libraries: scripts/setup fetches the
#                   source of that package. Homebrew has it
#   highlight.js    the colours of languages, from the system's package; without it the page has none
set(page Sources/tidewrack/Page)
find_file(HIGHLIGHT_SCRIPT highlight.min.js NO_CMAKE_FIND_ROOT_PATH
  PATHS /usr/share/javascript/highlight.js /usr/share/javascript/highlight NO_DEFAULT_PATH)
if(NOT HIGHLIGHT_SCRIPT)
  set(HIGHLIGHT_SCRIPT "")
  message(STATUS "highlight.min.js (libjs-highlight.js) is missing: the page shows languages without colours")
endif()
set(page_assets "${CMAKE_BINARY_DIR}/PageAssets.cpp")
file(GLOB asset_files CONFIGURE_DEPENDS ${page}/assets/*)
add_custom_command(OUTPUT "${page_assets}"
  COMMAND "${CMAKE_COMMAND}" "-DSOURCE=${PROJECT_SOURCE_DIR}/${page}/assets" "-DHIGHLIGHT=$<$<BOOL:${HIGHLIGHT_SCRIPT}>:${HIGHLIGHT_SCRIPT}>"
    "-DOUTPUT=${page_assets}" -P "${PROJECT_SOURCE_DIR}/cmake/Assets.cmake"
  DEPENDS ${asset_files} "${PROJECT_SOURCE_DIR}/cmake/Assets.cmake" VERBATIM)
set_source_files_properties("${page_assets}" PROPERTIES COMPILE_OPTIONS -Wno-overlength-strings)
add_library(tidewrack_page STATIC EXCLUDE_FROM_ALL ${page}/Routes.cpp ${page}/Acts.cpp ${page}/Site.cpp ${page}/StaticPage.cpp
  ${page}/Picker.cpp "${page_assets}")
target_link_libraries(tidewrack_page PUBLIC tidewrack_cli)

# Not kept: setup may have fetched it since.
find_path(HTTPLIB_FOLDER httplib.h HINTS "${PROJECT_SOURCE_DIR}/build/sources/cpp-httplib" NO_CACHE)
set(TIDEWRACK_BROWSE OFF)
if(HTTPLIB_FOLDER)
  file(STRINGS "${HTTPLIB_FOLDER}/httplib.h" whole REGEX "^inline bool Server::listen\\(" LIMIT_COUNT 1)
  if(whole)
    set(TIDEWRACK_BROWSE ON)
  endif()
endif()
if(TIDEWRACK_BROWSE)
  add_executable(tidewrack-browse ${page}/main.cpp ${page}/Server.cpp ${page}/Connection.cpp)
  target_include_directories(tidewrack-browse SYSTEM PRIVATE "${HTTPLIB_FOLDER}")
  # Paths may be as long as a system has them; Page/Connection holds all of a request's head to its limit.
  target_compile_definitions(tidewrack-browse PRIVATE CPPHTTPLIB_REQUEST_URI_MAX_LENGTH=65536)
  target_link_libraries(tidewrack-browse PRIVATE tidewrack_page tidewrack_program_link)
else()
  message(WARNING "cpp-httplib's whole header is missing (scripts/setup fetches it): built without `tidewrack browse`")
endif()

set(TIDEWRACK_PICKER OFF)
set(ftxui "${PROJECT_SOURCE_DIR}/build/sources/ftxui")
if(TIDEWRACK_BROWSE AND EXISTS "${ftxui}/src/ftxui")
  set(TIDEWRACK_PICKER ON)
  file(GLOB ftxui_sources "${ftxui}/src/ftxui/*/*.cpp")
  list(FILTER ftxui_sources EXCLUDE REGEX "_test\\.cpp$|_fuzzer\\.cpp$")
  add_library(tidewrack_ftxui STATIC EXCLUDE_FROM_ALL ${ftxui_sources})
  target_include_directories(tidewrack_ftxui PRIVATE "${ftxui}/src")
  target_include_directories(tidewrack_ftxui SYSTEM PUBLIC "${ftxui}/include")
  target_compile_options(tidewrack_ftxui PRIVATE -w -ffunction-sections -fdata-sections "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
  set_target_properties(tidewrack_ftxui PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_CLANG_TIDY "")
  set(picker_library tidewrack_ftxui)
elseif(TIDEWRACK_BROWSE)
  find_package(ftxui CONFIG QUIET)
  if(ftxui_FOUND)
    set(TIDEWRACK_PICKER ON)
    set(picker_library ftxui::component)
  else()
    message(WARNING "FTXUI's source is missing (scripts/setup fetches it): built without `tidewrack timeline -i`")
  endif()
endif()
if(TIDEWRACK_PICKER)
  target_sources(tidewrack-browse PRIVATE ${page}/PickerView.cpp)
  target_compile_definitions(tidewrack-browse PRIVATE TIDEWRACK_PICKER)
  target_link_libraries(tidewrack-browse PRIVATE ${picker_library})
endif()
