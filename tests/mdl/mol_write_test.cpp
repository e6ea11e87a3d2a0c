// Writing MOL/SD records: the classic V2000 table and record, and standard writing's charge
// codes and property lines, isotopes and radicals, dimension and V2000/V3000 choice,
// checked column by column and by reading the output back.

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "kora/mdl/mol_file.hpp"
#include "mdl_test_support.hpp"

namespace {

using namespace kora;

struct AtomRow {
  char const* symbol;
  int charge = 0;
  int mass = 0;
  int radical = 0;
  double z = 0.0;
};

THandle<Atom> make_atom(AtomRow const& row, int order, double x, bool placed = true) {
  Point const p{x, 0.5, row.z};
  auto a = make_handle<FileOrderedAtom3d>(order, Element(row.symbol), row.symbol,
                                          placed ? make_handle<Site>(p, p) : THandle<Site>());
  a->set_formal_charge(row.charge);
  a->mutable_details()->mass_number = row.mass;
  a->mutable_details()->radical = row.radical;
  if (std::string_view(row.symbol) == "T") a->mutable_details()->element_symbol = "T";
  return THandle<Atom>(a);
}

// A chain of the atoms, joined by bonds of the given type.
THandle<Molecule3d> chain(std::vector<AtomRow> const& rows, BondType type = single_bond) {
  auto const m = make_handle<Molecule3d>();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    m->add_atom(make_atom(rows[i], static_cast<int>(i) + 1, 1.5 * static_cast<double>(i)));
    if (i > 0) m->add_bond(static_cast<int>(i) - 1, static_cast<int>(i), type);
  }
  return m;
}

std::string print(MolFile& file, WriteOptions options, bool v3000 = false) {
  options.v3000 = v3000;
  file.set_write_options(options);
  std::ostringstream out;
  file.print(out);
  return out.str();
}

std::string write(Molecule const& molecule, bool v3000 = false) {
  MolFile file;
  file.add(molecule, DatabaseEntryIdentifier("name"));
  return print(file, WriteOptions::standard_mode(), v3000);
}

std::vector<std::string> lines_of(std::string const& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

// The lines beginning with the prefix.
std::vector<std::string> lines_with(std::string const& text, std::string const& prefix) {
  std::vector<std::string> found;
  for (std::string const& line : lines_of(text))
    if (line.rfind(prefix, 0) == 0) found.push_back(line);
  return found;
}

MolFile read_back(std::string const& text) {
  MolFile file;
  test::read_mol(file, text);
  return file;
}

// The connection table of classic writing, without header and data items.
std::string classic_table(MolFile const& file) {
  std::ostringstream out;
  file.initialise_print();
  file.version() == MolFile::V3000 ? file.print_V3000(out) : file.print_V2000(out);
  return out.str();
}

TEST(MolWrite, ClassicTables) {
  EXPECT_EQ(classic_table(MolFile()), "  0  0  0  0  0  0  0  0  0  0999 V2000\nM  END\n");
  // Water with a charged oxygen and an atom without element; H-O aromatic, O-* unknown.
  auto const m = chain({{"H"}, {"O", -1, 0, 0, 10}, {"Xx"}});
  m->bond(0)->set_type(aromatic_bond);
  m->bond(1)->set_type(unknown_bond);
  m->atom(2)->site()->set_orthogonal(Point{-12.3456, 0, 0});
  m->add_atom(make_atom({"C"}, 4, 0, false));  // without a site: left out, with its bond
  m->add_bond(2, 3, single_bond);
  MolFile file;
  file.add(*m, DatabaseEntryIdentifier("w"));
  EXPECT_EQ(classic_table(file),
            "  3  2  0  0  0  0  0  0  0  0999 V2000\n    0.0000    0.5000    0.0000 H      0\n"
            "    1.5000    0.5000   10.0000 O     -1\n  -12.3456    0.0000    0.0000 *      0\n"
            "  1  2  4\n  2  3  1\n"
            "M  END\n");
}

TEST(MolWrite, ClassicRecordIsHeaderTableItemsTerminator) {
  MolFile file;
  file.add(*chain({{"Ne"}}), DatabaseEntryIdentifier("neon gas"));
  file.add_sd_tag("melting point", "  24.56 K ");
  std::string const text = print(file, WriteOptions::classic_mode());
  EXPECT_EQ(text.substr(0, 19), "neon gas\n  --KORA--");
  EXPECT_EQ(text.substr(25), "    3D" + std::string(30, ' ') + "\n\n" +
                                 "  1  0  0  0  0  0  0  0  0  0999 V2000\n"
                                 "    0.0000    0.5000    0.0000 Ne     0\n"
                                 "M  END\n> <melting.point>\n24.56 K\n\n$$$$\n");
}

// BondType -> the classic code, the standard code, and the type standard output reads back as.
class MolBondCodes : public ::testing::TestWithParam<std::tuple<BondType, int, int, BondType>> {};

TEST_P(MolBondCodes, ClassicAndStandard) {
  auto const [type, classic, code, read_as] = GetParam();
  EXPECT_EQ(MolFile().sd_bond_type(type), classic);
  for (bool const v3000 : {false, true}) {
    std::string const text = write(*chain({{"C"}, {"C"}}, type), v3000);
    std::string const line = v3000 ? lines_with(text, "M  V30 1 ")[1] : lines_of(text)[6];
    EXPECT_EQ(line, v3000 ? "M  V30 1 " + std::to_string(code) + " 1 2"
                          : "  1  2  " + std::to_string(code) + "  0  0  0  0");
    EXPECT_EQ(read_back(text).molecule()->bond(0)->type(), read_as);
  }
}

INSTANTIATE_TEST_SUITE_P(MolWrite, MolBondCodes,
                         ::testing::Values(std::tuple{single_bond, 1, 1, single_bond},
                                           std::tuple{double_bond, 2, 2, double_bond},
                                           std::tuple{triple_bond, 3, 3, triple_bond},
                                           std::tuple{aromatic_bond, 4, 4, aromatic_bond},
                                           std::tuple{delocalised_bond, 4, 4, aromatic_bond},
                                           std::tuple{unknown_bond, 1, 8, unknown_bond},
                                           std::tuple{quadruple_bond, 1, 8, unknown_bond},
                                           std::tuple{pi_bond, 1, 8, unknown_bond}));

// Charges, isotopes and radicals in the atom columns and property lines: charges -3..3 as
// codes and in "M  CHG" lines of at most 8 entries, larger ones only in "M  CHG"; deuterium
// and tritium as hydrogen with "M  ISO"; atoms without element as "*". Then in V3000 atom lines.
TEST(MolStandardWrite, ChargesIsotopesAndRadicals) {
  std::vector<AtomRow> const rows = {
      {"C", 0, 13}, {"D"},     {"T"},     {"C", 0, 0, 2}, {"O", -1, 18}, {"N", 1},  {"N", 2},
      {"N", 3},     {"O", -2}, {"O", -3}, {"N", 4},       {"Xx", 0, 2},  {"N", -4}, {"C", 1}};
  std::string const v2000 = write(*chain(rows));
  std::vector<std::string> const lines = lines_of(v2000);
  ASSERT_GE(lines.size(), 18u);
  EXPECT_EQ(lines[3], " 14 13  0  0  0  0  0  0  0  0999 V2000");
  EXPECT_EQ(lines[4], "    0.0000    0.5000    0.0000 C   0  0  0  0  0  0  0  0  0  0  0  0");
  std::string columns;
  for (std::size_t i = 4; i < 18; ++i)
    columns += lines[i].substr(31, 8) + '|';
  EXPECT_EQ(columns,
            "C   0  0|H   0  0|H   0  0|C   0  0|O   0  5|N   0  3|N   0  2|N   0  1|O   0  6|"
            "O   0  7|N   0  0|*   0  0|N   0  0|C   0  3|");
  EXPECT_EQ(lines_with(v2000, "M  "),
            (std::vector<std::string>{
                "M  CHG  8   5  -1   6   1   7   2   8   3   9  -2  10  -3  11   4  13  -4",
                "M  CHG  1  14   1", "M  ISO  5   1  13   2   2   3   3   5  18  12   2",
                "M  RAD  1   4   2", "M  END"}));
  std::string const v3000_text = write(*chain(rows), true);
  EXPECT_EQ(lines_of(v3000_text)[3], "  0  0  0     0  0            999 V3000");
  std::vector<std::string> const v3000 = lines_with(v3000_text, "M  V30 ");
  EXPECT_EQ(v3000.at(1), "M  V30 COUNTS 14 13 0 0 0");
  EXPECT_EQ(
      std::vector<std::string>(v3000.begin() + 3, v3000.begin() + 8),
      (std::vector<std::string>{
          "M  V30 1 C 0.0000 0.5000 0.0000 0 MASS=13", "M  V30 2 H 1.5000 0.5000 0.0000 0 MASS=2",
          "M  V30 3 H 3.0000 0.5000 0.0000 0 MASS=3", "M  V30 4 C 4.5000 0.5000 0.0000 0 RAD=2",
          "M  V30 5 O 6.0000 0.5000 0.0000 0 CHG=-1 MASS=18"}));
  for (std::string const& text : {v2000, v3000_text}) {
    auto const m = read_back(text).molecule();
    ASSERT_EQ(m->natoms(), 14);
    for (int i = 0; i < 14; ++i) {
      AtomRow const& row = rows[static_cast<std::size_t>(i)];
      int const mass = i == 1 ? 2 : i == 2 ? 3 : row.mass;
      EXPECT_EQ(m->atom(i)->formal_charge(), row.charge) << i;
      EXPECT_EQ(m->atom(i)->details()->mass_number, mass) << i;
      EXPECT_EQ(m->atom(i)->details()->radical, row.radical) << i;
    }
    EXPECT_EQ(m->atom(1)->element(), Element("D"));
    EXPECT_EQ(m->atom(2)->element(), Element("H"));
    EXPECT_FALSE(m->atom(11)->element().is_set());
  }
}

// A record read with its header's dimension keeps it through crystal_maker() and
// add(maker), whatever the coordinates say; without one, the coordinates decide.
TEST(MolStandardWrite, DimensionKeptFromSource) {
  std::tuple<char const*, double, char const*> const cases[] = {
      {"2D", 1.5, "2D"}, {"3D", 0.0, "3D"}, {"  ", 0.0, "2D"}, {"  ", 1.5, "3D"}};
  for (auto const& [code, z, expected] : cases) {
    MolFile source;
    test::read_mol(source, test::header("m", code) + test::counts(2, 1) +
                               test::atom_line(0, 0, 0, "C") + test::atom_line(1, 0, z, "C") +
                               "  1  2  1\nM  END\n");
    EXPECT_EQ(source.structure_details().dimension, expected);
    MolFile file;
    file.add(*source.crystal_maker(), DatabaseEntryIdentifier("m"));
    EXPECT_EQ(lines_of(print(file, WriteOptions::standard_mode()))[1].substr(20, 2), expected)
        << code << z;
  }
}

// Up to 999 atoms and bonds, and x from -9999.9999 to 99999.9999, fit V2000; beyond any of
// them the record is V3000. A chain of `atoms` atoms, plus `extra` bonds, the last atom at x.
TEST(MolStandardWrite, VersionSwitchesAtTheV2000Limits) {
  std::tuple<int, int, double, bool> const cases[] = {
      {999, 1, 0, false},        {1000, 0, 0, true},     {999, 2, 0, true},
      {1, 0, 99999.9999, false}, {1, 0, 100000.0, true}, {1, 0, -9999.9999, false},
      {1, 0, -10000.0, true}};
  for (auto const& [atoms, extra, x, v3000] : cases) {
    auto const m = chain(std::vector<AtomRow>(static_cast<std::size_t>(atoms), {"C"}));
    for (int i = 0; i < extra; ++i)
      m->add_bond(i, i + 2, double_bond);
    double const last_x = x != 0 ? x : 1.5 * (atoms - 1);
    m->atom(atoms - 1)->site()->set_orthogonal(Point{last_x, 0, 0});
    MolFile const back = read_back(write(*m));
    SCOPED_TRACE(std::to_string(atoms) + " atoms, x " + std::to_string(x));
    EXPECT_EQ(back.version(), v3000 ? MolFile::V3000 : MolFile::V2000);
    EXPECT_EQ(back.molecule()->natoms(), atoms);
    EXPECT_EQ(back.molecule()->nbonds(), atoms - 1 + extra);
    EXPECT_NEAR(back.molecule()->atom(atoms - 1)->site()->orthogonal()[0], last_x, 1e-4);
  }
}

}  // namespace
