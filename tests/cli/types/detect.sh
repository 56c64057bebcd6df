# What detection fills in for a scene, and why it found no sequence.
. "$(dirname "$0")/../lib.sh"
sketch_type
cat >>"$TMP/modules/sketch.tvx" <<'END'
[AutoDetect]
Scene=Note=for $(Name), StartDirectory=$(Scene.Branch)
END
scenes 3
run 0 detect sketch shot_0002.txt
out_is <<'END'
Name             shot
Range            1-3
Note             for shot
StartDirectory   TMP/work
SceneNameFormat  TMP/work/shot_%04d.txt
END

sketch_type
echo x >scene.txt
run 0 detect sketch scene.txt
out_is <<'END'
no scene sequence: "scene.txt" has no number in its name
END

echo x >alone_0007.txt
run 0 detect sketch alone_0007.txt
out_is <<'END'
no scene sequence: it has no neighbour: there is neither "alone_0006.txt" nor "alone_0008.txt"
END

echo x >few_1.txt
echo x >few_2.txt
run 0 detect sketch few_1.txt
out_is <<'END'
no scene sequence: its number 1 has 1 digit, and the type asks for more
hint: --set SceneNumberLength=1 takes the sequence 1-2
END

run 2 detect sketch none.txt
err_is <<'END'
trovik: error: there is no scene file "TMP/work/none.txt"
hint: check the name and the directory
END

# Rules see all that is given; those of what is given have the last word.
cat >>"$TMP/modules/sketch.tvx" <<'END'
[AutoDetect]
Scene=Note=$(Name) at $(Priority), StartDirectory=$(Scene.Branch)
Name=Note=mine: $(Name)
Note=Environment=CHAINED
END
run 0 detect sketch shot_0002.txt --set Priority=7
out_has "Note             shot at 7"
run 0 detect sketch shot_0002.txt --set Name=other --set StartDirectory=/
out_is <<'END'
Range            1-3
Note             mine: other
SceneNameFormat  TMP/work/shot_%04d.txt
END
