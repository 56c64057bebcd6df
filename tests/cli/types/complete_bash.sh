# In bash, TAB offers what the command line declares, and what is installed.
. "$(dirname "$0")/completion-lib.sh"
mkdir "$TMP/bin" sub
ln -s "$TROVIK" "$TMP/bin/trovik"
cat >"$TMP/ask.bash" <<'END'
PATH=$1:$PATH
. "$2/trovik.bash"
options=
compopt() { options+=" $2"; }
# Words as bash cuts them: at blanks, and at "=" and ":" outside quotes.
ask() {
  COMP_LINE=$1 COMP_WORDS=() options=
  LC_ALL=C eval 'COMP_POINT=${#COMP_LINE}'
  local rest=$1
  while [[ $rest =~ ^[[:blank:]]*(([^[:blank:]=:\"\'\\]|\\.|\"[^\"]*(\"|$)|\'[^\']*(\'|$))+|[=:]+) ]]; do
    COMP_WORDS+=("${BASH_REMATCH[1]}")
    rest=${rest:${#BASH_REMATCH[0]}}
  done
  [[ -z $rest ]] || COMP_WORDS+=("")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  _trovik
  printf '%s ->' "$1"
  printf ' <%s>' "${COMPREPLY[@]}"
  printf '%s\n' "$options"
}
while IFS= read -r line; do ask "${line%|}"; done
END
bash --norc "$TMP/ask.bash" "$TMP/bin" "$completions" >"$TMP/out" 2>"$TMP/err" <<'END'
trovik s|
trovik run |
trovik run T|
trovik run Two\ |
trovik run "Two |
trovik run sketch |
trovik run sketch shot_0001.txt --mi|
trovik run sketch shot_0001.txt --missing --mi|
trovik run sketch --set outputf|
trovik run sketch --set FileCheck=E|
trovik run "Two Words" --set Alpha=|
trovik run "Two Words" --set alpha=n|
trovik run "Two Words" --set Format=|
trovik run sketch --set=FileCheck=W|
trovik run sketch --set Scene=|
trovik run sketch --out |
trovik types --color=al|
trovik types --module-path /usr:|
trovik show |
trovik retry 1 l|
trovik help fi|
trovik nothing |
trovik run sketch --range |
trovik log -- |
END
err_is_empty
out_is <<'END'
trovik s -> <submit> <show> <stats> <sheet> <set>
trovik run  -> <Sketch> <sk> <Two\ Words>
trovik run T -> <Two\ Words>
trovik run Two\  -> <Two\ Words>
trovik run "Two  -> <Two Words>
trovik run sketch  -> <> default
trovik run sketch shot_0001.txt --mi -> <--missing>
trovik run sketch shot_0001.txt --missing --mi -> <>
trovik run sketch --set outputf -> <OutputFolder=> nospace
trovik run sketch --set FileCheck=E -> <EveryFrame>
trovik run "Two Words" --set Alpha= -> <Yes> <No>
trovik run "Two Words" --set alpha=n -> <No>
trovik run "Two Words" --set Format= -> <PNG> <JPEG\ 2000>
trovik run sketch --set=FileCheck=W -> <Work>
trovik run sketch --set Scene= -> <> default
trovik run sketch --out  -> <> dirnames
trovik types --color=al -> <always>
trovik types --module-path /usr: -> <> dirnames
trovik show  -> <last> <1>
trovik retry 1 l -> <last>
trovik help fi -> <find>
trovik nothing  -> <>
trovik run sketch --range  -> <>
trovik log --  -> <last> <1>
END

# The same at a prompt, where bash itself cuts the words and puts them back.
# What is then run notes its arguments.
cat >"$TMP/rc" <<END
PS1='> '
. "$completions/trovik.bash"
trovik() {
  if [ "\$1" = complete ]; then command "$TROVIK" "\$@"; else printf '<%s>' "\$@" >>"$TMP/log"; echo >>"$TMP/log"; fi
}
END
mkdir 'some where'
tab=$(printf '\t')
cat >"$TMP/keys" <<END
trovik ru${tab}T${tab}sho${tab}1${tab}--set Alp${tab}Y${tab}--out so${tab}x
trovik run sk shot_0002.txt --set outputf${tab}som${tab}
trovik run "Tw${tab} --set=FileCheck=W${tab}
trovik run sketch --set Scene=sho${tab}2${tab}
exit
END
script -qec "bash --noprofile --rcfile '$TMP/rc' -i" /dev/null <"$TMP/keys" >"$TMP/terminal" || :
file_is "$TMP/log" <<'END'
<run><Two Words><shot_0001.txt><--set><Alpha=Yes><--out><some where/x>
<run><sk><shot_0002.txt><--set><OutputFolder=some where/>
<run><Two Words><--set=FileCheck=Work>
<run><sketch><--set><Scene=shot_0002.txt>
END
