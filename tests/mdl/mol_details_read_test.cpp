// Isotopes and radicals that the MOL readers keep in the atoms' details, and the structure
// details of a record read.

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "kora/mdl/mol_file.hpp"
#include "mdl_test_support.hpp"

namespace {

using namespace kora;

// Atom symbol, mass-difference column, property lines -> element, mass number, radical.
struct DetailsCase {
  char const* symbol;
  int mass_difference;
  char const* properties;
  char const* element;  // "" for no element
  int mass;
  int radical;
};

class MolDetailsRead : public ::testing::TestWithParam<DetailsCase> {};

TEST_P(MolDetailsRead, V2000) {
  DetailsCase const& c = GetParam();
  MolFile file;
  test::read_mol(file, test::header() + test::counts(2, 1) + test::atom_line(0, 0, 0, "O") +
                           test::atom_line(1, 0, 0, c.symbol, c.mass_difference) + "  1  2  1\n" +
                           c.properties + "M  END\n");
  auto const atom = file.molecule()->atom(1);
  EXPECT_EQ(atom->element(), Element(c.element));
  EXPECT_EQ(atom->details()->mass_number, c.mass);
  EXPECT_EQ(atom->details()->radical, c.radical);
}

INSTANTIATE_TEST_SUITE_P(
    MolDetailsRead, MolDetailsRead,
    ::testing::Values(DetailsCase{"C", 0, "", "C", 0, 0},      // natural
                      DetailsCase{"C", 1, "", "C", 13, 0},     // 12 + 1
                      DetailsCase{"Cl", 2, "", "Cl", 37, 0},   // 35 + 2
                      DetailsCase{"Br", -1, "", "Br", 79, 0},  // 80 - 1
                      DetailsCase{"U", -3, "", "U", 235, 0},   // 238 - 3
                      DetailsCase{"H", 1, "", "D", 2, 0},      // deuterium by mass difference
                      DetailsCase{"H", 2, "", "H", 3, 0},      // tritium stays hydrogen
                      DetailsCase{"H", -1, "", "H", 0, 0},     // no such isotope
                      DetailsCase{"D", 0, "", "D", 2, 0},      // by symbol
                      DetailsCase{"T", 0, "", "", 3, 0},       // by symbol; no element
                      DetailsCase{"T", 1, "", "", 3, 0},       // the column is not counted
                      DetailsCase{"C", 1, "M  ISO  1   2  14\n", "C", 14, 0},  // M ISO wins
                      DetailsCase{"H", 0, "M  ISO  1   2   2\n", "D", 2, 0},
                      DetailsCase{"H", 0, "M  ISO  1   2   3\n", "H", 3, 0},
                      DetailsCase{"T", 0, "M  ISO  1   2   3\n", "", 3, 0},
                      DetailsCase{"N", 0, "M  ISO  2   1  16   2  15\n", "N", 15, 0},
                      DetailsCase{"C", 0, "M  RAD  1   2   2\n", "C", 0, 2},
                      DetailsCase{"C", 0, "M  RAD  2   1   0   2   3\n", "C", 0, 3},
                      DetailsCase{"C", 0, "M  RAD  1   2   7\n", "C", 0, 0},  // not a radical code
                      DetailsCase{"C", 0, "M  RAD  1   9   2\n", "C", 0, 0},  // no such atom
                      DetailsCase{"*", 0, "M  ISO  1   2  13\n", "", 13, 0}));

// V3000 atom properties.
class MolDetailsReadV3000
    : public ::testing::TestWithParam<std::tuple<char const*, char const*, int, int, int>> {};

TEST_P(MolDetailsReadV3000, Properties) {
  auto const [symbol, properties, charge, mass, radical] = GetParam();
  MolFile file;
  test::read_mol(file, std::string("v3\n  test            3D\n\n") +
                           "  0  0  0     0  0            999 V3000\n"
                           "M  V30 BEGIN CTAB\nM  V30 COUNTS 1 0 0 0 0\nM  V30 BEGIN ATOM\n"
                           "M  V30 1 " +
                           symbol + " 0 0 1.5 0" + properties +
                           "\nM  V30 END ATOM\nM  V30 END CTAB\nM  END\n");
  auto const atom = file.molecule()->atom(0);
  EXPECT_EQ(atom->formal_charge(), charge);
  EXPECT_EQ(atom->details()->mass_number, mass);
  EXPECT_EQ(atom->details()->radical, radical);
  EXPECT_EQ(file.structure_details().dimension, "3D");
}

INSTANTIATE_TEST_SUITE_P(
    MolDetailsRead, MolDetailsReadV3000,
    ::testing::Values(std::tuple{"C", "", 0, 0, 0}, std::tuple{"C", " MASS=13", 0, 13, 0},
                      std::tuple{"C", " CHG=-2 RAD=2 MASS=14", -2, 14, 2},
                      std::tuple{"N", " RAD=3", 0, 0, 3}, std::tuple{"D", "", 0, 2, 0},
                      std::tuple{"T", "", 0, 3, 0}, std::tuple{"H", " MASS=2", 0, 2, 0},
                      std::tuple{"C", " RAD=9", 0, 0, 0}));

TEST(MolDetailsRead, StructureDetailsFilledAndCleared) {
  MolFile file;
  test::read_mol(file, test::header("m", "  ") + test::counts(1, 0) +
                           test::atom_line(0, 0, 0.5, "C") + "M  END\n");
  EXPECT_EQ(file.structure_details().source_format, "sdf");
  EXPECT_FALSE(file.structure_details().has_cell);
  EXPECT_EQ(file.structure_details().dimension, "3D");
  file.clear();
  EXPECT_EQ(file.structure_details().source_format, "");
  EXPECT_EQ(file.structure_details().dimension, "");
}

}  // namespace

// Tritium has no element in classic reading; standard reading makes it hydrogen of mass 3, in
// both connection-table versions.
TEST(MolDetailsRead, TritiumIsHydrogenInStandardReading) {
  std::string const v2000 =
      test::header() + test::counts(1, 0) + test::atom_line(0, 0, 0, "T") + "M  END\n";
  std::string const v3000 =
      "t\n  test            3D\n\n  0  0  0     0  0            999 V3000\n"
      "M  V30 BEGIN CTAB\nM  V30 COUNTS 1 0 0 0 0\nM  V30 BEGIN ATOM\nM  V30 1 T 0 0 0 0\n"
      "M  V30 END ATOM\nM  V30 END CTAB\nM  END\n";
  for (std::string const& text : {v2000, v3000}) {
    for (bool const standard : {false, true}) {
      MolFile file;
      if (standard) file.set_read_options(ReadOptions::standard_mode());
      test::read_mol(file, text);
      auto const atom = file.molecule()->atom(0);
      EXPECT_EQ(atom->element(), standard ? Element(1) : Element()) << text;
      EXPECT_EQ(atom->details()->mass_number, 3);
    }
  }
}
