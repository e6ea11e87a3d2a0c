"""Formats, identification, opening files and the database protocol."""

import os
import pathlib
import re
import shutil

import pytest

import kora

DRUGS = ["aspirin", "paracetamol", "caffeine", "ibuprofen", "nicotine"]
RES_TITLE = "benzoic acid in P2(1)/c, example written for kora"


def sd_records(*names):
    """An SD file of one-carbon records with these names."""
    record = ("{}\n  test\n\n  1  0  0  0  0  0  0  0  0  0999 V2000\n"
              "    0.0000    0.0000    0.0000 C   0  0  0  0  0  0  0  0  0  0  0  0\n"
              "M  END\n$$$$\n")
    return "".join(record.format(name) for name in names)


def test_version_is_the_project_version(repo_dir):
    cmake = (repo_dir / "CMakeLists.txt").read_text()
    version = re.search(r"project\(kora\s+VERSION\s+([0-9.]+)", cmake).group(1)
    assert kora.__version__ == version


class TestFormats:
    def test_names_descriptions_and_extensions(self):
        formats = {f.name: f for f in kora.formats()}
        assert {name: f.description for name, f in formats.items()} == {
            "mol2": "Mol2 file", "sdf": "MOL file", "pdb": "PDB file", "res": "SHELX file"}
        expected_extensions = {"mol2": {"mol2"}, "sdf": {"sdf", "sd", "mol"},
                               "pdb": {"pdb", "ent"}, "res": {"res"}}
        for name, f in formats.items():
            assert isinstance(f.extensions, list)
            assert all(isinstance(e, str) and e and not e.startswith(".") for e in f.extensions)
            assert expected_extensions[name] <= set(f.extensions), name
            assert isinstance(f.writeable, bool)

    def test_writeable_exactly_when_write_accepts_the_format(self, tmp_path, drugs_sdf):
        entry = kora.open(drugs_sdf)[0]
        for f in kora.formats():
            try:
                written = kora.write(tmp_path / f"out.{f.name}", entry, format=f.name) == 1
            except (ValueError, RuntimeError):
                written = False
            assert f.writeable == written, f.name


class TestIdentify:
    def test_examples(self, drugs_sdf, drugs_mol2, peptide_pdb, benzoic_res):
        assert kora.identify(drugs_sdf) == "sdf"
        assert kora.identify(str(drugs_mol2)) == "mol2"
        assert kora.identify(peptide_pdb) == "pdb"
        assert kora.identify(os.fspath(benzoic_res)) == "res"

    def test_content_decides_when_the_name_does_not(self, tmp_path, drugs_sdf, drugs_mol2):
        shutil.copy(drugs_sdf, tmp_path / "records")
        shutil.copy(drugs_sdf, tmp_path / "records.txt")
        shutil.copy(drugs_mol2, tmp_path / "misnamed.sdf")
        assert kora.identify(tmp_path / "records") == "sdf"
        assert kora.identify(tmp_path / "records.txt") == "sdf"
        assert kora.identify(tmp_path / "misnamed.sdf") == "mol2"

    @pytest.mark.parametrize("name", ["x.ins", "X.RES", "x.INS", "x.Res", "noextension"])
    def test_shelx_files_by_any_name(self, tmp_path, benzoic_res, name):
        # .ins and upper-case names by their extension, a file without one by its text.
        shutil.copy(benzoic_res, tmp_path / name)
        assert kora.identify(tmp_path / name) == "res"
        db = kora.open(tmp_path / name)
        assert db.format == "res"
        assert db[0].molecule.natoms == 15
        assert "ins" in next(f for f in kora.formats() if f.name == "res").extensions

    def test_none_when_no_format_takes_the_file(self, tmp_path, write_text):
        assert kora.identify(write_text("hello.txt", "hello\n")) is None
        assert kora.identify(write_text("empty.sdf", "")) is None
        assert kora.identify(tmp_path / "missing.sdf") is None


class TestOpen:
    @pytest.mark.parametrize("example, fmt, identifiers", [
        ("drugs.sdf", "sdf", DRUGS),
        ("drugs.mol2", "mol2", DRUGS),
        ("benzoic_acid.res", "res", [RES_TITLE]),
    ])
    def test_examples(self, examples_dir, example, fmt, identifiers):
        path = examples_dir / example
        db = kora.open(path)
        assert len(db) == len(identifiers)
        assert db.identifiers == identifiers
        assert db.format == fmt
        assert isinstance(db.path, str)
        assert os.path.samefile(db.path, path)

    def test_pdb_example_is_one_entry(self, peptide_pdb):
        db = kora.open(str(peptide_pdb))
        assert len(db) == 1
        assert db.format == "pdb"
        assert db.identifiers[0] == db[0].identifier != ""

    @pytest.mark.parametrize("example, alias, fmt", [
        ("drugs.sdf", "sdf", "sdf"), ("drugs.sdf", "SD", "sdf"), ("drugs.sdf", "Mol", "sdf"),
        ("drugs.sdf", "MDL", "sdf"), ("drugs.mol2", "MOL2", "mol2"),
        ("peptide.pdb", "ent", "pdb"), ("peptide.pdb", "PDB", "pdb"),
        ("benzoic_acid.res", "INS", "res"), ("benzoic_acid.res", "res", "res"),
    ])
    def test_format_names_and_aliases(self, examples_dir, example, alias, fmt):
        db = kora.open(examples_dir / example, format=alias)
        assert db.format == fmt
        assert len(db) >= 1

    def test_explicit_format_reads_a_file_of_any_name(self, tmp_path, drugs_sdf, benzoic_res):
        shutil.copy(drugs_sdf, tmp_path / "records.txt")
        shutil.copy(benzoic_res, tmp_path / "structure")
        assert kora.open(tmp_path / "records.txt", "sdf").identifiers == DRUGS
        db = kora.open(tmp_path / "structure", format="res")
        assert db.format == "res"
        assert db[0].molecule.natoms == 15

    def test_file_the_index_finds_nothing_in_is_one_entry(self, write_text):
        db = kora.open(write_text("remark.pdb", "REMARK nothing but a remark\nEND\n"))
        assert len(db) == 1
        assert db[0].molecule.natoms == 0


class TestShelxStandardReading:
    TEXT = ("TITL t\nCELL 0.71073 10 10 10 90 90 90\nLATT -1\nSFAC C H\n"
            "C1 1 0.1 0.1 0.1 11.0 0.05\nQ1 1 0.3 0.2 0.1 11.0 0.05 1.25\n"
            "HKLF 4\nC2 1 0.5 0.5 0.5\nEND\nQ2 1 0.4 0.5 0.6 11.0 0.05\n")

    def test_peaks_are_not_atoms_and_the_model_ends_at_hklf(self, write_text):
        entry = kora.open(write_text("peaks.ins", self.TEXT))[0]
        assert entry.molecule.natoms == 1
        assert entry.peaks == [("Q1", (0.3, 0.2, 0.1), 1.25), ("Q2", (0.4, 0.5, 0.6), None)]

    def test_classic_reading_keeps_peaks_as_atoms(self, write_text):
        entry = kora.open(write_text("peaks.res", self.TEXT), classic=True)[0]
        assert entry.molecule.natoms == 3
        assert entry.peaks == []


class TestOpenErrors:
    def test_missing_file(self, tmp_path):
        with pytest.raises(FileNotFoundError) as error:
            kora.open(tmp_path / "missing.sdf")
        assert str(error.value)

    def test_unknown_format_name(self, drugs_sdf):
        with pytest.raises(ValueError) as error:
            kora.open(drugs_sdf, format="xyz")
        assert str(error.value)

    def test_file_no_format_takes(self, write_text):
        with pytest.raises(ValueError) as error:
            kora.open(write_text("hello.txt", "hello\n"))
        assert str(error.value)

    @pytest.mark.parametrize("fmt", ["pdb", "mol2"])
    def test_explicit_format_that_refuses_the_file(self, drugs_sdf, fmt):
        with pytest.raises(ValueError) as error:
            kora.open(drugs_sdf, format=fmt)
        assert str(error.value)

    def test_index_that_cannot_be_built(self, write_text):
        # Taken as SD by its content, but holds no record: the SD index refuses it with a
        # plain runtime error (of which kora.DatabaseError is a kind), naming the file.
        path = write_text("terminator.sdf", "$$$$\n")
        assert kora.identify(path) == "sdf"
        with pytest.raises(RuntimeError) as error:
            kora.open(path)
        assert "terminator.sdf" in str(error.value)
        assert "could not read data" in str(error.value)

    def test_entry_that_cannot_be_read_is_a_database_error(self, write_text):
        assert issubclass(kora.DatabaseError, RuntimeError)
        # A RES file without a cell is taken by its name and indexed, but not readable.
        with pytest.raises(kora.DatabaseError) as error:
            db = kora.open(write_text("empty.res", ""))
            db[0].molecules
        assert str(error.value)

    def test_iteration_goes_on_after_an_unreadable_entry(self, write_text):
        # The middle record announces two atoms and gives none. Iteration reads entries in
        # batches, but raises at that entry, in its place, and then goes on.
        def record(name, atoms):
            block = "".join(
                f"{0.0:10.4f}{0.0:10.4f}{1.5 * k:10.4f} C   0  0  0  0  0  0\n" for k in range(atoms)
            )
            return f"{name}\n  kora\n\n  2  0  0  0  0  0  0  0  0  0999 V2000\n{block}M  END\n$$$$\n"

        db = kora.open(write_text("broken.sdf", record("first", 2) + record("broken", 0)
                                  + record("third", 2)))
        assert db.identifiers == ["first", "broken", "third"]
        entries = iter(db)
        assert next(entries).identifier == "first"
        with pytest.raises(kora.DatabaseError):
            next(entries)
        assert next(entries).identifier == "third"
        with pytest.raises(StopIteration):
            next(entries)

    def test_file_changed_after_opening_is_a_database_error(self, tmp_path, drugs_sdf):
        path = tmp_path / "drugs.sdf"
        shutil.copy(drugs_sdf, path)
        db = kora.open(path)
        assert db[0].identifier == "aspirin"
        path.write_text(sd_records("changed"))
        with pytest.raises(kora.DatabaseError) as error:
            db[1].molecules
        assert str(error.value)
        # A new database over the changed file reads it afresh.
        assert kora.open(path).identifiers == ["changed"]


class TestDatabaseProtocol:
    @pytest.fixture
    def db(self, drugs_sdf):
        return kora.open(drugs_sdf)

    def test_index(self, db):
        assert [db[i].identifier for i in range(5)] == DRUGS
        assert [db[-i].identifier for i in range(1, 6)] == DRUGS[::-1]

    @pytest.mark.parametrize("index", [5, 6, -6, 1 << 40])
    def test_index_out_of_range(self, db, index):
        with pytest.raises(IndexError):
            db[index]

    def test_identifier_lookup(self, db):
        assert db["caffeine"].identifier == "caffeine"
        assert db["nicotine"].molecule.natoms == 26
        for missing in ["CAFFEINE", "caffeine ", "", "theobromine"]:
            with pytest.raises(KeyError):
                db[missing]
            assert missing not in db
        assert all(name in db for name in DRUGS)

    def test_iteration_is_in_file_order_and_repeatable(self, db):
        assert [e.identifier for e in db] == DRUGS
        assert [e.molecule.natoms for e in db] == [21, 20, 24, 33, 26]
        assert len(list(db)) == len(db)

    def test_identifiers_are_a_list_of_str(self, db):
        assert db.identifiers == DRUGS
        assert all(type(i) is str for i in db.identifiers)

    def test_pathlike_and_str_open_the_same(self, drugs_sdf):
        assert kora.open(drugs_sdf).identifiers == kora.open(str(drugs_sdf)).identifiers
        assert kora.open(pathlib.PurePath(drugs_sdf)).identifiers == DRUGS


class TestNearest:
    def test_drugs(self, drugs_sdf):
        db = kora.open(drugs_sdf)
        m = kora.Match
        assert db.nearest("caffeine") == (2, m.EXACT)
        assert db.nearest("Caffeine") == (2, m.EQUAL_IGNORING_CASE)
        assert db.nearest("NICOTINE") == (4, m.EQUAL_IGNORING_CASE)
        # The smallest identifier above, ignoring case.
        assert db.nearest("B") == (2, m.NEAREST)
        assert db.nearest("d") == (3, m.NEAREST)
        assert db.nearest("aspirin2") == (2, m.NEAREST)
        assert db.nearest("") == (0, m.NEAREST)
        # Nothing above: the largest below.
        assert db.nearest("zebra") == (1, m.NEAREST)

    def test_case_is_ignored_in_the_ordering(self, write_text):
        db = kora.open(write_text("mixed.sdf", sd_records("Zeta", "alpha", "Beta")))
        m = kora.Match
        assert db.identifiers == ["Zeta", "alpha", "Beta"]
        assert db.nearest("beta") == (2, m.EQUAL_IGNORING_CASE)
        # Case-sensitively "Zeta" sorts below "c" and "alpha" above "Zeta".
        assert db.nearest("c") == (0, m.NEAREST)
        assert db.nearest("zz") == (0, m.NEAREST)
        assert db.nearest("A") == (1, m.NEAREST)

    def test_exact_match_wins_over_a_case_variant(self, write_text):
        db = kora.open(write_text("variants.sdf", sd_records("ALPHA", "alpha", "Alpha")))
        assert db.nearest("alpha") == (1, kora.Match.EXACT)
        assert db.nearest("Alpha") == (2, kora.Match.EXACT)
        index, match = db.nearest("aLPHA")
        assert match == kora.Match.EQUAL_IGNORING_CASE
        assert db.identifiers[index].lower() == "alpha"


def test_saved_index(tmp_path, drugs_sdf):
    path = tmp_path / "drugs.sdf"
    shutil.copy(drugs_sdf, path)
    db = kora.open(path)
    saved = db.save_index()
    assert saved == str(path) + ".kora-index" and os.path.exists(saved)
    again = kora.open(path)
    assert again.identifiers == db.identifiers
    assert [again[i].molecule.formula for i in range(len(again))] == \
        [db[i].molecule.formula for i in range(len(db))]
    # A gzip file's index is saved with its decompression checkpoints.
    gz = tmp_path / "drugs.sdf.gz"
    import gzip
    gz.write_bytes(gzip.compress(drugs_sdf.read_bytes()))
    assert kora.open(gz).save_index() == str(gz) + ".kora-index"
    from_saved = kora.open(gz)
    assert from_saved.identifiers == db.identifiers
    assert [from_saved[i].molecule.formula for i in range(len(db))] == \
        [db[i].molecule.formula for i in range(len(db))]
