#!/usr/bin/env bash
# A short tour of the kora program on the example files:
#   scripts/demo.sh [path/to/kora]
set -euo pipefail
cd "$(dirname "$0")/.."
kora=${1:-build/bin/kora}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

step() { printf '\n$ %s\n' "$*"; "$@"; }

step "$kora" formats
step "$kora" identify examples/drugs.sdf examples/drugs.mol2 examples/peptide.pdb examples/benzoic_acid.res
step "$kora" list examples/drugs.sdf
step "$kora" info examples/benzoic_acid.res
step "$kora" info examples/drugs.sdf --id caffeine --json

printf '\nConverting every example into every other format:\n'
for input in examples/drugs.sdf examples/drugs.mol2 examples/peptide.pdb examples/benzoic_acid.res; do
  name=$(basename "${input%.*}")
  for to in mol2 sdf pdb res; do
    extra=()
    case "$input:$to" in *drugs.*:res) extra=(--entry 0) ;; esac
    target="$out/$name.$to"
    "$kora" convert "$input" "$target" "${extra[@]}"
    printf '  %-26s -> %-18s %s\n' "$input" "$name.$to" \
      "$("$kora" info "$target" --json | head -1 | sed -E 's/.*"atoms":([0-9]+),"bonds":([0-9]+),"formula":"([^"]*)".*/\1 atoms, \2 bonds, \3/')"
  done
done
