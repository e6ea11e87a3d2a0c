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

from conftest import REPO

sys.path.insert(0, str(REPO / "probes"))

import reading  # noqa: E402
from interop import Entry, parse_operator  # noqa: E402


def molecule(title, elements, charges=None, bonds=(), spacing=1.5):
    e = Entry(title)
    charges = charges or [0] * len(elements)
    e.atoms = [(el, q, (spacing * k, 0.0, 0.0)) for k, (el, q) in enumerate(zip(elements, charges))]
    e.bonds = list(bonds)
    return e


def groups(differences):
    return sorted(d.group for d in differences)


# ---------------------------------------------------------------------------------------------
# Pairing entries

def test_entries_pair_by_position_when_the_counts_agree():
    mine = [molecule("a", "C"), molecule("b", "N")]
    theirs = [molecule("x", "O"), None]
    assert reading.pair_entries("sdf", mine, theirs) == [(0, 0), (1, 1)]


def test_an_entry_one_reader_splits_does_not_shift_the_others():
    mine = [molecule("a", "CC"), molecule("b", "CCC"), molecule("", "C"), molecule("c", "CCCC")]
    theirs = [molecule("a", "CC"), molecule("b", "CCC"), molecule("c", "CCCC")]
    assert reading.pair_entries("sdf", mine, theirs) == [(0, 0), (1, 1), (2, None), (3, 2)]


def test_entries_a_reader_cannot_read_keep_their_place():
    mine = ["kora's message", molecule("b", "N"), molecule("c", "O")]
    theirs = [molecule("a", "C"), None, molecule("x", "S"), molecule("c", "O")]
    pairs = reading.pair_entries("sdf", mine, theirs)
    assert (2, 3) in pairs
    assert sorted(j for _, j in pairs if j is not None) == [0, 1, 2, 3]


def test_a_peer_of_one_structure_per_file_pairs_the_first_entry():
    mine = [reading.Structure("1"), reading.Structure("2")]
    assert reading.pair_entries("pdb", mine, [reading.Structure("1")]) == [(0, 0), (1, None)]


# ---------------------------------------------------------------------------------------------
# Alternate locations

def pdb_atom(name, altloc, occupancy, resnum=1, resname="SER", chain="A", x=0.0):
    return reading.Atom("C", 0, (x, 0.0, 0.0), name, altloc, resname, resnum, chain, occupancy)


@pytest.mark.parametrize("atoms, kept", [
    # The letter of the highest mean occupancy, and every atom without a letter.
    ([("N", "", 1.0), ("CA", "A", 0.4), ("CB", "A", 0.4), ("CA", "B", 0.6), ("CB", "B", 0.6)],
     ["N", "CA.B", "CB.B"]),
    # Ties go to the letter written first.
    ([("CA", "B", 0.5), ("CA", "A", 0.5)], ["CA.B"]),
    # The mean, not the first atom, decides.
    ([("CA", "A", 0.7), ("CB", "A", 0.1), ("CA", "B", 0.5), ("CB", "B", 0.5)],
     ["CA.B", "CB.B"]),
])
def test_one_location_per_residue(atoms, kept):
    found = reading.one_location_per_residue([(pdb_atom(n, alt, occ), "") for n, alt, occ in atoms])
    assert [a.name + ("." + a.altloc if a.altloc else "") for a in found] == kept


def test_each_residue_selects_its_own_location():
    atoms = [(pdb_atom("CA", "A", 0.6, 1), ""), (pdb_atom("CA", "B", 0.4, 1), ""),
             (pdb_atom("CA", "A", 0.3, 2), ""), (pdb_atom("CA", "B", 0.7, 2), ""),
             # an insertion code makes another residue
             (pdb_atom("CA", "A", 0.2, 2), "A"), (pdb_atom("CA", "B", 0.1, 2), "A"),
             # two names at one number (microheterogeneity) are one residue
             (pdb_atom("CA", "A", 0.4, 3, "SER"), ""), (pdb_atom("CA", "B", 0.6, 3, "THR"), "")]
    found = reading.one_location_per_residue(atoms)
    assert [(a.resnum, a.altloc, a.resname) for a in found] == \
        [(1, "A", "SER"), (2, "B", "SER"), (2, "A", "SER"), (3, "B", "THR")]


# ---------------------------------------------------------------------------------------------
# Differences of SD and Mol2 entries

BENZENE = "CCCCCC"
RING = [(0, 1, "ar"), (1, 2, "ar"), (2, 3, "ar"), (3, 4, "ar"), (4, 5, "ar"), (0, 5, "ar")]


@pytest.mark.parametrize("mine, expected", [
    (molecule("b", BENZENE, bonds=RING), []),
    (molecule("b", "CCNCCC", bonds=RING), ["element N != C"]),
    (molecule("b", BENZENE, [0, 0, 1, 0, 0, 0], bonds=RING), ["formal charge of C +1 != +0"]),
    (molecule("b", BENZENE, bonds=RING[:-1]), ["bonds only in RDKit"]),
    (molecule("b", BENZENE, bonds=RING + [(0, 3, 1)]), ["bonds only in kora"]),
    (molecule("b", BENZENE, bonds=[(i, j, 1 if k % 2 else 2) for k, (i, j, _) in enumerate(RING)]),
     ["bond order 1 != ar (C-C)", "bond order 2 != ar (C-C)"]),
    (molecule("b", BENZENE + "H", bonds=RING), ["atom count differs"]),
])
def test_molecular_differences(mine, expected):
    theirs = molecule("b", BENZENE, bonds=RING)
    assert groups(reading.compare_molecular(mine, theirs, "rdkit")) == expected


def test_a_difference_names_the_first_atom_and_counts_the_others():
    mine = molecule("m", ["C", "Cl", "C", "Cl"])
    theirs = molecule("m", "CCCC")
    [d] = reading.compare_molecular(mine, theirs, "rdkit")
    assert d.text == "atom 2: element Cl != C (2 in all)"


def test_atoms_pair_by_position_not_by_order():
    mine = molecule("m", "CNO")
    theirs = Entry("m")
    theirs.atoms = [mine.atoms[2], mine.atoms[0], mine.atoms[1]]
    mine.bonds = [(0, 1, 1), (1, 2, 2)]
    theirs.bonds = [(1, 2, 1), (0, 2, 2)]
    assert reading.compare_molecular(mine, theirs, "rdkit") == []


def test_mol2_charges_are_named_by_the_atom_type_the_peer_read():
    mine = molecule("m", "CO")
    theirs = molecule("m", "CO", [0, -1])
    theirs.types = ["C.2", "O.co2"]
    assert groups(reading.compare_molecular(mine, theirs, "rdkit")) == \
        ["formal charge of O.co2 +0 != -1"]


# ---------------------------------------------------------------------------------------------
# Differences of crystal structures

P21 = frozenset(parse_operator(o) for o in ("x,y,z", "-x,y+1/2,-z"))
P1 = frozenset([parse_operator("x,y,z")])
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
    (PEER_SITES + [("C1", "C", (-0.1, 0.7, -0.3))], {}, []),
    ([("C1", "C", (1.1, 0.2, 0.3)), ("O1", "O", (0.4, 0.1, 0.2), 0.5)], {}, []),
    (PEER_SITES, {"q_peaks": 3}, ["Q peaks read as atoms by kora"]),
    ([PEER_SITES[0], ("O1", "O", (0.4, 0.1, 0.2), 1.0)], {}, ["occupancy differs"]),
    ([PEER_SITES[0], ("O1", "N", (0.4, 0.1, 0.2), 0.5)], {}, ["element N != O"]),
    ([PEER_SITES[0]], {}, ["atom count differs (sites of the asymmetric unit)",
                           "atoms of cctbx at no kora site"]),
    ([PEER_SITES[0], ("O1", "O", (0.42, 0.1, 0.2), 0.5)], {}, ["position differs"]),
    (PEER_SITES, {"ops": P1}, ["space-group operators differ"]),
    (PEER_SITES, {"cell": (10.0, 11.0, 12.1, 90.0, 100.0, 90.0)}, ["cell differs"]),
])
def test_res_differences(atoms, options, expected):
    mine = crystal(atoms, **options)
    theirs = crystal(PEER_SITES)
    assert groups(reading.compare_res(mine, theirs, "cctbx")) == expected


def pdb_structure(models, cell=None):
    s = reading.Structure("p")
    s.models = models
    s.all_locations = models
    s.cell = cell
    return s


def test_pdb_counts_name_a_kora_that_keeps_every_location():
    both = [pdb_atom("N", "", 1.0, x=0.0), pdb_atom("CA", "A", 0.6, x=1.5),
            pdb_atom("CA", "B", 0.4, x=1.6)]
    theirs = pdb_structure([[both[0], both[1]]])
    theirs.all_locations = [both]
    [d] = reading.compare_pdb(pdb_structure([both]), theirs, "gemmi")
    assert d.group == "atoms per model differ: kora keeps every alternate location"
    assert d.text == "model 1: 3 atoms != 2"


def test_pdb_differences_per_model_and_field():
    theirs = pdb_structure([[pdb_atom("N", "", 1.0), pdb_atom("CA", "", 1.0, x=1.5)],
                            [pdb_atom("N", "", 1.0, x=5.0)]])
    mine = pdb_structure([[pdb_atom("N", "", 1.0), pdb_atom("CA", "", 1.0, x=1.5, chain="B")],
                          [pdb_atom("N", "", 1.0, x=5.0, resnum=7)]], cell=CELL)
    found = {d.group: d.text for d in reading.compare_pdb(mine, theirs, "gemmi")}
    assert found == {"chain differs": "model 1, atom CA SER A1: chain B != A",
                     "residue number differs": "model 2, atom N SER A1: residue number 7 != 1",
                     "cell only in kora": "cell only in kora: 10 11 12 90 100 90"}


# ---------------------------------------------------------------------------------------------
# A run that goes on

def run_one(monkeypatch, tmp_path, kora_reader, peer_reader):
    path = tmp_path / "two.sdf"
    path.write_text("")
    monkeypatch.setattr(reading, "read_kora", kora_reader)
    monkeypatch.setitem(reading.PEER_READERS, "rdkit", peer_reader)
    tally = reading.Tally()
    args = types.SimpleNamespace(timeout=30, max_entries=0)
    reading.check_file(args, "sdf", str(path), tally)
    out = io.StringIO()
    reading.report(tally, out, args.timeout)
    return tally, out.getvalue()


def two_molecules(*_):
    return [molecule("a", "CC"), molecule("b", "CO")]


def test_an_entry_kora_cannot_read_is_a_difference(monkeypatch, tmp_path):
    tally, text = run_one(monkeypatch, tmp_path,
                          lambda *_: (["line 4: bad counts line", molecule("b", "CO")], ["a", "b"]),
                          two_molecules)
    assert "| sdf | RDKit | 2 | 2 | 1 | 50.0 |" in text
    [row] = tally.differences
    assert row[5].text == "kora cannot read the entry: line 4: bad counts line"
    assert row[5].group == "kora cannot read the entry: line N: bad counts line"


def test_a_peer_that_fails_leaves_the_entries_uncompared(monkeypatch, tmp_path):
    def failing(*_):
        raise ValueError("no such thing")

    tally, text = run_one(monkeypatch, tmp_path, lambda *_: (two_molecules(), ["a", "b"]), failing)
    assert "| sdf | RDKit | 2 | 0 | 0 | 100.0 |" in text
    assert "RDKit cannot read the file: ValueError: no such thing: 2" in text
    assert not tally.differences


@pytest.mark.parametrize("how, reason", [
    (lambda: os.kill(os.getpid(), signal.SIGKILL), "ended without an answer"),
    (lambda: __import__("time").sleep(60), "timed out"),
])
def test_a_kora_that_crashes_or_hangs_is_a_difference_of_every_entry(monkeypatch, tmp_path, how,
                                                                     reason):
    def kora_reader(*_):
        how()

    monkeypatch.setattr(reading, "read_kora", kora_reader)
    monkeypatch.setitem(reading.PEER_READERS, "rdkit", two_molecules)
    path = tmp_path / "x.sdf"
    path.write_text("")
    tally = reading.Tally()
    reading.check_file(types.SimpleNamespace(timeout=2, max_entries=0), "sdf", str(path), tally)
    assert len(tally.differences) == 2
    assert all(reason in row[5].text for row in tally.differences)


def test_an_entry_neither_reader_reads_is_listed_not_counted(monkeypatch, tmp_path):
    tally, text = run_one(monkeypatch, tmp_path,
                          lambda *_: (["no atoms", molecule("b", "CO")], ["a", "b"]),
                          lambda *_: [None, molecule("b", "CO")])
    assert "| sdf | RDKit | 2 | 1 | 1 | 100.0 |" in text
    assert "RDKit gives no molecule (kora cannot read it either): 1 (two.sdf)" in text
    assert not tally.differences
