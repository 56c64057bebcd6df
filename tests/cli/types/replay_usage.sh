# What replay cannot do is said before anything is read.
. "$(dirname "$0")/../lib.sh"
type_file paint <<'END'
[Module]
ID=11111111-2222-3333-4444-555555555555
Name=Paint
Shortcut=paint
END
refused() {
  run 2 replay "$@"
  out_is_empty
  cat "$TMP/err" >>"$TMP/all"
}
: >log
refused
refused paint
refused pant log
refused paint nolog
refused paint "$TMP/work"
refused paint log --exit 256
refused paint log --exit SIGKIL
refused paint log --range 1-3x2
refused paint log --range 1-x
refused paint log --scene nosuch.pnt
refused paint log --set Widht=3
refused paint log more
cp "$TMP/all" "$TMP/err"
err_is <<'END'
trovik: error: "trovik replay" needs the name of a job type
hint: "trovik types" lists them; see "trovik replay --help"
trovik: error: "trovik replay" needs a saved log, or - for standard input
hint: see "trovik replay --help"
trovik: error: there is no job type "pant"
hint: did you mean "Paint"? "trovik types" lists them all
trovik: error: there is no log "nolog"
hint: name the file that holds the program's output, or - for standard input
trovik: error: "TMP/work" is a folder
hint: name one log in it
trovik: error: --exit: "256" is no way for a program to end
hint: write its exit code from 0 to 255, or a signal such as SIGKILL or "signal 9"
trovik: error: --exit: "SIGKIL" is no way for a program to end
hint: write its exit code from 0 to 255, or a signal such as SIGKILL or "signal 9"
trovik: error: --range: "1-3x2" is not one run of frames
hint: a log is of one start of the program: name its frames as FIRST-LAST
trovik: error: --range: frame range:1:3: a number is missing after "-"
    1 | 1-x
      |   ^
trovik: error: there is no scene file "TMP/work/nosuch.pnt"
hint: check the name and the directory
trovik: error: "Paint" has no parameter "Widht"
hint: "trovik type Paint" lists them all
trovik: error: one argument too many: "more"
hint: see "trovik replay --help"
END
