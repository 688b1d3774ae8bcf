# Language, warnings, build types and sanitizers of everything built here; nothing of it reaches an embedder.
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Debug or Release" FORCE)
endif()
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# NDEBUG silences the assert() of libraries only: ZET_ASSERT does not look at it.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

# Sanitized code compiles in half the time with -Og, and runs as fast as with -O1. Stack traces need lines
# alone; variables would make builds far longer.
option(PIMBSR_DEBUG_VARIABLES "Add variables to the debug information of a Debug build, for gdb" OFF)
set(CMAKE_CXX_FLAGS_DEBUG "-Og -g1")
if(PIMBSR_DEBUG_VARIABLES)
  set(CMAKE_CXX_FLAGS_DEBUG "-Og -g")
endif()

# A library whose sources change makes no program anew that uses it.
set(CMAKE_LINK_DEPENDS_NO_SHARED ON)

# A compiler cache is used where there is one, unless the caller names a launcher.
find_program(PIMBSR_CCACHE ccache)
if(PIMBSR_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER AND NOT DEFINED ENV{CMAKE_CXX_COMPILER_LAUNCHER})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${PIMBSR_CCACHE})
endif()

# Calls within a library bind to the library itself, so that they can be inlined and need no table.
add_compile_options(-fno-semantic-interposition)
string(APPEND CMAKE_SHARED_LINKER_FLAGS " -Wl,-Bsymbolic-functions")

# Designated initializers name what differs from the default, so a member left out is no oversight.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wno-missing-field-initializers)
# A watcher that may write its notifier attaches to no constant one: its setter hides that of its base on
# purpose.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-Wno-overloaded-virtual)
endif()
if(PIMBSR_WERROR)
  add_compile_options(-Werror)
endif()

set(sanitize_flags "")
if(PIMBSR_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "PIMBSR_FUZZ needs clang: set CMAKE_CXX_COMPILER, for example to clang++-16")
  endif()
  set(sanitize_flags -fsanitize=fuzzer-no-link,address,undefined)
elseif(PIMBSR_SANITIZE)
  set(sanitize_flags -fsanitize=address,undefined)
  # AddressSanitizer stops at a null or wild pointer that is used; g++ takes a third longer to check each one
  # besides. The fuzz targets, which clang compiles, check alignment too.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    list(APPEND sanitize_flags -fno-sanitize=null,alignment,object-size)
  endif()
endif()
# The check of an object's type opens a pipe, so it fails in tests in which the process runs out of files.
# AddressSanitizer sees the use of an object that is gone.
if(sanitize_flags)
  list(APPEND sanitize_flags -fno-sanitize=vptr)
endif()
# Every branch is one of the source: nothing is inlined or folded.
if(PIMBSR_COVERAGE)
  add_compile_options(--coverage -O0)
  add_link_options(--coverage)
endif()
# What bounds the work of packets is built with the meter: the fuzz targets, and the tests that are built
# with sanitizers or to measure coverage.
if(sanitize_flags OR PIMBSR_COVERAGE)
  set(PIMBSR_METER ON)
endif()
if(PIMBSR_METER)
  add_compile_definitions(PIMBSR_METER=1)
endif()
if(sanitize_flags)
  list(APPEND sanitize_flags -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_compile_options(${sanitize_flags})
  add_link_options(${sanitize_flags})
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
endif()
