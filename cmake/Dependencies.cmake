# Every outside library, from the distribution's packages only. What is missing is named with the
# package that brings it.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

# stowline_require(<target> <pkg-config module> <Debian package>)
function(stowline_require target module package)
  pkg_check_modules(${target} QUIET IMPORTED_TARGET GLOBAL ${module})
  if(NOT ${target}_FOUND)
    message(FATAL_ERROR "${module} is missing. Install the package ${package} "
                        "(scripts/setup installs everything in packaging/apt-packages.txt).")
  endif()
endfunction()

stowline_require(CURL libcurl libcurl4-openssl-dev)
stowline_require(EXPAT expat libexpat1-dev)
stowline_require(PLIST libplist-2.0 libplist-dev)
stowline_require(GIO gio-2.0 libglib2.0-dev)
stowline_require(ICU icu-i18n libicu-dev)
stowline_require(MOUNT mount libmount-dev)
stowline_require(SQLITE sqlite3 libsqlite3-dev)
stowline_require(CRYPTO libcrypto libssl-dev)
stowline_require(SSL libssl libssl-dev)
stowline_require(FMT fmt libfmt-dev)
stowline_require(HTTPLIB cpp-httplib libcpp-httplib-dev)
stowline_require(ZLIB zlib zlib1g-dev)

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
  if(NOT ${variable})
    message(FATAL_ERROR "A header or library is missing. Install the package ${package} "
                        "(scripts/setup installs everything in packaging/apt-packages.txt).")
  endif()
endforeach()
add_library(SQLiteCpp::SQLiteCpp INTERFACE IMPORTED)
target_link_libraries(SQLiteCpp::SQLiteCpp INTERFACE ${SQLITECPP_LIBRARY} PkgConfig::SQLITE)
