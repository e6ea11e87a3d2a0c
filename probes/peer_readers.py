"""The readers of the interchange check: each reads a file into entries (entries.Entry), kora
through its Python module and the peers (RDKit, Open Babel, gemmi, cctbx) through theirs,
which are imported only when used."""

import itertools
import re
from fractions import Fraction

import kora
from entries import Entry, bond_order, element_of, normalise_cell, normalised_op, parse_operator


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
