# Third-party libraries as imported targets, and the choice of the SNMP value types.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(spdlog REQUIRED)
find_package(CLI11 REQUIRED)
find_package(nlohmann_json REQUIRED)
pkg_check_modules(ACE REQUIRED IMPORTED_TARGET ACE)
pkg_check_modules(MICROHTTPD REQUIRED IMPORTED_TARGET libmicrohttpd)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl)
pkg_check_modules(TINYXML REQUIRED IMPORTED_TARGET tinyxml)
# net-snmp-config names Perl and every system library; the three that a host links are enough.
find_path(NETSNMP_INCLUDE_DIR net-snmp/net-snmp-config.h REQUIRED)
add_library(netsnmp_agent INTERFACE)
target_include_directories(netsnmp_agent SYSTEM INTERFACE ${NETSNMP_INCLUDE_DIR})
target_link_libraries(netsnmp_agent INTERFACE netsnmpmibs netsnmpagent netsnmp)

# SNMP++ and AGENT++ install neither pkg-config files nor CMake packages everywhere: look for header and library.
find_path(SNMPPP_INCLUDE_DIR snmp_pp/vb.h)
find_path(AGENTPP_INCLUDE_DIR agent_pp/snmp_pp_ext.h)
find_library(SNMPPP_LIBRARY NAMES snmp++ snmp_pp)
find_library(AGENTPP_LIBRARY NAMES agent++ agent_pp)
set(snmppp_found FALSE)
if(SNMPPP_INCLUDE_DIR AND AGENTPP_INCLUDE_DIR AND SNMPPP_LIBRARY AND AGENTPP_LIBRARY)
    include(CheckCXXSourceCompiles)
    set(CMAKE_REQUIRED_INCLUDES ${SNMPPP_INCLUDE_DIR} ${AGENTPP_INCLUDE_DIR})
    set(CMAKE_REQUIRED_LIBRARIES ${AGENTPP_LIBRARY} ${SNMPPP_LIBRARY} Threads::Threads)
    check_cxx_source_compiles("
        #include <agent_pp/snmp_pp_ext.h>
        int main() { Snmp_pp::Oid oid(\"1.3\"); Agentpp::Oidx oidx(oid); return oidx.len() == 2 ? 0 : 1; }" SNMPPP_USABLE)
    unset(CMAKE_REQUIRED_INCLUDES)
    unset(CMAKE_REQUIRED_LIBRARIES)
    set(snmppp_found ${SNMPPP_USABLE})
endif()

if(TAMREL_SNMPPP STREQUAL "SYSTEM" AND NOT snmppp_found)
    message(FATAL_ERROR "TAMREL_SNMPPP=SYSTEM: no usable SNMP++ and AGENT++ found (headers snmp_pp/vb.h and "
        "agent_pp/snmp_pp_ext.h, libraries snmp++ and agent++, built with their namespaces switched on)")
endif()
if(TAMREL_SNMPPP STREQUAL "COMPAT" OR NOT snmppp_found)
    set(TAMREL_VALUE_TYPES COMPAT)
else()
    set(TAMREL_VALUE_TYPES SYSTEM)
endif()
message(STATUS "SNMP value types: ${TAMREL_VALUE_TYPES}")

# snmp_values: headers (and, for SYSTEM, libraries) of the value types. With COMPAT their code is part of vrx_core.
add_library(snmp_values INTERFACE)
if(TAMREL_VALUE_TYPES STREQUAL "SYSTEM")
    target_include_directories(snmp_values SYSTEM INTERFACE ${SNMPPP_INCLUDE_DIR} ${AGENTPP_INCLUDE_DIR})
    target_link_libraries(snmp_values INTERFACE ${AGENTPP_LIBRARY} ${SNMPPP_LIBRARY})
else()
    target_include_directories(snmp_values INTERFACE ${PROJECT_SOURCE_DIR}/compat)
endif()
