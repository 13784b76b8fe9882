# Man pages made from the tool's own help, and the Debian package.

find_program(HELP2MAN help2man)
if(HELP2MAN AND TARGET norvane-cli)
  set(man_dir ${CMAKE_BINARY_DIR}/man)
  set(man_pages)
  # One page for the tool and one per command, each from its --help text.
  foreach(verb "" collect get set print status jobs cancel strings reg log demo version)
    if(verb)
      set(page ${man_dir}/norvane-${verb}.1)
      set(help_option "${verb} --help")
      set(name "norvane ${verb}")
    else()
      set(page ${man_dir}/norvane.1)
      set(help_option "--help")
      set(name "norvane")
    endif()
    add_custom_command(OUTPUT ${page}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${man_dir}
      COMMAND ${HELP2MAN} --no-info --no-discard-stderr --section=1 --source=Norvane
              "--name=${name}: printer data and IPP jobs from the command line"
              "--help-option=${help_option}" --version-option=--version
              --output=${page} $<TARGET_FILE:norvane-cli>
      DEPENDS norvane-cli VERBATIM)
    list(APPEND man_pages ${page})
  endforeach()
  add_custom_target(norvane-man ALL DEPENDS ${man_pages})
  install(FILES ${man_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
else()
  message(STATUS "help2man not found: no man pages")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME norvane)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Norvane maintainers <norvane@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Printer data collection and IPP client library, with the norvane tool")
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# The shared-library dependencies (libxml2, libcurl, net-snmp) come from dpkg-shlibdeps;
# the demo's peers are only suggested.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "cups-ipp-utils, snmpd, snmp, dbus, iproute2, curl")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
