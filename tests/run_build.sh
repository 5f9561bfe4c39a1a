#!/usr/bin/env bash
# run_build.sh BUILD FOLDER PROGRAM [ARGS]: runs PROGRAM with the kernel library in FOLDER. When this processor lacks
# the build's instructions, v3 runs under qemu-user; exit status 77 says that the build could not be run here.
set -u
build=$1 folder=$2
shift 2
has() { grep -qw -m1 "$1" /proc/cpuinfo; }
export LD_LIBRARY_PATH=$folder
case $build in
  *v3)
    if ! { has avx2 && has fma && has bmi2; }; then
      command -v qemu-x86_64 >/dev/null || { echo "not run: no AVX2 and no qemu-x86_64"; exit 77; }
      unset LD_LIBRARY_PATH
      exec qemu-x86_64 -cpu Haswell -E LD_LIBRARY_PATH="$folder" "$@"
    fi ;;
  *v4)
    for flag in avx512f avx512bw avx512cd avx512dq avx512vl; do
      has $flag || { echo "not run: this processor has no $flag, which qemu-user does not emulate"; exit 77; }
    done ;;
esac
exec "$@"
