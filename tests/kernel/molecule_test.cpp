#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "kora/kernel/crystal.hpp"
#include "kora/kernel/molecule.hpp"

namespace {

using namespace kora;
using AtomList = std::vector<THandle<Atom>>;
using BondList = std::vector<THandle<BondData>>;

THandle<Atom> make_atom(char const* symbol, std::string label, bool with_site = true) {
  THandle<Site> site;
  if (with_site) site = make_handle<Site>(Point(0, 0, 0), Point(1, 2, 3), 1.0);
  return THandle<Atom>(make_handle<FileOrderedAtom3d>(0, Element(symbol), std::move(label), site));
}

// Atoms labelled A0.. and bonds given as index pairs (all single).
struct Built {
  THandle<AtomList> atoms = make_handle<AtomList>();
  THandle<BondList> bonds = make_handle<BondList>();
};
Built build(int natoms, std::vector<std::pair<int, int>> const& bonds) {
  Built b;
  for (int i = 0; i < natoms; ++i)
    b.atoms->push_back(make_atom("C", "A" + std::to_string(i)));
  for (auto [x, y] : bonds)
    b.bonds->push_back(make_handle<BondData>(x, y, single_bond));
  return b;
}

std::vector<std::string> labels(Molecule const& m) {
  std::vector<std::string> out;
  for (THandle<Atom> const& a : m.atoms())
    out.push_back(a->label());
  return out;
}

TEST(Molecule3d, AdoptsAtomsAndKeepsIndexesAndConnectionCounts) {
  Built b = build(4, {{0, 1}, {1, 2}, {1, 3}});
  Molecule3d const m(b.atoms, b.bonds);
  EXPECT_TRUE(m.natoms() == 4 && m.nbonds() == 3);
  EXPECT_EQ(m.atom(2), (*b.atoms)[2]);  // adopted, not copied
  EXPECT_EQ(m.atom(1)->connection_count(), 3);
  EXPECT_EQ(m.atom(3)->index(), 3);
  EXPECT_EQ(m.neighbours(1), (std::vector<int>{0, 2, 3}));
  EXPECT_EQ(m.bond_atoms(2), (std::pair<int, int>{1, 3}));
  EXPECT_EQ(m.bond(0)->atom2(), m.atom(1));
  EXPECT_THROW(m.atom(4), std::out_of_range);
  EXPECT_THROW(m.bond(-1), std::out_of_range);
}

TEST(Molecule3d, BadBondsThrowNamingTheBond) {
  for (auto const& [pairs, text] :
       {std::pair{std::vector<std::pair<int, int>>{{0, 1}, {1, 5}}, "bond 1 between atoms 1 and 5"},
        std::pair{std::vector<std::pair<int, int>>{{2, 2}}, "bond 0 between atoms 2 and 2"}}) {
    Built b = build(3, pairs);
    try {
      Molecule3d m(b.atoms, b.bonds);
      ADD_FAILURE() << "no exception for " << text;
    } catch (std::invalid_argument const& e) {
      EXPECT_NE(std::string(e.what()).find(text), std::string::npos) << e.what();
    }
  }
  EXPECT_THROW(BondData(-1, 0, single_bond), std::invalid_argument);
}

TEST(Molecule3d, CopiesDoNotAliasAndSubsetsDo) {
  Built b = build(3, {{0, 1}, {1, 2}});
  auto original = make_handle<Molecule3d>(b.atoms, b.bonds);
  Molecule3d copy(*original);
  copy.atom(0)->set_label("changed");
  copy.atom(0)->site()->set_orthogonal(Point(9, 9, 9));
  copy.bond(0)->set_type(double_bond);
  EXPECT_EQ(original->atom(0)->label(), "A0");
  EXPECT_EQ(original->atom(0)->site()->orthogonal(), Point(1, 2, 3));
  EXPECT_EQ(original->bond(0)->type(), single_bond);

  MoleculeSubset subset(original);
  subset.atom(1)->set_label("shared");
  EXPECT_EQ(original->atom(1)->label(), "shared");
  THandle<Molecule> const made = subset.create_molecule();
  made->atom(1)->set_label("own");
  EXPECT_EQ(original->atom(1)->label(), "shared");
  EXPECT_THROW(subset.remove_atoms([](THandle<Atom> const&) { return true; }), std::logic_error);
}

TEST(MoleculeSubset, Select3dKeepsPositionsAndBondsAmongKeptAtoms) {
  Built b = build(4, {{0, 1}, {1, 2}, {2, 3}});
  (*b.atoms)[1]->set_site({});
  auto molecule = make_handle<Molecule3d>(b.atoms, b.bonds);
  MoleculeSubset subset(molecule);
  subset.select_3d();
  EXPECT_EQ(labels(subset), (std::vector<std::string>{"A0", "A2", "A3"}));
  EXPECT_EQ(subset.nbonds(), 1);
  EXPECT_EQ(subset.bond_atoms(0), (std::pair<int, int>{1, 2}));  // positions in the subset
  EXPECT_EQ(subset.parent_index(1), 2);
  EXPECT_EQ(subset.connection_count(0), 0);
  THandle<Molecule> const made = subset.create_molecule();
  EXPECT_TRUE(made->natoms() == 3 && made->nbonds() == 1);
}

TEST(Molecule3d, RemoveAtomsAndMerge) {
  Built b = build(5, {{0, 1}, {1, 2}, {2, 3}, {3, 4}});
  Molecule3d m(b.atoms, b.bonds);
  m.remove_atoms([](THandle<Atom> const& a) { return a->label() == "A2"; });
  EXPECT_EQ(labels(m), (std::vector<std::string>{"A0", "A1", "A3", "A4"}));
  EXPECT_EQ(m.nbonds(), 2);
  EXPECT_EQ(m.bond_atoms(1), (std::pair<int, int>{2, 3}));
  EXPECT_EQ(m.atom(2)->index(), 2);
  EXPECT_EQ(m.atom(1)->connection_count(), 1);

  Built other = build(2, {{0, 1}});
  (*other.atoms)[0]->set_formal_charge(-1);
  THandle<std::vector<int>> const map = m.add(Molecule3d(other.atoms, other.bonds));
  EXPECT_EQ(*map, (std::vector<int>{4, 5}));
  EXPECT_EQ(m.bond_atoms(2), (std::pair<int, int>{4, 5}));
  EXPECT_EQ(m.formal_charge(), -1);
  EXPECT_NE(m.atom(4), (*other.atoms)[0]);  // merged atoms are copies

  m.add(m);  // a molecule merged with itself doubles
  EXPECT_TRUE(m.natoms() == 12 && m.nbonds() == 6);
}

TEST(CreateMolecules, ConnectedComponentsInOrderOfFirstAtoms) {
  Built b = build(7, {{5, 0}, {2, 3}, {3, 6}, {0, 4}});
  auto const molecules = create_molecules(*b.atoms, *b.bonds);
  ASSERT_EQ(molecules->size(), 3u);
  EXPECT_EQ(labels(*(*molecules)[0]), (std::vector<std::string>{"A0", "A4", "A5"}));
  EXPECT_EQ(labels(*(*molecules)[1]), (std::vector<std::string>{"A1"}));
  EXPECT_EQ(labels(*(*molecules)[2]), (std::vector<std::string>{"A2", "A3", "A6"}));
  EXPECT_EQ((*molecules)[0]->bond_atoms(0), (std::pair<int, int>{2, 0}));
  EXPECT_EQ((*molecules)[2]->nbonds(), 2);

  BondList bad{make_handle<BondData>(0, 7, single_bond)};
  EXPECT_THROW(create_molecules(*b.atoms, bad), std::invalid_argument);
}

TEST(CreateMolecules, CellFormGivesSitesAndAddFractionalUsesTheTransformation) {
  Cell const cell(10, 20, 5, Angle::from_degrees(90), Angle::from_degrees(90),
                  Angle::from_degrees(90));
  Built b = build(2, {{0, 1}});
  std::vector<Point> points{{1, 2, 3}, {5, 10, 2.5}};
  auto const molecules = create_molecules(cell, *b.atoms, *b.bonds, points, {});
  ASSERT_EQ(molecules->size(), 1u);
  THandle<Site> const site = (*b.atoms)[1]->site();
  EXPECT_EQ(site->orthogonal(), Point(5, 10, 2.5));
  EXPECT_NEAR(site->fractional()[1], 0.5, 1e-12);

  auto const scale = make_handle<Transformation>(0.5, 0, 0, 0.25, 0, 1, 0, 0, 0, 0, 1, 0);
  add_fractional(cell, *b.atoms, scale);
  EXPECT_EQ((*b.atoms)[1]->site()->fractional(), Point(2.75, 10, 2.5));
  std::vector<Point> too_few{{0, 0, 0}};
  EXPECT_THROW(create_molecules(cell, *b.atoms, *b.bonds, too_few, {}), std::invalid_argument);
}

TEST(ProteinAtom, ResidueKindsAndCrossCast) {
  auto atom = make_handle<FileOrderedProteinAtom>(7, Element("C"), "CA", "ALA12", THandle<Site>());
  THandle<Atom> const as_atom = atom;
  THandle<ProteinAtom> const protein = handle_dynamic_cast<ProteinAtom>(as_atom);
  ASSERT_TRUE(protein);
  EXPECT_EQ(protein->residue_kind(), 1);
  EXPECT_TRUE(handle_dynamic_cast<ProteinAtom>(make_atom("C", "C1")).is_null());
  std::pair<char const*, int> const kinds[] = {
      {"VAL3", 20}, {"GLY", 8}, {"HOH5", 0}, {"al", 0}, {"", 0}};
  for (auto [label, kind] : kinds) {
    protein->set_residue_label(label);
    EXPECT_EQ(protein->residue_kind(), kind) << label;
  }
  THandle<Atom> const copy = as_atom->clone();
  EXPECT_EQ(handle_dynamic_cast<ProteinAtom>(copy)->residue_label(), "");
  EXPECT_EQ(handle_dynamic_cast<FileOrderedAtom3d>(copy)->file_order(), 7);
}

TEST(CrystalMaker, ListsInOrderSelect3dAndEntries) {
  Built b = build(3, {{0, 1}, {1, 2}});
  (*b.atoms)[2]->set_site({});
  auto first =
      make_handle<MoleculeList>(1, THandle<Molecule>(make_handle<Molecule3d>(b.atoms, b.bonds)));
  Built flat = build(1, {});
  (*flat.atoms)[0]->set_site({});
  auto last = make_handle<MoleculeList>(
      1, THandle<Molecule>(make_handle<Molecule3d>(flat.atoms, flat.bonds)));
  auto maker = make_handle<CrystalMaker>(Cell(), first, THandle<MoleculeList>(), last);
  EXPECT_EQ(maker->nmolecules(), 2);
  EXPECT_THROW(maker->molecule(2), std::out_of_range);

  maker->select_3d();
  ASSERT_EQ(maker->nmolecules(), 1);  // the molecule without positions is gone
  EXPECT_EQ(maker->molecule(0)->natoms(), 2);
  EXPECT_EQ((*first)[0]->natoms(), 3);  // the original molecule is untouched
  EXPECT_EQ(maker->create_crystal()->nmolecules(), 1);
}

}  // namespace
