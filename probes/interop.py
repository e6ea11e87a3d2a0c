#!/usr/bin/env python3
"""Interchange check: what kora writes reads back whole.

Every structure file of the corpus is converted by the kora program (standard mode, its
default) to every writeable format, and each output is read back by kora and by the peer
readers that are installed (RDKit, Open Babel, gemmi, cctbx). Each entry read back is compared
with the entry kora read from the source, on the properties the target format can carry:
atoms and elements, formal charges, bonds and their orders, Cartesian coordinates within
0.001 A, the cell within 1e-4 and the space group's operators. The result is a matrix of
agreeing entries (source format x target format x reader) and the list of every entry that
disagrees, with the first difference found.

    interop.py [--readers kora,rdkit,openbabel,gemmi,cctbx] [--kora PATH] [--corpus DIR]
               [--max-entries N] [--details FILE] [--require-all]

With --require-all the exit status is 1 unless every compared entry agrees (CI runs the kora
reader so). The kora Python module must be importable (PYTHONPATH=build-python/python).
"""

import argparse
import collections
import os
import re
import subprocess
import sys
import tempfile
import time

import kora
from child_call import call_with_time_limit
from entries import Entry, has_real_cell, parse_operator  # noqa: F401 - for the checks' tests
from interop_compare import (CELL_PRECISION, CELL_TOLERANCE, compare, first_model,
                             peer_convention, same_as_source, unreadable_reason)
from peer_readers import READERS, available, read_kora

TARGETS = ["sdf", "mol2", "pdb", "res"]

# What a target format holds by nature; a property a format cannot carry is not compared.
CARRIES = {
    "sdf": {"charges", "bonds", "orders", "isotopes"},
    "mol2": {"bonds", "orders", "cell"},
    "pdb": {"charges", "cell"},
    "res": {"cell"},
}
NATURE = [
    ("mol2, pdb, res", "no isotopes but deuterium (tritium is compared as hydrogen)"),
    ("sdf", "no cell or space group; coordinates of crystal structures are written as Cartesian"),
    ("mol2", "no formal charges (the charge column holds partial charges); the cell only "
             "through CRYSIN, without the Cartesian frame of the atoms (a PDB SCALE that is not "
             "the standard one), so atoms are compared in Cartesian coordinates"),
    ("pdb", "the cell to 0.001 A and 0.01 degree; entries of one file are told apart by their "
            "identifiers"),
    ("pdb", "no bond orders (CONECT repeats are read by RDKit and Open Babel only) and bonds "
            "only for hetero groups and links; kora derives the others from distances"),
    ("res", "no bonds and no formal charges; one structure per file, atoms of the asymmetric "
            "unit in a cell (a structure without a cell is not written)"),
]


# ---------------------------------------------------------------------------------------------

def corpus_files(corpus):
    """Every file of the corpus that kora identifies, with its format."""
    for folder, _, names in sorted(os.walk(corpus)):
        for name in sorted(names):
            path = os.path.join(folder, name)
            fmt = kora.identify(path)
            if fmt is not None:
                yield fmt, path


def run(args):
    readers = [r for r in args.readers.split(",") if r]
    missing = [r for r in readers if r != "kora" and not available(r)]
    for r in missing:
        print("interop: %s is not installed; its column is left out" % r, file=sys.stderr)
    readers = [r for r in readers if r not in missing]
    agree = collections.Counter()
    total = collections.Counter()
    failures = []
    exceptions = []
    with tempfile.TemporaryDirectory(prefix="kora-interop-") as work:
        compare_corpus(args, readers, work, agree, total, failures, exceptions)
    return agree, total, failures, exceptions


def compare_corpus(args, readers, work, agree, total, failures, exceptions):
    for source_fmt, path in corpus_files(args.corpus):
        started = time.time()
        if args.verbose:
            print("interop: %s" % path, file=sys.stderr, flush=True)
        name = os.path.basename(path)
        if args.max_entries:
            path = first_entries(args, path, work, args.max_entries)
        try:
            source_entries = read_kora(path, None, keep_going=True)
        except Exception as e:
            source_entries = []
        # What kora cannot read is not an interchange question: such entries are left out of
        # the conversions (--keep-going) and listed as exceptions.
        unreadable = source_entries.count(None) if source_entries else 1
        if unreadable:
            exceptions.append((source_fmt, "-", "kora", name, "", "source entries kora cannot read: %d" % unreadable))
        source_entries = [e for e in source_entries if e is not None]
        if args.max_entries:
            source_entries = source_entries[: args.max_entries]
        if not source_entries:
            continue
        for target in TARGETS:
            if target == "res":
                # One structure per file, and only structures with a cell.
                outputs = [([e], convert(args, path, target, work, e.index))
                           for e in source_entries if has_real_cell(e.cell)]
            else:
                outputs = [(source_entries, convert(args, path, target, work, None))]
            for expected, (out_path, error) in outputs:
                for reader in readers:
                    function, formats = READERS[reader]
                    if target not in formats:
                        continue
                    key = (source_fmt, target, reader)
                    if error is not None:
                        total[key] += len(expected)
                        failures.append(key + (name, "", "conversion failed: " + error))
                        continue
                    if args.verbose:
                        print("  %s -> %s, %s (%.1f s)" % (source_fmt, target, reader, time.time() - started),
                              file=sys.stderr, flush=True)
                    try:
                        got = call_with_time_limit(function, (out_path, target), args.timeout)
                        if args.max_entries and len(got) > len(expected):
                            got = got[: len(expected)]
                    except Exception as e:
                        total[key] += len(expected)
                        reason = "unreadable: %s" % str(e).splitlines()[0] if str(e) else type(e).__name__
                        if "timed out" in reason and reader != "kora":
                            # A peer's reader that has not finished a structure in its time is
                            # listed, not counted (Open Babel's perception on structures of
                            # thousands of atoms takes longer than the limit on the original file).
                            exceptions.extend(key + (name, e.identifier, "%s reader exceeds %d s" % (reader, args.timeout))
                                              for e in expected)
                        else:
                            failures.append(key + (name, "", reason))
                        continue
                    if target == "pdb" and reader != "kora" and len(expected) > 1 and got:
                        # For the peers a PDB file is one structure: they read its first entry
                        # (up to END) and no more.
                        got, expected_here = got[:1], expected[:1]
                    elif len(got) != len(expected) and target == "pdb" and reader != "kora":
                        merged = Entry()
                        for g in got:
                            if g is not None:
                                merged.atoms += g.atoms
                        got = [merged]
                        ref = Entry()
                        for e in expected:
                            ref.atoms += e.atoms
                            ref.cell, ref.ops = e.cell, e.ops
                        expected_here = [ref]
                    else:
                        expected_here = expected
                    if len(got) != len(expected_here):
                        total[key] += len(expected_here)
                        row = key + (name, "", "%d entries read back, %d written" % (len(got), len(expected_here)))
                        ids = [e.identifier for e in expected_here]
                        if target == "pdb" and len(set(ids)) < len(ids):
                            # PDB entries of one file are told apart by their identifiers.
                            exceptions.extend(key + (name, e.identifier, "entries sharing an identifier merge in PDB")
                                              for e in expected_here)
                        else:
                            failures.append(row)
                        continue
                    if reader == "openbabel" and target == "pdb" and got and got[0] is not None:
                        # Open Babel reads the first MODEL of a PDB file and no more.
                        expected_here = [first_model(e, out_path) for e in expected_here]
                    for position, (e, g) in enumerate(zip(expected_here, got)):
                        total[key] += 1
                        if g is None:
                            reason = unreadable_reason(reader, target, out_path, position, e)
                            if reason is not None:
                                exceptions.append(key + (name, e.identifier, reason))
                            else:
                                failures.append(key + (name, e.identifier, "entry unreadable"))
                            continue
                        carries = set(CARRIES[target])
                        if reader == "kora" and target == "pdb":
                            carries.discard("orders")
                        if reader == "gemmi" or reader == "cctbx":
                            carries -= {"charges", "bonds", "orders"}
                        if reader == "openbabel" and target == "mol2":
                            carries.discard("cell")  # Open Babel does not read CRYSIN
                        crystal = (target in ("res", "pdb", "mol2") and has_real_cell(e.cell)
                                   and "cell" in carries)
                        difference = compare(e, g, carries, crystal and reader != "rdkit",
                                             CELL_PRECISION.get(target, CELL_TOLERANCE),
                                             cartesian=target in ("mol2", "pdb"))
                        if difference is None:
                            agree[key] += 1
                            continue
                        reason = peer_convention(reader, target, difference, e, g)
                        if reason is None and source_fmt == target and reader != "kora":
                            reason = same_as_source(reader, target, path, position, e, g,
                                                    carries, crystal, args.timeout)
                        if reason is not None:
                            exceptions.append(key + (name, e.identifier, reason))
                        else:
                            failures.append(key + (name, e.identifier, difference))


def first_entries(args, path, work, n):
    """A copy of the file cut after its first n entries (by the offsets of `kora list`), or the
    file itself when it holds no more."""
    listing = subprocess.run([args.kora, "list", path], capture_output=True, text=True,
                             errors="replace")
    rows = [line.split("\t") for line in listing.stdout.splitlines()[1:]]
    if listing.returncode != 0 or len(rows) <= n:
        return path
    end = int(rows[n][-1])
    cut = os.path.join(work, "first-%s" % os.path.basename(path))
    with open(path, "rb") as source, open(cut, "wb") as out:
        out.write(source.read(end))
    return cut


def convert(args, path, target, work, entry):
    base = os.path.basename(path)
    suffix = "" if entry is None else "-%d" % entry
    out = os.path.join(work, "%s%s.%s" % (base, suffix, target))
    command = [args.kora, "convert", path, out, "--to", target, "--keep-going"]
    if entry is not None:
        command += ["--entry", str(entry)]
    result = subprocess.run(command, capture_output=True, text=True, errors="replace")
    if result.returncode not in (0, 3):
        return out, (result.stderr.strip().splitlines() or ["status %d" % result.returncode])[-1]
    return out, None


def report(agree, total, failures, exceptions, out):
    keys = sorted(total)
    excepted = collections.Counter(tuple(e[:3]) for e in exceptions)
    out.write("| source | target | reader | entries | exceptions | agree | % of the rest |\n"
              "|---|---|---|---|---|---|---|\n")
    for k in keys:
        n = total[k] - excepted[k]
        out.write("| %s | %s | %s | %d | %d | %d | %.1f |\n"
                  % (k + (total[k], excepted[k], agree[k], 100.0 * agree[k] / n if n else 100.0)))
    out.write("\nWhat each format cannot carry by nature (not compared):\n\n")
    for fmt, what in NATURE:
        out.write("- %s: %s\n" % (fmt, what))


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    root = os.path.dirname(here)
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--readers", default="kora,rdkit,openbabel,gemmi,cctbx")
    parser.add_argument("--kora", default=os.path.join(root, "build", "bin", "kora"))
    parser.add_argument("--corpus", default=os.environ.get("KORA_CORPUS", os.path.join(root, "..", "shared", "corpus")))
    parser.add_argument("--max-entries", type=int, default=0,
                        help="read at most this many entries of each file (0: all)")
    parser.add_argument("--details", help="write every disagreement to this file")
    parser.add_argument("--require-all", action="store_true")
    parser.add_argument("--timeout", type=int, default=300,
                        help="seconds a reader may take over one file before it counts as failed")
    parser.add_argument("--verbose", action="store_true", help="name each file and step as it goes")
    args = parser.parse_args()
    if not os.path.isdir(args.corpus):
        print("interop: no corpus at %s; nothing to check" % args.corpus)
        return 0
    agree, total, failures, exceptions = run(args)
    report(agree, total, failures, exceptions, sys.stdout)
    if exceptions:
        print("\nExceptions (source, target, reader, reason: entries):")
        by_reason = collections.Counter((e[0], e[1], e[2], e[5]) for e in exceptions)
        for (s, t, r, reason), n in sorted(by_reason.items()):
            print("  %s -> %s, %s: %s: %d" % (s, t, r, reason, n))
    by_reason = collections.Counter()
    for f in failures:
        by_reason[(f[0], f[1], f[2], re.sub(r"\d+", "N", f[5])[:70])] += 1
    if failures:
        print("\nDisagreements (source, target, reader, reason with numbers as N: count):")
        for (s, t, r, reason), n in by_reason.most_common():
            print("  %s -> %s, %s: %s: %d" % (s, t, r, reason, n))
    if args.details:
        with open(args.details, "w") as f:
            for row in failures:
                f.write("\t".join(str(v) for v in row) + "\n")
    if args.require_all and failures:
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
