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
import itertools
import math
import os
import re
import multiprocessing
import subprocess
import sys
import tempfile
import time
from fractions import Fraction

import kora

TARGETS = ["sdf", "mol2", "pdb", "res"]
COORD_TOLERANCE = 1e-3
CELL_TOLERANCE = 1e-4
# CRYST1 holds lengths to 0.001 A and angles to 0.01 degree; Open Babel keeps them in single
# precision (82.715 written as 82.72 reads back as 82.72000122).
CELL_PRECISION = {"pdb": 0.005 + 1e-5}

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
# Entries in a form every reader can produce.

class Entry:
    def __init__(self, identifier=""):
        self.identifier = identifier
        self.atoms = []  # (element, charge, (x, y, z))
        self.bonds = []  # (i, j, order) with i < j, order 1, 2, 3, "ar" or 0
        self.cell = None  # (a, b, c, alpha, beta, gamma)
        self.ops = None  # frozenset of normalised operators
        self.fractional = {}  # atom position -> fractional coordinates, where the reader gives them
        self.index = 0  # position in its file


def element_of(symbol, mass=0):
    """Element symbols in one spelling: deuterium and tritium as D and T."""
    s = symbol.strip().capitalize()
    if s == "H" and mass == 2:
        return "D"
    if s == "H" and mass == 3:
        return "T"
    return s


def bond_order(value):
    return {1: 1, 2: 2, 3: 3}.get(value, "ar" if value in ("ar", 5, 1.5) else 0)


_TERM = re.compile(r"([+-]?)([^+-]+)")


def parse_operator(text):
    """An operator written as x,y,z triplets, as a (rotation, translation) pair."""
    rows = []
    trans = []
    for part in text.lower().replace(" ", "").split(","):
        row = [0, 0, 0]
        t = Fraction(0)
        for sign, term in _TERM.findall(part):
            k = -1 if sign == "-" else 1
            if term in ("x", "y", "z"):
                row["xyz".index(term)] += k
            elif term and term[-1] in "xyz":
                row["xyz".index(term[-1])] += k * int(Fraction(term[:-1].rstrip("*")))
            else:
                t += k * Fraction(term).limit_denominator(24)
        rows.append(tuple(row))
        trans.append(t)
    return normalised_op(rows, trans)


def normalised_op(rotation, translation):
    t = tuple(float(Fraction(v).limit_denominator(24) % 1) if not isinstance(v, float)
              else round(v % 1.0, 4) % 1.0 for v in translation)
    return (tuple(tuple(int(round(x)) for x in r) for r in rotation), tuple(round(v, 4) for v in t))


def normalise_cell(values):
    return tuple(float(v) for v in values)


def has_real_cell(cell):
    return cell is not None and not all(abs(v - w) < 1e-9 for v, w in zip(cell, (1, 1, 1, 90, 90, 90)))


# ---------------------------------------------------------------------------------------------
# Readers.

def read_kora(path, fmt, keep_going=False):
    """The entries of a file; with keep_going, None for each entry that cannot be read."""
    entries = []
    db = kora.open(path, format=fmt)
    for i in range(len(db)):
        try:
            e = db[i]
        except kora.DatabaseError:
            if not keep_going:
                raise
            entries.append(None)
            continue
        out = Entry(e.identifier)
        out.index = i
        for mol in e.molecules:
            base = len(out.atoms)
            for a in mol.atoms:
                if a.coordinates is None:
                    continue
                if a.fractional is not None:
                    out.fractional[len(out.atoms)] = tuple(a.fractional)
                out.atoms.append((element_of(a.element, a.mass_number), a.formal_charge,
                                  tuple(a.coordinates)))
            for b in mol.bonds:
                i, j = b.atoms
                out.bonds.append((base + min(i, j), base + max(i, j), bond_order(int(b.type))))
        if e.cell is not None:
            c = e.cell
            out.cell = normalise_cell((c.a, c.b, c.c, c.alpha, c.beta, c.gamma))
            out.ops = frozenset(parse_operator(o) for o in c.spacegroup.operators)
        entries.append(out)
    return entries


def rdkit_entry(mol):
    """An RDKit molecule as an entry (None stays None), named by its title."""
    from rdkit import Chem
    if mol is None:
        return None
    out = Entry(mol.GetProp("_Name") if mol.HasProp("_Name") else "")
    orders = {Chem.BondType.SINGLE: 1, Chem.BondType.DOUBLE: 2, Chem.BondType.TRIPLE: 3,
              Chem.BondType.AROMATIC: "ar"}
    confs = list(mol.GetConformers()) or [None]
    for conf in confs:
        base = len(out.atoms)
        for a in mol.GetAtoms():
            p = conf.GetAtomPosition(a.GetIdx()) if conf is not None else None
            xyz = (p.x, p.y, p.z) if p is not None else (0.0, 0.0, 0.0)
            out.atoms.append((element_of(a.GetSymbol(), a.GetIsotope()), a.GetFormalCharge(), xyz))
        for b in mol.GetBonds():
            i, j = b.GetBeginAtomIdx(), b.GetEndAtomIdx()
            out.bonds.append((base + min(i, j), base + max(i, j), orders.get(b.GetBondType(), 0)))
    return out


def read_rdkit(path, fmt, limit=0, make_entry=rdkit_entry):
    """The entries of a file as RDKit reads them unsanitised (None where it gives no
    molecule), each made by `make_entry` from its molecule; with a limit, at most that many."""
    from rdkit import Chem, RDLogger
    RDLogger.DisableLog("rdApp.*")
    if fmt == "sdf":
        supplier = Chem.ForwardSDMolSupplier(path, sanitize=False, removeHs=False,
                                             strictParsing=False)
        return [make_entry(m) for m in itertools.islice(supplier, limit or None)]
    if fmt == "mol2":
        text = open(path, encoding="latin-1").read()
        blocks = ["@<TRIPOS>MOLECULE" + b for b in text.split("@<TRIPOS>MOLECULE")[1:]]
        return [make_entry(Chem.MolFromMol2Block(b, sanitize=False, removeHs=False))
                for b in blocks[: limit or None]]
    if fmt == "pdb":
        mol = Chem.MolFromPDBFile(path, sanitize=False, removeHs=False)
        return [make_entry(mol)]
    raise ValueError(fmt)


def read_openbabel(path, fmt):
    from openbabel import openbabel as ob
    from openbabel import pybel
    ob.obErrorLog.SetOutputLevel(0)
    name = {"sdf": "sdf", "mol2": "mol2", "pdb": "pdb", "res": "res"}[fmt]
    entries = []
    for mol in pybel.readfile(name, path):
        m = mol.OBMol
        out = Entry(m.GetTitle())
        for a in ob.OBMolAtomIter(m):
            symbol = ob.GetSymbol(a.GetAtomicNum())
            out.atoms.append((element_of(symbol, a.GetIsotope()), a.GetFormalCharge(),
                              (a.GetX(), a.GetY(), a.GetZ())))
        for b in ob.OBMolBondIter(m):
            i, j = b.GetBeginAtomIdx() - 1, b.GetEndAtomIdx() - 1
            # Open Babel marks the bonds of the rings it finds aromatic and keeps their Kekule
            # orders: either agrees with the file.
            order = bond_order(b.GetBondOrder())
            if b.IsAromatic():
                order = ("ar", order)
            out.bonds.append((min(i, j), max(i, j), order))
        if m.HasData(ob.UnitCell):
            cell = ob.toUnitCell(m.GetData(ob.UnitCell))
            out.cell = normalise_cell((cell.GetA(), cell.GetB(), cell.GetC(), cell.GetAlpha(),
                                       cell.GetBeta(), cell.GetGamma()))
        entries.append(out)
    return entries


def read_gemmi(path, fmt):
    import gemmi
    if fmt != "pdb":
        raise ValueError(fmt)
    st = gemmi.read_structure(path)
    out = Entry(st.name)
    for model in st:
        for chain in model:
            for residue in chain:
                for a in residue:
                    f = st.cell.fractionalize(a.pos)
                    out.fractional[len(out.atoms)] = (f.x, f.y, f.z)
                    out.atoms.append((element_of(a.element.name), a.charge,
                                      (a.pos.x, a.pos.y, a.pos.z)))
    c = st.cell
    out.cell = normalise_cell((c.a, c.b, c.c, c.alpha, c.beta, c.gamma))
    out.ops = gemmi_operators(st.find_spacegroup())
    return [out]


def gemmi_operators(spacegroup):
    """The operators of a gemmi space group, normalised; None without a space group."""
    import gemmi
    if spacegroup is None:
        return None
    ops = set()
    for op in spacegroup.operations():
        rot = [[v // gemmi.Op.DEN for v in row] for row in op.rot]
        tran = [Fraction(v, gemmi.Op.DEN) for v in op.tran]
        ops.add(normalised_op(rot, tran))
    return frozenset(ops)


def read_cctbx(path, fmt):
    from cctbx import xray
    if fmt != "res":
        raise ValueError(fmt)
    xs = xray.structure.from_shelx(filename=path)
    out = Entry()
    uc = xs.unit_cell()
    for sc in xs.scatterers():
        symbol = re.sub(r"[^A-Za-z]", "", sc.scattering_type)
        out.fractional[len(out.atoms)] = tuple(sc.site)
        out.atoms.append((element_of(symbol), 0, tuple(uc.orthogonalize(sc.site))))
    out.cell = normalise_cell(uc.parameters())
    out.ops = cctbx_operators(xs.space_group())
    return [out]


def cctbx_operators(space_group):
    """The operators of a cctbx space group (centring and inversion included), normalised."""
    ops = set()
    for op in space_group.all_ops():
        r = op.r().as_double()
        t = op.t().as_double()
        ops.add(normalised_op([r[0:3], r[3:6], r[6:9]], [round(v, 4) for v in t]))
    return frozenset(ops)


READERS = {
    "kora": (read_kora, {"sdf", "mol2", "pdb", "res"}),
    "rdkit": (read_rdkit, {"sdf", "mol2", "pdb"}),
    "openbabel": (read_openbabel, {"sdf", "mol2", "pdb"}),
    "gemmi": (read_gemmi, {"pdb"}),
    "cctbx": (read_cctbx, {"res"}),
}


def available(name):
    try:
        if name == "rdkit":
            import rdkit  # noqa: F401
        elif name == "openbabel":
            from openbabel import pybel  # noqa: F401
        elif name == "gemmi":
            import gemmi  # noqa: F401
        elif name == "cctbx":
            from cctbx import xray  # noqa: F401
        return True
    except ImportError:
        return False


# ---------------------------------------------------------------------------------------------
# Comparison.

def fractional(cell, xyz):
    a, b, c, al, be, ga = cell
    al, be, ga = (math.radians(v) for v in (al, be, ga))
    cos_a, cos_b, cos_g, sin_g = math.cos(al), math.cos(be), math.cos(ga), math.sin(ga)
    v = math.sqrt(1 - cos_a ** 2 - cos_b ** 2 - cos_g ** 2 + 2 * cos_a * cos_b * cos_g)
    x, y, z = xyz
    fz = z / (c * v / sin_g)
    fy = (y - fz * c * (cos_a - cos_b * cos_g) / sin_g) / (b * sin_g)
    fx = (x - fy * b * cos_g - fz * c * cos_b) / a
    return fx, fy, fz


class Matcher:
    """Finds the atom of a reference list at a position, within the tolerance, by a grid."""

    def __init__(self, atoms, cell=None, ops=None, fractionals=None):
        self.cell = cell
        self.grid = collections.defaultdict(list)
        self.step = 0.01
        for k, (el, _, xyz) in enumerate(atoms):
            f = (fractionals or {}).get(k)
            for p in self.images(xyz, ops, f):
                self.grid[self.key(p)].append((k, p))

    def images(self, xyz, ops, f=None):
        if self.cell is None or not ops:
            return [xyz]
        if f is None:
            f = fractional(self.cell, xyz)
        out = []
        for rot, tran in ops:
            g = [sum(rot[r][c] * f[c] for c in range(3)) + tran[r] for r in range(3)]
            out.append(tuple(v % 1.0 for v in g))
        return out

    def key(self, p):
        k = tuple(int(math.floor(v / self.step)) for v in p)
        if self.cell is None:
            return k
        n = int(round(1 / self.step))
        return tuple(v % n for v in k)  # -1e-17 % 1.0 is 1.0 in floating point

    def find(self, xyz, periodic, f=None):
        found = self.candidates(xyz, periodic, f)
        return found[0] if found else None

    def candidates(self, xyz, periodic, f=None):
        """The reference atoms within the tolerance of a position, nearest first; in a crystal
        the fractional coordinates are compared (the reader's own when given: a file's
        Cartesian frame need not be the standard one)."""
        if periodic:
            if f is None:
                f = fractional(self.cell, xyz)
            p = tuple(v % 1.0 for v in f)
            tol = COORD_TOLERANCE / min(self.cell[:3]) * 2
        else:
            p = xyz
            tol = COORD_TOLERANCE
        kx, ky, kz = self.key(p)
        found = {}
        n = int(1 / self.step)
        for dx in (-1, 0, 1):
            for dy in (-1, 0, 1):
                for dz in (-1, 0, 1):
                    k = (kx + dx, ky + dy, kz + dz)
                    if periodic:
                        k = tuple(v % n for v in k)
                    for idx, q in self.grid.get(k, ()):
                        d = [abs(a - b) for a, b in zip(p, q)]
                        if periodic:
                            d = [min(v, 1 - v) for v in d]
                        if max(d) <= tol and max(d) < found.get(idx, 2.0):
                            found[idx] = max(d)
        return sorted(found, key=lambda idx: (found[idx], idx))


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


def call_with_time_limit(function, arguments, seconds):
    """function(*arguments) in a child process, which is stopped after `seconds` (a peer's
    reader can spend minutes in its own code on a large structure)."""
    return ChildCall(function, arguments).result(seconds)


class ChildCall:
    """function(*arguments) started in a child process; result() waits for it. Several can
    run at once. A failure of the function, a child that ends without an answer (a crash)
    and a child past its time all raise RuntimeError."""

    def __init__(self, function, arguments):
        context = multiprocessing.get_context("fork")
        self.receiving, sending = context.Pipe(duplex=False)

        def child():
            try:
                sending.send((True, function(*arguments)))
            except BaseException as e:  # noqa: BLE001 - passed on to the parent
                sending.send((False, "%s: %s" % (type(e).__name__, e)))

        self.process = context.Process(target=child)
        self.process.start()
        sending.close()

    def result(self, seconds):
        try:
            if not self.receiving.poll(max(seconds, 0)):
                raise RuntimeError("timed out after %d s" % seconds)
            ok, value = self.receiving.recv()
        except EOFError:
            self.process.join()
            raise RuntimeError("the reading process ended without an answer (exit status %s)"
                               % self.process.exitcode) from None
        finally:
            self.process.kill()
            self.process.join()
            self.receiving.close()
        if not ok:
            raise RuntimeError(value)
        return value


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    root = os.path.dirname(os.path.dirname(here))
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
