"""Text that is not UTF-8, and paths that are not ASCII.

Identifiers and data items come back as str with each undecodable byte as a lone surrogate
("surrogateescape"), so that the original bytes can be recovered and the strings handed
back to the module.
"""

import os
import shutil

import pytest

import kora

NAME = b"caf\xe9ine"  # Latin-1, not UTF-8
RECORD = (NAME + b"\n  test\n\n  1  0  0  0  0  0  0  0  0  0999 V2000\n"
          b"    0.0000    0.0000    0.0000 C   0  0  0  0  0  0  0  0  0  0  0  0\n"
          b"M  END\n>  <NOTE>\nna\xefve\n\n$$$$\n")


def decoded(raw):
    return raw.decode("utf-8", "surrogateescape")


@pytest.fixture
def latin(tmp_path):
    path = tmp_path / "latin.sdf"
    path.write_bytes(RECORD)
    return path


def test_identifiers_and_data_keep_their_bytes(latin):
    db = kora.open(latin)
    assert db.identifiers == [decoded(NAME)]
    entry = db[0]
    assert entry.identifier.encode("utf-8", "surrogateescape") == NAME
    assert entry.molecule.identifier == entry.identifier
    assert entry.data == {"NOTE": decoded(b"na\xefve")}


def test_identifiers_read_can_be_looked_up(latin):
    db = kora.open(latin)
    identifier = db.identifiers[0]
    assert identifier in db
    assert db[identifier].molecule.natoms == 1
    assert db.nearest(identifier) == (0, kora.Match.EXACT)


def test_text_output_keeps_the_bytes(tmp_path, latin):
    entry = kora.open(latin)[0]
    path = tmp_path / "copy.sdf"
    kora.write(path, entry)
    written = path.read_bytes()
    assert written.startswith(NAME + b"\n")
    assert b"na\xefve" in written
    text = kora.to_string(entry, "sdf")
    assert text.encode("utf-8", "surrogateescape") == written


def test_paths_that_are_not_ascii(tmp_path, drugs_sdf):
    source = tmp_path / "médicaments.sdf"
    shutil.copy(drugs_sdf, source)
    assert kora.identify(source) == "sdf"
    db = kora.open(source)
    assert len(db) == 5
    assert db.path.endswith("médicaments.sdf")
    target = tmp_path / "sortie-é.mol2"
    assert kora.write(target, db) == 5
    assert kora.open(target).identifiers == db.identifiers


def test_file_names_that_are_not_utf8(tmp_path, drugs_sdf):
    source = tmp_path / os.fsdecode(b"lat\xe9.sdf")
    shutil.copy(drugs_sdf, source)
    assert kora.identify(source) == "sdf"
    db = kora.open(source)
    assert os.fsencode(db.path).endswith(b"lat\xe9.sdf")
    assert "lat" in repr(db)
    target = tmp_path / os.fsdecode(b"sortie\xe9.mol2")
    assert kora.write(target, db) == 5
    assert os.fsencode(target.name) in os.listdir(os.fsencode(tmp_path))
    with pytest.raises(FileNotFoundError) as error:
        kora.open(tmp_path / os.fsdecode(b"absent\xe9.sdf"))
    assert str(error.value)
