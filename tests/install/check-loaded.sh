#!/usr/bin/env bash
# Checks that programs and libraries load nothing from the current directory,
# from the folder of the tree that they lie in, or from the one above it:
# libraries of the names that they need are put there. Prints a line for each
# breach; exit code 1 if there is one.
#
#   check-loaded.sh C++-COMPILER TREE FILE...       FILE: relative to TREE
set -euo pipefail
export LC_ALL=C
unset LD_LIBRARY_PATH LD_PRELOAD

compiler=$1 original=$2
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
work=$(cd "$work" && pwd -P)

# A copy, so that nothing is put beside the original.
tree=$work/above/tree
mkdir -p "$tree" "$work/current"
for file in "$@"; do
  mkdir -p "$tree/$(dirname "$file")"
  cp "$original/$file" "$tree/$file"
done

needed() { readelf --dynamic --wide "$1" | sed -n 's/.*(NEEDED)[^[]*\[\(.*\)\]$/\1/p'; }

"$compiler" -shared -o "$work/decoy" -x c++ - <<<''
declare -A decoys=()
for file in "$@"; do
  for library in $(needed "$original/$file"); do
    for folder in "$work/current" "$work/above" "$tree"; do
      cp "$work/decoy" "$folder/${library##*/}"
      decoys["$folder/${library##*/}"]=1
    done
  done
done
[ ${#decoys[@]} -gt 0 ] || { echo "nothing is needed, so nothing is shown"; exit 1; }

found=0
cd "$work/current"
for file in "$@"; do
  # "NAME => PATH (ADDRESS)", or "PATH (ADDRESS)" for what was found by a path.
  while read -r name arrow path _; do
    [ "$arrow" = "=>" ] || path=$name
    if [ -n "$path" ] && [ -n "${decoys[$(realpath -m -- "$path")]:-}" ]; then
      printf '%s: loads %s\n' "$file" "$path"
      found=1
    fi
  done < <(ldd "$tree/$file" 2>&1)
done
[ "$found" -eq 0 ] || exit 1
printf '%s files load nothing that lies about\n' "$#"
