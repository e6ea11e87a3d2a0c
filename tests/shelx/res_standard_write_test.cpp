// Standard RES writing: every atom once, SHELX names and residues, occupancies on special
// positions, free variables, PART, AFIX and riding U kept, and anisotropic U.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "res_test_support.hpp"

namespace {

using namespace kora;
using namespace kora::test;

std::string round_trip_text(std::string const& text) {
  return write_standard(*read_res(text, true).database_entry());
}

std::string write_maker(Cell const& cell, std::vector<THandle<Atom>> const& atoms) {
  auto molecule = make_handle<Molecule3d>(atoms, std::vector<BondData>{});
  CrystalMaker const maker(cell, make_handle<MoleculeList>(1, THandle<Molecule>(molecule)), {}, {});
  return write_standard(CrystalStructureImmediateDatabaseEntry(DatabaseEntryIdentifier("HAND"),
                                                               make_handle<CrystalMaker>(maker)));
}

THandle<Atom> atom_at(Cell const& cell, std::string const& label, char const* symbol, Point f,
                      double occupancy = 1.0) {
  return THandle<Atom>(make_handle<FileOrderedAtom3d>(
      0, Element(symbol), label, make_handle<Site>(f, cell.orthogonal(f), occupancy)));
}

// The atom lines of a written file: name and the fields after it, continuation joined.
std::vector<std::vector<std::string>> atom_lines(std::string const& text) {
  static std::set<std::string> const keywords = {"TITL", "CELL", "ZERR", "LATT", "SYMM",
                                                 "SFAC", "UNIT", "FVAR", "PART", "AFIX",
                                                 "RESI", "HKLF", "END"};
  std::vector<std::vector<std::string>> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    std::vector<std::string> f;
    for (std::string w; fields >> w;)
      f.push_back(w);
    if (f.empty() || keywords.count(f[0])) continue;
    if (line[0] == ' ' && !lines.empty()) {
      lines.back().insert(lines.back().end(), f.begin(), f.end());
    } else {
      lines.push_back(f);
    }
  }
  return lines;
}

Cell cell_of(std::string const& text) {
  return *read_res("CELL 0.71073 " + text + "\n", true).cell();
}

constexpr char const* p21c = "TITL t\nCELL 0.71073 7 8 9 90 100 90\nLATT 1\nSYMM -X,1/2+Y,1/2-Z\n";

// Names: at most four characters, unique within their residue (letter case aside), no
// difference-peak or instruction names.
TEST(ResStandardWrite, NamesAreShortUniqueAndResiduesKept) {
  Cell const cell = cell_of("10 11 12 90 90 90");
  for (auto const& [labels, expected] :
       std::vector<std::pair<std::vector<std::string>, std::vector<std::string>>>{
           {{"C1", "C1", "c1", "C2"}, {"C1", "C2", "C3", "C4"}},
           {{"CARBON7", "C_1", "Q1", "PART", "1C", ""}, {"C1", "C2", "C3", "C4", "C5", "C6"}},
           {{"C1'", "CA", "C9999"}, {"C1'", "CA", "C1"}}}) {
    std::vector<THandle<Atom>> atoms;
    for (std::string const& label : labels)
      atoms.push_back(atom_at(cell, label, "C", Point(0.1 * double(atoms.size()), 0.2, 0.3)));
    std::vector<std::string> names;
    for (auto const& line : atom_lines(write_maker(cell, atoms)))
      names.push_back(line[0]);
    EXPECT_EQ(names, expected);
  }
}

// Occupancies: the site's divided by the order of the site at the written coordinates, as
// SHELX writes them, and read back whole in standard mode even from five decimals.
TEST(ResStandardWrite, OccupanciesOnSpecialPositions) {
  std::string const three = "SYMM -Y,X-Y,Z\nSYMM -X+Y,-X,Z\n";
  for (auto const& [symmetry, position, occupancy, code] :
       std::vector<std::tuple<std::string, Point, double, char const*>>{
           {"LATT 1\n", Point(0.1, 0.2, 0.3), 0.5, "10.50000"},
           {"LATT 1\n", Point(0.5, 0.0, 0.5), 1.0, "10.50000"},  // inversion centre
           {"LATT -1\n" + three, Point(1.0 / 3, 2.0 / 3, 0.1), 1.0, "10.33333"},
           {"LATT 1\n" + three, Point(0, 0, 0), 0.5, "10.08333"}}) {  // -3 centre
    Cell const cell = cell_of("9 9 11 90 90 120\n" + symmetry);
    std::string const written = write_maker(cell, {atom_at(cell, "C1", "C", position, occupancy)});
    auto const lines = atom_lines(written);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0][5], code) << written;
    THandle<Atom> const again = read_res(written, true).asymmetric_unit()->at(0);
    EXPECT_NEAR(again->site()->occupancy().value(), occupancy, 1e-4) << written;
  }
  // Five decimals on a 3-fold axis: the full atom SHELX means, not a third of it; written
  // again, the code stays that of a 3-fold axis.
  std::string const five = "CELL 0.71073 9 9 11 90 90 120\nLATT -1\n" + three +
                           "SFAC C\nC1 1 0.33333 0.66667 0.1 10.33333 0.02\n";
  EXPECT_NEAR(read_res(five, true).asymmetric_unit()->at(0)->site()->occupancy().value(), 1.0,
              1e-5);
  EXPECT_EQ(atom_lines(round_trip_text(five))[0][5], "10.33333");
}

// Free variables, PART (with its occupancy code), AFIX, riding U, RESI and anisotropic U of a
// RES file are written back; codes that no longer give the atom's values are replaced by the
// values.
TEST(ResStandardWrite, FreeVariablesPartsAndRidingAtomsRoundTrip) {
  std::string const text = std::string(p21c) +
                           "SFAC C H\nFVAR 0.9 0.6 0.25\n"
                           "C1 1 0.1 0.2 0.3 11 0.04\n"
                           "AFIX 43\nH1 2 0.15 0.2 0.3 11 -1.2\nAFIX 0\n"
                           "PART 1\nC2 1 0.3 0.3 0.3 21 0.03\n"
                           "AFIX 137\nH2A 2 0.35 0.3 0.3 21 -1.5\nAFIX 0\n"
                           "PART 2\nC3 1 0.3 0.32 0.3 -21 31\nPART 0\n"
                           "RESI 3 ABC\nC4 1 0.6 0.6 0.6 10.5 0.021 0.032 =\n"
                           "  0.043 -0.004 0.005 -0.006\n"
                           "PART 1 31\nC5 1 0.9 0.05 0.15 11 0.03\n";
  std::string const written = round_trip_text(text);
  for (char const* expected :
       {"FVAR    0.90000    0.60000    0.25000\n",
        "\nAFIX 43\nH1    2   0.150000   0.200000   0.300000    11.00000  -1.20000\nAFIX 0\n",
        "\nPART 1\nC2    1   0.300000   0.300000   0.300000    21.00000   0.03000\nAFIX 137\n",
        "\nH2A   2   0.350000   0.300000   0.300000    21.00000  -1.50000\nAFIX 0\nPART 2\n",
        "\nC3    1   0.300000   0.320000   0.300000   -21.00000  31.00000\nRESI 3 ABC\nPART 0\n",
        "\nC4    1   0.600000   0.600000   0.600000    10.50000   0.02100   0.03200 =\n"
        "      0.04300  -0.00400   0.00500  -0.00600\n",
        "\nC5    1   0.900000   0.050000   0.150000    31.00000   0.03000\n"}) {
    EXPECT_NE(written.find(expected), std::string::npos) << expected << "\n---\n" << written;
  }
  ResFile const original = read_res(text, true);

  // Without the free variables (an atom added as a bare molecule), the codes that need them
  // give way to the values they stood for; a riding U whose pivot changed gives way too.
  ResFile writer;
  writer.set_write_options(WriteOptions::standard_mode());
  writer.add(*original.crystal_maker(), DatabaseEntryIdentifier("X"));
  writer.clear();
  THandle<Molecule> const all = original.molecule();
  THandle<Atom> const c1 = *all->atoms().begin();
  ASSERT_EQ(c1->label(), "C1");
  c1->set_site(make_handle<Site>(
      c1->site()->fractional(), c1->site()->orthogonal(), UncertainValue(1.0),
      make_handle<Array<Uncertainty, 3>>(),
      make_handle<AtomicDisplacementParameters>(
          UncertainValue(0.05), AtomicDisplacementParameters::isotropic, *original.cell())));
  writer.add(*all, DatabaseEntryIdentifier("X"));
  std::ostringstream out;
  writer.print(out);
  std::map<std::string, std::vector<std::string>> by_name;
  for (auto const& line : atom_lines(out.str()))
    by_name[line[0]] = line;
  EXPECT_EQ(by_name["C2"][5], "10.60000") << out.str();
  EXPECT_EQ(by_name["C3"][5], "10.40000");
  EXPECT_EQ(by_name["C3"][6], "0.25000");
  EXPECT_EQ(by_name["H1"][6], "0.04800");  // 1.2 x 0.04, no longer 1.2 x U(C1)
  EXPECT_EQ(by_name["H2A"][6], "-1.50000");
}

// The standard reader puts the centre of symmetry of a positive LATT at the origin: the
// inverse of (R, t) is (-R, -t).
TEST(ResStandardWrite, StandardReadingInvertsTranslations) {
  std::string const text = "CELL 0.71073 10 10 10 90 90 90\nLATT 1\nSYMM 1/4-X,1/4-Y,Z\nSFAC C\n";
  auto const has = [](ResFile const& file, char const* triplet) {
    THandle<Cell> const cell = file.cell();
    auto const& ops = cell->spacegroup().operators();
    CrystalSymmetryOperator const op = CrystalSymmetryTransformation(std::string(triplet));
    return std::any_of(ops.begin(), ops.end(),
                       [&](CrystalSymmetryOperator const& o) { return equals(o, op, 1e-9); });
  };
  EXPECT_TRUE(has(read_res(text, true), "X-1/4,Y-1/4,-Z"));
  EXPECT_TRUE(has(read_res(text), "X+1/4,Y+1/4,-Z"));
}

// A group whose inversion does not keep the translations (P 21/c with the origin moved an
// eighth along c): a positive LATT would give other operators to a reader that keeps them
// than to SHELX, so the inversion's operators are written as SYMM cards under LATT -1.
TEST(ResStandardWrite, LatticeSignOnlyWhereBothInversionsAgree) {
  for (auto const& [operators, latt] :
       std::vector<std::pair<std::vector<char const*>, char const*>>{
           {{"x,y,z", "-x,-y,-z", "-x,y+1/2,-z+1/4", "x,-y+1/2,z+3/4"}, "\nLATT -1\n"},
           {{"x,y,z", "-x,-y,-z", "-x,y+1/2,-z+1/2", "x,-y+1/2,z+1/2"}, "\nLATT 1\n"}}) {
    auto ops = make_handle<std::vector<CrystalSymmetryOperator>>();
    for (char const* triplet : operators)
      ops->push_back(CrystalSymmetryTransformation(std::string(triplet)));
    Angle const right = Angle::from_degrees(90);
    Cell const cell(7, 8, 9, right, right, right, Spacegroup(ops, 0, ""));
    std::string const written = write_maker(cell, {atom_at(cell, "C1", "C", Point(0.1, 0.2, 0.3))});
    EXPECT_NE(written.find(latt), std::string::npos) << written;
    for (bool standard : {true, false}) {
      THandle<Cell> const again = read_res(written, standard).cell();
      auto const& back = again->spacegroup().operators();
      EXPECT_EQ(back.size(), ops->size()) << written;
      for (CrystalSymmetryOperator const& op : *ops)
        EXPECT_TRUE(std::any_of(back.begin(), back.end(),
                                [&](auto const& o) { return equals(op, o, 1e-9); }))
            << op.to_string() << "\n"
            << written;
    }
  }
}

}  // namespace
