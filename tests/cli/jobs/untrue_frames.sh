# Programs whose word is worth nothing, and what is said of their frames: one
# that leaves existing files alone, one that ends well when it is asked to end,
# one that writes the same image for every frame.
. "$(dirname "$0")/../lib.sh"

# Attempt 1 writes and fails, those after it find its file and end well.
type_file skipper <<'END'
[Module]
ID=11111111-2222-3333-4444-555555555501
Name=Skipper
Shortcut=skipper
Command=skip.sh $(SubRange.Start) $(SubRange.End) $(OutputFolder.Enquote)
[ErrorText]
1=Error:
[OverrideFlags]
Scene=OfJob, ReadOnly, Literal
[OverrideDefaults]
Executable=/bin/sh
ExpectedFiles=$(OutputFolder)/f_$(Frame).dat
END
cat >skip.sh <<'END'
for frame in $(seq "$1" "$2"); do
  file=$3/f_$frame.dat
  if [ -e "$file" ]; then
    echo "$file exists, skipped"
    continue
  fi
  echo "bytes" >"$file"
  [ ! -e broken ] || echo "Error: texture missing"
done
END
mkdir out
touch broken
run 1 run skipper --range 1-2 --slots 1 --out out
out_has "failed  1-2  Error line: Error: texture missing"
rm broken
for words in "run skipper --range 1-2 --slots 1 --out out" "run skipper --range 1-2 --slots 1 --out out --missing"; do
  # shellcheck disable=SC2086
  run 1 $words
  out_has "failed  1  File was there before and is not of this attempt: $TMP/work/out/f_1.dat"
  out_has "0 of 2 frames good, 2 failed"
done
rm out/f_1.dat out/f_2.dat
run 0 run skipper --range 1-2 --slots 1 --out out
out_has "all 2 frames good"

# Asked to end from outside, it does so and says that all is well.
type_file polite <<'END'
[Module]
ID=11111111-2222-3333-4444-555555555502
Name=Polite
Shortcut=polite
Command=polite.sh $(SubRange.Start) $(SubRange.End) $(OutputFolder.Enquote)
[OverrideFlags]
Scene=OfJob, ReadOnly, Literal
[OverrideDefaults]
Executable=/bin/sh
FileCheck=Work
ExpectedFiles=$(OutputFolder)/movie.dat
RequiredTexts=frame $(SubRange.End)
END
cat >polite.sh <<'END'
trap 'echo stopping; exit 0' TERM
for frame in $(seq "$1" "$2"); do
  echo "bytes" >>"$3/movie.dat"
  echo "frame $frame"
  [ "$frame" != 7 ] || [ -e mended ] || kill -TERM $$
done
END
run 1 run polite --range 1-20 --packet 20 --out out
out_has 'failed  1-20  Did not see the required text "frame 20"; last line: stopping'
out_has "0 of 20 frames good, 20 failed"
touch mended
rm out/movie.dat
run 0 run polite --range 1-20 --packet 20 --out out
out_has "all 20 frames good"
