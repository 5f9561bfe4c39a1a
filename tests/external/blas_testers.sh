#!/usr/bin/env bash
# blas_testers.sh TESTERS LIBRARIES [FLAG]: runs the BLAS and CBLAS testers of the reference implementation, which Debian's packages
# libblas-test and libblas64-test put into TESTERS, with LIBRARIES as library path. A line a tester: program, passed, failed,
# expected. Status 0 when all pass as often as over the reference's own library, 77 without the testers, or on a processor
# without FLAG of /proc/cpuinfo.
set -euo pipefail
testers=$1
[ -x "$testers/xblat1d" ] || { echo "not run: no testers in $testers"; exit 77; }
grep -qw -m1 "${3-flags}" /proc/cpuinfo || { echo "not run: this processor has no $3"; exit 77; }
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cp "$testers"/*.in "$testers"/?in? "$testers"/x* "$scratch"
cd "$scratch"
export LD_LIBRARY_PATH=$2
status=0

# report PROGRAM EXPECTED FILES...: a pass is a line with PASS that is not the heading of a report.
report() {
  local program=$1 expected=$2 passed failed
  shift 2
  touch "$@"
  passed=$(cat "$@" | grep -cE 'PASSED THE|----- PASS' || true)
  failed=$(cat "$@" | grep -ciE 'FAIL|\*\*\*\*\*|suspect|symbol lookup' || true)
  printf '%-10s %4d %4d %4d\n' "$program" "$passed" "$failed" "$expected"
  if [ "$passed" -ne "$expected" ] || [ "$failed" -ne 0 ]; then
    grep -hE 'FAIL|\*\*\*\*\*|symbol lookup' "$@" | head -5 || true
    status=1
  fi
}

printf '%-10s %4s %4s %4s\n' program pass fail want
for t in s d c z; do
  case $t in
    s | d) counts=(13 32 12 10 48 18) ;;
    *) counts=(10 34 18 10 51 27) ;;
  esac
  ./xblat1$t >b1 2>&1 || true
  report xblat1$t ${counts[0]} b1
  ./xblat2$t <${t}blat2.in >b2 2>&1 || true
  report xblat2$t ${counts[1]} ${t}blat2.out b2
  ./xblat3$t <${t}blat3.in >b3 2>&1 || true
  report xblat3$t ${counts[2]} ${t}blat3.out b3
  ./x${t}cblat1 >c1 2>&1 || true
  report x${t}cblat1 ${counts[3]} c1
  ./x${t}cblat2 <${t}in2 >c2 2>&1 || true
  report x${t}cblat2 ${counts[4]} c2
  ./x${t}cblat3 <${t}in3 >c3 2>&1 || true
  report x${t}cblat3 ${counts[5]} c3
done
exit $status
