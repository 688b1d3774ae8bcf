# The page of `sim --html` and `replay --html`: web/ bundled into one text, which the command contains.
# esbuild and the d3 modules are packages of Debian; neither a browser nor a network is needed.
find_program(ESBUILD esbuild REQUIRED)
set(PIMBSR_WEB_MODULES /usr/share/nodejs CACHE PATH "Folder with the d3 modules of the page")
if(NOT EXISTS ${PIMBSR_WEB_MODULES}/d3-force)
  message(FATAL_ERROR "No d3-force in ${PIMBSR_WEB_MODULES}; scripts/setup installs it")
endif()

set(page_text ${PROJECT_BINARY_DIR}/web/PageText.cpp)
# A page is longer than the strings that a compiler must take, of which clang warns.
set_source_files_properties(${page_text} PROPERTIES COMPILE_OPTIONS -Wno-overlength-strings)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/web)
file(GLOB web_sources CONFIGURE_DEPENDS web/src/*.js web/page.html web/style.css web/bundle.py)
add_custom_command(OUTPUT ${page_text}
  COMMAND ${Python3_EXECUTABLE} -B ${PROJECT_SOURCE_DIR}/web/bundle.py
          ${ESBUILD} ${PIMBSR_WEB_MODULES} ${page_text} --cpp
  DEPENDS ${web_sources}
  COMMENT "Bundling the page"
  VERBATIM)
