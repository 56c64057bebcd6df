# A program that is not there is told once, not once a frame.
. "$(dirname "$0")/lib.sh"
sketch_type
scenes 3
run 2 run sketch shot_0001.txt --set Executable=no-such-program
err_is <<'END'
trovik: error: there is no program "no-such-program" along PATH
hint: install it, or name it with --set Executable=FILE
END
run 2 run sketch shot_0001.txt --set Executable=./here
err_is <<'END'
trovik: error: there is no program "TMP/work/here"
hint: install it, or name it with --set Executable=FILE
END
out_is_empty
