"""kora.dask on a cluster of two worker processes: bags and dataframes give what a plain
sequential read gives, each entry once and in order, and partitions written to files hold
their entries."""

import gzip
import math
import os
import pathlib

import numpy
import pytest

import kora

dask = pytest.importorskip("dask")
distributed = pytest.importorskip("distributed")
pandas = pytest.importorskip("pandas")
import kora.dask as kd  # noqa: E402

COPIES = 9  # of each example file: 45 SD and Mol2 records, 9 PDB entries


@pytest.fixture(scope="module")
def client():
    cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                       dashboard_address=None)
    with distributed.Client(cluster) as c:
        yield c
    cluster.close()


def notes_sd(drugs_sdf):
    """Twelve SD records R00..R11 of the example molecules; record n has n % 3 more data
    items, NOTE0 first seen in R01, NOTE1 in R02, of two lines each."""
    records = drugs_sdf.read_text().split("$$$$\n")[:-1]
    out = []
    for n in range(12):
        record = records[n % len(records)].split("\n", 1)[1]
        notes = "".join(f">  <NOTE{k}>\nnote {n}\nsecond line\n\n" for k in range(n % 3))
        out.append(f"R{n:02d}\n{record}{notes}$$$$\n")
    return "".join(out)


@pytest.fixture(scope="module")
def inputs(tmp_path_factory, drugs_sdf, drugs_mol2, peptide_pdb):
    """Multi-entry files of each format, plain and gzip-compressed, by name."""
    directory = tmp_path_factory.mktemp("dask")
    texts = {"many.sdf": drugs_sdf.read_text() * COPIES,
             "many.mol2": drugs_mol2.read_text() * COPIES,
             "many.pdb": peptide_pdb.read_text() * COPIES, "notes.sdf": notes_sd(drugs_sdf)}
    paths = {}
    for name, text in texts.items():
        for suffix, data in (("", text.encode()), (".gz", gzip.compress(text.encode()))):
            paths[name + suffix] = directory / (name + suffix)
            paths[name + suffix].write_bytes(data)
    return paths


def sequential(path):
    """(identifier, molecules, atoms, bonds, coordinates, data) of each entry."""
    with kora.open(path) as db:
        return [(e.identifier, len(e.molecules), e.molecule.natoms, e.molecule.nbonds,
                 e.molecule.coordinates, e.data) for e in db]


def assert_records_match(records, path):
    expected = sequential(path)
    assert len(records) == len(expected)
    for index, (record, want) in enumerate(zip(records, expected)):
        assert (record.source.path, record.entry_index) == (str(path), index)
        assert (record.identifier, record.molecules, record.atoms, record.bonds) == want[:4]
        numpy.testing.assert_array_equal(record.coordinates, want[4])
        assert record.data == want[5]


@pytest.mark.parametrize("name, per_partition", [
    ("many.sdf", 1), ("many.mol2.gz", 4), ("many.pdb", 1000), ("many.pdb.gz", 4),
    ("notes.sdf.gz", 5),
])
def test_bag_entries_are_those_of_a_sequential_read(client, inputs, name, per_partition):
    bag = kd.read_bag(inputs[name], entries_per_partition=per_partition)
    assert bag.npartitions == math.ceil(len(sequential(inputs[name])) / per_partition)
    assert_records_match(bag.compute(), inputs[name])


def test_files_and_patterns_follow_one_another_in_the_order_given(client, inputs):
    names = ["many.mol2", "many.sdf.gz", "many.pdb"]
    pattern = str(inputs["many.sdf"].parent / "many.*.gz")  # its matches sorted
    bag = kd.read_bag([inputs[n] for n in names] + [pattern], entries_per_partition=20)
    # 45 + 45 + 9 entries, then the pattern's 45 + 9 + 45: partitions never span two files.
    assert bag.npartitions == 3 + 3 + 1 + 3 + 1 + 3
    assert pathlib.Path(f"{inputs['many.mol2']}.kora-index").exists()  # save_index=True
    records = bag.compute()
    order = names + ["many.mol2.gz", "many.pdb.gz", "many.sdf.gz"]
    starts = [i for i, r in enumerate(records) if r.entry_index == 0] + [len(records)]
    for name, start, stop in zip(order, starts[:-1], starts[1:], strict=True):
        assert_records_match(records[start:stop], inputs[name])


def test_a_file_changed_after_indexing_is_refused(client, tmp_path, drugs_sdf):
    path = tmp_path / "changing.sdf"
    path.write_text(drugs_sdf.read_text())
    bag = kd.read_bag(path, entries_per_partition=2)
    path.write_text(drugs_sdf.read_text() * 2)
    with pytest.raises(kd.FileChangedError, match="changed after it was indexed"):
        bag.compute()
    assert issubclass(kd.FileChangedError, kora.DatabaseError)


@pytest.mark.parametrize("call, error", [
    (lambda p, out: kd.read_bag(p, entries_per_partition=0), ValueError),
    (lambda p, out: kd.read_bag(p.parent / "absent.sdf"), FileNotFoundError),
    (lambda p, out: kd.read_bag(str(p.parent / "absent*.sdf")), FileNotFoundError),
    (lambda p, out: kd.to_files(kd.read_bag(p, save_index=False), out / "x.mol2"), ValueError),
    (lambda p, out: kd.to_files(dask.bag.from_sequence([1, 2], npartitions=1), out / "*.sdf"),
     TypeError),
], ids=["partition size", "missing file", "empty pattern", "pattern without star",
        "item not a record"])
def test_errors(tmp_path, drugs_sdf, call, error):
    with pytest.raises(error):
        call(drugs_sdf, tmp_path)
    assert os.listdir(tmp_path) == []


def test_no_files_make_an_empty_bag_and_dataframe():
    assert kd.read_bag([]).compute() == []
    assert len(kd.read_dataframe([]).compute()) == 0


@pytest.mark.parametrize("name", ["drugs.sdf", "drugs.mol2", "peptide.pdb", "benzoic_acid.res"])
def test_dataframe_of_one_file_is_the_table_of_to_pandas(client, examples_dir, name):
    path = examples_dir / name
    frame = kd.read_dataframe(path, entries_per_partition=2, save_index=False)
    pandas.testing.assert_frame_equal(frame.compute(), kora.open(path).to_pandas())


def test_data_items_of_later_partitions_become_columns(client, inputs):
    path = inputs["notes.sdf.gz"]
    frame = kd.read_dataframe(path, entries_per_partition=1)
    assert list(frame.columns[-5:]) == ["MW", "SMILES", "SOURCE", "NOTE0", "NOTE1"]
    pandas.testing.assert_frame_equal(frame.compute(), kora.open(path).to_pandas())


def test_the_dataframe_index_runs_over_all_the_files(client, inputs):
    frame = kd.read_dataframe([inputs["many.sdf"], inputs["many.mol2"]], 20,
                              data_items=["MW", "formula"])
    assert frame.divisions == (0, 20, 40, 45, 65, 85, 89)
    table = frame.compute()
    assert list(table.index) == list(range(90))
    assert list(table.columns[-2:]) == ["MW", "data:formula"]
    assert table["MW"].iloc[0] == "180.16" and table["MW"].iloc[45] is None


@pytest.mark.parametrize("source, target, classic", [
    ("many.sdf.gz", "mol2", False), ("many.mol2", "sdf", True), ("many.pdb", "pdb", False)])
def test_each_partition_is_written_as_its_entries(client, inputs, tmp_path, source, target,
                                                  classic):
    bag = kd.read_bag(inputs[source], entries_per_partition=4)
    names = kd.to_files(bag, tmp_path / "out" / f"part-*.{target}", classic=classic)
    assert names == sorted(names) and len(names) == bag.npartitions
    db = kora.open(inputs[source])
    for number, name in enumerate(names):
        entries = [db[i] for i in range(4 * number, min(4 * number + 4, len(db)))]
        want = "".join(kora.to_string(e, target, classic=classic) for e in entries)
        assert pathlib.Path(name).read_text() == want


def test_filtered_partitions_keep_their_records_only(client, inputs, tmp_path):
    bag = kd.read_bag(inputs["many.sdf"], entries_per_partition=10)
    names = kd.to_files(bag.filter(lambda r: r.atoms > 24), tmp_path / "*.sdf")
    written = [e.identifier for name in names for e in kora.open(name)]
    assert written == ["ibuprofen", "nicotine"] * COPIES
