# Gives the installed files the places and the compression that Debian wants, just before they are packed.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()
set(share "${CPACK_TEMPORARY_DIRECTORY}/usr/share")
file(RENAME "${share}/zsh/site-functions" "${share}/zsh/vendor-completions")
file(RENAME "${share}/doc/tidewrack/LICENSE" "${share}/doc/tidewrack/copyright")
file(RENAME "${share}/doc/tidewrack/CHANGELOG.md" "${share}/doc/tidewrack/changelog")
# Debian has a record of its own of a package's versions.
set(now now)
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  set(now "@$ENV{SOURCE_DATE_EPOCH}")
endif()
execute_process(COMMAND date -u -R -d "${now}" OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE
  COMMAND_ERROR_IS_FATAL ANY)
file(WRITE "${share}/doc/tidewrack/changelog.Debian"
"tidewrack (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * What changed for its users is in changelog.gz.

 -- ${CPACK_DEBIAN_PACKAGE_MAINTAINER}  ${date}
")
file(GLOB compressed "${share}/man/man?/*" "${share}/doc/tidewrack/changelog*")
execute_process(COMMAND gzip -9n ${compressed} COMMAND_ERROR_IS_FATAL ANY)

file(MAKE_DIRECTORY "${share}/lintian/overrides")
file(WRITE "${share}/lintian/overrides/tidewrack"
"# A position-independent program that is linked statically looks like a library without dependencies.
tidewrack: shared-library-lacks-prerequisites [usr/bin/tidewrack]
tidewrack: shared-library-lacks-prerequisites [usr/bin/tidewrack-browse]
")

# The times of the files are those of the commit, where the caller tells them.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND find "${CPACK_TEMPORARY_DIRECTORY}" -exec touch -h -d "@$ENV{SOURCE_DATE_EPOCH}" {} +
    COMMAND_ERROR_IS_FATAL ANY)
endif()
