#!/usr/bin/env bash
# check_upper_halves.sh LIBRARY: no exported function of LIBRARY returns with the upper halves of the first sixteen vector
# registers in use without vzeroupper: the caller's 16-byte arithmetic would be slow from then on.
set -euo pipefail
found=$({ nm -D --defined-only "$1"; objdump -d --no-show-raw-insn "$1"; } | awk '
  NF == 3 && $2 == "T" { exported["<" $3 ">:"]; next }
  /^[0-9a-f]+ </ { report(); name = $2; used = cleared = returns = 0; functions += name in exported }
  /%[yz]mm([0-9]|1[0-5])([^0-9]|$)/ { used = 1 }
  $2 == "vzeroupper" { cleared = 1 }
  $2 == "ret" { returns = 1 }
  function report() { if (name in exported && used && returns && !cleared) print name }
  END { report(); print functions > "/dev/stderr"; exit functions == 0 }')
[ -z "$found" ] || { echo "$found"; exit 1; }
