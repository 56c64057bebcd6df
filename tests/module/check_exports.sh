#!/bin/sh
# Compares what a library exports with a list of names: check_exports.sh NM LIBRARY LIST
set -eu
exported=$("$1" -D --defined-only "$2" | awk '{ print $NF }' | LC_ALL=C sort)
if [ "$exported" != "$(LC_ALL=C sort "$3")" ]; then
  echo "The library does not export exactly what it should:"
  printf '%s\n' "$exported" | diff "$3" - || true
  exit 1
fi
