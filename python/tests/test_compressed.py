"""gzip-compressed files open, identify and read as the files they hold."""

import gzip

import pytest

import kora


def summary(db):
    return [(entry.identifier, len(entry.molecule)) for entry in db]


@pytest.mark.parametrize("example", ["drugs.sdf", "drugs.mol2", "peptide.pdb", "benzoic_acid.res"])
def test_compressed_example_reads_like_the_example(tmp_path, examples_dir, example):
    plain = examples_dir / example
    packed = tmp_path / (example + ".gz")
    packed.write_bytes(gzip.compress(plain.read_bytes()))
    db = kora.open(packed)
    expected = kora.open(plain)
    assert db.format == expected.format
    assert kora.identify(packed) == expected.format
    assert summary(db) == summary(expected)
    # Random access, last entry first.
    assert db[len(db) - 1].identifier == expected[len(expected) - 1].identifier


def test_content_decides_for_a_gzip_file_of_any_name(tmp_path, drugs_sdf):
    packed = tmp_path / "records.bin"
    packed.write_bytes(gzip.compress(drugs_sdf.read_bytes()))
    assert kora.open(packed).format == "sdf"


def test_truncated_gzip_file_is_refused_naming_it(tmp_path, drugs_sdf):
    data = gzip.compress(drugs_sdf.read_bytes())
    packed = tmp_path / "cut.sdf.gz"
    packed.write_bytes(data[: len(data) // 2])
    with pytest.raises(Exception, match="cut.sdf.gz.*truncated gzip data"):
        kora.open(packed)
