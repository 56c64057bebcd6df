# Files that stand for a whole work, such as a movie, are one work's alone.
. "$(dirname "$0")/../lib.sh"
type_file movie <<'END'
[Module]
ID=11111111-2222-3333-4444-555555555556
Name=Movie
Shortcut=movie
Command=-c "cat \"$@\" >movie.drw" - $(ActualScene)
CheckForMultipleFiles=Yes
[OverrideDefaults]
Executable=/bin/sh
PacketSize=100
ExpectedFiles=movie.drw
FileCheck=Work
END
scenes 6
run 0 run movie shot_0001.txt --range 2-4
[ "$(cat movie.drw)" = "$(printf 'scene 2\nscene 3\nscene 4')" ] || fail "the movie holds something else"
run 2 run movie shot_0001.txt --range 1-2,4-6
err_is <<'END'
trovik: error: the works for frames 1-2 and 4-6 would both write "TMP/work/movie.drw"
hint: choose frames without a gap with --range, in one packet
END
run 2 run movie shot_0001.txt --packet 2
err_is <<'END'
trovik: error: the works for frames 1-2 and 3-4 would both write "TMP/work/movie.drw"
hint: choose frames without a gap with --range, in one packet
END
# Where each work has a file of its own, all is well.
run 0 run movie shot_0001.txt --range 1-2,4-6 --dry-run --set 'ExpectedFiles=$(SubRange.Start).drw'
