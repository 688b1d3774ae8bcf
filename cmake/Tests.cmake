# One GoogleTest executable, run as one test, for each folder tests/<module>; each Python test is one test.
# Tests of more than some 30 seconds have a COST, by which they start first: none is left alone in the end.
find_package(GTest REQUIRED)
find_package(rapidcheck REQUIRED)

set(test_definitions PIMBSR_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
if(TARGET pimbsr-command)
  list(APPEND test_definitions PIMBSR_COMMAND="$<TARGET_FILE:pimbsr-command>")
endif()
set(test_libraries
  $<TARGET_NAME_IF_EXISTS:pimbsr-host> $<TARGET_NAME_IF_EXISTS:pimbsr> GTest::gmock GTest::gtest)

# The tests themselves are compiled without optimization and without the checks of pointers of
# UndefinedBehaviorSanitizer: that is 2.5 times faster. They call AddressSanitizer where the tested code has
# its checks inline, and a test that uses a local of its own after the end of its scope is not found: a
# quarter less.
set(test_options "")
if(CMAKE_BUILD_TYPE STREQUAL "Debug")
  list(APPEND test_options -O0)
endif()
if(PIMBSR_UNITY)
  list(APPEND test_options -Wno-shadow)  # a local name may be that of another test file
endif()
if(PIMBSR_SANITIZE)
  list(APPEND test_options -fno-sanitize=null,alignment,object-size)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    list(APPEND test_options -fno-sanitize-address-use-after-scope
      --param=asan-instrumentation-with-call-threshold=0)
  endif()
endif()

# tests/support: what the tests of several modules share.
file(GLOB support CONFIGURE_DEPENDS tests/support/*.cpp)
if(support)
  add_library(test-support STATIC ${support})
  target_link_libraries(test-support PUBLIC ${test_libraries})
  target_compile_definitions(test-support PUBLIC ${test_definitions})
  target_compile_options(test-support PRIVATE ${test_options})
  pimbsr_unity(test-support)
endif()

file(GLOB test_sources RELATIVE ${PROJECT_SOURCE_DIR}/tests CONFIGURE_DEPENDS tests/*/*.cpp)
list(FILTER test_sources EXCLUDE REGEX "^support/|^attack/flood\\.cpp$")
if(NOT PIMBSR_METER)
  list(FILTER test_sources EXCLUDE REGEX "CostTest\\.cpp$")
endif()
set(test_modules ${test_sources})
list(TRANSFORM test_modules REPLACE "/.*" "")
list(REMOVE_DUPLICATES test_modules)
foreach(module ${test_modules})
  set(sources ${test_sources})
  list(FILTER sources INCLUDE REGEX "^${module}/")
  list(TRANSFORM sources PREPEND ${PROJECT_SOURCE_DIR}/tests/)
  add_executable(test-${module} ${sources})
  target_include_directories(test-${module} PRIVATE ${PROJECT_SOURCE_DIR})
  target_compile_definitions(test-${module} PRIVATE ${test_definitions})
  target_compile_options(test-${module} PRIVATE ${test_options})
  pimbsr_unity(test-${module})
  target_link_libraries(test-${module} PRIVATE
    $<TARGET_NAME_IF_EXISTS:test-support> ${test_libraries} GTest::gmock_main)
  if(module MATCHES "^(cli|scenarios)$" AND TARGET pimbsr-cli)
    target_link_libraries(test-${module} PRIVATE pimbsr-cli)
  elseif(module STREQUAL "agent" AND TARGET pimbsr-agent)
    target_link_libraries(test-${module} PRIVATE pimbsr-agent)
  elseif(module STREQUAL "view" AND TARGET pimbsr-view)
    target_link_libraries(test-${module} PRIVATE pimbsr-view)
  elseif(module STREQUAL "sim" AND TARGET pimbsr-sim)
    target_link_libraries(test-${module} PRIVATE pimbsr-sim)
  elseif(module MATCHES "^(config|runtime)$")
    target_link_libraries(test-${module} PRIVATE rapidcheck)
  endif()
  if(module STREQUAL "cli" AND TARGET pimbsr-command)
    add_dependencies(test-${module} pimbsr-command)  # which some of its tests run
  endif()
  add_test(NAME test-${module} COMMAND test-${module})
  set_tests_properties(test-${module} PROPERTIES
    LABELS unit TIMEOUT 600 COST 50 ENVIRONMENT RC_PARAMS=max_success=500)
endforeach()

file(GLOB python_tests RELATIVE ${PROJECT_SOURCE_DIR}/tests CONFIGURE_DEPENDS
  tests/tidy/*_test.py tests/tidy/tidy.py tests/tidy/format_check.py tests/tidy/clones.py
  tests/zetc/*_test.py tests/docs/presets_test.py tests/lab/*_unit_test.py tests/attack/*_unit_test.py)
foreach(file ${python_tests})
  string(REGEX REPLACE "^(tidy|docs|lab|attack)/|\\.py$" "" name ${file})
  string(REGEX REPLACE "[/_]" "-" name ${name})
  add_test(NAME ${name} COMMAND ${Python3_EXECUTABLE} -B ${PROJECT_SOURCE_DIR}/tests/${file})
  set_tests_properties(${name} PROPERTIES LABELS script TIMEOUT 300 SKIP_RETURN_CODE 77)
endforeach()

# Each header alone, with the includes and definitions of this build.
if(TARGET pimbsr-command)
  add_test(NAME headers-alone COMMAND ${Python3_EXECUTABLE} -B
    ${PROJECT_SOURCE_DIR}/tests/tidy/headers_alone.py ${PROJECT_BINARY_DIR}/compile_commands.json)
  set_tests_properties(headers-alone PROPERTIES LABELS script TIMEOUT 600 COST 140)
endif()

# Each shell completes command lines of the built command.
if(TARGET pimbsr-command)
  add_test(NAME shell-completion COMMAND ${Python3_EXECUTABLE} -B
    ${PROJECT_SOURCE_DIR}/tests/shell/completion_test.py $<TARGET_FILE:pimbsr-command>)
  set_tests_properties(shell-completion PROPERTIES LABELS script TIMEOUT 300)
endif()

# What the documents name is looked up, and what they show is run.
if(TARGET pimbsr-command)
  add_test(NAME docs COMMAND ${Python3_EXECUTABLE} -B ${PROJECT_SOURCE_DIR}/tests/docs/docs_test.py
    $<TARGET_FILE:pimbsr-command> ${PROJECT_SOURCE_DIR})
  set_tests_properties(docs PROPERTIES LABELS script TIMEOUT 300 COST 80)
endif()

# What is counted after events of a network, of some of them.
if(TARGET pimbsr-command)
  add_test(NAME outages COMMAND ${Python3_EXECUTABLE} -B ${PROJECT_SOURCE_DIR}/tests/docs/outages_test.py
    $<TARGET_FILE:pimbsr-command>)
  set_tests_properties(outages PROPERTIES LABELS script TIMEOUT 300)
endif()

# The examples of the declaration language are generated and compiled.
add_test(NAME docs-language COMMAND ${Python3_EXECUTABLE} -B
  ${PROJECT_SOURCE_DIR}/tests/docs/language_test.py ${zet_dir} ${CMAKE_CXX_COMPILER})
set_tests_properties(docs-language PROPERTIES LABELS script TIMEOUT 300)

# The site of headers, pages and examples has no warning, and has them all.
add_test(NAME docs-site COMMAND ${Python3_EXECUTABLE} -B
  ${PROJECT_SOURCE_DIR}/tests/docs/site_test.py ${PROJECT_BINARY_DIR}/docs)
set_tests_properties(docs-site PROPERTIES LABELS script TIMEOUT 300)

# What gdb shows, of a program that is built with all of its types, those of classes of the library too.
if(TARGET pimbsr)
  add_executable(gdb-program tests/gdb/program/main.cpp)
  target_compile_options(gdb-program PRIVATE -g -O0
    $<IF:$<CXX_COMPILER_ID:Clang>,-fstandalone-debug,-femit-class-debug-always>)
  target_link_libraries(gdb-program PRIVATE pimbsr)
  add_test(NAME gdb-printers COMMAND ${Python3_EXECUTABLE} -B ${PROJECT_SOURCE_DIR}/tests/gdb/gdb_test.py
    $<TARGET_FILE:gdb-program>)
  set_tests_properties(gdb-printers PROPERTIES LABELS script TIMEOUT 300)
endif()

# JSON answers, held against the schemas that are installed.
if(TARGET pimbsr-command)
  add_test(NAME schema COMMAND ${Python3_EXECUTABLE} -B ${PROJECT_SOURCE_DIR}/tests/view/schema_test.py
    ${zet_dir}/schema $<TARGET_FILE:pimbsr-command> ${PROJECT_SOURCE_DIR} $<TARGET_FILE:test-agent>
    $<TARGET_FILE:test-cli>)
  set_tests_properties(schema PROPERTIES LABELS script TIMEOUT 300)
endif()

# The page of simulations and replays, in a headless browser.
if(TARGET pimbsr-command)
  add_test(NAME web-page COMMAND ${Python3_EXECUTABLE} -B ${PROJECT_SOURCE_DIR}/tests/web/page_test.py
    $<TARGET_FILE:pimbsr-command> ${PROJECT_SOURCE_DIR})
  set_tests_properties(web-page PROPERTIES LABELS web TIMEOUT 600 COST 150 SKIP_RETURN_CODE 77)
endif()

# Agents over HTTP; alert rules and dashboard, for what the tests of the agent expose.
if(TARGET pimbsr-command)
  add_test(NAME web-server COMMAND ${Python3_EXECUTABLE} -B ${PROJECT_SOURCE_DIR}/tests/web/web_test.py
    $<TARGET_FILE:pimbsr-command>)
  add_test(NAME web-live COMMAND ${Python3_EXECUTABLE} -B ${PROJECT_SOURCE_DIR}/tests/web/live_test.py
    $<TARGET_FILE:pimbsr-command>)
  add_test(NAME prometheus COMMAND ${Python3_EXECUTABLE} -B
    ${PROJECT_SOURCE_DIR}/tests/prometheus/prometheus_test.py $<TARGET_FILE:test-agent>)
  add_test(NAME prometheus-scrape COMMAND ${Python3_EXECUTABLE} -B
    ${PROJECT_SOURCE_DIR}/tests/prometheus/scrape_test.py $<TARGET_FILE:pimbsr-command>)
  set_tests_properties(web-server web-live prometheus prometheus-scrape PROPERTIES
    LABELS web TIMEOUT 600 COST 150 SKIP_RETURN_CODE 77)
  set_tests_properties(web-live prometheus-scrape PROPERTIES ENVIRONMENT "ASAN_OPTIONS=detect_leaks=0")
endif()

# What simulated routers send, read by an independent dissector; and random networks that must agree. The
# release, without sanitizers, plays ten times as many (scripts/test).
if(TARGET pimbsr-command)
  add_test(NAME sim-dissector COMMAND
    ${Python3_EXECUTABLE} -B ${PROJECT_SOURCE_DIR}/tests/sim/dissector_test.py $<TARGET_FILE:pimbsr-command>
    ${PROJECT_SOURCE_DIR}/examples/five-routers.sim)
  add_test(NAME sim-random COMMAND pimbsr-command sim --random 20 --routers 5-10 --seed 1)
  set_tests_properties(sim-dissector sim-random PROPERTIES LABELS sim TIMEOUT 600)
endif()

# Routers on the real kernel, one scenario each, side by side in namespaces of their own. A filter of system
# calls stops the leak check at the end of a process, so that is valgrind's task (scripts/test).
if(TARGET pimbsr-command)
  foreach(file lab operator trouble)
    set(path ${PROJECT_SOURCE_DIR}/tests/lab/${file}_test.py)
    file(STRINGS ${path} scenarios REGEX "^    def test_")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${path})
    foreach(scenario ${scenarios})
      string(REGEX REPLACE "^    def test_([a-z_]+).*" "\\1" scenario ${scenario})
      add_test(NAME lab-${scenario} COMMAND ${Python3_EXECUTABLE} -B ${path}
        $<TARGET_FILE:pimbsr-command> ${scenario})
      set_tests_properties(lab-${scenario} PROPERTIES LABELS lab TIMEOUT 300 SKIP_RETURN_CODE 77
        ENVIRONMENT "ASAN_OPTIONS=detect_leaks=0")
    endforeach()
  endforeach()
  # These measure how late timers are: no attack runs beside them.
  set_tests_properties(lab-many_routes lab-many_links_and_addresses PROPERTIES RESOURCE_LOCK attack)
endif()

# Attacks on a router on the real kernel, one at a time, since they measure; beside other tests they come
# first. Freed memory must not wait long for the sanitizer. `attack-flood` sends.
if(TARGET pimbsr-command)
  file(GLOB flood_sources CONFIGURE_DEPENDS tests/attack/*.cpp)
  list(FILTER flood_sources EXCLUDE REGEX "Test\\.cpp$")
  add_executable(attack-flood ${flood_sources})
  target_include_directories(attack-flood PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(attack-flood PRIVATE pimbsr-host CLI11::CLI11)
  foreach(file attack_test control_attacks)
    file(STRINGS tests/attack/${file}.py found REGEX "^    def test_")
    list(APPEND attacks ${found})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS tests/attack/${file}.py)
  endforeach()
  foreach(attack ${attacks})
    string(REGEX REPLACE "^    def test_([a-z_]+).*" "\\1" attack ${attack})
    add_test(NAME attack-${attack}
      COMMAND ${Python3_EXECUTABLE} -B ${PROJECT_SOURCE_DIR}/tests/attack/attack_test.py
      $<TARGET_FILE:pimbsr-command> $<TARGET_FILE:attack-flood> ${attack})
    set_tests_properties(attack-${attack} PROPERTIES LABELS attack TIMEOUT 300 SKIP_RETURN_CODE 77
      COST 160 RESOURCE_LOCK attack
      ENVIRONMENT "ASAN_OPTIONS=detect_leaks=0:quarantine_size_mb=32")
  endforeach()
endif()

# The service units, with the users, capabilities and filters that they set.
if(TARGET pimbsr-command)
  add_test(NAME install-units COMMAND ${Python3_EXECUTABLE} -B
    ${PROJECT_SOURCE_DIR}/tests/install/units_test.py $<TARGET_FILE:pimbsr-command>)
  set_tests_properties(install-units PROPERTIES LABELS install TIMEOUT 300 SKIP_RETURN_CODE 77
    ENVIRONMENT "ASAN_OPTIONS=detect_leaks=0")
endif()

# An embedder's program, built and run against the installed tree.
if(EXISTS ${PROJECT_SOURCE_DIR}/examples/embed AND TARGET pimbsr-host)
  list(JOIN sanitize_flags " " embed_flags)
  add_test(NAME install-embed
    COMMAND ${PROJECT_SOURCE_DIR}/tests/install/embed.sh ${PROJECT_BINARY_DIR} ${CMAKE_CXX_COMPILER})
  set_tests_properties(install-embed PROPERTIES LABELS install TIMEOUT 600
    ENVIRONMENT "CXXFLAGS=${embed_flags};CMAKE=${CMAKE_COMMAND};CMAKE_GENERATOR=${CMAKE_GENERATOR}")
endif()
