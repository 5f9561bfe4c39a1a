#!/usr/bin/env bash
# manual.sh PROGRAM VERSION FOLDER: manual pages of zor and of each of its commands, from the texts of --help.
set -euo pipefail
program=$(realpath "$1") version=$2 folder=$3
mkdir -p "$folder"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
page() { # NAME ARGUMENTS...: one page; the wrapper stands for the program with these arguments
  local name=$1
  shift
  printf '#!/bin/sh\nexec "%s" %s "$@"\n' "$program" "$*" >"$scratch/$name"
  chmod +x "$scratch/$name"
  local what
  what=$("$scratch/$name" --help | head -1 | sed 's/\.$//')
  help2man --no-info --no-discard-stderr --version-string="$version" --name="$what" --output="$folder/$name.1" \
    "$scratch/$name"
  gzip -9nf "$folder/$name.1"
}
page zor
"$program" --help | sed -n '/^Subcommands:/,$s/^  \([a-z][a-z0-9-]*\) .*/\1/p' | while read -r command; do
  page "zor-$command" "$command"
done
