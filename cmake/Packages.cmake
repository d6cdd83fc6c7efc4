# Debian packages, one for each component of the installation: cpack -G DEB.
set(CPACK_PACKAGE_NAME stowline)
set(CPACK_PACKAGE_VENDOR "Stowline")
set(CPACK_PACKAGE_CONTACT "The Stowline developers <developers@stowline.example>")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL library development tools)
set(CPACK_COMPONENTS_GROUPING IGNORE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
# What each package needs is read from its programs and libraries.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

# Each package has a description of its own, whose first line is its summary.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")

set(debian "${PROJECT_SOURCE_DIR}/packaging/debian")
configure_file("${debian}/changelog.in" "${PROJECT_BINARY_DIR}/debian/changelog" @ONLY)
set(CPACK_STOWLINE_CHANGELOG "${PROJECT_BINARY_DIR}/debian/changelog")
set(CPACK_PRE_BUILD_SCRIPTS "${debian}/Stage.cmake")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libstowline${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "service layer of an online-backup client
Turns the requests of a backup application into calls on the provider's web
services: signing in, uploading in parts, browsing, deleting, reporting.

This package has the shared library and its helper program.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA "${debian}/triggers")
# Which symbols there are since which version: what is linked with the library needs no newer one than
# that.
find_program(GENSYMBOLS dpkg-gensymbols)
if(GENSYMBOLS)
  set(symbols "${PROJECT_BINARY_DIR}/debian/symbols")
  add_custom_command(OUTPUT "${symbols}"
    COMMAND ${GENSYMBOLS} -q -c0 -v${PROJECT_VERSION} -P${PROJECT_BINARY_DIR}/debian
      -p${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} -e$<TARGET_FILE:stowline_shared> -O${symbols}
    DEPENDS stowline_shared VERBATIM)
  add_custom_target(stowline_symbols ALL DEPENDS "${symbols}")
  list(APPEND CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA "${symbols}")
endif()

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libstowline-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libstowline${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
# Needed only by those who link the static library.
list(JOIN STOWLINE_LIBRARY_PACKAGES ", " CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "service layer of an online-backup client, for building with it
Headers, static library, CMake and pkg-config files, and all pages.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME stowline-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
  "libstowline${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA "${debian}/conffiles")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "backs up files online: the stowline command
The reference host program of the Stowline service layer, and a small backup
service that runs on the same machine, for trying and testing.")
include(CPack)
