"""Read and write Tripos Mol2, MDL MOL/SD, PDB and SHELX RES files.

kora.open(path) gives a read-only database of the file's entries (a context manager: a with
block closes it); each entry holds molecules (atoms, bonds, coordinates) and, for crystal
structures, a cell and space group. kora.write and kora.to_string write entries and molecules
in any format. Database.to_pandas, Entry.to_rdkit and Entry.to_gemmi hand entries to pandas,
RDKit and gemmi when those are installed.
"""

import importlib
import math

from ._kora import (
    Atom,
    Bond,
    BondType,
    Cell,
    Database,
    DatabaseError,
    Entry,
    EntryIterator,
    Format,
    Match,
    Molecule,
    ParallelIterator,
    SpaceGroup,
    __version__,
    formats,
    identify,
    open,
    to_string,
    write,
)

__all__ = [
    "Atom", "Bond", "BondType", "Cell", "Database", "DatabaseError", "Entry", "EntryIterator",
    "Format", "Match", "Molecule", "ParallelIterator", "SpaceGroup", "formats", "identify", "open",
    "to_string", "write",
]


def _require(module, what, debian_package):
    """Imports an optional peer, or says plainly what is missing."""
    try:
        return importlib.import_module(module)
    except ImportError as error:
        raise ImportError(
            f"{what} needs {module.split('.')[0]}, which is not installed "
            f"(Debian: apt-get install {debian_package})") from error


# ------------------------------------------------------------------------------------------
# pandas

# The columns every table has, before the SD data items. A data item named like one of them
# gets the column "data:" + its name.
_SUMMARY_COLUMNS = ("identifier", "molecules", "atoms", "bonds", "formula", "charge",
                    "a", "b", "c", "alpha", "beta", "gamma", "spacegroup", "spacegroup_number")
_CELL_COLUMNS = ("a", "b", "c", "alpha", "beta", "gamma")


def _summary_table(pandas, rows, data_names=None, index=None):
    """A pandas.DataFrame of summary rows (the tuples of Database._summaries), one row each.

    data_names: the SD data items to make columns of, in order; None takes every name the
    rows have, in order of first appearance. index: the frame's index (a RangeIndex from 0
    when None). Database.to_pandas and kora.dask.read_dataframe stand on it, so that both
    give the same columns with the same types.
    """
    columns = {name: [] for name in _SUMMARY_COLUMNS}
    for *counts, cell, symbol, number, _ in rows:
        for name, value in zip(_SUMMARY_COLUMNS[:6], counts):
            columns[name].append(value)
        for name, value in zip(_CELL_COLUMNS, cell or (math.nan,) * 6):
            columns[name].append(value)
        columns["spacegroup"].append(symbol)
        columns["spacegroup_number"].append(number)
    if data_names is None:
        data_names = _data_names(rows)
    types = dict.fromkeys(("molecules", "atoms", "bonds", "charge"), "int64")
    types.update(dict.fromkeys(_CELL_COLUMNS, "float64"), spacegroup_number="Int64")
    table = {name: pandas.array(values, dtype=types.get(name, object))
             for name, values in columns.items()}
    for name in data_names:
        table["data:" + name if name in columns else name] = pandas.array(
            [row[-1].get(name) for row in rows], dtype=object)
    return pandas.DataFrame(table, index=index)


def _data_names(rows):
    """The names of the SD data items of summary rows, in order of first appearance."""
    names = {}
    for row in rows:
        names.update(dict.fromkeys(row[-1]))
    return list(names)


def _database_to_pandas(self):
    """A pandas.DataFrame with one row per entry, in file order.

    Columns: identifier; molecules, atoms and bonds (counts); formula (Hill order); charge
    (the sum of formal charges); a, b, c, alpha, beta, gamma (the cell, NaN without one);
    spacegroup (symbol) and spacegroup_number (None without a cell); then one column per SD
    data item name, in order of first appearance, holding the item's text (None where an
    entry lacks it; a name that is also one of the columns above is prefixed with "data:").
    Raises ImportError when pandas is not installed, kora.DatabaseError when an entry
    cannot be read.
    """
    pandas = _require("pandas", "Database.to_pandas", "python3-pandas")
    return _summary_table(pandas, self._summaries())


Database.to_pandas = _database_to_pandas


# ------------------------------------------------------------------------------------------
# RDKit

def _rdkit_bond_types(Chem):
    b = Chem.BondType
    return {BondType.UNKNOWN: b.UNSPECIFIED, BondType.SINGLE: b.SINGLE,
            BondType.DOUBLE: b.DOUBLE, BondType.TRIPLE: b.TRIPLE,
            BondType.QUADRUPLE: b.QUADRUPLE, BondType.AROMATIC: b.AROMATIC,
            BondType.DELOCALISED: b.ONEANDAHALF, BondType.POLYMERIC: b.OTHER,
            BondType.PI: b.OTHER}


def _entry_to_rdkit(self):
    """The entry as an RDKit Mol, not sanitized: one atom per kora atom in the order of
    Entry.molecule (element, formal charge, isotope (deuterium is hydrogen 2), PDB residue
    information), one bond per kora bond (UNKNOWN is UNSPECIFIED, DELOCALISED ONEANDAHALF,
    POLYMERIC and PI are OTHER; aromatic bonds and their atoms are flagged aromatic), and
    one conformer of the Cartesian coordinates (0, 0, 0 for an atom without a position).
    The name is the identifier and the SD data items are properties. Raises ImportError
    when RDKit is not installed.
    """
    _require("rdkit.Chem", "Entry.to_rdkit", "python3-rdkit")
    from rdkit import Chem
    from rdkit.Geometry import Point3D

    molecule = self.molecule
    mol = Chem.RWMol()
    for atom in molecule.atoms:
        a = Chem.Atom(atom.atomic_number)
        a.SetFormalCharge(atom.formal_charge)
        if atom.mass_number:
            a.SetIsotope(atom.mass_number)
        elif atom.element == "D":  # kora's deuterium is an element of its own
            a.SetIsotope(2)
        if atom.residue_name:
            info = Chem.AtomPDBResidueInfo()
            info.SetName(atom.label)
            info.SetResidueName(atom.residue_name)
            info.SetResidueNumber(atom.residue_number or 0)
            info.SetChainId(atom.chain)
            info.SetInsertionCode(atom.insertion_code or " ")
            info.SetAltLoc(atom.alt_loc or " ")
            info.SetIsHeteroAtom(atom.hetero)
            if atom.occupancy is not None:
                info.SetOccupancy(atom.occupancy)
            if atom.b_factor is not None:
                info.SetTempFactor(atom.b_factor)
            a.SetMonomerInfo(info)
        a.SetProp("_Name", atom.label)
        mol.AddAtom(a)
    types = _rdkit_bond_types(Chem)
    for bond in molecule.bonds:
        first, second = bond.atoms
        mol.AddBond(first, second, types[bond.type])
        if bond.type == BondType.AROMATIC:
            mol.GetBondBetweenAtoms(first, second).SetIsAromatic(True)
            mol.GetAtomWithIdx(first).SetIsAromatic(True)
            mol.GetAtomWithIdx(second).SetIsAromatic(True)
    conformer = Chem.Conformer(molecule.natoms)
    conformer.Set3D(True)
    for i, row in enumerate(molecule.coordinates):
        x, y, z = (0.0 if math.isnan(v) else float(v) for v in row)
        conformer.SetAtomPosition(i, Point3D(x, y, z))
    mol.AddConformer(conformer, assignId=True)
    mol.SetProp("_Name", self.identifier)
    for name, value in self.data.items():
        mol.SetProp(name, value)
    result = mol.GetMol()
    result.UpdatePropertyCache(strict=False)
    return result


Entry.to_rdkit = _entry_to_rdkit


# ------------------------------------------------------------------------------------------
# gemmi

def _gemmi_spacegroup(gemmi, group):
    """gemmi's space group for a kora one: by setting, else number, else operators."""
    found = None
    if group.setting:
        found = gemmi.find_spacegroup_by_name(group.setting)
    if found is None and group.number:
        found = gemmi.find_spacegroup_by_number(group.number)
    if found is None and group.operators:
        found = gemmi.find_spacegroup_by_ops(
            gemmi.GroupOps([gemmi.Op(op.replace(" ", "")) for op in group.operators]))
    return found


def _residue_key(atom, molecule_index):
    """What tells an atom's residue from the next: atoms outside residues make one residue
    per molecule."""
    if atom.residue_name:
        return (atom.model, atom.chain, atom.residue_number, atom.insertion_code,
                atom.residue_name)
    return (atom.model, atom.chain or "A", molecule_index + 1, "", "UNL")


def _entry_to_gemmi(self):
    """The entry as a gemmi.Structure named by its identifier: its cell and space group,
    and its atoms (label, element, formal charge, occupancy, B factor, alternate location)
    in models, chains and residues as the file gave them (PDB, Mol2 substructures); atoms
    outside residues go, a molecule at a time, into residues named UNL of chain A. Atoms a
    SHELX file gave are put where the file had them, once each: images made by symmetry to
    complete a molecule are left to gemmi's own symmetry. Raises ImportError when gemmi is
    not installed.
    """
    gemmi = _require("gemmi", "Entry.to_gemmi", "python3-gemmi")
    structure = gemmi.Structure()
    structure.name = self.identifier
    cell = self.cell
    if cell is not None:
        structure.cell = gemmi.UnitCell(cell.a, cell.b, cell.c, cell.alpha, cell.beta,
                                        cell.gamma)
        group = _gemmi_spacegroup(gemmi, cell.spacegroup)
        if group is not None:
            structure.spacegroup_hm = group.xhm()
        structure.setup_cell_images()

    models = {}  # model number -> [(chain name, [(residue key, gemmi.Residue)])]
    placed = set()  # SHELX atoms already given, by label and file position
    for molecule_index, molecule in enumerate(self.molecules):
        for atom in molecule.atoms:
            position = atom.coordinates
            if atom.file_position is not None and cell is not None:
                key = (atom.label, atom.file_position)
                if key in placed:
                    continue
                placed.add(key)
                position = structure.cell.orthogonalize(gemmi.Fractional(*atom.file_position))
                position = (position.x, position.y, position.z)
            g = gemmi.Atom()
            g.name = atom.label
            g.element = gemmi.Element(atom.element or "X")
            g.charge = atom.formal_charge
            g.occ = 1.0 if atom.occupancy is None else atom.occupancy
            if atom.b_factor is not None:
                g.b_iso = atom.b_factor
            if atom.alt_loc:
                g.altloc = atom.alt_loc
            g.pos = gemmi.Position(*(position or (0.0, 0.0, 0.0)))

            key = _residue_key(atom, molecule_index)
            chains = models.setdefault(key[0], [])
            if not chains or chains[-1][0] != key[1]:
                chains.append((key[1], []))
            residues = chains[-1][1]
            if not residues or residues[-1][0] != key:
                residue = gemmi.Residue()
                residue.name = key[4]
                residue.seqid = gemmi.SeqId(key[2], key[3] or " ")
                residue.het_flag = "H" if atom.hetero or not atom.residue_name else "A"
                residues.append((key, residue))
            residues[-1][1].add_atom(g)

    for number, chains in models.items():
        model = gemmi.Model(str(number or 1))
        for name, residues in chains:
            chain = gemmi.Chain(name)
            for _, residue in residues:
                chain.add_residue(residue)
            model.add_chain(chain)
        structure.add_model(model)
    return structure


Entry.to_gemmi = _entry_to_gemmi
