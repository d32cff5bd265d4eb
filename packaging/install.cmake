# What is installed where. Two components, each of which becomes a package
# (make_packages): the server's and the clients'. Below /opt/velka lies what the
# product copies to its clients (gv_ro).

set(VK_LIBEXEC ${CMAKE_INSTALL_LIBEXECDIR}/velka)
set(VK_DATA ${CMAKE_INSTALL_DATADIR}/vk_config_client)

# PROGRAM DIRECTORY COMPONENT: a program that this build makes.
macro(vk_install_program PROGRAM DIRECTORY COMPONENT)
  if(TARGET ${PROGRAM})
    install(TARGETS ${PROGRAM} DESTINATION ${DIRECTORY} COMPONENT ${COMPONENT})
  endif()
endmacro()

vk_install_program(vk_config_client ${CMAKE_INSTALL_BINDIR} server)
vk_install_program(vk_client_status ${CMAKE_INSTALL_BINDIR} server)
vk_install_program(vk_setup_server ${VK_LIBEXEC} server)
vk_install_program(vk_setup ${CMAKE_INSTALL_BINDIR} client)
vk_install_program(vk_ctrl ${VK_LIBEXEC} client)

install(FILES ${CMAKE_CURRENT_LIST_DIR}/vk.ini DESTINATION /etc/velka
        PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ COMPONENT server)
install(PROGRAMS ${CMAKE_CURRENT_LIST_DIR}/vk-config-client/cron.daily
        DESTINATION /etc/cron.daily RENAME vk-config-client COMPONENT server)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/vk-config-client/logrotate
        DESTINATION /etc/logrotate.d RENAME vk-config-client COMPONENT server)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/sql/ DESTINATION ${VK_DATA}/sql COMPONENT server
        FILES_MATCHING PATTERN "*.sql")

# The update scripts are links, so that vk_setup server can make them anew, also
# below another gv_ro.
install(PROGRAMS ${CMAKE_SOURCE_DIR}/skel/vk_execute_update DESTINATION ${VK_DATA}/skel COMPONENT server)
install(FILES ${CMAKE_SOURCE_DIR}/skel/vk_execute_update.cmd DESTINATION ${VK_DATA}/skel COMPONENT server)
install(FILES ${CMAKE_SOURCE_DIR}/skel/README DESTINATION /opt/velka/skel COMPONENT server)
foreach(SCRIPT vk_execute_update vk_execute_update.cmd)
  install(CODE "file(CREATE_LINK \${CMAKE_INSTALL_PREFIX}/${VK_DATA}/skel/${SCRIPT}
                     \$ENV{DESTDIR}/opt/velka/skel/${SCRIPT} SYMBOLIC)" COMPONENT server)
endforeach()

# PAGE and COMPLETION go with their program; pages packed, as man(1) expects them.
find_program(GZIP gzip REQUIRED)
macro(vk_install_documents NAME COMPONENT)
  set(PAGE ${CMAKE_SOURCE_DIR}/man/${NAME}.8)
  set(COMPLETION ${CMAKE_CURRENT_LIST_DIR}/${NAME}.bash-completion)
  if(EXISTS ${PAGE})
    set(PACKED ${CMAKE_BINARY_DIR}/${NAME}.8.gz)
    add_custom_command(OUTPUT ${PACKED} COMMAND ${GZIP} -9nc ${PAGE} > ${PACKED} DEPENDS ${PAGE})
    add_custom_target(man_${NAME} ALL DEPENDS ${PACKED})
    install(FILES ${PACKED} DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT ${COMPONENT})
  endif()
  if(EXISTS ${COMPLETION})
    install(FILES ${COMPLETION} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
            RENAME ${NAME} COMPONENT ${COMPONENT})
  endif()
endmacro()
vk_install_documents(vk_config_client server)
vk_install_documents(vk_client_status server)
vk_install_documents(vk_setup client)
vk_install_documents(vk_ctrl client)
