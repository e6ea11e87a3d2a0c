"""Small independent readers of the example files, used as the expected values of the tests.

They understand only the plain layouts the repository's examples and the tests' own files
use, which is enough to tell whether the module reports what the files say.
"""

import re
from fractions import Fraction


def parse_sdf(text):
    """The records of a V2000 SD file: name, elements, coordinates, bonds and data items."""
    records = []
    lines = text.splitlines()
    i = 0
    while i < len(lines):
        name = lines[i]
        counts = lines[i + 3]
        natoms, nbonds = int(counts[0:3]), int(counts[3:6])
        atoms = lines[i + 4:i + 4 + natoms]
        elements = [line[31:34].strip() for line in atoms]
        coords = [(float(line[0:10]), float(line[10:20]), float(line[20:30])) for line in atoms]
        bonds = {}
        for line in lines[i + 4 + natoms:i + 4 + natoms + nbonds]:
            a, b, t = int(line[0:3]) - 1, int(line[3:6]) - 1, int(line[6:9])
            bonds[tuple(sorted((a, b)))] = t
        i += 4 + natoms + nbonds
        while not lines[i].startswith("M  END"):
            i += 1
        i += 1
        data = {}
        while lines[i] != "$$$$":
            match = re.match(r">.*<([^>]*)>", lines[i])
            if match:
                values = []
                i += 1
                while lines[i].strip():
                    values.append(lines[i])
                    i += 1
                data.setdefault(match.group(1), "\n".join(values))
            i += 1
        i += 1
        records.append(dict(name=name, elements=elements, coords=coords, bonds=bonds, data=data))
    return records


def parse_mol2(text):
    """The molecules of a Mol2 file: name, atom names, elements (from the SYBYL types),
    coordinates and bonds with their type strings."""
    molecules = []
    section = None
    for line in text.splitlines():
        if line.startswith("@<TRIPOS>"):
            section = line[9:].strip()
            if section == "MOLECULE":
                molecules.append(dict(name=None, labels=[], elements=[], coords=[], bonds={}))
            continue
        if not line.strip():
            continue
        current = molecules[-1] if molecules else None
        fields = line.split()
        if section == "MOLECULE" and current["name"] is None:
            current["name"] = line.strip()
        elif section == "ATOM":
            current["labels"].append(fields[1])
            current["elements"].append(fields[5].split(".")[0])
            current["coords"].append(tuple(float(v) for v in fields[2:5]))
        elif section == "BOND":
            a, b = int(fields[1]) - 1, int(fields[2]) - 1
            current["bonds"][tuple(sorted((a, b)))] = fields[3]
    return molecules


def parse_pdb(text):
    """The ATOM and HETATM records of a PDB file."""
    atoms = []
    for line in text.splitlines():
        if line.startswith(("ATOM  ", "HETATM")):
            charge = line[78:80].strip()
            atoms.append(dict(
                serial=int(line[6:11]),
                name=line[12:16].strip(),
                residue=line[17:20].strip() + line[22:26].strip(),
                coords=(float(line[30:38]), float(line[38:46]), float(line[46:54])),
                occupancy=float(line[54:60]),
                element=line[76:78].strip(),
                charge=0 if not charge else int(charge[-1] + charge[:-1]),
            ))
    return atoms


def parse_conect(text):
    """The bonds of the CONECT records of a PDB file, as pairs of serial numbers."""
    pairs = set()
    for line in text.splitlines():
        if line.startswith("CONECT"):
            serials = [int(line[i:i + 5]) for i in range(6, len(line.rstrip()), 5)]
            pairs.update(frozenset((serials[0], other)) for other in serials[1:])
    return pairs


def parse_res(text):
    """Cell, SFAC symbols and atoms (label, element, fractional coordinates) of a RES file."""
    cell = None
    sfac = []
    atoms = []
    commands = {"TITL", "CELL", "ZERR", "LATT", "SYMM", "SFAC", "UNIT", "FVAR", "HKLF", "END"}
    for line in text.splitlines():
        fields = line.split()
        if not fields:
            continue
        if fields[0] == "CELL":
            cell = tuple(float(v) for v in fields[2:8])
        elif fields[0] == "SFAC":
            sfac = fields[1:]
        elif fields[0] not in commands:
            element = sfac[int(fields[1]) - 1]
            atoms.append(dict(label=fields[0], element=element,
                              fractional=tuple(float(v) for v in fields[2:5])))
    return dict(cell=cell, sfac=sfac, atoms=atoms)


def parse_operator(text):
    """A symmetry operator such as "-x,1/2+y,1/2-z" or "-X, Y+0.5, -Z+1/2" as a rotation
    (tuple of rows) and a translation reduced modulo 1, both exact."""
    components = text.replace(" ", "").lower().split(",")
    if len(components) != 3:
        raise ValueError(f"not a symmetry operator: {text!r}")
    rotation = []
    translation = []
    for component in components:
        row = [0, 0, 0]
        shift = Fraction(0)
        for sign, term in re.findall(r"([+-]?)([^+-]+)", component):
            factor = -1 if sign == "-" else 1
            if term in ("x", "y", "z"):
                row["xyz".index(term)] += factor
            else:
                shift += factor * Fraction(term).limit_denominator(12)
        rotation.append(tuple(row))
        translation.append(shift % 1)
    return tuple(rotation), tuple(translation)
