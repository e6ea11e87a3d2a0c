// Writing MOL/SD records. Classic writing: the V2000 and V3000 tables as they have always been
// laid out. Standard writing: charge codes and property lines, isotopes and radicals, the
// header, atom order, the V2000/V3000 choice and the V3000 layout, each checked column by
// column and by reading the output back.

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
THandle<Molecule> chain(std::vector<AtomRow> const& rows, BondType type = single_bond) {
  auto const m = make_handle<Molecule3d>();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    m->add_atom(make_atom(rows[i], static_cast<int>(i) + 1, 1.5 * static_cast<double>(i)));
    if (i > 0) m->add_bond(static_cast<int>(i) - 1, static_cast<int>(i), type);
  }
  return THandle<Molecule>(m);
}

std::string print_standard(MolFile& file, bool v3000 = false) {
  WriteOptions options = WriteOptions::standard_mode();
  options.v3000 = v3000;
  file.set_write_options(options);
  std::ostringstream out;
  file.print(out);
  return out.str();
}

std::string write(Molecule const& molecule, bool v3000 = false) {
  MolFile file;
  file.add(molecule, DatabaseEntryIdentifier("name"));
  return print_standard(file, v3000);
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

THandle<Molecule> read_back(std::string const& text, MolFile& file) {
  test::read_mol(file, text);
  return file.molecule();
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
  MolFile file;
  file.add(*m, DatabaseEntryIdentifier("w"));
  EXPECT_EQ(classic_table(file),
            "  3  2  0  0  0  0  0  0  0  0999 V2000\n    0.0000    0.5000    0.0000 H      0\n"
            "    1.5000    0.5000   10.0000 O     -1\n  -12.3456    0.0000    0.0000 *      0\n"
            "  1  2  4\n  2  3  1\n"
            "M  END\n");
  file.set_version(MolFile::V3000);
  EXPECT_EQ(classic_table(file),
            "  0  0  0     0  0            999 V3000\nM  V30 BEGIN CTAB\n"
            "M  V30 COUNTS 3 2  0  0  0\nM  V30 BEGIN ATOM\n"
            "M  V30 1 H     0.0000    0.5000    0.0000\n"
            "M  V30 2 O     1.5000    0.5000   10.0000 CHG=-1\n"
            "M  V30 3 *   -12.3456    0.0000    0.0000\nM  V30 END ATOM\nM  V30 BEGIN BOND\n"
            "M  V30 1     4    1    2\nM  V30 1     1    2    3\nM  V30 END BOND\nM  V30 END CTAB\n"
            "M  END\n");
}

TEST(MolWrite, ClassicAtomsAreNumberedAcrossMoleculesAndUnplacedAtomsDropped) {
  auto const first = make_handle<Molecule3d>();
  first->add_atom(make_atom({"C"}, 1, 0));
  first->add_atom(make_atom({"C"}, 2, 1, false));
  first->add_atom(make_atom({"O"}, 3, 2));
  first->add_bond(0, 1, single_bond);
  first->add_bond(0, 2, double_bond);
  auto const second = chain({{"N"}, {"N"}}, triple_bond);
  MolFile file;
  file.add(CrystalMaker(Cell(), make_handle<MoleculeList>(MoleculeList{first, second}), {}, {}),
           DatabaseEntryIdentifier("pair"));
  std::string const text = classic_table(file);
  EXPECT_EQ(text.substr(0, 6), "  4  2");
  EXPECT_NE(text.find("\n  1  2  2\n  3  4  3\nM  END\n"), std::string::npos) << text;
}

TEST(MolWrite, ClassicRecordIsHeaderTableItemsTerminator) {
  MolFile file;
  file.add(*chain({{"Ne"}}), DatabaseEntryIdentifier("neon gas"));
  file.add_sd_tag("melting point", "  24.56 K ");
  std::ostringstream out;
  file.print(out);
  std::string const text = out.str();
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
    MolFile back;
    EXPECT_EQ(read_back(text, back)->bond(0)->type(), read_as);
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
                                           std::tuple{polymeric_bond, 1, 8, unknown_bond},
                                           std::tuple{pi_bond, 1, 8, unknown_bond}));

// Formal charge -> charge column (columns 37-39) and the "M  CHG" entry.
class StandardCharge : public ::testing::TestWithParam<std::tuple<int, char const*>> {};

TEST_P(StandardCharge, ColumnCodeAndPropertyLine) {
  auto const [charge, code] = GetParam();
  std::string const text = write(*chain({{"N", charge}}));
  std::vector<std::string> const lines = lines_of(text);
  ASSERT_GE(lines.size(), 5u);
  EXPECT_EQ(lines[4].size(), 69u);
  EXPECT_EQ(lines[4].substr(31, 8), std::string("N   0") + code);
  char expected[32];
  std::snprintf(expected, sizeof expected, "M  CHG  1   1%4d", charge);
  EXPECT_EQ(lines_with(text, "M  CHG"),
            charge ? std::vector<std::string>{expected} : std::vector<std::string>{});
  MolFile back;
  EXPECT_EQ(read_back(text, back)->atom(0)->formal_charge(), charge);
}

INSTANTIATE_TEST_SUITE_P(MolStandardWrite, StandardCharge,
                         ::testing::Values(std::tuple{0, "  0"}, std::tuple{1, "  3"},
                                           std::tuple{2, "  2"}, std::tuple{3, "  1"},
                                           std::tuple{-1, "  5"}, std::tuple{-2, "  6"},
                                           std::tuple{-3, "  7"}, std::tuple{4, "  0"},
                                           std::tuple{-4, "  0"}, std::tuple{15, "  0"}));

// N charged atoms give ceil(N / 8) "M  CHG" lines, 8 entries on all but the last.
TEST(MolStandardWrite, ChargeLinesSplitAtEight) {
  for (int const n : {1, 8, 9, 17}) {
    std::vector<AtomRow> rows;
    for (int i = 0; i < n + 2; ++i)  // the second and the last atom neutral
      rows.push_back({"C", i == 1 || i == n + 1 ? 0 : (i % 2 ? -1 : 1)});
    std::string const text = write(*chain(rows));
    std::vector<std::string> const chg = lines_with(text, "M  CHG");
    ASSERT_EQ(static_cast<int>(chg.size()), (n + 7) / 8) << n;
    for (std::size_t i = 0; i < chg.size(); ++i) {
      int const entries = i + 1 < chg.size() ? 8 : n - 8 * static_cast<int>(i);
      EXPECT_EQ(std::stoi(chg[i].substr(6, 3)), entries) << chg[i];
      EXPECT_EQ(chg[i].size(), 9u + 8u * static_cast<std::size_t>(entries)) << chg[i];
    }
    MolFile back;
    auto const m = read_back(text, back);
    ASSERT_EQ(m->natoms(), n + 2);
    for (int i = 0; i < n + 2; ++i)
      EXPECT_EQ(m->atom(i)->formal_charge(), rows[static_cast<std::size_t>(i)].charge) << i;
  }
}

TEST(MolStandardWrite, IsotopesRadicalsDeuteriumTritium) {
  // C-13, deuterium (its own element), tritium (no element, read from "T"), a doublet
  // radical on a carbon and an O-18.
  std::vector<AtomRow> const rows = {{"C", 0, 13}, {"D"}, {"T"}, {"C", 0, 0, 2}, {"O", -1, 18}};
  std::string const v2000 = write(*chain(rows));
  EXPECT_EQ(lines_with(v2000, "M  ISO"),
            std::vector<std::string>{"M  ISO  4   1  13   2   2   3   3   5  18"});
  EXPECT_EQ(lines_with(v2000, "M  RAD"), std::vector<std::string>{"M  RAD  1   4   2"});
  std::vector<std::string> const lines = lines_of(v2000);
  for (int i = 0; i < 5; ++i)  // symbol and mass difference 0 on every atom line
    EXPECT_EQ(
        lines[4 + static_cast<std::size_t>(i)].substr(31, 5),
        std::string(i == 1 || i == 2 ? "H" : rows[static_cast<std::size_t>(i)].symbol) + "   0");
  std::string const v3000 = write(*chain(rows), true);
  EXPECT_EQ(lines_with(v3000, "M  V30 ").at(3), "M  V30 1 C 0.0000 0.5000 0.0000 0 MASS=13");
  EXPECT_EQ(lines_with(v3000, "M  V30 ").at(4), "M  V30 2 H 1.5000 0.5000 0.0000 0 MASS=2");
  EXPECT_EQ(lines_with(v3000, "M  V30 ").at(5), "M  V30 3 H 3.0000 0.5000 0.0000 0 MASS=3");
  EXPECT_EQ(lines_with(v3000, "M  V30 ").at(6), "M  V30 4 C 4.5000 0.5000 0.0000 0 RAD=2");
  EXPECT_EQ(lines_with(v3000, "M  V30 ").at(7), "M  V30 5 O 6.0000 0.5000 0.0000 0 CHG=-1 MASS=18");
  for (std::string const& text : {v2000, v3000}) {
    MolFile back;
    auto const m = read_back(text, back);
    ASSERT_EQ(m->natoms(), 5);
    int const masses[] = {13, 2, 3, 0, 18};
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(m->atom(i)->details()->mass_number, masses[i]) << i;
      EXPECT_EQ(m->atom(i)->details()->radical, i == 3 ? 2 : 0) << i;
    }
    EXPECT_EQ(m->atom(1)->element(), Element("D"));
    EXPECT_EQ(m->atom(2)->element(), Element("H"));
    EXPECT_EQ(m->atom(4)->formal_charge(), -1);
  }
}

// Atoms without element are "*", whatever symbol and mass they came with; only tritium
// becomes hydrogen.
TEST(MolStandardWrite, AtomWithoutElementIsStar) {
  MolFile file;
  test::read_mol(file, test::header() + test::counts(4, 0) + test::atom_line(0, 0, 0, "R") +
                           test::atom_line(1, 0, 0, "A") + test::atom_line(2, 0, 0, "T") +
                           test::atom_line(3, 0, 0, "Xy") + "M  ISO  1   1   2\nM  END\n");
  std::string const text = print_standard(file);
  std::vector<std::string> const lines = lines_of(text);
  EXPECT_EQ(lines[4].substr(31, 3) + lines[5].substr(31, 3) + lines[6].substr(31, 3) +
                lines[7].substr(31, 3),
            "*  *  H  *  ");
  EXPECT_EQ(lines_with(text, "M  ISO"), std::vector<std::string>{"M  ISO  2   1   2   3   3"});
  MolFile back;
  auto const m = read_back(text, back);
  EXPECT_FALSE(m->atom(0)->element().is_set());
  EXPECT_EQ(m->atom(0)->details()->mass_number, 2);
  EXPECT_EQ(m->atom(2)->element(), Element("H"));
  EXPECT_EQ(m->atom(2)->details()->mass_number, 3);
}

TEST(MolStandardWrite, HeaderAndCountsLine) {
  std::string const text = write(*chain({{"C", 0, 0, 0, 0.0}, {"C", 0, 0, 0, 1.25}}));
  std::vector<std::string> const lines = lines_of(text);
  EXPECT_EQ(lines[0], "name");
  ASSERT_EQ(lines[1].size(), 22u);
  EXPECT_EQ(lines[1].substr(0, 10), "  kora    ");
  EXPECT_EQ(lines[1].substr(10, 10).find_first_not_of("0123456789"), std::string::npos);
  EXPECT_EQ(lines[1].substr(20), "3D");
  EXPECT_EQ(lines[3], "  2  1  0  0  0  0  0  0  0  0999 V2000");
  EXPECT_EQ(lines[4], "    0.0000    0.5000    0.0000 C   0  0  0  0  0  0  0  0  0  0  0  0");
  EXPECT_EQ(lines.back(), "$$$$");
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
    EXPECT_EQ(lines_of(print_standard(file))[1].substr(20, 2), expected) << code << z;
  }
}

// A salt read as [C, Na, C] with C1-C3 bonded becomes two molecules ({C1, C3}, {Na2}); the
// standard writer gives the atoms back in file order and renumbers the bond.
TEST(MolStandardWrite, FileOrderAcrossMolecules) {
  MolFile file;
  test::read_mol(file, test::header() + test::counts(3, 1) + test::atom_line(0, 0, 0, "C") +
                           test::atom_line(5, 0, 0, "Na", 0, 3) + test::atom_line(1.5, 0, 0, "O") +
                           "  1  3  2\nM  CHG  1   2   1\nM  END\n");
  ASSERT_EQ(file.crystal_maker()->nmolecules(), 2);
  std::vector<std::string> const lines = lines_of(print_standard(file));
  EXPECT_EQ(lines[4].substr(31, 3), "C  ");
  EXPECT_EQ(lines[5].substr(31, 8), "Na  0  3");
  EXPECT_EQ(lines[6].substr(31, 3), "O  ");
  EXPECT_EQ(lines[7], "  1  3  2  0  0  0  0");
  EXPECT_EQ(lines[8], "M  CHG  1   2   1");
  // Classic writing keeps molecule order.
  file.set_write_options(WriteOptions::classic_mode());
  std::ostringstream classic;
  file.print(classic);
  EXPECT_EQ(lines_of(classic.str())[6].substr(31, 3), "Na ");
}

// Up to 999 atoms and bonds fit V2000; one more of either makes V3000: a ring of n atoms,
// plus `chords` double bonds across it.
TEST(MolStandardWrite, VersionSwitchesAbove999) {
  for (auto const& [atoms, chords, v3000] :
       {std::tuple{999, 0, false}, {1000, 0, true}, {998, 1, false}, {999, 1, true}}) {
    auto const m = make_handle<Molecule3d>();
    for (int i = 0; i < atoms; ++i) {
      Point const p{static_cast<double>(i % 100), static_cast<double>(i / 100), 0.25};
      m->add_atom(THandle<Atom>(
          make_handle<FileOrderedAtom3d>(i + 1, Element("C"), "C", make_handle<Site>(p, p))));
    }
    for (int i = 0; i < atoms; ++i)
      m->add_bond(i, (i + 1) % atoms, single_bond);
    for (int i = 0; i < chords; ++i)
      m->add_bond(i, i + atoms / 2, double_bond);
    std::string const text = write(*m);
    char expected[64];
    if (v3000) {
      EXPECT_EQ(lines_of(text)[3], "  0  0  0     0  0            999 V3000");
      std::snprintf(expected, sizeof expected, "M  V30 COUNTS %d %d 0 0 0", atoms, atoms + chords);
      EXPECT_EQ(lines_with(text, "M  V30 COUNTS"), std::vector<std::string>{expected});
    } else {
      std::snprintf(expected, sizeof expected, "%3d%3d  0  0  0  0  0  0  0  0999 V2000", atoms,
                    atoms + chords);
      EXPECT_EQ(lines_of(text)[3], expected);
    }
    MolFile back;
    auto const r = read_back(text, back);
    EXPECT_EQ(back.version(), v3000 ? MolFile::V3000 : MolFile::V2000);
    EXPECT_EQ(r->natoms(), atoms);
    EXPECT_EQ(r->nbonds(), atoms + chords);
    EXPECT_EQ(r->bond(r->nbonds() - 1)->type(), chords ? double_bond : single_bond);
  }
}

TEST(MolStandardWrite, WideCoordinatesMakeV3000) {
  for (double const x : {99999.9999, -9999.9999, 100000.0, -10000.0}) {
    auto const m = chain({{"C"}});
    m->atom(0)->site()->set_orthogonal(Point{x, 0, 0});
    std::string const text = write(*m);
    bool const fits = x > -10000.0 && x < 100000.0;
    EXPECT_EQ(lines_of(text)[3].substr(34), fits ? "V2000" : "V3000") << x;
    MolFile back;
    EXPECT_NEAR(read_back(text, back)->atom(0)->site()->orthogonal()[0], x, 1e-4) << x;
  }
}

TEST(MolStandardWrite, V3000Layout) {
  std::vector<std::string> const lines =
      lines_of(write(*chain({{"O", -1}, {"C"}, {"N", 1}}, aromatic_bond), true));
  std::vector<std::string> const expected = {"  0  0  0     0  0            999 V3000",
                                             "M  V30 BEGIN CTAB",
                                             "M  V30 COUNTS 3 2 0 0 0",
                                             "M  V30 BEGIN ATOM",
                                             "M  V30 1 O 0.0000 0.5000 0.0000 0 CHG=-1",
                                             "M  V30 2 C 1.5000 0.5000 0.0000 0",
                                             "M  V30 3 N 3.0000 0.5000 0.0000 0 CHG=1",
                                             "M  V30 END ATOM",
                                             "M  V30 BEGIN BOND",
                                             "M  V30 1 4 1 2",
                                             "M  V30 2 4 2 3",
                                             "M  V30 END BOND",
                                             "M  V30 END CTAB",
                                             "M  END",
                                             "$$$$"};
  ASSERT_EQ(lines.size(), expected.size() + 3);
  EXPECT_EQ(std::vector<std::string>(lines.begin() + 3, lines.end()), expected);
}

TEST(MolStandardWrite, LongV3000LinesContinue) {
  auto const m = chain({{"C", -2, 123, 3}});
  m->atom(0)->site()->set_orthogonal(Point{-123456789.125, 987654321.5, -55555555.25});
  std::string const text = write(*m, true);
  ASSERT_EQ(lines_with(text, "M  V30 1 C").size(), 1u);
  for (std::string const& line : lines_of(text))
    EXPECT_LE(line.size(), 80u) << line;
  MolFile back;
  auto const a = read_back(text, back)->atom(0);
  EXPECT_EQ(a->formal_charge(), -2);
  EXPECT_EQ(a->details()->mass_number, 123);
  EXPECT_EQ(a->details()->radical, 3);
  EXPECT_NEAR(a->site()->orthogonal()[1], 987654321.5, 1e-4);
}

}  // namespace
