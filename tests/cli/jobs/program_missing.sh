# A program that is not there is told once, not once a frame.
. "$(dirname "$0")/../lib.sh"
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

# What is there and no program is named as what it is.
mkdir here
: >plain
ln -s nowhere dangling
mkfifo pipe
for verb in run submit; do
  while read -r name problem; do
    run 2 "$verb" sketch shot_0001.txt --set "Executable=./$name"
    err_is <<END
trovik: error: the program "TMP/work/$name" $problem
hint: name the program's file with --set Executable=FILE
END
    out_is_empty
  done <<'LIST'
here is a folder
plain is not executable
dangling is a link to "nowhere", which leads nowhere
pipe is no regular file
LIST
done
