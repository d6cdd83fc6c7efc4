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

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libstowline${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "${PROJECT_DESCRIPTION}
 Turns the requests of a backup application into calls on the provider's web
 services: signing in, uploading in parts, browsing, deleting, reporting.
 .
 This package has the shared library and its helper program.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libstowline-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libstowline${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
# Needed only by those who link the static library.
list(JOIN STOWLINE_LIBRARY_PACKAGES ", " CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION}, for building with it
 Headers, static library, CMake and pkg-config files.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME stowline-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
  "libstowline${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "Backs up files online: the stowline command
 The reference host program of the Stowline service layer, and a small backup
 service that runs on the same machine, for trying and testing.")
include(CPack)
