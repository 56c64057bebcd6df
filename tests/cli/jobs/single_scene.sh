# A single scene without a range is one work.
. "$(dirname "$0")/../lib.sh"
sketch_type
echo x >scene.txt
run 0 run sketch scene.txt --log-dir "$TMP/logs" --slots 1
out_is <<'END'
job 1  Sketch: 1 work on 1 slot
scene  TMP/work/scene.txt
logs  TMP/logs
started  work
image  TMP/work/images/scene.drw
finished  work  TIME
1 work good, in TIME
images  1 in TMP/work/images
END
