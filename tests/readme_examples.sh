#!/usr/bin/env bash
# Runs every `$ tarnwick-md ...` example of the README from the repository's root and compares
# its output with the lines shown below it; a shown line that ends in "..." stands for every
# line that starts with the text before it. usage: readme_examples.sh TARNWICK_MD SOURCE_DIR
set -euo pipefail
binary=$(realpath "$1")
cd "$2"
examples=0 failures=0
check() {
  local command=$1 expected=$2 actual
  actual=$(eval "\"$binary\" ${command#tarnwick-md }" 2>&1) || true
  local shown got
  mapfile -t shown <<<"$expected"
  mapfile -t got <<<"$actual"
  local ok=1 i
  if ((${#shown[@]} > ${#got[@]})); then ok=0; fi
  for ((i = 0; ok && i < ${#shown[@]}; ++i)); do
    if [[ ${shown[i]} == *... ]]; then
      [[ ${got[i]} == "${shown[i]%...}"* ]] || ok=0
    else
      [[ ${got[i]} == "${shown[i]}" ]] || ok=0
    fi
  done
  # A shown output ending in "..." may stop early; otherwise it is the whole output.
  if ((ok)) && [[ ${shown[-1]} != *... ]] && ((${#shown[@]} != ${#got[@]})); then ok=0; fi
  examples=$((examples + 1))
  if ((!ok)); then
    failures=$((failures + 1))
    printf 'README example `%s` printed:\n%s\nwhere the README shows:\n%s\n\n' "$command" "$actual" "$expected"
  fi
}
command="" expected="" in_block=0
while IFS= read -r line; do
  if [[ $line == '```'* ]]; then
    [ -n "$command" ] && check "$command" "$expected"
    command="" expected=""
    in_block=$((1 - in_block))
  elif ((in_block)) && [[ $line == '$ tarnwick-md '* ]]; then
    [ -n "$command" ] && check "$command" "$expected"
    command=${line#\$ } expected=""
  elif ((in_block)) && [ -n "$command" ]; then
    expected+=${expected:+$'\n'}$line
  fi
done <README.md
echo "$((examples - failures)) passed, $failures failed"
((failures == 0 && examples > 0))
