#!/usr/bin/env bash
# Configures and builds everything into build/. Prints nothing unless it fails or somebody watches.
set -euo pipefail
cd "$(dirname "$0")/.."
command -v ccache >/dev/null && export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
if [ -t 1 ]; then
  cmake --preset release && cmake --build --preset release -j"$(nproc)"
  exit
fi
log=$(mktemp)
trap 'rm -f "$log"' EXIT
{ cmake --preset release && cmake --build --preset release -j"$(nproc)"; } >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
