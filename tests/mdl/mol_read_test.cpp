// Reading MOL records: the header, V2000 and V3000 connection tables with their code tables,
// property lines and error messages, and the isotopes and radicals kept in atom details.

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "kora/kernel/date.hpp"
#include "kora/mdl/mol_file.hpp"
#include "mdl_test_support.hpp"

namespace {

using namespace kora;
using namespace kora::test;

std::string const three_atoms =
    atom_line(0, 0, 0, "C") + atom_line(1.4, 0, 0, "O") + atom_line(-0.5, 0.9, 0, "H");
std::string const methanol = three_atoms + "  1  2  1  0\n  1  3  1  0\n";

TEST(MolHeader, SecondLineColumns) {
  MolFile file;
  file.read_header_second_line("ABPROGRAM10102051230" + std::string("3D") + "1    1.00000" +
                               "  -12.345678" + "123456" + "x");
  EXPECT_EQ(file.user_initials() + '|' + file.program_name() + '|' + file.date_time() + '|' +
                file.dimensional_code() + '|' + file.scaling_factors() + '|' + file.energy() + '|' +
                file.registry_number(),
            "AB|PROGRAM1|0102051230|3D|1    1.00000|  -12.345678|123456");
  // 20 characters reach the date; 25 give a 3-character scaling field; empty changes nothing.
  MolFile other;
  other.read_header_second_line("XYPROGRAM20102051230");
  EXPECT_EQ(other.dimensional_code(), "");
  other.read_header_second_line("XYPROGRAM20102051230" + std::string("2D") + "1.0");
  other.read_header_second_line("");
  EXPECT_EQ(other.scaling_factors() + other.user_initials(), "1.0XY");
}

TEST(MolHeader, ReadsFourLinesAndChoosesTheVersion) {
  MolFile file;
  read_mol(file, header("benzene", "3D") + counts(0, 0) + "M  END\n");
  EXPECT_EQ(file.molecule_name() + file.dimensional_code(), "benzene3D");
  EXPECT_EQ(file.version(), MolFile::V2000);
  // "V3000" anywhere in the counts line selects the V3000 reader.
  read_mol(file,
           "x\n\ncomment\nV3000\nM  V30 BEGIN CTAB\nM  V30 BEGIN ATOM\n"
           "M  V30 1 C 0 0 0 0\nM  V30 END ATOM\nM  V30 END CTAB\nM  END\n");
  EXPECT_EQ(file.comment(), "comment");
  EXPECT_EQ(file.version(), MolFile::V3000);
  EXPECT_EQ(file.molecule()->natoms(), 1);
}

TEST(MolHeader, FirstFormatedLine) {
  std::pair<char const*, bool> const cases[] = {
      {" 12 11  0  0  0  0  0  0  0  0999 V2000", true},
      {"  0  0  0     0  0            999 V3000", true},
      {" 12 11  0  0  0  0  0  0  0  0999  V2000", false},  // stamp one column late
      {"V3000 xxxxxxxxxxxxxxxxxxxxxxxxxxxxV3000", false},   // first occurrence elsewhere
      {"  5  4", true},     // trims to 4 characters: only the first group is tested
      {"  51 2", true},     // the bad group "1 2" is not reached
      {"  1     2", true},  // a group of three blanks is excused
      {"  5  x", false},    // a letter
      {"1234567", true},
      {" 1 2 3", false},  // the group "2 3" is not a number
      {"", false},
      {"     ", false},
  };
  for (auto [line, accepted] : cases)
    EXPECT_EQ(MolFile::first_formated_line(line), accepted) << '"' << line << '"';
}

TEST(MolHeader, PrintWritesThisProgramTodayAndCutsAt80) {
  MolFile file;
  read_mol(file, std::string(100, 'n') + "\nABPROGRAM10102051230" + "3D" + "1.0\nnote\n" +
                     counts(0, 0) + "M  END\n");
  Date const today = Date::today();
  char date[16];
  std::snprintf(date, sizeof date, "%02d%02d%02d", today.month(), today.day(), today.year() - 2000);
  std::ostringstream out;
  file.print_header(out);
  EXPECT_EQ(out.str(), std::string(80, 'n') + "\nAB--KORA--" + date + "    3D1.0" +
                           std::string(9 + 12 + 6, ' ') + "\nnote\n");
}

TEST(MolV2000, ChargeAndBondCodeTables) {
  int const charges[] = {0, 3, 2, 1, 0, -1, -2, 0, 0};  // by code 0..8
  BondType const types[] = {unknown_bond, single_bond,  double_bond,  triple_bond, aromatic_bond,
                            unknown_bond, unknown_bond, unknown_bond, unknown_bond};
  for (int code = 0; code <= 8; ++code) {
    MolFile file;
    read_mol(file, header() + counts(2, 1) + atom_line(0, 0, 0, "N", 0, code) +
                       atom_line(1.5, 0, 0, "C") + "  1  2" + std::to_string(code) + "\nM  END\n");
    EXPECT_EQ(file.molecule()->atom(0)->formal_charge(), charges[code]) << code;
    EXPECT_EQ(file.molecule()->bond(0)->type(), types[code]) << code;
  }
}

TEST(MolV2000, AtomsFromTheirColumns) {
  MolFile file;
  read_mol(file, header() + counts(6, 0) + "-1234.5678-2345.6789   12.5000 Cl  0  0\n" +
                     atom_line(0, 0, 0, "H", 1) + atom_line(0, 0, 0, "H", 2) +
                     atom_line(0, 0, 0, "H", -1) + atom_line(0, 0, 0, "Q") +
                     atom_line(0, 0, 0, "LP") + "M  END\n");
  auto const m = file.molecule();
  ASSERT_EQ(m->natoms(), 6);
  auto const p = m->atom(0)->site()->orthogonal();
  EXPECT_EQ(std::vector<double>({p[0], p[1], p[2]}),
            std::vector<double>({-1234.5678, -2345.6789, 12.5}));
  char const* labels[] = {"Cl1", "D2", "H3", "H4", "Q5", "LP6"};
  char const* symbols[] = {"Cl", "D", "H", "H", "", ""};
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(m->atom(i)->label(), labels[i]);
    EXPECT_EQ(m->atom(i)->element().symbol(), symbols[i]);
  }
}

TEST(MolV2000, ChargeAndIsotopeLines) {
  MolFile file;
  // N has charge code 3 (+1); CHG names it with 0, which does not reset it. The second CHG
  // line names atom 3 twice, so the reader goes on to a third entry (atom 2, +2). ISO makes
  // the mass-2 hydrogen deuterium and leaves the mass-3 one and the carbon alone.
  read_mol(file, header() + counts(6, 0) + atom_line(0, 0, 0, "N", 0, 3) + atom_line(2, 0, 0, "O") +
                     atom_line(4, 0, 0, "O") + atom_line(6, 0, 0, "H") + atom_line(8, 0, 0, "H") +
                     atom_line(10, 0, 0, "C") +
                     "M  CHG  2   1   0   2  -1\nM  CHG  2   3   1   3   2   2   2\n"
                     "M  ISO  3   4   2   5   3   6   2\nM  END\n");
  auto const m = file.molecule();
  EXPECT_EQ(std::vector<int>({m->atom(0)->formal_charge(), m->atom(1)->formal_charge(),
                              m->atom(2)->formal_charge()}),
            std::vector<int>({1, 2, 2}));
  EXPECT_EQ(m->atom(3)->element().symbol() + m->atom(4)->element().symbol() +
                m->atom(5)->element().symbol(),
            "DHC");
}

TEST(MolV2000, TwoDimensionalWhenEveryZIsZeroAndTheHeaderDoesNotSay3D) {
  for (auto [dimension, flat] : {std::pair{"2D", true}, std::pair{"  ", true},
                                 std::pair{"3D", false}, std::pair{"3d", false}}) {
    MolFile file;
    read_mol(file, header("m", dimension) + counts(3, 2) + methanol + "M  END\n");
    EXPECT_EQ(file.is_2d(), flat) << dimension;
  }
  // z is compared in single precision: 1e-50 is zero there; 1e300 has no float value.
  std::tuple<char const*, bool, bool> const z_cases[] = {
      {"   1.0e-50", true, false}, {"   1.0e-50", false, true}, {"  1.0e300 ", false, false}};
  for (auto [z, second_atom, flat] : z_cases) {
    MolFile file;
    read_mol(file, header() + counts(second_atom ? 2 : 1, 0) +
                       atom_line(0, 0, 0, "C").replace(20, 10, z) +
                       (second_atom ? atom_line(0, 0, 1e-3, "C") : "") + "M  END\n");
    EXPECT_EQ(file.is_2d(), flat) << z;
  }
}

TEST(MolRead, ErrorMessages) {
  std::string const atom = "M  V30 BEGIN ATOM\nM  V30 1 C 0 0 0 0\n";
  std::string const bonds = "M  V30 END ATOM\nM  V30 BEGIN BOND\n";
  std::pair<std::string, char const*> const cases[] = {
      {header() + counts(999, 2) + methanol, "Atom block incomplete - not enough atom lines"},
      {header() + counts(3, 2, 1) + methanol + "M  ALS   1  1 F C\n",
       "Atom lists present, unable to process these"},
      {header() + counts(3, 2, 0, 1) + methanol, "Stext entries present, unable to process these"},
      {header() + counts(3, 1) + methanol, "Unexpected additional line in Bond block"},
      {header() + counts(3, 1) + three_atoms + "  0  2  1\n",
       "Unable to create bonds - incorrect lines in file"},
      {header() + counts(3, 1) + three_atoms + "  1  9  1\n",
       "Unable to create bonds - incorrect lines in file"},
      {v3000_record(atom + "M  V30 BEGIN BOND\nM  V30 END BOND\n"),
       "Atom block incomplete - no END ATOM line"},
      {v3000_record(atom + bonds + "M  V30 1 1 1 1\n"), "Bond block incomplete - no END BOND line"},
      {v3000_record(atom + bonds + "M  V30 1 1 1 2\nM  V30 END BOND\n"),
       "Unable to create bonds - bond to an unknown atom index"},
      {v3000_record(atom + bonds + "M  V30 1 1 1 1\nM  V30 END BOND\n"),
       "Unable to create bonds - incorrect lines in file"},
      {v3000_record("M  V30 COUNTS 999 0 0 0 0\n" + atom + "M  V30 END ATOM\n"),
       "Atom block incomplete - not enough atom lines"},
      {v3000_record("M  V30 COUNTS 1 5 0 0 0\n" + atom + "M  V30 END ATOM\n"),
       "Bond block incomplete - not enough bond lines"},
      {v3000_record(atom + "M  V30 1 O 1 0 0 0\nM  V30 END ATOM\n"),
       "Atom index repeated in Atom block - incorrect lines in file"},
      {v3000_record(atom + "M  V30 2 O 1\nM  V30 END ATOM\n"),
       "Unreadable line in Atom block - too few fields"},
  };
  for (auto const& [text, message] : cases)
    expect_error(text + "M  END\n", message);
}

TEST(MolV2000, LinesAfterTheBondsAndShortLines) {
  // Short lines, and later lines with digits in columns 1-3, are ignored after the bonds.
  MolFile file;
  read_mol(file, header() + counts(3, 2) + methanol +
                     "  1\nA    1\n  1 alias\nM  RAD  1   1   2\n" + "M  END\n");
  EXPECT_EQ(file.molecule()->nbonds(), 2);
  // Short atom and bond lines: missing columns read as 0.
  read_mol(file, header() + counts(2, 1) + "1.5\n-2.\n  1  2\n");
  ASSERT_EQ(file.molecule()->natoms(), 2);
  EXPECT_DOUBLE_EQ(file.molecule()->atom(0)->site()->orthogonal()[0], 1.5);
  EXPECT_EQ(file.molecule()->bond(0)->type(), unknown_bond);
  // Junk gives errors or lenient results, never a crash.
  for (std::string const& junk :
       {std::string(), std::string("\0\xff\x01\n\x80\x80\n\n\xfe 1.\n", 13),
        header() + counts(3, 2), header() + "999999999999999999\n" + std::string(50, '.') + "\n",
        std::string("\r\r\r\r")}) {
    MolFile any;
    message_of<std::runtime_error>([&] { read_mol(any, junk); });
  }
}

TEST(MolV2000, RecordsEndAtTheTerminator) {
  // The first record ends inside its table (no data items read); the second after them.
  std::istringstream in(header("first") + counts(3, 2) + methanol + "$$$$\n" + header("second") +
                        counts(1, 0) + atom_line(0, 0, 0, "Ar") +
                        "M  END\n> <id>\n7\n\n$$$$\nnext\n");
  MolFile file;
  file.read(in);
  EXPECT_EQ(file.molecule()->natoms(), 3);
  EXPECT_TRUE(file.tags()->empty());
  file.read(in);
  EXPECT_EQ(file.molecule_name(), "second");
  EXPECT_EQ(*file.tags()->values("id"), std::vector<std::string>{"7"});
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line, "next");
}

TEST(MolV3000, AtomsChargesMassesBondsAndItems) {
  MolFile file;
  read_mol(file, v3000_record("M  V30 COUNTS 4 3 0 0 0\nM  V30 BEGIN ATOM\n"
                              "M  V30 1 C 0.0 0.0 0.0 0\nM  V30 2 C 1.5 0.0 0.0 0\n"
                              "M  V30 3 O 2.1 1.1 0.0 0 CHG=-1\nM  V30 4 H -0.5 0.9 0.0 0 MASS=2\n"
                              "M  V30 END ATOM\nM  V30 BEGIN BOND\nM  V30 1 1 1 2\n"
                              "M  V30 2 2 2 3 CFG=2\nM  V30 3 4 1 4\nM  V30 END BOND\n") +
                     "> <id>\n12\n\n$$$$\n");
  auto const m = file.molecule();
  ASSERT_EQ(m->natoms(), 4);
  ASSERT_EQ(m->nbonds(), 3);
  EXPECT_EQ(m->atom(2)->formal_charge(), -1);
  EXPECT_EQ(m->atom(3)->label(), "D4");
  EXPECT_DOUBLE_EQ(m->atom(2)->site()->orthogonal()[1], 1.1);
  EXPECT_EQ(m->bond(1)->type(), double_bond);
  EXPECT_EQ(m->bond(2)->type(), aromatic_bond);
  EXPECT_TRUE(file.is_2d());
  EXPECT_EQ(*file.tags()->values("id"), std::vector<std::string>{"12"});
}

TEST(MolV3000, ContinuationLinesSparseIndexesAndSkippedBlocks) {
  MolFile file;
  read_mol(
      file,
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
};

class MolDetailsRead : public ::testing::TestWithParam<DetailsCase> {};

TEST_P(MolDetailsRead, ElementChargeMassAndRadical) {
  DetailsCase const& c = GetParam();
  MolFile file;
  if (c.v3000) {
    read_mol(
        file,
        v3000_record(v3000_atom(std::string("1 ") + c.symbol + " 0 0 1.5 0" + c.properties), "3D"));
  } else {
    read_mol(file, header() + counts(2, 1) + atom_line(0, 0, 0, "O") +
                       atom_line(1, 0, 0, c.symbol, c.mass_difference) + "  1  2  1\n" +
                       c.properties + "M  END\n");
  }
  auto const atom = file.molecule()->atom(c.v3000 ? 0 : 1);
  EXPECT_EQ(atom->element(), Element(c.element));
  EXPECT_EQ(atom->formal_charge(), c.charge);
  EXPECT_EQ(atom->details()->mass_number, c.mass);
  EXPECT_EQ(atom->details()->radical, c.radical);
}

INSTANTIATE_TEST_SUITE_P(
    MolDetailsRead, MolDetailsRead,
    ::testing::Values(DetailsCase{false, "C", 0, "", "C", 0, 0, 0},      // natural
                      DetailsCase{false, "C", 1, "", "C", 0, 13, 0},     // 12 + 1
                      DetailsCase{false, "Br", -1, "", "Br", 0, 79, 0},  // 80 - 1
                      DetailsCase{false, "H", 1, "", "D", 0, 2, 0},  // deuterium by mass difference
                      DetailsCase{false, "H", 2, "", "H", 0, 3, 0},  // tritium stays hydrogen
                      DetailsCase{false, "H", -1, "", "H", 0, 0, 0},  // no such isotope
                      DetailsCase{false, "D", 0, "", "D", 0, 2, 0},   // by symbol
                      DetailsCase{false, "T", 1, "", "", 0, 3,
                                  0},  // no element; column not counted
                      DetailsCase{false, "C", 1, "M  ISO  1   2  14\n", "C", 0, 14, 0},  // ISO wins
                      DetailsCase{false, "H", 0, "M  ISO  1   2   2\n", "D", 0, 2, 0},
                      DetailsCase{false, "T", 0, "M  ISO  1   2   3\n", "", 0, 3, 0},
                      DetailsCase{false, "N", 0, "M  ISO  2   1  16   2  15\n", "N", 0, 15, 0},
                      DetailsCase{false, "C", 0, "M  RAD  2   1   0   2   3\n", "C", 0, 0, 3},
                      DetailsCase{false, "C", 0, "M  RAD  1   2   7\n", "C", 0, 0, 0},  // no code
                      DetailsCase{false, "C", 0, "M  RAD  1   9   2\n", "C", 0, 0, 0},  // no atom
                      DetailsCase{false, "*", 0, "M  ISO  1   2  13\n", "", 0, 13, 0},
                      DetailsCase{true, "C", 0, " MASS=13", "C", 0, 13, 0},
                      DetailsCase{true, "C", 0, " CHG=-2 RAD=2 MASS=14", "C", -2, 14, 2},
                      DetailsCase{true, "D", 0, "", "D", 0, 2, 0},
                      DetailsCase{true, "T", 0, "", "", 0, 3, 0},
                      DetailsCase{true, "H", 0, " MASS=2", "D", 0, 2, 0},
                      DetailsCase{true, "C", 0, " RAD=9", "C", 0, 0, 0}));

TEST(MolDetailsRead, StructureDetailsFilledAndCleared) {
  MolFile file;
  read_mol(file, header("m", "  ") + counts(1, 0) + atom_line(0, 0, 0.5, "C") + "M  END\n");
  EXPECT_EQ(file.structure_details().source_format, "sdf");
  EXPECT_FALSE(file.structure_details().has_cell);
  EXPECT_EQ(file.structure_details().dimension, "3D");
  file.clear();
  EXPECT_EQ(file.structure_details().source_format + file.structure_details().dimension, "");
}

// Tritium has no element in classic reading; standard reading makes it hydrogen of mass 3, in
// both connection-table versions.
TEST(MolDetailsRead, TritiumIsHydrogenInStandardReading) {
  for (std::string const& text : {header() + counts(1, 0) + atom_line(0, 0, 0, "T") + "M  END\n",
                                  v3000_record(v3000_atom("1 T 0 0 0 0"))}) {
    for (bool const standard : {false, true}) {
      MolFile file;
      if (standard) file.set_read_options(ReadOptions::standard_mode());
      read_mol(file, text);
      auto const atom = file.molecule()->atom(0);
      EXPECT_EQ(atom->element(), standard ? Element(1) : Element()) << text;
      EXPECT_EQ(atom->details()->mass_number, 3);
    }
  }
}

}  // namespace
