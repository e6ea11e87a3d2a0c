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


@pytest.mark.skipif(not os.path.isdir("/proc/self/fd"), reason="needs /proc")
def test_with_block_lets_go_of_the_file(drugs_sdf):
    with kora.open(drugs_sdf) as db:
        entry = db["caffeine"]
        assert open_descriptors_to(drugs_sdf) == 1 and not db.closed
    assert db.closed and open_descriptors_to(drugs_sdf) == 0
    assert entry.molecule.formula == "C8H10N4O2"  # entries read before stay usable
    assert repr(db) == f"<kora.Database {drugs_sdf} (sdf, closed)>"
    with pytest.raises(KeyError):
        with kora.open(drugs_sdf) as db:
            db["no such entry"]
    assert db.closed


@pytest.mark.parametrize("use", [
    len, lambda db: db[0], lambda db: db["aspirin"], lambda db: "aspirin" in db, list,
    lambda db: db.identifiers, lambda db: db.nearest("b"), lambda db: db.to_pandas(),
    lambda db: db.save_index(), lambda db: db.read(),
], ids=["len", "index", "identifier", "in", "iteration", "identifiers", "nearest",
        "to_pandas", "save_index", "read"])
def test_use_after_close_is_a_value_error(drugs_sdf, use):
    db = kora.open(drugs_sdf)
    entries = iter(db)
    assert next(entries).identifier == "aspirin"
    db.close()
    db.close()  # closing twice does nothing
    for call in (use, lambda _: list(entries)):  # entries read ahead, then ValueError
        with pytest.raises(ValueError, match="closed kora.Database"):
            call(db)


@pytest.mark.parametrize("kind", [pathlib.Path, PathLike, os.fsencode])
def test_every_function_taking_a_path(tmp_path, drugs_sdf, kind):
    assert kora.identify(kind(drugs_sdf)) == "sdf"
    db = kora.open(kind(drugs_sdf))
    assert db.path == str(drugs_sdf) and len(db) == 5
    assert kora.write(kind(tmp_path / "out.mol2"), db) == 5
    assert kora.open(tmp_path / "out.mol2").identifiers == db.identifiers
    for call in (kora.open, kora.identify):
        with pytest.raises(TypeError):
            call(42)


@pytest.mark.parametrize("module, call, message", [
    ("pandas", lambda sdf, res: kora.open(sdf).to_pandas(), "to_pandas needs pandas"),
    ("rdkit.Chem", lambda sdf, res: kora.open(sdf)[0].to_rdkit(), "to_rdkit needs rdkit"),
    ("gemmi", lambda sdf, res: kora.open(res)[0].to_gemmi(), "to_gemmi needs gemmi"),
])
def test_a_missing_peer_is_a_clear_import_error(monkeypatch, drugs_sdf, benzoic_res, module,
                                                call, message):
    monkeypatch.setitem(sys.modules, module, None)
    with pytest.raises(ImportError, match=f"{message}.*apt-get install python3-"):
        call(drugs_sdf, benzoic_res)


class TestPandas:
    pandas = pytest.importorskip("pandas")

    def test_sd_data_items_are_columns(self, write_text):
        table = kora.open(write_text("two.sdf", SD_WITH_DATA)).to_pandas()
        assert list(table.columns[:14]) == [
            "identifier", "molecules", "atoms", "bonds", "formula", "charge", "a", "b", "c",
            "alpha", "beta", "gamma", "spacegroup", "spacegroup_number"]
        assert set(table.columns[14:]) == {"MW", "data:formula", "NOTE"}
        values = table.drop(columns=list("abc") + ["alpha", "beta", "gamma"]).to_dict("list")
        assert values == {
            "identifier": ["acetate", "ammonium"], "molecules": [1, 1], "atoms": [4, 2],
            "bonds": [3, 1], "formula": ["C2O2", "DN"], "charge": [-1, 1],
            "spacegroup": [None, None], "spacegroup_number": [self.pandas.NA] * 2,
            # Lines are joined, a missing item is None.
            "MW": ["59.04", "18.04"], "data:formula": ["as given", None],
            "NOTE": ["first\nsecond line", None]}
        assert table["a"].isna().all()
        assert [str(table[c].dtype) for c in ("atoms", "a", "spacegroup_number")] == [
            "int64", "float64", "Int64"]

    def test_crystal_cell_columns(self, benzoic_res, peptide_pdb):
        row = kora.open(benzoic_res).to_pandas().iloc[0]
        assert [row[k] for k in ("a", "b", "c", "alpha", "beta", "gamma")] == pytest.approx(
            [9.5, 10.1, 14.9, 90.0, 97.0, 90.0])
        assert (row["spacegroup"], row["spacegroup_number"]) == ("P21/c", 14)
        # A PDB file's unit-cube CRYST1 is no cell, as Entry.cell says.
        assert kora.open(peptide_pdb)[0].cell is None
        assert math.isnan(kora.open(peptide_pdb).to_pandas()["a"][0])


def bonds_by_atoms(bonds):
    return {tuple(sorted(pair)): order for pair, order in bonds}


class TestRdkit:
    Chem = pytest.importorskip("rdkit.Chem")

    def rdkit_view(self, mol):
        return ([(a.GetSymbol(), a.GetFormalCharge(), a.GetIsotope()) for a in mol.GetAtoms()],
                bonds_by_atoms(((b.GetBeginAtomIdx(), b.GetEndAtomIdx()), b.GetBondType())
                               for b in mol.GetBonds()))

    def test_agrees_with_rdkit_reading_the_same_records(self, write_text, drugs_sdf):
        for path in (write_text("two.sdf", SD_WITH_DATA), drugs_sdf):
            theirs = self.Chem.SDMolSupplier(str(path), sanitize=False, removeHs=False)
            for entry, their in zip(kora.open(path), theirs, strict=True):
                mol = entry.to_rdkit()
                assert self.rdkit_view(mol) == self.rdkit_view(their), entry.identifier
                assert mol.GetConformer().GetPositions() == pytest.approx(
                    their.GetConformer().GetPositions(), abs=1e-4)
                assert mol.GetProp("_Name") == entry.identifier
                assert {k: mol.GetProp(k) for k in entry.data} == entry.data

    def test_aromatic_bonds_and_atoms_are_flagged(self, drugs_mol2):
        entry = kora.open(drugs_mol2)["aspirin"]
        mol = entry.to_rdkit()
        kinds = bonds_by_atoms((b.atoms, b.type.name) for b in entry.molecule.bonds)
        assert bonds_by_atoms(((b.GetBeginAtomIdx(), b.GetEndAtomIdx()), str(b.GetBondType()))
                              for b in mol.GetBonds()) == kinds
        assert sum(a.GetIsAromatic() for a in mol.GetAtoms()) == 6
        assert sum(b.GetIsAromatic() for b in mol.GetBonds()) == 6


class TestGemmi:
    gemmi = pytest.importorskip("gemmi")

    def atoms(self, structure):
        return [(ch.name, r.name, r.seqid.num, r.het_flag, a.name, a.element.name, a.charge,
                 a.occ, a.b_iso, round(a.pos.x, 3), round(a.pos.y, 3), round(a.pos.z, 3))
                for m in structure for ch in m for r in ch for a in r]

    def test_pdb_residues_and_chains_as_gemmi_reads_them(self, peptide_pdb):
        ours = kora.open(peptide_pdb)[0].to_gemmi()
        assert self.atoms(ours) == self.atoms(self.gemmi.read_structure(str(peptide_pdb)))

    def test_crystal_cell_space_group_and_atoms(self, benzoic_res):
        entry = kora.open(benzoic_res)[0]
        structure = entry.to_gemmi()
        assert structure.name == entry.identifier
        assert structure.cell.parameters == pytest.approx((9.5, 10.1, 14.9, 90, 97, 90))
        assert structure.find_spacegroup().number == 14
        atoms = [a for r in structure[0][0] for a in r]
        assert [a.element.name for a in atoms] == [a.element for a in entry.molecule.atoms]
        assert [x for a in atoms for x in a.pos.tolist()] == pytest.approx(
            entry.molecule.coordinates.ravel().tolist(), abs=1e-6)

    def test_symmetry_images_are_left_to_gemmi(self, write_text):
        # Half of a C2 unit on the inversion centre of P-1: kora completes the molecule.
        entry = kora.open(write_text("half.res", "TITL half\nCELL 0.71073 10 10 10 90 90 90\n"
                                     "LATT 1\nSFAC C H\nC1 1 0.055 0.045 0.03 11.0 0.04\nEND\n"))[0]
        assert entry.molecule.natoms == 2
        structure = entry.to_gemmi()
        assert structure.spacegroup_hm == "P -1"
        assert [a.name for r in structure[0][0] for a in r] == ["C1"]
        search = self.gemmi.NeighborSearch(structure[0], structure.cell, 3).populate()
        atom = structure[0][0][0][0]
        assert len(search.find_atoms(atom.pos, "\0", radius=2.0)) == 2  # itself and its image


STUB = pathlib.Path(kora.__file__).with_name("__init__.pyi")


def test_every_public_name_and_member_is_in_the_stub():
    assert STUB.with_name("py.typed").is_file()
    names, members = set(), {}
    for node in ast.parse(STUB.read_text()).body:
        if isinstance(node, ast.ClassDef):
            members[node.name] = {n.target.id if isinstance(n, ast.AnnAssign) else n.name
                                  for n in node.body
                                  if isinstance(n, (ast.AnnAssign, ast.FunctionDef))}
        names.add(node.target.id if isinstance(node, ast.AnnAssign) else getattr(
            node, "name", None))
    public = {n for n in dir(kora._kora) if not n.startswith("__")} | set(kora.__all__)
    assert public | {"__version__"} <= names
    special = {"__len__", "__getitem__", "__contains__", "__iter__", "__next__", "__enter__",
               "__exit__"}
    for name in public:
        cls = getattr(kora, name)
        if isinstance(cls, type) and not issubclass(cls, Exception):
            own = {m for m in vars(cls) if (not m.startswith("__") or m in special)
                   and m != "_pybind11_conduit_v1_"}
            assert own <= members[name], f"{name}: {sorted(own - members[name])}"


def mypy(tmp_path, *arguments):
    """mypy --strict's error lines for files or a program in tmp_path."""
    pytest.importorskip("mypy")
    package_parent = pathlib.Path(kora.__file__).parent.parent
    env = dict(os.environ)
    env.pop("MYPYPATH", None)
    if package_parent not in {pathlib.Path(p) for p in site.getsitepackages()}:
        env["MYPYPATH"] = str(package_parent)  # a build directory on PYTHONPATH
    result = subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", "--no-error-summary", "--cache-dir",
         str(tmp_path / "cache"), *arguments], cwd=tmp_path, env=env, capture_output=True,
        text=True)
    return [line for line in result.stdout.splitlines() if ": error:" in line], result


def test_stubs_pass_strict_mypy(tmp_path):
    errors, result = mypy(tmp_path, str(STUB), str(STUB.with_name("dask.pyi")))
    assert result.returncode == 0 and not errors, result.stdout + result.stderr


def test_mypy_checks_programs_against_the_stubs(tmp_path):
    (tmp_path / "program.py").write_text(
        "import kora\n"
        "with kora.open('x.sdf') as db:\n"
        "    for entry in db:\n"
        "        n: int = entry.molecule.natoms + len(db)\n"
        "        cell = entry.cell\n"
        "        lengths = cell.lengths if cell is not None else None\n"
        "        x: float = float(entry.molecule.coordinates[0, 0])\n"
        "        t: kora.BondType = entry.molecule.bonds[0].type\n"
        "kora.write('out.mol2', db[0])\n"
        "db = kora.open(3)\n"
        "name: int = db[0].identifier\n"
        "db[0].cell.a\n")
    errors, result = mypy(tmp_path, "program.py")
    assert [int(e.split(":")[1]) for e in errors] == [10, 11, 12], result.stdout
