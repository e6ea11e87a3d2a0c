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


def test_identifiers_and_data_keep_their_bytes(tmp_path):
    path = tmp_path / "latin.sdf"
    path.write_bytes(RECORD)
    db = kora.open(path)
    identifier = db.identifiers[0]
    assert identifier.encode("utf-8", "surrogateescape") == NAME
    entry = db[identifier]
    assert entry.identifier == entry.molecule.identifier == identifier
    assert entry.data == {"NOTE": b"na\xefve".decode("utf-8", "surrogateescape")}
    assert identifier in db and db.nearest(identifier) == (0, kora.Match.EXACT)
    # Written back, to a file and as text, the bytes are those read.
    kora.write(tmp_path / "copy.sdf", entry)
    written = (tmp_path / "copy.sdf").read_bytes()
    assert written.startswith(NAME + b"\n") and b"na\xefve" in written
    assert kora.to_string(entry, "sdf").encode("utf-8", "surrogateescape") == written


@pytest.mark.parametrize("source, target", [
    ("médicaments.sdf", "sortie-é.mol2"),
    (os.fsdecode(b"lat\xe9.sdf"), os.fsdecode(b"sortie\xe9.mol2")),  # not UTF-8
], ids=["utf8", "latin1"])
def test_file_names_that_are_not_ascii(tmp_path, drugs_sdf, source, target):
    shutil.copy(drugs_sdf, tmp_path / source)
    assert kora.identify(tmp_path / source) == "sdf"
    db = kora.open(tmp_path / source)
    assert db.path == str(tmp_path / source)
    assert source in repr(db)
    assert kora.write(tmp_path / target, db) == 5
    assert os.fsencode(target) in os.listdir(os.fsencode(tmp_path))
    assert kora.open(tmp_path / target).identifiers == db.identifiers
    with pytest.raises(FileNotFoundError, match="absent"):
        kora.open(tmp_path / ("absent" + source))
