#!/usr/bin/env bash
# Builds the libFuzzer harnesses with clang under AddressSanitizer and
# UndefinedBehaviorSanitizer and runs each for a while on its seeds, two at a time.
#
#   fuzz/run.sh [SECONDS] [TIMEOUT] [NAME...]
#
# Defaults: 60 seconds per harness, 1 s per input, every harness (mol2 mdl pdb res text
# databases gzip).
#
# The sanitizers and coverage tracing slow reading down about ten times: 1 s under them is
# about 0.1 s in a release build.
# Seeds: examples/, tests/data/ and, when present, the corpus files of the format
# ($KORA_CORPUS, default ../shared/corpus; its large benchmark files are left out). New
# inputs the fuzzers find are kept in build-fuzz/corpus/NAME; a crash, sanitizer report,
# input slower than TIMEOUT or use of more than 2 GB leaves its input in
# build-fuzz/findings/ and makes the script fail.
set -uo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
timeout=${2:-1}
build=build-fuzz
corpus=${KORA_CORPUS:-../shared/corpus}

bash scripts/install-deps.sh --fuzz || exit 1
CXX=clang++-14 CC=clang-14 cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKORA_BUILD_FUZZ=ON -DKORA_BUILD_TESTS=OFF -DKORA_BUILD_TOOLS=OFF >/dev/null || exit 1
cmake --build "$build" -j2 --target fuzz_mol2 fuzz_mdl fuzz_pdb fuzz_res fuzz_text \
  fuzz_databases fuzz_gzip >/dev/null || exit 1
mkdir -p "$build/findings"

# seeds NAME: the seed directories of a harness (those that exist).
seeds() {
  local -a dirs=(examples tests/data)
  case $1 in
    mol2) dirs+=("$corpus/mol2") ;;
    mdl) dirs+=("$corpus/sdf") ;;
    pdb) dirs+=("$corpus/pdb") ;;
    res) dirs+=("$corpus/res") ;;
    databases | gzip) dirs+=("$corpus/mol2" "$corpus/sdf" "$corpus/pdb" "$corpus/res") ;;
  esac
  local d
  for d in "${dirs[@]}"; do [[ -d $d ]] && echo "$d"; done
}

run() {  # run NAME: one harness; its log in build-fuzz/NAME.log
  local name=$1 dict=()
  [[ -f fuzz/$name.dict ]] && dict=(-dict="fuzz/$name.dict")
  mkdir -p "$build/corpus/$name"
  "$build/bin/fuzz_$name" "$build/corpus/$name" $(seeds "$name") "${dict[@]}" \
    -max_total_time="$seconds" -timeout="$timeout" -rss_limit_mb=2048 -max_len=262144 \
    -artifact_prefix="$build/findings/$name-" -print_final_stats=1 >"$build/$name.log" 2>&1
}

status=0
names=("${@:3}")
[[ ${#names[@]} -gt 0 ]] || names=(mol2 mdl pdb res text databases gzip)
for ((i = 0; i < ${#names[@]}; i += 2)); do
  pids=()
  for name in "${names[@]:i:2}"; do
    run "$name" &
    pids+=("$!:$name")
  done
  for entry in "${pids[@]}"; do
    if wait "${entry%%:*}"; then
      result=ok
    else
      result=FAILED
      status=1
    fi
    name=${entry#*:}
    runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$build/$name.log" | grep -o '[0-9]*$')
    echo "fuzz_$name: $result, ${runs:-0} inputs in ${seconds} s"
    [[ $result == ok ]] || tail -30 "$build/$name.log"
  done
done
exit $status
