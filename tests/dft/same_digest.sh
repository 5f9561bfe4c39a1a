#!/usr/bin/env bash
# same_digest.sh RUNNER BUILDS_FOLDER PROGRAM_PREFIX BUILD...: the digests that the engine's test programs of the builds
# print are equal. A build this processor cannot run is named and left out.
set -euo pipefail
first=""
for build in "${@:4}"; do
  text=$("$1" $build "$2/$build" "$3_$build" --gtest_filter='Digest.*') || { [ $? = 77 ] && echo "$build: $text" && continue; exit 1; }
  digest=$(grep '^digest ' <<<"$text")
  echo "$build $digest"
  [ -z "$first" ] || [ "$first" = "$digest" ] || { echo "differs from $first"; exit 1; }
  first=$digest
done
