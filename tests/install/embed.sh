#!/usr/bin/env bash
# embed.sh BUILD CXX: installs the build folder BUILD and builds examples/embed against what was installed,
# once as a CMake package and once through pkg-config; each program must end well and say something. CXXFLAGS
# are flags that the installed libraries need of a program (a sanitizer).
set -euo pipefail
build=$1
cxx=$2
cmake=${CMAKE:-cmake}
example=$(cd "$(dirname "$0")/../.." && pwd)/examples/embed
if [[ ! -d $example ]]; then
  echo "$example is missing" >&2
  exit 1
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$cmake" --install "$build" --prefix "$work/installed" >"$work/install.log"
mv "$work/installed" "$work/moved" # what is installed must not know where
lib=$(dirname "$(find "$work/moved" -name libpimbsr.so)")

# The SONAME names the versions that a program can be run with: 0.MINOR before 1.0 (docs/embedding.md).
version=$(sed -nE 's/.* version = "(0\.[0-9]+|[0-9]+).*/\1/p' "$example/../../agent/base/Version.h")
for library in libpimbsr libpimbsr-host; do
  if [[ -z $version || ! -e $lib/$library.so.$version ]]; then
    echo "there is no $library.so.$version" >&2
    exit 1
  fi
done

run() {
  local output
  output=$(LD_LIBRARY_PATH=$lib "$1")
  if [[ -z $output ]]; then
    echo "$1 printed nothing" >&2
    exit 1
  fi
  printf '%s:\n%s\n' "$2" "$output"
}

"$cmake" -S "$example" -B "$work/by-cmake" \
  -DCMAKE_PREFIX_PATH="$work/moved" -DCMAKE_CXX_COMPILER="$cxx" >"$work/configure.log"
"$cmake" --build "$work/by-cmake"
run "$work/by-cmake/embed" "found by CMake"

read -ra flags <<<"${CXXFLAGS:-} $(PKG_CONFIG_PATH=$lib/pkgconfig pkg-config --cflags --libs pimbsr-host)"
"$cxx" -std=c++20 "$example"/*.cpp "${flags[@]}" -o "$work/by-pkg-config"
run "$work/by-pkg-config" "found by pkg-config"
