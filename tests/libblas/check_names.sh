#!/usr/bin/env bash
# check_names.sh LIBRARY SONAME SUFFIX NAMES: the library has that soname, exports every name of the list with the suffix,
# beside them nothing but BLAS names, and what a program may replace is weak.
set -euo pipefail
library=$1 soname=$2 suffix=$3 names=$4
readelf -d "$library" | grep -F "soname: [$soname]" >/dev/null || { echo "$library: soname is not $soname"; exit 1; }
exported=$(nm -D --defined-only "$library" | awk '{print $3}' | sort)
missing=$(comm -23 <(sed "s/\$/$suffix/" "$names" | sort) <(echo "$exported"))
[ -z "$missing" ] || { echo "missing:" $missing; exit 1; }
strange=$(echo "$exported" | grep -vE "^(cblas_[a-z0-9]+(_sub)?|[a-z0-9]+_|xerbla_array_|RowMajorStrg|CBLAS_CallFromC)$suffix\$" || true)
[ -z "$strange" ] || { echo "strange:" $strange; exit 1; }
for name in xerbla_ cblas_xerbla; do
  nm -D "$library" | grep " W $name$suffix\$" >/dev/null || { echo "$name is not weak"; exit 1; }
done
echo "$(wc -l <"$names") names of the reference, $(echo "$exported" | wc -l) in all"
