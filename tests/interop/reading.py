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
import difflib
import math
import os
import re
import sys
import tempfile
import time
import warnings

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import kora  # noqa: E402
from interop import (COORD_TOLERANCE, ChildCall, Entry, Matcher, available,  # noqa: E402
                     cctbx_operators, element_of, gemmi_operators, normalise_cell,
                     parse_operator, rdkit_entry, read_rdkit)

# The peer each format is compared with, and what the peer is called in the report.
PEERS = {"sdf": "rdkit", "mol2": "rdkit", "pdb": "gemmi", "res": "cctbx"}
PEER_NAMES = {"rdkit": "RDKit", "gemmi": "gemmi", "cctbx": "cctbx"}
FOLDER_FORMATS = {"sdf": "sdf", "mol2": "mol2", "pdb": "pdb", "res": "res"}
CELL_TOLERANCE = 1e-4
OCCUPANCY_TOLERANCE = 1e-3
_Q_PEAK = re.compile(r"^[Qq]\d")
_RESI_WITHOUT_CLASS = re.compile(r"(?im)^(RESI[ \t]+[-+]?\d+)[ \t]*\r?$")
IDENTITY = frozenset([parse_operator("x,y,z")])

KORA_ORDERS = {kora.BondType.SINGLE: 1, kora.BondType.DOUBLE: 2, kora.BondType.TRIPLE: 3,
               kora.BondType.AROMATIC: "ar"}


class Atom:
    """An atom as either reader gives it; what a format does not hold stays at its default."""
    __slots__ = ("element", "charge", "xyz", "name", "altloc", "resname", "resnum", "chain",
                 "occupancy", "fractional", "special")

    def __init__(self, element, charge=0, xyz=(0.0, 0.0, 0.0), name="", altloc="", resname="",
                 resnum=None, chain="", occupancy=1.0, fractional=None, special=False):
        self.element, self.charge, self.xyz, self.name = element, charge, xyz, name
        self.altloc, self.resname, self.resnum, self.chain = altloc, resname, resnum, chain
        self.occupancy, self.fractional, self.special = occupancy, fractional, special

    def __getstate__(self):
        return tuple(getattr(self, k) for k in self.__slots__)

    def __setstate__(self, state):
        for k, v in zip(self.__slots__, state):
            setattr(self, k, v)

    def where(self):
        """The atom as a PDB or SHELX user names it."""
        residue = " %s %s%s" % (self.resname, self.chain, "" if self.resnum is None else self.resnum)
        return "%s%s" % (self.name or self.element, residue if self.resname else "")


class Structure:
    """A crystal or PDB entry: atoms per model (one model for RES), cell and operators."""

    def __init__(self, identifier=""):
        self.identifier = identifier
        self.models = []  # lists of Atom
        self.cell = None
        self.ops = None
        self.symbol = ""
        self.all_locations = []  # PDB peers: atoms per model before the altloc selection
        self.q_peaks = 0

    def natoms(self):
        return sum(len(m) for m in self.models)


class Difference:
    """One way an entry differs: `group` is the reason without the entry's particulars (what
    the report counts), `text` the reason in full."""

    def __init__(self, group, text):
        self.group, self.text = group, text


# ---------------------------------------------------------------------------------------------
# kora

def kora_order(bond_type):
    return KORA_ORDERS.get(bond_type, 0)


def kora_molecular(e):
    out = Entry(e.identifier)
    for mol in e.molecules:
        base = len(out.atoms)
        for a in mol.atoms:
            xyz = a.coordinates
            out.atoms.append((element_of(a.element, a.mass_number), a.formal_charge,
                              tuple(xyz) if xyz is not None else (0.0, 0.0, 0.0)))
        for b in mol.bonds:
            i, j = b.atoms
            out.bonds.append((base + min(i, j), base + max(i, j), kora_order(b.type)))
    return out


def kora_structure(e, fmt):
    out = Structure(e.identifier)
    by_model = collections.OrderedDict()
    for mol in e.molecules:
        for a in mol.atoms:
            xyz = a.coordinates
            atom = Atom(element_of(a.element, a.mass_number), a.formal_charge,
                        tuple(xyz) if xyz is not None else (0.0, 0.0, 0.0), a.label.strip(),
                        a.alt_loc, a.residue_name, a.residue_number, a.chain,
                        a.occupancy if a.occupancy is not None else 1.0,
                        tuple(a.fractional) if a.fractional is not None else None)
            if fmt == "res" and _Q_PEAK.match(atom.name):
                out.q_peaks += 1
                continue
            by_model.setdefault(a.model if fmt == "pdb" else 0, []).append(atom)
    out.models = [by_model[k] for k in sorted(by_model)] or [[]]
    if e.cell is not None:
        c = e.cell
        out.cell = normalise_cell((c.a, c.b, c.c, c.alpha, c.beta, c.gamma))
        out.ops = frozenset(parse_operator(o) for o in c.spacegroup.operators)
        out.symbol = c.spacegroup.setting or c.spacegroup.symbol
    return out


def read_kora(path, fmt, limit):
    """(entries, identifiers): each entry read, or the text of the exception reading it."""
    db = kora.open(path, format=fmt)
    n = len(db) if not limit else min(limit, len(db))
    identifiers = db.identifiers[:n]
    entries = []
    for i in range(n):
        try:
            e = db[i]
            entries.append(kora_structure(e, fmt) if fmt in ("pdb", "res") else kora_molecular(e))
        except Exception as error:  # noqa: BLE001 - every failure is a reported difference
            entries.append(one_line(error))
    return entries, identifiers


def one_line(error):
    text = str(error).strip() or type(error).__name__
    text = re.sub(r"^RuntimeError: (?=\w+: )", "", text)
    return " / ".join(line.strip() for line in text.splitlines() if line.strip())


# ---------------------------------------------------------------------------------------------
# Peers

def rdkit_typed_entry(mol):
    """An RDKit molecule as an entry, its dummy atoms (atomic number 0: '*', query atoms, R
    groups) without element as kora gives them, with the Mol2 atom types RDKit read."""
    out = rdkit_entry(mol)
    if out is not None:
        atoms = list(mol.GetAtoms())
        out.atoms = [("" if a.GetAtomicNum() == 0 else el, q, xyz)
                     for a, (el, q, xyz) in zip(atoms, out.atoms)]
        out.types = [a.GetProp("_TriposAtomType") if a.HasProp("_TriposAtomType") else ""
                     for a in atoms]
    return out


def read_peer_rdkit(path, fmt, limit):
    return read_rdkit(path, fmt, limit, rdkit_typed_entry)


def read_peer_gemmi(path, fmt, limit):
    """The structure gemmi reads, its models cut to one alternate location per residue."""
    import gemmi
    st = gemmi.read_structure(path)
    out = Structure(st.name)
    for model in st:
        atoms = []
        for chain in model:
            for residue in chain:
                for a in residue:
                    altloc = a.altloc if a.altloc not in ("\0", " ", "") else ""
                    element = a.element.name if a.element.name != "X" else ""
                    atoms.append((Atom(element_of(element), a.charge, (a.pos.x, a.pos.y, a.pos.z),
                                       a.name.strip(), altloc, residue.name, residue.seqid.num,
                                       chain.name, a.occ, None), residue.seqid.icode))
        out.all_locations.append([atom for atom, _ in atoms])
        out.models.append(one_location_per_residue(atoms))
    if st.cell.is_crystal():
        c = st.cell
        out.cell = normalise_cell((c.a, c.b, c.c, c.alpha, c.beta, c.gamma))
        sg = st.find_spacegroup()
        out.ops = gemmi_operators(sg)
        out.symbol = sg.xhm() if sg is not None else st.spacegroup_hm
    return [out]


def one_location_per_residue(atoms):
    """The atoms of a model with one alternate location per residue (chain, number, insertion
    code; consecutive atoms): the letter whose atoms have the highest mean occupancy, the
    first written on ties, and every atom without a letter."""
    kept = []
    group, key = [], None
    for atom, icode in atoms + [(None, None)]:
        k = None if atom is None else (atom.chain, atom.resnum, icode)
        if k != key or atom is None:
            occupancy = collections.OrderedDict()
            for a in group:
                if a.altloc:
                    occupancy.setdefault(a.altloc, []).append(a.occupancy)
            best, best_mean = None, -1.0
            for letter, values in occupancy.items():
                mean = sum(values) / len(values)
                if mean > best_mean:
                    best, best_mean = letter, mean
            kept.extend(a for a in group if not a.altloc or a.altloc == best)
            group, key = [], k
        if atom is not None:
            group.append(atom)
    return kept


def read_peer_cctbx(path, fmt, limit):
    """The structure cctbx reads: xray.structure.from_shelx, else the same without the strict
    ShelXL rules, else iotbx.shelx's refinement-model parser, else the file with a class on
    each RESI. Q peaks are left out."""
    warnings.simplefilter("ignore", RuntimeWarning)  # boost.python's repeated converters
    from cctbx import xray
    import iotbx.shelx

    def residues_with_class():
        # cctbx's parser needs a class on every RESI ("RESI 0" ends a residue in ShelXL);
        # the class is not compared, so a copy of the file gives one to those without.
        with open(path, encoding="latin-1") as f:
            text = _RESI_WITHOUT_CLASS.sub(r"\1 RES", f.read())
        with tempfile.NamedTemporaryFile("w", suffix=".res", encoding="latin-1") as copy:
            copy.write(text)
            copy.flush()
            return xray.structure.from_shelx(filename=copy.name, strictly_shelxl=False)

    attempts = [lambda: xray.structure.from_shelx(filename=path),
                lambda: xray.structure.from_shelx(filename=path, strictly_shelxl=False),
                lambda: iotbx.shelx.parse_smtbx_refinement_model(
                    filename=path, strictly_shelxl=False).structure,
                residues_with_class]
    first_error = None
    for attempt in attempts:
        try:
            xs = attempt()
            if xs is None or xs.unit_cell() is None:
                raise ValueError("no structure")
            break
        except Exception as error:  # noqa: BLE001 - the next parser is tried
            first_error = first_error or "%s: %s" % (type(error).__name__, one_line(error))
    else:
        raise RuntimeError(first_error)
    out = Structure()
    uc = xs.unit_cell()
    atoms = []
    out.ops = cctbx_operators(xs.space_group())
    for sc in xs.scatterers():
        if _Q_PEAK.match(sc.label):
            out.q_peaks += 1
            continue
        symbol = re.sub(r"[^A-Za-z]", "", sc.scattering_type)
        atoms.append(Atom(element_of(symbol), 0, tuple(uc.orthogonalize(sc.site)), sc.label,
                          occupancy=sc.occupancy, fractional=tuple(sc.site),
                          special=sc.multiplicity() < len(out.ops)))
    out.models = [atoms]
    out.cell = normalise_cell(uc.parameters())
    out.symbol = str(xs.space_group_info())
    return [out]


PEER_READERS = {"rdkit": read_peer_rdkit, "gemmi": read_peer_gemmi, "cctbx": read_peer_cctbx}


# ---------------------------------------------------------------------------------------------
# Comparison

def first_of(differences, group, text, count):
    """Records a kind of difference once per entry, with how many times it occurs."""
    if count:
        differences.append(Difference(group, text + ("" if count == 1 else " (%d in all)" % count)))


def pair_by_position(kora_atoms, peer_atoms, same, periodic=False, cell=None, ops=None):
    """{peer index: kora index}: each peer atom paired with an unused kora atom at its place
    (within 0.001 A, up to symmetry when periodic), the best by `same` (a score of how alike
    two atoms are), the same index on ties. Atoms at no place of the other reader are paired
    by index when both are free (2-D records at the origin, positions that differ)."""
    matcher = Matcher([(a.element, 0, a.xyz) for a in kora_atoms], cell, ops,
                      {k: a.fractional for k, a in enumerate(kora_atoms) if a.fractional})
    mapping, used = {}, set()
    for t, p in enumerate(peer_atoms):
        found = [k for k in matcher.candidates(p.xyz, periodic, p.fractional) if k not in used]
        if found:
            k = max(found, key=lambda k: (same(kora_atoms[k], p), k == t))
            mapping[t] = k
            used.add(k)
    for t in range(len(peer_atoms)):
        if t not in mapping and t < len(kora_atoms) and t not in used and not periodic:
            mapping[t] = t
            used.add(t)
    return mapping


def as_atoms(entry):
    return [Atom(el, q, xyz) for el, q, xyz in entry.atoms]


def compare_molecular(k, p, peer):
    """Differences of an SD or Mol2 entry (atom indexes are the peer's, from 1)."""
    differences = []
    if len(k.atoms) != len(p.atoms):
        return [Difference("atom count differs",
                           "%d atoms != %d" % (len(k.atoms), len(p.atoms)))]
    ka, pa = as_atoms(k), as_atoms(p)
    # Mol2 atoms are named by the type the peer read: its charges and orders follow from it.
    kind = getattr(p, "types", None) or [a.element for a in pa]
    kind = [t or a.element for t, a in zip(kind, pa)]
    mapping = pair_by_position(ka, pa, lambda x, y: x.element == y.element)
    elements, charges, moved = collections.defaultdict(list), collections.defaultdict(list), []
    for t, atom in enumerate(pa):
        if t not in mapping:
            moved.append(t)
            continue
        mine = ka[mapping[t]]
        if mine.element != atom.element:
            elements[(mine.element or "none", atom.element or "none")].append(t)
        elif mine.charge != atom.charge:
            charges[(kind[t], mine.charge, atom.charge)].append(t)
        if max(abs(u - v) for u, v in zip(mine.xyz, atom.xyz)) > COORD_TOLERANCE:
            moved.append(t)
    element_differences(differences, elements, lambda t: t + 1)
    for (element, mine, theirs), atoms in sorted(charges.items()):
        first_of(differences, "formal charge of %s %+d != %+d" % (element, mine, theirs),
                 "atom %d (%s): charge %+d != %+d" % (atoms[0] + 1, element, mine, theirs),
                 len(atoms))
    if moved:
        t = moved[0]
        first_of(differences, "coordinates differ",
                 "atom %d (%s) at %s: no kora atom there" % (t + 1, pa[t].element, rounded(pa[t].xyz)),
                 len(moved))
    back = {kk: t for t, kk in mapping.items()}
    mine = {}
    for i, j, order in k.bonds:
        if i in back and j in back:
            a, b = back[i], back[j]
            mine[(min(a, b), max(a, b))] = order
    theirs = {(i, j): order for i, j, order in p.bonds}
    name = PEER_NAMES[peer]

    def bond_text(key, order):
        return "%d-%d (%s-%s, order %s)" % (key[0] + 1, key[1] + 1, pa[key[0]].element,
                                            pa[key[1]].element, order)

    only_theirs = sorted(set(theirs) - set(mine))
    only_mine = sorted(set(mine) - set(theirs))
    if only_theirs:
        first_of(differences, "bonds only in " + name,
                 "bond %s only in %s" % (bond_text(only_theirs[0], theirs[only_theirs[0]]), name),
                 len(only_theirs))
    if only_mine:
        first_of(differences, "bonds only in kora",
                 "bond %s only in kora" % bond_text(only_mine[0], mine[only_mine[0]]),
                 len(only_mine))
    orders = collections.defaultdict(list)
    for key in sorted(set(mine) & set(theirs)):
        if mine[key] != theirs[key]:
            orders[(mine[key], theirs[key])].append(key)
    for (a, b), keys in sorted(orders.items(), key=str):
        by_kind = collections.defaultdict(list)
        for i, j in keys:
            by_kind["-".join(sorted((kind[i], kind[j])))].append((i, j))
        for pair, found in sorted(by_kind.items()):
            i, j = found[0]
            first_of(differences, "bond order %s != %s (%s)" % (order_name(a), order_name(b), pair),
                     "bond %d-%d (%s-%s): order %s != %s" % (i + 1, j + 1, kind[i], kind[j],
                                                             order_name(a), order_name(b)),
                     len(found))
    return differences


def element_differences(differences, elements, name):
    """One difference per pair of elements: {(kora's, the peer's): [atoms]}, each atom shown
    by name(atom)."""
    for (mine, theirs), atoms in sorted(elements.items()):
        first_of(differences, "element %s != %s" % (mine, theirs),
                 "atom %s: element %s != %s" % (name(atoms[0]), mine, theirs), len(atoms))


def order_name(order):
    return "other" if order == 0 else str(order)


def rounded(xyz):
    return "(%s)" % ", ".join("%.3f" % v for v in xyz)


def compare_cell(k, p, peer, differences):
    name = PEER_NAMES[peer]
    if k.cell is None and p.cell is None:
        return
    if k.cell is None or p.cell is None:
        who = "kora" if p.cell is None else name
        cell = k.cell or p.cell
        first_of(differences, "cell only in " + who,
                 "cell only in %s: %s" % (who, " ".join("%g" % v for v in cell)), 1)
        return
    if any(abs(a - b) > CELL_TOLERANCE * max(1.0, abs(b)) for a, b in zip(k.cell, p.cell)):
        first_of(differences, "cell differs",
                 "cell %s != %s" % (" ".join("%g" % v for v in k.cell),
                                    " ".join("%g" % v for v in p.cell)), 1)
    if k.ops is not None and p.ops is not None and k.ops != p.ops:
        first_of(differences, "space-group operators differ",
                 "space group %s (%d operators) != %s (%d)"
                 % (k.symbol or "?", len(k.ops), p.symbol or "?", len(p.ops)), 1)
    elif (k.ops is None) != (p.ops is None):
        who = "kora" if p.ops is None else name
        first_of(differences, "space group only in " + who,
                 "space group only in %s: %s" % (who, k.symbol if p.ops is None else p.symbol), 1)


PDB_FIELDS = [("element", "element"), ("resname", "residue name"), ("resnum", "residue number"),
              ("chain", "chain"), ("altloc", "alternate location")]


def pdb_likeness(x, y):
    return tuple(getattr(x, f) == getattr(y, f) for f in ("name", "altloc", "resnum", "chain",
                                                          "resname", "element"))


def compare_pdb(k, p, peer):
    differences = []
    name = PEER_NAMES[peer]
    if len(k.models) != len(p.models):
        first_of(differences, "model count differs",
                 "%d models != %d" % (len(k.models), len(p.models)), 1)
    fields = collections.defaultdict(list)
    counts, unpaired_mine, unpaired_theirs = [], [], []
    for m, (mine, theirs) in enumerate(zip(k.models, p.models)):
        if len(mine) != len(theirs):
            counts.append((m, len(mine), len(theirs), len(p.all_locations[m])))
        mapping = pair_by_position(mine, theirs, pdb_likeness)
        for t, atom in enumerate(theirs):
            if t not in mapping:
                unpaired_theirs.append((m, atom))
                continue
            a = mine[mapping[t]]
            for field, label in PDB_FIELDS:
                if field == "resnum" and not a.resname and not atom.resname:
                    continue  # kora's Python atoms give no number for a residue without name
                if getattr(a, field) != getattr(atom, field):
                    fields[label].append((m, atom, getattr(a, field), getattr(atom, field)))
        used = set(mapping.values())
        unpaired_mine.extend((m, a) for kk, a in enumerate(mine) if kk not in used)
    every_location = [c for c in counts if c[1] == c[3]]
    for group, found in (("atoms per model differ: kora keeps every alternate location",
                          every_location),
                         ("atoms per model differ", [c for c in counts if c[1] != c[3]])):
        if found:
            m, mine, theirs, _ = found[0]
            first_of(differences, group, "model %d: %d atoms != %d" % (m + 1, mine, theirs),
                     len(found))
    for label, found in fields.items():
        by_values = collections.OrderedDict()
        for m, atom, mine, theirs in found:
            key = (mine, theirs) if label == "element" else ()
            by_values.setdefault(key, []).append((m, atom, mine, theirs))
        for key, items in by_values.items():
            m, atom, mine, theirs = items[0]
            group = "%s differs" % label + (" (%s != %s)" % (mine or "none", theirs or "none")
                                            if key else "")
            first_of(differences, group, "model %d, atom %s: %s %s != %s"
                     % (m + 1, atom.where(), label, show(mine), show(theirs)), len(items))
    if not counts:
        # With the same number of atoms, an atom at no place of the other reader is a position
        # that differs; with different numbers the counts say it.
        for who, found in (("kora", unpaired_mine), (name, unpaired_theirs)):
            if found:
                m, atom = found[0]
                first_of(differences, "atoms at no place of the other reader",
                         "model %d: %s atom %s at %s" % (m + 1, who, atom.where(), rounded(atom.xyz)),
                         len(found))
    compare_cell(k, p, peer, differences)
    return differences


def show(value):
    return "none" if value in ("", None) else str(value)


def sites(structure):
    """The atoms of a crystal structure one per site: atoms of the same name and element that
    are symmetry images of one another (a molecule completed by symmetry) are one."""
    atoms = structure.models[0]
    if structure.cell is None:
        return atoms
    matcher = Matcher([(a.element, 0, a.xyz) for a in atoms], structure.cell,
                      structure.ops or IDENTITY,
                      {k: a.fractional for k, a in enumerate(atoms) if a.fractional})
    kept = []
    for k, a in enumerate(atoms):
        images = [j for j in matcher.candidates(a.xyz, True, a.fractional)
                  if atoms[j].name.upper() == a.name.upper() and atoms[j].element == a.element]
        if min(images or [k]) == k:
            kept.append(a)
    return kept


def site_distance(cell, ops, f, g):
    """The shortest distance in angstroms between a site and the images of another."""
    a, b, c, al, be, ga = cell
    ca, cb, cg = (math.cos(math.radians(v)) for v in (al, be, ga))
    g2 = [[a * a, a * b * cg, a * c * cb], [a * b * cg, b * b, b * c * ca],
          [a * c * cb, b * c * ca, c * c]]
    best = float("inf")
    for rot, tran in ops:
        image = [sum(rot[r][k] * g[k] for k in range(3)) + tran[r] for r in range(3)]
        d = [(x - y + 0.5) % 1.0 - 0.5 for x, y in zip(f, image)]
        best = min(best, math.sqrt(max(0.0, sum(d[i] * g2[i][j] * d[j]
                                                for i in range(3) for j in range(3)))))
    return best


def res_likeness(x, y):
    return (x.name.upper() == y.name.upper(), x.element == y.element)


def compare_res(k, p, peer):
    differences = []
    name = PEER_NAMES[peer]
    if k.q_peaks:
        first_of(differences, "Q peaks read as atoms by kora",
                 "kora reads %d Q peaks as atoms" % k.q_peaks, 1)
    compare_cell(k, p, peer, differences)
    if k.cell is None or p.cell is None:
        return differences
    mine, theirs = sites(k), p.models[0]
    if len(mine) != len(theirs):
        first_of(differences, "atom count differs (sites of the asymmetric unit)",
                 "%d atoms != %d" % (len(mine), len(theirs)), 1)
    mapping = pair_by_position(mine, theirs, res_likeness, True, p.cell, p.ops or IDENTITY)
    elements, occupancies, missing = collections.defaultdict(list), [], []
    for t, atom in enumerate(theirs):
        if t not in mapping:
            missing.append(atom)
            continue
        a = mine[mapping[t]]
        if a.element != atom.element:
            elements[(a.element or "none", atom.element or "none")].append(atom)
        if abs(a.occupancy - atom.occupancy) > OCCUPANCY_TOLERANCE:
            occupancies.append((atom, a.occupancy))
    element_differences(differences, elements, lambda atom: atom.name)
    if occupancies:
        atom, value = occupancies[0]
        first_of(differences, "occupancy differs",
                 "occupancy of atom %s %.4g != %.4g" % (atom.name, value, atom.occupancy),
                 len(occupancies))
    used = set(mapping.values())
    extra = [a for kk, a in enumerate(mine) if kk not in used]
    moved = []
    for atom in list(missing):
        same = [a for a in extra if a.name.upper() == atom.name.upper() and a.element == atom.element]
        if same:
            moved.append((atom, same[0]))
            missing.remove(atom)
            extra.remove(same[0])
    for special in (True, False):
        found = [(atom, a) for atom, a in moved if atom.special == special]
        if found:
            atom, a = found[0]
            group = "position differs" + (" (%s places the atom on a special position)" % name
                                          if special else "")
            first_of(differences, group, "atom %s at %s != %s (%.3f A apart)"
                     % (atom.name, rounded(a.fractional), rounded(atom.fractional),
                        site_distance(p.cell, p.ops or IDENTITY, a.fractional, atom.fractional)),
                     len(found))
    if missing:
        first_of(differences, "atoms of %s at no kora site" % name,
                 "%s atom %s at %s has no kora atom" % (name, missing[0].name,
                                                        rounded(missing[0].fractional)),
                 len(missing))
    if extra:
        first_of(differences, "kora atoms at no site of " + name,
                 "kora atom %s at %s is at no %s site" % (extra[0].name, rounded(extra[0].fractional
                                                                               or extra[0].xyz), name),
                 len(extra))
    return differences


def compare(fmt, k, p, peer):
    if fmt == "pdb":
        return compare_pdb(k, p, peer)
    if fmt == "res":
        return compare_res(k, p, peer)
    return compare_molecular(k, p, peer)


# ---------------------------------------------------------------------------------------------
# Pairing entries

def signature(entry):
    if isinstance(entry, Entry):
        return (entry.identifier.strip(), len(entry.atoms))
    return (entry.identifier.strip(), entry.natoms())


def pair_entries(fmt, mine, theirs):
    """[(kora index or None, peer index or None)]: position by position when both readers
    find as many entries (or the peer reads one structure per file, PDB and RES); otherwise
    aligned by title and atom count, so that an entry one reader splits or misses does not
    shift the others."""
    if fmt in ("pdb", "res") or len(mine) == len(theirs):
        n = max(len(mine), len(theirs))
        return [(i if i < len(mine) else None, i if i < len(theirs) else None) for i in range(n)]
    a = [signature(e) if not isinstance(e, str) else ("kora", i) for i, e in enumerate(mine)]
    b = [signature(e) if e is not None else ("peer", i) for i, e in enumerate(theirs)]
    pairs = []
    for tag, i1, i2, j1, j2 in difflib.SequenceMatcher(None, a, b, autojunk=False).get_opcodes():
        n = max(i2 - i1, j2 - j1)
        for d in range(n):
            i, j = i1 + d, j1 + d
            pairs.append((i if i < i2 else None, j if j < j2 else None))
    return pairs


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
    root = os.path.dirname(os.path.dirname(here))
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
