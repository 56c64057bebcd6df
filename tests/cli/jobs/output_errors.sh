# What cannot be printed is an error, of every verb; a reader that has gone is
# none.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 2
run 0 run sketch shot_0001.txt
refused() {
  code=0
  "$TROVIK" "$@" >/dev/full 2>"$TMP/err" </dev/null || code=$?
  [ $code = 1 ] || fail "$* ends with $code"
  err_is <<'END'
trovik: error: cannot write the output: No space left on device
END
}
for verb in jobs "jobs --json" "show 1" stats types "type sketch" "log 1" "images 1" "run --new sketch shot_0001.txt" \
  "run --new sketch shot_0001.txt --json" "run --dry-run sketch shot_0001.txt" "submit --new sketch shot_0001.txt" \
  "detect sketch shot_0001.txt" "find sketch" --help --version; do
  refused $verb
done
code=0
"$TROVIK" types >&- 2>"$TMP/err" </dev/null || code=$?
[ $code = 1 ] || fail "a closed output ends with $code"
err_is <<'END'
trovik: error: cannot write the output: Bad file descriptor
END
