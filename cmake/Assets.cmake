# Puts the page's files into the program: run by CMake with -P.
#   SOURCE   the folder with index.html, page.css and the modules
#   HIGHLIGHT  the script that colours languages; may be empty
#   OUTPUT   the C++ file to be written
# The modules become one script: what they import from each other stands in it.
set(modules api.js list.js pane.js act.js diff.js turn.js views.js page.js)
set(script "'use strict';\n")
foreach(module ${modules})
  file(READ "${SOURCE}/${module}" text)
  # Brackets and semicolons have a meaning of their own in CMake's lists: nothing here is treated as one.
  string(REGEX REPLACE "(^|\n)import [^\n]*" "\\1" text "${text}")
  string(REGEX REPLACE "(^|\n)export " "\\1" text "${text}")
  string(APPEND script "${text}")
endforeach()
file(WRITE "${OUTPUT}.page.js" "(() => {\n${script}})();\n")

set(rows "")
set(arrays "")
function(add_asset name path type file)
  file(READ "${file}" bytes HEX)
  string(REGEX REPLACE "(..)" "\\\\x\\1" bytes "${bytes}")
  set(arrays "${arrays}constexpr char ${name}[] = \"${bytes}\";\n" PARENT_SCOPE)
  set(rows "${rows}    {\"${path}\", \"${type}; charset=utf-8\", {${name}, sizeof ${name} - 1}},\n" PARENT_SCOPE)
endfunction()
add_asset(indexHtml /index.html text/html "${SOURCE}/index.html")
add_asset(pageCss /page.css text/css "${SOURCE}/page.css")
add_asset(pageJs /page.js text/javascript "${OUTPUT}.page.js")
if(HIGHLIGHT)
  add_asset(highlightJs /highlight.js text/javascript "${HIGHLIGHT}")
endif()
file(WRITE "${OUTPUT}" "// Made by cmake/Assets.cmake.
#include \"Page/Assets.hpp\"

namespace tidewrack::page {

namespace {

${arrays}
constexpr Asset all[] = {
${rows}};

} // namespace

std::span<const Asset> assets() {
    return all;
}

} // namespace tidewrack::page
")
