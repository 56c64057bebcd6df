#!/usr/bin/env bash
# Compares the sets of scripts/install-packages.sh with what is called: every
# header, program and CMake package must come from a package that is named
# where it is called for, and every named package must be called. So a package
# that is missing from a list is noticed on a machine that has it, too.
#
#   check-packages.sh ROOT BUILD-DIRECTORY C++-COMPILER [INSTALL-SCRIPT]
#
# Which package has a file, dpkg says; what is not on this machine is in
# known.txt. What every Debian has (essential, required, apt) needs no name. A package without files of its own stands for those that it
# depends on.
#
# Programs are found as the words that begin a command; not in texts that a
# script writes, or hands to another shell or system.
set -euo pipefail
export LC_ALL=C

root=$1 build=$2 compiler=$3
script=${4:-$root/scripts/install-packages.sh}
here=$(cd "$(dirname "$0")" && pwd)
cd "$root"
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
install=scripts/install-packages.sh # in what is said
failures=0
breach() {
  printf '%s\n' "$*"
  failures=$((failures + 1))
}

# The sets that must have what a file calls.
sets_of() { # FILE -> sets
  case $1 in
  demo.sh) sets='build demo' ;;
  check.sh) sets='build test slurm page catalogue' ;;
  catalogue/*.tvx) sets='demo catalogue' ;;
  scripts/tidy.sh) sets='build tidy' ;;
  scripts/package.sh | packaging/*) sets='build package' ;;
  bench/page) sets='build page bench' ;;
  bench/*) sets='build bench' ;;
  tests/fresh/*) sets=fresh ;; # the cases themselves call what every Debian has
  tests/slurm/*) sets='build test slurm' ;;
  tests/page/*) sets='build test page' ;;
  tests/catalogue/*) sets='build test catalogue' ;;
  tests/*) sets='build test' ;;
  *) sets=build ;;
  esac
}

sources() { # PATTERN...
  if [ -e .git ]; then
    git -c safe.directory='*' ls-files -- "$@"
  else
    local pattern names=()
    for pattern in "$@"; do names+=(-o -path "./$pattern"); done
    find . \( -path ./build -o -path ./out \) -prune -o -type f \( "${names[@]:1}" \) -printf '%P\n'
  fi
}

# The installed packages that these depend on, and they themselves.
closure() { # PACKAGE...
  awk -F '\t' -v roots="$*" '
    function name_of(text) { gsub(/\(.*|:any|[ ]/, "", text); return text }
    $2 == "installed" {
      installed[$1] = 1
      depends[$1] = $3
      n = split($4, words, ",")
      for (i = 1; i <= n; i++) provider[name_of(words[i])] = $1
    }
    END {
      n = split(roots, queue, " ")
      for (i = 1; i <= n; i++) seen[queue[i]] = 1
      for (i = 1; i <= n; i++) {
        print queue[i]
        m = split(depends[queue[i]], clauses, ",")
        for (j = 1; j <= m; j++) {
          # Of alternatives the first that is there.
          k = split(clauses[j], words, "|")
          for (l = 1; l <= k; l++) {
            word = name_of(words[l])
            if (!(word in installed)) word = provider[word]
            if (word == "") continue
            if (!(word in seen)) { seen[word] = 1; queue[++n] = word }
            break
          }
        }
      }
    }' "$tree/installed"
}

# KIND NAME -> the file that is called, or nothing
declare -a include_folders
find_header() {
  local folder
  for folder in "${include_folders[@]}"; do
    [ ! -f "$folder/$1" ] || { echo "$folder/$1"; return; }
  done
}
# What CMake has found for a package is in its cache, under several names.
find_cmake() {
  local value file
  while read -r value; do
    for file in "$value" "$value"/*[Cc]onfig.cmake; do
      [ ! -f "$file" ] || { echo "$file"; return; }
    done
  done < <(awk -F '[:=]' -v name="$1" '
    BEGIN { name = tolower(name) }
    $2 ~ /PATH$/ { key = tolower($1); gsub("_", "", key); sub("_", "", name); if (index(key, name) == 1) print $3 }
    ' "$build/CMakeCache.txt" | grep -v "^$build")
}
cached() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }

### What is called: "KIND<TAB>PLACE<TAB>NAME", the first place of each area

mapfile -t scripts < <(sources '*.sh' .ci/run bench/growth bench/page bench/peers bench/run)
for file in "${scripts[@]}"; do
  # shellcheck disable=SC2094  # only its name
  shfmt --language-dialect bash --filename "$file" --to-json <"$file"
done | jq --raw-output --from-file "$here/calls.jq" >"$tree/words"

{
  grep -vE $'^(function|type)\t' "$tree/words"
  # A type's program, and that of a type which a script runs.
  sources 'catalogue/*.tvx' | xargs grep -HnE '^Executable=' | sed -E 's/^([^:]*:[0-9]+):Executable=/program\t\1\t/'
  while IFS=$'\t' read -r kind place type; do
    [ "$kind" != type ] || printf 'program\t%s\t%s\n' "$place" "$(sed -n 's/^Executable=//p' "catalogue/$type.tvx")"
  done <"$tree/words"

  grep -HnE '"generator": "Ninja"' CMakePresets.json | sed -E 's/^([^:]*:[0-9]+):.*/program\t\1\tninja/'

  # The recipes of a makefile.
  sources packaging/debian/rules | xargs --no-run-if-empty awk -v OFS='\t' '
    /^\t/ { print "program", FILENAME ":" FNR, $1 }'

  sources '*.h' '*.cpp' | xargs grep -HnE '^[ \t]*#[ \t]*include[ \t]*<' |
    sed -E 's/^([^:]*:[0-9]+):[^<]*<([^>]*)>.*/header\t\1\t\2/'

  # A name in a loop stands for every word of the loop.
  # shellcheck disable=SC2016  # CMake's variables
  sources CMakeLists.txt '*/CMakeLists.txt' '*.cmake' | xargs awk -v OFS='\t' '
    function call(kind, name) { print kind, FILENAME ":" FNR, name }
    { line = $0; sub(/^[ \t]+/, ""); gsub(/[()]/, " ") }
    line ~ /^#/ { next }
    $1 == "foreach" { loop = "${" $2 "}"; words = $0 }
    $1 == "find_package" && $2 !~ /^(Threads|Trovik)$/ { call("cmake", $2) }
    $1 == "find_library" || $1 == "find_path" { call("variable", $2 ":" $3) }
    $1 == "find_program" && $3 != loop { call("program", $3) }
    $1 == "find_program" && $3 == loop {
      n = split(words, each, " ")
      for (i = 3; i <= n; i++) call("program", each[i])
    }
    $1 == "pkg_check_modules" {
      for (i = 3; i <= NF; i++) if ($i !~ /^[A-Z_]+$/) { sub(/[<>=].*/, "", $i); call("module", $i) }
    }'
} >"$tree/all"
# One call of each is enough, for each of the sets that must serve it.
declare -A seen
while IFS=$'\t' read -r kind place name; do
  sets_of "${place%:*}"
  [ -z "${seen["$kind $name $sets"]:-}" ] || continue
  seen["$kind $name $sets"]=1
  printf '%s\t%s\t%s\t%s\n' "$kind" "$place" "$sets" "$name"
done <"$tree/all" >"$tree/calls"

### Which package has it

dpkg-query --show --showformat='${Package}\t${db:Status-Status}\t${Pre-Depends}, ${Depends}\t${Provides}\t${Essential}\t${Priority}\n' \
  >"$tree/installed"
{ dpkg --search '/bin/*' '/sbin/*' '/usr/bin/*' '/usr/sbin/*' '/usr/games/*' 2>/dev/null || true; } |
  awk -F ': ' '!/^diversion/ { n = split($1, packages, ", "); name = $2; sub(/.*\//, "", name)
    for (i = 1; i <= n; i++) { sub(/:.*/, "", packages[i]); print name "\t" packages[i] } }' >"$tree/programs"

mapfile -t include_folders < <(
  "$compiler" -E -x c++ -v /dev/null 2>&1 | sed -n '/^#include </,/^End/s/^ //p'
  grep -oE -- '-isystem [^ ]+' "$build/compile_commands.json" | sort -u | cut -d ' ' -f 2
)

# Words that begin a command, but are the shell's or a script's own.
declare -A shells_own functions
while read -r name; do shells_own[$name]=1; done < <(compgen -b && compgen -k)
while read -r name; do functions[$name]=1; done < <(awk -F '\t' '$1 == "function" { print $3 }' "$tree/words")

declare -A program_packages file_packages known
while IFS=$'\t' read -r name package; do
  program_packages[$name]+=" $package"
done <"$tree/programs"
while read -r kind name package; do
  known["$kind $name"]=$package
done < <(grep -v '^#' "$here/known.txt")

# Of a program that others can stand for, the packages of all of them.
find_packages() { # PROGRAM -> packages
  local target
  packages=${program_packages[$1]:-}
  if [ -z "$packages" ] && [ -L "/etc/alternatives/$1" ]; then
    for target in $(update-alternatives --list "$1"); do
      packages+=${program_packages[${target##*/}]:-}
    done
  fi
}

while IFS=$'\t' read -r kind place sets name; do
  case $kind in
  header) file=$(find_header "$name") ;;
  cmake) file=$(find_cmake "$name") ;;
  module) file=$(pkg-config --path "$name" 2>/dev/null || true) ;;
  variable)
    file=$(cached "${name%%:*}")
    name=${name#*:}
    [ ! -d "$file" ] || file=$file/$name
    ;;
  program) file= ;;
  esac
  printf '%s\t%s\t%s\t%s\t%s\n' "$kind" "$place" "$sets" "$name" "$file"
done <"$tree/calls" >"$tree/found"
while IFS= read -r line; do
  packages=${line%%: *}
  file_packages[${line#*: }]=${packages//:amd64/}
done < <(cut -f 5 "$tree/found" | grep . | sort -u | xargs dpkg --search 2>/dev/null | { grep -v ^diversion || true; })

### What is named

declare -A named stands_for reason used
mapfile -t all_sets < <("$script" --list)
for set in "${all_sets[@]}"; do
  named[$set]=$("$script" --list "$set" | tr '\n' ' ')
done
for package in $(printf '%s\n' "${named[@]}" | tr ' ' '\n' | sort -u); do
  parts=" $(awk -F '\t' -v name="$package" '$1 == name { gsub(/\([^)]*\)|[,|]|:any/, " ", $3); print $3 }' "$tree/installed") "
  if [ "$package" = build-essential ]; then
    stands_for[$package]=" $(closure build-essential | tr '\n' ' ')"
  elif dpkg-query --listfiles "$package" >"$tree/files" 2>/dev/null &&
    ! grep -qvE '^/(\.|usr(/share(/(doc|bug|lintian).*)?)?)$' "$tree/files"; then
    stands_for[$package]=$parts
  else
    stands_for[$package]=" $(tr ' ' '\n' <<<"$parts" | grep -F "$package-" | tr '\n' ' ' || true)"
  fi
done
# Lines "#   PACKAGE [SET...]: reason" of the script.
while IFS=$'\t' read -r package sets; do
  for set in $sets; do reason["$set $package"]=1; done
done < <(sed -nE 's/^#   ([^ ]+) \[([a-z ]+)\]: .+/\1\t\2/p' "$script")

# shellcheck disable=SC2046  # a word a package
everywhere=" $(closure apt $(awk -F '\t' '$2 == "installed" && ($5 == "yes" || $6 == "required") { print $1 }' "$tree/installed") | tr '\n' ' ')"

### The comparison

while IFS=$'\t' read -r kind place sets name file; do
  packages=
  if [ "$kind" = program ]; then
    name=${name##*/}
    [[ $name =~ ^[A-Za-z][A-Za-z0-9+._-]*$ && -z ${shells_own[$name]:-} ]] || continue
    # Asked for, and used only where it is.
    [ "$name" != sudo ] || continue
    find_packages "$name"
  elif [ -n "$file" ]; then
    packages=${file_packages[$file]:-}
  fi
  packages=${packages:-${known["$kind $name"]:-}}
  if [ -z "$packages" ]; then
    # A word of a text that only looks like a script is no program either.
    [[ $kind = program && $place != *CMake* && $place != *.tvx:* ]] ||
      breach "$place: which package has the $kind \"$name\"? Install it, or name it in tests/packages/known.txt"
    continue
  fi

  good=
  for package in ${packages//,/ }; do
    [[ $everywhere != *" $package "* ]] || good=1
    for set in $sets; do
      for name_in_set in ${named[$set]:-}; do
        if [[ $name_in_set = "$package" || ${stands_for[$name_in_set]} = *" $package "* ]]; then
          good=1
          used["$set $name_in_set"]=1
        fi
      done
    done
  done
  if [ -z "$good" ]; then
    # A function may have the name of a program.
    if [ "$kind" = program ] && [ -n "${functions[$name]:-}" ]; then continue; fi
    breach "$place: the $kind \"$name\" comes from the package ${packages# }, which $install does not name in: $sets"
  fi
done <"$tree/found"

for set in "${all_sets[@]}"; do
  for package in ${named[$set]}; do
    if [ -n "${reason["$set $package"]:-}" ]; then
      [ -z "${used["$set $package"]:-}" ] || breach "$install: the reason for $package in the set $set is not needed, since it is called"
      unset "reason[$set $package]"
    elif [ -z "${used["$set $package"]:-}" ]; then
      breach "$install: nothing calls $package of the set $set; take it out, or give a reason: #   $package [$set]: ..."
    fi
  done
done
for key in "${!reason[@]}"; do
  breach "$install: there is a reason for ${key#* } in the set ${key%% *}, which does not name it"
done

[ "$failures" -eq 0 ] || exit 1
printf 'all of %s calls are served by the packages that are named for them\n' "$(wc -l <"$tree/found")"
