#!/bin/sh
# The real vim knows .tvx files: colours every piece as what it is, knows every
# name that the reference tells, and finds its way from messages to places.
#
#   vim.sh SOURCES
set -eu
sources=$(cd "$1" && pwd)
here=$sources/tests/editors
TMP=$(mktemp -d)
trap 'rm -rf "$TMP"' EXIT
fail() {
  echo "FAILED: $*" >&2
  exit 1
}

cat >"$TMP/look.vim" <<'END'
" For each text of the questions: the group of the first
" character of the first occurrence of the text.
function Look(questions, answers)
  let result = []
  for text in readfile(a:questions)
    call cursor(1, 1)
    let place = searchpos('\V' .. escape(text, '\'), 'c')
    call add(result, text .. ' -> ' .. synIDattr(synID(place[0], place[1], 1), 'name'))
  endfor
  call writefile(result, a:answers)
endfunction
function Groups(column, answers)
  call writefile(map(range(1, line('$')), 'synIDattr(synID(v:val, a:column, 1), "name")'), a:answers)
endfunction
function Places(messages, answers)
  execute 'cgetfile' a:messages
  let found = filter(getqflist(), 'v:val.valid')
  call map(found, 'join([bufname(v:val.bufnr), v:val.lnum, v:val.col, v:val.type,
    \ substitute(v:val.text, "\n", " / ", "g")], "|")')
  call writefile(found + [&makeprg, &commentstring], a:answers)
endfunction
END
edit() { # FILE COMMAND...
  file=$1
  shift
  HOME=$TMP vim -N -u NONE -i NONE -es --cmd "set runtimepath^=$sources/editors/vim" \
    --cmd 'filetype plugin on' --cmd 'syntax on' -S "$TMP/look.vim" "$file" "$@" -c 'qall!' </dev/null ||
    fail "vim ended with $?"
}

cat <<'END' >"$TMP/questions"
; A comment
$(Reference)
# another
Module
ID=
5f0c9a5e
Name=
Sketch
command
-i
$(ActualScene
ActualScene
$$(plain
Seed
.Prefix
--seed
.Upper
.Nonsense
end
CheckForMultipleFiles
Yes
Surprise
SuccessText
1=
Width
Type
Integer
640
-2.5
OfJob
Visible
OfJob stands
OverrideFlags
PacketSize
ReadOnly
no entry
END
edit "$here/sample.tvx" -c "call Look('$TMP/questions', '$TMP/answers')"
cat >"$TMP/expected" <<'END'
; A comment -> tvxComment
$(Reference) -> tvxComment
# another -> tvxComment
Module -> tvxKnownSection
ID= -> tvxKnownKey
5f0c9a5e -> tvxId
Name= -> tvxKnownKey
Sketch -> tvxValue
command -> tvxKnownKey
-i -> tvxValue
$(ActualScene -> tvxDelimiter
ActualScene -> tvxReference
$$(plain -> tvxEscape
Seed -> tvxReference
.Prefix -> tvxCommand
--seed -> tvxArguments
.Upper -> tvxCommand
.Nonsense -> tvxReference
end -> tvxValue
CheckForMultipleFiles -> tvxKnownKey
Yes -> tvxBoolean
Surprise -> tvxKey
SuccessText -> tvxKnownSection
1= -> tvxKey
Width -> tvxSection
Type -> tvxKnownKey
Integer -> tvxType
640 -> tvxNumber
-2.5 -> tvxNumber
OfJob -> tvxFlag
Visible -> tvxFlag
OfJob stands -> tvxValue
OverrideFlags -> tvxKnownSection
PacketSize -> tvxKey
ReadOnly -> tvxFlag
no entry -> 
END
diff -u "$TMP/expected" "$TMP/answers" >&2 || fail "the groups differ (- expected, + found)"

# Every name of the reference is known. NAMES prints the words in the first
# column of the table below a heading.
names() { # HEADING FIRST-COLUMN
  awk -v heading="$1" -v first="$2" '
    index($0, heading) == 1 { inside = 1; next }
    inside && /^#/ { inside = 0 }
    inside && index($0, "| " first) == 1 { table = 1; next }
    table && !/^\|/ { table = 0 }
    table && /^\| `/ { split($0, cells, "|"); print cells[2] }
  ' "$sources/docs/tvx.md" | grep -o '`[^`]*`' | tr -d '`' | sed 's/(.*//'
}
known() { # GROUP BEFORE AFTER MINIMUM
  sort -u "$TMP/names" >"$TMP/words"
  [ "$(wc -l <"$TMP/words")" -ge "$4" ] || { cat "$TMP/words" >&2; fail "the reference has lost names for $1"; }
  sed "s|.*|$2&$3|" "$TMP/words" >"$TMP/all.tvx"
  edit "$TMP/all.tvx" -c 'set filetype=tvx' \
    -c "call Groups($((${#2} + 1)), '$TMP/groups')"
  sort -u "$TMP/groups" >"$TMP/group"
  [ "$(cat "$TMP/group")" = "$1" ] ||
    { paste "$TMP/words" "$TMP/groups" | grep -v "$1\$" >&2; fail "not every name is of the group $1"; }
}
{
  names '## `[Module]`' Key
  names '## Parameters' Key
} >"$TMP/names"
known tvxKnownKey '' '=x' 20
names '## Parameters' Type >"$TMP/names"
known tvxType 'Type=' '' 13
names '## Parameters' Flag >"$TMP/names"
known tvxFlag 'Flags=' '' 11
names '## Command lines' Command >"$TMP/names"
known tvxCommand 'Command=$(Scene.' ')' 19
# (Path maps stand in the settings.)
grep -o '`\[[A-Z][A-Za-z]*\]`' "$sources/docs/tvx.md" | tr -d '`[]' | grep -v -x -e PathMaps -e Logs >"$TMP/names"
known tvxKnownSection '[' ']' 12

# Messages become places; a hint belongs to its message.
cat >"$TMP/messages" <<'END'
my types/sketch.tvx:12:6: error: unknown parameter type "Interger"
   12 | Type=Interger
      |      ^^^^^^^^
hint: did you mean "Integer"?
my types/sketch.tvx:20:1: warning: the section [Hight] is never used
   20 | [Hight]
      | ^^^^^^^
a.tvx:3:4: error: this type has no ID
    3 | Name=A
      | ^^^^
2 files, 2 errors, 1 warning
END
edit "$here/sample.tvx" -c "call Places('$TMP/messages', '$TMP/answers')"
cat >"$TMP/expected" <<'END'
my types/sketch.tvx|12|6|E|unknown parameter type "Interger" / did you mean "Integer"?
my types/sketch.tvx|20|1|W|the section [Hight] is never used
a.tvx|3|4|E|this type has no ID
trovik check --color never %:S
; %s
END
diff -u "$TMP/expected" "$TMP/answers" >&2 || fail "the places differ (- expected, + found)"
