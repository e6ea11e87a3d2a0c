"""Times kora.dask summarising a large SD file on a distributed.LocalCluster of 1 and 2
worker processes, against the same work done in one process without Dask, and measures
what the scheduler costs a partition.

    PYTHONPATH=build-python/python /usr/bin/python3 bench/dask_summary.py [FILE] \\
        [--sizes 1000 4000 13439 26878] [--repeat 3] [--gzip FILE.gz]

FILE defaults to /tmp/bi/big.sdf (bench/make_inputs.sh /tmp/bi). The summary: read_dataframe,
then the non-missing values of every column and the totals of the counts, once with the data
items found by read_dataframe's first pass (data_items=None: the rows are read and kept on
the workers, then made into frames) and once with them named (one task a partition). Times
are medians of --repeat runs, after a first run that opens the file on each worker. Then
the file converted to Mol2 files by to_files, and with --gzip, the entries of a compressed
copy counted: the first time, each worker process indexes the file (reading it through).

The scheduler's cost a partition is measured twice: as the wall time of empty tasks, and as
the slope of the summary's time against its number of partitions (a least-squares line over
--sizes), which counts every task a partition of the summary makes. With w workers a
partition of P entries does P * (work an entry) / w of wall time, so the scheduling stays
under 5% of it from P = 19 * w * slope / (work an entry).
"""

import argparse
import os
import statistics
import tempfile
import time

import dask
import distributed

import kora
import kora.dask as kd


def median_time(run, repeat):
    times = []
    for _ in range(repeat):
        start = time.perf_counter()
        run()
        times.append(time.perf_counter() - start)
    return statistics.median(times)


def summarise(path, entries_per_partition, data_items):
    frame = kd.read_dataframe(path, entries_per_partition, data_items=data_items)
    return dask.compute(frame.count(), frame[["molecules", "atoms", "bonds"]].sum())


def convert(path, entries_per_partition, out_dir):
    bag = kd.read_bag(path, entries_per_partition)
    kd.to_files(bag, os.path.join(out_dir, "part-*.mol2"))


def count(path, entries_per_partition):
    return kd.read_bag(path, entries_per_partition).count().compute()


def nothing(i):
    return i


def empty_tasks(n):
    """n tasks that do nothing, as many partitions of a bag are."""
    dask.compute(*[dask.delayed(nothing, pure=False)(i) for i in range(n)])


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("file", nargs="?", default="/tmp/bi/big.sdf")
    parser.add_argument("--sizes", type=int, nargs="+", default=[1000, 4000, 13439, 26878])
    parser.add_argument("--repeat", type=int, default=3)
    parser.add_argument("--empty-tasks", type=int, default=2000)
    parser.add_argument("--gzip", help="the same file gzip-compressed: times counting its "
                        "entries, the first time (each worker indexes it) and again")
    args = parser.parse_args()

    # The workers open the file through its saved index; one this run makes goes at the end,
    # so that other benchmarks still index the file.
    made_index = not os.path.exists(args.file + ".kora-index")
    try:
        run(args)
    finally:
        if made_index and os.path.exists(args.file + ".kora-index"):
            os.remove(args.file + ".kora-index")


def run(args):
    with kora.open(args.file) as db:
        entries = len(db)
        db.save_index()
        one_process = median_time(db.to_pandas, args.repeat)
    # The work of the tasks, done in this process: the same rows, one range.
    shard = kd._shards(args.file, entries, None, False, True)[0]
    python_rows = median_time(lambda: kd._read_rows(shard), args.repeat)
    per_entry = python_rows / entries
    print(f"{args.file}: {entries} entries")
    print(f"one process, Database.to_pandas: {one_process:.2f} s")
    print(f"one process, the tasks' rows (Python per entry): {python_rows:.2f} s "
          f"({per_entry * 1e6:.1f} us an entry)")

    modes = {"data items found": None, "data items named": []}
    results = {}
    for workers in (1, 2):
        cluster = distributed.LocalCluster(n_workers=workers, threads_per_worker=1,
                                           processes=True, dashboard_address=None)
        with distributed.Client(cluster):
            summarise(args.file, max(args.sizes), None)  # each worker opens the file once
            overhead = median_time(lambda: empty_tasks(args.empty_tasks), args.repeat)
            print(f"\n{workers} worker(s): an empty task costs "
                  f"{overhead / args.empty_tasks * 1e3:.2f} ms of wall time")
            for mode, data_items in modes.items():
                counts, times = [], []
                print(f"  {mode}: entries/partition, partitions, time (s)")
                for size in args.sizes:
                    counts.append(-(-entries // size))
                    times.append(median_time(lambda: summarise(args.file, size, data_items),
                                             args.repeat))
                    results[workers, mode, size] = times[-1]
                    print(f"  {size:>8} {counts[-1]:>6} {times[-1]:>7.2f}")
                slope, intercept = fit(counts, times)
                smallest = 19 * workers * slope / per_entry
                print(f"  {slope * 1e3:.2f} ms a partition, {intercept:.2f} s without "
                      f"partitions ({entries / intercept / 1e3:.0f}k entries/s); overhead < 5% "
                      f"from {smallest:,.0f} entries a partition")
            size = kd.DEFAULT_ENTRIES_PER_PARTITION
            with tempfile.TemporaryDirectory() as out_dir:
                elapsed = median_time(lambda: convert(args.file, size, out_dir), args.repeat)
            print(f"  to_files as Mol2, {size} entries a partition: {elapsed:.2f} s")
            if args.gzip:
                start = time.perf_counter()
                count(args.gzip, size)
                first = time.perf_counter() - start
                again = median_time(lambda: count(args.gzip, size), args.repeat)
                print(f"  counting {args.gzip}, {size} entries a partition: {first:.2f} s the "
                      f"first time, {again:.2f} s again")
        cluster.close()
    print("\nscaling from 1 to 2 workers (time with 1 / time with 2)")
    for mode in modes:
        print(f"  {mode}: " + ", ".join(
            f"{size}: {results[1, mode, size] / results[2, mode, size]:.2f}"
            for size in args.sizes))


def fit(xs, ys):
    """Slope and intercept of the least-squares line through (xs, ys)."""
    mx, my = statistics.fmean(xs), statistics.fmean(ys)
    slope = sum((x - mx) * (y - my) for x, y in zip(xs, ys)) / sum((x - mx) ** 2 for x in xs)
    return slope, my - slope * mx


if __name__ == "__main__":
    main()
