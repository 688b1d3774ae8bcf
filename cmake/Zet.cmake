# The declaration files (*.zet) of the modules and what the generator makes of them.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(zet_dir ${PROJECT_BINARY_DIR}/zet)

# For each <module>/<Name>.zet: <zet_dir>/<module>/<Name>.zet.h and .zet.cpp, of keys of the configuration
# file <Name>.keys.h too, and one reference.md over all of them. One command makes all, since a declaration
# may name the classes of another; it writes only what changed, so a stamp carries the time of the run and
# the generated files are its by-products.
function(pimbsr_generate)
  set(declarations "")
  set(generated "")
  foreach(module ${ARGN})
    file(GLOB module_declarations RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS ${module}/*.zet)
    foreach(declaration ${module_declarations})
      list(APPEND declarations ${PROJECT_SOURCE_DIR}/${declaration})
      list(APPEND generated ${zet_dir}/${declaration}.h ${zet_dir}/${declaration}.cpp)
      file(STRINGS ${declaration} has_keys REGEX "^(config|keys) ")
      if(has_keys)
        string(REGEX REPLACE "zet$" "keys.h" rows ${declaration})
        list(APPEND generated ${zet_dir}/${rows})
      endif()
    endforeach()
  endforeach()
  if(NOT declarations)
    return()
  endif()
  file(GLOB generator CONFIGURE_DEPENDS runtime/zetc/*.py)
  add_custom_command(
    OUTPUT ${zet_dir}/stamp
    BYPRODUCTS ${generated} ${zet_dir}/reference.md
    COMMAND ${Python3_EXECUTABLE} -B ${PROJECT_SOURCE_DIR}/runtime/zetc
            --root ${PROJECT_SOURCE_DIR} --out ${zet_dir} ${declarations}
    COMMAND ${CMAKE_COMMAND} -E touch ${zet_dir}/stamp
    DEPENDS ${declarations} ${generator}
    COMMENT "Generating the declared classes"
    VERBATIM)
  add_custom_target(pimbsr-zet DEPENDS ${zet_dir}/stamp)
endfunction()

# Sets RESULT to all sources of the modules, hand-written and generated.
function(pimbsr_sources result)
  set(sources "")
  foreach(module ${ARGN})
    file(GLOB written CONFIGURE_DEPENDS ${module}/*.cpp)
    file(GLOB declared RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS ${module}/*.zet)
    list(TRANSFORM declared REPLACE "(.+)" "${zet_dir}/\\1.cpp")
    list(APPEND sources ${written} ${declared})
  endforeach()
  set(${result} ${sources} PARENT_SCOPE)
endfunction()
