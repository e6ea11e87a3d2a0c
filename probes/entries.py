"""Entries of the interchange and reading checks in a form every reader can produce: atoms,
bonds, cell and space-group operators in one spelling, and the matching of atoms by position
(up to symmetry in a crystal) within the tolerance."""

import collections
import math
import re
from fractions import Fraction

COORD_TOLERANCE = 1e-3


class Entry:
    def __init__(self, identifier=""):
        self.identifier = identifier
        self.atoms = []  # (element, charge, (x, y, z))
        self.bonds = []  # (i, j, order) with i < j, order 1, 2, 3, "ar" or 0
        self.cell = None  # (a, b, c, alpha, beta, gamma)
        self.ops = None  # frozenset of normalised operators
        self.fractional = {}  # atom position -> fractional coordinates, where the reader gives them
        self.index = 0  # position in its file


def element_of(symbol, mass=0):
    """Element symbols in one spelling: deuterium and tritium as D and T."""
    s = symbol.strip().capitalize()
    if s == "H" and mass == 2:
        return "D"
    if s == "H" and mass == 3:
        return "T"
    return s


def bond_order(value):
    return {1: 1, 2: 2, 3: 3}.get(value, "ar" if value in ("ar", 5, 1.5) else 0)


_TERM = re.compile(r"([+-]?)([^+-]+)")


def parse_operator(text):
    """An operator written as x,y,z triplets, as a (rotation, translation) pair."""
    rows = []
    trans = []
    for part in text.lower().replace(" ", "").split(","):
        row = [0, 0, 0]
        t = Fraction(0)
        for sign, term in _TERM.findall(part):
            k = -1 if sign == "-" else 1
            if term in ("x", "y", "z"):
                row["xyz".index(term)] += k
            elif term and term[-1] in "xyz":
                row["xyz".index(term[-1])] += k * int(Fraction(term[:-1].rstrip("*")))
            else:
                t += k * Fraction(term).limit_denominator(24)
        rows.append(tuple(row))
        trans.append(t)
    return normalised_op(rows, trans)


def normalised_op(rotation, translation):
    t = tuple(float(Fraction(v).limit_denominator(24) % 1) if not isinstance(v, float)
              else round(v % 1.0, 4) % 1.0 for v in translation)
    return (tuple(tuple(int(round(x)) for x in r) for r in rotation), tuple(round(v, 4) for v in t))


def normalise_cell(values):
    return tuple(float(v) for v in values)


def has_real_cell(cell):
    return cell is not None and not all(abs(v - w) < 1e-9 for v, w in zip(cell, (1, 1, 1, 90, 90, 90)))


def fractional(cell, xyz):
    a, b, c, al, be, ga = cell
    al, be, ga = (math.radians(v) for v in (al, be, ga))
    cos_a, cos_b, cos_g, sin_g = math.cos(al), math.cos(be), math.cos(ga), math.sin(ga)
    v = math.sqrt(1 - cos_a ** 2 - cos_b ** 2 - cos_g ** 2 + 2 * cos_a * cos_b * cos_g)
    x, y, z = xyz
    fz = z / (c * v / sin_g)
    fy = (y - fz * c * (cos_a - cos_b * cos_g) / sin_g) / (b * sin_g)
    fx = (x - fy * b * cos_g - fz * c * cos_b) / a
    return fx, fy, fz


class Matcher:
    """Finds the atom of a reference list at a position, within the tolerance, by a grid."""

    def __init__(self, atoms, cell=None, ops=None, fractionals=None):
        self.cell = cell
        self.grid = collections.defaultdict(list)
        self.step = 0.01
        for k, (el, _, xyz) in enumerate(atoms):
            f = (fractionals or {}).get(k)
            for p in self.images(xyz, ops, f):
                self.grid[self.key(p)].append((k, p))

    def images(self, xyz, ops, f=None):
        if self.cell is None or not ops:
            return [xyz]
        if f is None:
            f = fractional(self.cell, xyz)
        out = []
        for rot, tran in ops:
            g = [sum(rot[r][c] * f[c] for c in range(3)) + tran[r] for r in range(3)]
            out.append(tuple(v % 1.0 for v in g))
        return out

    def key(self, p):
        k = tuple(int(math.floor(v / self.step)) for v in p)
        if self.cell is None:
            return k
        n = int(round(1 / self.step))
        return tuple(v % n for v in k)  # -1e-17 % 1.0 is 1.0 in floating point

    def find(self, xyz, periodic, f=None):
        found = self.candidates(xyz, periodic, f)
        return found[0] if found else None

    def candidates(self, xyz, periodic, f=None):
        """The reference atoms within the tolerance of a position, nearest first; in a crystal
        the fractional coordinates are compared (the reader's own when given: a file's
        Cartesian frame need not be the standard one)."""
        if periodic:
            if f is None:
                f = fractional(self.cell, xyz)
            p = tuple(v % 1.0 for v in f)
            tol = COORD_TOLERANCE / min(self.cell[:3]) * 2
        else:
            p = xyz
            tol = COORD_TOLERANCE
        kx, ky, kz = self.key(p)
        found = {}
        n = int(1 / self.step)
        for dx in (-1, 0, 1):
            for dy in (-1, 0, 1):
                for dz in (-1, 0, 1):
                    k = (kx + dx, ky + dy, kz + dz)
                    if periodic:
                        k = tuple(v % n for v in k)
                    for idx, q in self.grid.get(k, ()):
                        d = [abs(a - b) for a, b in zip(p, q)]
                        if periodic:
                            d = [min(v, 1 - v) for v in d]
                        if max(d) <= tol and max(d) < found.get(idx, 2.0):
                            found[idx] = max(d)
        return sorted(found, key=lambda idx: (found[idx], idx))

