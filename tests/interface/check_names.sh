#!/usr/bin/env bash
# check_names.sh NAMES SOURCE LIBRARY OBJECTS...: every name that LIBRARY exports stands in NAMES with a file of SOURCE that
# is there, that was compiled into one of the object files listed in OBJECTS with that very name, and that holds the
# template (or the file given for it does).
set -euo pipefail
names=$1 source=$2 library=$3 objects=$4
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
status=0

nm -D --defined-only "$library" | awk '$2 == "T" { sub("@.*", "", $3); print $3 }' | sort >"$folder/exported"
[ -s "$folder/exported" ] || { echo "$library exports nothing"; status=1; }
# name and file of each definition that the linker saw
while read -r object; do
  nm --defined-only "$object" | awk -v file="$(sed 's|.*\.dir/||; s|\.o$||' <<<"$object")" '$2 == "T" { print $3, file }'
done <"$objects" | sort >"$folder/defined"
join "$folder/exported" "$folder/defined" >"$folder/expected"
awk '{ print $1, $2 }' "$names" | sort >"$folder/listed"
# and those that GMP's static library defines
awk '$2 == "libgmp.a" { print $1, $2 }' "$names" | sort >"$folder/archived"
cut -d' ' -f1 "$folder/defined" "$folder/archived" | sort -u >"$folder/known"
comm -23 "$folder/expected" "$folder/listed" | sed 's/^/not listed: /' | grep . && status=1
join -v1 "$folder/exported" "$folder/known" | sed 's/^/defined by no object file: /' | grep . && status=1

while read -r file template home; do
  [ -f "$source/$file" ] || { echo "no file $file"; status=1; continue; }
  grep -qw -- "$template" "$source/$file" || { echo "$file does not name $template"; status=1; }
  grep -qE "(^|[^.>])\b$template(\(| |:|;|<|$)" "$source/${home:-$file}" ||
    { echo "${home:-$file} does not hold $template"; status=1; }
done < <(cut -d' ' -f2- "$names" | grep -v '^libgmp.a ' | sort -u)
# A family is bound to a template, not each name to itself.
pasted=$(awk '$1 ~ /^zor_spblas_.*__/ { print $3 }' "$names" | sort -u | wc -l)
[ "$pasted" -le 40 ] || { echo "$pasted templates behind the sparse kernels"; status=1; }
echo "$(wc -l <"$names") names listed"
exit $status
