"""kora.dask on a cluster of two worker processes: bags and dataframes give what a plain
sequential read gives, each entry once and in order, and partitions written to files hold
their entries."""

import ast
import gzip
import math
import os
import pathlib
import runpy
import sys

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


def notes_sd(drugs_sdf, note):
    """Twelve SD records R00..R11 of the example molecules; record n has n % 3 more data
    items, NOTE0 first seen in R01, NOTE1 in R02, their values note.format(n)."""
    records = drugs_sdf.read_text().split("$$$$\n")[:-1]
    out = []
    for n in range(12):
        record = records[n % len(records)].split("\n", 1)[1]
        notes = "".join(f">  <NOTE{k}>\n{note.format(n)}\n\n" for k in range(n % 3))
        out.append(f"R{n:02d}\n{record}{notes}$$$$\n")
    return "".join(out)


@pytest.fixture(scope="module")
def inputs(tmp_path_factory, drugs_sdf, drugs_mol2, peptide_pdb):
    """Multi-entry files of each format, plain and gzip-compressed, by name."""
    directory = tmp_path_factory.mktemp("dask")
    texts = {"many.sdf": drugs_sdf.read_text() * COPIES,
             "many.mol2": drugs_mol2.read_text() * COPIES,
             "many.pdb": peptide_pdb.read_text() * COPIES,
             # Data items holding "$$$$" inside lines, in runs of several records.
             "dollar.sdf": notes_sd(drugs_sdf, "price 5$$$$ {}\n  $$$$ tail"),
             "notes.sdf": notes_sd(drugs_sdf, "note {}\nsecond line")}
    paths = {}
    for name, text in texts.items():
        paths[name] = directory / name
        paths[name].write_text(text)
        paths[name + ".gz"] = directory / (name + ".gz")
        with gzip.open(paths[name + ".gz"], "wt") as out:
            out.write(text)
    return paths


def sequential(path):
    """(identifier, molecules, atoms, bonds, coordinates) of each entry, read in one process."""
    with kora.open(path) as db:
        return [(e.identifier, len(e.molecules), e.molecule.natoms, e.molecule.nbonds,
                 e.molecule.coordinates, e.data) for e in db]


def assert_records_match(records, expected, path):
    assert len(records) == len(expected)
    for index, (record, want) in enumerate(zip(records, expected)):
        assert (record.source.path, record.entry_index) == (str(path), index)
        assert (record.identifier, record.molecules, record.atoms, record.bonds) == want[:4]
        numpy.testing.assert_array_equal(record.coordinates, want[4])
        assert record.data == want[5]


class TestReadBag:
    @pytest.mark.parametrize("name", ["many.sdf", "many.mol2", "many.pdb", "dollar.sdf"])
    @pytest.mark.parametrize("compressed", [False, True], ids=["plain", "gzip"])
    @pytest.mark.parametrize("per_partition", [1, 4, 1000])
    def test_entries_are_those_of_a_sequential_read(self, client, inputs, name, compressed,
                                                    per_partition):
        path = inputs[name + (".gz" if compressed else "")]
        expected = sequential(path)
        bag = kd.read_bag(path, entries_per_partition=per_partition)
        assert bag.npartitions == math.ceil(len(expected) / per_partition)
        assert_records_match(bag.compute(), expected, path)

    def test_data_items_holding_dollar_lines_neither_lose_nor_double_records(self, client,
                                                                             inputs):
        # Partitions of 1 to 5 records cut the runs of data items at every place.
        for per_partition in range(1, 6):
            records = kd.read_bag(inputs["dollar.sdf"], per_partition).compute()
            assert [r.identifier for r in records] == [f"R{n:02d}" for n in range(12)]
            assert [r.atoms for r in records] == [(21, 20, 24, 33, 26)[n % 5] for n in range(12)]
            # The values keep their "$$$$" text: only the separator line ends a record.
            assert [sorted(v for k, v in r.data.items() if k.startswith("NOTE"))
                    for r in records] == [[f"price 5$$$$ {n}\n  $$$$ tail"] * (n % 3)
                                          for n in range(12)]

    def test_files_follow_one_another_in_the_order_given(self, client, inputs):
        names = ["many.mol2", "many.sdf.gz", "many.pdb"]
        bag = kd.read_bag([inputs[n] for n in names], entries_per_partition=20)
        # 45 + 45 + 9 entries: partitions never span two files.
        assert bag.npartitions == 3 + 3 + 1
        records = bag.compute()
        for name in names:
            mine = [r for r in records if r.source.path == str(inputs[name])]
            assert_records_match(mine, sequential(inputs[name]), inputs[name])
        assert [r.source.path for r in records] == sorted(
            (r.source.path for r in records), key=[str(inputs[n]) for n in names].index)

    def test_glob_patterns_are_expanded_in_sorted_order(self, client, inputs):
        pattern = str(inputs["many.sdf"].parent / "many.*.gz")
        paths = {r.source.path for r in kd.read_bag(pattern, 100).compute()}
        assert paths == {str(inputs[n]) for n in ("many.mol2.gz", "many.pdb.gz", "many.sdf.gz")}

    def test_saved_index(self, tmp_path, drugs_sdf):
        for save in (False, True):
            path = tmp_path / f"{save}.sdf"
            path.write_text(drugs_sdf.read_text() * 3)
            kd.read_bag(path, entries_per_partition=4, save_index=save)
            assert pathlib.Path(str(path) + ".kora-index").exists() == save

    def test_a_file_changed_after_indexing_is_refused(self, client, tmp_path, drugs_sdf):
        path = tmp_path / "changing.sdf"
        path.write_text(drugs_sdf.read_text())
        bag = kd.read_bag(path, entries_per_partition=2)
        path.write_text(drugs_sdf.read_text() * 2)
        with pytest.raises(kd.FileChangedError, match="changed after it was indexed"):
            bag.compute()

    @pytest.mark.parametrize("call, error", [
        (lambda p: kd.read_bag(p, entries_per_partition=0), ValueError),
        (lambda p: kd.read_bag(p.parent / "absent.sdf"), FileNotFoundError),
        (lambda p: kd.read_bag(str(p.parent / "absent*.sdf")), FileNotFoundError),
        (lambda p: kd.to_files(kd.read_bag(p, save_index=False), p.parent / "x.mol2"), ValueError),
    ], ids=["partition size", "missing file", "empty pattern", "pattern without star"])
    def test_errors(self, drugs_sdf, call, error):
        with pytest.raises(error):
            call(drugs_sdf)

    def test_no_files_make_an_empty_bag(self):
        assert kd.read_bag([]).compute() == []
        assert len(kd.read_dataframe([]).compute()) == 0


class TestReadDataframe:
    @pytest.mark.parametrize("name", ["drugs.sdf", "drugs.mol2", "peptide.pdb",
                                      "benzoic_acid.res"])
    def test_one_file_gives_the_table_of_to_pandas(self, client, examples_dir, name):
        path = examples_dir / name
        frame = kd.read_dataframe(path, entries_per_partition=2, save_index=False)
        pandas.testing.assert_frame_equal(frame.compute(), kora.open(path).to_pandas())

    def test_data_items_of_later_partitions_become_columns(self, client, inputs):
        path = inputs["notes.sdf.gz"]
        frame = kd.read_dataframe(path, entries_per_partition=1)
        assert list(frame.columns[-5:]) == ["MW", "SMILES", "SOURCE", "NOTE0", "NOTE1"]
        pandas.testing.assert_frame_equal(frame.compute(), kora.open(path).to_pandas())

    def test_the_index_runs_over_all_the_files(self, client, inputs):
        frame = kd.read_dataframe([inputs["many.sdf"], inputs["many.mol2"]], 20,
                                  data_items=["MW", "formula"])
        assert frame.divisions == (0, 20, 40, 45, 65, 85, 89)
        table = frame.compute()
        assert list(table.index) == list(range(90))
        assert list(table.columns[-2:]) == ["MW", "data:formula"]
        assert table["MW"].iloc[0] == "180.16" and table["MW"].iloc[45] is None


class TestToFiles:
    @pytest.mark.parametrize("classic", [False, True], ids=["standard", "classic"])
    @pytest.mark.parametrize("source, target", [("many.sdf.gz", "mol2"), ("many.mol2", "sdf"),
                                                ("many.pdb", "pdb")])
    def test_each_partition_is_written_as_its_entries(self, client, inputs, tmp_path, source,
                                                      target, classic):
        bag = kd.read_bag(inputs[source], entries_per_partition=4)
        names = kd.to_files(bag, tmp_path / "out" / f"part-*.{target}", classic=classic)
        assert names == sorted(names) and len(names) == bag.npartitions
        db = kora.open(inputs[source])
        for number, name in enumerate(names):
            entries = [db[i] for i in range(4 * number, min(4 * number + 4, len(db)))]
            want = "".join(kora.to_string(e, target, classic=classic) for e in entries)
            assert pathlib.Path(name).read_text() == want

    def test_filtered_partitions_keep_their_records_only(self, client, inputs, tmp_path):
        bag = kd.read_bag(inputs["many.sdf"], entries_per_partition=10)
        names = kd.to_files(bag.filter(lambda r: r.atoms > 24), tmp_path / "*.sdf")
        written = [e.identifier for name in names for e in kora.open(name)]
        assert written == ["ibuprofen", "nicotine"] * COPIES

    def test_other_items_are_refused(self, client, tmp_path):
        bag = dask.bag.from_sequence([1, 2], npartitions=1)
        with pytest.raises(TypeError, match="not int"):
            kd.to_files(bag, tmp_path / "*.sdf")


def test_missing_dask_is_a_clear_import_error(monkeypatch):
    monkeypatch.setitem(sys.modules, "dask.bag", None)
    monkeypatch.delitem(sys.modules, "kora.dask")
    with pytest.raises(ImportError, match="kora.dask needs dask.*python3-dask"):
        import kora.dask  # noqa: F401


def test_the_stub_declares_every_public_name():
    stub = ast.parse(pathlib.Path(kd.__file__).with_suffix(".pyi").read_text())
    declared = {node.name for node in stub.body if isinstance(node, (ast.ClassDef,
                                                                     ast.FunctionDef))}
    declared |= {node.target.id for node in stub.body if isinstance(node, ast.AnnAssign)}
    public = {name for name, value in vars(kd).items() if not name.startswith("_")
              and getattr(value, "__module__", "kora.dask") == "kora.dask"
              and not isinstance(value, type(os))}
    assert public <= declared


def test_the_example_summarises_data_items_as_pandas_does(client, inputs, repo_dir):
    script = repo_dir / "python" / "examples" / "dask_convert.py"
    example = runpy.run_path(str(script))  # its functions, without running its main block
    path = inputs["notes.sdf"]
    summary = example["data_item_summary"](kd.read_dataframe(path, 5), ["MW", "NOTE0", "NOTE1"])
    table = kora.open(path).to_pandas()
    assert list(summary["present"]) == [12, 8, 4]
    assert list(summary["distinct"]) == [5, 8, 4]
    mw = table["MW"].astype(float)
    assert summary.loc["MW", ["min", "mean", "max"]].tolist() == pytest.approx(
        [mw.min(), mw.mean(), mw.max()])
    assert summary.loc["NOTE0"].isna()["mean"]


@pytest.mark.parametrize("folder", ["sdf", "mol2", "pdb", "res"])
def test_corpus_files_read_as_sequentially(client, corpus_dir, folder):
    """Every corpus file of the folder whose entries all read (a task stops at a failure, as
    a sequential read does)."""
    expected = {}
    for path in sorted((corpus_dir / folder).iterdir()):
        try:
            expected[path] = sequential(path)
        except (kora.DatabaseError, ValueError):
            continue
    records = kd.read_bag(list(expected), entries_per_partition=3, save_index=False).compute()
    for path, entries in expected.items():
        assert_records_match([r for r in records if r.source.path == str(path)], entries, path)
