#!/usr/bin/env python3
"""Checks that RDKit reads back what `kora convert` writes from SD/MOL files.

Not a CI test (it needs RDKit, e.g. the Debian package python3-rdkit). Usage:

    rdkit_read_back.py KORA_BINARY [--v3000] FILE...

For every file, kora converts it to SD in standard and in classic mode; RDKit reads the
source and both outputs. Per file and in total it prints the records RDKit reads
(unsanitised/sanitised), how many "Bad atom line" errors it reports, and, for each written
record paired with its source record, whether the atoms (symbol, formal charge, isotope,
radical electrons) and bonds (atoms, type) are the same.
"""

import contextlib
import io
import os
import subprocess
import sys
import tempfile

from rdkit import Chem, rdBase


def read_all(path, sanitize):
    log = io.StringIO()
    with contextlib.redirect_stderr(log), open(path, "rb") as f:
        supplier = Chem.ForwardSDMolSupplier(f, sanitize=sanitize, removeHs=False,
                                             strictParsing=False)
        records = list(supplier)
    return records, log.getvalue().count("Bad atom line")


def signature(m):
    atoms = [(a.GetSymbol(), a.GetFormalCharge(), a.GetIsotope(), a.GetNumRadicalElectrons())
             for a in m.GetAtoms()]
    bonds = sorted((min(b.GetBeginAtomIdx(), b.GetEndAtomIdx()),
                    max(b.GetBeginAtomIdx(), b.GetEndAtomIdx()), str(b.GetBondType()))
                   for b in m.GetBonds())
    return atoms, bonds


def pair(sources, written):
    """kora --keep-going leaves out records it cannot read: each written record goes with the
    next source record that has as many atoms and bonds."""
    pairs, j = [], 0
    for w in written:
        if w is None:
            j += 1
            continue
        key = (w.GetNumAtoms(), w.GetNumBonds())
        while j < len(sources) and (sources[j] is None or
                                    (sources[j].GetNumAtoms(), sources[j].GetNumBonds()) != key):
            j += 1
        if j < len(sources):
            pairs.append((sources[j], w))
            j += 1
    return pairs


def main():
    rdBase.LogToPythonStderr()
    kora, args = sys.argv[1], sys.argv[2:]
    v3000 = "--v3000" in args
    files = [a for a in args if a != "--v3000"]
    totals = {}
    with tempfile.TemporaryDirectory() as tmp:
        for path in files:
            name = os.path.basename(path)
            sources, _ = read_all(path, False)
            line = [f"{name}: {len(sources)} records, RDKit reads "
                    f"{sum(m is not None for m in sources)}/"
                    f"{sum(m is not None for m in read_all(path, True)[0])}"]
            for mode in ("standard", "classic"):
                out = os.path.join(tmp, f"{name}.{mode}.sdf")
                command = [kora, "convert", path, out, "--from", "sdf", "--to", "sdf",
                           "--keep-going"] + (["--classic"] if mode == "classic" else []) + (
                               ["--v3000"] if v3000 else [])
                run = subprocess.run(command, capture_output=True, text=True)
                if not os.path.exists(out):
                    line.append(f"{mode}: kora failed: {run.stderr.strip()}")
                    continue
                written, bad = read_all(out, False)
                sanitised = sum(m is not None for m in read_all(out, True)[0])
                pairs = pair(sources, written)
                same = sum(signature(a) == signature(b) for a, b in pairs)
                counts = {"read": sum(m is not None for m in written), "sanitised": sanitised,
                          "bad atom line": bad, "same": same, "different": len(pairs) - same}
                for key, value in counts.items():
                    totals[(mode, key)] = totals.get((mode, key), 0) + value
                line.append(f"{mode}: " + ", ".join(f"{k} {v}" for k, v in counts.items()))
            print(" | ".join(line))
    for mode in ("standard", "classic"):
        print(f"TOTAL {mode}: " + ", ".join(f"{k} {v}" for (m, k), v in totals.items() if m == mode))


if __name__ == "__main__":
    main()
