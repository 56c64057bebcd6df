# In zsh, TAB offers what the command line declares, and what is installed.
. "$(dirname "$0")/completion-lib.sh"

# What is run at the prompt notes its arguments.
mkdir "$TMP/zsh" 'some where'
cat >"$TMP/zsh/.zshrc" <<END
PS1='> '
fpath=("$completions" \$fpath)
autoload -Uz compinit
compinit -D -u
trovik() {
  if [ "\$1" = complete ]; then command "$TROVIK" "\$@"; else printf '<%s>' "\$@" >>"$TMP/log"; echo >>"$TMP/log"; fi
}
setopt no_beep
END
tab=$(printf '\t')
cat >"$TMP/keys" <<END
trovik ru${tab}T${tab}sho${tab}1${tab}--set Alp${tab}Y${tab}--out so${tab}x
trovik run sk shot_0002.txt --set outputf${tab}som${tab}
trovik run "Tw${tab} --set=FileCheck=W${tab}
trovik run sketch --set Scene=sho${tab}2${tab}
trovik run sketch --set=Scene=sho${tab}2${tab}
trovik show la${tab}
trovik show ${tab}${tab}
exit
END
ZDOTDIR=$TMP/zsh script -qec "stty cols 100; zsh -d -i" /dev/null <"$TMP/keys" >"$TMP/terminal" || :
file_is "$TMP/log" <<'END'
<run><Two Words><shot_0001.txt><--set><Alpha=Yes><--out><some where/x>
<run><sk><shot_0002.txt><--set><OutputFolder=some where>
<run><Two Words><--set=FileCheck=Work>
<run><sketch><--set><Scene=shot_0002.txt>
<run><sketch><--set=Scene=shot_0002.txt>
<show><last>
<show><last>
END
grep -q "last  1  -- Sketch: shot, good" "$TMP/terminal" || fail "no descriptions"
