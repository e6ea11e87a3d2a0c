#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>

#include "kora/kernel/date.hpp"
#include "kora/mdl/mol_file.hpp"
#include "mdl_test_support.hpp"

namespace {

using kora::MolFile;

TEST(MolHeader, SecondLineColumns) {
  MolFile file;
  file.read_header_second_line(
      "ABPROGRAM10102051230"
      "3D"
      "1    1.00000"
      "  -12.345678"
      "123456"
      "x");
  EXPECT_EQ(file.user_initials() + '|' + file.program_name() + '|' + file.date_time() + '|' +
                file.dimensional_code() + '|' + file.scaling_factors() + '|' + file.energy() + '|' +
                file.registry_number(),
            "AB|PROGRAM1|0102051230|3D|1    1.00000|  -12.345678|123456");
  // 20 characters reach the date; 25 give a 3-character scaling field; empty changes nothing.
  MolFile other;
  other.read_header_second_line("XYPROGRAM20102051230");
  EXPECT_EQ(other.dimensional_code(), "");
  other.read_header_second_line(
      "XYPROGRAM20102051230"
      "2D"
      "1.0");
  other.read_header_second_line("");
  EXPECT_EQ(other.scaling_factors(), "1.0");
  EXPECT_EQ(other.user_initials(), "XY");
}

TEST(MolHeader, ReadsFourLinesAndChoosesTheVersion) {
  MolFile file;
  kora::test::read_mol(file,
                       kora::test::header("benzene", "3D") + kora::test::counts(0, 0) + "M  END\n");
  EXPECT_EQ(file.molecule_name(), "benzene");
  EXPECT_EQ(file.dimensional_code(), "3D");
  EXPECT_EQ(file.version(), MolFile::V2000);
  // "V3000" anywhere in the counts line selects the V3000 reader.
  kora::test::read_mol(file,
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
      {"12", true},
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
  kora::test::read_mol(file, std::string(100, 'n') +
                                 "\nABPROGRAM10102051230"
                                 "3D"
                                 "1.0\nnote\n" +
                                 kora::test::counts(0, 0) + "M  END\n");
  kora::Date const today = kora::Date::today();
  char date[16];
  std::snprintf(date, sizeof date, "%02d%02d%02d", today.month(), today.day(), today.year() - 2000);
  std::ostringstream out;
  file.print_header(out);
  EXPECT_EQ(out.str(), std::string(80, 'n') + "\nAB--KORA--" + date + "    3D1.0" +
                           std::string(9 + 12 + 6, ' ') + "\nnote\n");
}

}  // namespace
