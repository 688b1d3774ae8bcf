# bench-<name> for each bench/<name>.cpp. The libraries measured beside our own are optional: for each one
# that is found, its definition is 1.
find_package(benchmark REQUIRED)
find_package(absl QUIET)
find_package(PkgConfig QUIET)
add_library(bench-peers INTERFACE)

# Adds TARGETS to the peers and sets DEFINITION=1 if all of them exist.
function(pimbsr_peer definition)
  foreach(target ${ARGN})
    if(NOT TARGET ${target})
      message(STATUS "bench: no ${target}, so not ${definition}")
      return()
    endif()
  endforeach()
  target_link_libraries(bench-peers INTERFACE ${ARGN})
  target_compile_definitions(bench-peers INTERFACE ${definition}=1)
endfunction()

if(PkgConfig_FOUND)
  pkg_check_modules(sigcpp QUIET IMPORTED_TARGET sigc++-2.0)
  pkg_check_modules(libevent QUIET IMPORTED_TARGET libevent)
  pkg_check_modules(libuv QUIET IMPORTED_TARGET libuv)
endif()
if(EXISTS ${Boost_INCLUDE_DIRS}/boost/signals2.hpp)
  pimbsr_peer(BENCH_SIGNALS2 Boost::headers)
endif()
pimbsr_peer(BENCH_SIGCPP PkgConfig::sigcpp)
pimbsr_peer(BENCH_ABSL absl::btree absl::node_hash_map absl::flat_hash_map)
pimbsr_peer(BENCH_LIBEVENT PkgConfig::libevent)
pimbsr_peer(BENCH_LIBUV PkgConfig::libuv)

# The fields of a change, written and parsed by Protocol Buffers.
find_package(Protobuf QUIET)
if(Protobuf_FOUND AND Protobuf_PROTOC_EXECUTABLE)
  protobuf_generate_cpp(change_source change_header bench/attrlog.proto)
  add_library(bench-change STATIC ${change_source})
  target_include_directories(bench-change PUBLIC ${CMAKE_CURRENT_BINARY_DIR})
  target_link_libraries(bench-change PUBLIC protobuf::libprotobuf)
  pimbsr_peer(BENCH_PROTOBUF bench-change)
endif()

file(GLOB bench_sources CONFIGURE_DEPENDS bench/*.cpp)
foreach(source ${bench_sources})
  get_filename_component(name ${source} NAME_WE)
  add_executable(bench-${name} ${source})
  target_link_libraries(bench-${name} PRIVATE
    pimbsr-view pimbsr-sim pimbsr-host bench-peers benchmark::benchmark_main benchmark::benchmark)
endforeach()
