#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "pdb_test_support.hpp"

namespace {

using namespace kora;
using namespace kora::test;

struct AtomSpec {
  char const* label;
  char const* element;
  Point position;
  double occupancy;
};

THandle<Molecule> make_molecule(std::vector<AtomSpec> const& atoms,
                                std::vector<std::pair<int, int>> const& bonds) {
  auto list = make_handle<std::vector<THandle<Atom>>>();
  for (AtomSpec const& a : atoms) {
    list->push_back(
        make_handle<FileOrderedAtom3d>(int(list->size()) + 1, Element(a.element), a.label,
                                       make_handle<Site>(Point(), a.position, a.occupancy)));
  }
  auto bond_list = make_handle<std::vector<THandle<BondData>>>();
  for (auto const& [x, y] : bonds)
    bond_list->push_back(make_handle<BondData>(x, y, double_bond));
  return THandle<Molecule>(make_handle<Molecule3d>(list, bond_list));
}

Cell cell_of(double a, double b, double c, double alpha, double beta, double gamma,
             std::string const& symbol) {
  return Cell(a, b, c, Angle::from_degrees(alpha), Angle::from_degrees(beta),
              Angle::from_degrees(gamma), Spacegroup(symbol));
}

CrystalMaker maker(Cell const& cell, std::vector<THandle<Molecule>> const& molecules) {
  return CrystalMaker(cell, make_handle<MoleculeList>(molecules), nullptr, nullptr);
}

std::string printed(PdbFile const& file) {
  std::ostringstream out;
  file.print(out);
  return out.str();
}

// The SCALE records of a cell as the C library formats them.
std::string scale_lines(Cell const& cell) {
  std::string text;
  for (std::size_t r = 0; r < 3; ++r) {
    Matrix<double, 3, 3> const& m = cell.orthogonal_to_fractional();
    char line[96];
    std::snprintf(line, sizeof line, "SCALE%zu    %10.6f%10.6f%10.6f%15.6f\n", r + 1, m(r, 0),
                  m(r, 1), m(r, 2), 0.0);
    text += line;
  }
  return text;
}

TEST(PdbWrite, EmptyFileWritesTheSkeleton) {
  EXPECT_EQ(printed(PdbFile()),
            "HEADER    VRX ENTRY \n"
            "CRYST1   1.0000   1.0000   1.0000  90.00  90.00  90.00        P1\n" +
                scale_lines(Cell()) +
                "MASTER    0    0    0    0    0    0    0    0    3    0    0    0    0\nEND\n");
}

TEST(PdbWrite, RecordsColumnForColumn) {
  Cell const cell = cell_of(10, 11, 12, 90, 100, 90, "P 1 21 1");
  PdbFile file;
  file.add(maker(cell, {make_molecule({{"C1", "C", Point(1, 2, 3), 1.0},
                                       {"O2LONG", "O", Point(-1.5, 2.25, -0.0004), 0.5},
                                       {"N3", "N", Point(123.4567, -99.9996, 0), 0.123}},
                                      {{0, 1}})}),
           DatabaseEntryIdentifier("TEST1"));
  EXPECT_EQ(printed(file),
            "HEADER    VRX ENTRY TEST1\n"
            "CRYST1  10.0000  11.0000  12.0000  90.00 100.00  90.00       P21\n" +
                scale_lines(cell) +
                "HETATM    1 C1   UNK 0   1       1.000   2.000   3.000  1.00  0.00\n"
                "HETATM    2 O2LONUNK 0   1      -1.500   2.250  -0.000  0.50  0.00\n"
                "HETATM    3 N3   UNK 0   1     123.457-100.000   0.000  0.12  0.00\n"
                "CONECT    1    2\nCONECT    2\nCONECT    3\n"
                "MASTER    0    0    0    0    0    0    0    0    3    3    0    3    0\nEND\n");
}

TEST(PdbWrite, RhombohedralSymbolsAreWrittenAsReadingExpects) {
  auto const cryst1 = [](Cell const& cell) {
    PdbFile file;
    file.add(maker(cell, {}), DatabaseEntryIdentifier("X"));
    std::string const text = printed(file);
    std::size_t const start = text.find("CRYST1");
    return text.substr(start, text.find('\n', start) - start);
  };
  EXPECT_EQ(cryst1(cell_of(10, 10, 20, 90, 90, 120, "R 3")),
            "CRYST1  10.0000  10.0000  20.0000  90.00  90.00 120.00        H3");
  EXPECT_EQ(cryst1(cell_of(8, 8, 8, 75, 75, 75, "R 3r")),
            "CRYST1   8.0000   8.0000   8.0000  75.00  75.00  75.00        R3");
  EXPECT_EQ(cryst1(cell_of(10, 11, 20, 90, 90, 120, "R 3")),
            "CRYST1  10.0000  11.0000  20.0000  90.00  90.00 120.00        R3");
}

TEST(PdbWrite, ConectListsHoldAnAtomAndAtMostThreePartners) {
  // Atoms 0-3 each bond three leaves of their own, then atom 4; 0, 1 and 2 go into atom 4's
  // list, which is then full, so the bond 3-4 gets a list of its own after all others.
  std::vector<AtomSpec> atoms(17, AtomSpec{"C", "C", Point(), 1.0});
  std::vector<std::pair<int, int>> bonds;
  for (int hub = 0; hub < 4; ++hub) {
    for (int leaf = 0; leaf < 3; ++leaf)
      bonds.emplace_back(hub, 5 + 3 * hub + leaf);
    bonds.emplace_back(hub, 4);
  }
  PdbFile file;
  file.add(*make_molecule(atoms, bonds), DatabaseEntryIdentifier("HUB"));
  std::string expected =
      "CONECT    1    6    7    8\nCONECT    2    9   10   11\nCONECT    3   12   13   14\n"
      "CONECT    4   15   16   17\nCONECT    5    1    2    3\n";
  for (int leaf = 6; leaf <= 17; ++leaf)
    expected += (leaf < 10 ? "CONECT    " : "CONECT   ") + std::to_string(leaf) + "\n";
  expected +=
      "CONECT    4    5\n"
      "MASTER    0    0    0    0    0    0    0    0    3   17    0   18    0\nEND\n";
  std::string const text = printed(file);
  EXPECT_EQ(text.substr(text.find("CONECT")), expected);
}

TEST(PdbRoundTrip, CellSpaceGroupAtomsAndBondsComeBack) {
  for (Cell const& cell :
       {cell_of(10, 11, 12, 90, 100, 90, "P 1 21 1"), cell_of(10, 10, 20, 90, 90, 120, "R 3"),
        cell_of(8, 8, 8, 75, 75, 75, "R 3r"), cell_of(7, 8, 9, 80, 85, 95, "P -1"), Cell()}) {
    SCOPED_TRACE(cell.spacegroup().symbol());
    std::vector<AtomSpec> const atoms{{"O1", "O", Point(0.5, 0.25, 1.0), 1.0},
                                      {"H2", "H", Point(1.457, 0.25, 1.0), 0.75},
                                      {"H3", "H", Point(0.26, 1.177, 1.0), 0.75},
                                      {"Cl4", "Cl", Point(5, 5, 5), 0.5}};
    PdbFile file;
    file.add(maker(cell, {make_molecule({atoms[0], atoms[1], atoms[2]}, {{0, 1}, {0, 2}}),
                          make_molecule({atoms[3]}, {})}),
             DatabaseEntryIdentifier("RT1"));
    PdbFile const back = read_pdb(printed(file));
    EXPECT_EQ(back.identifier().str(), "RT1");
    EXPECT_TRUE(*back.cell() == cell);
    EXPECT_EQ(back.cell()->spacegroup().symbol(), cell.spacegroup().symbol());
    std::vector<THandle<Atom>> const read = atoms_of(back);
    ASSERT_EQ(read.size(), 4u);
    for (std::size_t i = 0; i < 4; ++i) {
      EXPECT_EQ(read[i]->label(), atoms[i].label);
      EXPECT_EQ(read[i]->element().symbol(), atoms[i].element);
      for (std::size_t k = 0; k < 3; ++k)
        EXPECT_NEAR(read[i]->site()->orthogonal()[k], atoms[i].position[k], 5e-4);
      EXPECT_EQ(read[i]->site()->occupancy().value(), atoms[i].occupancy);
    }
    EXPECT_EQ(bonds_of(back), (std::vector<std::pair<int, int>>{{1, 2}, {1, 3}}));
  }
}

TEST(PdbModel, AddingStructuresSharesTheirMoleculesWithinOneCell) {
  Cell const cell = cell_of(10, 11, 12, 90, 90, 90, "P 21 21 21");
  THandle<Molecule> const a = make_molecule({{"C1", "C", Point(0, 0, 0), 1.0}}, {});
  THandle<Molecule> const b = make_molecule({{"N1", "N", Point(1, 0, 0), 1.0}}, {});
  PdbFile file;
  EXPECT_EQ(file.molecule()->natoms(), 0);  // an empty molecule, not a null handle
  file.add(maker(cell, {a}), DatabaseEntryIdentifier("A"));
  THandle<Crystal> const crystal = file.crystal();  // shares the molecule list
  file.add(maker(cell, {b}), DatabaseEntryIdentifier("B"));
  EXPECT_EQ(*file.molecules(), (MoleculeList{a, b}));
  EXPECT_EQ(crystal->nmolecules(), 2);
  file.add(*a, DatabaseEntryIdentifier("M"));  // a copy; the cell stays
  EXPECT_NE(file.molecules()->back(), a);
  EXPECT_TRUE(*file.cell() == cell);
  file.add(Crystal(Cell(), make_handle<MoleculeList>(MoleculeList{b})),
           DatabaseEntryIdentifier("C"));
  EXPECT_EQ(*file.molecules(), MoleculeList{b});  // another cell replaces everything
  EXPECT_TRUE(*file.cell() == Cell());
  EXPECT_EQ(file.database_entry()->identifier().str(), "C");
  file.clear();
  EXPECT_TRUE(file.molecules()->empty());
  EXPECT_EQ(file.identifier().str(), "C");
}

TEST(PdbModel, MoleculeMergesAllAndCellIsACopy) {
  PdbFile file = read_pdb(
      "HETATM    1  O1  HOH A   1       0.000   0.000   0.000\n"
      "HETATM    2  O2  HOH A   2       5.000   0.000   0.000\n"
      "HETATM    3  H3  HOH A   2       5.960   0.000   0.000\n");
  ASSERT_EQ(file.molecules()->size(), 2u);
  file.molecules()->front()->atom(0)->set_site(THandle<Site>());
  THandle<Molecule> const m = file.molecule();
  EXPECT_EQ(m->natoms(), 2);  // atoms without a position are left out
  EXPECT_EQ(m->nbonds(), 1);
  file.cell()->set_spacegroup(Spacegroup("P 21 21 21"));
  EXPECT_EQ(file.cell()->spacegroup().symbol(), "P1");
  PdbFile copy;
  copy.add(*file.database_entry());
  EXPECT_EQ(copy.identifier().str(), "UNKNWN");
  EXPECT_EQ(*copy.molecules(), *file.molecules());
}

}  // namespace
