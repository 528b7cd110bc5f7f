# Installation: the libraries, their headers, the programs, the package files for find_package(Citp) and pkg-config, the
# documents and the examples.
#
# Files that depend on the major version of Qt contain it in their names, so that a Qt 6 and a Qt 5 build can be
# installed into one prefix. The other files (headers, CitpConfig.cmake) are the same in both builds.
# SPDX-License-Identifier: Apache-2.0
include(CMakePackageConfigHelpers)

set(CITP_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Citp)
set(CITP_LIBRARIES citp citp_client)
set(CITP_PC_NAMES citp citp-client)
if(TARGET citp_images)
  list(APPEND CITP_LIBRARIES citp_images)
  list(APPEND CITP_PC_NAMES citp-images)
endif()
if(NOT CITP_SYSTEM_PACKAGE)
  list(APPEND CITP_LIBRARIES citp_system)
endif()

# Relative paths, so that the installation can be moved.
file(RELATIVE_PATH CITP_BIN_TO_LIB ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(${CITP_LIBRARIES} PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS ${CITP_LIBRARIES} EXPORT ${CITP_QT}Citp
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
foreach(program citp-browser citp-console citp-mediaserver)
  if(TARGET ${program})
    set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/${CITP_BIN_TO_LIB}")
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  endif()
endforeach()

install(EXPORT ${CITP_QT}Citp NAMESPACE Citp:: FILE Citp${CITP_QT}Targets.cmake DESTINATION ${CITP_PACKAGE_DIR}
  COMPONENT development)
configure_file(cmake/CitpDependencies.cmake.in Citp${CITP_QT}Dependencies.cmake @ONLY)
configure_package_config_file(cmake/CitpConfig.cmake.in ${PROJECT_BINARY_DIR}/CitpConfig.cmake
  INSTALL_DESTINATION ${CITP_PACKAGE_DIR} NO_SET_AND_CHECK_MACRO)
# Like the SOVERSION: an application runs with every later version of the same major version.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/CitpConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/Citp${CITP_QT}Dependencies.cmake
  ${PROJECT_BINARY_DIR}/CitpConfig.cmake
  ${PROJECT_BINARY_DIR}/CitpConfigVersion.cmake
  DESTINATION ${CITP_PACKAGE_DIR} COMPONENT development)

# Only with the bundled system library: only the CMake package of a console's own one knows its link dependencies.
if(NOT CITP_SYSTEM_PACKAGE)
  file(RELATIVE_PATH CITP_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  string(REGEX REPLACE "/$" "" CITP_PC_TO_PREFIX "${CITP_PC_TO_PREFIX}")
  foreach(name IN LISTS CITP_PC_NAMES)
    configure_file(cmake/${name}.pc.in ${name}-qt${CITP_QT_MAJOR}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${name}-qt${CITP_QT_MAJOR}.pc
      DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
  endforeach()
endif()

# Whoever passes the libraries on passes on the licence and the notice.
install(FILES LICENSE NOTICE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(FILES CHANGELOG.md README.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
  PATTERN Doxyfile EXCLUDE PATTERN doxygen.sed EXCLUDE)
