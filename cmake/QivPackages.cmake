# What `cpack` packs for Debian: libqiv1, libqiv-dev and qiv-tools. scripts/package.sh sets what
# this needs and runs it.
if(NOT (BUILD_SHARED_LIBS AND QIV_BUILD_STATIC AND QIV_BUILD_EXAMPLES))
  message(FATAL_ERROR
    "QIV_DEBIAN_PACKAGES needs BUILD_SHARED_LIBS, QIV_BUILD_STATIC and QIV_BUILD_EXAMPLES")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libqiv${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libqiv-dev)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME qiv-tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE qiv)
set(CPACK_DEBIAN_PACKAGE_RELEASE 0.1)  # older than any that a distribution makes itself
set(CPACK_PACKAGE_CONTACT "qiv developers <qiv@example.org>")

# --- what the packages hold beside what is installed anyway --------------------------------------

install(TARGETS qiv_sysmon DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/guide/
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libqiv-dev/examples
  COMPONENT development)

# qiv_compress(FILE NAME): FILE as NAME.gz in the build directory, with the same bytes at any time.
find_program(QIV_GZIP gzip REQUIRED)
function(qiv_compress file name)
  execute_process(
    COMMAND ${QIV_GZIP} -9nc ${file}
    OUTPUT_FILE ${QIV_PACKAGE_BUILD_DIR}/${name}.gz
    COMMAND_ERROR_IS_FATAL ANY)
endfunction()

string(TIMESTAMP QIV_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)  # heeds SOURCE_DATE_EPOCH
configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in
  ${QIV_PACKAGE_BUILD_DIR}/changelog.Debian @ONLY)
qiv_compress(${QIV_PACKAGE_BUILD_DIR}/changelog.Debian changelog.Debian)
qiv_compress(${PROJECT_SOURCE_DIR}/CHANGELOG.md changelog)
qiv_compress(${PROJECT_SOURCE_DIR}/examples/qiv_sysmon/qiv-sysmon.1 qiv-sysmon.1)

install(FILES ${QIV_PACKAGE_BUILD_DIR}/qiv-sysmon.1.gz
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
  COMPONENT tools)
foreach(component RUNTIME DEVELOPMENT TOOLS)
  set(destination ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${component}_PACKAGE_NAME})
  string(TOLOWER ${component} name)
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE
    DESTINATION ${destination}
    COMPONENT ${name}
    RENAME copyright)
  install(FILES
    ${QIV_PACKAGE_BUILD_DIR}/changelog.gz
    ${QIV_PACKAGE_BUILD_DIR}/changelog.Debian.gz
    DESTINATION ${destination}
    COMPONENT ${name})
endforeach()

# --- what the packages say about themselves ------------------------------------------------------

set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has one of its own
set(description "Threads, locks, events, pools, timers, time, addresses, sockets and an
asynchronous socket engine behind plain C functions, and a class layer for C++.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "portable runtime library
${description}

This package holds the shared library.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "portable runtime library (development files)
${description}

This package holds the headers, the static library, the packages for CMake and
pkg-config, and example programs.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "monitor of processors, memory and network
qiv-sysmon shows what the processors, the memory and the network of a machine
do: live on a terminal, as plain lines or as JSON for scripts.")

set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS uuid-dev)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/finish.cmake)
include(CPack)
