# What detection fills in for a scene, and why it found no sequence.
. "$(dirname "$0")/lib.sh"
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
no scene sequence: the number 1 has 1 digit; the type asks for more
END

run 2 detect sketch none.txt
err_is <<'END'
trovik: error: there is no scene file "TMP/work/none.txt"
hint: check the name and the directory
END
