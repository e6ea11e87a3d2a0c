// Standard reading of PDB records beyond the atom fields: charges, displacement parameters,
// CONECT records after the last model, alternate locations and the bond orders of
// residues.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "pdb_test_support.hpp"

namespace {

using namespace kora;
using namespace kora::test;

PdbFile read_with(std::string const& text, ReadOptions const& options) {
  std::istringstream in(text);
  PdbFile file;
  file.set_read_options(options);
  file.read(in);
  return file;
}

ReadOptions standard() {
  return ReadOptions::standard_mode();
}

ReadOptions all_locations() {
  ReadOptions options = ReadOptions::standard_mode();
  options.all_alternate_locations = true;
  return options;
}

// An ATOM or HETATM record: serial, atom name (4 columns), alternate location, residue
// name, residue number, position, occupancy and B-factor, element columns 77-78 and
// columns 79-80.
std::string record(char const* name, int serial, char const* atom, char location,
                   char const* residue, int number, double x, double y, double z,
                   double occupancy = 1.0, char const* element = "", char const* tail = "") {
  char line[96];
  std::snprintf(line, sizeof line,
                "%-6s%5d %-4s%c%3s A%4d    %8.3f%8.3f%8.3f%6.2f%6.2f          %2s%s\n", name,
                serial, atom, location, residue, number, x, y, z, occupancy, 20.0, element, tail);
  return line;
}

TEST(PdbStandardRecords, ChargeOnlyFromAValidChargeField) {
  struct Case {
    char const* columns_73_80;
    int standard;
    int classic;
  };
  std::vector<Case> const cases{
      {"      2+", 2, 2}, {"      1-", -1, -1}, {"       +", 1, 0}, {"      - ", -1, 0},
      {"      +2", 2, 0}, {"        ", 0, 0},   {"", 0, 0},         {"1HPV 186", 0, 8},
      {"1HPV1714", 0, 1}, {"      2 ", 0, 2},   {"      ++", 0, 0}, {"     N3-", -3, -3},
      {"SEG1  A+", 0, 0}, {"      21", 0, 2},
  };
  for (Case const& c : cases) {
    std::string line = "HETATM    1 NA    NA A   1       1.000   2.000   3.000  1.00 20.00      " +
                       std::string(c.columns_73_80) + "\n";
    SCOPED_TRACE(line);
    EXPECT_EQ(atoms_of(read_with(line, standard()))[0]->formal_charge(), c.standard);
    EXPECT_EQ(atoms_of(read_with(line, ReadOptions()))[0]->formal_charge(), c.classic);
  }
}

TEST(PdbStandardRecords, BFactorsAndAnisouAreDisplacementParameters) {
  // A monoclinic cell, so that the Cartesian tensor differs from the one on the cell's axes.
  std::string const text =
      "CRYST1   10.000   12.000   14.000  90.00 110.00  90.00 P 1 21 1      2\n" +
      record("ATOM", 1, " N  ", ' ', "GLY", 1, 1.0, 2.0, 3.0) +
      "ANISOU    1  N   GLY A   1     2000   3000   4000    500   -700    300       N\n" +
      record("ATOM", 2, " CA ", ' ', "GLY", 1, 2.4, 2.0, 3.0) +
      "ANISOU    9  CA  GLY A   1     9000   9000   9000      0      0      0       C\n";
  PdbFile const file = read_with(text, standard());
  std::vector<THandle<Atom>> const atoms = atoms_of(file);
  ASSERT_EQ(atoms.size(), 2U);
  THandle<Cell> const cell_handle = file.cell();  // a copy: kept while it is used
  Cell const& cell = *cell_handle;

  THandle<AtomicDisplacementParameters> const n =
      atoms[0]->site()->atomic_displacement_parameters();
  ASSERT_TRUE(n);
  EXPECT_EQ(n->type(), AtomicDisplacementParameters::anisotropic);
  Matrix<double, 3, 3> const u = n->u_orthogonal(cell);
  double const expected[3][3] = {{0.2, 0.05, -0.07}, {0.05, 0.3, 0.03}, {-0.07, 0.03, 0.4}};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j)
      EXPECT_NEAR(u(i, j), expected[i][j], 1e-12) << i << j;
  // On the cell's axes U22 (b is unique) is the Cartesian one; U11 is not.
  EXPECT_NEAR(n->u(1, 1), 0.3, 1e-12);
  EXPECT_GT(std::abs(n->u(0, 0) - 0.2), 0.01);

  // The ANISOU record of another serial is not this atom's: its B-factor gives U.
  THandle<AtomicDisplacementParameters> const ca =
      atoms[1]->site()->atomic_displacement_parameters();
  ASSERT_TRUE(ca);
  EXPECT_EQ(ca->type(), AtomicDisplacementParameters::isotropic);
  EXPECT_NEAR(ca->u_iso().value(), 20.0 / (8 * M_PI * M_PI), 1e-12);
  EXPECT_NEAR(ca->u_equivalent(cell), 20.0 / (8 * M_PI * M_PI), 1e-12);

  // Classic reading keeps the B-factor in the details only; no B-factor column, no U.
  EXPECT_FALSE(
      atoms_of(read_with(text, ReadOptions()))[0]->site()->atomic_displacement_parameters());
  std::string const short_line = "ATOM      1  N   GLY A   1       1.000   2.000   3.000  1.00\n";
  EXPECT_FALSE(
      atoms_of(read_with(short_line, standard()))[0]->site()->atomic_displacement_parameters());
}

TEST(PdbStandardRecords, AnisouWithoutCellIsTheCartesianTensor) {
  std::string const text =
      record("HETATM", 1, "FE  ", ' ', "HEM", 1, 0, 0, 0) +
      "ANISOU    1 FE   HEM A   1      100    200    300     10     20     30\n";
  THandle<AtomicDisplacementParameters> const u =
      atoms_of(read_with(text, standard()))[0]->site()->atomic_displacement_parameters();
  ASSERT_TRUE(u);
  double const expected[6] = {0.01, 0.02, 0.03, 0.001, 0.002, 0.003};
  int const row[6] = {0, 1, 2, 0, 0, 1};
  int const col[6] = {0, 1, 2, 1, 2, 2};
  for (int k = 0; k < 6; ++k)
    EXPECT_NEAR(u->u(row[k], col[k]), expected[k], 1e-12) << k;
}

// Two atoms 5 angstroms apart, which only a CONECT record joins.
std::string far_pair(int model) {
  return "MODEL     " + std::to_string(model) + "\n" +
         record("HETATM", 1, " S1 ", ' ', "LIG", 1, 0, 0, 0, 1.0, " S") +
         record("HETATM", 2, " S2 ", ' ', "LIG", 2, 5, 0, 0, 1.0, " S");
}

TEST(PdbStandardRecords, ConectAfterTheLastModelHoldsForEveryModel) {
  struct Case {
    char const* what;
    std::string text;
    std::vector<int> standard;  // bonds per model
    std::vector<int> classic;
  };
  std::string const conect = "CONECT    1    2\n";
  std::vector<Case> const cases{
      {"after the last ENDMDL",
       far_pair(1) + "ENDMDL\n" + far_pair(2) + "ENDMDL\n" + far_pair(3) + "ENDMDL\n" + conect +
           "END\n",
       {1, 1, 1},
       {0, 0, 0}},
      {"inside the first model",
       far_pair(1) + conect + "ENDMDL\n" + far_pair(2) + "ENDMDL\nEND\n",
       {1, 0},
       {1, 0}},
      {"with the atoms of a last model without ENDMDL",
       far_pair(1) + "ENDMDL\n" + far_pair(2) + conect,
       {0, 1},
       {0, 1}},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    for (bool is_standard : {true, false}) {
      PdbFile const file = read_with(c.text, is_standard ? standard() : ReadOptions());
      std::vector<int> bonds(c.standard.size(), 0);
      for (THandle<Molecule> const& m : *file.molecules()) {
        int const model = m->atom(0)->details()->model;
        ASSERT_LE(model, static_cast<int>(bonds.size()));
        bonds[std::size_t(model - 1)] += m->nbonds();
      }
      EXPECT_EQ(bonds, is_standard ? c.standard : c.classic);
    }
  }
}

// A serine whose side chain has two locations (A at 0.40, B at 0.60, close enough to be
// bonded if nothing kept them apart), then two waters of two locations of equal occupancy,
// the first written A first, the second B first.
std::string const serine_with_locations =
    record("ATOM", 1, " N  ", ' ', "SER", 1, 0.000, 0.000, 0.000) +
    record("ATOM", 2, " CA ", ' ', "SER", 1, 1.458, 0.000, 0.000) +
    record("ATOM", 3, " C  ", ' ', "SER", 1, 2.009, 1.420, 0.000) +
    record("ATOM", 4, " O  ", ' ', "SER", 1, 1.246, 2.390, 0.000) +
    record("ATOM", 5, " CB ", 'A', "SER", 1, 1.980, -0.780, -1.200, 0.40) +
    record("ATOM", 6, " CB ", 'B', "SER", 1, 1.980, -1.680, -0.600, 0.60) +
    record("ATOM", 7, " OG ", 'A', "SER", 1, 3.380, -0.780, -1.400, 0.40) +
    record("ATOM", 8, " OG ", 'B', "SER", 1, 3.380, -1.680, -0.800, 0.60) +
    record("HETATM", 9, " O  ", 'A', "HOH", 101, 20.0, 0.0, 0.0, 0.50) +
    record("HETATM", 10, " O  ", 'B', "HOH", 101, 20.5, 0.0, 0.0, 0.50) +
    record("HETATM", 11, " O  ", 'B', "HOH", 102, 30.0, 0.0, 0.0, 0.50) +
    record("HETATM", 12, " O  ", 'A', "HOH", 102, 30.5, 0.0, 0.0, 0.50);

TEST(PdbStandardRecords, OneAlternateLocationPerResidueByDefault) {
  PdbFile const file = read_with(serine_with_locations, standard());
  std::vector<int> serials;
  for (THandle<Atom> const& atom : atoms_of(file))
    serials.push_back(serial_of(atom));
  // B for the serine (the higher occupancy), the first written on the waters' ties.
  EXPECT_EQ(serials, (std::vector<int>{1, 2, 3, 4, 6, 8, 9, 11}));
  EXPECT_EQ(bonds_of(file),
            (std::vector<std::pair<int, int>>{{1, 2}, {2, 3}, {2, 6}, {3, 4}, {6, 8}}));
}

TEST(PdbStandardRecords, AllAlternateLocationsOnRequestNeverBondedToEachOther) {
  PdbFile const file = read_with(serine_with_locations, all_locations());
  EXPECT_EQ(atoms_of(file).size(), 12U);
  EXPECT_EQ(bonds_of(file), (std::vector<std::pair<int, int>>{
                                {1, 2}, {2, 3}, {2, 5}, {2, 6}, {3, 4}, {5, 7}, {6, 8}}));
  // Classic reading bonds whatever is close.
  std::vector<std::pair<int, int>> const classic =
      bonds_of(read_with(serine_with_locations, ReadOptions()));
  EXPECT_TRUE(std::find(classic.begin(), classic.end(), std::pair<int, int>(5, 6)) !=
              classic.end());
}

TEST(PdbStandardRecords, ConectNeverJoinsTwoLocations) {
  std::string const text = record("HETATM", 1, " C1 ", 'A', "LIG", 1, 0, 0, 0, 0.5) +
                           record("HETATM", 2, " C1 ", 'B', "LIG", 1, 4, 0, 0, 0.5) +
                           record("HETATM", 3, " C2 ", ' ', "LIG", 1, 8, 0, 0) +
                           "CONECT    1    2    3\nCONECT    2    3\n";
  EXPECT_EQ(bonds_of(read_with(text, all_locations())),
            (std::vector<std::pair<int, int>>{{1, 3}, {2, 3}}));
  EXPECT_EQ(bonds_of(read_with(text, standard())), (std::vector<std::pair<int, int>>{{1, 3}}));
}

// Two alanines; with `locations`, the second one's backbone carbonyl in two locations.
std::string dipeptide(bool locations) {
  std::string text = record("ATOM", 1, " N  ", ' ', "ALA", 1, 0.000, 0.000, 0.000) +
                     record("ATOM", 2, " CA ", ' ', "ALA", 1, 1.458, 0.000, 0.000) +
                     record("ATOM", 3, " C  ", ' ', "ALA", 1, 2.009, 1.420, 0.000) +
                     record("ATOM", 4, " O  ", ' ', "ALA", 1, 1.246, 2.390, 0.000) +
                     record("ATOM", 5, " CB ", ' ', "ALA", 1, 1.980, -0.780, -1.200) +
                     record("ATOM", 6, " N  ", ' ', "ALA", 2, 3.332, 1.540, 0.000) +
                     record("ATOM", 7, " CA ", ' ', "ALA", 2, 3.970, 2.850, 0.000);
  char const a = locations ? 'A' : ' ';
  double const occupancy = locations ? 0.5 : 1.0;
  text += record("ATOM", 8, " C  ", a, "ALA", 2, 5.480, 2.750, 0.000, occupancy);
  if (locations) text += record("ATOM", 9, " C  ", 'B', "ALA", 2, 5.380, 3.050, 0.700, 0.5);
  text += record("ATOM", 10, " O  ", a, "ALA", 2, 6.100, 1.690, 0.000, occupancy);
  if (locations) text += record("ATOM", 11, " O  ", 'B', "ALA", 2, 6.000, 2.100, 1.400, 0.5);
  return text + record("ATOM", 12, " CB ", ' ', "ALA", 2, 3.500, 3.600, 1.200);
}

TEST(PdbStandardRecords, EveryResidueGetsItsCarbonyl) {
  struct Case {
    char const* what;
    bool locations;
    ReadOptions options;
    std::vector<std::pair<int, int>> double_bonds;
  };
  std::vector<Case> const cases{
      {"standard", false, standard(), {{3, 4}, {8, 10}}},
      // Classic typing shares one map between consecutive residues of the same name.
      {"classic", false, ReadOptions(), {{8, 10}}},
      {"one location", true, standard(), {{3, 4}, {8, 10}}},
      {"every location", true, all_locations(), {{3, 4}, {8, 10}, {9, 11}}},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    PdbFile const file = read_with(dipeptide(c.locations), c.options);
    std::vector<std::pair<int, int>> doubles;
    for (THandle<Molecule> const& m : *file.molecules()) {
      for (THandle<Bond> const& b : m->bonds()) {
        if (b->type() != double_bond) continue;
        int const x = serial_of(b->atom1());
        int const y = serial_of(b->atom2());
        doubles.emplace_back(std::min(x, y), std::max(x, y));
      }
    }
    std::sort(doubles.begin(), doubles.end());
    EXPECT_EQ(doubles, c.double_bonds);
  }
}

TEST(PdbStandardRecords, ResidueNameAndChainColumns) {
  struct Case {
    char const* columns_18_22;
    char const* standard_residue;
    char const* standard_chain;
    char const* classic_residue;
  };
  Case const cases[] = {
      {"ALA A", "ALA", "A", "ALA"},  // the PDB's own layout
      {"TIP3 ", "TIP3", "", "TIP"},  // a four-character residue, no chain
      {"POPC ", "POPC", "", "POP"},  //
      {"TIP3B", "TIP", "B", "TIP"},  // column 22 holds a chain: column 21 is not read
      {" NA  ", "NA", "", "NA"},     // a short name, blank chain
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.columns_18_22);
    std::string const line = std::string("HETATM    1  O1  ") + c.columns_18_22 +
                             "   1       1.000   2.000   3.000  1.00 20.00           O\n";
    for (bool const is_standard : {true, false}) {
      PdbFile const file = read_with(line, is_standard ? standard() : ReadOptions());
      THandle<Atom> const atom = file.molecule()->atom(0);
      AtomDetails const* d = atom->details();
      ASSERT_NE(d, nullptr);
      EXPECT_EQ(d->residue_name, is_standard ? c.standard_residue : c.classic_residue);
      if (is_standard) {
        EXPECT_EQ(d->chain, c.standard_chain);
      }
    }
  }
}

}  // namespace
