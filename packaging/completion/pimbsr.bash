# Completion of pimbsr for bash. The command itself knows the words.

_pimbsr() {
  local -a words
  local line=${COMP_LINE:0:COMP_POINT}
  read -ra words <<<"$line"
  [[ $line == *[[:space:]] ]] && words+=("")
  mapfile -t COMPREPLY < <("${words[0]}" __complete "${words[@]:1}" 2>/dev/null)
  # bash divides a word at its colons and replaces what follows the last of them.
  local begun=${words[-1]}
  if [[ $begun == *:* && $COMP_WORDBREAKS == *:* ]]; then
    local kept=${begun%"${begun##*:}"}
    COMPREPLY=("${COMPREPLY[@]#"$kept"}")
  fi
}

complete -o default -F _pimbsr pimbsr
