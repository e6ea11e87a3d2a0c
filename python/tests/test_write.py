"""Writing entries and molecules: round trips through each format, text output, and what a
failed write leaves behind."""

import os

import numpy as np
import pytest

import kora

SOURCES = ["drugs.sdf", "drugs.mol2", "peptide.pdb", "benzoic_acid.res"]
# How far a coordinate may move when written: half the last decimal the format writes.
TOLERANCE = {"mol2": 5.1e-5, "sdf": 5.1e-5, "pdb": 5.1e-4, "res": 2e-4}
# Formats whose bond records keep the bond type.
KEEPS_BOND_TYPES = {"mol2", "sdf"}
KEKULE = {kora.BondType.SINGLE, kora.BondType.DOUBLE, kora.BondType.AROMATIC}
# Formats that keep a cell and space group.
KEEPS_CELL = {"mol2", "pdb", "res"}

CHARGED_SD = """ammonium
  test

  1  0  0  0  0  0  0  0  0  0999 V2000
    0.0000    0.0000    0.0000 N   0  0  0  0  0  0  0  0  0  0  0  0
M  CHG  1   1   1
M  END
>  <KIND>
cation

$$$$
acetate
  test

  4  3  0  0  0  0  0  0  0  0999 V2000
    0.0000    0.0000    0.0000 C   0  0  0  0  0  0  0  0  0  0  0  0
    1.5000    0.0000    0.0000 C   0  0  0  0  0  0  0  0  0  0  0  0
    2.1500    1.1000    0.0000 O   0  0  0  0  0  0  0  0  0  0  0  0
    2.1500   -1.1000    0.0000 O   0  0  0  0  0  0  0  0  0  0  0  0
  1  2  1  0
  2  3  2  0
  2  4  1  0
M  CHG  1   4  -1
M  END
>  <KIND>
anion

$$$$
"""


def summary(molecule):
    """Elements, coordinates, bonds (as index pairs with their types) and charges."""
    return dict(
        elements=[a.element for a in molecule.atoms],
        coordinates=molecule.coordinates,
        bonds={frozenset(b.atoms): b.type for b in molecule.bonds},
        charges=[a.formal_charge for a in molecule.atoms],
    )


def assert_same_structure(before, after, fmt):
    """`after`, read back from a file of format `fmt`, holds the structure of `before`."""
    assert after.identifier == before.identifier
    a, b = summary(before.molecule), summary(after.molecule)
    if fmt == "pdb":
        # PDB output writes HETATM records without element columns, so elements are found
        # again from the atom names: a protein's CA (alpha carbon) reads back as calcium.
        # The labels, cut to the five characters the record holds, are what it keeps.
        assert [x.label for x in after.molecule.atoms] == [
            x.label[:5] for x in before.molecule.atoms
        ]
    else:
        assert b["elements"] == a["elements"]
    np.testing.assert_allclose(b["coordinates"], a["coordinates"], rtol=0, atol=TOLERANCE[fmt])
    assert set(b["bonds"]) == set(a["bonds"])
    if fmt in KEEPS_BOND_TYPES:
        for pair, type_before in a["bonds"].items():
            type_after = b["bonds"][pair]
            if type_before == kora.BondType.UNKNOWN:
                # Written as some known type.
                continue
            if fmt == "mol2" and type_after == kora.BondType.AROMATIC:
                # Mol2 output types the atoms, which finds aromatic rings in Kekule structures.
                assert type_before in KEKULE, pair
            else:
                assert type_after == type_before, pair
    if before.cell is None:
        return
    if fmt in KEEPS_CELL:
        assert after.cell is not None
        assert after.cell.lengths == pytest.approx(before.cell.lengths, abs=1e-4)
        assert after.cell.angles == pytest.approx(before.cell.angles, abs=1e-2)
        assert after.spacegroup.number == before.spacegroup.number
        assert len(after.spacegroup) == len(before.spacegroup)
    else:
        assert after.cell is None



@pytest.mark.parametrize("target", ["mol2", "sdf", "pdb", "res"])
@pytest.mark.parametrize("source", SOURCES)
def test_round_trip(tmp_path, examples_dir, source, target):
    entries = list(kora.open(examples_dir / source))
    # A RES file holds one structure: write each entry to a file of its own.
    groups = [[e] for e in entries] if target == "res" else [entries]
    for n, group in enumerate(groups):
        path = tmp_path / f"out{n}.{target}"
        assert kora.write(path, group) == len(group)
        assert kora.identify(path) == target
        back = kora.open(path)
        assert back.format == target
        assert len(back) == len(group)
        for before, after in zip(group, back):
            assert_same_structure(before, after, target)


class TestSdOutput:
    def test_data_items_are_kept(self, tmp_path, drugs_sdf):
        db = kora.open(drugs_sdf)
        path = tmp_path / "copy.sdf"
        kora.write(path, db)
        assert [e.data for e in kora.open(path)] == [e.data for e in db]

    def test_standard_by_default_classic_on_request(self, write_text):
        entry = kora.open(write_text("charged.sdf", CHARGED_SD))[0]
        standard = kora.to_string(entry, "sdf")
        classic = kora.to_string(entry, "sdf", classic=True)
        # The charge goes into an M  CHG line in standard mode only.
        assert "M  CHG" in standard and "M  CHG" not in classic
        assert kora.to_string(entry, "sdf", classic=False) == standard
        assert len(kora.open(write_text("again.sdf", CHARGED_SD), classic=True)) == 2

    def test_isotopes_are_kept(self, tmp_path, write_text):
        text = CHARGED_SD.split("$$$$")[0].replace("M  CHG  1   1   1", "M  ISO  1   1  15")
        entry = kora.open(write_text("iso.sdf", text + "$$$$\n"))[0]
        assert entry.molecule.atoms[0].mass_number == 15
        for classic, kept in ((False, 15), (True, 0)):
            path = tmp_path / f"iso{classic}.sdf"
            kora.write(path, entry, classic=classic)
            assert kora.open(path)[0].molecule.atoms[0].mass_number == kept

    def test_v3000_keeps_charges_and_data(self, tmp_path, write_text):
        db = kora.open(write_text("charged.sdf", CHARGED_SD))
        path = tmp_path / "v3000.sdf"
        assert kora.write(path, db, v3000=True) == 2
        text = path.read_text()
        assert "V3000" in text and "V2000" not in text
        back = kora.open(path)
        assert back.identifiers == ["ammonium", "acetate"]
        for before, after in zip(db, back):
            assert summary(after.molecule)["charges"] == summary(before.molecule)["charges"]
            assert after.molecule.formal_charge == before.molecule.formal_charge
            assert after.data == before.data
            assert_same_structure(before, after, "sdf")
        assert [e.molecule.formal_charge for e in back] == [1, -1]

    def test_v3000_round_trip_of_the_examples(self, tmp_path, drugs_sdf, drugs_mol2):
        for source in (drugs_sdf, drugs_mol2):
            db = kora.open(source)
            path = tmp_path / f"{source.stem}-v3000.sdf"
            kora.write(path, db, v3000=True)
            for before, after in zip(db, kora.open(path)):
                assert_same_structure(before, after, "sdf")


class TestToString:
    @pytest.mark.parametrize("fmt", ["mol2", "sdf", "pdb", "res"])
    def test_same_text_as_a_written_file(self, tmp_path, drugs_sdf, fmt):
        entry = kora.open(drugs_sdf)[2]
        path = tmp_path / f"caffeine.{fmt}"
        kora.write(path, entry)
        text = kora.to_string(entry, fmt)
        assert isinstance(text, str)
        assert text == path.read_text()

    def test_molecule_and_entry(self, tmp_path, drugs_mol2):
        entry = kora.open(drugs_mol2)[0]
        text = kora.to_string(entry.molecule, "mol2")
        assert text.startswith("@<TRIPOS>MOLECULE")
        path = tmp_path / "from_string.mol2"
        path.write_text(text)
        back = kora.open(path)[0].molecule
        assert summary(back)["elements"] == summary(entry.molecule)["elements"]
        assert back.nbonds == entry.molecule.nbonds

    def test_format_names_and_versions(self, drugs_sdf):
        entry = kora.open(drugs_sdf)[0]
        v2000 = kora.to_string(entry, "sdf")
        assert "V2000" in v2000 and "M  END" in v2000
        assert kora.to_string(entry, "MOL") == v2000
        assert kora.to_string(entry, "sd") == v2000
        v3000 = kora.to_string(entry, "sdf", v3000=True)
        assert "M  V30 BEGIN CTAB" in v3000 and "V2000" not in v3000
        pdb = kora.to_string(entry, "pdb")
        assert sum(line.startswith(("ATOM", "HETATM")) for line in pdb.splitlines()) == 21
        assert "HEADER" in kora.to_string(entry, "ent")

    def test_errors(self, drugs_sdf):
        entry = kora.open(drugs_sdf)[0]
        with pytest.raises(ValueError) as error:
            kora.to_string(entry, "xyz")
        assert str(error.value)
        with pytest.raises(TypeError):
            kora.to_string("not a structure", "sdf")


class TestWrite:
    def test_counts_and_kinds_of_items(self, tmp_path, drugs_sdf):
        db = kora.open(drugs_sdf)
        assert kora.write(tmp_path / "one.sdf", db[1]) == 1
        assert kora.write(tmp_path / "molecule.mol2", db[1].molecule) == 1
        assert kora.write(tmp_path / "molecules.mol2", [e.molecule for e in db]) == 5
        assert kora.write(tmp_path / "generated.sdf", (e for e in db)) == 5
        assert kora.write(str(tmp_path / "mixed.mol2"), [db[0], db[1].molecule]) == 2
        assert kora.open(tmp_path / "one.sdf").identifiers == ["paracetamol"]
        assert len(kora.open(tmp_path / "generated.sdf")) == 5
        mixed = kora.open(tmp_path / "mixed.mol2")
        assert [e.molecule.natoms for e in mixed] == [21, 20]
        assert kora.open(tmp_path / "molecule.mol2")[0].molecule.natoms == 20

    def test_format_from_extension_or_argument(self, tmp_path, drugs_sdf):
        entry = kora.open(drugs_sdf)[0]
        for name, fmt in [("a.MOL2", "mol2"), ("a.mol", "sdf"), ("a.sd", "sdf"),
                          ("a.ent", "pdb"), ("a.ins", "res")]:
            kora.write(tmp_path / name, entry)
            back = kora.open(tmp_path / name, format=fmt)
            assert back.identifiers == ["aspirin"], name
            assert back[0].molecule.natoms == 21, name
            # SHELX files are recognised by the .res extension only.
            if fmt != "res":
                assert kora.identify(tmp_path / name) == fmt, name
        kora.write(tmp_path / "explicit.txt", entry, format="mol2")
        assert kora.identify(tmp_path / "explicit.txt") == "mol2"
        kora.write(tmp_path / "explicit.sdf", entry, format="PDB")
        assert kora.identify(tmp_path / "explicit.sdf") == "pdb"

    def test_writeable_formats_write(self, tmp_path, drugs_sdf):
        entry = kora.open(drugs_sdf)[0]
        for f in kora.formats():
            if not f.writeable:
                continue
            path = tmp_path / f"writeable.{f.name}"
            assert kora.write(path, entry, format=f.name) == 1
            assert kora.open(path).format == f.name

    def test_unknown_format(self, tmp_path, drugs_sdf):
        entry = kora.open(drugs_sdf)[0]
        for path, fmt in [(tmp_path / "a.xyz", None), (tmp_path / "noext", None),
                          (tmp_path / "a.sdf", "xyz")]:
            with pytest.raises(ValueError) as error:
                kora.write(path, entry, format=fmt)
            assert str(error.value)
            assert not path.exists()

    def test_existing_file_is_replaced(self, tmp_path, drugs_sdf):
        path = tmp_path / "out.sdf"
        path.write_text("old content\n")
        kora.write(path, kora.open(drugs_sdf)[3])
        assert kora.open(path).identifiers == ["ibuprofen"]
        assert os.listdir(tmp_path) == ["out.sdf"]


class TestFailedWrite:
    """A write that fails leaves an existing file as it was and no other file behind."""

    OLD = "old content\n"

    @pytest.fixture
    def target(self, tmp_path):
        directory = tmp_path / "out"
        directory.mkdir()
        path = directory / "out.sdf"
        path.write_text(self.OLD)
        return path

    def assert_untouched(self, path):
        assert path.read_text() == self.OLD
        assert os.listdir(path.parent) == [path.name]

    def test_item_of_the_wrong_type(self, target, drugs_sdf):
        db = kora.open(drugs_sdf)
        with pytest.raises(TypeError):
            kora.write(target, [db[0], db[1], 42])
        self.assert_untouched(target)

    def test_iterable_that_raises(self, target, drugs_sdf):
        db = kora.open(drugs_sdf)

        def entries():
            yield db[0]
            yield db[1]
            raise LookupError("stopped half way")

        with pytest.raises(LookupError, match="stopped half way"):
            kora.write(target, entries())
        self.assert_untouched(target)

    def test_entry_that_cannot_be_read(self, target, drugs_sdf):
        changed = target.parent.parent / "changed.sdf"
        changed.write_bytes(drugs_sdf.read_bytes())
        db = kora.open(changed)
        changed.write_text("changed\n")
        with pytest.raises(kora.DatabaseError):
            kora.write(target, db)
        self.assert_untouched(target)

    def test_several_entries_into_one_res_file(self, target, drugs_sdf):
        res = target.with_suffix(".res")
        target.rename(res)
        with pytest.raises(ValueError) as error:
            kora.write(res, kora.open(drugs_sdf))
        assert str(error.value)
        self.assert_untouched(res)

    def test_directory_that_does_not_exist(self, tmp_path, drugs_sdf):
        entry = kora.open(drugs_sdf)[0]
        with pytest.raises(OSError) as error:
            kora.write(tmp_path / "missing" / "out.sdf", entry)
        assert str(error.value)
        assert not (tmp_path / "missing").exists()

    def test_path_that_is_a_directory(self, tmp_path, drugs_sdf):
        (tmp_path / "taken.sdf").mkdir()
        with pytest.raises(OSError):
            kora.write(tmp_path / "taken.sdf", kora.open(drugs_sdf)[0])
        assert (tmp_path / "taken.sdf").is_dir()
        assert os.listdir(tmp_path) == ["taken.sdf"]
