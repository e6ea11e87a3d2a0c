#!/usr/bin/env bash
# Side-by-side timings of kora and the open-source readers users would otherwise pick
# (RDKit, Open Babel, gemmi) on the same files in the same run. Prints one table: each
# task's median whole-process wall time and peak memory for kora and every peer, and the
# ratio of the fastest peer's time to kora's (above 1: kora is faster).
#
#   bench/compare_peers.sh [--runs N] [--work DIR] [--quick] [--slow]
#     --runs N   timed runs of every command, interleaved (default 5), after one warm-up
#     --work D   where the generated inputs and outputs go (default build-bench/inputs)
#     --quick    skip the memory check on the 1,075,100-record SD file (1.6 GB)
#     --slow     also time Open Babel on the generated PDB file (minutes per run)
#
# Installs the peers from Debian packages when they are missing (needs root), builds kora
# and the drivers in bench/peers/, and makes the inputs with bench/make_inputs.sh.
# Inputs come from the corpus benchmark files ($KORA_CORPUS, else ../shared/corpus).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
runs=5
work=$root/build-bench/inputs
huge=yes
slow=no
while (($#)); do
  case $1 in
    --runs) runs=$2; shift 2 ;;
    --work) work=$2; shift 2 ;;
    --quick) huge=no; shift ;;
    --slow) slow=yes; shift ;;
    *) echo "usage: $0 [--runs N] [--work DIR] [--quick] [--slow]" >&2; exit 2 ;;
  esac
done
corpus=${KORA_CORPUS:-$root/../shared/corpus}
if [[ ! -d $corpus/bench ]]; then
  echo "compare_peers: no corpus benchmark files in $corpus/bench (set KORA_CORPUS)" >&2
  exit 1
fi
export KORA_CORPUS=$corpus

# --- peers and builds --------------------------------------------------------------------
packages=(openbabel libopenbabel-dev librdkit-dev python3-rdkit gemmi-dev libboost-dev
  tao-pegtl-dev zlib1g-dev pkg-config time)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "installing ${missing[*]}" >&2
  apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >&2
fi
bash "$root/scripts/install-deps.sh" >&2
cmake -S "$root" -B "$root/build-bench" -DCMAKE_BUILD_TYPE=Release -DKORA_BUILD_BENCH=ON \
  -DKORA_BUILD_TESTS=OFF >/dev/null
cmake --build "$root/build-bench" -j2 --target kora-cli kora_read >/dev/null
cmake -S "$root/bench/peers" -B "$root/build-peers" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$root/build-peers" -j2 >/dev/null
kora=$root/build-bench/bin/kora
kread=$root/build-bench/bin/kora_read
rdkit=$root/build-peers/rdkit_driver
obabel=$root/build-peers/openbabel_driver
gemmi=$root/build-peers/gemmi_driver

flags=()
[[ $huge == yes ]] && flags+=(--huge)
bash "$root/bench/make_inputs.sh" "$work" "${flags[@]}" >/dev/null
sd=$work/big.sdf
mol2=$work/big.mol2
pdb=$work/big.pdb
out=$work/out
mkdir -p "$out"

# --- timing ------------------------------------------------------------------------------
# time_commands NAME=COMMAND...: runs every command once to warm up, then RUNS rounds of
# all of them in turn; sets wall[NAME] (median seconds) and rss[NAME] (median peak MB).
# A command is words without shell syntax; its output is discarded. A command that fails
# counts as "nan".
declare -A wall rss
time_commands() {
  local -a names=() commands=()
  local item
  for item in "$@"; do
    names+=("${item%%=*}")
    commands+=("${item#*=}")
  done
  local -A times=() memory=()
  local round i seconds kilobytes
  local -a words
  local record=$work/time.txt
  for ((round = 0; round <= runs; ++round)); do
    for i in "${!names[@]}"; do
      read -ra words <<<"${commands[$i]}"
      if /usr/bin/time -o "$record" -f '%e %M' "${words[@]}" >/dev/null 2>&1; then
        read -r seconds kilobytes <"$record"
      else
        seconds=nan kilobytes=0
      fi
      ((round == 0)) && continue
      times[${names[$i]}]+="$seconds "
      memory[${names[$i]}]+="$kilobytes "
    done
  done
  for i in "${names[@]}"; do
    wall[$i]=$(median ${times[$i]})
    rss[$i]=$(median ${memory[$i]} | awk '{ printf "%.0f", $1 / 1024 }')
  done
}
median() { printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

rows=()
# row TASK KORA_NAME PEER_NAME...: one line of the table, "-" where a tool has no figure.
row() {
  local task=$1 k=$2
  shift 2
  local line best=""
  line=$(printf '%-34s %s' "$task" "$(cell "$k")")
  local peer
  for peer in rdkit rdkit_raw obabel gemmi; do
    local name
    name=$(pick "$peer" "$@")
    line+=" $(cell "$name")"
    if [[ -n $name && ${wall[$name]} != nan ]]; then
      if [[ -z $best ]] || awk -v a="${wall[$name]}" -v b="$best" 'BEGIN { exit !(a < b) }'; then
        best=${wall[$name]}
      fi
    fi
  done
  local ratio=-
  [[ -n $best ]] && ratio=$(awk -v p="$best" -v k="${wall[$k]}" 'BEGIN { printf "%.1fx", p / (k > 0 ? k : 0.005) }')
  rows+=("$line $(printf '%8s' "$ratio")")
}
# The command name among the arguments that belongs to a peer column.
pick() {
  local peer=$1 n
  shift
  for n in "$@"; do
    case $peer:$n in
      rdkit:rdkit_san_*) echo "$n"; return ;;
      rdkit_raw:rdkit_raw_*) echo "$n"; return ;;
      obabel:obabel_*) echo "$n"; return ;;
      gemmi:gemmi_*) echo "$n"; return ;;
    esac
  done
}
cell() {
  if [[ -z $1 || -z ${wall[$1]:-} ]]; then printf '%16s' -; return; fi
  if [[ ${wall[$1]} == nan ]]; then printf '%16s' failed; return; fi
  printf '%16s' "$(printf '%.3f s %4s MB' "${wall[$1]}" "${rss[$1]}")"
}

# --- tasks -------------------------------------------------------------------------------
echo "timing $runs runs of each command after one warm-up; inputs in $work" >&2
middle=$(($(grep -c '^\$\$\$\$' "$sd") / 2))
middle_id=$(printf 'KR%07d' $((middle + 1)))

echo "1. SD index" >&2
time_commands "k_index=$kora list $sd" "rdkit_san_index=$rdkit sd-count $sd" \
  "floor_cat=cat $sd" "floor_lines=$kread lines $sd" "floor_wc=wc -l $sd"
row "1. SD index ($(basename "$sd"))" k_index rdkit_san_index

echo "2. SD read" >&2
time_commands "k_sd=$kread read $sd" "rdkit_san_sd=$rdkit sd-read $sd" \
  "rdkit_raw_sd=$rdkit sd-read $sd --no-sanitize" "obabel_sd=$obabel read sdf $sd"
row "2. SD read to molecules" k_sd rdkit_san_sd rdkit_raw_sd obabel_sd
# The tool reads (and summarises) on -j threads; the ratio of -j 1 to -j 2 is the scaling.
time_commands "k_sd_j1=$kora info -q -j 1 $sd" "k_sd_j2=$kora info -q -j 2 $sd"
row "2. ... kora info -j 1" k_sd_j1 rdkit_san_sd rdkit_raw_sd obabel_sd
row "2. ... kora info -j 2" k_sd_j2 rdkit_san_sd rdkit_raw_sd obabel_sd

if [[ -s $work/big_v3000.sdf ]]; then
  v3000=$work/big_v3000.sdf
  time_commands "k_v3000=$kread read $v3000" "rdkit_san_v3000=$rdkit sd-read $v3000" \
    "rdkit_raw_v3000=$rdkit sd-read $v3000 --no-sanitize"
  row "2. V3000 SD read ($(basename "$v3000"))" k_v3000 rdkit_san_v3000 rdkit_raw_v3000
fi

echo "3. SD fetch" >&2
time_commands "k_fetch=$kora info --entry $middle --json $sd" \
  "k_fetch_id=$kora info --id $middle_id --json $sd" "rdkit_san_fetch=$rdkit sd-fetch $sd $middle"
row "3. SD record $middle by index" k_fetch rdkit_san_fetch
row "3. SD record $middle_id by identifier" k_fetch_id
fetch_index=$("$kread" fetch "$sd" "$middle" | head -1)
fetch_id=$("$kread" fetch "$sd" "$middle_id" | head -1)

echo "4. Mol2 read" >&2
time_commands "k_mol2=$kread read $mol2" "rdkit_san_mol2=$rdkit mol2-read $mol2" \
  "rdkit_raw_mol2=$rdkit mol2-read $mol2 --no-sanitize" "obabel_mol2=$obabel read mol2 $mol2"
row "4. Mol2 read ($(basename "$mol2"))" k_mol2 rdkit_san_mol2 rdkit_raw_mol2 obabel_mol2

echo "5. PDB read" >&2
pdb_commands=("k_pdb=$kread read $pdb" "rdkit_san_pdb=$rdkit pdb-read $pdb"
  "rdkit_raw_pdb=$rdkit pdb-read $pdb --no-sanitize" "gemmi_pdb=$gemmi $pdb")
[[ $slow == yes ]] && pdb_commands+=("obabel_pdb=$obabel read pdb $pdb")
time_commands "${pdb_commands[@]}"
if [[ $slow == yes ]]; then
  row "5. PDB read with bonds ($(basename "$pdb"))" k_pdb rdkit_san_pdb rdkit_raw_pdb obabel_pdb
else
  row "5. PDB read with bonds ($(basename "$pdb"))" k_pdb rdkit_san_pdb rdkit_raw_pdb
fi
row "5. ... gemmi without bonds (floor)" k_pdb gemmi_pdb
ckv=$corpus/bench/bench_cdk_1CKV.pdb
time_commands "k_ckv=$kread read $ckv" "rdkit_san_ckv=$rdkit pdb-read $ckv" \
  "rdkit_raw_ckv=$rdkit pdb-read $ckv --no-sanitize" "obabel_ckv=$obabel read pdb $ckv" \
  "gemmi_ckv=$gemmi $ckv"
row "5. PDB read, 1CKV (14 models)" k_ckv rdkit_san_ckv rdkit_raw_ckv obabel_ckv
row "5. ... gemmi without bonds (floor)" k_ckv gemmi_ckv

echo "6. RES read" >&2
# Open Babel stops with a segmentation fault on some corpus files: both read the files it
# survives, each list 20 times over so that the reading, not process start-up, is timed.
res_all=("$corpus"/res/*.res)
res_ok=()
for f in "${res_all[@]}"; do
  if ("$obabel" read res "$f") >/dev/null 2>&1; then res_ok+=("$f"); fi
done 2>/dev/null
res_list=()
for ((i = 0; i < 20; ++i)); do res_list+=("${res_ok[@]}"); done
time_commands "k_res=$kread read ${res_list[*]}" "obabel_res=$obabel read res ${res_list[*]}"
row "6. RES read (${#res_ok[@]} files x 20)" k_res obabel_res

echo "7. conversions" >&2
time_commands "k_sd2mol2=$kora convert -j 1 $sd $out/kora.mol2" \
  "k_sd2mol2_j2=$kora convert -j 2 $sd $out/kora2.mol2" \
  "obabel_sd2mol2=$obabel convert $sd $out/obabel.mol2"
row "7. convert SD to Mol2 (-j 1)" k_sd2mol2 obabel_sd2mol2
row "7. convert SD to Mol2 (-j 2)" k_sd2mol2_j2 obabel_sd2mol2
time_commands "k_sd2sd=$kora convert -j 1 $sd $out/kora.sdf" \
  "rdkit_raw_sd2sd=$rdkit sd-to-sd $sd $out/rdkit.sdf" "obabel_sd2sd=$obabel convert $sd $out/obabel.sdf"
row "7. convert SD to SD" k_sd2sd rdkit_raw_sd2sd obabel_sd2sd

# --- report ------------------------------------------------------------------------------
mb() { awk -v b="$(stat -c %s "$1")" 'BEGIN { printf "%.1f", b / 1e6 }'; }
echo
echo "kora against its peers: median of $runs runs, whole-process wall time and peak memory"
echo "$(date -u +%Y-%m-%d), $(nproc) cores, $(uname -m); ratio = fastest peer / kora"
echo "SD $(basename "$sd"): $(mb "$sd") MB, $(grep -c '^\$\$\$\$' "$sd") records;" \
  "Mol2 $(basename "$mol2"): $(mb "$mol2") MB, $(grep -c '^@<TRIPOS>MOLECULE' "$mol2") molecules;" \
  "PDB $(basename "$pdb"): $(grep -c '^\(ATOM  \|HETATM\)' "$pdb") atoms"
echo
printf '%-34s %16s %16s %16s %16s %16s %8s\n' task kora "RDKit" "RDKit unsanit." "Open Babel" gemmi ratio
printf '%s\n' "${rows[@]}"
echo
bytes=$(stat -c %s "$sd")
rate() { awk -v b="$bytes" -v t="$1" 'BEGIN { printf "%.2f GB/s", b / (t > 0 ? t : 0.001) / 1e9 }'; }
echo "floor of the machine for $(basename "$sd"): cat > /dev/null ${wall[floor_cat]} s ($(rate "${wall[floor_cat]}")), split into lines (kora_read lines) ${wall[floor_lines]} s ($(rate "${wall[floor_lines]}")), wc -l ${wall[floor_wc]} s"
echo "SD index: kora list ${wall[k_index]} s ($(rate "${wall[k_index]}"), $(awk -v a="${wall[k_index]}" -v b="${wall[floor_lines]}" 'BEGIN { printf "%.1f", a / b }')x the line-splitting floor)"
echo "random access after the index is built (kora_read fetch): by index: $fetch_index; by identifier: $fetch_id"
echo "threads: kora info -j 2 ${wall[k_sd_j2]} s against -j 1 ${wall[k_sd_j1]} s; kora convert to Mol2 -j 2 ${wall[k_sd2mol2_j2]} s against -j 1 ${wall[k_sd2mol2]} s"
if [[ $huge == yes ]]; then
  huge_middle=$(($(grep -c '^\$\$\$\$' "$work/huge.sdf") / 2))
  rm -f "$work/huge.sdf.kora-index"
  time_commands "k_huge_fetch=$kora info --entry $huge_middle --json $work/huge.sdf"
  "$kora" index "$work/huge.sdf" >/dev/null
  time_commands "k_huge_saved=$kora info --entry $huge_middle --json $work/huge.sdf"
  rm -f "$work/huge.sdf.kora-index"
  echo "huge.sdf, record $huge_middle: ${wall[k_huge_fetch]} s indexing the file, ${wall[k_huge_saved]} s with the index saved by kora index"
  echo "kora convert peak memory, SD to Mol2:"
  for f in "$sd" "$work/huge.sdf"; do
    /usr/bin/time -f '%e %M' "$kora" convert "$f" "$out/memory.mol2" 2>"$out/time.txt" >/dev/null
    read -r seconds kilobytes < <(tail -1 "$out/time.txt")
    echo "  $(basename "$f") ($(grep -c '^\$\$\$\$' "$f") records): $((kilobytes / 1024)) MB in $seconds s"
    rm -f "$out/memory.mol2"
  done
fi
