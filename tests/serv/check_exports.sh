#!/usr/bin/env bash
# check_exports.sh LIBRARY TABLE INCLUDE COMPILER NEEDED: the names that LIBRARY exports are those of TABLE, none missing
# and none besides, and it needs no library but those that the expression NEEDED matches.
set -euo pipefail
library=$1 table=$2 include=$3 compiler=$4 needed=$5
names=$(mktemp -d)
trap 'rm -rf "$names"' EXIT
printf '#define ZOR_NAME(name) name\n#include "zor/tables/%s"\n' "$table" |
  "$compiler" -E -P -x c++ -I "$include" - | tr -s ' ' '\n' | sed '/^$/d' | sort >"$names/table"
nm -D --defined-only "$library" | awk '{ print $NF }' | sed 's/@.*//' | sort >"$names/exported"
status=0
[ -s "$names/table" ] || { echo "the table is empty"; status=1; }
uniq -d "$names/table" | sed 's/^/twice in the table: /' | grep . && status=1
comm -23 "$names/table" "$names/exported" | sed 's/^/not exported: /' | grep . && status=1
comm -13 "$names/table" "$names/exported" | sed 's/^/not in the table: /' | grep . && status=1
readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | grep -Evx "$needed" | sed 's/^/needed: /' &&
  status=1
echo "$(wc -l <"$names/exported") names in $library"
exit $status
