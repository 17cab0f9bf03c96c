# What "cmake --install" puts where; packaging/README.md draws the map. The product root is TAMREL_PRODUCT_ROOT: MIBs stand
# in it, its conf/ and etc/ are links to <sysconfdir>/vrx, and its state/ is one to <localstatedir>/lib/vrx.
set(library_dir ${CMAKE_INSTALL_LIBDIR}/vrx)  # ours alone: shared libraries and the module

set(TAMREL_CONFIGURATION_DIR ${CMAKE_INSTALL_FULL_SYSCONFDIR}/vrx)
set(TAMREL_STATE_DIR ${CMAKE_INSTALL_FULL_LOCALSTATEDIR}/lib/vrx)
set(TAMREL_MODULE ${CMAKE_INSTALL_FULL_LIBDIR}/vrx/libsnmp_tamrel.so)

# The same RUNPATH before and after installing. One that installing changes keeps room for the longer of the two, filled with
# empty entries, and each of those is the folder in which somebody starts the program. A link gives the build the same map.
set_target_properties(vrx-agentd vrx-backendd vrxctl PROPERTIES INSTALL_RPATH "$ORIGIN/../${library_dir}")
set_target_properties(vrx_core vrx_services snmp_tamrel PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(vrx-agentd vrx-backendd vrxctl vrx_core vrx_services snmp_tamrel PROPERTIES
    BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH_USE_LINK_PATH ON)  # libraries that stand elsewhere, SNMP++ for one
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR})
file(CREATE_LINK ${CMAKE_LIBRARY_OUTPUT_DIRECTORY} ${PROJECT_BINARY_DIR}/${library_dir} SYMBOLIC)

install(TARGETS vrx-agentd vrx-backendd DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS vrxctl DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS vrx_core vrx_services snmp_tamrel LIBRARY DESTINATION ${library_dir})

install(DIRECTORY share/conf/ share/etc/ DESTINATION ${TAMREL_CONFIGURATION_DIR})
install(FILES mibs/VRX-TAMREL-MIB.xml DESTINATION ${TAMREL_PRODUCT_ROOT}/mibs)
foreach(link "conf ${TAMREL_CONFIGURATION_DIR}" "etc ${TAMREL_CONFIGURATION_DIR}" "state ${TAMREL_STATE_DIR}")
    separate_arguments(link)
    list(GET link 0 name)
    list(GET link 1 target)
    install(CODE "file(CREATE_LINK ${target} \"\$ENV{DESTDIR}${TAMREL_PRODUCT_ROOT}/${name}\" SYMBOLIC)")
endforeach()
# Where the tools of managers look for MIB modules.
install(FILES mibs/VRX-TAMREL-MIB mibs/VRX-TAMREL-ALARM-MIB mibs/VRX-AGENT-MIB DESTINATION ${CMAKE_INSTALL_DATADIR}/snmp/mibs)

foreach(page vrxctl.1 vrx-agentd.conf.5 vrx-alarm-definitions.5 vrx.7 vrx-agentd.8 vrx-backendd.8)
    string(REGEX MATCH "[0-9]$" section ${page})
    install(FILES docs/man/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()

foreach(unit vrx-agentd vrx-backendd vrx-stream@)
    configure_file(packaging/systemd/${unit}.service.in ${PROJECT_BINARY_DIR}/packaging/${unit}.service @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/packaging/${unit}.service DESTINATION ${TAMREL_UNIT_DIR})
endforeach()
foreach(kind sysusers tmpfiles)
    configure_file(packaging/systemd/vrx.${kind}.in ${PROJECT_BINARY_DIR}/packaging/${kind}/vrx.conf @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/packaging/${kind}/vrx.conf DESTINATION lib/${kind}.d)
endforeach()

# For those who build a host of their own (docs/embedding.md): headers, the library of what hosts have in common, and how
# pkg-config and CMake find them and the module.
set(include_dir ${CMAKE_INSTALL_INCLUDEDIR}/vrx)
install(DIRECTORY platform vrxpub DESTINATION ${include_dir} FILES_MATCHING PATTERN *.h)
install(FILES module/snmp_handler.h module/vrx_exception.h DESTINATION ${include_dir}/module)
install(TARGETS vrx_platform ARCHIVE DESTINATION ${library_dir})
if(TAMREL_VALUE_TYPES STREQUAL "COMPAT")
    install(DIRECTORY compat/snmp_pp compat/agent_pp DESTINATION ${include_dir} FILES_MATCHING PATTERN *.h)
else()
    set(value_type_includes ${SNMPPP_INCLUDE_DIR} ${AGENTPP_INCLUDE_DIR})
    set(value_type_libraries ${AGENTPP_LIBRARY} ${SNMPPP_LIBRARY})
    foreach(folder ${value_type_includes})
        string(APPEND value_type_cflags " -I${folder}")
    endforeach()
    foreach(library ${value_type_libraries})
        if(IS_ABSOLUTE ${library})
            get_filename_component(folder ${library} DIRECTORY)
            string(APPEND value_type_libs " ${library} -Wl,-rpath,${folder}")
        else()
            string(APPEND value_type_libs " -l${library}")
        endif()
    endforeach()
endif()

include(CMakePackageConfigHelpers)
set(development ${PROJECT_BINARY_DIR}/packaging/development)
foreach(name vrx vrx-platform)
    configure_file(packaging/development/${name}.pc.in ${development}/${name}.pc @ONLY)
    install(FILES ${development}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
set(module ${library_dir}/libsnmp_tamrel.so)
configure_package_config_file(packaging/development/vrx-config.cmake.in ${development}/vrx-config.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vrx PATH_VARS module library_dir include_dir)
write_basic_package_version_file(${development}/vrx-config-version.cmake COMPATIBILITY ExactVersion)
install(FILES ${development}/vrx-config.cmake ${development}/vrx-config-version.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vrx)
