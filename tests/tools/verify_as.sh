#!/usr/bin/env bash
# verify_as.sh BUILD CPU PROGRAM [FOLDER [FAMILY...]]: runs PROGRAM verify, sees that the loader chose BUILD and that every digest,
# or every one of these families, is the one kept. FOLDER is a search path for the kernel library. Several numbers of threads
# are tried where the build is looked at first; 7 elsewhere. CPU says how that build comes to be chosen:
#   here       by a tunable that hides wider vectors from the loader
#   by-path    by the search path, which holds only that build
#   a name     on that processor of qemu-user
# Exit status 77: cannot be run here.
set -euo pipefail
build=$1 cpu=$2 program=$3 folder=${4-}
families=()
for family in "${@:5}"; do families+=(--family "$family"); done

skip() { echo "not run: $1"; exit 77; }
has() { grep -qw -m1 "$1" /proc/cpuinfo; }
if [ "$cpu" = here ] || [ "$cpu" = by-path ]; then
  case $build in
    v3) has avx2 || skip "this processor has no AVX2" ;;
    v4) has avx512f || skip "this processor has no AVX-512" ;;
  esac
fi
threads=(7)
command=("$program")
case $cpu in
  here)
    case $build in
      baseline) export GLIBC_TUNABLES=glibc.cpu.hwcaps=-AVX2,-AVX512F ;;
      v3) export GLIBC_TUNABLES=glibc.cpu.hwcaps=-AVX512F ;;
    esac
    threads=(1 2 7)
    [ -z "$folder" ] || threads=(1 7) ;;
  by-path) ;;
  *)
    command -v qemu-x86_64 >/dev/null || skip "no qemu-x86_64"
    command=(qemu-x86_64 -cpu "$cpu" "$program") ;;
esac
[ -z "$folder" ] || command=(env LD_LIBRARY_PATH="$folder" "${command[@]}")

for count in "${threads[@]}"; do
  report=$("${command[@]}" verify --threads "$count" "${families[@]}")
  echo "$report"
  grep -Eq "^kernel (x86-64-)?$build " <<<"$report" || { echo "the loader did not choose $build"; exit 1; }
done
