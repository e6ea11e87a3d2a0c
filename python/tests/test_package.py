"""The package around the extension: closing databases, path-like arguments, tables for
pandas, molecules for RDKit and structures for gemmi, and the type stubs."""

import ast
import math
import os
import pathlib
import site
import subprocess
import sys

import pytest

import kora

# Two records: charges, isotopes (13C, deuterium); data items, one of several lines, two missing from the
# second record, one named like a column of the table.
SD_WITH_DATA = """\
acetate
  test

  4  3  0  0  0  0  0  0  0  0999 V2000
    0.0000    0.0000    0.0000 C   0  0  0  0  0  0  0  0  0  0  0  0
    1.5000    0.0000    0.0000 C   0  0  0  0  0  0  0  0  0  0  0  0
    2.1000    1.0000    0.0000 O   0  0  0  0  0  0  0  0  0  0  0  0
    2.1000   -1.0000    0.0000 O   0  5  0  0  0  0  0  0  0  0  0  0
  1  2  1  0
  2  3  2  0
  2  4  1  0
M  CHG  1   4  -1
M  ISO  1   1  13
M  END
> <MW>
59.04

> <formula>
as given

> <NOTE>
first
second line

$$$$
ammonium
  test

  2  1  0  0  0  0  0  0  0  0999 V2000
    0.0000    0.0000    0.0000 N   0  3  0  0  0  0  0  0  0  0  0  0
    1.0000    0.0000    0.0000 D   0  0  0  0  0  0  0  0  0  0  0  0
  1  2  1  0
M  CHG  1   1   1
M  END
> <MW>
18.04

$$$$
"""

# Half of a C2 unit on the inversion centre of P-1: kora completes the molecule.
HALF_ON_INVERSION_CENTRE = """\
TITL half a molecule on an inversion centre
CELL 0.71073 10.0 10.0 10.0 90.0 90.0 90.0
LATT 1
SFAC C H
UNIT 2 6
C1   1    0.05500    0.04500    0.03000 11.00000   0.0400
END
"""


class PathLike:
    """An os.PathLike that is neither str nor pathlib.Path."""

    def __init__(self, path):
        self.path = str(path)

    def __fspath__(self):
        return self.path


def open_descriptors_to(path):
    """How many of the process's file descriptors point at a file."""
    target = os.path.realpath(path)
    count = 0
    for fd in os.listdir("/proc/self/fd"):
        try:
            count += os.readlink(f"/proc/self/fd/{fd}") == target
        except OSError:
            pass  # the descriptor of the listing itself
    return count


class TestClosing:
    @pytest.mark.skipif(not os.path.isdir("/proc/self/fd"), reason="needs /proc")
    def test_with_block_lets_go_of_the_file(self, drugs_sdf):
        with kora.open(drugs_sdf) as db:
            entry = db["caffeine"]
            assert open_descriptors_to(drugs_sdf) == 1
            assert not db.closed
        assert db.closed
        assert open_descriptors_to(drugs_sdf) == 0
        assert entry.molecule.formula == "C8H10N4O2"  # entries read before stay usable
        assert "closed" in repr(db) and db.format == "sdf" and db.path == str(drugs_sdf)

    def test_block_left_by_an_exception_closes(self, drugs_sdf):
        with pytest.raises(KeyError):
            with kora.open(drugs_sdf) as db:
                db["no such entry"]
        assert db.closed

    @pytest.mark.parametrize("use", [
        len, lambda db: db[0], lambda db: db["aspirin"], lambda db: "aspirin" in db,
        lambda db: list(db), lambda db: db.identifiers, lambda db: db.nearest("b"),
        lambda db: db.to_pandas(),
    ], ids=["len", "index", "identifier", "in", "iteration", "identifiers", "nearest",
            "to_pandas"])
    def test_use_after_close_is_a_value_error(self, drugs_sdf, use):
        db = kora.open(drugs_sdf)
        db.close()
        db.close()  # closing twice does nothing
        with pytest.raises(ValueError, match="closed kora.Database"):
            use(db)

    def test_iteration_stops_at_the_close(self, drugs_sdf):
        db = kora.open(drugs_sdf)
        entries = iter(db)
        assert next(entries).identifier == "aspirin"
        db.close()
        with pytest.raises(ValueError, match="closed"):
            list(entries)


class TestPathArguments:
    @pytest.mark.parametrize("kind", [pathlib.Path, PathLike, os.fsencode], ids=["Path", "PathLike", "bytes"])
    def test_every_function_taking_a_path(self, tmp_path, drugs_sdf, kind):
        assert kora.identify(kind(drugs_sdf)) == "sdf"
        db = kora.open(kind(drugs_sdf))
        assert db.path == str(drugs_sdf) and len(db) == 5
        target = tmp_path / "out.mol2"
        assert kora.write(kind(target), db) == 5
        assert kora.open(target).identifiers == db.identifiers

    def test_other_objects_are_a_type_error(self):
        for call in (kora.open, kora.identify, lambda p: kora.write(p, [])):
            with pytest.raises(TypeError):
                call(42)


class TestPandas:
    pandas = pytest.importorskip("pandas")

    def test_sd_data_items_are_columns(self, write_text):
        table = kora.open(write_text("two.sdf", SD_WITH_DATA)).to_pandas()
        assert list(table.columns[:14]) == [
            "identifier", "molecules", "atoms", "bonds", "formula", "charge", "a", "b", "c",
            "alpha", "beta", "gamma", "spacegroup", "spacegroup_number"]
        assert set(table.columns[14:]) == {"MW", "data:formula", "NOTE"}
        values = table.to_dict("list")
        assert {k: values[k] for k in ("identifier", "molecules", "atoms", "bonds", "formula",
                                       "charge", "spacegroup")} == {
            "identifier": ["acetate", "ammonium"], "molecules": [1, 1], "atoms": [4, 2],
            "bonds": [3, 1], "formula": ["C2O2", "DN"], "charge": [-1, 1],
            "spacegroup": [None, None]}
        # Lines are joined, a missing item is None.
        assert {k: values[k] for k in ("MW", "data:formula", "NOTE")} == {
            "MW": ["59.04", "18.04"], "data:formula": ["as given", None],
            "NOTE": ["first\nsecond line", None]}
        assert table["a"].isna().all() and table["spacegroup_number"].isna().all()
        assert str(table["atoms"].dtype) == "int64" and str(table["a"].dtype) == "float64"

    def test_crystal_cell_columns(self, benzoic_res, peptide_pdb):
        row = kora.open(benzoic_res).to_pandas().iloc[0]
        assert [row[k] for k in ("a", "b", "c", "alpha", "beta", "gamma")] == pytest.approx(
            [9.5, 10.1, 14.9, 90.0, 97.0, 90.0])
        assert (row["spacegroup"], row["spacegroup_number"]) == ("P21/c", 14)
        assert (row["formula"], row["atoms"]) == ("C7H6O2", 15)
        # A PDB file's unit-cube CRYST1 is no cell, as Entry.cell says.
        assert kora.open(peptide_pdb)[0].cell is None
        assert math.isnan(kora.open(peptide_pdb).to_pandas()["a"][0])

    def test_missing_pandas_is_a_clear_import_error(self, monkeypatch, drugs_sdf):
        monkeypatch.setitem(sys.modules, "pandas", None)
        with pytest.raises(ImportError, match="to_pandas needs pandas.*python3-pandas"):
            kora.open(drugs_sdf).to_pandas()


def bonds_by_atoms(bonds):
    return {tuple(sorted(pair)): order for pair, order in bonds}


class TestRdkit:
    Chem = pytest.importorskip("rdkit.Chem")

    def rdkit_view(self, mol):
        return ([(a.GetSymbol(), a.GetFormalCharge(), a.GetIsotope()) for a in mol.GetAtoms()],
                bonds_by_atoms(((b.GetBeginAtomIdx(), b.GetEndAtomIdx()), b.GetBondType())
                               for b in mol.GetBonds()))

    def test_agrees_with_rdkit_reading_the_same_records(self, write_text, drugs_sdf):
        records = [write_text("two.sdf", SD_WITH_DATA), drugs_sdf]
        for path in records:
            theirs = self.Chem.SDMolSupplier(str(path), sanitize=False, removeHs=False)
            for entry, their in zip(kora.open(path), theirs):
                mol = entry.to_rdkit()
                assert self.rdkit_view(mol) == self.rdkit_view(their), entry.identifier
                assert mol.GetNumConformers() == 1
                assert mol.GetConformer().GetPositions() == pytest.approx(
                    their.GetConformer().GetPositions(), abs=1e-4)
                assert mol.GetProp("_Name") == entry.identifier
                for name, value in entry.data.items():
                    assert mol.GetProp(name) == value

    def test_every_bond_order_and_aromatic_flags(self, drugs_mol2):
        entry = kora.open(drugs_mol2)["aspirin"]
        mol = entry.to_rdkit()
        expected = {kora.BondType.SINGLE: "SINGLE", kora.BondType.DOUBLE: "DOUBLE",
                    kora.BondType.AROMATIC: "AROMATIC"}
        kinds = bonds_by_atoms((b.atoms, expected[b.type]) for b in entry.molecule.bonds)
        assert bonds_by_atoms(((b.GetBeginAtomIdx(), b.GetEndAtomIdx()), str(b.GetBondType()))
                              for b in mol.GetBonds()) == kinds
        assert sum(a.GetIsAromatic() for a in mol.GetAtoms()) == 6

    def test_missing_rdkit_is_a_clear_import_error(self, monkeypatch, drugs_sdf):
        monkeypatch.setitem(sys.modules, "rdkit.Chem", None)
        with pytest.raises(ImportError, match="to_rdkit needs rdkit.*python3-rdkit"):
            kora.open(drugs_sdf)[0].to_rdkit()


class TestGemmi:
    gemmi = pytest.importorskip("gemmi")

    def atoms(self, structure):
        return [(ch.name, r.name, r.seqid.num, a.name, a.element.name, a.charge,
                 round(a.pos.x, 3), round(a.pos.y, 3), round(a.pos.z, 3))
                for m in structure for ch in m for r in ch for a in r]

    def test_pdb_residues_and_chains_as_gemmi_reads_them(self, peptide_pdb):
        ours = kora.open(peptide_pdb)[0].to_gemmi()
        theirs = self.gemmi.read_structure(str(peptide_pdb))
        assert self.atoms(ours) == self.atoms(theirs)
        assert [r.het_flag for r in ours[0][0]] == [r.het_flag for r in theirs[0][0]]

    def test_crystal_cell_space_group_and_atoms(self, benzoic_res):
        entry = kora.open(benzoic_res)[0]
        structure = entry.to_gemmi()
        assert structure.cell.parameters == pytest.approx((9.5, 10.1, 14.9, 90, 97, 90))
        assert structure.find_spacegroup().number == 14
        atoms = [a for r in structure[0][0] for a in r]
        assert [a.element.name for a in atoms] == [a.element for a in entry.molecule.atoms]
        assert [x for a in atoms for x in a.pos.tolist()] == pytest.approx(
            entry.molecule.coordinates.ravel().tolist(), abs=1e-6)

    def test_symmetry_images_are_left_to_gemmi(self, write_text):
        entry = kora.open(write_text("half.res", HALF_ON_INVERSION_CENTRE))[0]
        assert entry.molecule.natoms == 2  # completed by kora
        structure = entry.to_gemmi()
        assert structure.spacegroup_hm == "P -1"
        assert [a.name for r in structure[0][0] for a in r] == ["C1"]
        search = self.gemmi.NeighborSearch(structure[0], structure.cell, 3).populate()
        atom = structure[0][0][0][0]
        assert len(search.find_atoms(atom.pos, "\0", radius=2.0)) == 2  # itself and its image

    def test_missing_gemmi_is_a_clear_import_error(self, monkeypatch, benzoic_res):
        monkeypatch.setitem(sys.modules, "gemmi", None)
        with pytest.raises(ImportError, match="to_gemmi needs gemmi.*python3-gemmi"):
            kora.open(benzoic_res)[0].to_gemmi()


STUB = pathlib.Path(kora.__file__).with_name("__init__.pyi")


class TestStubs:
    def stub_names(self):
        """Top-level names of the stub, and the members of each class it declares."""
        tree = ast.parse(STUB.read_text())
        names, members = set(), {}
        for node in tree.body:
            if isinstance(node, ast.ClassDef):
                names.add(node.name)
                members[node.name] = {
                    n.target.id if isinstance(n, ast.AnnAssign) else n.name
                    for n in node.body if isinstance(n, (ast.AnnAssign, ast.FunctionDef))}
            elif isinstance(node, ast.FunctionDef):
                names.add(node.name)
            elif isinstance(node, (ast.AnnAssign, ast.Assign)):
                targets = [node.target] if isinstance(node, ast.AnnAssign) else node.targets
                names.update(t.id for t in targets if isinstance(t, ast.Name))
        return names, members

    def test_py_typed_is_installed(self):
        assert STUB.with_name("py.typed").is_file()

    def test_every_public_name_and_member_is_declared(self):
        names, members = self.stub_names()
        public = {n for n in dir(kora._kora) if not n.startswith("__")} | set(kora.__all__)
        assert public <= names
        for name in public:
            cls = getattr(kora, name)
            if not isinstance(cls, type) or issubclass(cls, Exception):
                continue
            own = {m for m in vars(cls) if not m.startswith("__") and m != "_pybind11_conduit_v1_"}
            own |= {m for m in ("__len__", "__getitem__", "__contains__", "__iter__", "__next__",
                                "__enter__", "__exit__") if m in vars(cls)}
            assert own <= members[name], f"{name}: {sorted(own - members[name])}"

    @pytest.mark.parametrize("stub", ["__init__.pyi", "dask.pyi"])
    def test_stubs_pass_strict_mypy(self, tmp_path, stub):
        pytest.importorskip("mypy")
        result = subprocess.run(
            [sys.executable, "-m", "mypy", "--strict", "--cache-dir", str(tmp_path),
             str(STUB.with_name(stub))],
            capture_output=True, text=True)
        assert result.returncode == 0, result.stdout + result.stderr

    @pytest.mark.parametrize("program, errors", [
        ("import kora\n"
         "with kora.open('x.sdf') as db:\n"
         "    for entry in db:\n"
         "        n: int = entry.molecule.natoms + len(db)\n"
         "        cell = entry.cell\n"
         "        lengths = cell.lengths if cell is not None else None\n"
         "        x: float = float(entry.molecule.coordinates[0, 0])\n"
         "        t: kora.BondType = entry.molecule.bonds[0].type\n"
         "kora.write('out.mol2', db[0])\n", 0),
        ("import kora\n"
         "db = kora.open(3)\n"
         "name: int = db[0].identifier\n"
         "db[0].cell.a\n", 3),
    ], ids=["correct", "wrong"])
    def test_mypy_checks_programs_against_the_stubs(self, tmp_path, program, errors):
        pytest.importorskip("mypy")
        (tmp_path / "program.py").write_text(program)
        package_parent = pathlib.Path(kora.__file__).parent.parent
        env = dict(os.environ)
        env.pop("MYPYPATH", None)
        if package_parent not in {pathlib.Path(p) for p in site.getsitepackages()}:
            env["MYPYPATH"] = str(package_parent)  # a build directory on PYTHONPATH
        result = subprocess.run(
            [sys.executable, "-m", "mypy", "--strict", "--no-error-summary",
             "--cache-dir", str(tmp_path / "cache"), "program.py"],
            cwd=tmp_path, env=env, capture_output=True, text=True)
        found = [line for line in result.stdout.splitlines() if ": error:" in line]
        assert len(found) == errors, result.stdout + result.stderr
