#!/usr/bin/env bash
# setup.sh [external|packages]: installs what building, testing and measuring need (Debian 12), with `external` also the programs
# that scripts/external.sh runs, with `packages` what scripts/package.sh needs, leaving alone what is there. Needs root or sudo only when something is missing.
set -euo pipefail

build=(g++ cmake ninja-build ccache libgmp-dev libcli11-dev libfmt-dev libssl-dev help2man)
tests=(libgtest-dev libmpfr-dev qemu-user binutils libblas-test libblas64-test)
peers=(libopenblas0-pthread libblis4-pthread libblas3 libfftw3-double3 libfftw3-single3 libeigen3-dev librsb0
  libgraphblas-dev)
plots=(gnuplot-nox)
more=()
[ "${1-}" != packages ] || more=(dpkg-dev lintian pkg-config)
[ "${1-}" != external ] ||
  more=(liblapack-test python3-numpy python3-scipy python3-pytest python3-hypothesis python3-threadpoolctl octave
    r-base-core openmpi-bin libscalapack-openmpi-dev libopenmpi-dev scalapack-mpi-test hpcc)

missing=()
for package in "${build[@]}" "${tests[@]}" "${peers[@]}" "${plots[@]}" "${more[@]}"; do
  [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "setup: missing ${missing[*]}; install them as root" >&2; exit 1; }
  as_root=(sudo)
fi
echo "setup: installing ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
"${as_root[@]}" apt-get update >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}" \
  >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
