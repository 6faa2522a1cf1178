# The .deb and the .rpm, each by one command: packaging/build deb|rpm. Nothing in them tells when, where or by whom
# they were built: the time stamp is the date of the topmost heading in NEWS.

# A stand-in: the domain is reserved, so that nobody gets the mail.
set(TAMRIX_CONTACT "The tamrix authors <tamrix@example.org>" CACHE STRING "the packages' maintainer")

file(STRINGS ${CMAKE_SOURCE_DIR}/NEWS headings REGEX "^tamrix ")
list(GET headings 0 heading)
if(NOT heading MATCHES "^tamrix ([^ ]+) \\(([0-9-]+)\\)$" OR NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
  message(FATAL_ERROR "NEWS begins with '${heading}' where version ${PROJECT_VERSION} is built")
endif()
execute_process(COMMAND date -u -d "${CMAKE_MATCH_2}" +%s
  OUTPUT_VARIABLE TAMRIX_EPOCH OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
foreach(kind deb rpm)
  execute_process(COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/changelog ${kind} ${CMAKE_SOURCE_DIR}/NEWS "${TAMRIX_CONTACT}"
    OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/changelog.${kind} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
configure_file(config.cmake.in config.cmake @ONLY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  ${CMAKE_SOURCE_DIR}/NEWS ${CMAKE_CURRENT_SOURCE_DIR}/changelog)

set(CPACK_GENERATOR DEB RPM)
set(CPACK_PACKAGE_NAME tamrix)
set(CPACK_PACKAGE_CONTACT ${TAMRIX_CONTACT})
set(CPACK_PACKAGE_VENDOR "The tamrix authors")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "keep the registry of a web panel's PHP interpreters")
set(CPACK_PACKAGE_DESCRIPTION
  "tamrix keeps the registry of the PHP interpreters that a web-hosting panel\noffers to its sites. It reads each \
interpreter's version from the interpreter\nitself, lists the interpreters for people and programs, and tells hook \
scripts\nand the panel's other tools about every change.")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_BINARY_DIR}/config.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/finish.cmake)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "jq, logrotate")
set(CPACK_DEBIAN_PACKAGE_ENHANCES "ansible-core")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/debian/conffiles
  ${CMAKE_CURRENT_SOURCE_DIR}/debian/postrm)

set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_LICENSE MIT)
set(CPACK_RPM_PACKAGE_SUMMARY "Keep the registry of a web panel's PHP interpreters")
set(CPACK_RPM_PACKAGE_DESCRIPTION ${CPACK_PACKAGE_DESCRIPTION})
# All paths are fixed.
set(CPACK_PACKAGE_RELOCATABLE OFF)
set(CPACK_RPM_PACKAGE_GROUP System/Base)
set(CPACK_RPM_CHANGELOG_FILE ${CMAKE_CURRENT_BINARY_DIR}/changelog.rpm)
set(CPACK_RPM_USER_FILELIST "%config(noreplace) /etc/logrotate.d/tamrix")
# Folders of the base system. Those of the shells and of Ansible are shared with packages that need not be there:
# each owns them, and the last one takes them away.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
  /etc/logrotate.d /opt /usr/sbin /var /var/log /usr/share/man /usr/share/man/man5 /usr/share/man/man8)
# What examples need is no need of the package.
set(CPACK_RPM_REQUIRES_EXCLUDE_FROM /usr/share/doc/.*)
set(CPACK_RPM_SPEC_MORE_DEFINE "%define packager ${TAMRIX_CONTACT}
%define _buildhost reproducible
%define use_source_date_epoch_as_buildtime 1
%define clamp_mtime_to_source_date_epoch 1
%define _build_id_links none")

include(CPack)
