#!/usr/bin/env bash
# build.sh [here]: configures and builds everything into build/; with `here`, only the program, libzor_core, the baseline
# build of the kernel library and the build that this processor runs, both in the separate arithmetic. Prints nothing
# unless it fails or somebody watches.
set -euo pipefail
cd "$(dirname "$0")/.."
command -v ccache >/dev/null && export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}

builds="baseline;v3;v4" target=all
if [ "${1-}" = here ]; then
  # The loader lists the folders that it searches on this processor.
  searched=$(/lib64/ld-linux-x86-64.so.2 --help | grep -o 'x86-64-v[34] (supported' || true)
  builds=baseline target=zor_program
  case $searched in
    *v4*) builds+=";v4" ;;
    *v3*) builds+=";v3" ;;
  esac
fi
build() {
  cmake --preset release "-DZOR_BUILDS=$builds" && cmake --build --preset release -j"$(nproc)" --target "$target"
}
if [ -t 1 ]; then
  build
  exit
fi
log=$(mktemp)
trap 'rm -f "$log"' EXIT
build >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
