# What is scarce is named in the settings, taken by jobs and shared by all
# engines of the queue, whatever their own settings say.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 6
mkdir -p "$XDG_CONFIG_HOME/trovik"
# Fails where two of it run at the same time.
cat >draw.sh <<'END'
mkdir running || { echo "fatal: another one runs"; exit 3; }
sleep 0.05
cp "$1" "$2/$(basename "$1" .txt).drw"
rmdir running
echo "saved: $2/$(basename "$1" .txt).drw"
END
run 2 submit sketch shot_0001.txt --set Limits=renderer
err_is <<'END'
trovik: error: Limits: there is no limit "renderer"
hint: the settings tell how much there is: renderer=2 in the section [Limits]
END
printf '[Limits]\nRenderer=1\n' >"$TMP/limits.ini"
run 2 submit sketch shot_0001.txt --set Limits=renderer=2 --settings "$TMP/limits.ini"
err_is <<'END'
trovik: error: Limits: a work takes 2 of "renderer", of which there is 1
hint: no work could ever begin
END
run 0 submit sketch shot_0001.txt --set Limits=renderer --settings "$TMP/limits.ini"
run 0 submit sketch shot_0001.txt --set Limits=renderer --out more
for number in 1 2 3; do
  "$TROVIK" engine --until-empty --slots 2 >"$TMP/engine$number" 2>&1 &
  pids="${pids-} $!"
done
for one in $pids; do
  wait "$one" || fail "an engine failed"
done
run 0 jobs --json
"$HELPER" json /jobs/0/state /jobs/0/counts/good /jobs/1/state /jobs/1/counts/good <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"good" 6 "good" 6
END
run 0 show 1
out_has "limits     renderer (0 of 1 taken)"
run 0 show 1 --json
"$HELPER" json /limits/0/name /limits/0/takes /limits/0/amount /limits/0/taken /slotsAtMost <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"renderer" 1 1 0 0
END

# So many slots at most, here and by a change while it waits.
run 0 run sketch shot_0001.txt --set SlotsAtMost=1 --out third --slots 4
run 0 submit sketch shot_0001.txt --out fourth
run 0 set last SlotsAtMost=1 Priority=80 --json
run 0 set --status waiting --name shot PacketSize=2 --dry-run
out_is <<'END'
job 4  PacketSize 2: 6 works that have not begun become 3
nothing was changed: this was a dry run
END
run 2 cancel --status waiting
err_is <<'END'
trovik: error: to cancel 1 job (4), give --yes
hint: --dry-run tells what would be done, where the verb has it
END
run 0 engine --until-empty --slots 4
run 0 show 4 --json
"$HELPER" json /state /slotsAtMost /priority <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"good" 1 80
END
printf '[Limits]\nrenderer=two\n' >"$TMP/limits.ini"
run 2 engine --until-empty --settings "$TMP/limits.ini"
err_is <<'END'
trovik: error: settings, section [Limits]: "renderer=two" is no limit
hint: write a name and how much there is of it: renderer=2
END
