"""Paths and small files shared by the tests of the Python module: the repository's
examples, and the corpus of real-world files ($KORA_CORPUS, else ../shared/corpus beside the
repository; the tests that need it skip without it)."""

import os
import pathlib

import pytest

REPO = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = REPO / "examples"


def sd_record(name, atoms="C", bonds=(), properties="", data=()):
    """One V2000 SD record: atoms as element symbols, or (symbol, charge code) pairs, 1.5 A
    apart along x; bonds as (first, second, order) from 1; property lines before M  END; data
    items as (name, text) pairs."""
    atoms = [a if isinstance(a, tuple) else (a, 0) for a in atoms]
    lines = [name, "  test", "", f"{len(atoms):3d}{len(bonds):3d}  0  0  0  0  0  0  0  0999 V2000"]
    lines += [f"{1.5 * k:10.4f}{0:10.4f}{0:10.4f} {symbol:<3} 0{code:3d}  0  0  0  0  0  0  0  0"
              for k, (symbol, code) in enumerate(atoms)]
    lines += [f"{i:3d}{j:3d}{order:3d}  0" for i, j, order in bonds]
    lines += [properties + "M  END"] + [f">  <{key}>\n{text}\n" for key, text in data]
    return "\n".join(lines) + "\n$$$$\n"


@pytest.fixture(scope="session")
def examples_dir():
    return EXAMPLES


@pytest.fixture(scope="session")
def drugs_sdf():
    return EXAMPLES / "drugs.sdf"


@pytest.fixture(scope="session")
def drugs_mol2():
    return EXAMPLES / "drugs.mol2"


@pytest.fixture(scope="session")
def peptide_pdb():
    return EXAMPLES / "peptide.pdb"


@pytest.fixture(scope="session")
def benzoic_res():
    return EXAMPLES / "benzoic_acid.res"


@pytest.fixture(scope="session")
def corpus_dir():
    configured = os.environ.get("KORA_CORPUS")
    path = pathlib.Path(configured) if configured else REPO.parent / "shared" / "corpus"
    if not path.is_dir():
        pytest.skip("no corpus: set KORA_CORPUS or put it at ../shared/corpus")
    return path


@pytest.fixture
def write_text(tmp_path):
    """Writes a string to a file of the given name in the test's directory; returns its path."""

    def write(name, text):
        path = tmp_path / name
        path.write_text(text)
        return path

    return write
