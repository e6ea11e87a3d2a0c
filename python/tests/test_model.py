"""Entries, molecules, atoms, bonds, cells and space groups as the module presents them,
checked against what the files say."""

import gc
import math

import numpy as np
import pytest

import kora
import oracle

Z = {"H": 1, "C": 6, "N": 7, "O": 8, "F": 9, "Na": 11, "Cl": 17, "Br": 35}
SD_BOND = {1: kora.BondType.SINGLE, 2: kora.BondType.DOUBLE, 3: kora.BondType.TRIPLE,
           4: kora.BondType.AROMATIC}
MOL2_BOND = {"1": kora.BondType.SINGLE, "2": kora.BondType.DOUBLE, "3": kora.BondType.TRIPLE,
             "ar": kora.BondType.AROMATIC, "am": kora.BondType.SINGLE}
DRUG_SUMMARY = {  # atoms, bonds, formula
    "aspirin": (21, 21, "C9H8O4"), "paracetamol": (20, 20, "C8H9NO2"),
    "caffeine": (24, 25, "C8H10N4O2"), "ibuprofen": (33, 33, "C13H18O2"),
    "nicotine": (26, 27, "C10H14N2"),
}


def sd_record(name, atoms, bonds=(), extra=""):
    """One V2000 record: atoms as (symbol, x, y, z[, charge code]), bonds as (i, j, type)
    with 1-based atom numbers, `extra` lines before M  END."""
    lines = [name, "  test", "", f"{len(atoms):3d}{len(bonds):3d}  0  0  0  0  0  0  0  0999 V2000"]
    for atom in atoms:
        symbol, x, y, z = atom[:4]
        code = atom[4] if len(atom) > 4 else 0
        lines.append(f"{x:10.4f}{y:10.4f}{z:10.4f} {symbol:<3} 0{code:3d}  0  0  0  0  0  0  0  0  0  0")
    for i, j, t in bonds:
        lines.append(f"{i:3d}{j:3d}{t:3d}  0")
    return "\n".join(lines) + "\n" + extra + "M  END\n"


def pdb_record(record, serial, name, residue, number, xyz, occupancy, element, charge=""):
    x, y, z = xyz
    return (f"{record:<6}{serial:>5} {name:<4} {residue:>3} A{number:>4}    "
            f"{x:8.3f}{y:8.3f}{z:8.3f}{occupancy:6.2f}{10.0:6.2f}          {element:>2}{charge:<2}\n")


def assert_arrays_match_atoms(molecule):
    """The numpy arrays of a molecule agree with its atoms, row by row."""
    n = molecule.natoms
    for array, attribute in [(molecule.coordinates, "coordinates"),
                             (molecule.fractional_coordinates, "fractional")]:
        assert isinstance(array, np.ndarray)
        assert array.dtype == np.float64
        assert array.shape == (n, 3)
        for atom, row in zip(molecule.atoms, array):
            value = getattr(atom, attribute)
            if value is None:
                assert np.isnan(row).all(), (attribute, atom.index)
            else:
                assert isinstance(value, tuple) and len(value) == 3
                np.testing.assert_allclose(row, value, rtol=0, atol=1e-12)


class TestSdExample:
    @pytest.fixture(scope="class")
    def records(self, drugs_sdf):
        return oracle.parse_sdf(drugs_sdf.read_text())

    @pytest.fixture(scope="class")
    def db(self, drugs_sdf):
        return kora.open(drugs_sdf)

    def test_summaries(self, db):
        for entry in db:
            natoms, nbonds, formula = DRUG_SUMMARY[entry.identifier]
            assert len(entry.molecules) == 1
            for molecule in (entry.molecules[0], entry.molecule):
                assert (molecule.natoms, molecule.nbonds, molecule.formula) == (natoms, nbonds, formula)
                assert len(molecule) == len(molecule.atoms) == natoms
                assert len(molecule.bonds) == nbonds
                assert molecule.formal_charge == 0
                assert molecule.identifier == entry.identifier

    def test_atoms_agree_with_the_file(self, db, records):
        for entry, record in zip(db, records):
            atoms = entry.molecule.atoms
            assert [a.index for a in atoms] == list(range(len(atoms)))
            assert [a.element for a in atoms] == record["elements"]
            assert [a.atomic_number for a in atoms] == [Z[e] for e in record["elements"]]
            assert all(a.formal_charge == 0 and a.residue is None for a in atoms)
            np.testing.assert_allclose([a.coordinates for a in atoms], record["coords"],
                                       rtol=0, atol=1e-9)

    def test_bonds_agree_with_the_file(self, db, records):
        for entry, record in zip(db, records):
            bonds = {}
            for bond in entry.molecule.bonds:
                assert isinstance(bond.atoms, tuple) and len(bond.atoms) == 2
                assert isinstance(bond.type, kora.BondType)
                bonds[tuple(sorted(bond.atoms))] = bond.type
            assert bonds == {pair: SD_BOND[t] for pair, t in record["bonds"].items()}

    def test_arrays(self, db, records):
        for entry, record in zip(db, records):
            molecule = entry.molecule
            assert_arrays_match_atoms(molecule)
            np.testing.assert_allclose(molecule.coordinates, record["coords"], rtol=0, atol=1e-9)
            # No crystal data: no fractional coordinates.
            assert np.isnan(molecule.fractional_coordinates).all()
            assert all(a.fractional is None for a in molecule.atoms)

    def test_no_cell_or_space_group(self, db):
        for entry in db:
            assert entry.cell is None
            assert entry.spacegroup is None

    def test_data_items(self, db, records):
        for entry, record in zip(db, records):
            assert entry.data == record["data"]
            assert set(entry.data) == {"SMILES", "MW", "SOURCE"}
        assert db["aspirin"].data["SMILES"] == "CC(=O)Oc1ccccc1C(=O)O"


class TestSdData:
    def test_multi_line_repeated_and_missing_items(self, write_text):
        carbon = [("C", 0.0, 0.0, 0.0)]
        text = (sd_record("first", carbon)
                + ">  <NOTE>\nalpha\n\n>  <LINES>\nline one\nline two\n\n"
                + "> 25 <NOTE>\nbeta\n\n>  <EMPTY>\n\n$$$$\n"
                + sd_record("second", carbon) + "$$$$\n")
        db = kora.open(write_text("data.sdf", text))
        first = db["first"].data
        assert isinstance(first, dict)
        assert first["LINES"] == "line one\nline two"
        assert first["NOTE"] == "alpha"
        assert first.get("EMPTY", "") == ""
        assert all(type(k) is str and type(v) is str for k, v in first.items())
        assert db["second"].data == {}

    def test_other_formats_have_no_data(self, drugs_mol2, peptide_pdb, benzoic_res):
        for path in (drugs_mol2, peptide_pdb, benzoic_res):
            for entry in kora.open(path):
                assert entry.data == {}


class TestFormulaAndCharge:
    def test_hill_order_and_charges(self, write_text):
        text = "".join(rec + "$$$$\n" for rec in [
            sd_record("ammonium", [("N", 0, 0, 0)], extra="M  CHG  1   1   1\n"),
            sd_record("hydroxide", [("O", 0, 0, 0, 5), ("H", 0.96, 0, 0)], [(1, 2, 1)]),
            sd_record("water", [("O", 0, 0, 0), ("H", 0.96, 0, 0), ("H", -0.24, 0.93, 0)],
                      [(1, 2, 1), (1, 3, 1)]),
            sd_record("halomethane", [("C", 0, 0, 0), ("H", 1.09, 0, 0), ("Br", -0.6, 1.6, 0),
                                      ("Cl", -0.6, -0.8, 1.4), ("F", -0.5, -0.7, -1.1)],
                      [(1, 2, 1), (1, 3, 1), (1, 4, 1), (1, 5, 1)]),
            sd_record("carbon dioxide", [("O", -1.16, 0, 0), ("C", 0, 0, 0), ("O", 1.16, 0, 0)],
                      [(1, 2, 2), (2, 3, 2)]),
        ])
        db = kora.open(write_text("charges.sdf", text))
        summary = {e.identifier: (e.molecule.formula, e.molecule.formal_charge) for e in db}
        assert summary == {"ammonium": ("N", 1), "hydroxide": ("HO", -1), "water": ("H2O", 0),
                           "halomethane": ("CHBrClF", 0), "carbon dioxide": ("CO2", 0)}
        assert db["ammonium"].molecule.atoms[0].formal_charge == 1
        assert [a.formal_charge for a in db["hydroxide"].molecule.atoms] == [-1, 0]
        assert db["halomethane"].molecule.atoms[2].atomic_number == 35

    def test_unknown_element(self, write_text):
        text = """@<TRIPOS>MOLECULE
dummy
 3 2 0 0 0
SMALL
NO_CHARGES


@<TRIPOS>ATOM
      1 C1          0.0000    0.0000    0.0000 C.3       1 LIG1        0.0000
      2 O1          1.4000    0.0000    0.0000 O.3       1 LIG1        0.0000
      3 X1         -1.5000    0.0000    0.0000 Du        1 LIG1        0.0000
@<TRIPOS>BOND
     1     1     2    1
     2     1     3    1
"""
        molecule = kora.open(write_text("dummy.mol2", text))[0].molecule
        assert [(a.label, a.element, a.atomic_number) for a in molecule.atoms] == [
            ("C1", "C", 6), ("O1", "O", 8), ("X1", "", 0)]
        assert molecule.formula == "CO?"


class TestMol2Example:
    def test_agrees_with_the_file(self, drugs_mol2):
        records = oracle.parse_mol2(drugs_mol2.read_text())
        db = kora.open(drugs_mol2)
        assert len(db) == len(records)
        for entry, record in zip(db, records):
            assert entry.identifier == record["name"]
            natoms, nbonds, formula = DRUG_SUMMARY[entry.identifier]
            molecule = entry.molecule
            assert (molecule.natoms, molecule.nbonds, molecule.formula) == (natoms, nbonds, formula)
            assert [a.label for a in molecule.atoms] == record["labels"]
            assert [a.element for a in molecule.atoms] == record["elements"]
            np.testing.assert_allclose(molecule.coordinates, record["coords"], rtol=0, atol=1e-9)
            bonds = {tuple(sorted(b.atoms)): b.type for b in molecule.bonds}
            assert bonds == {pair: MOL2_BOND[t] for pair, t in record["bonds"].items()}
            assert_arrays_match_atoms(molecule)

    def test_no_cell_without_crystal_record(self, write_text):
        text = """@<TRIPOS>MOLECULE
water
 3 2 0 0 0
SMALL
NO_CHARGES


@<TRIPOS>ATOM
      1 O1          0.0000    0.0000    0.0000 O.3       1 HOH1        0.0000
      2 H1          0.9600    0.0000    0.0000 H         1 HOH1        0.0000
      3 H2         -0.2400    0.9300    0.0000 H         1 HOH1        0.0000
@<TRIPOS>BOND
     1     1     2    1
     2     1     3    1
"""
        entry = kora.open(write_text("water.mol2", text))[0]
        assert entry.cell is None and entry.spacegroup is None
        assert entry.molecule.formula == "H2O"
        assert np.isnan(entry.molecule.fractional_coordinates).all()


class TestResExample:
    @pytest.fixture(scope="class")
    def entry(self, benzoic_res):
        return kora.open(benzoic_res)[0]

    @pytest.fixture(scope="class")
    def expected(self, benzoic_res):
        return oracle.parse_res(benzoic_res.read_text())

    def test_cell(self, entry, expected):
        cell = entry.cell
        a, b, c, alpha, beta, gamma = expected["cell"]
        assert (cell.a, cell.b, cell.c) == pytest.approx((a, b, c))
        assert (cell.alpha, cell.beta, cell.gamma) == pytest.approx((alpha, beta, gamma))
        assert cell.lengths == pytest.approx((a, b, c))
        assert cell.angles == pytest.approx((alpha, beta, gamma))
        assert isinstance(cell.lengths, tuple) and isinstance(cell.angles, tuple)
        ca, cb, cg = (math.cos(math.radians(t)) for t in (alpha, beta, gamma))
        volume = a * b * c * math.sqrt(1 - ca * ca - cb * cb - cg * cg + 2 * ca * cb * cg)
        assert cell.volume == pytest.approx(volume, rel=1e-9)

    def test_cell_matrices(self, entry):
        cell = entry.cell
        to_orthogonal = cell.fractional_to_orthogonal
        to_fractional = cell.orthogonal_to_fractional
        for matrix in (to_orthogonal, to_fractional):
            assert isinstance(matrix, np.ndarray)
            assert matrix.shape == (3, 3) and matrix.dtype == np.float64
        np.testing.assert_allclose(to_orthogonal @ to_fractional, np.eye(3), atol=1e-12)
        # a along x, b in the xy plane; the columns are the cell edges.
        np.testing.assert_allclose(to_orthogonal[:, 0], [cell.a, 0, 0], atol=1e-12)
        assert abs(to_orthogonal[2, 1]) < 1e-12
        np.testing.assert_allclose(np.linalg.norm(to_orthogonal, axis=0),
                                   [cell.a, cell.b, cell.c], rtol=1e-12)
        assert abs(np.linalg.det(to_orthogonal)) == pytest.approx(cell.volume, rel=1e-9)

    def test_space_group(self, entry):
        for group in (entry.spacegroup, entry.cell.spacegroup):
            assert group.symbol == "P21/c"
            assert group.setting == "P 1 21/c 1"
            assert group.number == 14
            assert len(group) == len(group.operators) == 4
            assert all(type(op) is str for op in group.operators)
            assert "x,y,z" in [op.replace(" ", "").lower() for op in group.operators]
            expected = {oracle.parse_operator(op) for op in
                        ["x,y,z", "-x,1/2+y,1/2-z", "-x,-y,-z", "x,1/2-y,1/2+z"]}
            assert {oracle.parse_operator(op) for op in group.operators} == expected

    def test_atoms(self, entry, expected):
        molecule = entry.molecule
        assert len(entry.molecules) == 1
        assert (molecule.natoms, molecule.nbonds, molecule.formula) == (15, 15, "C7H6O2")
        assert molecule.identifier == entry.identifier
        by_label = {a["label"]: a for a in expected["atoms"]}
        assert sorted(a.label for a in molecule.atoms) == sorted(by_label)
        to_orthogonal = entry.cell.fractional_to_orthogonal
        for atom in molecule.atoms:
            want = by_label[atom.label]
            assert atom.element == want["element"]
            assert atom.occupancy == pytest.approx(1.0)
            assert atom.residue is None
            np.testing.assert_allclose(atom.fractional, want["fractional"], rtol=0, atol=1e-9)
            np.testing.assert_allclose(atom.coordinates, to_orthogonal @ want["fractional"],
                                       rtol=0, atol=1e-9)
        assert_arrays_match_atoms(molecule)
        np.testing.assert_allclose(molecule.coordinates,
                                   molecule.fractional_coordinates @ to_orthogonal.T, atol=1e-9)

    def test_carboxyl_bonds(self, entry):
        molecule = entry.molecule
        index = {a.label: a.index for a in molecule.atoms}
        pairs = {frozenset(b.atoms) for b in molecule.bonds}
        for first, second in [("O1", "C1"), ("C1", "O2"), ("C1", "C2"), ("O1", "H1")]:
            assert frozenset((index[first], index[second])) in pairs
        assert frozenset((index["O1"], index["O2"])) not in pairs


class TestPdbExample:
    @pytest.fixture(scope="class")
    def entry(self, peptide_pdb):
        return kora.open(peptide_pdb)[0]

    @pytest.fixture(scope="class")
    def expected(self, peptide_pdb):
        return oracle.parse_pdb(peptide_pdb.read_text())

    def test_molecules(self, entry):
        assert sorted(m.natoms for m in entry.molecules) == [4, 16]
        for molecule in entry.molecules:
            assert [a.index for a in molecule.atoms] == list(range(molecule.natoms))
            assert all(0 <= i < molecule.natoms for b in molecule.bonds for i in b.atoms)
        assert sum(m.nbonds for m in entry.molecules) == 18
        merged = entry.molecule
        assert (merged.natoms, merged.nbonds, merged.formula, merged.formal_charge) == (
            20, 18, "C10N3O7", -1)
        assert sorted(m.formal_charge for m in entry.molecules) == [-1, 0]
        assert_arrays_match_atoms(merged)

    def atom_of_serial(self, molecule, expected):
        """Index of each serial number's atom, found by position."""
        found = {}
        for want in expected:
            distances = np.linalg.norm(molecule.coordinates - want["coords"], axis=1)
            found[want["serial"]] = int(np.argmin(distances))
            assert distances.min() < 1e-6
        assert sorted(found.values()) == list(range(molecule.natoms))
        return found

    def test_atoms(self, entry, expected):
        molecule = entry.molecule
        index = self.atom_of_serial(molecule, expected)
        for want in expected:
            atom = molecule.atoms[index[want["serial"]]]
            assert atom.label == want["name"]
            assert atom.element == want["element"]
            assert atom.residue == want["residue"]
            assert atom.formal_charge == want["charge"]
            assert atom.occupancy == pytest.approx(want["occupancy"])
            assert atom.coordinates == pytest.approx(want["coords"], abs=1e-9)
        assert {a.residue for a in molecule.atoms} == {"GLY1", "ALA2", "SER3", "ACT10"}

    def test_bonds(self, entry, expected, peptide_pdb):
        molecule = entry.molecule
        index = self.atom_of_serial(molecule, expected)
        serial = {i: s for s, i in index.items()}
        types = {frozenset(serial[i] for i in b.atoms): b.type for b in molecule.bonds}
        assert set(types) == oracle.parse_conect(peptide_pdb.read_text())
        # The carbonyl groups of the three residues.
        for carbon, oxygen in [(3, 4), (7, 8), (12, 13)]:
            assert types[frozenset((carbon, oxygen))] == kora.BondType.DOUBLE

    def test_occupancy_and_atoms_outside_residues(self, write_text):
        text = (pdb_record("HETATM", 1, " O", "HOH", 1, (0, 0, 0), 0.5, "O")
                + pdb_record("HETATM", 2, "NA", "NA", 2, (5, 0, 0), 0.25, "NA", "1+")
                + pdb_record("HETATM", 3, " O", "", 3, (9, 0, 0), 1.0, "O") + "END\n")
        entry = kora.open(write_text("ions.pdb", text))[0]
        molecule = entry.molecule
        assert (molecule.natoms, molecule.formula, molecule.formal_charge) == (3, "NaO2", 1)
        atoms = sorted(molecule.atoms, key=lambda a: a.coordinates[0])
        assert [a.occupancy for a in atoms] == pytest.approx([0.5, 0.25, 1.0])
        assert [a.element for a in atoms] == ["O", "Na", "O"]
        assert [a.atomic_number for a in atoms] == [8, 11, 8]
        assert [a.formal_charge for a in atoms] == [0, 1, 0]
        assert [a.residue for a in atoms] == ["HOH1", "NA2", None]
        assert [(a.chain, a.residue_name, a.residue_number) for a in atoms] == [
            ("A", "HOH", 1), ("A", "NA", 2), ("A", "", None)]
        assert [(a.model, a.alt_loc, a.part, a.partial_charge) for a in atoms] == [(0, "", 0, None)] * 3


def test_empty_molecule_arrays(write_text):
    molecule = kora.open(write_text("remark.pdb", "REMARK nothing\nEND\n"))[0].molecule
    assert molecule.natoms == len(molecule) == 0
    assert molecule.coordinates.shape == (0, 3)
    assert molecule.fractional_coordinates.shape == (0, 3)
    assert molecule.coordinates.dtype == np.float64
    assert molecule.formula == ""


def test_bond_type_values():
    assert {t.name: int(t) for t in kora.BondType.__members__.values()} == {
        "UNKNOWN": 0, "SINGLE": 1, "DOUBLE": 2, "TRIPLE": 3, "QUADRUPLE": 4, "AROMATIC": 5,
        "POLYMERIC": 6, "DELOCALISED": 7, "PI": 9}


def test_objects_outlive_what_they_came_from(drugs_sdf):
    atoms = kora.open(drugs_sdf)[2].molecule.atoms
    entries = iter(kora.open(drugs_sdf))
    molecule = next(entries).molecule
    gc.collect()
    assert [a.element for a in atoms[:3]] == ["C", "N", "C"]
    assert molecule.natoms == 21 and molecule.coordinates.shape == (21, 3)
    assert [e.identifier for e in entries] == ["paracetamol", "caffeine", "ibuprofen", "nicotine"]
