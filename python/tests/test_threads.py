"""Reading from several threads gives what one thread gives.

Reading releases the GIL, so these threads really do run the readers at the same time.
"""

import threading
from concurrent.futures import ThreadPoolExecutor

import pytest

import kora

COPIES = 150  # of the five-record examples: 750 records a file


@pytest.fixture(scope="module")
def big_files(tmp_path_factory, drugs_sdf, drugs_mol2):
    directory = tmp_path_factory.mktemp("threads")
    paths = {}
    for source in (drugs_sdf, drugs_mol2):
        paths[source.suffix[1:]] = directory / f"many{source.suffix}"
        paths[source.suffix[1:]].write_text(source.read_text() * COPIES)
    return paths


def fingerprint(entries):
    """Everything the tests compare about each entry."""
    return [(e.identifier, e.molecule.formula, e.molecule.coordinates.tobytes(),
             sorted((b.atoms, int(b.type)) for b in e.molecule.bonds), e.data) for e in entries]


def run_together(jobs):
    """Runs each job in a thread of its own, all started at once; returns their results."""
    barrier = threading.Barrier(len(jobs))

    def run(job):
        barrier.wait()
        return job()

    with ThreadPoolExecutor(len(jobs)) as pool:
        return list(pool.map(run, jobs))


def test_databases_over_one_file_over_different_files_and_shared(big_files, examples_dir):
    sdf, mol2 = big_files["sdf"], big_files["mol2"]
    shared = kora.open(mol2)
    expected = {p: fingerprint(kora.open(p)) for p in (sdf, mol2)}
    paths = sorted(examples_dir.iterdir())
    opened = [(kora.identify(p), kora.open(p).identifiers) for p in paths]
    jobs = [lambda: fingerprint(kora.open(sdf)), lambda: fingerprint(kora.open(sdf)),
            lambda: fingerprint(kora.open(mol2)), lambda: fingerprint(shared),
            lambda: fingerprint(shared[i] for i in range(len(shared))),
            lambda: [(kora.identify(p), kora.open(p).identifiers) for p in paths]]
    assert run_together(jobs) == [expected[sdf]] * 2 + [expected[mol2]] * 3 + [opened]


@pytest.mark.parametrize("threads", [1, 2, 0])
def test_read_ahead_gives_the_entries_in_order(big_files, threads):
    db = kora.open(big_files["sdf"])
    assert fingerprint(db.read(threads=threads)) == fingerprint(db)
    picked = [len(db) - 1, 3, 3, -len(db), 40]
    assert fingerprint(db.read(picked, threads=threads)) == fingerprint(db[i] for i in picked)


def test_read_ahead_failures_and_closing(tmp_path, big_files):
    text = big_files["sdf"].read_text()
    broken = "broken\n  test\n\n  2  1  0  0  0  0  0  0  0  0999 V2000\n" \
        "    0.0000    0.0000    0.0000 C   0  0\n    1.5000    0.0000    0.0000 C   0  0\n" \
        "  1  9  1  0\nM  END\n$$$$\n"
    path = tmp_path / "broken.sdf"
    path.write_text(text + broken + text)
    db = kora.open(path)
    iterator = db.read(threads=2)
    assert iterator.threads == 2
    for _ in range(5 * COPIES):
        next(iterator)
    with pytest.raises(kora.DatabaseError) as raised:
        next(iterator)
    with pytest.raises(kora.DatabaseError) as one_at_a_time:
        db[5 * COPIES]
    assert str(raised.value) == str(one_at_a_time.value)
    assert next(iterator).identifier == db.identifiers[5 * COPIES + 1]  # reading goes on
    with pytest.raises(IndexError):
        db.read([len(db)])
    with pytest.raises(ValueError):
        db.read(threads=-1)
    db.close()
    for call in (lambda: next(iterator), db.read):
        with pytest.raises(ValueError, match="closed"):
            call()
