# Completion of trovik for bash. What fits is asked of the program itself.

# Sets "plain" to what the shell makes of a word, with no expansion.
_trovik_plain() {
  local text=$1 quote= c i
  plain=
  for ((i = 0; i < ${#text}; i++)); do
    c=${text:i:1}
    if [[ $c == "$quote" ]]; then
      quote=
    elif [[ $c == \\ && $quote != \' ]]; then
      ((i++))
      plain+=${text:i:1}
    elif [[ -z $quote && ($c == \' || $c == \") ]]; then
      quote=$c
    else
      plain+=$c
    fi
  done
}

# Sets "typed" to the line up to the cursor, which is told in bytes.
_trovik_typed() {
  local LC_ALL=C
  typed=${COMP_LINE:0:COMP_POINT}
}

_trovik() {
  local typed plain piece rest cut line i
  local -a words=() found=()
  COMPREPLY=()
  _trovik_typed

  # The line was cut at "=" and ":", too; what has no blank between is one word.
  rest=$typed
  for ((i = 0; i < COMP_CWORD; i++)); do
    piece=${COMP_WORDS[i]}
    if [[ $i -eq 0 || $rest == [[:blank:]]* ]]; then
      words+=("")
    fi
    rest=${rest#"${rest%%[![:blank:]]*}"}
    rest=${rest#"$piece"}
    words[${#words[@]} - 1]+=$piece
  done
  if [[ $rest == [[:blank:]]* || ${#words[@]} -eq 1 ]]; then
    words+=("")
    rest=${rest#"${rest%%[![:blank:]]*}"}
  fi
  # bash replaces only what stands behind the last cut.
  [[ $rest == [=:] ]] && piece= || piece=$rest
  words[${#words[@]} - 1]+=$rest
  _trovik_plain "$piece"
  piece=$plain
  for i in "${!words[@]}"; do
    _trovik_plain "${words[i]}"
    words[i]=$plain
  done
  cut=${words[-1]%"$piece"}

  while IFS= read -r line; do
    case $line in
      :files$'\t'*) compopt -o default ;;
      :folders$'\t'*) compopt -o dirnames ;;
      *) found+=("${line%%$'\t'*}") ;;
    esac
  done < <("${words[0]}" complete "${words[@]:1}" 2>/dev/null)

  for line in "${found[@]}"; do
    line=${line#"$cut"}
    [[ $rest == [\'\"]* ]] || printf -v line %q "$line"
    COMPREPLY+=("$line")
  done
  if [[ ${#COMPREPLY[@]} -eq 1 && $COMPREPLY == *= ]]; then
    compopt -o nospace
  fi
}

complete -F _trovik trovik
