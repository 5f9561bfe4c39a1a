#!/usr/bin/env bash
# installed.sh BUILD [SOURCE]: installs BUILD (a build folder) into a prefix of its own, moves the prefix, builds and runs
# small outside projects against it in each way that docs/install.md tells, and uninstalls. With SOURCE, the project's
# folder, a user's project also builds the libraries itself, which takes minutes. What is not run is named.
set -euo pipefail
build=$(realpath "$1")
source=${2:+$(realpath "$2")}
here=$(dirname "$(realpath "$0")")
programs=$(realpath "$here/../interface")
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
strict=(-pedantic -Wall -Wextra -Werror)
try() { echo "-- $1"; shift; "$@" >"$root/log" 2>&1 || { cat "$root/log"; echo "failed: $*"; exit 1; }; }
here_run() { for program in "$@"; do "$program"; done; }
missing() { command -v "$1" >/dev/null && return 1; echo "-- not run: $1 is missing"; }

try "install" cmake --install "$build" --prefix "$root/first"
mv "$root/first" "$root/moved" # nothing in the tree may know where it was
prefix=$root/moved
for file in include/zor/blas.h lib/libzor_core.so lib/libzor_kern.so lib/pkgconfig/zor.pc lib/zor/fused/libzor_kern.so.1 lib/cmake/zor/zorConfig.cmake; do
  [ -e "$prefix/$file" ] || { echo "not installed: $file"; exit 1; }
done
link=(-L "$prefix/lib" -lzor_core -lzor_kern "-Wl,-rpath,$prefix/lib")
cd "$root"

try "plain cc" cc -std=c11 "${strict[@]}" -I "$prefix/include" -I "$programs/../.." "$programs/complex_values.c" "${link[@]}" -o c
try "plain c++" c++ -std=c++11 "${strict[@]}" -I "$prefix/include" -I "$programs/../.." "$programs/complex_values.cpp" \
  "${link[@]}" -o cpp
for example in matrix_product fourier sparse_solve memory_pool; do
  try "example $example" cc -std=c11 "${strict[@]}" -I "$prefix/include" "$prefix/share/doc/zor/examples/$example.c" \
    "${link[@]}" -lm -o "$example"
done
try "run" here_run ./c ./cpp ./matrix_product ./fourier ./sparse_solve ./memory_pool
missing gfortran ||
  { try "gfortran" gfortran "${strict[@]}" -Wno-compare-reals "$here/installed/product.f90" "${link[@]}" -o fortran; try "run" ./fortran; }
missing pkg-config || {
  export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
  read -ra flags < <(pkg-config --cflags --libs zor)
  try "pkg-config" cc -std=c11 "${strict[@]}" -I "$programs/../.." "$programs/complex_values.c" "${flags[@]}" -o pc
  try "run" env LD_LIBRARY_PATH="$prefix/lib" ./pc
  read -ra flags < <(pkg-config --cflags --libs zor-fused)
  printf '#include <string.h>\n#include "zor/core.h"\nint main(void) { return strcmp(zor_arithmetic(), "fused") != 0; }\n' >fused.c
  try "pkg-config zor-fused" cc -std=c11 "${strict[@]}" fused.c "${flags[@]}" "-Wl,-rpath,$prefix/lib" -o fused
  try "run" ./fused
}
try "find_package" cmake -S "$here/installed" -B project -DCMAKE_PREFIX_PATH="$prefix" -DPROGRAMS="$programs"
try "build" cmake --build project
try "run" here_run project/user_c project/user_cpp project/user_kern
if [ -n "${2-}" ]; then
  try "add_subdirectory" cmake -S "$here/installed" -B sub -DZOR_SOURCE="$source" -DZOR_BUILDS=baseline -DPROGRAMS="$programs"
  try "build" cmake --build sub -j "$(nproc)"
  try "run" here_run sub/user_c sub/user_cpp sub/user_kern
else
  echo "-- not run: add_subdirectory, no source folder was given"
fi
[ ! -x "$prefix/bin/zor" ] || try "zor verify" "$prefix/bin/zor" verify

mv "$prefix" "$root/first"
try "uninstall" cmake --build "$build" --target uninstall
left=$(find "$root/first" -type f -o -type l)
[ -z "$left" ] || { echo "left behind: $left"; exit 1; }
echo "installed, used and removed"
