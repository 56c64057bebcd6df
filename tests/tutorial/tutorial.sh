#!/bin/sh
# Does what the tutorial tells, command by command, and compares what is printed
# with what the page shows. Times and the home's folder are made steady.
#
#   tutorial.sh PAGE TROVIK
#
# Blocks of the page: "console" is run ("$ " begins a command, what follows is
# its output). A comment before a block says what else becomes of it:
# <!-- file: NAME --> writes it, <!-- edit: NAME --> puts it in place of the
# lines of the file that are the same behind a ";", and what follows of them.
set -eu
page=$1
program=$2
unset TROVIK_IMAGE_HELPER TROVIK_MODULE_PATH TROVIK_STATE TROVIK_SETTINGS TROVIK_OPTIONS NO_COLOR COLUMNS CDPATH ENV
unset XDG_DATA_HOME XDG_STATE_HOME XDG_CONFIG_HOME XDG_CACHE_HOME
LC_ALL=C.UTF-8
TERM=xterm
TMP=$(mktemp -d "${TMPDIR:-/tmp}/trovik-tutorial-XXXXXX")
TMP=$(cd "$TMP" && pwd -P)
trap 'rm -rf "$TMP"' EXIT
HOME=$TMP/home/ada
PATH=$TMP/bin:$PATH
export LC_ALL TERM HOME PATH
mkdir -p "$HOME/moon" "$TMP/bin" "$TMP/blocks"
ln -s "$program" "$TMP/bin/trovik"

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# Each block into a file of its own, its first line telling kind and place.
awk -v folder="$TMP/blocks" '
  inside && /^```/ { inside = 0; close(file); next }
  inside { print >file; next }
  /^<!-- (file|edit): .* -->$/ { what = $2 " " $3; next }
  /^```/ {
    file = sprintf("%s/%03d", folder, ++number)
    kind = substr($0, 4)
    if (what == "" && kind != "console") { kind = "unknown " kind }
    print (what == "" ? kind : what) " line " NR >file
    inside = 1; what = ""
    next
  }
  /[^[:space:]]/ { if (what != "") { print "a comment without a block, line " NR; exit 1 } }
' "$page" || fail "the page cannot be taken apart"

steady() {
  sed -e "s|$TMP||g" -e 's/  [0-9][0-9]*\.[0-9] s$/  0.1 s/' -e 's/, in [0-9].* s$/, in 0.5 s/'
}

commands=0
run_command() { # COMMAND EXPECTED LINE
  commands=$((commands + 1))
  # In this shell, so that the next command finds what this one left.
  { eval "$1"; } >"$TMP/out" 2>&1 </dev/null || :
  steady <"$TMP/out" >"$TMP/steady"
  diff -u "$2" "$TMP/steady" >&2 || fail "block at line $3 of the page: \"$1\" prints something else (- page, + printed)"
}

run_console() { # BLOCK LINE
  command=
  : >"$TMP/expected"
  while IFS= read -r text <&3; do
    case $text in
      '$ '*)
        [ -z "$command" ] || run_command "$command" "$TMP/expected" "$2"
        command=${text#??}
        : >"$TMP/expected"
        ;;
      *)
        [ -n "$command" ] || fail "the block at line $2 does not begin with a command"
        printf '%s\n' "$text" >>"$TMP/expected"
        ;;
    esac
  done 3<"$1"
  [ -n "$command" ] || fail "the block at line $2 has no command"
  run_command "$command" "$TMP/expected" "$2"
}

edit_file() { # BLOCK FILE
  awk -v block="$1" '
    BEGIN {
      while ((getline line <block) > 0) { lines[++count] = line; wanted[";" line] = 1 }
    }
    $0 == ";" lines[1] { for (i = 1; i <= count; ++i) { print lines[i] }; done = 1; skip = 1; next }
    skip && /^;[^ ]/ { next }
    { skip = 0; print }
    END { exit !done }
  ' "$2" >"$TMP/edited" || fail "$2 has no line to be taken for the edit"
  cp "$TMP/edited" "$2"
}

cd "$HOME/moon"
for block in "$TMP"/blocks/*; do
  read -r kind name place line <"$block" || :
  sed 1d "$block" >"$TMP/block"
  case $kind in
    console) run_console "$TMP/block" "$place" ;;
    file)
      cp "$TMP/block" "$name"
      chmod +x "$name"
      ;;
    edit) edit_file "$TMP/block" "$(eval "echo $name")" ;;
    *) fail "a block at line $line is none that is run or written: $kind $name" ;;
  esac
done
[ "$commands" -ge 15 ] || fail "the page has lost commands: $commands"
