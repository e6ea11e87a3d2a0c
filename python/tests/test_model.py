"""Entries, molecules, atoms, bonds, cells and space groups as the module presents them."""

import gc
import math

import numpy as np
import pytest

import kora

Z = {"H": 1, "C": 6, "N": 7, "O": 8}
DRUGS = {  # atoms, bonds, formula
    "aspirin": (21, 21, "C9H8O4"), "paracetamol": (20, 20, "C8H9NO2"),
    "caffeine": (24, 25, "C8H10N4O2"), "ibuprofen": (33, 33, "C13H18O2"),
    "nicotine": (26, 27, "C10H14N2"),
}


def assert_arrays_match_atoms(molecule):
    """The numpy arrays of a molecule agree with its atoms, row by row."""
    for array, attribute in [(molecule.coordinates, "coordinates"),
                             (molecule.fractional_coordinates, "fractional")]:
        assert isinstance(array, np.ndarray) and array.dtype == np.float64
        assert array.shape == (molecule.natoms, 3)
        for atom, row in zip(molecule.atoms, array):
            value = getattr(atom, attribute)
            if value is None:
                assert np.isnan(row).all(), (attribute, atom.index)
            else:
                assert isinstance(value, tuple)
                np.testing.assert_allclose(row, value, rtol=0, atol=1e-12)


def test_sd_example(drugs_sdf):
    db = kora.open(drugs_sdf)
    for entry in db:
        natoms, nbonds, formula = DRUGS[entry.identifier]
        [single] = entry.molecules
        molecule = entry.molecule
        for m in (single, molecule):
            assert (m.natoms, len(m), m.nbonds, len(m.bonds)) == (natoms, natoms, nbonds, nbonds)
            assert (m.formula, m.formal_charge, m.identifier) == (formula, 0, entry.identifier)
        assert [(a.index, a.atomic_number, a.residue) for a in molecule.atoms] == [
            (i, Z[a.element], None) for i, a in enumerate(molecule.atoms)]
        assert (entry.cell, entry.spacegroup, entry.peaks) == (None, None, [])
        assert set(entry.data) == {"SMILES", "MW", "SOURCE"}
        assert_arrays_match_atoms(molecule)
    # The first atoms and bonds of the file's first record.
    aspirin = db["aspirin"]
    atoms = aspirin.molecule.atoms
    assert [(a.label, a.element, a.coordinates) for a in atoms[:2]] == [
        ("C1", "C", (3.1295, -0.321, 1.509)), ("C2", "C", (1.6643, -0.0363, 1.3667))]
    assert [(b.atoms, b.type) for b in aspirin.molecule.bonds[:2]] == [
        ((0, 1), kora.BondType.SINGLE), ((1, 2), kora.BondType.DOUBLE)]


def test_mol2_unknown_elements_partial_charges_and_no_cell(write_text):
    text = """@<TRIPOS>MOLECULE
dummy
 3 0 0 0 0
SMALL
USER_CHARGES

@<TRIPOS>ATOM
      1 C1          0.0000    0.0000    0.0000 C.3       1 LIG1       -0.2500
      2 O1          1.4000    0.0000    0.0000 O.3       1 LIG1        0.5000
      3 X1         -1.5000    0.0000    0.0000 Du        1 LIG1        0.0000
"""
    entry = kora.open(write_text("dummy.mol2", text))[0]
    assert [(a.label, a.element, a.atomic_number, a.partial_charge)
            for a in entry.molecule.atoms] == [("C1", "C", 6, -0.25), ("O1", "O", 8, 0.5),
                                               ("X1", "", 0, 0.0)]
    assert entry.molecule.formula == "CO?"
    assert (entry.cell, entry.spacegroup, entry.data) == (None, None, {})
    assert np.isnan(entry.molecule.fractional_coordinates).all()


def test_res_example_cell_space_group_and_atoms(benzoic_res):
    entry = kora.open(benzoic_res)[0]
    cell = entry.cell
    a, b, c, alpha, beta, gamma = 9.5, 10.1, 14.9, 90.0, 97.0, 90.0
    assert (cell.a, cell.b, cell.c, cell.alpha, cell.beta, cell.gamma) == pytest.approx(
        (a, b, c, alpha, beta, gamma))
    assert (cell.lengths, cell.angles) == (pytest.approx((a, b, c)),
                                           pytest.approx((alpha, beta, gamma)))
    assert cell.volume == pytest.approx(a * b * c * math.sin(math.radians(beta)), rel=1e-9)
    to_orthogonal = cell.fractional_to_orthogonal
    np.testing.assert_allclose(to_orthogonal @ cell.orthogonal_to_fractional, np.eye(3),
                               atol=1e-12)
    # The columns are the cell edges, a along x.
    np.testing.assert_allclose(to_orthogonal[:, 0], [a, 0, 0], atol=1e-12)
    for group in (entry.spacegroup, cell.spacegroup):
        assert (group.symbol, group.setting, group.number, len(group)) == (
            "P21/c", "P 1 21/c 1", 14, 4)
        assert group.operators == ["x,y,z", "-x,y+1/2,-z+1/2", "-x,-y,-z", "x,-y-1/2,z-1/2"]
    molecule = entry.molecule
    assert (molecule.natoms, molecule.nbonds, molecule.formula) == (15, 15, "C7H6O2")
    o1 = molecule.atoms[0]
    assert (o1.label, o1.element, o1.occupancy, o1.residue) == ("O1", "O", 1.0, None)
    assert o1.fractional == o1.file_position == pytest.approx((0.12708, 0.20099, 0.34512))
    assert_arrays_match_atoms(molecule)
    np.testing.assert_allclose(molecule.coordinates,
                               molecule.fractional_coordinates @ to_orthogonal.T, atol=1e-9)


def test_pdb_example_molecules_residues_and_bonds(peptide_pdb):
    entry = kora.open(peptide_pdb)[0]
    assert sorted((m.natoms, m.formal_charge) for m in entry.molecules) == [(4, -1), (16, 0)]
    molecule = entry.molecule
    assert (molecule.natoms, molecule.nbonds, molecule.formula, molecule.formal_charge) == (
        20, 18, "C10N3O7", -1)
    names = [a.label + a.residue for a in molecule.atoms]
    n = molecule.atoms[names.index("NGLY1")]
    assert (n.residue_name, n.residue_number, n.chain, n.hetero, n.b_factor, n.coordinates) == (
        "GLY", 1, "A", False, 0.0, pytest.approx((3.691, 1.873, 0.584)))
    bonds = {frozenset((names[i], names[j])): b.type for b in molecule.bonds for i, j in [b.atoms]}
    assert bonds[frozenset(("CGLY1", "OGLY1"))] == kora.BondType.DOUBLE
    assert bonds[frozenset(("CGLY1", "NALA2"))] == kora.BondType.SINGLE
    assert_arrays_match_atoms(molecule)


def test_pdb_atoms_outside_residues(write_text):
    def record(serial, name, residue, number, x, occupancy, element, charge=""):
        return (f"HETATM{serial:>5} {name:<4} {residue:>3} A{number:>4}    {x:8.3f}{0:8.3f}"
                f"{0:8.3f}{occupancy:6.2f}{10.0:6.2f}          {element:>2}{charge:<2}\n")

    text = (record(1, " O", "HOH", 1, 0, 0.5, "O") + record(2, "NA", "NA", 2, 5, 0.25, "NA", "1+")
            + record(3, " O", "", 3, 9, 1.0, "O") + "END\n")
    atoms = sorted(kora.open(write_text("ions.pdb", text))[0].molecule.atoms,
                   key=lambda a: a.coordinates[0])
    assert [(a.element, a.atomic_number, a.formal_charge, a.occupancy) for a in atoms] == [
        ("O", 8, 0, 0.5), ("Na", 11, 1, 0.25), ("O", 8, 0, 1.0)]
    assert [(a.residue, a.chain, a.residue_name, a.residue_number) for a in atoms] == [
        ("HOH1", "A", "HOH", 1), ("NA2", "A", "NA", 2), (None, "A", "", None)]
    assert [(a.model, a.alt_loc, a.part, a.partial_charge, a.b_factor, a.hetero)
            for a in atoms] == [(0, "", 0, None, 10.0, True)] * 3


def test_empty_molecule_arrays(write_text):
    molecule = kora.open(write_text("remark.pdb", "REMARK nothing\nEND\n"))[0].molecule
    assert (molecule.natoms, len(molecule), molecule.formula) == (0, 0, "")
    assert_arrays_match_atoms(molecule)


def test_reprs(drugs_sdf, benzoic_res):
    molecule = kora.open(drugs_sdf)[0].molecule
    assert [repr(x) for x in (molecule, molecule.atoms[1], molecule.bonds[0],
                              kora.open(benzoic_res)[0].cell)] == [
        "<kora.Molecule 21 atoms, 21 bonds>", "<kora.Atom C2 1>",
        "<kora.Bond 0-1 BondType.SINGLE>", "<kora.Cell 9.5 10.1 14.9 90 97 90>"]


def test_objects_outlive_what_they_came_from(drugs_sdf):
    atoms = kora.open(drugs_sdf)[2].molecule.atoms
    entries = iter(kora.open(drugs_sdf))
    molecule = next(entries).molecule
    gc.collect()
    assert [a.element for a in atoms[:3]] == ["C", "N", "C"]
    assert molecule.natoms == 21 and molecule.coordinates.shape == (21, 3)
    assert [e.identifier for e in entries] == ["paracetamol", "caffeine", "ibuprofen", "nicotine"]
