"""Real-world files of the corpus: every one reads, or fails with the module's own exceptions
and a message, and what it reads holds together as the module presents it. The large files of
its bench/ folder are left to python/bench_sd.py."""

import kora


def test_every_file_reads_or_fails_cleanly(corpus_dir):
    opened = entries = 0
    for fmt in ("mol2", "sdf", "pdb", "res"):
        for path in sorted((corpus_dir / fmt).iterdir()):
            try:
                db = kora.open(path, format=fmt)
            except (ValueError, RuntimeError) as error:
                assert not isinstance(error, UnicodeError) and str(error), path
                continue
            opened += 1
            assert len(db) == len(db.identifiers) >= 1
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
                assert all(0 <= j < molecule.natoms for b in molecule.bonds for j in b.atoms)
                assert (entry.cell is None) == (entry.spacegroup is None), (path, i)
    assert opened > 80 and entries > 800
