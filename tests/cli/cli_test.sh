#!/usr/bin/env bash
# Drives the kora program: output formats, exit statuses, JSON keys, --keep-going and
# conversions between every pair of formats, read back with the same atom and bond counts.
#   cli_test.sh KORA EXAMPLES_DIR
set -uo pipefail
kora=$1
examples=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
passes=0

check() {  # check DESCRIPTION COMMAND...: the command must succeed
  local what=$1
  shift
  if "$@"; then
    passes=$((passes + 1))
  else
    echo "FAILED: $what" >&2
    failures=$((failures + 1))
  fi
}

status_of() { "$@" >/dev/null 2>&1; echo $?; }

# formats
out=$("$kora" formats)
check "formats lists four formats" test "$(printf '%s\n' "$out" | wc -l)" -eq 4
check "formats first line" test "$(printf '%s\n' "$out" | head -1)" = "$(printf 'Mol2 file\tmol2,mol\twriteable')"
check "formats MOL is read-only" grep -q "$(printf 'MOL file\tmol,sdf,sd,mdl\tread-only')" <<<"$out"

# identify
out=$("$kora" identify "$examples/drugs.sdf" "$examples/drugs.mol2" "$examples/peptide.pdb" "$examples/benzoic_acid.res")
check "identify names every format" test "$out" = "$(printf '%s\tMOL file\n%s\tMol2 file\n%s\tPDB file\n%s\tSHELX file' \
  "$examples/drugs.sdf" "$examples/drugs.mol2" "$examples/peptide.pdb" "$examples/benzoic_acid.res")"
echo "plain text" >"$work/plain.txt"
check "identify unknown exits 1" test "$(status_of "$kora" identify "$examples/drugs.sdf" "$work/plain.txt")" -eq 1
check "identify unknown line" grep -q "$(printf 'plain.txt\tunknown')" <<<"$("$kora" identify "$work/plain.txt")"
check "identify missing exits 1" test "$(status_of "$kora" identify "$work/missing.sdf")" -eq 1

# list
out=$("$kora" list "$examples/drugs.sdf")
check "list header" test "$(head -1 <<<"$out")" = "$(printf 'index\tidentifier\toffset')"
check "list entries" test "$(sed -n 2p <<<"$out")" = "$(printf '0\taspirin\t0')"
check "list counts entries" test "$(wc -l <<<"$out")" -eq 6
check "list offsets point at names" test "$(tail -c +$(($(sed -n 3p <<<"$out" | cut -f3) + 1)) "$examples/drugs.sdf" | head -1)" = paracetamol

# info
json=$("$kora" info "$examples/drugs.sdf" --json)
check "info one JSON line per entry" test "$(wc -l <<<"$json")" -eq 5
for key in index identifier molecules atoms bonds formula charge cell spacegroup data; do
  check "info JSON key $key" grep -q "\"$key\":" <<<"$(head -1 <<<"$json")"
done
check "info formula in Hill order" grep -q '"formula":"C9H8O4"' <<<"$json"
check "info cell keys" grep -q '"cell":{"a":1.0,"b":1.0,"c":1.0,"alpha":90.0,"beta":90.0,"gamma":90.0}' <<<"$json"
check "info data items" grep -q '"MW":\["180.16"\]' <<<"$json"
check "info --id" grep -q '"identifier":"caffeine"' <<<"$("$kora" info "$examples/drugs.sdf" --id caffeine --json)"
check "info --entry" test "$("$kora" info "$examples/drugs.sdf" --entry 4 --json | grep -c nicotine)" -eq 1
check "info of a crystal" grep -q '"spacegroup":{"symbol":"P21/c","number":14}' <<<"$("$kora" info "$examples/benzoic_acid.res" --json)"
check "info bad entry exits 1" test "$(status_of "$kora" info "$examples/drugs.sdf" --entry 9)" -eq 1

# usage errors
check "no command exits 2" test "$(status_of "$kora")" -eq 2
check "unknown option exits 2" test "$(status_of "$kora" list --bogus "$examples/drugs.sdf")" -eq 2
check "unknown --to exits 2" test "$(status_of "$kora" convert "$examples/drugs.sdf" "$work/x.out" --to xyz)" -eq 2
check "stdout needs --to" test "$(status_of "$kora" convert "$examples/drugs.sdf" -)" -eq 2
check "several entries to RES exits 2" test "$(status_of "$kora" convert "$examples/drugs.sdf" "$work/x.res")" -eq 2
check "--help exits 0" test "$(status_of "$kora" convert --help)" -eq 0

# conversions between every pair of formats keep atom and bond counts
counts() { "$kora" info "$@" --json | sed -E 's/.*"atoms":([0-9]+),"bonds":([0-9]+).*/\1 \2/'; }
for input in drugs.sdf drugs.mol2 peptide.pdb benzoic_acid.res; do
  for to in mol2 sdf pdb res; do
    args=()
    [ "$input" = drugs.sdf ] || [ "$input" = drugs.mol2 ] && [ "$to" = res ] && args=(--entry 2)
    out_file="$work/$input.$to"
    if ! "$kora" convert "$examples/$input" "$out_file" "${args[@]}"; then
      check "convert $input to $to" false
      continue
    fi
    expected=$(counts "$examples/$input" "${args[@]}")
    check "convert $input to $to keeps counts" test "$(counts "$out_file")" = "$expected"
  done
done
check "SD to SD keeps data items" grep -q "^> *<MW>" "$work/drugs.sdf.sdf"
check "--v3000 writes V3000" grep -q "V3000" <<<"$("$kora" convert "$examples/drugs.sdf" - --to sdf --v3000)"

# a bad entry: stop by default, skip with --keep-going
{
  sed -n '1,/\$\$\$\$/p' "$examples/drugs.sdf"
  printf 'broken\n  test\n\n  2  1  0  0  0  0  0  0  0  0999 V2000\n    0.0000    0.0000    0.0000 C   0  0\n    1.5000    0.0000    0.0000 C   0  0\n  1  9  1  0\nM  END\n$$$$\n'
  sed -n '/^caffeine/,$p' "$examples/drugs.sdf"
} >"$work/bad.sdf"
echo "keep me" >"$work/kept.mol2"
check "bad entry exits 1" test "$(status_of "$kora" convert "$work/bad.sdf" "$work/kept.mol2")" -eq 1
check "failed run leaves OUT" test "$(cat "$work/kept.mol2")" = "keep me"
check "no temporary left" test "$(ls "$work" | grep -c kora-)" -eq 0
check "--keep-going exits 3" test "$(status_of "$kora" convert "$work/bad.sdf" "$work/kept.mol2" --keep-going)" -eq 3
check "--keep-going writes the rest" test "$(grep -c '@<TRIPOS>MOLECULE' "$work/kept.mol2")" -eq 4

# a closed pipe is a write error, not a crash
for i in $(seq 30); do cat "$examples/drugs.sdf"; done >"$work/big.sdf"
"$kora" convert "$work/big.sdf" - --to sdf 2>"$work/pipe.err" | head -c 10 >/dev/null
status=${PIPESTATUS[0]}
check "closed pipe exits 1" test "$status" -eq 1
check "closed pipe reported" grep -q "write error" "$work/pipe.err"

echo "cli: $passes passed, $failures failed"
[ "$failures" -eq 0 ]
