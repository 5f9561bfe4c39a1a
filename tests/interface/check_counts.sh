#!/usr/bin/env bash
# check_counts.sh LIBRARY: how many names the kernel library exports of each family, which is the word behind zor_. A
# family that is whole (=) has exactly its number, one that still grows (<=) at most; together they are 4,101.
set -euo pipefail
family_counts='
dll_cpu = 1
serv    = 10
blas    <= 339
lapack  = 85
xblas   = 28
spblas  = 3298
dft     = 110
pdepl   <= 32
pdett   <= 22
trans   = 16
conv    = 9
gmp     = 151
'
exported=$(nm -D --defined-only "$1" | awk '$2 == "T" { sub("@.*", "", $3); print $3 }' |
  sed -E 's/^zor_([a-z]+)_.*/\1/; s/^(dll_cpu)_.*/\1/' | sort | uniq -c)
status=0 total=0
while read -r family relation count; do
  [ -n "$family" ] || continue
  found=$(awk -v f="$family" '$2 == f { print $1 }' <<<"$exported")
  case $relation in
    "=") [ "${found:-0}" -eq "$count" ] || { echo "$family: ${found:-0} names, not $count"; status=1; } ;;
    "<=") [ "${found:-0}" -le "$count" ] || { echo "$family: ${found:-0} names, more than $count"; status=1; } ;;
  esac
  total=$((total + count))
  exported=$(awk -v f="$family" '$2 != f' <<<"$exported")
done <<<"$family_counts"
[ -z "$exported" ] || { echo "of no family: $exported"; status=1; }
[ "$total" -eq 4101 ] || { echo "the families have $total names"; status=1; }
exit $status
