# Completion of pimbsr for bash. The command itself knows the words.

# Puts the quotes of the command line around the words: the path of a key has quotes and brackets.
_pimbsr_quote() {
  local at word
  for at in "${!COMPREPLY[@]}"; do
    word=${COMPREPLY[at]}
    if [[ $1 == '"' ]]; then
      word=${word//\\/\\\\}
      word=${word//\"/\\\"}
      word=${word//\$/\\\$}
      word=${word//\`/\\\`}
    else
      printf -v word %q "$word"
    fi
    COMPREPLY[at]=$word
  done
}

_pimbsr() {
  local -a words
  local line=${COMP_LINE:0:COMP_POINT} quote=
  read -ra words <<<"$line"
  [[ $line == *[[:space:]] ]] && words+=("")
  local begun=${words[-1]}
  [[ $begun == \"* ]] && quote=\" begun=${begun:1}
  begun=${begun//\\/}
  words[-1]=$begun
  mapfile -t COMPREPLY < <("${words[0]}" __complete "${words[@]:1}" 2>/dev/null)
  _pimbsr_quote "$quote"
  # bash divides a word at its colons and replaces what follows the last of them, but not within quotes.
  if [[ -z $quote && $begun == *:* && $COMP_WORDBREAKS == *:* ]]; then
    local kept=${begun%"${begun##*:}"}
    COMPREPLY=("${COMPREPLY[@]#"$kept"}")
  fi
}

complete -o default -F _pimbsr pimbsr
