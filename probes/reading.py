#!/usr/bin/env python3
"""Reading check: what kora reads from the corpus, against a peer reader per format.

Every file of the corpus is read by kora's Python module in standard mode (its default) and
by a peer: RDKit for SD and Mol2 (unsanitised, hydrogens kept, SD parsing not strict), gemmi
for PDB, cctbx for SHELX RES/INS. Entries are paired (by position, or by title and atom count
when the two readers find different numbers of entries) and compared on:

- SD, Mol2: atom count, elements, formal charges, bonds and bond orders;
- PDB: models, atoms per model (alternate locations selected as kora does: in each residue
  the letter with the highest mean occupancy, the first written on ties, and every atom
  without a letter), elements, residue names and numbers, chains, alternate locations, the
  cell and the space group's operators;
- RES/INS: atoms other than Q peaks (difference-density peaks, not atoms) up to symmetry,
  elements, occupancies, the cell and the space group's operators.

Which reader is right is not for this script to say: each difference names kora's value
first and the peer's second, and the report groups them by reason. The table counts, per
format and peer, the entries either reader finds, those the peer reads, and those that agree;
an entry kora cannot read (or a file it cannot open) is a difference with kora's message, an
entry the peer cannot read is listed apart with the peer's reason. Each reader runs in a child
process, stopped after --timeout seconds on one file.

    reading.py [--corpus DIR] [--max-entries N] [--timeout S] [--details FILE] [--verbose]

The kora Python module must be importable (PYTHONPATH=build-python/python).
"""

import argparse
import collections
import os
import re
import sys
import time
import warnings

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import kora  # noqa: E402
from child_call import ChildCall  # noqa: E402
from peer_readers import available  # noqa: E402
# compare_molecular, compare_pdb, compare_res, Atom, Structure and one_location_per_residue
# are here for the checks' tests.
from reading_compare import (PEER_NAMES, Difference, compare, compare_molecular,  # noqa: E402,F401
                             compare_pdb, compare_res, pair_entries, signature)
from reading_peers import (PEER_READERS, Atom, Structure, one_line,  # noqa: E402,F401
                           one_location_per_residue, read_kora)

# The peer each format is compared with (PEER_NAMES: what the peer is called in the report).
PEERS = {"sdf": "rdkit", "mol2": "rdkit", "pdb": "gemmi", "res": "cctbx"}
FOLDER_FORMATS = {"sdf": "sdf", "mol2": "mol2", "pdb": "pdb", "res": "res"}


# ---------------------------------------------------------------------------------------------
# Running

class Tally:
    def __init__(self):
        self.entries = collections.Counter()
        self.read = collections.Counter()
        self.agree = collections.Counter()
        self.differences = []  # (fmt, peer, file, entry index, identifier, Difference)
        # (fmt, peer, file, entry index, reason, whether kora fails too): entries the peer
        # does not read
        self.unread = []
        self.unidentified = []  # files kora does not identify, with the format they are read as


def corpus_files(corpus):
    """(format, path) for every file of the corpus in a folder of a format (sdf/, mol2/, pdb/,
    res/) or identified by kora (bench/)."""
    for folder, _, names in sorted(os.walk(corpus)):
        for name in sorted(names):
            if name.startswith(".") or name.endswith(".md"):
                continue
            path = os.path.join(folder, name)
            identified = kora.identify(path)
            fmt = identified or FOLDER_FORMATS.get(os.path.basename(folder))
            if fmt is not None:
                yield fmt, path, identified is not None


def check_file(args, fmt, path, tally):
    peer = PEERS[fmt]
    name = os.path.basename(path)
    key = (fmt, peer)
    deadline = time.time() + args.timeout
    peer_call = ChildCall(PEER_READERS[peer], (path, fmt, args.max_entries))
    kora_call = ChildCall(read_kora, (path, fmt, args.max_entries))
    try:
        mine, identifiers = kora_call.result(deadline - time.time())
        kora_error = None
    except RuntimeError as error:
        mine, identifiers, kora_error = [], [], one_line(error)
    try:
        theirs = peer_call.result(deadline - time.time())
        peer_error = None
    except RuntimeError as error:
        theirs, peer_error = [], one_line(error)
    if args.max_entries:
        theirs = theirs[: args.max_entries]
    if not mine and not theirs:
        tally.entries[key] += 1
        reason = "%s cannot read the file: %s" % (PEER_NAMES[peer], peer_error or "no entry")
        tally.unread.append(key + (name, 0, reason, True))
        return
    for i, j in pair_entries(fmt, mine, theirs):
        tally.entries[key] += 1
        identifier = identifiers[i] if i is not None and i < len(identifiers) else ""
        if j is None or theirs[j] is None:
            if j is None and peer_error:
                reason = "%s cannot read the file: %s" % (PEER_NAMES[peer], peer_error)
            elif j is None and fmt in ("pdb", "res"):
                reason = "%s reads one structure per file" % PEER_NAMES[peer]
            elif j is None:
                reason = "%s finds no entry here" % PEER_NAMES[peer]
            else:
                reason = "%s gives no molecule" % PEER_NAMES[peer]
            kora_too = kora_error is not None or (i is not None and isinstance(mine[i], str))
            tally.unread.append(key + (name, i, reason, kora_too))
            continue
        tally.read[key] += 1
        p = theirs[j]
        if i is None:
            if kora_error:
                d = Difference("kora cannot read the file: " + normalised(kora_error),
                               "kora cannot read the file: " + kora_error)
            else:
                d = Difference("kora finds no entry where %s reads one" % PEER_NAMES[peer],
                               "kora finds no entry where %s reads '%s' (%d atoms)"
                               % ((PEER_NAMES[peer],) + signature(p)))
            tally.differences.append(key + (name, j, p.identifier, d))
            continue
        if isinstance(mine[i], str):
            d = Difference("kora cannot read the entry: " + normalised(mine[i]),
                           "kora cannot read the entry: " + mine[i])
            tally.differences.append(key + (name, i, identifier, d))
            continue
        differences = compare(fmt, mine[i], p, peer)
        for d in differences:
            tally.differences.append(key + (name, i, identifier, d))
        if not differences:
            tally.agree[key] += 1


def normalised(message):
    """A message without its particulars (numbers, file names), to group by."""
    message = re.sub(r"\d+", "N", re.sub(r"/\S+/", "", message))
    if len(message) > 100:
        message = message[:100].rsplit(" ", 1)[0] + " ..."
    return message


def report(tally, out, timeout):
    out.write("| format | peer | entries | the peer reads | agree | % of those the peer reads |\n"
              "|---|---|---|---:|---:|---:|\n")
    for key in sorted(tally.entries):
        read = tally.read[key]
        out.write("| %s | %s | %d | %d | %d | %.1f |\n"
                  % (key[0], PEER_NAMES[key[1]], tally.entries[key], read, tally.agree[key],
                     100.0 * tally.agree[key] / read if read else 100.0))
    groups = collections.Counter()
    entries = collections.defaultdict(set)
    example = {}
    for fmt, peer, name, index, identifier, d in tally.differences:
        k = (fmt, peer, d.group)
        groups[k] += 1
        entries[k].add((name, index))
        example.setdefault(k, "%s #%s: %s" % (name, index + 1 if index is not None else "?", d.text))
    out.write("\nDifferences (format, peer: reason: entries; an example). Values read kora "
              "first, the peer second; atom numbers are the peer's, from 1.\n\n")
    for k, n in sorted(groups.items(), key=lambda kv: (-len(entries[kv[0]]), kv[0])):
        out.write("- %s, %s: %s: %d (%s)\n" % (k[0], PEER_NAMES[k[1]], k[2], len(entries[k]),
                                               example[k]))
    if not groups:
        out.write("- none\n")
    unread = collections.Counter()
    files = collections.defaultdict(set)
    for fmt, peer, name, index, reason, kora_too in tally.unread:
        reason = normalised(reason) if "timed out" not in reason else \
            "%s exceeds %d s" % (PEER_NAMES[peer], timeout)
        reason += " (kora cannot read it either)" if kora_too else ""
        unread[(fmt, peer, reason)] += 1
        files[(fmt, peer, reason)].add(name)
    if unread:
        out.write("\nNot compared: entries the peer does not read (format, peer: reason: "
                  "entries; files):\n\n")
        for k, n in sorted(unread.items(), key=lambda kv: (-kv[1], kv[0])):
            out.write("- %s, %s: %s: %d (%s)\n" % (k[0], PEER_NAMES[k[1]], k[2], n,
                                                   ", ".join(sorted(files[k]))))
    if tally.unidentified:
        out.write("\nFiles kora does not identify, read as the format of their folder: %s\n"
                  % ", ".join("%s (%s)" % f for f in tally.unidentified))


def write_details(tally, path):
    with open(path, "w", encoding="utf-8", errors="backslashreplace") as f:
        f.write("format\tpeer\tfile\tentry\tidentifier\treason\tdifference\n")
        for fmt, peer, name, index, identifier, d in tally.differences:
            f.write("\t".join([fmt, PEER_NAMES[peer], name, str(index + 1 if index is not None else ""),
                               identifier.replace("\t", " "), d.group, d.text]) + "\n")


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    root = os.path.dirname(here)
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--corpus", default=os.environ.get("KORA_CORPUS",
                                                           os.path.join(root, "..", "shared", "corpus")))
    parser.add_argument("--max-entries", type=int, default=0,
                        help="read at most this many entries of each file (0: all)")
    parser.add_argument("--timeout", type=int, default=120,
                        help="seconds each reader may take over one file")
    parser.add_argument("--details", help="write every difference to this file (tab-separated)")
    parser.add_argument("--verbose", action="store_true", help="name each file as it goes")
    args = parser.parse_args()
    if not os.path.isdir(args.corpus):
        print("reading: no corpus at %s; nothing to check" % args.corpus)
        return 0
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", RuntimeWarning)  # boost.python's repeated converters
        missing = sorted({p for p in PEERS.values() if not available(p)})
    for p in missing:
        print("reading: %s is not installed; its formats are left out" % PEER_NAMES[p], file=sys.stderr)
    tally = Tally()
    started = time.time()
    for fmt, path, identified in corpus_files(args.corpus):
        if PEERS[fmt] in missing:
            continue
        if not identified:
            tally.unidentified.append((os.path.basename(path), fmt))
        if args.verbose:
            print("reading: %s (%.0f s)" % (path, time.time() - started), file=sys.stderr, flush=True)
        check_file(args, fmt, path, tally)
    report(tally, sys.stdout, args.timeout)
    if args.details:
        write_details(tally, args.details)
    return 0


if __name__ == "__main__":
    sys.exit(main())
