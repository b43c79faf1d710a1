# Installation and the Debian package (`make deb`): the programs, the service unit, the docs and
# the maintainer scripts that create the service's user, its configuration under /etc/clockcomm,
# its data under /var/lib/clockcomm and its text logs under /var/log/clockcomm.
include(GNUInstallDirs)

# `install` and `cpack` take what is built; `make deb` builds the two programs first.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

install(TARGETS clockcomm clockcomm-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/packaging/clockcomm.service
              ${PROJECT_SOURCE_DIR}/packaging/clockcomm-serve.service
        DESTINATION lib/systemd/system)
file(GLOB doc_pages ${PROJECT_SOURCE_DIR}/docs/*.md)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${doc_pages}
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/clockcomm)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/copyright
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/clockcomm)

# Debian wants the changelog compressed reproducibly.
set(CPACK_DEBIAN_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_CONTACT "clockcomm maintainers <maintainers@clockcomm.invalid>")
string(TIMESTAMP CLOCKCOMM_CHANGELOG_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${PROJECT_SOURCE_DIR}/packaging/debian/changelog.in
               ${PROJECT_BINARY_DIR}/packaging/changelog @ONLY)
add_custom_command(
  OUTPUT ${PROJECT_BINARY_DIR}/packaging/changelog.gz
  COMMAND gzip -9nc ${PROJECT_BINARY_DIR}/packaging/changelog >
          ${PROJECT_BINARY_DIR}/packaging/changelog.gz
  DEPENDS ${PROJECT_BINARY_DIR}/packaging/changelog)
add_custom_target(clockcomm-changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/packaging/changelog.gz)
install(FILES ${PROJECT_BINARY_DIR}/packaging/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/clockcomm)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME clockcomm)
set(CPACK_PACKAGE_VENDOR "clockcomm")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "communications server for time clocks")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "clockcomm talks to time clocks over serial lines, modems and the network,\ncollects their punches and transfers them into each company's database.\nIt runs as a systemd service (clockcomm.service, or clockcomm-serve.service\nwith its web console) and keeps its\nconfiguration in /etc/clockcomm and its data in /var/lib/clockcomm.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "adduser")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/debian/postinst ${PROJECT_SOURCE_DIR}/packaging/debian/prerm
    ${PROJECT_SOURCE_DIR}/packaging/debian/postrm)
set(CPACK_STRIP_FILES ON)
include(CPack)

# The package built, checked with lintian, installed into a throwaway root and removed (root only;
# skipped elsewhere). Not in the sanitizer and fuzz builds, whose programs are not shipped.
if(NOT CLOCKCOMM_SANITIZE AND NOT CLOCKCOMM_FUZZ)
  add_test(NAME package COMMAND ${PROJECT_SOURCE_DIR}/scripts/test-package ${PROJECT_BINARY_DIR})
  set_tests_properties(package PROPERTIES SKIP_RETURN_CODE 77 LABELS package TIMEOUT 300)
endif()
