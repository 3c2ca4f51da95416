# Completion of `tarsil` for bash. Everything that it offers is asked of the program, so it knows every command,
# and the ports of this moment.

_tarsil() {
  local line=${COMP_LINE:0:COMP_POINT} words reply prefix
  read -ra words <<<"$line"
  [[ $line == *[[:space:]] ]] && words+=("")
  local word=${words[-1]}
  mapfile -t reply < <("${words[0]}" complete "${words[@]:1}" 2>/dev/null)
  # bash takes MODEL@PORT for three words, and completes the last one.
  prefix=
  [[ $word == *@* && $COMP_WORDBREAKS == *@* ]] && prefix=${word%"${word##*@}"}
  COMPREPLY=("${reply[@]#"$prefix"}")
  # A port follows.
  [[ ${#COMPREPLY[@]} -ge 1 && ${COMPREPLY[0]} == *@ ]] && compopt -o nospace 2>/dev/null
  return 0
}

complete -o default -F _tarsil tarsil
