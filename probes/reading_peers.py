"""What the reading check reads: each entry of a file as kora reads it and as its peer does
(RDKit for SD and Mol2, gemmi for PDB, cctbx for SHELX), molecular entries (entries.Entry) for
SD and Mol2, structures of atoms (Structure, Atom) for PDB and RES."""

import collections
import re
import tempfile
import warnings

import kora
from entries import Entry, element_of, normalise_cell, parse_operator
from peer_readers import cctbx_operators, gemmi_operators, rdkit_entry, read_rdkit

_Q_PEAK = re.compile(r"^[Qq]\d")
_RESI_WITHOUT_CLASS = re.compile(r"(?im)^(RESI[ \t]+[-+]?\d+)[ \t]*\r?$")

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
