# In fish, TAB offers what the command line declares, and what is installed.
. "$(dirname "$0")/completion-lib.sh"
mkdir "$TMP/bin" sub
ln -s "$TROVIK" "$TMP/bin/trovik"
cat >"$TMP/ask.fish" <<'END'
set -gx PATH $argv[1] $PATH
source $argv[2]/trovik.fish
while read -l line
    set line (string replace -r '\|$' '' -- $line)
    echo "$line ->"
    complete -C "$line" | string replace -r '^' '  '
end
true
END
fish --no-config "$TMP/ask.fish" "$TMP/bin" "$completions" >"$TMP/out" 2>"$TMP/err" <<'END'
trovik s|
trovik run T|
trovik run sketch |
trovik run sketch --mi|
trovik run sketch --set outputf|
trovik run "Two Words" --set Format=|
trovik run Two\ Words --set=Form|
trovik run sketch --set Scene=sho|
trovik run sketch --out s|
trovik run sketch --out=s|
trovik types --color=al|
trovik show |
trovik nothing |
END
err_is_empty
tr '\t' '|' <"$TMP/out" >"$TMP/out.bar"
mv "$TMP/out.bar" "$TMP/out"
out_is <<'END'
trovik s ->
  set|Changes jobs that are in the queue: Priority, Retries, StopAfter, SlotsAtMost, Limits, Memory, PacketSize.
  sheet|Draws a job's images on one contact sheet, with the holes marked.
  show|Tells how a job stands, why its frames failed, and what to do next.
  stats|Tells what frames took and used, what retries cost, and how the slots were used.
  submit|Puts a job into the queue, for an engine to work off.
trovik run T ->
  Two Words|Has a name of two words.
trovik run sketch  ->
  draw.sh
  images/
  shot_0001.txt
  shot_0002.txt
  sub/
trovik run sketch --mi ->
  --missing|Only the frames without a good file
trovik run sketch --set outputf ->
  OutputFolder=|Output folder: folder or path
trovik run "Two Words" --set Format= ->
  Format=JPEG 2000
  Format=PNG
trovik run Two\ Words --set=Form ->
  --set=Format=|Format: one of: PNG, JPEG 2000
trovik run sketch --set Scene=sho ->
  Scene=shot_0001.txt
  Scene=shot_0002.txt
trovik run sketch --out s ->
  sub/
trovik run sketch --out=s ->
  --out=sub/
trovik types --color=al ->
  --color=always
trovik show  ->
  1|Sketch: shot, good
  last|Sketch: shot, good
trovik nothing  ->
END
