#!/usr/bin/env bash
# Installs into temporary prefixes and removes that again: what was there
# before is there, and nothing else.
#
#   test-uninstall.sh CMAKE BUILD-DIRECTORY
set -euo pipefail
export LC_ALL=C.UTF-8

cmake=$1 build=$2
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
tree=$(cd "$tree" && pwd -P)

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}
quietly() { # COMMAND...
  "$@" >"$tree/output" 2>&1 || { cat "$tree/output" >&2; fail "$*"; }
}
install_into() { quietly "$cmake" --install "$build" --prefix "$1"; }
uninstall() { # PREFIX EXIT-CODE OUTPUT
  local output status=0
  output=$(bash "$1/share/trovik/uninstall" 2>&1) || status=$?
  [ "$status,$output" = "$2,$3" ] || fail "uninstall in $1 ended with $status: $output
expected $2: $3"
}
files() { (cd "$1" && find . -mindepth 1 | sort); }
same_files() { # WHAT EXPECTED DIRECTORY
  [ "$2" = "$(files "$3")" ] || fail "$1:
$(diff <(printf '%s\n' "$2") <(files "$3") || true)"
}

# A prefix with a hostile name, empty folders and files of others in it.
prefix="$tree/some place; [with] \$(names) \"quoted\" ë"
mkdir -p "$prefix/bin" "$prefix/share/man/man1" "$prefix/lib/empty" "$prefix/share/doc/other"
touch "$prefix/bin/another program" "$prefix/share/doc/other/page"
before=$(files "$prefix")
install_into "$prefix"
installed=$(find "$prefix" ! -type d | wc -l)
count=$((installed - 2))
[ "$count" -gt 100 ] || fail "only $count files were installed"

# Another installation elsewhere neither loses nor gains by it.
install_into "$tree/second"
second=$(files "$tree/second")
uninstall "$prefix" 0 "$count files were removed from $prefix"
same_files "after the first was removed" "$before" "$prefix"
same_files "the second, after the first was removed" "$second" "$tree/second"

# What others put into its folders stays, with the folders; no link is followed.
touch "$tree/second/lib/trovik/modules/own.tvx"
mkdir "$tree/outside"
touch "$tree/outside/kept"
ln -s "$tree/outside" "$tree/second/share/trovik/linked"
uninstall "$tree/second" 0 "$count files were removed from $tree/second"
same_files "with files of others" "./lib
./lib/trovik
./lib/trovik/modules
./lib/trovik/modules/own.tvx
./share
./share/trovik
./share/trovik/linked" "$tree/second"
[ -e "$tree/outside/kept" ] || fail "a link was followed"

# Installed twice into the same place, the second time with a file less; then
# moved. What was made by the first time is known.
install_into "$prefix"
echo "share/trovik/of an older version.txt" >>"$prefix/share/trovik/installed.txt"
touch "$prefix/share/trovik/of an older version.txt"
install_into "$prefix"
mv "$prefix" "$tree/moved"
uninstall "$tree/moved" 0 "$((count + 1)) files were removed from $tree/moved"
same_files "after it was installed twice and moved" "$before" "$tree/moved"

# A prefix that the installation made goes with it; that of another does not.
install_into "$tree/made/here"
mkdir "$tree/made/here/mine"
uninstall "$tree/made/here" 0 "$count files were removed from $tree/made/here"
same_files "a prefix with something in it" "./mine" "$tree/made/here"
install_into "$tree/made/there"
uninstall "$tree/made/there" 0 "$count files were removed from $tree/made/there"
same_files "a prefix that was made" "./here
./here/mine" "$tree/made"

# Below a folder that is packed up later.
DESTDIR="$tree/stage" install_into /opt/trovik
uninstall "$tree/stage/opt/trovik" 0 "$count files were removed from $tree/stage/opt/trovik"
[ ! -e "$tree/stage/opt/trovik" ] || fail "something is left of $tree/stage/opt/trovik"

# Refused, with nothing removed.
prefix=$tree/refused
install_into "$prefix"
list=$prefix/share/trovik/installed.txt
cp "$list" "$tree/list"
refused() { # OUTPUT
  local there
  there=$(files "$prefix")
  uninstall "$prefix" 1 "$1"
  same_files "after a refusal" "$there" "$prefix"
}
rm "$list"
refused "uninstall: $list: there is no such list, so it is not known what was installed; nothing was removed.
Install into the same place again (cmake --install), and the list is there"
: >"$list"
refused "uninstall: $list: the list is empty; nothing was removed"
for line in /etc/passwd ../outside/kept share/../../outside/kept ..; do
  { cat "$tree/list"; printf '%s\n' "$line"; } >"$list"
  refused "uninstall: $list: the line \"$line\" leads out of $prefix; nothing was removed"
done
cp "$tree/list" "$list"
cp "$prefix/share/trovik/uninstall" "$tree/uninstall"
output=$(bash "$tree/uninstall" 2>&1) && fail "the script worked where it was not installed"
[ "$output" = "uninstall: $tree: this script only works where it was installed, in PREFIX/share/trovik" ] ||
  fail "the script elsewhere says: $output"
output=$(bash "$prefix/share/trovik/uninstall" now 2>&1) && fail "an argument was taken"
[ "$output" = 'uninstall: unknown arguments "now"; there are none' ] || fail "with an argument it says: $output"

# A file that cannot be removed: the list stays, and it can be tried again.
rm "$prefix/bin/trovik"
mkdir "$prefix/bin/trovik"
output=$(bash "$prefix/share/trovik/uninstall" 2>/dev/null) && fail "a file was not removed, and nobody said so"
[ -e "$list" ] || fail "the list is gone though files are left"
rmdir "$prefix/bin/trovik"
uninstall "$prefix" 0 "$count files were removed from $prefix"
[ ! -e "$prefix" ] || fail "something is left of $prefix"

echo "an installation is removed, and nothing else"
