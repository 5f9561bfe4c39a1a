#!/usr/bin/env bash
# check_header.sh FOLDER LIBRARY CC CXX [MACRO]: cblas.h in FOLDER, with MACRO defined, compiles without a warning as C and C++
# and has a prototype for every CBLAS name that LIBRARY exports.
set -euo pipefail
folder=$1 library=$2 cc=$3 cxx=$4 macro=${5-ZOR_CBLAS_PLAIN}
source=$(mktemp --suffix=.c)
trap 'rm -f "$source"' EXIT
names=$(nm -D --defined-only "$library" | awk '$2 ~ /[TW]/ && $3 ~ /^cblas_/ { print $3 }')
[ "$(wc -w <<<"$names")" -ge 149 ] || { echo "only $(wc -w <<<"$names") CBLAS names in $library"; exit 1; }
{
  echo '#include <cblas.h>'
  echo 'typedef void (*function)(void);'
  echo 'extern const function all[];'
  echo 'const function all[] = {'
  for name in $names; do echo "(function)$name,"; done
  echo '};'
} >"$source"
strict=(-pedantic -Wall -Wextra -Werror -Wno-cast-function-type -fsyntax-only -I "$folder" "-D$macro")
"$cc" -std=c11 "${strict[@]}" -x c "$source"
"$cxx" -std=c++11 "${strict[@]}" -x c++ "$source"
