# Packets that fit themselves: a start of the program gets as many frames as
# suit, each frame is rendered once, and all it knows is one run of neighbours.
# And what a work needs of memory.
. "$(dirname "$0")/../lib.sh"
type_file strip <<'END'
[Module]
ID=11111111-2222-3333-4444-555555555555
Name=Strip
Shortcut=strip
Help=Draws a run of frames.
Command=draw.sh $(SubRange.Start) $(SubRange.End) $(OutputFolder.Enquote)
ImageStartText=saved:
[OverrideDefaults]
Executable=/bin/sh
Range=1-300
OutputFolder=images
END
cat >draw.sh <<'END'
echo "$1-$2" >>starts
for frame in $(seq "$1" "$2"); do
  echo "frame $frame" >"$3/$frame.drw"
  echo "saved: $3/$frame.drw"
done
END

run 0 run strip --packet auto --slots 2
[ "$(wc -l <starts)" -lt 60 ] || fail "so many starts for 300 frames: $(wc -l <starts)"
grep -qx 1-1 starts || fail "the first start was not one of one frame: $(head -n 2 starts)"
sort -n starts | awk -F- '$1 != last + 1 || $2 < $1 { exit 1 } { last = $2 } END { exit last != 300 }' ||
  fail "the starts are no runs of neighbours with each frame once: $(tr '\n' ' ' <starts)"
run 0 show 1
out_has "packets    as many frames as take 1 min 00 s"
run 0 show 1 --json
"$HELPER" json /state /counts/good /packetTime /memory/set <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"good" 300 60.0 null
END

# What cannot be is refused before anything starts.
run 2 run strip --packet some --out other
err_is <<'END'
trovik: error: --packet: "some" is not a whole number from 1 on
hint: write auto, and as many frames as suit go into a packet
END
run 2 run strip --set PacketSize=automatic --out other
err_is <<'END'
trovik: error: --set PacketSize: "automatic" is no whole number, nor auto
END
run 2 run strip --packet auto --set PacketTime=0.5 --out other
err_is <<'END'
trovik: error: --set PacketTime: 0.5 is below the minimum of 1
END
run 2 submit strip --set Memory=lots --out other
err_is <<'END'
trovik: error: Memory: "lots" is no amount of memory
hint: write 500M, 4G or 1T; a number alone is MiB
END

# What has not begun can be cut anew, and what a work needs be said, at any time.
run 0 submit strip --packet auto --set PacketTime=20m --set Memory=1G --out other
run 0 set last PacketSize=50 Memory=2G --dry-run
out_is <<'END'
job 2  Memory 1.1 GB -> 2.1 GB, PacketSize 50: 300 works that have not begun become 6
nothing was changed: this was a dry run
END
run 0 set last PacketSize=50
run 0 set last PacketSize=auto --json
"$HELPER" json /jobs/0/changed/PacketSize <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"auto"
END
run 0 show 2
out_has "packets    as many frames as take 20 min 00 s"
out_has "memory     1.1 GB a work"
run 2 set last PacketSize=none
err_is <<'END'
trovik: error: PacketSize: "none" is not a whole number from 1 to 10000000, or auto
END

# More than any machine has: one work at a time gets by.
run 0 set last Memory=1000T SlotsAtMost=0
run 0 engine --until-empty --slots 4
grep -q 'job 2 waits for memory: a work needs 1.1 PB, and ' "$TMP/err" || {
  cat "$TMP/err" >&2
  fail "nobody tells that the job waits for memory"
}
run 0 show 2 --json
"$HELPER" json /state /counts/good <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"good" 300
END
