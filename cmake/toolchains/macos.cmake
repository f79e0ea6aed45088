# What the two macOS toolchains share. scripts/cross-macos writes the compiler drivers and the
# libraries below build/cross; nothing of the building machine itself may be found and used.
set(CMAKE_SYSTEM_NAME Darwin)
set(cross "${CMAKE_CURRENT_LIST_DIR}/../../build/cross")
set(CMAKE_C_COMPILER "${cross}/bin/${CMAKE_SYSTEM_PROCESSOR}-cc")
set(CMAKE_CXX_COMPILER "${cross}/bin/${CMAKE_SYSTEM_PROCESSOR}-c++")
set(CMAKE_AR "${cross}/bin/ar")
set(CMAKE_RANLIB "${cross}/bin/ranlib")
set(CMAKE_INSTALL_NAME_TOOL "${cross}/bin/no-install-name-tool")
# The drivers know the headers and the oldest system: CMake has no kit to look for.
set(CMAKE_OSX_SYSROOT "")
set(CMAKE_OSX_DEPLOYMENT_TARGET "")
set(CMAKE_SKIP_RPATH ON)
# Without the names of object files, which are paths of this machine. Stripping later would break the signature.
set(CMAKE_EXE_LINKER_FLAGS_RELEASE_INIT "-s")

set(CMAKE_FIND_ROOT_PATH "${cross}/macos-${CMAKE_SYSTEM_PROCESSOR}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
