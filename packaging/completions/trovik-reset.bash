# Completion of trovik-reset(1) for bash. Needs nothing of bash-completion but its folder.
_trovik_reset() {
  local commands='list check reset resume explain report'
  local any='--help --json --simulate --scenarios'
  local reset='--all --each --count --yes --wait --limit --jobs --retries --keep-station --trace'
  local stages='quit reboot gone back hold clear resume back-again identified-again'
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} command='' word i
  COMPREPLY=()
  # Readline takes "=" for a word of its own.
  if [[ $cur == '=' ]]; then
    cur=''
  elif [[ $prev == '=' ]]; then
    prev=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  for ((i = 1; i < COMP_CWORD; ++i)); do
    for word in $commands; do
      [[ ${COMP_WORDS[i]} == "$word" ]] && command=$word && break 2
    done
  done
  case $prev in
    --simulate)
      COMPREPLY=($(compgen -W "$("${COMP_WORDS[0]}" --scenarios 2>/dev/null | cut -f 1)" -- "$cur") $(compgen -f -- "$cur"))
      return ;;
    --limit)
      COMPREPLY=($(compgen -W "$stages" -S = -- "$cur"))
      compopt -o nospace 2>/dev/null
      return ;;
    --trace) COMPREPLY=($(compgen -d -- "$cur")); return ;;
    --count | --wait | --jobs | --retries) return ;;
  esac
  case $command in
    '') word="$commands $any" ;;
    list) word="--watch $any" ;;
    reset) word="$reset $any" ;;
    *) word=$any ;;
  esac
  COMPREPLY=($(compgen -W "$word" -- "$cur"))
  case $command in
    check | reset | resume | explain)
      [[ $cur == -* ]] || COMPREPLY+=($(compgen -W "$("${COMP_WORDS[0]}" list --json 2>/dev/null |
        sed -n 's/.*"port":"\([^"]*\)".*"state":"attached".*/\1/p')" -- "$cur")) ;;
    report) [[ $cur == -* ]] || COMPREPLY+=($(compgen -f -- "$cur")) ;;
  esac
}
complete -F _trovik_reset trovik-reset
