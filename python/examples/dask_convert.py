"""Converts a large SD file to Mol2 files on a distributed.LocalCluster, and summarises its
SD data items: how many entries have each, how many distinct values it takes, and the
smallest, mean and largest of those that are numbers.

    python3 python/examples/dask_convert.py IN.sdf OUT_DIR [--workers 2] [--entries 20000]

Writes OUT_DIR/part-N.mol2, one file per partition, and prints the summary. The same code
runs on a cluster of several machines when the Client is given the scheduler's address and
the files are on storage that every worker sees.
"""

import argparse
import os

import distributed
import pandas

import kora.dask


def data_item_summary(frame, data_items):
    """A pandas.DataFrame with a row per data item: present, distinct, min, mean, max."""
    items = frame[data_items]
    numbers = items.map_partitions(lambda part: part.apply(pandas.to_numeric, errors="coerce"),
                                   meta={name: "f8" for name in data_items})
    present, distinct, low, mean, high = distributed.get_client().compute(
        [items.count(), items.nunique(), numbers.min(), numbers.mean(), numbers.max()],
        sync=True)
    return pandas.DataFrame({"present": present, "distinct": distinct, "min": low,
                             "mean": mean, "max": high})


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("sd_file")
    parser.add_argument("out_dir")
    parser.add_argument("--workers", type=int, default=2)
    parser.add_argument("--entries", type=int, default=kora.dask.DEFAULT_ENTRIES_PER_PARTITION,
                        help="entries a partition")
    args = parser.parse_args()

    with distributed.LocalCluster(n_workers=args.workers, threads_per_worker=1) as cluster, \
            distributed.Client(cluster):
        bag = kora.dask.read_bag(args.sd_file, entries_per_partition=args.entries)
        files = kora.dask.to_files(bag, os.path.join(args.out_dir, "part-*.mol2"))
        print(f"{bag.npartitions} partitions written to {len(files)} Mol2 files in "
              f"{args.out_dir}")

        frame = kora.dask.read_dataframe(args.sd_file, entries_per_partition=args.entries)
        data_items = list(frame.columns[len(kora.dask.SUMMARY_COLUMNS):])
        print(f"{len(frame)} entries, {len(data_items)} data items")
        if data_items:
            print(data_item_summary(frame, data_items).to_string())


if __name__ == "__main__":
    main()
