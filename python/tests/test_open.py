"""Formats, identification, opening files, the database protocol and the exceptions that
failures arrive as."""

import gzip
import os
import re
import shutil

import pytest

import kora
from conftest import REPO, sd_record

DRUGS = ["aspirin", "paracetamol", "caffeine", "ibuprofen", "nicotine"]


def test_version_is_the_project_version():
    cmake = (REPO / "CMakeLists.txt").read_text()
    assert kora.__version__ == re.search(r"project\(kora\s+VERSION\s+([0-9.]+)", cmake).group(1)


def test_formats():
    formats = kora.formats()
    assert [(f.name, f.description) for f in formats] == [
        ("mol2", "Mol2 file"), ("sdf", "MOL file"), ("pdb", "PDB file"), ("res", "SHELX file")]
    assert all(f.writeable is True and type(f.extensions) is list for f in formats)
    assert "ins" in formats[3].extensions and "sd" in formats[1].extensions


@pytest.mark.parametrize("example, fmt, identifiers", [
    ("drugs.sdf", "sdf", DRUGS), ("drugs.mol2", "mol2", DRUGS), ("peptide.pdb", "pdb", None),
    ("benzoic_acid.res", "res", ["benzoic acid in P2(1)/c, example written for kora"]),
])
def test_examples_identify_and_open_plain_and_gzip(tmp_path, examples_dir, example, fmt,
                                                   identifiers):
    plain = examples_dir / example
    identifiers = identifiers or kora.open(plain).identifiers[:1]  # a PDB file is one entry
    packed = tmp_path / "packed.bin"  # gzip content decides whatever the name
    packed.write_bytes(gzip.compress(plain.read_bytes()))
    for path in (plain, str(plain), packed):
        assert kora.identify(path) == fmt
        db = kora.open(path)
        assert (len(db), db.identifiers, db.format) == (len(identifiers), identifiers, fmt)
        assert isinstance(db.path, str) and os.path.samefile(db.path, path)
        assert db[-1].identifier == identifiers[-1]


def test_identify_gives_none_when_no_format_takes_the_file(tmp_path, write_text):
    assert kora.identify(write_text("hello.txt", "hello\n")) is None
    assert kora.identify(tmp_path / "missing.sdf") is None
    assert kora.identify(tmp_path) is None


@pytest.mark.parametrize("example, alias, fmt", [
    ("drugs.sdf", "MDL", "sdf"), ("drugs.mol2", "MOL2", "mol2"), ("peptide.pdb", "ent", "pdb"),
    ("benzoic_acid.res", "INS", "res"),
])
def test_format_names_and_aliases_read_a_file_of_any_name(tmp_path, examples_dir, example,
                                                          alias, fmt):
    path = tmp_path / "noextension"
    shutil.copy(examples_dir / example, path)
    db = kora.open(path, format=alias)
    assert db.format == fmt and db[0].molecule.natoms > 0
    assert kora.open(path, alias).format == fmt


def test_shelx_peaks_are_not_atoms_unless_reading_is_classic(write_text):
    path = write_text("peaks.ins", "TITL t\nCELL 0.71073 10 10 10 90 90 90\nLATT -1\nSFAC C H\n"
                                   "C1 1 0.1 0.1 0.1 11.0 0.05\nQ1 1 0.3 0.2 0.1 11.0 0.05 1.25\n"
                                   "Q2 1 0.4 0.5 0.6 11.0 0.05\nEND\n")
    entry = kora.open(path)[0]
    assert entry.molecule.natoms == 1
    assert entry.peaks == [("Q1", (0.3, 0.2, 0.1), 1.25), ("Q2", (0.4, 0.5, 0.6), None)]
    classic = kora.open(path, classic=True)[0]
    assert (classic.molecule.natoms, classic.peaks) == (3, [])


def changed_after_opening(path):
    db = kora.open(path)
    path.write_text(sd_record("changed"))
    return db[1]


@pytest.mark.parametrize("name, text, call, error, message", [
    ("missing.sdf", None, kora.open, FileNotFoundError, "missing.sdf"),
    ("a.sdf", "drugs", lambda path: kora.open(path, format="xyz"), ValueError, "xyz"),
    ("a.sdf", "drugs", lambda path: kora.open(path, format="pdb"), ValueError, "."),
    ("hello.txt", "hello\n", kora.open, ValueError, "hello.txt"),
    # Taken as SD by its content, but holds no record: the index cannot be built.
    ("terminator.sdf", "$$$$\n", kora.open, kora.DatabaseError, "terminator.sdf.*could not read"),
    # A RES file without a cell is indexed, but not readable.
    ("empty.res", "", lambda path: kora.open(path)[0].molecules, kora.DatabaseError, "."),
    ("a.sdf", "drugs", changed_after_opening, kora.DatabaseError, "."),
    ("cut.sdf.gz", "cut", kora.open, kora.DatabaseError, "cut.sdf.gz.*truncated gzip data"),
])
def test_failures_are_python_exceptions(tmp_path, drugs_sdf, name, text, call, error, message):
    path = tmp_path / name
    packed = gzip.compress(drugs_sdf.read_bytes())
    contents = {"drugs": drugs_sdf.read_bytes(), "cut": packed[:len(packed) // 2]}
    if text is not None:
        path.write_bytes(contents.get(text) or text.encode())
    with pytest.raises(error, match=message):
        call(path)
    assert issubclass(kora.DatabaseError, RuntimeError)


def test_iteration_goes_on_after_an_unreadable_entry(write_text):
    # The middle record announces two atoms and gives none. Iteration reads entries in
    # batches, but raises at that entry, in its place, and then goes on.
    broken = "broken\n  test\n\n  2  0  0  0  0  0  0  0  0  0999 V2000\nM  END\n$$$$\n"
    db = kora.open(write_text("broken.sdf", sd_record("first", "CC") + broken
                              + sd_record("third", "CC")))
    assert db.identifiers == ["first", "broken", "third"]
    entries = iter(db)
    assert next(entries).identifier == "first"
    with pytest.raises(kora.DatabaseError):
        next(entries)
    assert next(entries).identifier == "third"
    with pytest.raises(StopIteration):
        next(entries)


class TestDatabaseProtocol:
    @pytest.fixture
    def db(self, drugs_sdf):
        return kora.open(drugs_sdf)

    def test_index_and_iteration(self, db):
        assert [db[i].identifier for i in range(5)] == DRUGS
        assert [db[-i].identifier for i in range(1, 6)] == DRUGS[::-1]
        assert [e.identifier for e in db] == [e.identifier for e in db] == DRUGS
        assert all(type(i) is str for i in db.identifiers)

    @pytest.mark.parametrize("index", [5, -6, 1 << 40])
    def test_index_out_of_range(self, db, index):
        with pytest.raises(IndexError):
            db[index]

    def test_identifier_lookup(self, db):
        assert db["nicotine"].molecule.natoms == 26
        assert all(name in db for name in DRUGS)
        assert 2 not in db
        for missing in ["CAFFEINE", "caffeine ", ""]:
            with pytest.raises(KeyError, match=repr(missing)):
                db[missing]
            assert missing not in db

    def test_nearest(self, db):
        m = kora.Match
        assert db.nearest("caffeine") == (2, m.EXACT)
        assert db.nearest("NICOTINE") == (4, m.EQUAL_IGNORING_CASE)
        assert db.nearest("B") == (2, m.NEAREST)  # the smallest identifier above
        assert db.nearest("zebra") == (1, m.NEAREST)  # nothing above: the largest below


def test_saved_index(tmp_path, drugs_sdf):
    plain = tmp_path / "drugs.sdf"
    shutil.copy(drugs_sdf, plain)
    packed = tmp_path / "drugs.sdf.gz"
    packed.write_bytes(gzip.compress(drugs_sdf.read_bytes()))
    for path in (plain, packed):  # a gzip file's index keeps its decompression checkpoints
        saved = kora.open(path).save_index()
        assert saved == str(path) + ".kora-index" and os.path.exists(saved)
        again = kora.open(path)
        assert [again[i].identifier for i in (4, 0, 2)] == [DRUGS[i] for i in (4, 0, 2)]
        assert again[3].molecule.formula == "C13H18O2"
