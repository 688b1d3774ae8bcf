# Each fuzz/<name>.cpp holds one LLVMFuzzerTestOneInput. With PIMBSR_FUZZ it is linked with libFuzzer, and
# its test fuzzes for PIMBSR_FUZZ_SECONDS, starting from its corpus; else it is linked with a main() that
# plays the corpus and fixed mutations of it.
set(PIMBSR_FUZZ_SECONDS 20 CACHE STRING "Seconds for which the test of one fuzz target runs")

# All of them, and nothing that they don't need.
add_custom_target(fuzzers)

file(GLOB fuzz_sources CONFIGURE_DEPENDS fuzz/*.cpp)
list(FILTER fuzz_sources EXCLUDE REGEX "/ReplayMain\\.cpp$")
if(NOT PIMBSR_METER)
  list(FILTER fuzz_sources EXCLUDE REGEX "/cost\\.cpp$")
endif()
foreach(source ${fuzz_sources})
  get_filename_component(name ${source} NAME_WE)
  set(corpus ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
  set(target fuzz-replay-${name})
  set(command ${target} ${corpus})
  if(PIMBSR_FUZZ)
    set(target fuzz-${name})
    set(work ${PROJECT_BINARY_DIR}/corpus/${name})
    file(MAKE_DIRECTORY ${work})
    set(command ${target} -max_total_time=${PIMBSR_FUZZ_SECONDS} -timeout=10 -rss_limit_mb=4096
      -artifact_prefix=${PROJECT_BINARY_DIR}/${name}- ${work} ${corpus})
  endif()
  add_executable(${target} ${source})
  add_dependencies(fuzzers ${target})
  target_link_libraries(${target} PRIVATE pimbsr-host $<TARGET_NAME_IF_EXISTS:pimbsr-readers>)
  if(PIMBSR_FUZZ)
    target_link_options(${target} PRIVATE -fsanitize=fuzzer)
  else()
    target_sources(${target} PRIVATE fuzz/ReplayMain.cpp)
  endif()
  add_test(NAME ${target} COMMAND ${command})
  math(EXPR timeout "${PIMBSR_FUZZ_SECONDS} + 600")
  set_tests_properties(${target} PROPERTIES LABELS fuzz TIMEOUT ${timeout} COST 100)
endforeach()

if(TARGET fuzz-replay-cost)
  # An input of this target costs hundreds of times as much as one of another. The target shows visits, so it
  # does without the most expensive checks of memory, which the other targets and tests make.
  set_tests_properties(fuzz-replay-cost PROPERTIES ENVIRONMENT
    "FUZZ_MUTATIONS=40;ASAN_OPTIONS=detect_stack_use_after_return=0:malloc_context_size=0")

  # It must find a walk and a square that are added to what a router does. One file of its corpus shows each;
  # fuzz-replay-cost shows that nothing is found there without. The shell hides the signal that ends the
  # program, so that the text of the failed assertion alone passes the test.
  foreach(planted walk-per-packet=single-rps walk-per-packet=single-ranges pairs-per-packet=large-message
      list-per-record=renewed walk-per-expiry=single-rps)
    string(REPLACE "=" ";" planted ${planted})
    list(GET planted 0 work)
    list(GET planted 1 file)
    set(test fuzz-planted-${work}-${file})
    add_test(NAME ${test} COMMAND sh -c "\"$@\" || true" sh
      $<TARGET_FILE:fuzz-replay-cost> ${PROJECT_SOURCE_DIR}/fuzz/corpus/cost/${file})
    set_tests_properties(${test} PROPERTIES LABELS fuzz TIMEOUT 60
      ENVIRONMENT "FUZZ_PLANTED=${work};FUZZ_MUTATIONS=0"
      PASS_REGULAR_EXPRESSION "assertion failed: the work of packets is within their credit")
  endforeach()
endif()
