#!/usr/bin/env bash
# embed.sh BUILD CXX: installs the build folder BUILD and builds programs against what was installed, as a
# CMake package and through pkg-config: examples/embed against component host alone, which has no header of a
# machine, then one that names all functions of component engine. Each must end well and print something.
# CXXFLAGS are flags that the installed libraries need of a program (a sanitizer).
set -euo pipefail
build=$1
cxx=$2
cmake=${CMAKE:-cmake}
here=$(cd "$(dirname "$0")" && pwd)
example=$(cd "$here/../.." && pwd)/examples/embed
if [[ ! -d $example ]]; then
  echo "$example is missing" >&2
  exit 1
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
  echo "$1" >&2
  exit 1
}

"$cmake" --install "$build" --component host --prefix "$work/installed" >"$work/install.log"
mv "$work/installed" "$work/moved" # what is installed must not know where
lib=$(dirname "$(find "$work/moved" -name libpimbsr.so)")

# The SONAME names the versions that a program can be run with: 0.MINOR before 1.0 (docs/embedding.md).
version=$(sed -nE 's/.* version = "(0\.[0-9]+|[0-9]+).*/\1/p' "$example/../../agent/base/Version.h")
for library in libpimbsr libpimbsr-host; do
  [[ -n $version && -e $lib/$library.so.$version ]] || fail "there is no $library.so.$version"
done

run() {
  local output
  output=$(LD_LIBRARY_PATH=$lib "$1")
  [[ -n $output ]] || fail "$1 printed nothing"
  printf '%s:\n%s\n' "$2" "$output"
}

# by_cmake SOURCE PROGRAM: builds and runs the program of a folder.
by_cmake() {
  "$cmake" -S "$1" -B "$work/$2" -DCMAKE_PREFIX_PATH="$work/moved" -DCMAKE_CXX_COMPILER="$cxx" \
    >"$work/configure.log" &&
    "$cmake" --build "$work/$2" &&
    run "$work/$2/$2" "$2, found by CMake"
}

# flags_of PACKAGE OPTION...: sets `flags` to what pkg-config answers of a package: with --cflags what the
# compiler needs, with --libs the linker.
flags_of() {
  read -ra flags <<<"${CXXFLAGS:-} $(PKG_CONFIG_PATH=$lib/pkgconfig pkg-config "${@:2}" "$1")"
}

# by_pkg_config SOURCE PACKAGE
by_pkg_config() {
  flags_of "$2" --cflags --libs
  "$cxx" -std=c++20 "$1"/*.cpp "${flags[@]}" -o "$work/program"
  run "$work/program" "$2, found by pkg-config"
}

# A router and what a host needs, and no machine: each header compiles without them.
by_cmake "$example" embed
by_pkg_config "$example" pimbsr-host
for module in protocol crp config; do
  [[ -z $(find "$work/moved" -type d -name $module) ]] || fail "component host has headers of $module"
done
include=$work/moved/include/pimbsr
(cd "$include" && find . -name '*.h' -printf '#include <%P>\n') | sort >"$work/all.cpp"
[[ -s $work/all.cpp ]] || fail "component host has no header"
flags_of pimbsr-host --cflags
"$cxx" -std=c++20 -fsyntax-only -Wall -Werror "${flags[@]}" "$work/all.cpp"
if by_cmake "$here/engine" names >"$work/absent.log" 2>&1; then
  fail "component engine is found where it is not installed"
fi

# With the machines beside it, pimbsr::host still doesn't reach them.
rm -rf "$work/names"
"$cmake" --install "$build" --component engine --prefix "$work/moved" >>"$work/install.log"
by_cmake "$here/engine" names
by_pkg_config "$here/engine" pimbsr-engine
flags_of pimbsr-host --cflags
echo '#include <protocol/PimBsrSm.h>' >"$work/machine.cpp"
if "$cxx" -std=c++20 -fsyntax-only "${flags[@]}" "$work/machine.cpp" 2>"$work/absent.log"; then
  fail "pimbsr-host reaches the headers of machines"
fi
