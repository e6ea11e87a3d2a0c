#!/usr/bin/python3
"""Reads every record of an SD file through the kora module and through RDKit, in one run.

    python3 python/bench_sd.py [FILE] [--repeat N]

Without FILE, the largest *.sdf or *.sd file under $KORA_CORPUS (or ../shared/corpus beside
the repository) is read. kora opens the file and, for each entry, builds its molecules and
counts their atoms, so that every record is fully parsed. RDKit reads the file with
Chem.SDMolSupplier, once with its default sanitisation and once with sanitize=False;
records it returns as None count as failures. kora also reads the file in two threads at
once, each through its own database, to show the threads sharing the cores. Each reader runs --repeat times (default 3),
in rounds of one run each, and the best time is reported, with the median beside it.

The kora module is imported from the Python path; when it is not there, the build
directories of the repository (build-python, then build*) are searched for it.
"""

import argparse
import os
import pathlib
import statistics
import sys
import threading
import time

REPO = pathlib.Path(__file__).resolve().parents[1]


def import_kora():
    try:
        import kora
        return kora
    except ImportError:
        pass
    candidates = sorted(REPO.glob("build-python/**/kora/_kora*.so"))
    candidates += sorted(p for p in REPO.glob("build*/**/kora/_kora*.so") if p not in candidates)
    for candidate in candidates:
        sys.path.insert(0, str(candidate.parent.parent))
        try:
            import kora
            return kora
        except ImportError:
            sys.path.pop(0)
    sys.exit("bench_sd.py: cannot import the kora module: build it (build-python) or put "
             "its directory on PYTHONPATH")


def import_rdkit():
    try:
        from rdkit import Chem, RDLogger, rdBase
    except ImportError:
        sys.exit("bench_sd.py: RDKit is not installed for " + sys.executable
                 + " (on Debian: apt-get install python3-rdkit, and run /usr/bin/python3)")
    RDLogger.DisableLog("rdApp.*")  # one warning per bad record would dominate the timing
    return Chem, rdBase.rdkitVersion


def largest_sd_file():
    configured = os.environ.get("KORA_CORPUS")
    corpus = pathlib.Path(configured) if configured else REPO.parent / "shared" / "corpus"
    if not corpus.is_dir():
        sys.exit(f"bench_sd.py: no corpus at {corpus}: give a FILE or set KORA_CORPUS")
    files = [p for p in corpus.rglob("*") if p.suffix.lower() in (".sdf", ".sd") and p.is_file()]
    if not files:
        sys.exit(f"bench_sd.py: no *.sdf or *.sd file under {corpus}")
    return max(files, key=lambda p: p.stat().st_size)


def read_with_kora(kora, path):
    """Records read, records that failed, atoms seen. Iteration reads the entries in batches
    without the GIL; an entry that cannot be read raises in its place and iteration goes on."""
    db = kora.open(path, format="sdf")
    records = failures = atoms = 0
    entries = iter(db)
    while True:
        try:
            entry = next(entries)
        except StopIteration:
            break
        except (RuntimeError, ValueError):
            failures += 1
            continue
        atoms += sum(m.natoms for m in entry.molecules)
        records += 1
    return records, failures, atoms


def read_with_kora_threads(kora, path, threads):
    """The file read whole by each of `threads` threads, each through its own database: the
    module reads entries without the GIL, so the threads share the cores."""
    results = [None] * threads

    def run(k):
        results[k] = read_with_kora(kora, path)

    workers = [threading.Thread(target=run, args=(k,)) for k in range(threads)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    return tuple(sum(r[i] for r in results) for i in range(3))


def read_with_rdkit(Chem, path, sanitize):
    records = failures = atoms = 0
    for molecule in Chem.SDMolSupplier(str(path), sanitize=sanitize, removeHs=False):
        if molecule is None:
            failures += 1
        else:
            records += 1
            atoms += molecule.GetNumAtoms()
    return records, failures, atoms


def timed_rounds(repeat, readers):
    """Runs every reader once per round, so that a change in the machine's load falls on all
    of them alike; for each, the result and the best and median times."""
    times = {name: [] for name, _ in readers}
    results = {}
    for _ in range(repeat):
        for name, function in readers:
            start = time.perf_counter()
            results[name] = function()
            times[name].append(time.perf_counter() - start)
    return {name: (results[name], min(times[name]), statistics.median(times[name]))
            for name, _ in readers}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("file", nargs="?", type=pathlib.Path,
                        help="SD file (default: the largest in the corpus)")
    parser.add_argument("--repeat", type=int, default=3, help="runs of each reader (default 3)")
    args = parser.parse_args()
    if args.repeat < 1:
        parser.error("--repeat must be at least 1")

    Chem, rdkit_version = import_rdkit()
    kora = import_kora()
    path = args.file if args.file else largest_sd_file()
    if not path.is_file():
        sys.exit(f"bench_sd.py: no such file: {path}")

    size = path.stat().st_size
    print(f"file: {path} ({size / 1e6:.1f} MB)")
    print(f"kora {kora.__version__}, RDKit {rdkit_version}, Python {sys.version.split()[0]}; "
          f"best and median of {args.repeat} runs")
    readers = [
        ("kora", lambda: read_with_kora(kora, path)),
        ("kora, 2 threads", lambda: read_with_kora_threads(kora, path, 2)),
        ("RDKit (sanitised)", lambda: read_with_rdkit(Chem, path, True)),
        ("RDKit (sanitize=False)", lambda: read_with_rdkit(Chem, path, False)),
    ]
    print(f"{'reader':<24}{'records':>9}{'failed':>8}{'atoms':>11}{'best s':>9}{'median s':>10}"
          f"{'records/s':>11}")
    timings = timed_rounds(args.repeat, readers)
    for name, _ in readers:
        (records, failures, atoms), fastest, median = timings[name]
        rate = (records + failures) / fastest
        print(f"{name:<24}{records:>9}{failures:>8}{atoms:>11}{fastest:>9.3f}{median:>10.3f}"
              f"{rate:>11.0f}")
    for name, _ in readers[2:]:
        print(f"kora is {timings[name][1] / timings['kora'][1]:.2f}x the speed of {name}")
    # Two threads read the file twice: their rate over one thread's.
    print(f"two threads read {2 * timings['kora'][1] / timings['kora, 2 threads'][1]:.2f}x as "
          f"many records per second as one ({os.cpu_count()} cores)")


if __name__ == "__main__":
    main()
