# Programs get the message language that rules rely on, and what the user sets.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 1
cat >draw.sh <<'END'
echo "LC_ALL=$LC_ALL LANGUAGE=${LANGUAGE-none} EXTRA=$EXTRA GONE=${GONE-none}"
cp "$1" "$2/x.drw"
echo "saved: $2/x.drw"
END
LC_ALL=C
LANGUAGE=de
GONE=here
export LC_ALL LANGUAGE GONE
run 0 run sketch shot_0001.txt --set 'Environment=EXTRA=a b;GONE' --log-dir "$TMP/logs"
sed -n 1p "$TMP/logs/work.log" >"$TMP/first"
file_is "$TMP/first" <<'END'
LC_ALL=C.UTF-8 LANGUAGE=none EXTRA=a b GONE=none
END
