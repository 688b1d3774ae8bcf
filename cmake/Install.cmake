# Libraries, command, headers, CMake package and pkg-config files.
#
# Component host is what an embedder of host::Router needs. Component engine adds the headers of the machines,
# in a folder that pimbsr::host does not reach: a program over the router can't come to depend on them.
include(CMakePackageConfigHelpers)

install(TARGETS pimbsr pimbsr-host EXPORT pimbsrTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT host NAMELINK_COMPONENT host)
install(TARGETS pimbsr-engine EXPORT pimbsrEngineTargets)
if(TARGET pimbsr-command)
  install(TARGETS pimbsr-command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

include(${CMAKE_CURRENT_LIST_DIR}/Face.cmake)

# Headers keep their modules, so that "model/Status.h" means the same here and in the installed tree.
foreach(module ${face_modules})
  pimbsr_face(headers host ${module} ${zet_dir})
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/pimbsr/${module} COMPONENT host)
  pimbsr_face(headers engine ${module} ${zet_dir})
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/pimbsr-engine/${module} COMPONENT engine)
endforeach()
if(TARGET pimbsr-view)
  install(DIRECTORY ${zet_dir}/schema DESTINATION ${CMAKE_INSTALL_DATADIR}/pimbsr
    FILES_MATCHING PATTERN "*.json")
endif()
if(TARGET pimbsr-zet)
  install(FILES docs/model.md DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME reference.md)
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/pimbsr)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/pimbsrConfig.cmake.in pimbsrConfig.cmake
  INSTALL_DESTINATION ${package_dir})
# Before 1.0 each minor version may change the interface.
set(compatibility SameMajorVersion)
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(compatibility SameMinorVersion)
endif()
write_basic_package_version_file(pimbsrConfigVersion.cmake COMPATIBILITY ${compatibility})
install(EXPORT pimbsrTargets NAMESPACE pimbsr:: DESTINATION ${package_dir} COMPONENT host)
install(EXPORT pimbsrEngineTargets NAMESPACE pimbsr:: DESTINATION ${package_dir} COMPONENT engine)
install(FILES ${PROJECT_BINARY_DIR}/pimbsrConfig.cmake ${PROJECT_BINARY_DIR}/pimbsrConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT host)

# The path from the pkg-config files to the prefix: what was installed may be moved as a whole.
file(RELATIVE_PATH pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
foreach(package pimbsr pimbsr-host pimbsr-engine)
  configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
  set(component host)
  if(package STREQUAL pimbsr-engine)
    set(component engine)
  endif()
  install(FILES ${PROJECT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT ${component})
endforeach()
