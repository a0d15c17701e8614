# bash completion for update, qd-update and qd-repo: commands and options as the programs' own help has them.

_qd_words() { # PROGRAM [COMMAND]: the commands and options of its help
  "$@" --help 2>/dev/null | sed -nE '/^Subcommands:/,$s/^  ([a-z]+) .*/\1/p
    s/^  (-[a-z]),(--[a-z]+) .*/\1\n\2/p; s/^  (--?[a-z-]+)([ {].*)?$/\1/p'
}

_qd_complete() {
  local word=${COMP_WORDS[COMP_CWORD]} program=$1 words
  COMPREPLY=()
  case ${program##*/} in
    update) words='-D -S' ;;
    *)
      if [ "$COMP_CWORD" = 1 ]; then
        words=$(_qd_words "$program")
      elif [[ $word == -* ]]; then
        words=$(_qd_words "$program" "${COMP_WORDS[1]}")
      else
        return # a file, by the shell itself
      fi
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}

complete -o default -F _qd_complete update qd-update qd-repo
