"""The comparison of what kora and a peer read of one entry: each difference with its reason
in full and grouped (Difference); and the pairing of the two readers' entries of a file."""

import collections
import difflib
import math

from entries import COORD_TOLERANCE, Entry, Matcher, parse_operator
from reading_peers import Atom

# What each peer is called in the report.
PEER_NAMES = {"rdkit": "RDKit", "gemmi": "gemmi", "cctbx": "cctbx"}
CELL_TOLERANCE = 1e-4
OCCUPANCY_TOLERANCE = 1e-3
IDENTITY = frozenset([parse_operator("x,y,z")])


class Difference:
    """One way an entry differs: `group` is the reason without the entry's particulars (what
    the report counts), `text` the reason in full."""

    def __init__(self, group, text):
        self.group, self.text = group, text


# ---------------------------------------------------------------------------------------------
# Comparison

def first_of(differences, group, text, count):
    """Records a kind of difference once per entry, with how many times it occurs."""
    if count:
        differences.append(Difference(group, text + ("" if count == 1 else " (%d in all)" % count)))


def pair_by_position(kora_atoms, peer_atoms, same, periodic=False, cell=None, ops=None):
    """{peer index: kora index}: each peer atom paired with an unused kora atom at its place
    (within 0.001 A, up to symmetry when periodic), the best by `same` (a score of how alike
    two atoms are), the same index on ties. Atoms at no place of the other reader are paired
    by index when both are free (2-D records at the origin, positions that differ)."""
    matcher = Matcher([(a.element, 0, a.xyz) for a in kora_atoms], cell, ops,
                      {k: a.fractional for k, a in enumerate(kora_atoms) if a.fractional})
    mapping, used = {}, set()
    for t, p in enumerate(peer_atoms):
        found = [k for k in matcher.candidates(p.xyz, periodic, p.fractional) if k not in used]
        if found:
            k = max(found, key=lambda k: (same(kora_atoms[k], p), k == t))
            mapping[t] = k
            used.add(k)
    for t in range(len(peer_atoms)):
        if t not in mapping and t < len(kora_atoms) and t not in used and not periodic:
            mapping[t] = t
            used.add(t)
    return mapping


def as_atoms(entry):
    return [Atom(el, q, xyz) for el, q, xyz in entry.atoms]


def compare_molecular(k, p, peer):
    """Differences of an SD or Mol2 entry (atom indexes are the peer's, from 1)."""
    differences = []
    if len(k.atoms) != len(p.atoms):
        return [Difference("atom count differs",
                           "%d atoms != %d" % (len(k.atoms), len(p.atoms)))]
    ka, pa = as_atoms(k), as_atoms(p)
    # Mol2 atoms are named by the type the peer read: its charges and orders follow from it.
    kind = getattr(p, "types", None) or [a.element for a in pa]
    kind = [t or a.element for t, a in zip(kind, pa)]
    mapping = pair_by_position(ka, pa, lambda x, y: x.element == y.element)
    elements, charges, moved = collections.defaultdict(list), collections.defaultdict(list), []
    for t, atom in enumerate(pa):
        if t not in mapping:
            moved.append(t)
            continue
        mine = ka[mapping[t]]
        if mine.element != atom.element:
            elements[(mine.element or "none", atom.element or "none")].append(t)
        elif mine.charge != atom.charge:
            charges[(kind[t], mine.charge, atom.charge)].append(t)
        if max(abs(u - v) for u, v in zip(mine.xyz, atom.xyz)) > COORD_TOLERANCE:
            moved.append(t)
    element_differences(differences, elements, lambda t: t + 1)
    for (element, mine, theirs), atoms in sorted(charges.items()):
        first_of(differences, "formal charge of %s %+d != %+d" % (element, mine, theirs),
                 "atom %d (%s): charge %+d != %+d" % (atoms[0] + 1, element, mine, theirs),
                 len(atoms))
    if moved:
        t = moved[0]
        first_of(differences, "coordinates differ",
                 "atom %d (%s) at %s: no kora atom there" % (t + 1, pa[t].element, rounded(pa[t].xyz)),
                 len(moved))
    back = {kk: t for t, kk in mapping.items()}
    mine = {}
    for i, j, order in k.bonds:
        if i in back and j in back:
            a, b = back[i], back[j]
            mine[(min(a, b), max(a, b))] = order
    theirs = {(i, j): order for i, j, order in p.bonds}
    name = PEER_NAMES[peer]

    def bond_text(key, order):
        return "%d-%d (%s-%s, order %s)" % (key[0] + 1, key[1] + 1, pa[key[0]].element,
                                            pa[key[1]].element, order)

    only_theirs = sorted(set(theirs) - set(mine))
    only_mine = sorted(set(mine) - set(theirs))
    if only_theirs:
        first_of(differences, "bonds only in " + name,
                 "bond %s only in %s" % (bond_text(only_theirs[0], theirs[only_theirs[0]]), name),
                 len(only_theirs))
    if only_mine:
        first_of(differences, "bonds only in kora",
                 "bond %s only in kora" % bond_text(only_mine[0], mine[only_mine[0]]),
                 len(only_mine))
    orders = collections.defaultdict(list)
    for key in sorted(set(mine) & set(theirs)):
        if mine[key] != theirs[key]:
            orders[(mine[key], theirs[key])].append(key)
    for (a, b), keys in sorted(orders.items(), key=str):
        by_kind = collections.defaultdict(list)
        for i, j in keys:
            by_kind["-".join(sorted((kind[i], kind[j])))].append((i, j))
        for pair, found in sorted(by_kind.items()):
            i, j = found[0]
            first_of(differences, "bond order %s != %s (%s)" % (order_name(a), order_name(b), pair),
                     "bond %d-%d (%s-%s): order %s != %s" % (i + 1, j + 1, kind[i], kind[j],
                                                             order_name(a), order_name(b)),
                     len(found))
    return differences


def element_differences(differences, elements, name):
    """One difference per pair of elements: {(kora's, the peer's): [atoms]}, each atom shown
    by name(atom)."""
    for (mine, theirs), atoms in sorted(elements.items()):
        first_of(differences, "element %s != %s" % (mine, theirs),
                 "atom %s: element %s != %s" % (name(atoms[0]), mine, theirs), len(atoms))


def order_name(order):
    return "other" if order == 0 else str(order)


def rounded(xyz):
    return "(%s)" % ", ".join("%.3f" % v for v in xyz)


def compare_cell(k, p, peer, differences):
    name = PEER_NAMES[peer]
    if k.cell is None and p.cell is None:
        return
    if k.cell is None or p.cell is None:
        who = "kora" if p.cell is None else name
        cell = k.cell or p.cell
        first_of(differences, "cell only in " + who,
                 "cell only in %s: %s" % (who, " ".join("%g" % v for v in cell)), 1)
        return
    if any(abs(a - b) > CELL_TOLERANCE * max(1.0, abs(b)) for a, b in zip(k.cell, p.cell)):
        first_of(differences, "cell differs",
                 "cell %s != %s" % (" ".join("%g" % v for v in k.cell),
                                    " ".join("%g" % v for v in p.cell)), 1)
    if k.ops is not None and p.ops is not None and k.ops != p.ops:
        first_of(differences, "space-group operators differ",
                 "space group %s (%d operators) != %s (%d)"
                 % (k.symbol or "?", len(k.ops), p.symbol or "?", len(p.ops)), 1)
    elif (k.ops is None) != (p.ops is None):
        who = "kora" if p.ops is None else name
        first_of(differences, "space group only in " + who,
                 "space group only in %s: %s" % (who, k.symbol if p.ops is None else p.symbol), 1)


PDB_FIELDS = [("element", "element"), ("resname", "residue name"), ("resnum", "residue number"),
              ("chain", "chain"), ("altloc", "alternate location")]


def pdb_likeness(x, y):
    return tuple(getattr(x, f) == getattr(y, f) for f in ("name", "altloc", "resnum", "chain",
                                                          "resname", "element"))


def compare_pdb(k, p, peer):
    differences = []
    name = PEER_NAMES[peer]
    if len(k.models) != len(p.models):
        first_of(differences, "model count differs",
                 "%d models != %d" % (len(k.models), len(p.models)), 1)
    fields = collections.defaultdict(list)
    counts, unpaired_mine, unpaired_theirs = [], [], []
    for m, (mine, theirs) in enumerate(zip(k.models, p.models)):
        if len(mine) != len(theirs):
            counts.append((m, len(mine), len(theirs), len(p.all_locations[m])))
        mapping = pair_by_position(mine, theirs, pdb_likeness)
        for t, atom in enumerate(theirs):
            if t not in mapping:
                unpaired_theirs.append((m, atom))
                continue
            a = mine[mapping[t]]
            for field, label in PDB_FIELDS:
                if field == "resnum" and not a.resname and not atom.resname:
                    continue  # kora's Python atoms give no number for a residue without name
                if getattr(a, field) != getattr(atom, field):
                    fields[label].append((m, atom, getattr(a, field), getattr(atom, field)))
        used = set(mapping.values())
        unpaired_mine.extend((m, a) for kk, a in enumerate(mine) if kk not in used)
    every_location = [c for c in counts if c[1] == c[3]]
    for group, found in (("atoms per model differ: kora keeps every alternate location",
                          every_location),
                         ("atoms per model differ", [c for c in counts if c[1] != c[3]])):
        if found:
            m, mine, theirs, _ = found[0]
            first_of(differences, group, "model %d: %d atoms != %d" % (m + 1, mine, theirs),
                     len(found))
    for label, found in fields.items():
        by_values = collections.OrderedDict()
        for m, atom, mine, theirs in found:
            key = (mine, theirs) if label == "element" else ()
            by_values.setdefault(key, []).append((m, atom, mine, theirs))
        for key, items in by_values.items():
            m, atom, mine, theirs = items[0]
            group = "%s differs" % label + (" (%s != %s)" % (mine or "none", theirs or "none")
                                            if key else "")
            first_of(differences, group, "model %d, atom %s: %s %s != %s"
                     % (m + 1, atom.where(), label, show(mine), show(theirs)), len(items))
    if not counts:
        # With the same number of atoms, an atom at no place of the other reader is a position
        # that differs; with different numbers the counts say it.
        for who, found in (("kora", unpaired_mine), (name, unpaired_theirs)):
            if found:
                m, atom = found[0]
                first_of(differences, "atoms at no place of the other reader",
                         "model %d: %s atom %s at %s" % (m + 1, who, atom.where(), rounded(atom.xyz)),
                         len(found))
    compare_cell(k, p, peer, differences)
    return differences


def show(value):
    return "none" if value in ("", None) else str(value)


def sites(structure):
    """The atoms of a crystal structure one per site: atoms of the same name and element that
    are symmetry images of one another (a molecule completed by symmetry) are one."""
    atoms = structure.models[0]
    if structure.cell is None:
        return atoms
    matcher = Matcher([(a.element, 0, a.xyz) for a in atoms], structure.cell,
                      structure.ops or IDENTITY,
                      {k: a.fractional for k, a in enumerate(atoms) if a.fractional})
    kept = []
    for k, a in enumerate(atoms):
        images = [j for j in matcher.candidates(a.xyz, True, a.fractional)
                  if atoms[j].name.upper() == a.name.upper() and atoms[j].element == a.element]
        if min(images or [k]) == k:
            kept.append(a)
    return kept


def site_distance(cell, ops, f, g):
    """The shortest distance in angstroms between a site and the images of another."""
    a, b, c, al, be, ga = cell
    ca, cb, cg = (math.cos(math.radians(v)) for v in (al, be, ga))
    g2 = [[a * a, a * b * cg, a * c * cb], [a * b * cg, b * b, b * c * ca],
          [a * c * cb, b * c * ca, c * c]]
    best = float("inf")
    for rot, tran in ops:
        image = [sum(rot[r][k] * g[k] for k in range(3)) + tran[r] for r in range(3)]
        d = [(x - y + 0.5) % 1.0 - 0.5 for x, y in zip(f, image)]
        best = min(best, math.sqrt(max(0.0, sum(d[i] * g2[i][j] * d[j]
                                                for i in range(3) for j in range(3)))))
    return best


def res_likeness(x, y):
    return (x.name.upper() == y.name.upper(), x.element == y.element)


def compare_res(k, p, peer):
    differences = []
    name = PEER_NAMES[peer]
    if k.q_peaks:
        first_of(differences, "Q peaks read as atoms by kora",
                 "kora reads %d Q peaks as atoms" % k.q_peaks, 1)
    compare_cell(k, p, peer, differences)
    if k.cell is None or p.cell is None:
        return differences
    mine, theirs = sites(k), p.models[0]
    if len(mine) != len(theirs):
        first_of(differences, "atom count differs (sites of the asymmetric unit)",
                 "%d atoms != %d" % (len(mine), len(theirs)), 1)
    mapping = pair_by_position(mine, theirs, res_likeness, True, p.cell, p.ops or IDENTITY)
    elements, occupancies, missing = collections.defaultdict(list), [], []
    for t, atom in enumerate(theirs):
        if t not in mapping:
            missing.append(atom)
            continue
        a = mine[mapping[t]]
        if a.element != atom.element:
            elements[(a.element or "none", atom.element or "none")].append(atom)
        if abs(a.occupancy - atom.occupancy) > OCCUPANCY_TOLERANCE:
            occupancies.append((atom, a.occupancy))
    element_differences(differences, elements, lambda atom: atom.name)
    if occupancies:
        atom, value = occupancies[0]
        first_of(differences, "occupancy differs",
                 "occupancy of atom %s %.4g != %.4g" % (atom.name, value, atom.occupancy),
                 len(occupancies))
    used = set(mapping.values())
    extra = [a for kk, a in enumerate(mine) if kk not in used]
    moved = []
    for atom in list(missing):
        same = [a for a in extra if a.name.upper() == atom.name.upper() and a.element == atom.element]
        if same:
            moved.append((atom, same[0]))
            missing.remove(atom)
            extra.remove(same[0])
    for special in (True, False):
        found = [(atom, a) for atom, a in moved if atom.special == special]
        if found:
            atom, a = found[0]
            group = "position differs" + (" (%s places the atom on a special position)" % name
                                          if special else "")
            first_of(differences, group, "atom %s at %s != %s (%.3f A apart)"
                     % (atom.name, rounded(a.fractional), rounded(atom.fractional),
                        site_distance(p.cell, p.ops or IDENTITY, a.fractional, atom.fractional)),
                     len(found))
    if missing:
        first_of(differences, "atoms of %s at no kora site" % name,
                 "%s atom %s at %s has no kora atom" % (name, missing[0].name,
                                                        rounded(missing[0].fractional)),
                 len(missing))
    if extra:
        first_of(differences, "kora atoms at no site of " + name,
                 "kora atom %s at %s is at no %s site" % (extra[0].name, rounded(extra[0].fractional
                                                                               or extra[0].xyz), name),
                 len(extra))
    return differences


def compare(fmt, k, p, peer):
    if fmt == "pdb":
        return compare_pdb(k, p, peer)
    if fmt == "res":
        return compare_res(k, p, peer)
    return compare_molecular(k, p, peer)


# ---------------------------------------------------------------------------------------------
# Pairing entries

def signature(entry):
    if isinstance(entry, Entry):
        return (entry.identifier.strip(), len(entry.atoms))
    return (entry.identifier.strip(), entry.natoms())


def pair_entries(fmt, mine, theirs):
    """[(kora index or None, peer index or None)]: position by position when both readers
    find as many entries (or the peer reads one structure per file, PDB and RES); otherwise
    aligned by title and atom count, so that an entry one reader splits or misses does not
    shift the others."""
    if fmt in ("pdb", "res") or len(mine) == len(theirs):
        n = max(len(mine), len(theirs))
        return [(i if i < len(mine) else None, i if i < len(theirs) else None) for i in range(n)]
    a = [signature(e) if not isinstance(e, str) else ("kora", i) for i, e in enumerate(mine)]
    b = [signature(e) if e is not None else ("peer", i) for i, e in enumerate(theirs)]
    pairs = []
    for tag, i1, i2, j1, j2 in difflib.SequenceMatcher(None, a, b, autojunk=False).get_opcodes():
        n = max(i2 - i1, j2 - j1)
        for d in range(n):
            i, j = i1 + d, j1 + d
            pairs.append((i if i < i2 else None, j if j < j2 else None))
    return pairs

