"""Paths shared by the tests of the Python module.

The examples are the repository's own small files. Real-world files are read from
$KORA_CORPUS, or ../shared/corpus beside the repository, and the tests that need them skip
when neither exists.
"""

import os
import pathlib

import pytest

REPO = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = REPO / "examples"


def corpus_path():
    """The corpus directory, or None when there is none."""
    configured = os.environ.get("KORA_CORPUS")
    path = pathlib.Path(configured) if configured else REPO.parent / "shared" / "corpus"
    return path if path.is_dir() else None


@pytest.fixture(scope="session")
def repo_dir():
    return REPO


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
    path = corpus_path()
    if path is None:
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
