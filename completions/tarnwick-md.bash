# bash completion for tarnwick-md
_tarnwick_md() {
  local word=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]}
  if ((COMP_CWORD == 1)); then
    mapfile -t COMPREPLY < <(compgen -W "index check outline links lsp export refs symbols help --help --version -V" -- "$word")
    return
  fi
  case $command in
    index)
      if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "--help --verbose --quiet --prefix --stdin-path --hidden --follow --no-ignore --exclude --paths-from-cwd --files --jobs --db --rebuild --config --no-config -h -v -q -j" -- "$word")
      else
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
      fi
      ;;
    check)
      if [[ ${COMP_WORDS[COMP_CWORD - 1]} == --format ]]; then
        mapfile -t COMPREPLY < <(compgen -W "text json sarif github" -- "$word")
      elif [[ ${COMP_WORDS[COMP_CWORD - 1]} == --ignore ]]; then
        mapfile -t COMPREPLY < <(compgen -W "missing-file missing-anchor missing-anchor-other-file case-mismatch outside-repository malformed-link line-fragment site-path html-for-markdown custom-anchor template-syntax missing-page ambiguous-page unused-suppression" -- "$word")
      elif [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "--help --root --format --ignore --accept --report-unused-suppressions --wiki --no-wiki --changed --changed-since --exclude --hidden --follow --no-ignore --jobs --config --no-config --baseline --write-baseline -h -j" -- "$word")
      else
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
      fi
      ;;
    outline | links)
      if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "--help --json -h" -- "$word")
      else
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
      fi
      ;;
    lsp) mapfile -t COMPREPLY < <(compgen -W "--help --stdio -h" -- "$word") ;;
    export | refs | symbols)
      if [[ $word == -* ]]; then
        local options="--help --db -h"
        [ "$command" = export ] || options+=" --json --limit"
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
      elif [[ ${COMP_WORDS[COMP_CWORD - 1]} == --db || $command == refs ]]; then
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
      fi
      ;;
    help) mapfile -t COMPREPLY < <(compgen -W "index check outline links lsp export refs symbols" -- "$word") ;;
  esac
}
complete -o filenames -F _tarnwick_md tarnwick-md
