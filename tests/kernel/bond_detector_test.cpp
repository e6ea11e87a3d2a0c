#include "kora/kernel/bond_detector.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using kora::Angle;
using kora::Atom;
using kora::BondDetector;
using kora::BondDistanceLimit;
using kora::Cell;
using kora::Element;
using kora::Molecule;
using kora::Point;
using kora::Site;
using kora::THandle;
using Pairs = std::vector<std::pair<int, int>>;

BondDetector const plain(BondDetector::molecular, BondDetector::no_refinement, BondDistanceLimit());
BondDetector const pruning(BondDetector::molecular, BondDetector::prune_hydrogens,
                           BondDistanceLimit());
BondDetector const crystal(BondDetector::crystal, BondDetector::no_refinement, BondDistanceLimit());

THandle<Atom> atom(char const* symbol, Point const& orthogonal, std::string label = "") {
  return kora::make_handle<kora::FileOrderedAtom3d>(0, Element(symbol), std::move(label),
                                                    kora::make_handle<Site>(Point(), orthogonal));
}

THandle<Atom> atom(Cell const& cell, char const* symbol, Point const& fractional,
                   std::string label = "") {
  return kora::make_handle<kora::FileOrderedAtom3d>(
      0, Element(symbol), std::move(label),
      kora::make_handle<Site>(fractional, cell.orthogonal(fractional)));
}

Cell make_cell(double a, double b, double c, double alpha, double beta, double gamma,
               char const* group) {
  return Cell(a, b, c, Angle::from_degrees(alpha), Angle::from_degrees(beta),
              Angle::from_degrees(gamma), kora::Spacegroup(group));
}

Pairs pairs(BondDetector const& detector, std::vector<THandle<Atom>> const& atoms) {
  Pairs out;
  auto const bonds = detector.bonds(atoms);
  for (auto const& b : *bonds) {
    EXPECT_EQ(b->type(), kora::unknown_bond);
    out.emplace_back(b->atom1(), b->atom2());
  }
  return out;
}

// Every pair tested against the documented rule, written out independently.
Pairs brute_force(std::vector<THandle<Atom>> const& atoms, double tolerance, bool relative) {
  Pairs out;
  for (std::size_t i = 0; i < atoms.size(); ++i)
    for (std::size_t j = i + 1; j < atoms.size(); ++j) {
      if (!atoms[i]->site() || !atoms[j]->site()) continue;
      Element const a = atoms[i]->element(), b = atoms[j]->element();
      if (!a.is_set() || !b.is_set()) continue;
      double const sum = a.covalent_radius() + b.covalent_radius();
      double const limit = relative ? sum * (1 + tolerance) : sum + tolerance;
      double const d = kora::norm(atoms[i]->site()->orthogonal() - atoms[j]->site()->orthogonal());
      if (d > 0.4 && d < limit) out.emplace_back(int(i), int(j));
    }
  return out;
}

// A random cloud of mixed elements, some atoms without a site or an element.
std::vector<THandle<Atom>> cloud(unsigned seed, int n, double side) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> coordinate(-side / 2, side / 2);
  char const* symbols[] = {"C", "C", "N", "O", "H", "H", "S", "Cl", "D", ""};
  std::vector<THandle<Atom>> atoms;
  for (int i = 0; i < n; ++i) {
    Point const p(coordinate(random), coordinate(random), coordinate(random));
    atoms.push_back(atom(symbols[random() % 10], p));
    if (random() % 50 == 0) atoms.back()->set_site({});
  }
  return atoms;
}

// The bonds of a molecule as pairs of positions, against those found from its geometry.
void expect_bonds_follow_geometry(Molecule const& molecule) {
  Pairs own;
  for (int b = 0; b < molecule.nbonds(); ++b) {
    auto [i, j] = molecule.bond_atoms(b);
    own.emplace_back(std::min(i, j), std::max(i, j));
  }
  std::sort(own.begin(), own.end());
  EXPECT_EQ(own, pairs(plain, {molecule.atoms().begin(), molecule.atoms().end()}));
}

TEST(BondDetectorBonds, MatchesEveryPairTestOnRandomClouds) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    // Sparse to dense: from few bonds to many atoms per grid cell.
    auto atoms = cloud(seed, 700, 8.0 + 6.0 * seed);
    EXPECT_EQ(pairs(plain, atoms), brute_force(atoms, 0.55, false)) << "seed " << seed;
    BondDetector const relative(BondDetector::molecular, BondDetector::no_refinement,
                                BondDistanceLimit(0.3, true));
    EXPECT_EQ(pairs(relative, atoms), brute_force(atoms, 0.3, true)) << "seed " << seed;
    BondDetector const tight(BondDetector::molecular, BondDetector::no_refinement,
                             BondDistanceLimit(0.1));
    EXPECT_EQ(pairs(tight, atoms), brute_force(atoms, 0.1, false)) << "seed " << seed;
  }
}

TEST(BondDetectorBonds, DistanceLimitsAndAtomsThatNeverBond) {
  BondDistanceLimit const absolute(0.5), relative(0.2, true);
  EXPECT_DOUBLE_EQ(relative.maximum_distance(Element("C"), Element("O")), (0.76 + 0.66) * 1.2);
  EXPECT_EQ(absolute.maximum_distance(Element("C"), Element()), 0.0);
  EXPECT_EQ(BondDistanceLimit(-5.0).maximum_distance(Element("C"), Element("C")), 0.0);

  // Coincident (0.4 apart or less), without element or site, at non-finite or far-flung
  // coordinates: none of these bonds, and none stops the others from bonding.
  double const nan = std::numeric_limits<double>::quiet_NaN();
  double const inf = std::numeric_limits<double>::infinity();
  std::vector<THandle<Atom>> atoms{atom("C", {0, 0, 0}),        atom("C", {0.39, 0, 0}),
                                   atom("C", {0, 0.41, 0}),     atom("", {1.0, 0, 0}),
                                   atom("C", {0, 0, 1.0}),      atom("C", {nan, 0, 0}),
                                   atom("C", {inf, 0, 0}),      atom("C", {-1e300, 1e300, 0}),
                                   atom("C", {1e12, 5e11, -3}), atom("C", {1e12 + 1.5, 5e11, -3}),
                                   atom("C", {1e300, 0, 0}),    atom("C", {1e300, 0, 0})};
  atoms[4]->set_site({});
  EXPECT_EQ(pairs(plain, atoms), (Pairs{{0, 2}, {1, 2}, {8, 9}}));
  std::vector<THandle<Atom>> none;
  EXPECT_TRUE(plain.bonds(none)->empty());
  EXPECT_TRUE(crystal.molecules(none, make_cell(5, 5, 5, 90, 90, 90, "P-1"))->empty());
}

TEST(BondDetectorHydrogens, KeepOnlyTheNearestPartner) {
  // H between C (1.0) and O (1.3); D likewise between N (1.05) and C (1.1). H2 alone is kept;
  // one hydrogen hangs off another (1.1) that is nearer to a carbon (1.05): only that C-H
  // stays. A hydrogen 1.3 from two carbons keeps the one with the lower index.
  std::vector<THandle<Atom>> atoms{
      atom("C", {0, 0, 0}),       atom("H", {1.0, 0, 0}),   atom("O", {2.3, 0, 0}),
      atom("N", {0, 5, 0}),       atom("D", {1.05, 5, 0}),  atom("C", {2.15, 5, 0}),
      atom("C", {0, 6.5, 0}),     atom("H", {0, 10, 0}),    atom("H", {0.74, 10, 0}),
      atom("C", {0, 15, 0}),      atom("H", {1.05, 15, 0}), atom("H", {2.15, 15, 0}),
      atom("C", {-1.2, 20.5, 0}), atom("H", {0, 20, 0}),    atom("C", {1.2, 20.5, 0})};
  EXPECT_EQ(
      pairs(plain, atoms),
      (Pairs{
          {0, 1}, {1, 2}, {3, 4}, {3, 6}, {4, 5}, {7, 8}, {9, 10}, {10, 11}, {12, 13}, {13, 14}}));
  EXPECT_EQ(pairs(pruning, atoms), (Pairs{{0, 1}, {3, 4}, {3, 6}, {7, 8}, {9, 10}, {12, 13}}));
}

// Each atom lands in one molecule, and with every bond found inside molecules, none joins two
// of them. A cell is ignored in molecular mode, and crystal mode falls back to it with an
// invalid cell.
TEST(BondDetectorMolecules, MolecularModeGivesConnectedComponents) {
  auto atoms = cloud(7, 400, 20.0);
  auto const molecules = plain.molecules(atoms, make_cell(3, 3, 3, 90, 90, 90, "P-1"));
  std::set<Atom const*> seen;
  std::size_t bonds = 0;
  for (auto const& m : *molecules) {
    expect_bonds_follow_geometry(*m);
    for (auto const& a : m->atoms())
      EXPECT_TRUE(seen.insert(a.get()).second);
    bonds += std::size_t(m->nbonds());
  }
  EXPECT_EQ(seen.size(), atoms.size());
  EXPECT_EQ(bonds, brute_force(atoms, 0.55, false).size());
  EXPECT_LT(molecules->size(), atoms.size());
  Cell const invalid(0, 1, 1, Angle::from_degrees(90), Angle::from_degrees(90),
                     Angle::from_degrees(90));
  EXPECT_EQ(crystal.molecules(atoms, invalid)->size(), molecules->size());
}

std::vector<THandle<Atom>> atoms_of(Molecule const& m) {
  return {m.atoms().begin(), m.atoms().end()};
}

// A four-carbon chain A-B-B'-A' about an inversion centre, given as A and B, comes out whole:
// the given atoms first, untouched, then their images through the centre.
TEST(BondDetectorCrystal, CentrosymmetricMoleculesComeOutWhole) {
  Cell const p_1 = make_cell(9, 10, 11, 80, 95, 100, "P-1");
  Cell const p21c = make_cell(8, 9, 10, 90, 100, 90, "P21/c");
  for (auto const& [cell, centre] : {std::pair{p_1, Point(0, 0, 0)},
                                     {p_1, Point(0.5, 0.5, 0)},
                                     {p21c, Point(0, 0, 0)},
                                     {p21c, Point(0.5, 0, 0.5)}}) {
    SCOPED_TRACE(cell.spacegroup().symbol() + " " + std::to_string(centre.x()));
    Point const a = cell.fractional({1.2, 1.3, 0}), b = cell.fractional({0.75, 0, 0});
    std::vector<THandle<Atom>> atoms{atom(cell, "C", Point(centre + a), "C1"),
                                     atom(cell, "C", Point(centre + b), "C2")};
    auto const sites = std::vector{atoms[0]->site(), atoms[1]->site()};
    auto const molecules = crystal.molecules(atoms, cell);
    ASSERT_EQ(molecules->size(), 1u);
    Molecule const& m = *molecules->front();
    ASSERT_EQ(m.natoms(), 4);
    EXPECT_EQ(m.nbonds(), 3);
    EXPECT_TRUE(m.atom(0) == atoms[0] && m.atom(1) == atoms[1]);
    EXPECT_TRUE(atoms[0]->site() == sites[0] && atoms[1]->site() == sites[1]);
    for (int i = 2; i < 4; ++i) {
      Point const image = m.atom(i)->site()->fractional();
      auto const& original = *atoms[std::size_t(3 - i)];
      EXPECT_EQ(m.atom(i)->label(), original.label());
      EXPECT_LT(kora::norm(image + original.site()->fractional() - centre - centre), 1e-9);
      EXPECT_LT(kora::norm(m.atom(i)->site()->orthogonal() - cell.orthogonal(image)), 1e-9);
    }
    expect_bonds_follow_geometry(m);
    // Given whole, its second half symmetry copies of the first: nothing is added.
    atoms.push_back(atom(cell, "C", Point(centre - b), "C2'"));
    atoms.push_back(atom(cell, "C", Point(centre - a), "C1'"));
    auto const whole = crystal.molecules(atoms, cell);
    ASSERT_EQ(whole->size(), 1u);
    EXPECT_EQ(atoms_of(*whole->front()), atoms);
    expect_bonds_follow_geometry(*whole->front());
  }
}

TEST(BondDetectorCrystal, AtomOnSpecialPositionAndAcrossCellEdges) {
  // O on the inversion centre bridging two carbons: three atoms, the oxygen once. Atoms at
  // unusable coordinates each make a molecule of their own.
  Cell const cell = make_cell(10, 10, 10, 90, 90, 90, "P-1");
  std::vector<THandle<Atom>> atoms{atom(cell, "O", {0, 0, 0}), atom(cell, "C", {0.14, 0, 0})};
  for (Point const& far : {Point(1e300, 0.5, 0.5), Point(0.5, 1e300, 0.5), Point(0.5, 0.5, 1e300)})
    atoms.push_back(atom(cell, "C", far));
  auto molecules = crystal.molecules(atoms, cell);
  ASSERT_EQ(molecules->size(), 4u);
  EXPECT_TRUE(molecules->front()->natoms() == 3 && molecules->front()->nbonds() == 2);
  atoms.resize(2);
  // A split site of a disordered oxygen 0.004 angstroms off the centre is an atom of its
  // own, not a copy of the first through the inversion.
  atoms.push_back(atom(cell, "O", {0.0004, 0, 0}));
  molecules = crystal.molecules(atoms, cell);
  ASSERT_EQ(molecules->size(), 1u);
  EXPECT_EQ(molecules->front()->natoms(), 4);
  EXPECT_EQ(molecules->front()->atom(2), atoms[2]);

  // A chain across the a edge of a P1 cell, given at x 0.98, 0.02 and 0.06: the copy of the
  // molecule that keeps the most given atoms in place is taken, the first atom coming back as
  // a copy next to the others.
  Cell const p1 = make_cell(38, 10, 10, 90, 90, 90, "P1");
  atoms = {atom(p1, "C", {0.98, 0.5, 0.5}, "C1"), atom(p1, "C", {0.02, 0.5, 0.5}, "C2"),
           atom(p1, "C", {0.06, 0.5, 0.5}, "C3")};
  auto const sites = std::vector{atoms[1]->site(), atoms[2]->site()};
  molecules = crystal.molecules(atoms, p1);
  ASSERT_EQ(molecules->size(), 1u);
  Molecule const& m = *molecules->front();
  ASSERT_EQ(m.natoms(), 3);
  EXPECT_TRUE(m.atom(0) == atoms[1] && m.atom(1) == atoms[2] && m.atom(2)->label() == "C1");
  EXPECT_TRUE(m.atom(0)->site() == sites[0] && m.atom(1)->site() == sites[1]);
  EXPECT_NEAR(m.atom(2)->site()->fractional().x(), -0.02, 1e-12);
  EXPECT_EQ(m.nbonds(), 2);
  expect_bonds_follow_geometry(m);
}

TEST(BondDetectorCrystal, PolymersStopAtLatticeRepeats) {
  // A zigzag chain along a, two atoms per cell.
  Cell const p1 = make_cell(2.5, 10, 10, 90, 90, 90, "P1");
  std::vector<THandle<Atom>> atoms{atom(p1, "C", {0, 0, 0}), atom(p1, "C", {0.5, 0.1, 0})};
  for (int turn = 0; turn < 2; ++turn) {
    // Either way round, the bond kept is the one between the given positions.
    auto const molecules = crystal.molecules(atoms, p1);
    ASSERT_EQ(molecules->size(), 1u);
    EXPECT_EQ(atoms_of(*molecules->front()), atoms);
    EXPECT_EQ(molecules->front()->nbonds(), 1);
    atoms[0]->site()->set_fractional({0.5, 0.1, 0});
    atoms[1]->site()->set_fractional({1, 0, 0});
  }
}

}  // namespace
