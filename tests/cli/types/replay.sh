# A saved log through a type's own rules, for people.
. "$(dirname "$0")/../lib.sh"
type_file paint <<'END'
[Module]
ID=11111111-2222-3333-4444-555555555555
Name=Paint
Shortcut=paint
ImageStartText=Saved: '
ImageEndText='
ImageNotEndText=(preview)
ErrorDetectPosition=Yes
[SuccessText]
1=Paint is done
[ErrorText]
1=error:
[ErrorIgnore]
1=0 decoder errors
END

cat >good.log <<'END'
Paint 2.1
reading scene
sample 1
error: none, that is 0 decoder errors
sample 2
sample 3
sample 4
Saved: '/o/a_0001.png'
Saved: '/o/a_0001_small.png' (preview)
Saved: nothing
sample 5
Saved: '/o/a_0002.png'
Paint is done in 3 s
bye
END
run 0 replay paint good.log
out_is <<'END'
   ...
     2                 reading scene
     3                 sample 1
     4  ignored error  error: none, that is 0 decoder errors
                       ErrorIgnore "0 decoder errors", though ErrorText "error:"
     5                 sample 2
     6                 sample 3
   ...
     8  image          Saved: '/o/a_0001.png'
                       ImageStartText "Saved: '", ImageEndText "'"
     9  dropped        Saved: '/o/a_0001_small.png' (preview)
                       ImageNotEndText "(preview)"
   ...
    12  image          Saved: '/o/a_0002.png'
                       ImageStartText "Saved: '", ImageEndText "'"
    13  success        Paint is done in 3 s
                       SuccessText "Paint is done"
   ...

log      good.log  14 lines: 2 images, 1 dropped, 1 success, 1 ignored error
images   2
  /o/a_0001.png
  /o/a_0002.png
files    not checked; --files does
ended    with exit code 0; --exit tells another end
verdict  good for Paint, by a success text (line 13)
END

# With a success text the exit code does not count; an error line does.
printf 'Paint is done\nlast words\nPaint: ERROR: no\nerror: again\nSaved: nothing\n' >bad.log
run 1 replay paint bad.log --exit 0 --all
out_is <<'END'
     1  success        Paint is done
                       SuccessText "Paint is done"
     2                 last words
     3  error          Paint: ERROR: no
                       ErrorText "error:"
     4  error          error: again
     5                 Saved: nothing

log      bad.log  5 lines: 1 success, 2 errors
ended    with exit code 0
verdict  bad for Paint, by an error line (line 3)
note     Error line: Paint: ERROR: no
END

# What the program said last, where no line decided.
printf 'one\r\ntwo\rthree\nfour' | "$TROVIK" replay paint - --exit SIGKILL >"$TMP/out" && fail "a killed program is called good"
out_is <<'END'
   ...
     3                 three
     4                 four

log      -  4 lines
ended    with signal 9 (Killed)
verdict  bad for Paint, by death by a signal
note     Killed by signal 9 (Killed); last line: four
END
run 1 replay paint good.log --exit 137
out_has "note     Killed by signal 9 (Killed); last line: bye"
run 1 replay paint bad.log --range 7-9
out_has "verdict  bad for Paint, frames 7-9, by an error line (line 3)"

# Frames without an image are missed, also where nobody looks at files.
printf "Saved: '/o/a_0001.png'\nSaved: '/o/a_0003.png'\nPaint is done\n" >holes.log
run 1 replay paint holes.log --range 1-4
out_has "note     No file for frames 2,4"
run 0 replay paint holes.log

# An empty log has no success text either.
: >empty.log
run 1 replay paint empty.log
out_is <<'END'
log      empty.log  0 lines
ended    with exit code 0; --exit tells another end
verdict  bad for Paint, by the lack of a success text
note     Did not see a required success line: the program printed nothing
END

# A success text that did not come, and an exit code.
printf "Saved: '/o/a_0001.png'\nPaint failed\n" >lack.log
run 1 replay paint lack.log
out_has "verdict  bad for Paint, by the lack of a success text"
out_has "note     Did not see a required success line"

# Lines from outside move no cursor, and long ones are cut.
printf 'error: \033[31mred\007 %01000d\n' 7 >odd.log
run 1 replay paint odd.log
"$HELPER" width 430 <"$TMP/out" || fail "a long line is not cut"
out_has 'error: red\x07 0000'

# Texts that are required may name the last frame, and stand anywhere.
type_file movie <<'END'
[Module]
ID=22222222-2222-3333-4444-666666666666
Name=Movie
[OverrideDefaults]
RequiredTexts=frame $(SubRange.End); CLOSED
END
printf '12:01 frame 30\r12:02 frame 300\nfile closed\n' >whole.log
run 0 replay movie whole.log --range 1-300
out_is <<'END'
   ...
     2  success        12:02 frame 300
                       RequiredTexts "frame 300"
     3  success        file closed
                       RequiredTexts "CLOSED"

log      whole.log  3 lines: 2 success
ended    with exit code 0; --exit tells another end
verdict  good for Movie, frames 1-300, by a success text (line 3)
END
printf '12:01 frame 30\nInvalid option "x"\nclosed\nusage\n' >half.log
run 1 replay movie half.log --range 1-300
out_has 'note     Did not see the required text "frame 300"; last line: usage'
run 1 replay movie half.log --range 1-30 --exit 2
out_has 'note     Exit code 2; it said: Invalid option "x"'
run 1 replay movie empty.log --range 1-30
out_has 'note     Did not see the required text "frame 30": the program printed nothing'

# Without success texts the exit code judges.
type_file plain <<'END'
[Module]
ID=22222222-2222-3333-4444-555555555555
Name=Plain
END
run 1 replay plain holes.log --exit 3
out_is <<'END'
   ...
     2                 Saved: '/o/a_0003.png'
     3                 Paint is done

log      holes.log  3 lines
ended    with exit code 3
verdict  bad for Plain, by its exit code
note     Exit code 3; last line: Paint is done
END
run 0 replay plain holes.log --exit 0
out_is <<'END'
log      holes.log  3 lines
ended    with exit code 0
verdict  good for Plain, by its exit code
END
