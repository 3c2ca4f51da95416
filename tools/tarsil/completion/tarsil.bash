# Completion of `tarsil` for bash. Everything that it offers is asked of the program, so it knows every command.

_tarsil_options() { # WORD...: the long options that the help of these words lists
  tarsil "$@" --help 2>/dev/null | grep -oE '^  (-[a-z],)?--[a-z-]+' | grep -oE -- '--[a-z-]+'
}

_tarsil_commands() {
  tarsil --help 2>/dev/null | sed -n '/^Subcommands:/,$p' | sed -n 's/^  \([a-z-]*\) .*/\1/p'
}

_tarsil_models() {
  tarsil devices 2>/dev/null | awk 'NR > 1 { print $2 }'
}

_tarsil_operations() { # the values that --what takes
  tarsil send --help 2>/dev/null | grep -oE '\{[A-Za-z0-9,]*\}' | head -n 1 | tr -d '{}' | tr ',' '\n'
}

_tarsil() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]} offers
  if [ "$COMP_CWORD" -eq 1 ]; then
    offers=$(_tarsil_commands)
  elif [ "$previous" = --what ]; then
    offers=$(_tarsil_operations)
  elif [[ $word == -* ]]; then
    offers=$(_tarsil_options "$command")
  elif [[ $command == send || $command == simulate ]] && [ "$COMP_CWORD" -eq 2 ]; then
    offers=$(_tarsil_models)
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
    return
  fi
  mapfile -t COMPREPLY < <(compgen -W "$offers" -- "$word")
}

complete -o filenames -F _tarsil tarsil
