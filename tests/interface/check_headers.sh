#!/usr/bin/env bash
# check_headers.sh INCLUDE CC CXX LIBRARY...: every header in INCLUDE/zor stands alone as strict C and C++, defines no macro
# without the prefix ZOR_, leaves the user's macros alone, and together they declare every name that a LIBRARY exports.
set -euo pipefail
include=$1 cc=$2 cxx=$3
shift 3
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
strict=(-pedantic -Wall -Wextra -Wshadow -Werror -fsyntax-only -I "$include")
status=0

# Names that a program might use for macros of its own.
guards='#define ROW 1
#define SIG 2
#define T 3
'
count=0
for header in "$include"/zor/*.h; do
  file=$(basename "$header")
  for system in complex.h stddef.h stdint.h stdio.h gmp.h; do
    echo "#include <$system>"
  done >"$folder/system.h"
  printf '#include <zor/%s>\nint main(void) { return 0; }\n' "$file" >"$folder/alone.c"
  printf '#ifdef __cplusplus\n#include <complex>\n#endif\n#include "system.h"\n%s#include <zor/%s>\n%s' "$guards" "$file" \
    'int main(void) { return ROW + SIG + T - 6; }' >"$folder/guarded.c"
  # Alone by the oldest rules, beside a program's own names by the newest.
  for pair in alone=11 guarded=17; do
    source=${pair%=*} standard=${pair#*=}
    "$cc" -std=c$standard "${strict[@]}" -x c "$folder/$source.c" || { echo "$file: not c$standard ($source)"; status=1; }
    [ "$standard" = 11 ] || standard=20
    "$cxx" -std=c++$standard "${strict[@]}" -x c++ "$folder/$source.c" ||
      { echo "$file: not c++$standard ($source)"; status=1; }
  done
  if grep -nE '^ *# *(define|undef) +' "$header" | grep -vE '(define|undef) +ZOR_'; then
    echo "$file: a macro without the prefix ZOR_"
    status=1
  fi
  count=$((count + 1))
done
[ "$count" -gt 5 ] || { echo "only $count headers in $include/zor"; status=1; }

{
  for header in "$include"/zor/*.h; do echo "#include <zor/$(basename "$header")>"; done
  echo 'typedef void (*function)(void);'
  for library in "$@"; do
    echo "const function ${library//[^a-z0-9]/_}[] = {"
    nm -D --defined-only "$library" | awk '$2 == "T" { sub("@.*", "", $3); print "(function)" $3 "," }'
    echo '};'
  done
} >"$folder/all.c"
"$cc" -std=c11 -fsyntax-only -Werror -Wno-cast-function-type -I "$include" "$folder/all.c" ||
  { echo "an exported name has no prototype"; status=1; }
echo "$count headers, $(grep -c '^(function)' "$folder/all.c") exported names"
exit $status
