#!/usr/bin/env bash
# check_no_fused.sh LIBRARY: no function of LIBRARY holds a fused multiply-add or an estimate of a reciprocal: the
# compiler may form the first where two operations were written.
set -euo pipefail
found=$(objdump -d --no-show-raw-insn "$1" | awk '
  /^[0-9a-f]+ </ { name = $2; functions++ }
  $2 ~ /^vf(n?m(add|sub)|maddsub|msubadd)/ || $2 ~ /^v?r(cp|sqrt)(14|28)?[ps][sd]$/ { print name, $2 }
  END { print functions > "/dev/stderr" }' | sort | uniq -c)
[ -z "$found" ] || { echo "$found"; exit 1; }
