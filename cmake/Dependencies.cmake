# Every outside library, from the distribution's packages only. What is missing is named with the
# package that brings it.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

# What scripts/setup and scripts/bench install. A library that neither lists would be missed on the next
# machine.
foreach(purpose build apt bench)
  file(STRINGS "${PROJECT_SOURCE_DIR}/packaging/${purpose}-packages.txt" listed)
  list(APPEND STOWLINE_LISTED_PACKAGES ${listed})
endforeach()
function(stowline_listed package)
  if(NOT package IN_LIST STOWLINE_LISTED_PACKAGES)
    message(FATAL_ERROR "No list in packaging/ names ${package}.")
  endif()
endfunction()

# stowline_require(<target> <pkg-config module> <Debian package> [LIBRARY])
# LIBRARY: libstowline itself is made with it, so whoever links it statically needs it too. All that
# follows from it (linking, what the package suggests, what find_package looks for) is made of these
# lists.
set(STOWLINE_LIBRARY_TARGETS)
set(STOWLINE_LIBRARY_MODULES)
set(STOWLINE_LIBRARY_PACKAGES libsqlitecpp-dev)
macro(stowline_require target module package)
  stowline_listed(${package})
  pkg_check_modules(${target} QUIET IMPORTED_TARGET GLOBAL ${module})
  if(NOT ${target}_FOUND)
    message(FATAL_ERROR "${module} is missing. Install the package ${package} "
                        "(scripts/setup installs everything that is needed).")
  endif()
  if("${ARGN}" STREQUAL "LIBRARY")
    list(APPEND STOWLINE_LIBRARY_TARGETS PkgConfig::${target})
    list(APPEND STOWLINE_LIBRARY_MODULES ${module})
    list(APPEND STOWLINE_LIBRARY_PACKAGES ${package})
  endif()
endmacro()

stowline_require(CURL libcurl libcurl4-openssl-dev LIBRARY)
stowline_require(EXPAT expat libexpat1-dev LIBRARY)
stowline_require(PLIST libplist-2.0 libplist-dev LIBRARY)
stowline_require(GIO gio-2.0 libglib2.0-dev LIBRARY)
stowline_require(ICU icu-i18n libicu-dev LIBRARY)
stowline_require(MOUNT mount libmount-dev LIBRARY)
stowline_require(SQLITE sqlite3 libsqlite3-dev LIBRARY)
stowline_require(CRYPTO libcrypto libssl-dev LIBRARY)
stowline_require(SSL libssl libssl-dev LIBRARY)
stowline_require(ISAL libisal libisal-dev LIBRARY)
stowline_require(ZLIB zlib zlib1g-dev LIBRARY)
stowline_require(FMT fmt libfmt-dev LIBRARY)
stowline_require(HTTPLIB cpp-httplib libcpp-httplib-dev)
stowline_require(SODIUM libsodium libsodium-dev)
stowline_require(ZSTD libzstd libzstd-dev)
list(REMOVE_DUPLICATES STOWLINE_LIBRARY_PACKAGES)

find_path(CLI11_INCLUDE CLI/CLI.hpp)
find_path(JSON_INCLUDE nlohmann/json.hpp)
find_path(TOML_INCLUDE toml++/toml.h)
find_path(SQLITECPP_INCLUDE SQLiteCpp/SQLiteCpp.h)
find_library(SQLITECPP_LIBRARY SQLiteCpp)
foreach(pair CLI11_INCLUDE:libcli11-dev JSON_INCLUDE:nlohmann-json3-dev TOML_INCLUDE:libtomlplusplus-dev
             SQLITECPP_INCLUDE:libsqlitecpp-dev SQLITECPP_LIBRARY:libsqlitecpp-dev)
  string(REPLACE ":" ";" pair "${pair}")
  list(GET pair 0 variable)
  list(GET pair 1 package)
  stowline_listed(${package})
  if(NOT ${variable})
    message(FATAL_ERROR "A header or library is missing. Install the package ${package} "
                        "(scripts/setup installs everything that is needed).")
  endif()
endforeach()
add_library(SQLiteCpp::SQLiteCpp INTERFACE IMPORTED)
target_link_libraries(SQLiteCpp::SQLiteCpp INTERFACE ${SQLITECPP_LIBRARY} PkgConfig::SQLITE)
