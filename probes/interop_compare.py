"""The comparison of an entry kora wrote and a reader read back with the entry kora read from
the source, on what the target format carries; and the reasons a difference or an unreadable
entry is the peer's own reading rather than a loss."""

import collections
import re

from child_call import call_with_time_limit
from entries import Entry, Matcher
from peer_readers import READERS

CELL_TOLERANCE = 1e-4
# CRYST1 holds lengths to 0.001 A and angles to 0.01 degree; Open Babel keeps them in single
# precision (82.715 written as 82.72 reads back as 82.72000122).
CELL_PRECISION = {"pdb": 0.005 + 1e-5}


def without_isotopes(entry):
    """The entry with tritium as plain hydrogen, for formats that hold no isotope but D."""
    out = Entry(entry.identifier)
    out.atoms = [("H" if el == "T" else el, q, xyz) for el, q, xyz in entry.atoms]
    out.bonds, out.cell, out.ops, out.fractional = entry.bonds, entry.cell, entry.ops, entry.fractional
    return out


def compare(source, target, carries, crystal, cell_tolerance=CELL_TOLERANCE, cartesian=False):
    """The first difference between two entries, or None. In a crystal the atoms are compared
    as sites up to symmetry, unless `cartesian`: the target format gives Cartesian atoms and a
    cell, and the frame they are in is the file's own (Mol2 has none; a PDB SCALE is rounded to
    six decimals, and readers that take the cell's standard frame place atoms of a long axis a
    few thousandths of an angstrom apart in fractional terms)."""
    if "isotopes" not in carries:
        source, target = without_isotopes(source), without_isotopes(target)
    if crystal:
        if target.cell is None:
            return "no cell"
        if any(abs(a - b) > cell_tolerance for a, b in zip(source.cell, target.cell)):
            return "cell %s != %s" % (source.cell, target.cell)
        if source.ops is not None and target.ops is not None and source.ops != target.ops:
            return "space-group operators differ (%d and %d)" % (len(source.ops), len(target.ops))
    if crystal and not cartesian:
        # Atoms anywhere in the crystal: each written atom is a symmetry image of a source atom
        # and every source atom has an image among them.
        # Source atoms that are images of one another (a molecule completed by symmetry) are
        # one site: each is represented by the first atom of its orbit.
        matcher = Matcher(source.atoms, source.cell, source.ops, source.fractional)
        orbit = [min(matcher.candidates(xyz, True, source.fractional.get(k)) or [k])
                 for k, (_, _, xyz) in enumerate(source.atoms)]
        seen = set()
        for t, (el, _, xyz) in enumerate(target.atoms):
            f = target.fractional.get(t)
            found = [k for k in matcher.candidates(xyz, True, f) if source.atoms[k][0] == el]
            if not found:
                near = matcher.find(xyz, True, f)
                if near is not None:
                    return "element %s != %s" % (el, source.atoms[near][0])
                return "atom %s at %s is no image of a source atom" % (el, tuple(round(v, 3) for v in xyz))
            seen.update(orbit[k] for k in found)
        sites = set(orbit)
        if seen != sites:
            return "%d of %d source sites read back" % (len(seen & sites), len(sites))
        return None
    if len(source.atoms) != len(target.atoms):
        return "%d atoms != %d" % (len(target.atoms), len(source.atoms))
    matcher = Matcher(source.atoms)
    mapping = {}
    used = set()
    for t, (el, charge, xyz) in enumerate(target.atoms):
        # Atoms may share a position (2-D records drawn at the origin): the same index is
        # taken first, then the nearest unused atom of the same element.
        found = [k for k in matcher.candidates(xyz, False) if k not in used]
        if not found:
            return "atom %d (%s) at %s has no source atom" % (t + 1, el, tuple(round(v, 4) for v in xyz))
        same = [k for k in found if source.atoms[k][0] == el]
        if not same:
            return "atom %d: element %s != %s" % (t + 1, el, source.atoms[found[0]][0])
        k = t if t in same else same[0]
        used.add(k)
        if "charges" in carries and source.atoms[k][1] != charge:
            return "atom %d (%s): charge %d != %d" % (t + 1, el, charge, source.atoms[k][1])
        mapping[t] = k
    if "bonds" in carries:
        src = {(i, j): o for i, j, o in source.bonds}
        got = {}
        for i, j, o in target.bonds:
            a, b = mapping[i], mapping[j]
            got[(min(a, b), max(a, b))] = o
        if set(src) != set(got):
            return "bonds: %d missing, %d extra" % (len(set(src) - set(got)), len(set(got) - set(src)))
        if "orders" in carries:
            for key, o in src.items():
                if got[key] != o and not (isinstance(got[key], tuple) and o in got[key]):
                    return "bond %d-%d: order %s != %s" % (key[0] + 1, key[1] + 1, got[key], o)
    return None


def without_element(entry):
    # Atom types that name no element (GAFF, AMBER, lone pairs, R groups): the source holds
    # atoms without element, and the target format needs one.
    return any(el == "" for el, _, _ in entry.atoms)


_CHARGE = re.compile(r"atom (\d+) \(N\): charge 1 != 0$")
_ELEMENT = re.compile(r"atom (\d+): element (\w+) != (\w+)$")
_VALENCE = {1: 1.0, 2: 2.0, 3: 3.0, "ar": 1.5}


def peer_convention(reader, target, difference, source, got):
    """Why a difference is the peer's reading convention rather than a loss, or None."""
    if without_element(source):
        return "source atoms without element"
    match = _CHARGE.match(difference)
    if reader == "rdkit" and target == "pdb" and match:
        atom = int(match.group(1)) - 1
        valence = sum(_VALENCE.get(o[0] if isinstance(o, tuple) else o, 1.0)
                      for i, j, o in got.bonds if atom in (i, j))
        if valence >= 4:
            return "RDKit's PDB reader charges a nitrogen of valence four +1"
    if reader == "rdkit" and target == "mol2" and difference.endswith(": order 1 != 0"):
        return "RDKit reads the Mol2 bond type un (unknown) as single"
    match = _ORDER.match(difference)
    if match:
        i, j = int(match.group(1)) - 1, int(match.group(2)) - 1
        orders = {match.group(3), match.group(4)}
        if reader == "rdkit" and target == "mol2" and orders == {"1", "2"} and \
                any(guanidinium_carbon(source, k) for k in (i, j)):
            return "RDKit puts the double bond of a guanidinium (C.cat) on a nitrogen of its choice"
        if reader == "openbabel" and orders == {"1", "ar"} and not in_ring(source, i, j):
            return "Open Babel keeps aromatic bonds only in rings"
    match = _ELEMENT.match(difference)
    if reader == "openbabel" and match:
        atom, got_element, source_element = int(match.group(1)) - 1, match.group(2), match.group(3)
        if target == "pdb" and (got_element, source_element) == ("H", "D"):
            return "Open Babel reads the PDB element D as plain hydrogen"
        if target == "mol2" and (got_element, source_element) == ("D", "H") and \
                any(el == "D" for el, _, _ in source.atoms[:atom]):
            return "Open Babel gives every Mol2 hydrogen after a D atom the mass 2"
    return None


_ORDER = re.compile(r"bond (\d+)-(\d+): order (\w+) != (\w+)$")


def neighbours(entry, atom):
    return [j if i == atom else i for i, j, _ in entry.bonds if atom in (i, j)]


def guanidinium_carbon(entry, atom):
    """A carbon bonded to three nitrogens."""
    return entry.atoms[atom][0] == "C" and \
        sum(entry.atoms[n][0] == "N" for n in neighbours(entry, atom)) == 3


def in_ring(entry, i, j):
    """Whether atoms i and j stay connected without the bond between them."""
    seen, todo = {i}, [i]
    while todo:
        atom = todo.pop()
        for n in neighbours(entry, atom):
            if (atom, n) in ((i, j), (j, i)) or n in seen:
                continue
            if n == j:
                return True
            seen.add(n)
            todo.append(n)
    return False


def unreadable_reason(reader, target, out_path, position, source):
    """Why a peer refuses an entry kora wrote, when the reason is the peer's, or None."""
    if without_element(source):
        return "source atoms without element"
    if reader == "rdkit" and target == "mol2":
        text = open(out_path, encoding="latin-1").read()
        blocks = text.split("@<TRIPOS>MOLECULE")[1:]
        if position >= len(blocks):
            return None
        block = blocks[position]
        atoms = block.split("@<TRIPOS>ATOM")[1].split("@<TRIPOS>")[0].split("\n")
        types = {}
        for line in atoms:
            fields = line.split()
            if len(fields) >= 6:
                types[fields[0]] = fields[5]
        if "D" in types.values():
            return "Mol2 has no deuterium type; RDKit refuses kora's D"
        degree = collections.Counter()
        bonds = block.split("@<TRIPOS>BOND")[1].split("@<TRIPOS>")[0].split("\n") \
            if "@<TRIPOS>BOND" in block else []
        for line in bonds:
            fields = line.split()
            if len(fields) >= 3:
                pair = sorted((types.get(fields[1], ""), types.get(fields[2], "")))
                if pair[1] == "P.3" and pair[0] == "O.co2" or pair == ["O.co2", "P.3"]:
                    return "RDKit refuses O.co2 on phosphorus (SYBYL's phosphate oxygen)"
                degree.update(fields[1:3])
        if any(types[a] == "O.co2" and n > 1 for a, n in degree.items() if a in types):
            return ("RDKit refuses an O.co2 atom with more than one bond (a carboxylate bound "
                    "to a metal, or protonated in the source's own types)")
        if all(len(line.split()) < 6 for line in atoms):
            return "RDKit refuses a Mol2 molecule without atoms"
    return None


def first_model(entry, out_path):
    """The entry cut to the atoms of its first MODEL, as kora wrote them, or the entry."""
    count, inside = 0, False
    with open(out_path, encoding="latin-1") as f:
        for line in f:
            if line.startswith("MODEL"):
                if inside:
                    break
                inside = True
            elif line.startswith("ENDMDL"):
                break
            elif inside and line.startswith(("ATOM", "HETATM")):
                count += 1
    if not inside or count >= len(entry.atoms):
        return entry
    cut = Entry(entry.identifier)
    cut.atoms = entry.atoms[:count]
    cut.bonds = [b for b in entry.bonds if b[1] < count]
    cut.cell, cut.ops = entry.cell, entry.ops
    cut.fractional = {k: v for k, v in entry.fractional.items() if k < count}
    return cut


_SOURCE_READS = {}


def same_as_source(reader, fmt, path, position, source, got, carries, crystal, timeout):
    """When a peer reads kora's file of a structure as it reads the original file of the same
    format, the difference is the peer's own reading: the reason, or None."""
    key = (reader, path)
    if key not in _SOURCE_READS:
        try:
            _SOURCE_READS[key] = call_with_time_limit(READERS[reader][0], (path, fmt), timeout)
        except Exception:  # noqa: BLE001 - a peer that cannot read the source excuses nothing
            _SOURCE_READS[key] = None
    original = _SOURCE_READS[key]
    if not original or position >= len(original) or original[position] is None:
        return None
    if compare(original[position], got, carries, crystal,
               CELL_PRECISION.get(fmt, CELL_TOLERANCE), cartesian=fmt in ("mol2", "pdb")) is None:
        return "the peer reads the original file the same way"
    return None

