# What is installed where: programs, what they read, pages and completions, and the
# service library for programs that call it. debian/ puts it into packages.

set(VK_LIBEXEC ${CMAKE_INSTALL_LIBEXECDIR}/velka)
set(VK_DATA ${CMAKE_INSTALL_DATADIR}/vk_config_client)
set(VK_CMAKE ${CMAKE_INSTALL_LIBDIR}/cmake/vk)

install(TARGETS vk_config_client vk_client_status vk_setup DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS vk_setup_server vk_ctrl DESTINATION ${VK_LIBEXEC})
install(PROGRAMS ${CMAKE_CURRENT_LIST_DIR}/velka_checks DESTINATION ${VK_LIBEXEC})
# The gate runs the client's own, whatever a server brings.
install(PROGRAMS skel/vk_execute_update DESTINATION ${VK_LIBEXEC})
install(FILES ${CMAKE_CURRENT_LIST_DIR}/vk.ini DESTINATION ${VK_DATA})
install(DIRECTORY sql DESTINATION ${VK_DATA} FILES_MATCHING PATTERN "*.sql")
install(PROGRAMS skel/vk_execute_update DESTINATION ${VK_DATA}/skel)
install(FILES skel/vk_execute_update.cmd DESTINATION ${VK_DATA}/skel)
install(DIRECTORY man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 FILES_MATCHING PATTERN "*.8"
        PATTERN vk_config_client.8 EXCLUDE)
install(FILES ${VK_MAN_PAGE} DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
foreach(PROGRAM vk_config_client vk_client_status vk_setup)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/${PROGRAM}.bash-completion RENAME ${PROGRAM}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endforeach()

# find_package(vk), then vk::vk; headers as "common/common.h".
install(DIRECTORY src/common DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velka FILES_MATCHING PATTERN "*.h")
install(TARGETS vk EXPORT vk DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velka)
install(EXPORT vk NAMESPACE vk:: FILE vk-targets.cmake DESTINATION ${VK_CMAKE})
include(CMakePackageConfigHelpers)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/vk-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/vk-config.cmake ${CMAKE_BINARY_DIR}/vk-config-version.cmake
        DESTINATION ${VK_CMAKE})
