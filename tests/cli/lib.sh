# Shared by the command line tests. A script is started with the program, the
# module and the helper; it works in a directory of its own, with a home and
# modules of its own, and ends at the first difference.
#
#   type_file NAME <<E     puts a type file among the modules
#   run CODE WORD...       runs trovik and demands the exit code, and that the
#                          page tells each key of its JSON
#   out_is / err_is <<E    demands exactly this output of the last run
#   compare FILE <<E       demands it of a file; see steady
#   out_has TEXT           demands a line that holds the text
#   fail TEXT              ends the test

set -eu
unset TROVIK_IMAGE_HELPER TROVIK_MODULE_PATH TROVIK_STATE TROVIK_SETTINGS TROVIK_OPTIONS NO_COLOR COLUMNS CDPATH ENV
LC_ALL=C.UTF-8
TERM=xterm # continuous integration often has none, and then nothing counts as a terminal
export LC_ALL TERM

TROVIK=$1
MODULE=$2
HELPER=$3
FORMATS=$(cd "$(dirname "$0")" && until [ -f docs/formats.md ] || [ "$PWD" = / ]; do cd ..; done && pwd -P)/docs/formats.md

TMP=$(mktemp -d "${TMPDIR:-/tmp}/trovik-cli-XXXXXX")
TMP=$(cd "$TMP" && pwd -P)
pid=
# A program that still runs could write into the directory while it is removed.
trap '[ -z "$pid" ] || { kill "$pid" && wait "$pid"; } 2>/dev/null || :; rm -rf "$TMP"' EXIT
trap 'exit 1' INT TERM HUP

HOME=$TMP/home
XDG_DATA_HOME=$HOME/data
XDG_STATE_HOME=$HOME/state
XDG_CONFIG_HOME=$HOME/config
XDG_CACHE_HOME=$HOME/cache
TROVIK_MODULE_PATH=$TMP/modules
export HOME XDG_DATA_HOME XDG_STATE_HOME XDG_CONFIG_HOME XDG_CACHE_HOME TROVIK_MODULE_PATH
mkdir -p "$HOME" "$TMP/modules" "$TMP/work"
ln -s "$MODULE" "$TMP/modules/Tessivar.so"
cd "$TMP/work"

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

type_file() {
  cat >"$TMP/modules/$1.tvx"
}

# A type that "renders" a scene sequence: copies each scene to an image.
sketch_type() {
  type_file sketch <<END
[Module]
ID=11111111-2222-3333-4444-555555555555
Name=Sketch
Shortcut=sketch, sk
Help=Draws one picture for each numbered scene file.
Command=-c ". ./\$0" draw.sh $(printf '%s' '$(ActualScene)') $(printf '%s' '$(OutputFolder.Enquote)')
ImageStartText=saved:
CheckForMultipleFiles=Yes
[ErrorText]
1=fatal:
[OverrideDefaults]
Executable=/bin/sh
OutputFolder=$(printf '%s' '$(Scene.Branch)')/images
END
  # Started in the scenes' folder; "$1" is the scene, "$2" the output folder.
  cat >draw.sh <<'END'
echo "drawing $1"
grep -q broken "$1" && { echo "reading"; echo "fatal: $1 is broken"; echo "giving up"; exit 3; }
cp "$1" "$2/$(basename "$1" .txt).drw"
echo "saved: $2/$(basename "$1" .txt).drw"
END
}

# A type that puts a sequence of files together; fails where "broken" lies.
join_type() {
  type_file join <<'END'
[Module]
ID=31111111-2222-3333-4444-555555555555
Name=Join
Shortcut=join
Help=Puts a sequence together.
Command=-c "[ ! -e broken ] || exit 3; cat $(ActualScene) >'$(OutputFolder)/$(Title).all'; echo saved: '$(OutputFolder)/$(Title).all'"
ImageStartText=saved:
CheckForMultipleFiles=Yes
[PrimaryParameters]
1=Title
[Title]
Type=Text
Label=Title
Default=all
[OverrideDefaults]
Executable=/bin/sh
PacketSize=1000
FileCheck=Work
END
}

# Scenes shot_0001.txt to shot_000N.txt in the current directory.
scenes() {
  for number in $(seq "$1"); do
    echo "scene $number" >"shot_000$number.txt"
  done
}

run() {
  expected=$1
  shift
  actual=0
  "$TROVIK" "$@" >"$TMP/out" 2>"$TMP/err" </dev/null || actual=$?
  if [ "$actual" != "$expected" ]; then
    cat "$TMP/out" "$TMP/err" >&2
    fail "trovik $*: exit code $actual, not $expected"
  fi
  case " $* " in
  *' --json '*)
    "$HELPER" documented "$FORMATS" <"$TMP/out" || fail "trovik $*: docs/formats.md lacks what it prints"
    ;;
  esac
}

# A word that is the name of a file is quoted where it needs it, and that may be
# for the sake of TMP alone: then such quotes are no part of the comparison.
quotes=
case $TMP in
*[!A-Za-z0-9/._-]*) quotes='s|"\(TMP[^" ]*\)"|\1|g' ;;
esac

# The output with what differs from run to run written as TMP and TIME.
steady() {
  sed -e "s|$TMP|TMP|g" -e "$quotes" -e 's/[0-9][0-9]*\.[0-9] s$/TIME/' -e 's/, in [0-9].* s$/, in TIME/' "$1"
}

compare() {
  sed -e "$quotes" >"$TMP/expected"
  steady "$1" >"$TMP/steady"
  diff -u "$TMP/expected" "$TMP/steady" >&2 || fail "the output differs (- expected, + printed)"
}

# Waits until a file has so many lines, written by a program that outlives the
# one that started it, such as an end command.
wait_for_lines() {
  tries=0
  until [ "$(wc -l 2>/dev/null <"$1" || echo 0)" = "$2" ]; do
    tries=$((tries + 1))
    [ $tries -lt 3000 ] || fail "$1 never had $2 lines"
    sleep 0.01
  done
}

out_is() { compare "$TMP/out"; }
err_is() { compare "$TMP/err"; }
out_is_empty() { [ ! -s "$TMP/out" ] || { cat "$TMP/out" >&2; fail "there is output"; }; }
err_is_empty() { [ ! -s "$TMP/err" ] || { cat "$TMP/err" >&2; fail "there are errors"; }; }

out_has() {
  grep -q -F -e "$1" "$TMP/out" || { cat "$TMP/out" >&2; fail "no line holds \"$1\""; }
}

file_is() {
  cat >"$TMP/expected"
  diff -u "$TMP/expected" "$1" >&2 || fail "$1 differs (- expected, + is)"
}

# Waits until a file holds a text that the program $pid is going to write.
wait_for() {
  while ! grep -q -F -e "$2" "$1" 2>/dev/null; do
    kill -0 "$pid" 2>/dev/null || fail "the program ended before $1 held \"$2\""
    sleep 0.02
  done
}
