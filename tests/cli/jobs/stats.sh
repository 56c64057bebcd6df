# What rendering took and what was in vain, of one job or of all.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 3
run 0 stats
out_is <<'END'
nothing has been rendered yet
END
echo broken >shot_0002.txt
run 1 run sketch shot_0001.txt --slots 1
run 0 run sketch shot_0001.txt --range 1 --slots 2
run 0 stats
cut -c1-12 "$TMP/out" | sed 's/ *$//' >"$TMP/labels"
file_is "$TMP/labels" <<'END'
jobs
frames
median
mean
fastest
slowest


good
failed
processors
memory
files
slots
throughput
END
out_has "frames      3 good, from 4 attempts"
run 0 stats 1 --json
"$HELPER" json /kind /job /jobs /attempts /frames /slots /time/lost <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"stats" 1 1 3 2 1 0.0
END

# A line for each attempt.
run 0 stats 1 --csv
head -n 1 "$TMP/out" >"$TMP/head"
file_is "$TMP/head" <<'END'
job,name,type,frames,attempt,state,rule,exitCode,signal,started,seconds,user,system,memory,read,written,reason
END
sed -e 1d -e 's/,[0-9.]*,[0-9.]*,[0-9.]*,[0-9.]*,[0-9]*,[0-9]*,[0-9]*,/,NUMBERS,/' "$TMP/out" >"$TMP/rows"
mv "$TMP/rows" "$TMP/out"
out_is <<'END'
1,shot,Sketch,1,1,good,result,0,,NUMBERS,
1,shot,Sketch,2,1,failed,error line,3,,NUMBERS,Error line: fatal: TMP/work/shot_0002.txt is broken
1,shot,Sketch,3,1,good,result,0,,NUMBERS,
END
run 2 stats 1 --csv --json
err_is <<'END'
trovik: error: --csv and --json exclude each other
hint: leave one of them out
END
