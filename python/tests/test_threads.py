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
