// Reading MOL records: counts lines, V2000 and V3000 connection tables with their code
// tables, property lines and error messages, and the isotopes and radicals kept in atom details.

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "kora/mdl/mol_file.hpp"
#include "mdl_test_support.hpp"

namespace {

using namespace kora;
using namespace kora::test;

std::string const three_atoms =
    atom_line(0, 0, 0, "C") + atom_line(1.4, 0, 0, "O") + atom_line(-0.5, 0.9, 0, "H");
std::string const methanol = three_atoms + "  1  2  1  0\n  1  3  1  0\n";

MolFile read(std::string const& text) {
  MolFile file;
  read_mol(file, text);
  return file;
}

// Counts lines: the stamp at column 35, or groups of three columns, each a number or blank,
// as many as the trimmed line has.
TEST(MolHeader, FirstFormatedLine) {
  std::pair<char const*, bool> const cases[] = {
      {" 12 11  0  0  0  0  0  0  0  0999 V2000", true},
      {" 12 11  0  0  0  0  0  0  0  0999  V2000", false},
      {"  5  4", true},
      {"  51 2", true},  // trims to 4 characters: the bad group "1 2" is not reached
      {"  1     2", true},
      {" 1 2 3", false},
  };
  for (auto [line, accepted] : cases)
    EXPECT_EQ(MolFile::first_formated_line(line), accepted) << '"' << line << '"';
}

TEST(MolV2000, ChargeAndBondCodeTables) {
  int const charges[] = {0, 3, 2, 1, 0, -1, -2, 0, 0};  // by code 0..8
  BondType const types[] = {unknown_bond, single_bond,  double_bond,  triple_bond, aromatic_bond,
                            unknown_bond, unknown_bond, unknown_bond, unknown_bond};
  for (int code = 0; code <= 8; ++code) {
    MolFile const file =
        read(header() + counts(2, 1) + atom_line(0, 0, 0, "N", 0, code) +
             atom_line(1.5, 0, 0, "C") + "  1  2" + std::to_string(code) + "\nM  END\n");
    EXPECT_EQ(file.molecule()->atom(0)->formal_charge(), charges[code]) << code;
    EXPECT_EQ(file.molecule()->bond(0)->type(), types[code]) << code;
  }
}

TEST(MolV2000, AtomsFromTheirColumns) {
  MolFile const file = read(header() + counts(4, 0) + "-1234.5678-2345.6789   12.5000 Cl  0  0\n" +
                            atom_line(0, 0, 0, "H", 1) + atom_line(0, 0, 0, "Q") +
                            atom_line(0, 0, 0, "LP") + "M  END\n");
  auto const m = file.molecule();
  ASSERT_EQ(m->natoms(), 4);
  EXPECT_EQ(m->atom(0)->site()->orthogonal(), Point(-1234.5678, -2345.6789, 12.5));
  EXPECT_EQ(m->atom(0)->label() + m->atom(1)->label() + m->atom(2)->label() + m->atom(3)->label(),
            "Cl1D2Q3LP4");
  EXPECT_EQ(m->atom(0)->element().symbol() + m->atom(1)->element().symbol() +
                m->atom(2)->element().symbol() + m->atom(3)->element().symbol(),
            "ClD");
}

// A zero "M  CHG" entry does not reset the charge code's charge (+1 on N); a line naming atom 3
// twice goes on to a third entry (+2 on atom 2).
TEST(MolV2000, ChargeLines) {
  auto const m = read(header() + counts(3, 0) + atom_line(0, 0, 0, "N", 0, 3) +
                      atom_line(2, 0, 0, "O") + atom_line(4, 0, 0, "O") +
                      "M  CHG  2   1   0   2  -1\nM  CHG  2   3   1   3   2   2   2\nM  END\n")
                     .molecule();
  EXPECT_EQ(std::vector<int>({m->atom(0)->formal_charge(), m->atom(1)->formal_charge(),
                              m->atom(2)->formal_charge()}),
            std::vector<int>({1, 2, 2}));
}

// Flat when the z of every atom is zero (compared in single precision: 1e-50 is zero there, 1e300
// has no float value) and the header does not say 3D.
TEST(MolV2000, TwoDimensionalWhenEveryZIsZeroAndTheHeaderDoesNotSay3D) {
  std::tuple<char const*, char const*, bool> const cases[] = {
      {"2D", "    0.0000", true}, {"  ", "    0.0000", true},  {"3d", "    0.0000", false},
      {"  ", "   1.0e-50", true}, {"  ", "  1.0e300 ", false}, {"2D", "    0.0010", false}};
  for (auto [dimension, z, flat] : cases) {
    MolFile const file = read(header("m", dimension) + counts(2, 0) + atom_line(0, 0, 0, "C") +
                              atom_line(0, 0, 0, "C").replace(20, 10, z) + "M  END\n");
    EXPECT_EQ(file.is_2d(), flat) << dimension << z;
  }
}

TEST(MolRead, ErrorMessages) {
  std::string const atom = "M  V30 BEGIN ATOM\nM  V30 1 C 0 0 0 0\n";
  std::pair<std::string, char const*> const cases[] = {
      {header() + counts(999, 2) + methanol, "Atom block incomplete - not enough atom lines"},
      {header() + counts(3, 1) + three_atoms + "  1  4  1\n",
       "Unable to create bonds - incorrect lines in file"},
      {v3000_record(atom + "M  V30 2 O 1\nM  V30 END ATOM\n"),
       "Unreadable line in Atom block - too few fields"},
  };
  for (auto const& [text, message] : cases)
    EXPECT_EQ(message_of<std::runtime_error>([&] { read(text + "M  END\n"); }), message) << text;
}

// A record without "M  END" ends at "$$$$" inside its table, and the next is read from there.
TEST(MolV2000, RecordsEndAtTheTerminator) {
  std::istringstream in(header("first") + counts(3, 2) + methanol + "$$$$\n" + header("second") +
                        counts(1, 0) + atom_line(0, 0, 0, "Ar") + "M  END\n$$$$\n");
  MolFile file;
  file.read(in);
  EXPECT_EQ(file.molecule()->natoms(), 3);
  file.read(in);
  EXPECT_EQ(file.molecule_name(), "second");
}

TEST(MolV3000, ContinuationLinesSparseIndexesAndSkippedBlocks) {
  MolFile const file = read(
      v3000_record("M  V30 BEGIN ATOM\nM  V30 10 N 1.0 2.0 -\nM  V30 3.5 0 CHG=1\n"
                   "M  V30 20 C 0 0 0 0 -\nM  V30 ATTCHORD=(2 1 2) ALIAS=\"a (b\" CHG=2\n"
                   "M  V30 30 NOT [C,N] 1 1 1 0\nM  V30 END ATOM\nM  V30 BEGIN BOND\n"
                   "M  V30 1 1 30 10\nM  V30 1 3 20 10\nM  V30 END BOND\n"
                   "M  V30 BEGIN SGROUP\nM  V30 1 SUP 0 ATOMS=(1 10)\nM  V30 END SGROUP\n",
                   "3D",
                   "M  V30 BEGIN RGROUP 1\nM  V30 BEGIN CTAB\nM  V30 END CTAB\nM  V30 BEGIN CTAB\n"
                   "M  V30 BEGIN ATOM\nM  V30 1 C 0 0 0 0\nM  V30 END ATOM\nM  V30 END CTAB\n"
                   "M  V30 END RGROUP\n"));
  auto const m = file.molecule();
  ASSERT_EQ(m->natoms(), 3);
  EXPECT_EQ(m->atom(0)->label(), "N10");
  EXPECT_EQ(m->atom(0)->formal_charge(), 1);
  EXPECT_DOUBLE_EQ(m->atom(0)->site()->orthogonal()[2], 3.5);
  EXPECT_EQ(m->atom(1)->formal_charge(), 2);  // after a quoted "(" and a list
  EXPECT_EQ(m->atom(2)->label(), "L30");      // an atom list is a query atom
  EXPECT_FALSE(m->atom(2)->element().is_set());
  ASSERT_EQ(m->nbonds(), 2);  // the repeated bond number does not merge bonds
  EXPECT_EQ(m->bond_atoms(1), (std::pair{1, 0}));
  EXPECT_FALSE(file.is_2d());
}

// An atom as written (V2000: symbol, mass-difference column and property lines; V3000: the
// atom line) -> element, charge, mass number and radical kept in the details.
struct DetailsCase {
  bool v3000;
  char const* symbol;
  int mass_difference;
  char const* properties;  // V2000 property lines, or V3000 atom properties
  char const* element;     // "" for no element
  int charge;
  int mass;
  int radical;
  bool standard = false;  // standard reading: tritium is hydrogen
};

class MolDetailsRead : public ::testing::TestWithParam<DetailsCase> {};

TEST_P(MolDetailsRead, ElementChargeMassAndRadical) {
  DetailsCase const& c = GetParam();
  MolFile file;
  if (c.standard) file.set_read_options(ReadOptions::standard_mode());
  read_mol(file,
           c.v3000
               ? v3000_record(
                     v3000_atom(std::string("1 ") + c.symbol + " 0 0 1.5 0" + c.properties), "3D")
               : header() + counts(2, 1) + atom_line(0, 0, 0, "O") +
                     atom_line(1, 0, 0, c.symbol, c.mass_difference) + "  1  2  1\n" +
                     c.properties + "M  END\n");
  auto const atom = file.molecule()->atom(c.v3000 ? 0 : 1);
  EXPECT_EQ(atom->element(), Element(c.element));
  EXPECT_EQ(atom->formal_charge(), c.charge);
  EXPECT_EQ(atom->details()->mass_number, c.mass);
  EXPECT_EQ(atom->details()->radical, c.radical);
}

INSTANTIATE_TEST_SUITE_P(
    MolDetailsRead, MolDetailsRead,
    ::testing::Values(DetailsCase{false, "C", 1, "", "C", 0, 13, 0},     // 12 + 1
                      DetailsCase{false, "Br", -1, "", "Br", 0, 79, 0},  // 80 - 1
                      DetailsCase{false, "H", 1, "", "D", 0, 2, 0},      // deuterium
                      DetailsCase{false, "H", 2, "", "H", 0, 3, 0},      // tritium stays H
                      DetailsCase{false, "T", 1, "", "", 0, 3, 0},       // column not counted
                      DetailsCase{false, "C", 1, "M  ISO  1   2  14\n", "C", 0, 14, 0},
                      DetailsCase{false, "C", 0, "M  RAD  2   1   0   2   3\n", "C", 0, 0, 3},
                      DetailsCase{false, "C", 0, "M  RAD  1   2   7\n", "C", 0, 0, 0},  // no code
                      DetailsCase{false, "C", 0, "M  RAD  1   9   2\n", "C", 0, 0, 0},  // no atom
                      DetailsCase{true, "C", 0, " CHG=-2 RAD=2 MASS=14", "C", -2, 14, 2},
                      DetailsCase{true, "H", 0, " MASS=2", "D", 0, 2, 0},
                      DetailsCase{true, "C", 0, " RAD=9", "C", 0, 0, 0},
                      DetailsCase{false, "T", 0, "", "H", 0, 3, 0, true},
                      DetailsCase{true, "T", 0, "", "H", 0, 3, 0, true}));

}  // namespace
