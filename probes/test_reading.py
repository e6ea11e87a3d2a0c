"""The reading check (probes/reading.py): entries paired across readers, alternate
locations selected as kora selects them, differences found and grouped by reason, and a run
that goes on when a reader fails. The peers themselves are not needed: entries are built by
hand and the readers replaced."""

import io
import math
import os
import signal
import sys
import types

import pytest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import reading  # noqa: E402
from interop import Entry, parse_operator  # noqa: E402


def molecule(title, elements, charges=None, bonds=()):
    e = Entry(title)
    charges = charges or [0] * len(elements)
    e.atoms = [(el, q, (1.5 * k, 0.0, 0.0)) for k, (el, q) in enumerate(zip(elements, charges))]
    e.bonds = list(bonds)
    return e


def groups(differences):
    return sorted(d.group for d in differences)


@pytest.mark.parametrize("fmt, mine, theirs, pairs", [
    # An entry one reader splits does not shift the others.
    ("sdf", [molecule("a", "CC"), molecule("b", "CCC"), molecule("", "C"), molecule("c", "CCCC")],
     [molecule("a", "CC"), molecule("b", "CCC"), molecule("c", "CCCC")],
     [(0, 0), (1, 1), (2, None), (3, 2)]),
    # Entries a reader cannot read keep their place.
    ("sdf", ["kora's message", molecule("b", "N"), molecule("c", "O")],
     [molecule("a", "C"), None, molecule("x", "S"), molecule("c", "O")],
     [(0, 0), (1, 1), (None, 2), (2, 3)]),
    # A peer of one structure per file pairs the first entry.
    ("pdb", [reading.Structure("1"), reading.Structure("2")], [reading.Structure("1")],
     [(0, 0), (1, None)]),
])
def test_pairing_entries(fmt, mine, theirs, pairs):
    assert reading.pair_entries(fmt, mine, theirs) == pairs


def pdb_atom(name, altloc, occupancy, resnum=1, resname="SER", chain="A", x=0.0):
    return reading.Atom("C", 0, (x, 0.0, 0.0), name, altloc, resname, resnum, chain, occupancy)


BENZENE = "CCCCCC"
RING = [(0, 1, "ar"), (1, 2, "ar"), (2, 3, "ar"), (3, 4, "ar"), (4, 5, "ar"), (0, 5, "ar")]


@pytest.mark.parametrize("mine, expected", [
    (molecule("b", BENZENE, bonds=RING), []),
    (molecule("b", "CCNCCC", bonds=RING), ["element N != C"]),
    (molecule("b", BENZENE, [0, 0, 1, 0, 0, 0], bonds=RING), ["formal charge of C +1 != +0"]),
    (molecule("b", BENZENE, bonds=RING[:-1] + [(0, 3, 1)]),
     ["bonds only in RDKit", "bonds only in kora"]),
    (molecule("b", BENZENE, bonds=[(i, j, 1 if k % 2 else 2) for k, (i, j, _) in enumerate(RING)]),
     ["bond order 1 != ar (C-C)", "bond order 2 != ar (C-C)"]),
    (molecule("b", BENZENE + "H", bonds=RING), ["atom count differs"]),
])
def test_molecular_differences(mine, expected):
    theirs = molecule("b", BENZENE, bonds=RING)
    assert groups(reading.compare_molecular(mine, theirs, "rdkit")) == expected


P21 = frozenset(parse_operator(o) for o in ("x,y,z", "-x,y+1/2,-z"))
CELL = (10.0, 11.0, 12.0, 90.0, 100.0, 90.0)


def crystal(atoms, ops=P21, cell=CELL, q_peaks=0):
    s = reading.Structure("c")
    s.cell, s.ops, s.q_peaks = cell, ops, q_peaks
    s.models = [[site(*a) for a in atoms]]
    return s


def site(name, element, f, occupancy=1.0):
    a, b, c, _, beta, _ = CELL
    x = a * f[0] + c * math.cos(math.radians(beta)) * f[2]
    z = c * math.sin(math.radians(beta)) * f[2]
    return reading.Atom(element, 0, (x, b * f[1], z), name, occupancy=occupancy, fractional=f)


PEER_SITES = [("C1", "C", (0.1, 0.2, 0.3)), ("O1", "O", (0.4, 0.1, 0.2), 0.5)]


@pytest.mark.parametrize("atoms, options, expected", [
    # A symmetry image that completes a molecule, and a lattice translation, are one site.
    ([("C1", "C", (1.1, 0.2, 0.3))] + PEER_SITES[1:] + [("C1", "C", (-0.1, 0.7, -0.3))], {}, []),
    (PEER_SITES, {"q_peaks": 3}, ["Q peaks read as atoms by kora"]),
    ([PEER_SITES[0], ("O1", "N", (0.4, 0.1, 0.2), 1.0)], {}, ["element N != O",
                                                              "occupancy differs"]),
    ([PEER_SITES[0]], {}, ["atom count differs (sites of the asymmetric unit)",
                           "atoms of cctbx at no kora site"]),
    ([PEER_SITES[0], ("O1", "O", (0.42, 0.1, 0.2), 0.5)], {}, ["position differs"]),
    (PEER_SITES, {"ops": frozenset([parse_operator("x,y,z")]),
                  "cell": (10.0, 11.0, 12.1, 90.0, 100.0, 90.0)},
     ["cell differs", "space-group operators differ"]),
])
def test_res_differences(atoms, options, expected):
    assert groups(reading.compare_res(crystal(atoms, **options), crystal(PEER_SITES),
                                      "cctbx")) == expected


def pdb_structure(models, cell=None):
    s = reading.Structure("p")
    s.models, s.all_locations, s.cell = models, models, cell
    return s


def test_pdb_differences_per_model_and_field():
    theirs = pdb_structure([[pdb_atom("N", "", 1.0), pdb_atom("CA", "", 1.0, x=1.5)],
                            [pdb_atom("N", "", 1.0, x=5.0)]])
    mine = pdb_structure([[pdb_atom("N", "", 1.0), pdb_atom("CA", "", 1.0, x=1.5, chain="B")],
                          [pdb_atom("N", "", 1.0, x=5.0, resnum=7)]], cell=CELL)
    found = {d.group: d.text for d in reading.compare_pdb(mine, theirs, "gemmi")}
    assert found == {"chain differs": "model 1, atom CA SER A1: chain B != A",
                     "residue number differs": "model 2, atom N SER A1: residue number 7 != 1",
                     "cell only in kora": "cell only in kora: 10 11 12 90 100 90"}


def two_molecules(*_):
    return [molecule("a", "CC"), molecule("b", "CO")]


def failing(*_):
    raise ValueError("no such thing")


def check(monkeypatch, tmp_path, kora_reader, peer_reader):
    path = tmp_path / "two.sdf"
    path.write_text("")
    monkeypatch.setattr(reading, "read_kora", kora_reader)
    monkeypatch.setitem(reading.PEER_READERS, "rdkit", peer_reader)
    tally = reading.Tally()
    reading.check_file(types.SimpleNamespace(timeout=30, max_entries=0), "sdf", str(path), tally)
    out = io.StringIO()
    reading.report(tally, out, 30)
    return [row[5].group for row in tally.differences], out.getvalue()


@pytest.mark.parametrize("kora_reader, peer_reader, row, line, differences", [
    (lambda *_: (["line 4: bad counts line", molecule("b", "CO")], ["a", "b"]), two_molecules,
     "| sdf | RDKit | 2 | 2 | 1 | 50.0 |", "kora cannot read the entry: line N: bad counts line",
     ["kora cannot read the entry: line N: bad counts line"]),
    (lambda *_: (two_molecules(), ["a", "b"]), failing, "| sdf | RDKit | 2 | 0 | 0 | 100.0 |",
     "RDKit cannot read the file: ValueError: no such thing: 2", []),
], ids=["kora cannot read an entry", "the peer fails"])
def test_a_run_goes_on_when_a_reader_fails(monkeypatch, tmp_path, kora_reader, peer_reader, row,
                                           line, differences):
    found, text = check(monkeypatch, tmp_path, kora_reader, peer_reader)
    assert row in text and line in text
    assert found == differences


def test_a_kora_that_crashes_is_a_difference_of_every_entry(monkeypatch, tmp_path):
    found, _ = check(monkeypatch, tmp_path, lambda *_: os.kill(os.getpid(), signal.SIGKILL),
                     two_molecules)
    assert len(found) == 2 and all("ended without an answer" in group for group in found)
