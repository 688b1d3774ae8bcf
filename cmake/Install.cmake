# Libraries, command, headers, CMake package and pkg-config files.
include(CMakePackageConfigHelpers)

install(TARGETS pimbsr pimbsr-host EXPORT pimbsrTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(TARGET pimbsr-command)
  install(TARGETS pimbsr-command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# Headers keep their modules, so that "model/Status.h" means the same here and in the installed tree.
foreach(module ${engine_modules} ${host_modules})
  file(GLOB headers CONFIGURE_DEPENDS ${module}/*.h)
  file(GLOB declared RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS ${module}/*.zet)
  list(TRANSFORM declared REPLACE "(.+)" "${zet_dir}/\\1.h")
  install(FILES ${headers} ${declared} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/pimbsr/${module})
endforeach()
if(TARGET pimbsr-view)
  install(DIRECTORY ${zet_dir}/schema DESTINATION ${CMAKE_INSTALL_DATADIR}/pimbsr
    FILES_MATCHING PATTERN "*.json")
endif()
if(TARGET pimbsr-zet)
  install(FILES ${zet_dir}/reference.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/pimbsr)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/pimbsrConfig.cmake.in pimbsrConfig.cmake
  INSTALL_DESTINATION ${package_dir})
# Before 1.0 each minor version may change the interface.
write_basic_package_version_file(pimbsrConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(EXPORT pimbsrTargets NAMESPACE pimbsr:: DESTINATION ${package_dir})
install(FILES ${PROJECT_BINARY_DIR}/pimbsrConfig.cmake ${PROJECT_BINARY_DIR}/pimbsrConfigVersion.cmake
  DESTINATION ${package_dir})

# The path from the pkg-config files to the prefix: what was installed may be moved as a whole.
file(RELATIVE_PATH pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
foreach(package pimbsr pimbsr-host)
  configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
