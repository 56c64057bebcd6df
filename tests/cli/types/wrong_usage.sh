# Every wrong command line gets one clear message, a hint and exit code 2.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 1

run 2 rnu
err_is <<'END'
trovik: error: unknown verb "rnu"
hint: did you mean "run"? "trovik --help" lists them all
END

run 2 run
err_is <<'END'
trovik: error: "trovik run" needs the name of a job type
hint: "trovik types" lists them; see "trovik run --help"
END

run 2 run sketch shot_0001.txt --rnage 3
err_is <<'END'
trovik: error: unknown option "--rnage"
hint: did you mean "--range"? "trovik run --help" lists them all
END

run 2 run sketch shot_0001.txt another
err_is <<'END'
trovik: error: one argument too many: "another"
hint: one scene is enough: the others of its sequence are found; see "trovik run --help"
END

run 2 run sketch shot_0001.txt --out a --out b
err_is <<'END'
trovik: error: --out is given twice: "a", "b"
hint: leave all but one of them out
END

run 2 run sketch shot_0001.txt --out
err_is <<'END'
trovik: error: --out needs a value: --out DIR
hint: see "trovik run --help"
END

run 2 run sketch -- shot_0001.txt --dry-run
err_is <<'END'
trovik: error: one argument too many: "--dry-run"
hint: behind "--" nothing is an option; write "--dry-run" before it
END

run 2 run sketch shot_0001.txt --frames 1-3
err_is <<'END'
trovik: error: unknown option "--frames"
hint: did you mean "--range"? "trovik run --help" lists them all
END

run 2 retry last --range 1-3
err_is <<'END'
trovik: error: unknown option "--range"
hint: did you mean "--frames"? "trovik retry --help" lists them all
END

run 2 run shot_0001.txt
err_is <<'END'
trovik: error: "shot_0001.txt" is a file and no job type
hint: name the type before the scene; "trovik types" lists them
END

run 2 run "$TMP/modules/sketch.tvx" shot_0001.txt
err_is <<'END'
trovik: error: "TMP/modules/sketch.tvx" is a file and no job type
hint: name the type, and its file's directory with --module-path DIR:
END

echo scene >-x.txt
run 2 run sketch -x.txt
err_is <<'END'
trovik: error: unknown option "-x.txt"
hint: if you mean the file, write "./-x.txt"
END
run 0 run sketch ./-x.txt --dry-run
err_is_empty

run 2 run sketch shot_0001.txt --slots many
err_is <<'END'
trovik: error: --slots: "many" is not a whole number from 1 on
END

run 2 run sketch shot_0001.txt --packet 0
err_is <<'END'
trovik: error: --packet: "0" is not a whole number from 1 on
hint: write auto, and as many frames as suit go into a packet
END

run 2 run sketch shot_0001.txt --range 1-x
err_is <<'END'
trovik: error: --range: frame range:1:3: a number is missing after "-"
    1 | 1-x
      |   ^
END

run 2 run sketch shot_0001.txt --range 1 --set range=2
err_is <<'END'
trovik: error: "Range" is given twice: by --range and by --set
hint: leave one of them out
END

run 2 types --settings "$TMP/none.ini"
err_is <<'END'
trovik: error: --settings: there is no file "TMP/none.ini"
hint: check the name, or leave it out
END
out_is_empty
