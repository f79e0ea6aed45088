# What `cmake --install` puts where, and the Debian package and the tarball that scripts/package makes of it.
include(GNUInstallDirs)
set(TIDEWRACK_MAINTAINER "The Tidewrack authors" CACHE STRING "Who answers for the Debian package, as name <address>")
set(TIDEWRACK_NOTICES "" CACHE PATH "Folder with the licences of the libraries that are linked in, installed along")

install(TARGETS tidewrack RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
if(TIDEWRACK_BROWSE) # beside the first, which starts it
  install(TARGETS tidewrack-browse RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" OPTIONAL)
endif()
install(FILES docs/man/tidewrack.1 docs/man/tidewrack-browse.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
install(FILES docs/man/tidewrack-store.5 DESTINATION "${CMAKE_INSTALL_MANDIR}/man5")
install(FILES completions/tidewrack.bash
  DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME tidewrack)
install(FILES completions/_tidewrack DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions")
install(FILES completions/tidewrack.fish DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")
install(DIRECTORY packaging/plugins DESTINATION "${CMAKE_INSTALL_DATADIR}/tidewrack")
install(FILES README.md CHANGELOG.md LICENSE SECURITY.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(FILES docs/compatibility.md docs/guard.md docs/hooks.md docs/json.md docs/json.schema.json docs/mcp.md docs/mirror.md
  docs/store-format.md docs/threats.md DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs")
if(TIDEWRACK_NOTICES)
  install(DIRECTORY "${TIDEWRACK_NOTICES}/" DESTINATION "${CMAKE_INSTALL_DOCDIR}/libraries")
endif()

set(CPACK_GENERATOR DEB TGZ)
set(CPACK_PACKAGE_NAME tidewrack)
set(CPACK_PACKAGE_VENDOR "The Tidewrack authors")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "undo anything your AI agent did")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_VERBATIM_VARIABLES ON)
string(TOLOWER "tidewrack-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}" CPACK_PACKAGE_FILE_NAME)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${TIDEWRACK_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SECTION vcs)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS git)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS xdg-utils)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Tidewrack keeps a local, automatic history of project folders, so that
anything an AI coding agent did to them can be undone, untracked files,
dotfiles and permissions included. Hooks in the agents' own configuration
take the snapshots, refuse commands that would destroy a home folder or the
system, and save what lies outside of projects before a command touches it.")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${CMAKE_CURRENT_SOURCE_DIR}/packaging/debian/prerm")
if(NOT TIDEWRACK_STATIC)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
set(CPACK_PROJECT_CONFIG_FILE "${CMAKE_CURRENT_LIST_DIR}/PackageKinds.cmake")
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/DebianLayout.cmake")
include(CPack)
