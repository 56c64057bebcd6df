#!/usr/bin/env bash
# Checks, from the headers of every program and library below a directory,
# where the loader searches the libraries that they need. Prints a line for
# each breach; exit code 1 if there is one.
#
#   check-search-paths.sh TREE
#
# A search path is relative to the file that has it ($ORIGIN), stays inside the
# tree and leads to a folder that is there. An empty or relative piece
# would be the current directory, where anybody may have put a library.
set -euo pipefail
export LC_ALL=C

tree=$(cd "$1" && pwd -P)
found=0 seen=0
breach() { # FILE TEXT
  printf '%s: %s\n' "${1#"$tree"/}" "$2"
  found=1
}

check_piece() { # FILE PIECE
  local file=$1 piece=$2 rest folder
  case "$piece" in
  "") breach "$file" "an empty search path, which is the current directory" && return ;;
  "\$ORIGIN" | "\$ORIGIN"/*) rest=${piece#"\$ORIGIN"} ;;
  /*) breach "$file" "the search path \"$piece\" is not relative to the file" && return ;;
  *) breach "$file" "the search path \"$piece\" is relative to the current directory" && return ;;
  esac
  folder=$(realpath -m -- "${file%/*}$rest")
  case "$folder/" in
  "$tree"/*) ;;
  *) breach "$file" "the search path \"$piece\" leads out of the tree" && return ;;
  esac
  [ -d "$folder" ] || breach "$file" "the search path \"$piece\" leads nowhere"
}

while IFS= read -r -d '' file; do
  IFS= read -r -n 4 -d '' magic <"$file" || true
  [ "$magic" = $'\x7fELF' ] || continue
  headers=$(readelf --dynamic --wide "$file" 2>&1) || { breach "$file" "cannot be read: $headers" && continue; }
  seen=$((seen + 1))
  paths=() needed=()
  while IFS= read -r line; do
    [[ $line =~ \((RPATH|RUNPATH|NEEDED)\)[^[]*\[(.*)\]$ ]] || continue
    case "${BASH_REMATCH[1]}" in
    NEEDED) needed+=("${BASH_REMATCH[2]}") ;;
    RUNPATH) paths+=("${BASH_REMATCH[2]}") ;;
    RPATH) breach "$file" "the search path \"${BASH_REMATCH[2]}\" comes before that of the user (RPATH, not RUNPATH)" ;;
    esac
  done <<<"$headers"
  for library in "${needed[@]}"; do
    [[ $library != */* ]] || breach "$file" "needs \"$library\" by a path, not by a name"
  done
  for path in "${paths[@]}"; do
    # The last piece too, be it empty.
    while IFS= read -r -d : piece; do
      check_piece "$file" "$piece"
    done <<<"$path:"
  done
done < <(find "$tree" -type f \( -perm /111 -o -name '*.so' -o -name '*.so.*' \) ! -name '*.o' -print0 | sort -z)

[ "$seen" -gt 0 ] || { printf '%s: there is no program and no library\n' "$tree"; exit 1; }
[ "$found" -eq 0 ] || exit 1
printf '%s programs and libraries search where they should\n' "$seen"
