"""Writing entries and molecules: what write and to_string take, the options they pass on,
and what a failed write leaves behind."""

import os
import pathlib

import numpy as np
import pytest

import kora
from conftest import sd_record

CHARGED_SD = sd_record("ammonium", "N", properties="M  CHG  1   1   1\nM  ISO  1   1  15\n",
                       data=[("KIND", "cation")])


def test_sd_options(tmp_path, write_text):
    entry = kora.open(write_text("charged.sdf", CHARGED_SD))[0]
    assert entry.molecule.atoms[0].mass_number == 15
    # Classic output drops the isotope and writes the formal charge where a charge code
    # belongs: +1 reads back as +3.
    for options, mass_number, charge in [({}, 15, 1), ({"classic": True}, 0, 3),
                                         ({"v3000": True}, 15, 1)]:
        kora.write(tmp_path / "out.sdf", entry, **options)
        text = (tmp_path / "out.sdf").read_text()
        assert kora.to_string(entry, "sdf", **options) == text
        assert ("M  V30 BEGIN CTAB" in text) == ("v3000" in options)
        back = kora.open(tmp_path / "out.sdf")[0]
        assert back.molecule.atoms[0].mass_number == mass_number, options
        assert (back.molecule.formal_charge, back.data) == (charge, {"KIND": "cation"}), options


@pytest.mark.parametrize("fmt", ["mol2", "sdf", "pdb", "res"])
def test_to_string_is_the_text_of_a_written_file(tmp_path, drugs_sdf, fmt):
    entry = kora.open(drugs_sdf)[2]
    kora.write(tmp_path / f"caffeine.{fmt}", entry)
    assert kora.to_string(entry, fmt) == (tmp_path / f"caffeine.{fmt}").read_text()
    if fmt != "sdf":  # a molecule has no data items
        assert kora.to_string(entry.molecule, fmt) == kora.to_string(entry, fmt)


def test_what_write_takes(tmp_path, drugs_sdf):
    db = kora.open(drugs_sdf)
    for items, names in [(db[1], ["paracetamol"]), (db[1].molecule, ["paracetamol"]),
                         ([e.molecule for e in db], db.identifiers),
                         ((e for e in db), db.identifiers),
                         ([db[0], db[1].molecule], ["aspirin", "paracetamol"])]:
        path = tmp_path / "out.mol2"
        assert kora.write(str(path), items) == len(names)
        assert [(e.identifier, e.molecule.natoms) for e in kora.open(path)] == [
            (name, db[name].molecule.natoms) for name in names]


def test_format_from_extension_or_argument(tmp_path, drugs_sdf):
    entry = kora.open(drugs_sdf)[0]
    for name, fmt, written in [("a.MOL2", None, "mol2"), ("a.sd", None, "sdf"),
                               ("a.ent", None, "pdb"), ("a.ins", None, "res"),
                               ("a.txt", "mol2", "mol2"), ("a.sdf", "PDB", "pdb")]:
        kora.write(tmp_path / name, entry, format=fmt)
        back = kora.open(tmp_path / name, format=written)
        assert back.identifiers == ["aspirin"], name
        # Within half the last decimal the format writes.
        np.testing.assert_allclose(back[0].molecule.coordinates, entry.molecule.coordinates,
                                   rtol=0, atol=5.1e-4)
        assert kora.to_string(entry, fmt or written) == (tmp_path / name).read_text()


def changed_after_opening(db, directory):
    """A database over a copy of db's file, changed after opening."""
    changed = directory.parent / "changed.sdf"
    changed.write_bytes(pathlib.Path(db.path).read_bytes())
    db = kora.open(changed)
    changed.write_text("changed\n")
    return db


@pytest.mark.parametrize("call, error", [
    (lambda out, db: kora.write(out / "a.xyz", db[0]), ValueError),
    (lambda out, db: kora.write(out / "noext", db[0]), ValueError),
    (lambda out, db: kora.write(out / "out.sdf", db[0], format="xyz"), ValueError),
    (lambda out, db: kora.to_string(db[0], "xyz"), ValueError),
    (lambda out, db: kora.to_string("not a structure", "sdf"), TypeError),
    (lambda out, db: kora.write(out / "out.sdf", [db[0], db[1], 42]), TypeError),
    (lambda out, db: kora.write(out / "out.sdf", (db[i] if i < 2 else 1 / 0 for i in range(3))),
     ZeroDivisionError),
    (lambda out, db: kora.write(out / "out.res", db), ValueError),
    (lambda out, db: kora.write(out / "missing" / "out.sdf", db[0]), OSError),
    (lambda out, db: kora.write(out / "taken.sdf", db[0]), OSError),
    (lambda out, db: kora.write(42, db[0]), TypeError),
    (lambda out, db: kora.write(out / "out.sdf", changed_after_opening(db, out)),
     kora.DatabaseError),
], ids=["unknown extension", "no extension", "unknown format", "unknown to_string format",
        "not a structure", "item of the wrong type", "iterable that raises",
        "several entries into one res file", "missing directory", "path that is a directory",
        "path that is no path", "entry that cannot be read"])
def test_a_failed_write_leaves_the_files_as_they_were(tmp_path, drugs_sdf, call, error):
    out = tmp_path / "out"
    (out / "taken.sdf").mkdir(parents=True)
    for name in ("out.sdf", "out.res"):
        (out / name).write_text("old content\n")
    with pytest.raises(error) as raised:
        call(out, kora.open(drugs_sdf))
    assert str(raised.value)
    assert sorted(os.listdir(out)) == ["out.res", "out.sdf", "taken.sdf"]
    assert (out / "out.sdf").read_text() == (out / "out.res").read_text() == "old content\n"


def test_an_existing_file_is_replaced(tmp_path, drugs_sdf):
    path = tmp_path / "out.sdf"
    path.write_text("old content\n")
    kora.write(path, kora.open(drugs_sdf)[3])
    assert kora.open(path).identifiers == ["ibuprofen"]
    assert os.listdir(tmp_path) == ["out.sdf"]
