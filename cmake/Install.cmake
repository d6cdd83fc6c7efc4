# The libraries that others link, and what is installed where. Three components:
#   library      libstowline.so.1 and the helper program that each of its SOAP calls starts
#   development  headers, libstowline.so, libstowline.a, find_package and pkg-config files, pages
#   tools        the stowline command, the development service, completions
include(CMakePackageConfigHelpers)
include(PublicHeaders)

# The folders of stowline/ that a host program needs, all in one library.
set(folders platform platform_desktop platform_digest logging logging_database branding net util store soap call service backup)
set(objects)
foreach(folder IN LISTS folders)
  list(APPEND objects $<TARGET_OBJECTS:stowline_${folder}>)
endforeach()

add_library(stowline_shared SHARED ${objects})
add_library(stowline_static STATIC ${objects})
foreach(library stowline_shared stowline_static)
  set_target_properties(${library} PROPERTIES OUTPUT_NAME stowline LINKER_LANGUAGE CXX)
  target_compile_features(${library} INTERFACE cxx_std_20)
  target_include_directories(${library} INTERFACE "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
endforeach()
set_target_properties(stowline_shared PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} EXPORT_NAME stowline)
set_target_properties(stowline_static PROPERTIES EXPORT_NAME stowline-static)
# The standard library's templates are instantiated here too; the map keeps them inside.
set(map "${PROJECT_SOURCE_DIR}/stowline/exported.map")
target_link_options(stowline_shared PRIVATE "-Wl,--version-script=${map}" -Wl,--no-undefined)
set_property(TARGET stowline_shared APPEND PROPERTY LINK_DEPENDS "${map}")
target_link_libraries(stowline_shared PRIVATE ${STOWLINE_LIBRARY_TARGETS} ${SQLITECPP_LIBRARY} Threads::Threads)

# --- where things go ---

# A program's bundle is the folder of its executable, so the programs lie together and bin/ links to them.
set(bundle lib/stowline)
install(TARGETS stowline_shared EXPORT stowline
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
install(TARGETS stowline_static EXPORT stowline
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(TARGETS WebServiceCaller RUNTIME DESTINATION ${bundle} COMPONENT library)
install(TARGETS stowline stowline-devserver RUNTIME DESTINATION ${bundle} COMPONENT tools)
foreach(program stowline stowline-devserver)
  install(CODE "
    file(MAKE_DIRECTORY \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
    file(CREATE_LINK ../${bundle}/${program}
         \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/${program}\" SYMBOLIC)"
    COMPONENT tools)
endforeach()
install(FILES resources/Info.plist DESTINATION ${bundle} COMPONENT tools)
install(FILES resources/WebServicesSettings.plist resources/backupReportEmailTemplate.html
  DESTINATION ${bundle}/Resources COMPONENT tools)

# The command's manual page and completions say what its own help says.
set(reference "${PROJECT_BINARY_DIR}/reference")
add_custom_command(
  OUTPUT "${reference}/stowline.1" "${reference}/stowline.bash" "${reference}/_stowline"
         "${reference}/stowline.fish"
  COMMAND python3 "${PROJECT_SOURCE_DIR}/scripts/command_reference.py" $<TARGET_FILE:stowline>
          "${PROJECT_SOURCE_DIR}/docs/man/stowline.1.in" "${reference}"
  DEPENDS stowline scripts/command_reference.py docs/man/stowline.1.in VERBATIM)
add_custom_target(stowline_reference ALL DEPENDS "${reference}/stowline.1")
install(FILES "${reference}/stowline.1" docs/man/stowline-devserver.1
  DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tools)
install(FILES docs/man/WebServiceCaller.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT library)
install(FILES "${reference}/stowline.bash" RENAME stowline
  DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT tools)
install(FILES "${reference}/_stowline"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions" COMPONENT tools)
install(FILES "${reference}/stowline.fish"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d" COMPONENT tools)
# The pages; pictures and all, so that their links hold.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT development)
# What the pages lead to lies beside them as in the tree (scripts/check_links.py).
foreach(file tests/consumer/main.cpp tests/read_record.py tests/unseal_content.py tests/open_key_slots.py resources/WebServicesSettings.plist)
  get_filename_component(folder "${file}" DIRECTORY)
  install(FILES "${file}" DESTINATION "${CMAKE_INSTALL_DOCDIR}/${folder}" COMPONENT development)
endforeach()
install(DIRECTORY docs samples DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT development
  PATTERN man EXCLUDE PATTERN Doxyfile EXCLUDE PATTERN CMakeLists.txt EXCLUDE)

foreach(header IN LISTS STOWLINE_PUBLIC_HEADERS)
  get_filename_component(folder "${header}" DIRECTORY)
  install(FILES "${header}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/${folder}" COMPONENT development)
endforeach()

# --- how others find it ---

set(STOWLINE_TOOLS_DIR ${bundle})
# The modules of pkg-config that whoever links the static library needs; and what pkg-config has for them here, since
# modules in Requires.private would have to be installed for the flags of the headers too, which use none of them.
list(JOIN STOWLINE_LIBRARY_MODULES " " STOWLINE_PRIVATE_MODULES)
execute_process(
  COMMAND ${PKG_CONFIG_EXECUTABLE} --static --libs ${STOWLINE_LIBRARY_MODULES}
  OUTPUT_VARIABLE STOWLINE_PRIVATE_LIBRARIES OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(config ${CMAKE_INSTALL_LIBDIR}/cmake/stowline)
configure_package_config_file(cmake/stowlineConfig.cmake.in "${PROJECT_BINARY_DIR}/stowlineConfig.cmake"
  INSTALL_DESTINATION ${config} PATH_VARS STOWLINE_TOOLS_DIR)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/stowlineConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
file(RELATIVE_PATH STOWLINE_PREFIX_FROM_PC "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file(cmake/stowline.pc.in "${PROJECT_BINARY_DIR}/stowline.pc" @ONLY)
install(EXPORT stowline NAMESPACE stowline:: FILE stowlineTargets.cmake
  DESTINATION ${config} COMPONENT development)
install(FILES "${PROJECT_BINARY_DIR}/stowlineConfig.cmake" "${PROJECT_BINARY_DIR}/stowlineConfigVersion.cmake"
  DESTINATION ${config} COMPONENT development)
install(FILES "${PROJECT_BINARY_DIR}/stowline.pc"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
