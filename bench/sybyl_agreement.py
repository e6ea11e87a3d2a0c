#!/usr/bin/env python3
"""How far kora's SYBYL atom types agree with Open Babel's on the SD and MOL files of the corpus.

Every SD/MOL file under the corpus folder is converted to Mol2 twice, by the kora tool
(`kora convert --keep-going --from sdf X.sdf Y.mol2`, standard writing) and by Open Babel
(`obabel X.sdf -O Z.mol2`). The atoms of the two outputs are paired molecule by molecule
(by position in the file, or by name and atom count where one program skipped records) and atom by atom (by coordinates, which
both programs copy from the input; by order where coordinates repeat), and the table gives,
for each type kora wrote, how many atoms had it, how many of them Open Babel typed the same,
and the type Open Babel gave most often where the two differ.

    python3 bench/sybyl_agreement.py [--corpus DIR] [--kora build/bin/kora] [--no-large]

Open Babel comes from the Debian package `openbabel` (installed when missing, as root).
"""

import argparse
import collections
import difflib
import os
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
EXTENSIONS = (".sdf", ".sd", ".mol")


def ensure_obabel():
    if shutil.which("obabel"):
        return "obabel"
    if os.geteuid() == 0 and shutil.which("apt-get"):
        subprocess.run(["apt-get", "install", "-y", "openbabel"], check=True,
                       stdout=subprocess.DEVNULL)
    if not shutil.which("obabel"):
        sys.exit("obabel not found: install the Debian package openbabel")
    return "obabel"


def read_mol2(path):
    """The molecules of a Mol2 file: a list of (name, atoms), each atom (element guess, x, y,
    z, type)."""
    molecules = []
    section = None
    name_next = False
    with open(path, encoding="utf-8", errors="replace") as f:
        for line in f:
            line = line.rstrip("\r\n")
            if line.startswith("@<TRIPOS>"):
                section = line[9:].strip()
                if section == "MOLECULE":
                    molecules.append(["", []])
                    name_next = True
                continue
            if section == "MOLECULE" and name_next:
                molecules[-1][0] = line.strip()
                name_next = False
                continue
            if section == "ATOM" and molecules:
                w = line.split()
                if len(w) < 6:
                    continue
                molecules[-1][1].append((float(w[2]), float(w[3]), float(w[4]), w[5]))
    return molecules


def pair_atoms(a, b):
    """Pairs of indexes of atoms of a and b with the same coordinates (to 1e-3), in the order
    of a; the order itself where coordinates do not tell the atoms apart."""
    def key(atom):
        return (round(atom[0], 3), round(atom[1], 3), round(atom[2], 3))
    where = collections.defaultdict(list)
    for j, atom in enumerate(b):
        where[key(atom)].append(j)
    if all(len(v) == 1 for v in where.values()) and len(where) == len(b):
        pairs = []
        for i, atom in enumerate(a):
            js = where.get(key(atom))
            if not js:
                return list(zip(range(len(a)), range(len(b))))
            pairs.append((i, js[0]))
        return pairs
    return list(zip(range(len(a)), range(len(b))))


def convert(command, out):
    result = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    if not os.path.exists(out):
        print(f"  {' '.join(command)} failed: {result.stderr.strip()[:200]}", file=sys.stderr)
        return []
    return read_mol2(out)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--corpus", default=os.environ.get("KORA_CORPUS",
                                                          os.path.join(ROOT, "..", "shared", "corpus")))
    parser.add_argument("--kora", default=os.path.join(ROOT, "build", "bin", "kora"))
    parser.add_argument("--no-large", action="store_true", help="skip the corpus bench/ folder")
    parser.add_argument("--details", type=int, default=0,
                        help="print up to N example atoms per disagreeing type pair")
    args = parser.parse_args()
    obabel = ensure_obabel()
    if not os.access(args.kora, os.X_OK):
        sys.exit(f"{args.kora} not found: build the kora-cli target first")

    files = []
    for folder, _, names in os.walk(args.corpus):
        if args.no_large and os.path.basename(folder) == "bench":
            continue
        files += [os.path.join(folder, n) for n in sorted(names) if n.lower().endswith(EXTENSIONS)]
    files.sort()

    counts = collections.Counter()
    agree = collections.Counter()
    theirs = collections.defaultdict(collections.Counter)
    examples = collections.defaultdict(list)
    skipped = 0
    per_file = []
    with tempfile.TemporaryDirectory() as tmp:
        for path in files:
            ours = convert([args.kora, "convert", "--keep-going", "--from", "sdf", path,
                            os.path.join(tmp, "k.mol2")],
                           os.path.join(tmp, "k.mol2"))
            other = convert([obabel, path, "-O", os.path.join(tmp, "o.mol2")],
                            os.path.join(tmp, "o.mol2"))
            for f in ("k.mol2", "o.mol2"):
                if os.path.exists(os.path.join(tmp, f)):
                    os.remove(os.path.join(tmp, f))
            # Molecules in file order; Open Babel skips records without atoms, kora writes
            # them, so empty ones are dropped on both sides before pairing.
            ours = [m for m in ours if m[1]]
            other = [m for m in other if m[1]]
            pairs = list(zip(ours, other))
            if len(ours) != len(other):
                # One program skipped records the other wrote: pair the molecules that line
                # up by name and atom count.
                print(f"  {os.path.basename(path)}: {len(ours)} molecules from kora, "
                      f"{len(other)} from Open Babel; paired by name and atom count",
                      file=sys.stderr)
                keys = [(m[0], len(m[1])) for m in ours], [(m[0], len(m[1])) for m in other]
                matcher = difflib.SequenceMatcher(None, keys[0], keys[1], autojunk=False)
                pairs = [(ours[block.a + k], other[block.b + k])
                         for block in matcher.get_matching_blocks() for k in range(block.size)]
            file_atoms = file_agree = 0
            for (name, a), (_, b) in pairs:
                if len(a) != len(b):
                    skipped += 1
                    continue
                for i, j in pair_atoms(a, b):
                    t, u = a[i][3], b[j][3]
                    counts[t] += 1
                    file_atoms += 1
                    if t == u:
                        agree[t] += 1
                        file_agree += 1
                    else:
                        theirs[t][u] += 1
                        if len(examples[(t, u)]) < args.details:
                            examples[(t, u)].append(f"{os.path.basename(path)} '{name}' atom {i + 1}")
            per_file.append((os.path.relpath(path, args.corpus), file_atoms, file_agree))

    total = sum(counts.values())
    print(f"{len(files)} files, {total} atoms compared"
          + (f", {skipped} molecules skipped (atom counts differ)" if skipped else ""))
    print()
    print("| kora type | atoms | agreeing | Open Babel's type where different |")
    print("|---|---:|---:|---|")
    for t, n in sorted(counts.items(), key=lambda kv: (-kv[1], kv[0])):
        other = theirs[t].most_common(1)
        note = f"{other[0][0]} ({other[0][1]})" if other else ""
        print(f"| {t} | {n} | {100.0 * agree[t] / n:.1f}% | {note} |")
    print(f"| all | {total} | {100.0 * sum(agree.values()) / max(total, 1):.1f}% | |")
    print()
    print("| file | atoms | agreeing |")
    print("|---|---:|---:|")
    for name, n, k in per_file:
        print(f"| {name} | {n} | {100.0 * k / n:.1f}% |" if n else f"| {name} | 0 | |")
    for (t, u), where in sorted(examples.items()):
        if where:
            print(f"{t} vs {u}: " + "; ".join(where))


if __name__ == "__main__":
    main()
