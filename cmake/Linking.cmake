# How the program is linked: an interface library that tidewrack and what is compared with it use.
#
# A hook is one short process per agent command, and most of its time is starting up. How each way of linking starts,
# as a whole process (`tidewrack version`, medians of 300 rounds by Benchmarks/StartUp, first in the machine's line):
#   everything static, position independent                    0.67 ms   the release, where all libraries are archives
#   everything static, at a fixed address                      0.69 ms
#   the C library shared, the C++ runtime and the rest static  0.90 ms   taken elsewhere
#   the C++ runtime shared too                                 1.56 ms
# beside a static program that does nothing (0.58 ms) and /bin/true (0.97 ms). Agents choose much of what the program
# reads, so randomised addresses are welcome. What made no difference beyond chance or made it slower: lld, folding
# identical code, stripping, joining code and constants, writable relocations.
set(TIDEWRACK_STATIC OFF)
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT APPLE AND NOT TIDEWRACK_SANITIZE)
  find_library(C_LIBRARY libc.a)
  set(TIDEWRACK_STATIC ON)
  foreach(library "${C_LIBRARY}" "${LZFSE_LIBRARY}" "${UTF8PROC_LIBRARY}" "${MD_LIBRARY}")
    if(NOT library MATCHES "\\.a$")
      set(TIDEWRACK_STATIC OFF)
    endif()
  endforeach()
endif()

add_library(tidewrack_program_link INTERFACE)
if(TIDEWRACK_STATIC)
  target_compile_options(tidewrack_settings INTERFACE -fPIE)
  target_link_options(tidewrack_program_link INTERFACE -Wl,--gc-sections -static-pie -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
elseif(NOT APPLE AND NOT TIDEWRACK_SANITIZE)
  target_link_options(tidewrack_program_link INTERFACE -Wl,--gc-sections -static-libstdc++ -static-libgcc -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()
