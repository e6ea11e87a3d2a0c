// The records of a Mol2 entry one by one: atom lines and sections, bond codes, and the CRYSIN
// record's space-group numbers and settings.

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>
#include <tuple>

#include "kora/mol2/mol2_atom.hpp"
#include "kora/mol2/mol2_bond.hpp"
#include "kora/mol2/mol2_crysin.hpp"
#include "mol2_test_support.hpp"

namespace {

using namespace kora;

template <class Record>
Record read(std::string const& text) {
  std::istringstream in(text);
  return Record(in);
}

std::string printed(auto const& section) {
  std::ostringstream out;
  section.print(out);
  return out.str();
}

TEST(Mol2AtomLine, PrintsTheExampleLineByteForByte) {
  Mol2AtomLine const line(1, " C1\t", 1.234, -0.5, 2.0, "C.ar", 1, "RES1", 0);
  EXPECT_EQ(printed(line), "     1 C1       1.2340  -0.5000   2.0000   C.ar      1 RES1   0.0000");
  EXPECT_EQ(read<Mol2AtomLine>(printed(line)), line);
  std::ostringstream out;
  out << std::setfill('*');
  Mol2AtomLine(12, "LONGNAME", 0, 0, 0, "N.pl3", 2, "", -1).print(out);
  EXPECT_EQ(out.str(), "****12 LONGNAME **0.0000 **0.0000 **0.0000   N.pl3*** *2  *-1.0000");
}

TEST(Mol2Atom, SectionReadsByCountAndSelectsSubstructures) {
  std::istringstream in(
      "1 C1 0 0 0 C.3 1 RES1\n2 C2 1.5 0 0 C.3 2 RES2\n3 O3 2 1 0 O.3 2 RES2\nnext line\n");
  Mol2Atom const section(in, 3);
  std::string rest;
  std::getline(in, rest);
  EXPECT_EQ(rest, "next line");
  auto const second = section.atoms(Cell(), 1);
  ASSERT_EQ(second->size(), 2u);
  EXPECT_EQ((*second)[0]->index(), 1);  // index in the whole section
  EXPECT_EQ((*second)[1]->site()->orthogonal(), Point(2, 1, 0));
}

TEST(Mol2Bond, LinesTypesAndPrinting) {
  Mol2BondLine const line;
  // The codes standard writing never writes (the others are read back after writing).
  for (auto [code, type] : {std::pair{"am", single_bond},
                            {"dl", delocalised_bond},
                            {"AR", unknown_bond},
                            {"nc", unknown_bond}}) {
    EXPECT_EQ(line.sybyl_to_symbol(code), type) << code;
  }
}

TEST(Mol2Crysin, ConversionsPrintingAndEquality) {
  auto const crysin = [](char const* symbol) {
    return Mol2Crysin(Cell(5, 6, 7, Angle::from_degrees(90), Angle::from_degrees(100),
                           Angle::from_degrees(90), Spacegroup(symbol)));
  };
  // A table row, symbols of none, and a full symbol.
  std::tuple<char const*, int, int> const cases[] = {
      {"P1121/b", 14, 3}, {"P21/n", 231, 1}, {"R3", 232, 1}, {"R3r", 146, 1}, {"P 1 2/c 1", 13, 1}};
  for (auto [symbol, number, setting] : cases) {
    Mol2Crysin const c = crysin(symbol);
    EXPECT_EQ(c.spacegroup_number(), number) << symbol;
    EXPECT_EQ(c.setting(), setting) << symbol;
    EXPECT_EQ(c.convert_to_kora().symbol(), Spacegroup(symbol).symbol()) << symbol;
  }
  Mol2Crysin const p21c = crysin("P21/c");
  EXPECT_EQ(printed(p21c),
            "    5.0000    6.0000    7.0000   90.0000  100.0000   90.0000    14     1");
  EXPECT_EQ(printed(crysin("P 2/b 1 1")), "");  // a setting of no row: nothing printed
}

}  // namespace
