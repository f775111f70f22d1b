# What `cmake --install` puts where: headers, library, CMake package and pkg-config module.
include(CMakePackageConfigHelpers)

set(QIV_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/qiv)
set(QIV_PACKAGE_BUILD_DIR ${PROJECT_BINARY_DIR}/package)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/qiv
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development
  FILES_MATCHING PATTERN "*.h")

install(TARGETS ${QIV_LIBRARIES}
  EXPORT qivTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_SKIP
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)

if(BUILD_SHARED_LIBS)
  # Stands where the name link would: it names libuuid too, so that a program linked with nothing
  # but -lqiv may call the uuid_* functions.
  configure_file(${PROJECT_SOURCE_DIR}/cmake/libqiv.so.in ${QIV_PACKAGE_BUILD_DIR}/libqiv.so @ONLY)
  install(FILES ${QIV_PACKAGE_BUILD_DIR}/libqiv.so
    DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT development)
endif()

# --- the CMake package ---------------------------------------------------------------------------

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/qivConfig.cmake.in
  ${QIV_PACKAGE_BUILD_DIR}/qivConfig.cmake
  INSTALL_DESTINATION ${QIV_PACKAGE_DIR})
write_basic_package_version_file(
  ${QIV_PACKAGE_BUILD_DIR}/qivConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${QIV_PACKAGE_BUILD_DIR}/qivConfig.cmake
  ${QIV_PACKAGE_BUILD_DIR}/qivConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/FindLibUuid.cmake
  DESTINATION ${QIV_PACKAGE_DIR}
  COMPONENT development)
install(EXPORT qivTargets
  NAMESPACE qiv::
  DESTINATION ${QIV_PACKAGE_DIR}
  COMPONENT development)

# --- the pkg-config module -----------------------------------------------------------------------

list(TRANSFORM QIV_CXX_RUNTIME PREPEND "-l" OUTPUT_VARIABLE QIV_PC_CXX_RUNTIME)
list(JOIN QIV_PC_CXX_RUNTIME " " QIV_PC_CXX_RUNTIME)

# The module finds its prefix from where it lies, so that an installed tree can be moved.
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  set(QIV_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
else()
  string(REGEX REPLACE "[^/]+" ".." QIV_PC_UP ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  set(QIV_PC_PREFIX "\${pcfiledir}/${QIV_PC_UP}")
endif()
foreach(directory LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE ${CMAKE_INSTALL_${directory}})
    set(QIV_PC_${directory} ${CMAKE_INSTALL_${directory}})
  else()
    set(QIV_PC_${directory} "\${prefix}/${CMAKE_INSTALL_${directory}}")
  endif()
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/qiv.pc.in ${QIV_PACKAGE_BUILD_DIR}/qiv.pc @ONLY)
install(FILES ${QIV_PACKAGE_BUILD_DIR}/qiv.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)
