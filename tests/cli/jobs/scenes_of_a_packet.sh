# A program that is given many scenes may take those that it finds: that every
# frame of a packet has its scene file is seen before the program starts.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 6
run 0 submit sketch shot_0001.txt --packet 3
rm shot_0002.txt shot_0004.txt shot_0006.txt
run 1 engine --job 1 --until-empty --slots 1
out_has 'failed  1-3  No scene file for frame 2: '"$TMP"'/work/shot_0002.txt'
out_has 'failed  4-6  No scene file for frames 4,6: '"$TMP"'/work/shot_0004.txt is the first'
[ -z "$(ls images)" ] || fail "the program was started"

# Of a missing single scene its program tells in its own words.
run 0 submit sketch shot_0003.txt --range 3
rm shot_0003.txt
run 1 engine --job 2 --until-empty
out_has 'No such file or directory'
