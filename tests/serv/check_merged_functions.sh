#!/usr/bin/env bash
# check_merged_functions.sh SHARED FUSED: each argument is a file that lists objects. The linker keeps one copy of a function
# that several objects define, as they do with templates. One that objects of both lists define must not
# multiply, fused or not: the copy that is kept would compute in the arithmetic of the other list.
set -euo pipefail
weak() { xargs -a "$1" nm --defined-only | awk '$2 == "W" || $2 == "u" { print $3 }' | sort -u; }
both=$(comm -12 <(weak "$1") <(weak "$2"))
found=$(xargs -a "$2" objdump -d --no-show-raw-insn | awk -v both="$both" '
  BEGIN { n = split(both, names, "\n"); for (i = 1; i <= n; i++) merged["<" names[i] ">:"] = 1 }
  /^[0-9a-f]+ </ { name = $2; inside = name in merged }
  inside && $2 ~ /^v?(mul|f(n?m(add|sub)|maddsub|msubadd))[0-9]*(s|p)[sd]/ { print name, $2 }' | sort | uniq -c)
[ -z "$found" ] || { echo "$found"; exit 1; }
