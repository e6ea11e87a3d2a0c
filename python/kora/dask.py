"""Multi-entry files read in parallel with Dask, one partition per range of the entry index.

kora indexes a file once: it knows where every entry starts. read_bag and read_dataframe cut
that index into ranges of entries_per_partition entries, and each Dask task opens the file
on its worker and reads its range and nothing else. An entry belongs to the partition of
the range it starts in, every entry is read exactly once, and a partition holds its entries
in file order; partitions follow the files in the order given, each file's in file order.

Entries do not pickle (they are views into the C++ library), so partitions hold Records:
picklable summaries with the coordinates as a numpy array and the entry's source (file,
reading options, index). to_files reads the entries of the records again from their source
on the workers, so that what it writes carries everything the source entry had (bonds,
atom types, charges), not only what a record holds.

Opening costs: the client opens each file once to index it. With save_index=True (the
default) the index is saved beside the file (FILE.kora-index), and each worker's open of the
file then reads the saved index instead of the file; a gzip file's saved index holds its
decompression checkpoints, so a task inflates only from the checkpoint before its range.
Without a saved index (save_index=False, or a folder that cannot be written) each worker
process indexes the file once (inflating a gzip file once). Each worker process keeps its
open databases for later tasks.

Importing this module raises ImportError when Dask is not installed.
"""

import functools
import glob
import os
from typing import Any, Dict, NamedTuple, Optional, Tuple

import kora

from . import _SUMMARY_COLUMNS, _data_names, _require, _summary_table

_require("dask.bag", "kora.dask", "python3-dask")
import dask  # noqa: E402  (imported above: these only bind the names)
import dask.bag  # noqa: E402

# The columns of read_dataframe before the SD data items.
SUMMARY_COLUMNS = _SUMMARY_COLUMNS

# The scheduler costs a partition of read_dataframe's summaries about 13 ms (a few tasks of
# 1 to 3 ms each) and an SD entry's summary takes about 13 microseconds: from 20,000 entries a
# partition the scheduling stays under 5% of the work (bench/README.md, "kora on Dask").
DEFAULT_ENTRIES_PER_PARTITION = 20_000


class Source(NamedTuple):
    """A file as a task opens it: its name, the reading options and what it was when indexed
    (size and modification time), so that a task refuses a file that changed since."""
    path: str
    format: Optional[str]
    classic: bool
    size: int
    mtime_ns: int


class Record(NamedTuple):
    """What a partition of read_bag holds for an entry: its summary (the columns of
    Database.to_pandas), its SD data items, its atoms' Cartesian coordinates and where it
    came from."""
    source: Source
    entry_index: int  # its index in its file
    identifier: str
    molecules: int
    atoms: int
    bonds: int
    formula: str  # Hill order
    charge: int  # the sum of the formal charges
    cell: Optional[Tuple[float, float, float, float, float, float]]  # a, b, c, alpha, beta, gamma
    spacegroup: Optional[str]
    spacegroup_number: Optional[int]
    data: Dict[str, str]
    coordinates: Any  # (atoms, 3) float64 numpy array, all molecules; NaN rows: no position


class _Shard(NamedTuple):
    source: Source
    start: int  # entry indices start..stop-1 of the file
    stop: int
    first: int  # the running number of entry `start` over all the files


class FileChangedError(kora.DatabaseError):
    """A file changed between its indexing and a task's reading of it."""


# ------------------------------------------------------------------------------------------
# The client's side: files indexed and cut into shards

def _expand(paths):
    """The file names of a path, a glob pattern or a list of them, in the order given (a
    pattern's matches sorted)."""
    if isinstance(paths, (str, bytes, os.PathLike)):
        paths = [paths]
    names = []
    for path in paths:
        name = os.fsdecode(path)
        if not os.path.exists(name) and glob.has_magic(name):
            matches = sorted(glob.glob(name))
            if not matches:
                raise FileNotFoundError(f"no file matches {name}")
            names.extend(matches)
        else:
            names.append(name)
    return names


def _shards(paths, entries_per_partition, format, classic, save_index):
    if entries_per_partition < 1:
        raise ValueError("entries_per_partition must be 1 or more")
    shards = []
    first = 0
    for path in _expand(paths):
        # Taken before indexing: a change made after it is one the tasks see.
        stat = os.stat(path)
        source = Source(os.path.abspath(path), format, classic, stat.st_size, stat.st_mtime_ns)
        with kora.open(path, format=format, classic=classic) as db:
            count = len(db)
            # A file of one partition is opened by one worker: it indexes it once anyway.
            if save_index and count > entries_per_partition:
                try:
                    db.save_index()
                except (kora.DatabaseError, OSError):
                    pass  # a directory we cannot write: the workers index the file
        for start in range(0, count, entries_per_partition):
            stop = min(start + entries_per_partition, count)
            shards.append(_Shard(source, start, stop, first + start))
        first += count
    return shards


# ------------------------------------------------------------------------------------------
# The workers' side

@functools.lru_cache(maxsize=16)
def _cached_database(source):
    return kora.open(source.path, format=source.format, classic=source.classic)


def _database(source):
    """The source's database, opened once per worker process."""
    stat = os.stat(source.path)
    if (stat.st_size, stat.st_mtime_ns) != (source.size, source.mtime_ns):
        raise FileChangedError(f"{source.path} changed after it was indexed")
    return _cached_database(source)


def _entries(shard):
    return _database(shard.source).read(range(shard.start, shard.stop), threads=1)


def _summary(entry):
    """The entry's row of Database._summaries, and its merged molecule."""
    molecule = entry.molecule
    cell = entry.cell
    values = symbol = number = None
    if cell is not None:
        values = (cell.a, cell.b, cell.c, cell.alpha, cell.beta, cell.gamma)
        symbol, number = cell.spacegroup.symbol, cell.spacegroup.number
    row = (entry.identifier, len(entry.molecules), molecule.natoms, molecule.nbonds,
           molecule.formula, molecule.formal_charge, values, symbol, number, entry.data)
    return row, molecule


def _read_records(shard):
    records = []
    for index, entry in enumerate(_entries(shard), shard.start):
        row, molecule = _summary(entry)
        records.append(Record(shard.source, index, *row, molecule.coordinates))
    return records


def _read_rows(shard):
    return [_summary(entry)[0] for entry in _entries(shard)]


def _rows_frame(rows, data_names, first):
    pandas = _require("pandas", "kora.dask.read_dataframe", "python3-pandas")
    return _summary_table(pandas, rows, data_names, pandas.RangeIndex(first, first + len(rows)))


def _read_frame(shard, data_names):
    return _rows_frame(_read_rows(shard), data_names, shard.first)


def _write_partition(items, target, format, v3000, classic):
    """Writes a partition's records (read again from their sources), entries or molecules
    to one file and gives its name."""
    chosen = []
    run = []  # consecutive records of one source, read together
    run_source = None

    def flush():
        if run:
            chosen.extend(_database(run_source).read(run, threads=1))
            run.clear()

    for item in items:
        if isinstance(item, Record):
            if item.source != run_source:
                flush()
                run_source = item.source
            run.append(item.entry_index)
        elif isinstance(item, (kora.Entry, kora.Molecule)):
            flush()
            chosen.append(item)
        else:
            raise TypeError("to_files writes kora.dask.Record, kora.Entry and kora.Molecule "
                            f"items, not {type(item).__name__}")
    flush()
    directory = os.path.dirname(target)
    if directory:
        os.makedirs(directory, exist_ok=True)
    kora.write(target, chosen, format=format, v3000=v3000, classic=classic)
    return target


# ------------------------------------------------------------------------------------------
# The API

def read_bag(paths, entries_per_partition=DEFAULT_ENTRIES_PER_PARTITION, format=None,
             classic=False, save_index=True):
    """A dask.bag.Bag of the Records of the entries of one or more files.

    paths: a path, a glob pattern or a list of them. Each partition is a range of at most
    entries_per_partition entries of one file, in file order; format and classic are those
    of kora.open. The files are indexed here, once; save_index=True saves the index of each
    file of more than one partition beside it (when its directory is writable) so that the
    workers' opens read it instead of indexing again. Raises what kora.open raises; a task
    raises kora.dask.FileChangedError when its file changed after indexing.
    """
    shards = _shards(paths, entries_per_partition, format, classic, save_index)
    if not shards:
        return dask.bag.from_sequence([], npartitions=1)
    read = dask.delayed(_read_records, pure=True)
    return dask.bag.from_delayed([read(shard) for shard in shards])


def read_dataframe(paths, entries_per_partition=DEFAULT_ENTRIES_PER_PARTITION, format=None,
                   classic=False, save_index=True, data_items=None):
    """A dask.dataframe.DataFrame with one row per entry: the columns of Database.to_pandas,
    the SD data items last (a name that clashes with a column gets "data:" before it).

    The index numbers the entries from 0 over all the files, in the order of read_bag;
    partitions are those of read_bag. A dataframe's columns must be known before its
    partitions are: data_items=None reads the files now, keeps the rows on the workers
    (dask.persist) and makes a column of every data item name found, in order of first
    appearance (as Database.to_pandas does for one file); a list of names reads nothing
    until the dataframe is computed and makes columns of just those.
    """
    _require("dask.dataframe", "kora.dask.read_dataframe", "python3-dask")
    import dask.dataframe

    pandas = _require("pandas", "kora.dask.read_dataframe", "python3-pandas")
    shards = _shards(paths, entries_per_partition, format, classic, save_index)
    persisted = data_items is None
    if persisted:
        rows = dask.persist(*[dask.delayed(_read_rows, pure=True)(shard) for shard in shards])
        names = dask.compute(*[dask.delayed(_data_names, pure=True)(r) for r in rows])
        data_items = list(dict.fromkeys(name for found in names for name in found))
    data_items = list(data_items)
    meta = _summary_table(pandas, [], data_items)
    if not shards:
        return dask.dataframe.from_pandas(meta, npartitions=1)
    if persisted:
        frames = [dask.delayed(_rows_frame, pure=True)(r, data_items, shard.first)
                  for r, shard in zip(rows, shards)]
    else:  # one task a partition
        frames = [dask.delayed(_read_frame, pure=True)(shard, data_items) for shard in shards]
    last = shards[-1]
    divisions = [shard.first for shard in shards] + [last.first + last.stop - last.start - 1]
    return dask.dataframe.from_delayed(frames, meta=meta, divisions=divisions)


def to_files(bag, pattern, format=None, v3000=False, classic=False, compute=True):
    """Writes each partition of a bag to a file of its own and gives the files' names.

    pattern: a file name with one "*", replaced by the partition's number (zero-padded so
    that the names sort in partition order); its directories are made when missing. The
    format is the one given, else the one of the pattern's extension; v3000 and classic are
    those of kora.write. A partition may hold Records (each entry is read again from its
    source file, so that everything the entry had is written), kora.Entry and kora.Molecule
    objects (made in the same task: they do not pickle). An empty partition makes an empty
    file. compute=False gives the dask.delayed writes instead of the names.
    """
    pattern = os.fsdecode(pattern)
    if pattern.count("*") != 1:
        raise ValueError(f"the pattern needs exactly one '*' for the partition number: {pattern}")
    width = len(str(bag.npartitions - 1))
    write = dask.delayed(_write_partition, pure=True)
    writes = [write(part, pattern.replace("*", str(i).zfill(width)), format, v3000, classic)
              for i, part in enumerate(bag.to_delayed())]
    if not compute:
        return writes
    return list(dask.compute(*writes))
