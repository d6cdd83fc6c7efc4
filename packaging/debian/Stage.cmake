# What the Debian packages have beside what is installed anyway. CPack runs it on the staged files of
# all components, before they are packed.
#
# The provider's files are configuration: they lie in /etc/stowline, where an upgrade asks before it
# replaces what somebody changed (packaging/debian/conffiles), and the bundle links to them.
file(GLOB pages "${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/man*/*.[0-9]")
foreach(page IN LISTS pages)
  execute_process(COMMAND gzip -9n "${page}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()

foreach(component library development tools)
  set(stage "${CPACK_TEMPORARY_DIRECTORY}/${component}")
  string(TOUPPER "${component}" upper)
  set(documents "${stage}/usr/share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}")
  file(COPY "${CMAKE_CURRENT_LIST_DIR}/copyright" DESTINATION "${documents}")
  file(COPY_FILE "${CPACK_STOWLINE_CHANGELOG}" "${documents}/changelog")
  execute_process(COMMAND gzip -9n "${documents}/changelog" COMMAND_ERROR_IS_FATAL ANY)
endforeach()

set(stage "${CPACK_TEMPORARY_DIRECTORY}/tools")
set(bundle "${stage}/usr/lib/stowline")
file(MAKE_DIRECTORY "${stage}/etc/stowline")
foreach(name Info.plist Resources/WebServicesSettings.plist Resources/backupReportEmailTemplate.html)
  get_filename_component(file "${name}" NAME)
  file(RENAME "${bundle}/${name}" "${stage}/etc/stowline/${file}")
  file(CREATE_LINK "/etc/stowline/${file}" "${bundle}/${name}" SYMBOLIC)
endforeach()
file(COPY "${CMAKE_CURRENT_LIST_DIR}/stowline-devserver.service"
  DESTINATION "${stage}/lib/systemd/system")
