# What is installed where, and the Debian package made of it by CPack.
# Below /opt/velka lies what the product copies to its clients (gv_ro).

install(TARGETS vk_config_client DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS vk_client_status DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${CMAKE_CURRENT_LIST_DIR}/vk_client_status.bash-completion
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME vk_client_status)
install(FILES ${CMAKE_SOURCE_DIR}/man/vk_client_status.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/vk.ini DESTINATION /etc/velka)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/vk_config_client.bash-completion
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME vk_config_client)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/sql/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vk_config_client/sql
        FILES_MATCHING PATTERN "*.sql")
install(PROGRAMS ${CMAKE_SOURCE_DIR}/skel/vk_execute_update DESTINATION /opt/velka/skel)
install(FILES ${CMAKE_SOURCE_DIR}/skel/vk_execute_update.cmd ${CMAKE_SOURCE_DIR}/skel/README
        DESTINATION /opt/velka/skel)

# The page is packed here, so that the package holds what man(1) installs expect.
find_program(GZIP gzip)
if(GZIP)
  set(VK_MAN ${CMAKE_BINARY_DIR}/vk_config_client.8.gz)
  add_custom_command(OUTPUT ${VK_MAN}
      COMMAND ${GZIP} -9nc ${CMAKE_SOURCE_DIR}/man/vk_config_client.8 > ${VK_MAN}
      DEPENDS ${CMAKE_SOURCE_DIR}/man/vk_config_client.8)
  add_custom_target(vk_man ALL DEPENDS ${VK_MAN})
else()
  set(VK_MAN ${CMAKE_SOURCE_DIR}/man/vk_config_client.8)
endif()
install(FILES ${VK_MAN} DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vk-config-client)
set(CPACK_PACKAGE_VENDOR "QIR velka team")
set(CPACK_PACKAGE_CONTACT "QIR velka team <velka@example.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGE_DESCRIPTION "Registers, checks, removes and updates the machines that a backup
server backs up. It works on one client, on a list of clients or on all of them,
and keeps the outcome in the server's database.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/directory_modes.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_DEPENDS openssh-client)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# CPack finds the architecture with dpkg. Under /etc the file is the site's own:
# an upgrade keeps it, only purging removes it.
file(WRITE ${CMAKE_BINARY_DIR}/conffiles "/etc/velka/vk.ini\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/conffiles
    ${CMAKE_CURRENT_LIST_DIR}/postrm)
include(CPack)
