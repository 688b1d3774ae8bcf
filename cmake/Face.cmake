# The headers that are installed, by component and module. Component host is what an embedder of host::Router
# needs; component engine adds what machines are made of.
#
# As a script, it prints the headers of the components: cmake -DZET=DIR -P cmake/Face.cmake, where DIR is that
# of the headers made from declarations.

set(face_root ${CMAKE_CURRENT_LIST_DIR}/..)
get_filename_component(face_root ${face_root} ABSOLUTE)
set(face_modules runtime model wire pim host protocol crp config)

# Of these modules a part is installed; what else is in them stays in the library.
set(host_face_host BsmPolicy Candidacy ConfigKey ConfigPlace ConfigTree Configuration Corrections
  IngressSettings LastMessages Limits Machines ModelTree NearestNames Observer PreferredRps Reception Router
  RouterOptions RpMap RpView Views)
set(host_face_pim HelloOptions Port)
set(host_face_wire Checksum Outcome Reader Wire)
set(engine_face_host Admission KeptRps)
# What machines alone exchange, and what a host without host::Router asks before the gates.
set(engine_face_model IO Interface MessageCounters MsgStatus SourceIntf TrieGen UcastRoute)

# The names of a module's headers and declarations, without what they end in.
function(pimbsr_names out module)
  set(depends CONFIGURE_DEPENDS)
  if(CMAKE_SCRIPT_MODE_FILE)
    set(depends)
  endif()
  file(GLOB files RELATIVE ${face_root}/${module} ${depends} ${face_root}/${module}/*.h
    ${face_root}/${module}/*.zet)
  list(TRANSFORM files REPLACE "\\.(h|zet)$" "")
  list(REMOVE_DUPLICATES files)
  set(${out} ${files} PARENT_SCOPE)
endfunction()

# The names of a module's headers that a component has.
function(pimbsr_face_names out component module)
  set(names ${${component}_face_${module}})
  if(component STREQUAL host AND module MATCHES "^(runtime|model)$")
    pimbsr_names(names ${module})
    list(REMOVE_ITEM names ${engine_face_model})
  elseif(component STREQUAL engine AND module MATCHES "^(protocol|crp|config)$")
    pimbsr_names(names ${module})
  endif()
  set(${out} ${names} PARENT_SCOPE)
endfunction()

# The paths of a module's headers that a component has, those in folder ZET included that are made from
# declarations.
function(pimbsr_face out component module zet)
  pimbsr_face_names(names ${component} ${module})
  set(headers)
  foreach(name ${names})
    if(EXISTS ${face_root}/${module}/${name}.h)
      list(APPEND headers ${face_root}/${module}/${name}.h)
    endif()
    if(EXISTS ${face_root}/${module}/${name}.zet)
      list(APPEND headers ${zet}/${module}/${name}.zet.h)
      if(module STREQUAL host)
        list(APPEND headers ${zet}/${module}/${name}.keys.h)
      endif()
    endif()
  endforeach()
  set(${out} ${headers} PARENT_SCOPE)
endfunction()

if(CMAKE_SCRIPT_MODE_FILE)
  set(all)
  foreach(component host engine)
    foreach(module ${face_modules})
      pimbsr_face(headers ${component} ${module} "${ZET}")
      list(APPEND all ${headers})
    endforeach()
  endforeach()
  list(JOIN all "\n" all)
  execute_process(COMMAND ${CMAKE_COMMAND} -E echo ${all})
endif()
