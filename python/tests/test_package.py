"""The package around the extension: closing databases, path-like arguments, tables for
pandas, molecules for RDKit and structures for gemmi, and the type stubs."""

import ast
import math
import os
import pathlib
import subprocess
import sys

import pytest

import kora
from conftest import sd_record

# Two records: charges, isotopes (13C, deuterium); data items, one of several lines, one
# repeated (the first wins), two missing from the second record, one named like a column.
SD_WITH_DATA = sd_record(
    "acetate", ["C", "C", "O", ("O", 5)], [(1, 2, 1), (2, 3, 2), (2, 4, 1)],
    "M  CHG  1   4  -1\nM  ISO  1   1  13\n",
    [("MW", "59.04"), ("formula", "as given"), ("NOTE", "first\nsecond line")],
).replace("$$$$", "> 25 <NOTE>\nlater\n\n$$$$") + sd_record(
    "ammonium", [("N", 3), "D"], [(1, 2, 1)], "M  CHG  1   1   1\n", [("MW", "18.04")])


def open_descriptors_to(path):
    """How many of the process's file descriptors point at a file."""
    fds = pathlib.Path("/proc/self/fd").iterdir()
    return sum(os.path.realpath(fd) == os.path.realpath(path) for fd in fds)


@pytest.mark.skipif(not os.path.isdir("/proc/self/fd"), reason="needs /proc")
def test_with_block_lets_go_of_the_file(drugs_sdf):
    with kora.open(drugs_sdf) as db:
        entry = db["caffeine"]
        assert open_descriptors_to(drugs_sdf) == 1 and not db.closed
    assert db.closed and open_descriptors_to(drugs_sdf) == 0
    assert entry.molecule.formula == "C8H10N4O2"  # entries read before stay usable
    assert repr(db) == f"<kora.Database {drugs_sdf} (sdf, closed)>"


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


@pytest.mark.parametrize("kind", [pathlib.Path, os.fsencode])
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


def test_pandas_table_of_sd_data_items(write_text):
    pandas = pytest.importorskip("pandas")
    table = kora.open(write_text("two.sdf", SD_WITH_DATA)).to_pandas()
    assert list(table.columns[:14]) == [
        "identifier", "molecules", "atoms", "bonds", "formula", "charge", "a", "b", "c",
        "alpha", "beta", "gamma", "spacegroup", "spacegroup_number"]
    assert set(table.columns[14:]) == {"MW", "data:formula", "NOTE"}
    values = table.drop(columns=list("abc") + ["alpha", "beta", "gamma"]).to_dict("list")
    assert values == {
        "identifier": ["acetate", "ammonium"], "molecules": [1, 1], "atoms": [4, 2],
        "bonds": [3, 1], "formula": ["C2O2", "DN"], "charge": [-1, 1],
        "spacegroup": [None, None], "spacegroup_number": [pandas.NA] * 2,
        # Lines are joined, a missing item is None.
        "MW": ["59.04", "18.04"], "data:formula": ["as given", None],
        "NOTE": ["first\nsecond line", None]}
    assert table["a"].isna().all()
    assert [str(table[c].dtype) for c in ("atoms", "a", "spacegroup_number")] == [
        "int64", "float64", "Int64"]


def test_pandas_cell_columns(benzoic_res, peptide_pdb):
    pytest.importorskip("pandas")
    row = kora.open(benzoic_res).to_pandas().iloc[0]
    assert [row[k] for k in ("a", "b", "c", "alpha", "beta", "gamma")] == pytest.approx(
        [9.5, 10.1, 14.9, 90.0, 97.0, 90.0])
    assert (row["spacegroup"], row["spacegroup_number"]) == ("P21/c", 14)
    # A PDB file's unit-cube CRYST1 is no cell, as Entry.cell says.
    assert kora.open(peptide_pdb)[0].cell is None
    assert math.isnan(kora.open(peptide_pdb).to_pandas()["a"][0])


def rdkit_view(mol):
    """Atoms (symbol, charge, isotope) and bonds by sorted atom pairs."""
    return ([(a.GetSymbol(), a.GetFormalCharge(), a.GetIsotope()) for a in mol.GetAtoms()],
            {tuple(sorted((b.GetBeginAtomIdx(), b.GetEndAtomIdx()))): str(b.GetBondType())
             for b in mol.GetBonds()})


def test_rdkit_reads_the_same_records(write_text, drugs_sdf):
    Chem = pytest.importorskip("rdkit.Chem")
    for path in (write_text("two.sdf", SD_WITH_DATA), drugs_sdf):
        theirs = Chem.SDMolSupplier(str(path), sanitize=False, removeHs=False)
        for entry, their in zip(kora.open(path), theirs, strict=True):
            mol = entry.to_rdkit()
            assert rdkit_view(mol) == rdkit_view(their), entry.identifier
            assert mol.GetConformer().GetPositions() == pytest.approx(
                their.GetConformer().GetPositions(), abs=1e-4)
            assert mol.GetProp("_Name") == entry.identifier
            assert {k: mol.GetProp(k) for k in entry.data} == entry.data


def test_rdkit_aromatic_bonds_and_atoms_are_flagged(drugs_mol2):
    pytest.importorskip("rdkit.Chem")
    entry = kora.open(drugs_mol2)["aspirin"]
    mol = entry.to_rdkit()
    assert rdkit_view(mol)[1] == {tuple(sorted(b.atoms)): b.type.name for b in
                                  entry.molecule.bonds}
    assert sum(a.GetIsAromatic() for a in mol.GetAtoms()) == 6
    assert sum(b.GetIsAromatic() for b in mol.GetBonds()) == 6


def gemmi_atoms(structure):
    return [(ch.name, r.name, r.seqid.num, r.het_flag, a.name, a.element.name, a.charge, a.occ,
             a.b_iso, round(a.pos.x, 3), round(a.pos.y, 3), round(a.pos.z, 3))
            for m in structure for ch in m for r in ch for a in r]


def test_gemmi_pdb_residues_and_chains_as_gemmi_reads_them(peptide_pdb):
    gemmi = pytest.importorskip("gemmi")
    assert gemmi_atoms(kora.open(peptide_pdb)[0].to_gemmi()) == gemmi_atoms(
        gemmi.read_structure(str(peptide_pdb)))


def test_gemmi_crystal_atoms_given_once(write_text):
    gemmi = pytest.importorskip("gemmi")
    # Half of a C2 unit on the inversion centre of P-1: kora completes the molecule, the
    # structure leaves the image to gemmi's symmetry.
    entry = kora.open(write_text("half.res", "TITL half\nCELL 0.71073 10 10 10 90 90 90\n"
                                 "LATT 1\nSFAC C H\nC1 1 0.055 0.045 0.03 11.0 0.04\nEND\n"))[0]
    assert entry.molecule.natoms == 2
    structure = entry.to_gemmi()
    assert (structure.name, structure.spacegroup_hm) == ("half", "P -1")
    assert structure.cell.parameters == pytest.approx((10, 10, 10, 90, 90, 90))
    [atom] = [a for r in structure[0][0] for a in r]
    assert (atom.name, atom.element.name, atom.pos.tolist()) == ("C1", "C", pytest.approx(
        [0.55, 0.45, 0.3]))
    search = gemmi.NeighborSearch(structure[0], structure.cell, 3).populate()
    assert len(search.find_atoms(atom.pos, "\0", radius=2.0)) == 2  # itself and its image


STUB = pathlib.Path(kora.__file__).with_name("__init__.pyi")


def declared(stub):
    """The top-level names of a stub, and the members of each class it declares."""
    names, members = set(), {}
    for node in ast.parse(stub.read_text()).body:
        if isinstance(node, ast.ClassDef):
            members[node.name] = {n.target.id if isinstance(n, ast.AnnAssign) else n.name
                                  for n in node.body
                                  if isinstance(n, (ast.AnnAssign, ast.FunctionDef))}
        names.add(node.target.id if isinstance(node, ast.AnnAssign) else getattr(
            node, "name", None))
    return names, members


@pytest.mark.parametrize("module", ["kora", "kora.dask"])
def test_every_public_name_and_member_is_in_the_stub(module):
    module = pytest.importorskip(module)  # kora.dask needs dask
    names, members = declared(pathlib.Path(module.__file__).with_suffix(".pyi"))
    assert STUB.with_name("py.typed").is_file()
    public = {n for n, v in vars(module).items() if not n.startswith("_")
              and not isinstance(v, type(os))
              and getattr(v, "__module__", module.__name__).startswith("kora")}
    assert public | set(getattr(module, "__all__", [])) <= names
    special = {"__len__", "__getitem__", "__contains__", "__iter__", "__next__", "__enter__",
               "__exit__"}
    for name in public:
        cls = getattr(module, name)
        if isinstance(cls, type) and not issubclass(cls, (Exception, tuple)):
            own = {m for m in vars(cls) if (not m.startswith("__") or m in special)
                   and m != "_pybind11_conduit_v1_"}
            assert own <= members[name], f"{name}: {sorted(own - members[name])}"


def test_stubs_pass_strict_mypy(tmp_path):
    pytest.importorskip("mypy")
    result = subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", "--cache-dir", str(tmp_path), str(STUB),
         str(STUB.with_name("dask.pyi"))], capture_output=True, text=True)
    assert result.returncode == 0, result.stdout + result.stderr
