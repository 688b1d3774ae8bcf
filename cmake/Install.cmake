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

# The public face beside runtime/ and model/; what else is in these modules stays in the library.
set(host_face BsmPolicy Candidacy ConfigKey ConfigPlace ConfigTree Configuration Corrections IngressSettings
  LastMessages Limits Machines ModelTree NearestNames Observer PreferredRps Reception Router RouterOptions
  RpMap RpView Views)
set(pim_face HelloOptions Port)
set(wire_face Checksum Outcome Reader Wire)
# What machines alone exchange, and what a host without host::Router asks before the gates.
set(engine_model IO Interface MessageCounters MsgStatus SourceIntf TrieGen UcastRoute)

# Installs headers of MODULE for a component, those that are made from declarations too. Headers keep their
# modules, so that "model/Status.h" means the same here and in the installed tree.
function(pimbsr_install_headers component folder module)
  set(headers)
  foreach(name ${ARGN})
    set(header ${PROJECT_SOURCE_DIR}/${module}/${name}.h)
    if(EXISTS ${header})
      list(APPEND headers ${header})
    endif()
    if(EXISTS ${PROJECT_SOURCE_DIR}/${module}/${name}.zet)
      list(APPEND headers ${zet_dir}/${module}/${name}.zet.h)
      if(module STREQUAL host)
        list(APPEND headers ${zet_dir}/${module}/${name}.keys.h)
      endif()
    endif()
  endforeach()
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder}/${module} COMPONENT ${component})
endfunction()

# The names of a module's headers and declarations, without what they end in.
function(pimbsr_names out module)
  file(GLOB files RELATIVE ${PROJECT_SOURCE_DIR}/${module} CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/${module}/*.h ${PROJECT_SOURCE_DIR}/${module}/*.zet)
  list(TRANSFORM files REPLACE "\\.(h|zet)$" "")
  list(REMOVE_DUPLICATES files)
  set(${out} ${files} PARENT_SCOPE)
endfunction()

foreach(module runtime model)
  pimbsr_names(names ${module})
  list(REMOVE_ITEM names ${engine_model})
  pimbsr_install_headers(host pimbsr ${module} ${names})
endforeach()
pimbsr_install_headers(engine pimbsr-engine model ${engine_model})
foreach(module wire pim host)
  pimbsr_install_headers(host pimbsr ${module} ${${module}_face})
endforeach()
foreach(module protocol crp config)
  pimbsr_names(names ${module})
  pimbsr_install_headers(engine pimbsr-engine ${module} ${names})
endforeach()
pimbsr_install_headers(engine pimbsr-engine host Admission)
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
write_basic_package_version_file(pimbsrConfigVersion.cmake COMPATIBILITY SameMinorVersion)
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
