#!/usr/bin/env bash
# Drives the kora program: output formats, exit statuses, JSON keys, --keep-going,
# conversions between every pair of formats (read back with the same atom and bond counts),
# and failures to write or read (a full disk, folders, pipes, links, devices).
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
for name in x.ins X.RES y.INS; do
  cp "$examples/benzoic_acid.res" "$work/$name"
  check "identify SHELX $name" grep -q "$(printf '%s\tSHELX file' "$name")" <<<"$("$kora" identify "$work/$name")"
  check "info SHELX $name" grep -q '"spacegroup":{"symbol":"P21/c","number":14}' <<<"$("$kora" info "$work/$name" --json)"
done
check "formats SHELX extensions" grep -q "$(printf 'SHELX file\tres,ins\twriteable')" <<<"$("$kora" formats)"
printf 'TITL t\nCELL 0.71073 10 10 10 90 90 90\nSFAC C\nC1 1 0.1 0.1 0.1\nQ1 1 0.3 0.2 0.1 11 0.05 1.2\nHKLF 4\nEND\n' >"$work/peaks.res"
check "info counts peaks apart" grep -q '"atoms":1,.*"peaks":1' <<<"$("$kora" info "$work/peaks.res" --json)"
check "classic info takes peaks as atoms" grep -q '"atoms":2,' <<<"$("$kora" info --classic "$work/peaks.res" --json)"
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
check "info no cell of an SD record" grep -q '"cell":null,"spacegroup":null' <<<"$json"
check "info cell keys" grep -q '"cell":{"a":[0-9.]*,"b":[0-9.]*,"c":[0-9.]*,"alpha":[0-9.]*,"beta":[0-9.]*,"gamma":[0-9.]*}' <<<"$("$kora" info "$examples/benzoic_acid.res" --json)"
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

# several threads give the output of one, skipped entries reported in order
for i in 1 2 3 4 5 6 7 8; do cat "$work/bad.sdf"; done >"$work/bad8.sdf"
for j in 1 2 3; do
  "$kora" convert -j $j "$work/bad8.sdf" "$work/j$j.mol2" --keep-going 2>"$work/j$j.err"
  "$kora" info -j $j --json "$work/bad8.sdf" --classic >"$work/j$j.json" 2>/dev/null
done
check "-j 2 converts as -j 1" cmp -s "$work/j1.mol2" "$work/j2.mol2"
check "-j 3 converts as -j 1" cmp -s "$work/j1.mol2" "$work/j3.mol2"
check "-j 2 skips as -j 1" cmp -s "$work/j1.err" "$work/j2.err"
check "-j skips each bad entry" test "$(grep -c 'skipped .*entry' "$work/j2.err")" -eq 8
check "-j 2 summarises as -j 1" cmp -s "$work/j1.json" "$work/j2.json"
check "a negative -j is refused" test "$(status_of "$kora" info -j -1 "$work/bad8.sdf")" -eq 2

# a saved index: used while the file is unchanged, and only for files it can serve
cp "$examples/drugs.sdf" "$work/indexed.sdf"
"$kora" info "$work/indexed.sdf" --json >"$work/unindexed.json"
check "index names the saved file" test "$("$kora" index "$work/indexed.sdf")" = "$(printf '%s\t5 entries' "$work/indexed.sdf.kora-index")"
check "info with a saved index" cmp -s "$work/unindexed.json" <("$kora" info "$work/indexed.sdf" --json)
check "index of standard input is refused" test "$(status_of "$kora" index - <"$examples/drugs.sdf")" -eq 1
rm "$work/indexed.sdf.kora-index"

# a closed pipe ends the program quietly, as it ends any writer into a pipe
for i in $(seq 300); do cat "$examples/drugs.sdf"; done >"$work/big.sdf"
"$kora" convert "$work/big.sdf" - --to sdf 2>"$work/pipe.err" | head -c 10 >/dev/null
status=${PIPESTATUS[0]}
check "closed pipe ends by SIGPIPE" test "$status" -eq 141
check "closed pipe says nothing" test ! -s "$work/pipe.err"

# output faults: the error is on standard error, the status is 1, an existing OUT keeps every
# byte and no temporary file is left beside it
sum_of() { cksum <"$1"; }
temporaries() { find "$work" -name '*.kora-*' | wc -l; }
cp "$examples/drugs.mol2" "$work/existing.mol2"
before=$(sum_of "$work/existing.mol2")
# a full disk: past a 4 KiB file size limit writes fail (SIGXFSZ ignored, so it is an error)
(trap '' XFSZ; ulimit -f 4; exec "$kora" convert "$work/big.sdf" "$work/existing.mol2") 2>"$work/full.err"
status=$?
check "full disk exits 1" test "$status" -eq 1
check "full disk reported" grep -q "existing.mol2: write error: File too large" "$work/full.err"
check "full disk leaves OUT" test "$(sum_of "$work/existing.mol2")" = "$before"
check "full disk leaves no temporary" test "$(temporaries)" -eq 0
# an entry that cannot be read, after others were written
check "failing input exits 1" test "$(status_of "$kora" convert "$work/bad.sdf" "$work/existing.mol2")" -eq 1
check "failing input leaves OUT" test "$(sum_of "$work/existing.mol2")" = "$before"
# no temporary file can be made: a missing folder, or (unless root) a read-only one
"$kora" convert "$examples/drugs.sdf" "$work/missing/out.mol2" 2>"$work/nodir.err"
check "missing folder exits 1" test $? -eq 1
check "missing folder reported" grep -q "out.mol2: cannot write: No such file or directory" "$work/nodir.err"
if [ "$(id -u)" -ne 0 ]; then
  mkdir "$work/locked" && cp "$examples/drugs.mol2" "$work/locked/out.mol2" && chmod 555 "$work/locked"
  check "read-only folder exits 1" test "$(status_of "$kora" convert "$examples/drugs.sdf" "$work/locked/out.mol2")" -eq 1
  check "read-only folder leaves OUT" test "$(sum_of "$work/locked/out.mol2")" = "$before"
  chmod 755 "$work/locked"
fi
# OUT is a folder
mkdir "$work/folder.mol2"
"$kora" convert "$examples/drugs.sdf" "$work/folder.mol2" 2>"$work/folder.err"
check "folder as OUT exits 1" test $? -eq 1
check "folder as OUT reported" grep -q "folder.mol2: is a directory" "$work/folder.err"
check "folder as OUT stays an empty folder" test -d "$work/folder.mol2" -a -z "$(ls -A "$work/folder.mol2")"
# through a symbolic link the file it leads to is replaced and the link kept
cp "$examples/drugs.mol2" "$work/linked.mol2"
ln -s linked.mol2 "$work/link.mol2"
check "convert through a link" "$kora" convert "$examples/peptide.pdb" "$work/link.mol2"
check "link kept" test -L "$work/link.mol2"
check "linked file replaced" test "$(grep -c '@<TRIPOS>MOLECULE' "$work/linked.mol2")" -eq 1
# a named pipe is written into, not replaced by a regular file (a reader with a time limit
# keeps a failure from hanging the test)
mkfifo "$work/pipe.mol2"
timeout 20 cat "$work/pipe.mol2" >"$work/pipe.out" &
reader=$!
"$kora" convert "$examples/drugs.sdf" "$work/pipe.mol2"
status=$?
wait "$reader"
check "named pipe exits 0" test "$status" -eq 0
check "named pipe stays a pipe" test -p "$work/pipe.mol2"
check "named pipe carries every entry" test "$(grep -c '@<TRIPOS>MOLECULE' "$work/pipe.out")" -eq 5
# /dev/full, only once a pipe was seen to be written in place: the same code replacing the
# device would be a disaster when the tests run as root
if [ -p "$work/pipe.mol2" ] && [ -c /dev/full ] && [ -w /dev/full ]; then
  "$kora" convert "$examples/drugs.sdf" /dev/full --to mol2 2>"$work/devfull.err"
  check "/dev/full exits 1" test $? -eq 1
  check "/dev/full reported" grep -q "/dev/full: write error: No space left on device" "$work/devfull.err"
  check "/dev/full is still the device" test -c /dev/full
fi

# input faults
"$kora" convert "$work/folder.mol2" "$work/x.sdf" 2>"$work/input.err"
check "folder as IN exits 1" test $? -eq 1
check "folder as IN reported" grep -q "folder.mol2: is a directory" "$work/input.err"
if [ "$(id -u)" -ne 0 ]; then
  cp "$examples/drugs.sdf" "$work/unreadable.sdf" && chmod 000 "$work/unreadable.sdf"
  check "unreadable IN exits 1" test "$(status_of "$kora" info "$work/unreadable.sdf")" -eq 1
fi

# files written get the mode of a new file, or of the file they replace
(umask 022; "$kora" convert "$examples/drugs.sdf" "$work/mode.mol2")
check "new file mode" test "$(stat -c %a "$work/mode.mol2")" = 644
chmod 640 "$work/mode.mol2"
"$kora" convert "$examples/drugs.sdf" "$work/mode.mol2"
check "replaced file keeps its mode" test "$(stat -c %a "$work/mode.mol2")" = 640

# standard input for every command
check "identify -" test "$("$kora" identify - <"$examples/peptide.pdb")" = "$(printf -- '-\tPDB file')"
check "list -" test "$("$kora" list - <"$examples/drugs.sdf" | wc -l)" -eq 6
check "info -" grep -q '"identifier":"caffeine"' <<<"$("$kora" info - --json <"$examples/drugs.sdf")"
check "convert -" test "$("$kora" convert - - --to mol2 <"$examples/drugs.sdf" | grep -c '@<TRIPOS>MOLECULE')" -eq 5

# compressed input, from a file or standard input; a cut file named once in the error
gzip -c "$examples/drugs.sdf" >"$work/drugs.sdf.gz"
check "info of .sdf.gz" grep -q '"identifier":"ibuprofen"' <<<"$("$kora" info "$work/drugs.sdf.gz" --entry 3 --json)"
check "list of gzip on stdin" test "$("$kora" list - <"$work/drugs.sdf.gz" | wc -l)" -eq 6
head -c 300 "$work/drugs.sdf.gz" >"$work/cut.sdf.gz"
"$kora" info "$work/cut.sdf.gz" 2>"$work/cut.err" >/dev/null
check "cut gzip exits 1" test $? -eq 1
check "cut gzip named once" test "$(grep -o 'cut.sdf.gz' "$work/cut.err" | wc -l)" -eq 1

# get: entries byte for byte, by identifier or index
check "get by identifier" cmp -s <("$kora" get "$examples/drugs.sdf" caffeine) <(sed -n '/^caffeine/,/\$\$\$\$/p' "$examples/drugs.sdf")
check "get by index" test "$("$kora" get "$examples/drugs.sdf" 0 | head -1)" = aspirin
check "get unknown exits 1" test "$(status_of "$kora" get "$examples/drugs.sdf" nothing)" -eq 1

# --split: one file per entry
mkdir "$work/split"
check "convert --split" "$kora" convert "$examples/drugs.sdf" "$work/split/drug.mol2" --split
check "--split writes one file per entry" test "$(ls "$work/split" | tr '\n' ' ')" = "drug_0.mol2 drug_1.mol2 drug_2.mol2 drug_3.mol2 drug_4.mol2 "

# --version, --id --nearest, one-line errors naming file, line and entry
check "--version" grep -q '^kora [0-9]' <<<"$("$kora" --version)"
check "--nearest" grep -q '"identifier":"caffeine"' <<<"$("$kora" info "$examples/drugs.sdf" --id CAFFEINE --nearest --json)"
"$kora" info "$work/bad.sdf" 2>"$work/oneline.err" >/dev/null
check "error in one line" test "$(wc -l <"$work/oneline.err")" -eq 1
check "error names file, line, entry" grep -q "bad.sdf:[0-9]*: entry 1 (broken): " "$work/oneline.err"

echo "cli: $passes passed, $failures failed"
[ "$failures" -eq 0 ]
