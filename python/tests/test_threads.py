"""Reading from several threads gives what one thread gives.

Reading releases the GIL, so these threads really do run the readers at the same time.
"""

import threading

import pytest

import kora

COPIES = 150  # of the five-record examples: 750 records a file


@pytest.fixture(scope="module")
def big_files(tmp_path_factory, drugs_sdf, drugs_mol2):
    directory = tmp_path_factory.mktemp("threads")
    paths = {}
    for source in (drugs_sdf, drugs_mol2):
        path = directory / f"many{source.suffix}"
        path.write_text(source.read_text() * COPIES)
        paths[source.suffix[1:]] = path
    return paths


def fingerprint(db):
    """Everything the tests compare about each entry of a database."""
    result = []
    for i in range(len(db)):
        entry = db[i]
        molecule = entry.molecule
        result.append((
            entry.identifier, molecule.natoms, molecule.nbonds, molecule.formula,
            molecule.formal_charge, molecule.coordinates.tobytes(),
            tuple(sorted((tuple(sorted(b.atoms)), int(b.type)) for b in molecule.bonds)),
            tuple(sorted(entry.data.items())),
        ))
    return result


def run_together(jobs):
    """Runs each job in a thread of its own, all started at once; returns their results."""
    barrier = threading.Barrier(len(jobs))
    results = [None] * len(jobs)
    errors = []

    def run(i, job):
        try:
            barrier.wait()
            results[i] = job()
        except BaseException as error:  # reported by the test, not lost in the thread
            errors.append(error)

    threads = [threading.Thread(target=run, args=(i, job)) for i, job in enumerate(jobs)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    if errors:
        raise errors[0]
    return results


def test_two_databases_over_one_file(big_files):
    path = big_files["sdf"]
    expected = fingerprint(kora.open(path))
    assert len(expected) == 5 * COPIES
    results = run_together([lambda: fingerprint(kora.open(path))] * 2)
    assert results == [expected, expected]


def test_databases_over_different_files(big_files):
    paths = [big_files["sdf"], big_files["mol2"], big_files["sdf"], big_files["mol2"]]
    expected = {p: fingerprint(kora.open(p)) for p in set(paths)}
    results = run_together([lambda p=p: fingerprint(kora.open(p)) for p in paths])
    for path, result in zip(paths, results):
        assert result == expected[path]


def test_threads_sharing_one_database(big_files):
    db = kora.open(big_files["mol2"])
    expected = fingerprint(db)
    assert run_together([lambda: fingerprint(db)] * 2) == [expected, expected]


def test_opening_and_identifying_at_once(big_files, examples_dir):
    paths = sorted(examples_dir.iterdir()) + list(big_files.values())
    expected = [(kora.identify(p), kora.open(p).identifiers) for p in paths]

    def job():
        return [(kora.identify(p), kora.open(p).identifiers) for p in paths]

    assert run_together([job] * 2) == [expected, expected]


def entry_fingerprints(entries):
    """fingerprint() of entries already read."""
    class Entries:
        def __init__(self, items):
            self.items = list(items)

        def __len__(self):
            return len(self.items)

        def __getitem__(self, i):
            return self.items[i]

    return fingerprint(Entries(entries))


@pytest.mark.parametrize("threads", [1, 2, 3, 0])
def test_read_ahead_gives_the_entries_in_order(big_files, threads):
    for path in big_files.values():
        db = kora.open(path)
        assert entry_fingerprints(db.read(threads=threads)) == fingerprint(db)
        picked = [len(db) - 1, 3, 3, -len(db), 40]
        assert entry_fingerprints(db.read(picked, threads=threads)) == \
            entry_fingerprints(db[i] for i in picked)


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
    for _ in range(len(text.split("$$$$\n")) - 1):
        next(iterator)
    with pytest.raises(kora.DatabaseError) as raised:
        next(iterator)
    with pytest.raises(kora.DatabaseError) as one_at_a_time:
        db[750]
    assert str(raised.value) == str(one_at_a_time.value)
    assert next(iterator).identifier == db.identifiers[751]  # reading goes on after a failure
    with pytest.raises(IndexError):
        db.read([len(db)])
    db.close()
    with pytest.raises(ValueError):
        next(iterator)
    with pytest.raises(ValueError):
        db.read()
