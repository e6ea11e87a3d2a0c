#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "pdb_test_support.hpp"

namespace {

using namespace kora;
using namespace kora::test;
using Pairs = std::vector<std::pair<int, int>>;

THandle<Atom> only_atom(std::string const& line) {
  std::vector<THandle<Atom>> const atoms = atoms_of(read_pdb(line + "\n"));
  return atoms.size() == 1 ? atoms.front() : THandle<Atom>();
}

std::string residue_of(THandle<Atom> const& atom) {
  auto const protein = handle_dynamic_cast<ProteinAtom>(atom);
  return protein ? protein->residue_label() : "-";
}

// Each field is read only when the line covers all of its columns.
TEST(PdbAtomRecord, FieldsNeedTheWholeColumnRange) {
  std::string const full =
      "ATOM      7  CD1ALEU A  12      11.104   6.134  -6.504  0.50 12.00      SEG1 N2-";
  struct Row {
    std::size_t length;
    char const *label, *residue;
    double x, y, z, occupancy;
    char const* element;
    int charge;
  };
  for (Row const& r :
       std::vector<Row>{{15, "", "-", 0, 0, 0, 1, "", 0},
                        {16, "CD1", "-", 0, 0, 0, 1, "C", 0},
                        {17, "CD1A", "-", 0, 0, 0, 1, "C", 0},
                        {19, "CD1A", "-", 0, 0, 0, 1, "C", 0},
                        {20, "CD1A", "LEU", 0, 0, 0, 1, "C", 0},
                        {25, "CD1A", "LEU", 0, 0, 0, 1, "C", 0},
                        {26, "CD1A", "LEU12", 0, 0, 0, 1, "C", 0},
                        {37, "CD1A", "LEU12", 0, 0, 0, 1, "C", 0},
                        {38, "CD1A", "LEU12", 11.104, 0, 0, 1, "C", 0},
                        {46, "CD1A", "LEU12", 11.104, 6.134, 0, 1, "C", 0},
                        {53, "CD1A", "LEU12", 11.104, 6.134, 0, 1, "C", 0},
                        {54, "CD1A", "LEU12", 11.104, 6.134, -6.504, 1, "C", 0},
                        {59, "CD1A", "LEU12", 11.104, 6.134, -6.504, 1, "C", 0},
                        {60, "CD1A", "LEU12", 11.104, 6.134, -6.504, 0.5, "C", 0},
                        {77, "CD1A", "LEU12", 11.104, 6.134, -6.504, 0.5, "C", 0},
                        {78, "CD1A", "LEU12", 11.104, 6.134, -6.504, 0.5, "N", 0},
                        {79, "CD1A", "LEU12", 11.104, 6.134, -6.504, 0.5, "N", 0},
                        {80, "CD1A", "LEU12", 11.104, 6.134, -6.504, 0.5, "N", -2}}) {
    SCOPED_TRACE(r.length);
    THandle<Atom> const atom = only_atom(full.substr(0, r.length));
    ASSERT_TRUE(atom);
    EXPECT_EQ(serial_of(atom), 7);
    EXPECT_EQ(atom->label(), r.label);
    EXPECT_EQ(residue_of(atom), r.residue);
    EXPECT_EQ(atom->site()->orthogonal(), Point(r.x, r.y, r.z));
    EXPECT_EQ(atom->site()->occupancy().value(), r.occupancy);
    EXPECT_EQ(atom->element().symbol(), r.element);
    EXPECT_EQ(atom->formal_charge(), r.charge);
  }
  EXPECT_EQ(only_atom(full.substr(0, 78) + "1+")->formal_charge(), 1);
  EXPECT_EQ(residue_of(only_atom(full.substr(0, 22) + "   0")), "LEU");  // number 0 left out
}

TEST(PdbAtomRecord, OccupancyAboveOneIsOneUnreadableIsZero) {
  std::string const line = "ATOM      1  N   GLY A   1       1.5xx    abc   -2e1  ";
  EXPECT_EQ(only_atom(line)->site()->orthogonal(), Point(1.5, 0, -20));  // strtod prefixes
  for (auto const& [field, occupancy] :
       std::vector<std::pair<std::string, double>>{{"  1.50", 1.0},
                                                   {"  0.25", 0.25},
                                                   {"", 1.0},
                                                   {"  0.2", 1.0},
                                                   {"      ", 0.0},
                                                   {"   abc", 0.0}})
    EXPECT_EQ(only_atom(line + field)->site()->occupancy().value(), occupancy) << field;
}

TEST(PdbAtomRecord, ElementFromColumnsOrName) {
  struct Row {
    char const *record, *name, *element, *expected;
  };
  for (Row const& r : std::vector<Row>{{"ATOM  ", " CA ", "  ", "C"},
                                       {"HETATM", "CA  ", "  ", "Ca"},
                                       {"HETATM", " CA ", "  ", "Ca"},
                                       {"ATOM  ", "CA  ", "CA", "C"},
                                       {"HETATM", "FE  ", "FE", "Fe"},
                                       {"ATOM  ", "FE  ", "FE", "F"},
                                       {"HETATM", "HG12", "  ", "Hg"},
                                       {"ATOM  ", "1HB ", "  ", "H"},
                                       {"HETATM", "1HB ", "  ", "H"},
                                       {"ATOM  ", " OH2", "  ", "O"},
                                       {"ATOM  ", " C1 ", "1C", "C"},
                                       {"ATOM  ", " D1 ", " D", "D"},
                                       {"ATOM  ", " N  ", " Q", "N"},
                                       {"HETATM", "ZN  ", "XX", "Zn"},
                                       {"ATOM  ", " XX ", "  ", ""},
                                       {"HETATM", "Q1  ", "  ", ""}}) {
    std::string const line = std::string(r.record) + "    1 " + r.name +
                             " MOL A   1       0.000   0.000   0.000  1.00  0.00          " +
                             r.element;
    EXPECT_EQ(only_atom(line)->element().symbol(), r.expected) << line;
  }
}

TEST(PdbRecords, NamesEndAtABlankOrTabAndEndStops) {
  std::istringstream in(
      "HETATM12345  C1  MOL A   1       0.000   0.000   0.000\n"
      "atom      2  C2  MOL A   1       0.000   0.000   0.000\n"
      "ATOM\t     3  C3  MOL A   1       0.000   0.000   0.000\n"
      "ATOM\nHEADER    VRX\nCONECT\nSCALE3\nORIGX1\n\n"
      "END\n"
      "ATOM      4  C4  MOL A   1       0.000   0.000   0.000\n");
  PdbFile file;
  file.read(in);
  std::vector<THandle<Atom>> const atoms = atoms_of(file);
  ASSERT_EQ(atoms.size(), 2u);  // C3 and the bare ATOM line (serial 0)
  EXPECT_EQ(atoms[1]->label(), "C3");
  EXPECT_EQ(file.identifier().str(), "");
  std::string next;
  std::getline(in, next);
  EXPECT_EQ(next.substr(0, 12), "ATOM      4 ");
}

TEST(PdbRecords, OnlyVrxHeadersNameTheEntry) {
  EXPECT_EQ(read_pdb("HEADER    VRX ENTRY ABCDEFGHIJ\n").identifier().str(), "ABCDEFGH");
  EXPECT_EQ(
      read_pdb("HEADER    PROTEIN                          01-JAN-00   1ABC\n").identifier().str(),
      "UNKNWN");
}

std::string cryst1(std::string const& cell, std::string const& symbol) {
  return "CRYST1" + cell + " " + symbol + "\n";
}

TEST(PdbCryst1, CellAndSpaceGroup) {
  std::string const line = "CRYST1   10.000   20.000   30.000  90.00 100.00  90.00 P 1 21 1";
  THandle<Cell> const cell = read_pdb(line + "\n").cell();
  EXPECT_EQ(cell->c(), 30.0);
  EXPECT_NEAR(cell->beta().degrees(), 100.0, 1e-9);
  EXPECT_EQ(cell->spacegroup().symbol(), "P21");
  EXPECT_EQ(read_pdb(line.substr(0, 55) + "\n").cell()->spacegroup().symbol(), "P1");
  EXPECT_EQ(read_pdb(line.substr(0, 54) + "\n").cell()->spacegroup().symbol(), "P1");
  try {
    read_pdb(line.substr(0, 53) + "\n");
    ADD_FAILURE() << "no exception";
  } catch (std::runtime_error const& e) {
    EXPECT_STREQ(e.what(), "PdbFile::read CRYST1 line is incomplete");
  }
}

TEST(PdbCryst1, RhombohedralGroupsFollowTheirCell) {
  std::string const hexagonal = "   10.000   10.000   20.000  90.00  90.00 120.00";
  std::string const rhombohedral = "    8.000    8.000    8.000  75.00  75.00  75.00";
  auto const symbol = [](std::string const& text) {
    return read_pdb(text).cell()->spacegroup().symbol();
  };
  EXPECT_EQ(symbol(cryst1(hexagonal, "R 3")), "R3");
  EXPECT_EQ(symbol(cryst1(rhombohedral, "R 3")), "R3r");
  EXPECT_EQ(symbol(cryst1(rhombohedral, "R 3 2")), "R32r");
  EXPECT_EQ(symbol(cryst1(hexagonal, "H 3")), "R3");
  EXPECT_EQ(symbol(cryst1("   10.000   10.000   20.000  90.00  90.00  90.00", "R 3r")), "R3r");
  std::vector<std::string> const inconsistent{"   10.000   10.000   20.000  90.00  90.00  90.00",
                                              "   10.000   10.000   20.000  90.00  90.00 119.99",
                                              "   10.000   10.000   20.000 89.999  90.00 120.00",
                                              " 1.000001 1.000000   20.000  90.00  90.00 120.00",
                                              "    8.000    8.000    8.001  75.00  75.00  75.00"};
  for (std::string const& cell : inconsistent) {
    try {
      read_pdb(cryst1(cell, "R 3"));
      ADD_FAILURE() << "no exception for " << cell;
    } catch (std::runtime_error const& e) {
      EXPECT_STREQ(e.what(), "PdbFile::read(): Space group and unit cell inconsistent.");
    }
  }
}

TEST(PdbScale, FractionalPositionsThroughScaleRowsOnceScale3IsRead) {
  std::string const cell = "CRYST1   10.000   10.000   10.000  90.00  90.00  90.00 P 1\n";
  std::string const atom = "HETATM    1 ZN   ZN  A   1       2.000   4.000   8.000\n";
  std::string const scale1 = "SCALE1      0.500000  0.000000  0.000000        0.25000\n";
  std::string const scale3 = "SCALE3      0.000000  0.000000  2.000000       -1.00000\n";
  auto const fractional = [&](std::string const& records) {
    return atoms_of(read_pdb(cell + records + atom))[0]->site()->fractional();
  };
  auto const expect_near = [](Point const& p, Point const& q) {
    EXPECT_LT(norm(p - q), 1e-12) << p.x() << " " << p.y() << " " << p.z();
  };
  expect_near(fractional(scale1 + scale3), Point(1.25, 4.0, 15.0));  // SCALE2 stays identity
  expect_near(fractional(scale3 + scale1), Point(2.0, 4.0, 15.0));   // built at SCALE3
  expect_near(fractional(scale1), Point(0.2, 0.4, 0.8));             // through the cell
  expect_near(fractional("ORIGX3      0.000000  0.000000  2.000000       -1.00000\n"),
              Point(0.2, 0.4, 0.8));
}

// Glycine then phenylalanine, flat: bonds 1.45 A long, other atoms at least 2.5 A apart.
std::string const gly_phe =
    "ATOM      1  N   GLY A   1       0.000   0.000   0.000  1.00  0.00           N\n"
    "ATOM      2  CA  GLY A   1       0.000   1.450   0.000  1.00  0.00           C\n"
    "ATOM      3  C   GLY A   1       1.256   2.175   0.000  1.00  0.00           C\n"
    "ATOM      4  O   GLY A   1       1.256   3.625   0.000  1.00  0.00           O\n"
    "ATOM      5  N   PHE A   2       2.511   1.450   0.000  1.00  0.00           N\n"
    "ATOM      6  CA  PHE A   2       3.767   2.175   0.000  1.00  0.00           C\n"
    "ATOM      7  C   PHE A   2       3.767   3.625   0.000  1.00  0.00           C\n"
    "ATOM      8  O   PHE A   2       5.023   4.350   0.000  1.00  0.00           O\n"
    "ATOM      9  CB  PHE A   2       5.023   1.450   0.000  1.00  0.00           C\n"
    "ATOM     10  CG  PHE A   2       5.023   0.000   0.000  1.00  0.00           C\n"
    "ATOM     11  CD1 PHE A   2       3.767  -0.725   0.000  1.00  0.00           C\n"
    "ATOM     12  CD2 PHE A   2       6.279  -0.725   0.000  1.00  0.00           C\n"
    "ATOM     13  CE1 PHE A   2       3.767  -2.175   0.000  1.00  0.00           C\n"
    "ATOM     14  CE2 PHE A   2       6.279  -2.175   0.000  1.00  0.00           C\n"
    "ATOM     15  CZ  PHE A   2       5.023  -2.900   0.000  1.00  0.00           C\n";

TEST(PdbBonds, DipeptideGetsEveryBondOnceWithItsOrders) {
  PdbFile const file = read_pdb(gly_phe);
  ASSERT_EQ(file.molecules()->size(), 1u);
  EXPECT_EQ(bonds_of(file), (Pairs{{1, 2},
                                   {2, 3},
                                   {3, 4},
                                   {3, 5},
                                   {5, 6},
                                   {6, 7},
                                   {6, 9},
                                   {7, 8},
                                   {9, 10},
                                   {10, 11},
                                   {10, 12},
                                   {11, 13},
                                   {12, 14},
                                   {13, 15},
                                   {14, 15}}));
  int orders[10] = {};
  for (THandle<Bond> const& b : file.molecules()->front()->bonds())
    ++orders[b->type()];
  EXPECT_EQ(orders[double_bond], 2);  // the carbonyls
  EXPECT_EQ(orders[aromatic_bond], 6);
}

std::string as_hetatm(std::string text) {
  for (std::size_t p = text.find("ATOM  "); p != std::string::npos; p = text.find("ATOM  ", p))
    text.replace(p, 6, "HETATM");
  return text;
}

TEST(PdbBonds, SearchesSpanTwoResiduesButHetatmFilesAreSearchedWhole) {
  // Residue 1's C lies 1.5 A from residue 3's C.
  std::string const text =
      "ATOM      1  N   ALA A   1       0.000   0.000   0.000\n"
      "ATOM      2  C   ALA A   1       1.450   0.000   0.000\n"
      "ATOM      3  N   ALA A   2      10.000   0.000   0.000\n"
      "ATOM      4  C   ALA A   2      11.450   0.000   0.000\n"
      "ATOM      5  N   ALA A   3       1.450   2.950   0.000\n"
      "ATOM      6  C   ALA A   3       1.450   1.500   0.000\n"
      "ATOM      7  N   ALA A   4      20.000   0.000   0.000\n"
      "ATOM      8  C   ALA A   4      21.450   0.000   0.000\n"
      "ATOM      9  O   ALA A   4      22.900   0.000   0.000\n";
  EXPECT_EQ(bonds_of(read_pdb(text)), (Pairs{{1, 2}, {3, 4}, {5, 6}, {7, 8}, {8, 9}}));
  EXPECT_EQ(bonds_of(read_pdb(as_hetatm(text))),
            (Pairs{{1, 2}, {2, 6}, {3, 4}, {5, 6}, {7, 8}, {8, 9}}));
  // CONECT records stand in for the whole-model search.
  EXPECT_EQ(bonds_of(read_pdb(as_hetatm(text) + "CONECT    1    7\n")), (Pairs{{1, 7}}));
  // A HETATM residue inside a chain joins the searches at both its ends; the HETATM atom
  // that opens it is not carried into the next search, so N3-C4 is not found.
  EXPECT_EQ(bonds_of(read_pdb("ATOM      1  N   ALA A   1       0.000   0.000   0.000\n"
                              "ATOM      2  C   ALA A   1       1.450   0.000   0.000\n"
                              "HETATM    3  N   MSE A   2       2.900   0.000   0.000\n"
                              "HETATM    4  C   MSE A   2       4.350   0.000   0.000\n"
                              "ATOM      5  N   ALA A   3       5.800   0.000   0.000\n"
                              "ATOM      6  C   ALA A   3       7.250   0.000   0.000\n"
                              "ATOM      7  O   ALA A   3       8.700   0.000   0.000\n")),
            (Pairs{{1, 2}, {2, 3}, {4, 5}, {5, 6}, {6, 7}}));
}

TEST(PdbConect, PartnersReadWhenCompleteAndKnown) {
  std::string atoms;
  for (int i = 1; i <= 6; ++i)
    atoms += "HETATM    " + std::to_string(i) + "  C" + std::to_string(i) + "  MOL A   1      " +
             std::to_string(10 + 5 * i) + ".000   0.000   0.000\n";
  for (auto const& [conect, bonds] : std::vector<std::pair<std::string, int>>{
           {"CONECT    1    2    3    4    5    6", 4},  // four partners at most
           {"CONECT    1    2    3    4    5", 4},
           {"CONECT    1    2    3    4    ", 3},
           {"CONECT    1    2    3   4", 2},
           {"CONECT    1    2\nCONECT    2    1", 1},  // both ends: one bond
           {"CONECT    1   2", 0},
           {"CONECT    1    9    0   -1    2", 1},  // unknown serials skipped
           {"CONECT    9    1    2", 0},
           {"CONECT    1    1", 0},
           {"CONECT99999    1    2", 0}}) {
    EXPECT_EQ(bond_count(read_pdb(atoms + conect + "\n")), bonds) << conect;
  }
  EXPECT_EQ(bond_count(read_pdb("CONECT    1    2\n" + atoms)), 0);  // no atoms yet
  // A repeated serial names the later atom.
  PdbFile const repeated = read_pdb(
      atoms + "HETATM    2  C7  MOL A   1      90.000   0.000   0.000\nCONECT    1    2\n");
  EXPECT_EQ(bond_count(repeated), 1);
  for (THandle<Molecule> const& m : *repeated.molecules())
    for (THandle<Bond> const& b : m->bonds())
      EXPECT_EQ(b->atom2()->label(), "C7");
}

TEST(PdbModels, EachModelHasItsOwnSerialsBondsAndSearch) {
  std::string const atoms =
      "HETATM    1  O1  MOL A   1       0.000   0.000   0.000\n"
      "HETATM    2  C2  MOL A   1       5.000   0.000   0.000\n"
      "HETATM    3  C3  MOL A   1       6.500   0.000   0.000\n";
  PdbFile const file =
      read_pdb(atoms + "CONECT    1    2\nENDMDL\n" + atoms + "CONECT    2    3\nENDMDL\n");
  ASSERT_EQ(file.molecules()->size(), 4u);  // O1-C2, C3 | O1, C2-C3
  EXPECT_EQ(serial_of((*file.molecules())[0]->bond(0)->atom1()), 1);
  EXPECT_EQ(serial_of((*file.molecules())[3]->bond(0)->atom1()), 2);
  // Only the data after the last ENDMDL gets the whole-model search.
  EXPECT_EQ(bond_count(read_pdb(atoms + "ENDMDL\n")), 0);
  EXPECT_EQ(bond_count(read_pdb(atoms + "ENDMDL\n" + atoms)), 1);
  // An error keeps the models already finished; reading again appends.
  PdbFile again;
  std::istringstream in(atoms + "ENDMDL\nCRYST1   10.000\n");
  EXPECT_THROW(again.read(in), std::runtime_error);
  EXPECT_EQ(again.molecules()->size(), 3u);
  std::istringstream more(atoms);
  again.read(more);
  EXPECT_EQ(again.molecules()->size(), 5u);
}

}  // namespace
