#!/usr/bin/env python3
"""Checks, by hand (not part of the test suite), that other programs read kora's standard PDB
output as they read the original file.

For every PDB file of the corpus: convert it with kora (standard writing), then read the
original and the output with gemmi (atoms of every model with their elements and positions,
cell, space group operators) and with RDKit (atoms, bonds and bond orders of the first
model), and print what differs.

Usage: peer_check.py [--corpus DIR] [--convert 'kora convert {input} {output}']
Needs python3-gemmi and python3-rdkit (Debian packages).
"""

import argparse
import collections
import os
import pathlib
import shlex
import subprocess
import sys
import tempfile

import gemmi
from rdkit import Chem, RDLogger

RDLogger.DisableLog("rdApp.*")


def gemmi_view(path):
    """Atoms as (model index, element, position in thousandths), cell and space group."""
    try:
        st = gemmi.read_structure(str(path))
    except RuntimeError as error:
        return str(error), None, None
    atoms = collections.Counter()
    for m, model in enumerate(st):
        for chain in model:
            for residue in chain:
                for atom in residue:
                    p = atom.pos
                    atoms[(m, atom.element.name.upper(), round(p.x * 1000), round(p.y * 1000),
                           round(p.z * 1000))] += 1
    cell = st.cell
    group = st.find_spacegroup()
    operators = sorted(op.triplet() for op in group.operations()) if group else []
    return atoms, (cell.a, cell.b, cell.c, cell.alpha, cell.beta, cell.gamma), operators


def rdkit_view(path):
    """Atoms as (element, position in thousandths) and bonds as pairs of atoms with orders."""
    mol = Chem.MolFromPDBFile(str(path), sanitize=False, removeHs=False, proximityBonding=True)
    if mol is None:
        return None, None
    conf = mol.GetConformer()
    keys = []
    for atom in mol.GetAtoms():
        p = conf.GetAtomPosition(atom.GetIdx())
        keys.append((atom.GetSymbol().upper(), round(p.x * 1000), round(p.y * 1000),
                     round(p.z * 1000)))
    bonds = collections.Counter()
    for bond in mol.GetBonds():
        a, b = sorted((keys[bond.GetBeginAtomIdx()], keys[bond.GetEndAtomIdx()]))
        bonds[(a, b, bond.GetBondTypeAsDouble())] += 1
    return collections.Counter(keys), bonds


def main():
    here = pathlib.Path(__file__).resolve()
    parser = argparse.ArgumentParser()
    parser.add_argument("--corpus", default=os.environ.get(
        "KORA_CORPUS", str(here.parents[3] / "shared" / "corpus")))
    parser.add_argument("--convert", default="kora convert {input} {output}")
    args = parser.parse_args()
    files = sorted(p for p in (pathlib.Path(args.corpus) / "pdb").iterdir() if p.is_file())
    failures = 0
    with tempfile.TemporaryDirectory() as scratch:
        for path in files:
            output = pathlib.Path(scratch) / (path.stem + ".pdb")
            command = [part.format(input=path, output=output)
                       for part in shlex.split(args.convert)]
            subprocess.run(command, check=True)
            notes = []
            atoms0, cell0, ops0 = gemmi_view(path)
            atoms1, cell1, ops1 = gemmi_view(output)
            if isinstance(atoms1, str):
                notes.append("gemmi cannot read the output: " + atoms1)
            elif isinstance(atoms0, str):
                notes.append("(gemmi cannot read the original: %s)" % atoms0)
            elif atoms0 != atoms1:
                notes.append("gemmi atoms: %d -> %d, %d differ" % (
                    sum(atoms0.values()), sum(atoms1.values()),
                    sum(((atoms0 - atoms1) + (atoms1 - atoms0)).values())))
            if cell0 and cell1 and any(abs(x - y) > 1e-3 for x, y in zip(cell0, cell1)):
                notes.append("gemmi cell %s -> %s" % (cell0, cell1))
            # A file without a space group is written as P 1.
            if ops0 and ops1 and ops0 != ops1:
                notes.append("gemmi space group operators differ")
            r_atoms0, r_bonds0 = rdkit_view(path)
            r_atoms1, r_bonds1 = rdkit_view(output)
            if r_atoms0 is None or r_atoms1 is None:
                notes.append("RDKit read nothing (original %s, output %s)" % (
                    r_atoms0 is not None, r_atoms1 is not None))
            else:
                if r_atoms0 != r_atoms1:
                    notes.append("RDKit atoms: %d -> %d" % (
                        sum(r_atoms0.values()), sum(r_atoms1.values())))
                if r_bonds0 != r_bonds1:
                    notes.append("RDKit bonds: %d -> %d, %d only in the original, %d only in "
                                 "the output" % (sum(r_bonds0.values()), sum(r_bonds1.values()),
                                                 sum((r_bonds0 - r_bonds1).values()),
                                                 sum((r_bonds1 - r_bonds0).values())))
            gemmi_atoms = sum(atoms1.values()) if isinstance(atoms1, collections.Counter) else 0
            rdkit_atoms = sum(r_atoms1.values()) if r_atoms1 else 0
            rdkit_bonds = sum(r_bonds1.values()) if r_bonds1 else 0
            print("%-40s gemmi %6d atoms, RDKit %6d atoms %6d bonds: %s" % (
                path.name, gemmi_atoms, rdkit_atoms, rdkit_bonds,
                "; ".join(notes) if notes else "same"))
            failures += any(not note.startswith("(") for note in notes)
    print("%d of %d files differ" % (failures, len(files)))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
