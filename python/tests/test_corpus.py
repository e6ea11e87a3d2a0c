"""Real-world files of the corpus: every one reads or fails with the module's own
exceptions, SD files agree with RDKit, and every entry agrees with the kora program.

The corpus is read where it lies ($KORA_CORPUS or ../shared/corpus); these tests skip
without it. The large files of its bench/ folder are left to python/bench_sd.py.
"""

import json
import os
import shutil
import subprocess

import numpy as np
import pytest

import kora

FOLDERS = {"mol2": "mol2", "sdf": "sdf", "pdb": "pdb", "res": "res"}


def corpus_files(corpus_dir):
    for folder, fmt in FOLDERS.items():
        for path in sorted((corpus_dir / folder).iterdir()):
            yield path, fmt


def test_every_file_reads_or_fails_cleanly(corpus_dir):
    opened = entries = 0
    for path, fmt in corpus_files(corpus_dir):
        try:
            db = kora.open(path, format=fmt)
        except (ValueError, RuntimeError) as error:
            assert not isinstance(error, UnicodeError), path
            assert str(error), path
            continue
        opened += 1
        assert len(db) >= 1
        assert all(isinstance(i, str) for i in db.identifiers)
        for i in range(len(db)):
            try:
                entry = db[i]
                molecule = entry.molecule
            except kora.DatabaseError as error:
                assert str(error), (path, i)
                continue
            entries += 1
            assert molecule.natoms == sum(m.natoms for m in entry.molecules), (path, i)
            assert molecule.coordinates.shape == (molecule.natoms, 3)
            assert molecule.fractional_coordinates.shape == (molecule.natoms, 3)
            assert len(molecule.atoms) == molecule.natoms
            assert all(0 <= j < molecule.natoms for b in molecule.bonds for j in b.atoms)
            assert (entry.cell is None) == (entry.spacegroup is None), (path, i)
    assert opened > 80 and entries > 800


# SD files on which RDKit (without sanitisation) and kora read the same records.
RDKIT_FILES = ["rdkit_cdk2.sdf", "mesa_cox2_3d_first_few.sd", "rdkit_solubility.test.sdf",
               "mesa_v3_sample.sdf", "pymol_ligs3d.sdf", "rdkit_NCI_aids_few.sdf"]


@pytest.mark.parametrize("name", RDKIT_FILES)
def test_sd_file_agrees_with_rdkit(corpus_dir, name):
    Chem = pytest.importorskip("rdkit.Chem")
    path = corpus_dir / "sdf" / name
    if not path.exists():
        pytest.skip(f"{name} is not in the corpus")
    db = kora.open(path)
    molecules = list(Chem.SDMolSupplier(str(path), sanitize=False, removeHs=False))
    assert len(db) == len(molecules)
    for entry, other in zip(db, molecules):
        where = (name, entry.identifier)
        molecule = entry.molecule
        assert entry.identifier == other.GetProp("_Name"), where
        assert [a.element for a in molecule.atoms] == [a.GetSymbol() for a in other.GetAtoms()]
        assert [a.formal_charge for a in molecule.atoms] == [
            a.GetFormalCharge() for a in other.GetAtoms()], where
        np.testing.assert_allclose(molecule.coordinates, other.GetConformer().GetPositions(),
                                   rtol=0, atol=1e-9, err_msg=str(where))
        assert {frozenset(b.atoms) for b in molecule.bonds} == {
            frozenset((b.GetBeginAtomIdx(), b.GetEndAtomIdx())) for b in other.GetBonds()}, where
        assert entry.data == {k: other.GetProp(k) for k in other.GetPropNames()}, where


def kora_program(repo_dir):
    """The kora program of a build of the repository, or None."""
    configured = os.environ.get("KORA_PROGRAM")
    candidates = [configured] if configured else [
        repo_dir / "build" / "bin" / "kora", repo_dir / "build-rel" / "bin" / "kora",
        shutil.which("kora")]
    for candidate in candidates:
        if candidate and os.access(candidate, os.X_OK):
            return str(candidate)
    return None


def test_entries_agree_with_the_kora_program(corpus_dir, repo_dir):
    program = kora_program(repo_dir)
    if program is None:
        pytest.skip("no kora program: build it or set KORA_PROGRAM")
    compared = 0
    for path, fmt in corpus_files(corpus_dir):
        run = subprocess.run([program, "info", str(path), "--from", fmt, "--json"],
                             capture_output=True, text=True, errors="surrogateescape")
        summaries = [json.loads(line) for line in run.stdout.splitlines() if line.startswith("{")]
        if not summaries:
            continue
        db = kora.open(path, format=fmt)
        for s in summaries:
            entry = db[s["index"]]
            molecule = entry.molecule
            assert (entry.identifier, len(entry.molecules), molecule.natoms, molecule.nbonds,
                    molecule.formula, molecule.formal_charge) == (
                s["identifier"], s["molecules"], s["atoms"], s["bonds"], s["formula"],
                s["charge"]), (program, path, s["index"])
            if entry.cell is not None:
                cell = s["cell"]
                assert entry.cell.lengths == pytest.approx((cell["a"], cell["b"], cell["c"]))
                assert entry.cell.angles == pytest.approx(
                    (cell["alpha"], cell["beta"], cell["gamma"]))
                assert (entry.spacegroup.symbol, entry.spacegroup.number) == (
                    s["spacegroup"]["symbol"], s["spacegroup"]["number"]), (path, s["index"])
            compared += 1
    assert compared > 800
