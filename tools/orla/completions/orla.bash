# bash completion for orla: subcommands, options, action kinds (asked of
# `orla list`, so kinds added to the library are offered too), and files.
_orla() {
  local cur="${COMP_WORDS[COMP_CWORD]}" prev="${COMP_WORDS[COMP_CWORD-1]}"
  local sub="" positional=0 i
  for ((i = 1; i < COMP_CWORD; i++)); do
    case "${COMP_WORDS[i]}" in
      list|validate|run|sequence|daemon) [[ -z $sub ]] && sub="${COMP_WORDS[i]}" ;;
      --state-out) ((i++)) ;;
      -*) ;;
      *) [[ -n $sub ]] && ((positional++)) ;;
    esac
  done
  case "$prev" in
    --state-out) COMPREPLY=($(compgen -f -- "$cur")); return ;;
  esac
  if [[ $cur == --sim=* ]]; then
    COMPREPLY=($(compgen -P --sim= -f -X '!*.json' -- "${cur#--sim=}") $(compgen -P --sim= -d -- "${cur#--sim=}"))
    return
  fi
  case "$sub" in
    "")
      COMPREPLY=($(compgen -W "list validate run sequence daemon --json --sim --trace --state-out --help --version" -- "$cur"))
      [[ $prev == --sim ]] && COMPREPLY+=($(compgen -f -X '!*.json' -- "$cur"))
      ;;
    list) COMPREPLY=($(compgen -W "--json --help" -- "$cur")) ;;
    validate|run)
      if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "--help" -- "$cur"))
      elif ((positional == 0)); then
        COMPREPLY=($(compgen -W "$("${COMP_WORDS[0]}" list 2>/dev/null | cut -d' ' -f1)" -- "$cur"))
      elif [[ $cur == @* ]]; then
        COMPREPLY=($(compgen -P @ -f -- "${cur#@}"))
      fi
      ;;
    sequence)
      if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "--keep-going --help" -- "$cur"))
      elif ((positional == 0)); then
        COMPREPLY=($(compgen -f -- "$cur"))
      fi
      ;;
    daemon)
      if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "--check --help" -- "$cur"))
      else
        COMPREPLY=($(compgen -d -- "$cur"))
      fi
      ;;
  esac
}
complete -F _orla orla
