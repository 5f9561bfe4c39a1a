#!/usr/bin/env bash
# Sets up, builds and tests all three builds of the kernel library. Arguments go to ctest.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh

missing() { ! command -v "$1" >/dev/null; }
grep -qw -m1 avx2 /proc/cpuinfo || echo "test: no AVX2 here, the x86-64-v3 build runs under emulation"
grep -qw -m1 avx512f /proc/cpuinfo || echo "test: not run: the x86-64-v4 build, this processor has no AVX-512"
missing qemu-x86_64 && echo "test: not run: older processors, qemu-x86_64 is missing"
echo "test: not run: the presets sanitize, tsan and soak (docs/testing.md)"
cd build
exec ctest -j"$(nproc)" --output-on-failure "$@"
