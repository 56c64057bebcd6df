#!/bin/sh
# Does what the tutorial tells, command by command, and writes the page anew with
# what was printed: it must come out the same. Times and the home's folder are
# made steady.
#
#   tutorial.sh PAGE TROVIK             compares
#   tutorial.sh PAGE TROVIK --update    also rewrites the page, when a message
#                                       of the program has changed
#
# Of the page's blocks, "console" ones are run: "$ " begins a command, what
# follows is its output. A comment before any other tells what becomes of it:
# <!-- file: NAME --> writes the file; <!-- edit: NAME --> puts the block in the
# place of the lines that begin with ";" and its first line.
set -eu
page=$1
program=$2
update=${3:-}
unset TROVIK_IMAGE_HELPER TROVIK_MODULE_PATH TROVIK_STATE TROVIK_SETTINGS TROVIK_OPTIONS NO_COLOR COLUMNS CDPATH ENV
unset XDG_DATA_HOME XDG_STATE_HOME XDG_CONFIG_HOME XDG_CACHE_HOME
LC_ALL=C.UTF-8
TERM=xterm
# The page shows a home whose name needs no quotes.
case ${TMPDIR:=/tmp} in
*[!A-Za-z0-9/._-]*) TMPDIR=/tmp ;;
esac
TMP=$(mktemp -d "$TMPDIR/trovik-tutorial-XXXXXX")
TMP=$(cd "$TMP" && pwd -P)
trap 'rm -rf "$TMP"' EXIT
HOME=$TMP/home/ada
PATH=$TMP/bin:$PATH
export LC_ALL TERM HOME PATH
mkdir -p "$HOME" "$TMP/bin"
ln -s "$program" "$TMP/bin/trovik"
cp "$page" "$TMP/page"

fail() {
  echo "FAILED: line $number: $*" >&2
  exit 1
}

run_command() {
  commands=$((commands + 1))
  # In this shell, so that the next command finds what this one left.
  { eval "$1" || :; } >"$TMP/out" 2>&1 </dev/null
  sed -e "s|$TMP||g" -e 's/  [0-9][0-9.]* s$/  0.1 s/' -e 's/, in [0-9].* s$/, in 0.5 s/' "$TMP/out"
}

put_file() {
  case $todo in
    file) cp "$TMP/block" "$name" ;;
    edit)
      eval "name=$name"
      awk -v block="$TMP/block" '
        BEGIN { while ((getline line <block) > 0) lines[++count] = line }
        $0 == ";" lines[1] { for (i = 1; i <= count; ++i) print lines[i]; skip = done = 1; next }
        skip && /^;[^ ]/ { next }
        { skip = 0; print }
        END { exit !done }
      ' "$name" >"$TMP/edited" || fail "$name has no such lines"
      cp "$TMP/edited" "$name"
      ;;
    *) fail "a block is neither run nor written" ;;
  esac
}

number=0
commands=0
block=
todo=
cd "$HOME"
while IFS= read -r text <&3; do
  number=$((number + 1))
  case $block:$text in
    ':```console') block=console ;;
    ':```'*)
      block=other
      : >"$TMP/block"
      ;;
    ':<!-- file: '* | ':<!-- edit: '*)
      todo=${text#<!-- }
      name=${todo#*: }
      name=${name% -->}
      todo=${todo%%:*}
      ;;
    'console:```') block= ;;
    'other:```')
      put_file
      block=
      todo=
      ;;
    'console:$ '*)
      printf '%s\n' "$text"
      run_command "${text#??}"
      continue
      ;;
    console:*) continue ;; # the output as it was
    other:*) printf '%s\n' "$text" >>"$TMP/block" ;;
  esac
  printf '%s\n' "$text"
done 3<"$TMP/page" >"$TMP/new"
[ "$commands" -ge 20 ] || fail "the page has lost commands: there are $commands"
diff -u "$TMP/page" "$TMP/new" >&2 && exit 0
if [ "$update" = --update ]; then
  cp "$TMP/new" "$page"
  exit 0
fi
echo "FAILED: the commands print something else (- page, + printed)" >&2
exit 1
