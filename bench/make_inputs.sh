#!/usr/bin/env bash
# Builds the large inputs of the peer comparison, deterministically, by repeating records
# of the corpus benchmark files:
#   OUT/big.sdf    10 copies of the ring-template SD file: 107,510 records, each record's
#                  title line replaced by a unique name KR0000001, KR0000002, ...
#   OUT/huge.sdf   (with --huge) big.sdf ten times over: 1,075,100 records, unique names
#   OUT/big_v3000.sdf  the ring-template SD file written as V3000 by Open Babel (obabel -x3,
#                  when obabel is installed), ten times over as big.sdf is: 107,510 records
#   OUT/big.mol2   18 copies of the FABP4 decoy Mol2 file: 51,390 molecules
#   OUT/big.pdb    3G61 (two chains, 18,448 atoms) tiled six times along x, 250 A apart,
#                  as one model of 110,688 atoms with chains A-L and no CONECT records,
#                  so that every reader perceives bonds from distances
# Existing outputs are kept.
#
#   make_inputs.sh OUT [--huge]      (corpus: $KORA_CORPUS, else ../shared/corpus)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
out=${1:?usage: make_inputs.sh OUT [--huge]}
huge=${2:-}
corpus=${KORA_CORPUS:-$here/../../shared/corpus}
bench=$corpus/bench
mkdir -p "$out"

# Repeats an SD file COPIES times, naming record n "KR" + n in seven digits. The last
# record of a file may lack its line end or its $$$$ line: both are added between copies.
repeat_sd() {  # repeat_sd IN COPIES OUT
  local in=$1 copies=$2 target=$3 tail=''
  [[ -z $(tail -c 1 "$in") ]] || tail=$'\n'
  [[ $(tail -n 1 "$in") == '$$$$' ]] || tail+=$'$$$$\n'
  for ((c = 0; c < copies; ++c)); do cat "$in"; printf '%s' "$tail"; done |
    awk 'BEGIN { n = 0; start = 1 }
         start { printf "KR%07d\n", ++n; start = 0; next }
         /^\$\$\$\$/ { start = 1 }
         { print }' >"$target.tmp"
  mv "$target.tmp" "$target"
}

if [[ ! -s $out/big.sdf ]]; then
  repeat_sd "$bench/bench_cdk_ringTemplateStructures.sdf" 10 "$out/big.sdf"
fi
if [[ $huge == --huge && ! -s $out/huge.sdf ]]; then
  repeat_sd "$out/big.sdf" 10 "$out/huge.sdf"
fi

if [[ ! -s $out/big_v3000.sdf ]] && command -v obabel >/dev/null; then
  obabel "$bench/bench_cdk_ringTemplateStructures.sdf" -O "$out/v3000.sdf.tmp" -osdf -x3 2>/dev/null
  repeat_sd "$out/v3000.sdf.tmp" 10 "$out/big_v3000.sdf"
  rm -f "$out/v3000.sdf.tmp"
fi

if [[ ! -s $out/big.mol2 ]]; then
  for ((c = 0; c < 18; ++c)); do cat "$bench/bench_dude_fabp4_decoys_final.mol2"; done \
    >"$out/big.mol2.tmp"
  mv "$out/big.mol2.tmp" "$out/big.mol2"
fi

if [[ ! -s $out/big.pdb ]]; then
  awk 'BEGIN { chains = "ABCDEFGHIJKL"; n = 0 }
       FNR == 1 { copy++ }
       copy == 1 && /^(HEADER|CRYST1)/ { print }
       /^(ATOM  |HETATM|TER   )/ {
         chain = substr($0, 22, 1)
         c = substr(chains, 2 * (copy - 1) + (chain == "B" ? 2 : 1), 1)
         serial = n++ % 99999 + 1
         if (/^TER/) { printf "TER   %5d%s%s%s\n", serial, substr($0, 12, 10), c, substr($0, 23); next }
         x = substr($0, 31, 8) + 250.0 * (copy - 1)
         printf "%s%5d%s%s%s%8.3f%s\n", substr($0, 1, 6), serial, substr($0, 12, 10), c,
                substr($0, 23, 8), x, substr($0, 39)
       }
       END { print "END" }' \
    $(for ((c = 0; c < 6; ++c)); do echo "$bench/bench_openbabel_3G61.pdb"; done) >"$out/big.pdb.tmp"
  mv "$out/big.pdb.tmp" "$out/big.pdb"
fi
ls -l "$out"
