// Reading PDB records in both modes: the columns of atom records, elements, charges,
// displacement parameters, CRYST1, models, CONECT records, alternate locations and the bonds
// found from the residues.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "pdb_test_support.hpp"

namespace {

using namespace kora;
using namespace kora::test;

THandle<Atom> only_atom(std::string const& line, bool standard = false) {
  std::vector<THandle<Atom>> const atoms = atoms_of(read_pdb(line + "\n", standard));
  return atoms.size() == 1 ? atoms.front() : THandle<Atom>();
}

std::string error_of(std::string const& text) {
  try {
    read_pdb(text);
  } catch (std::runtime_error const& e) {
    return e.what();
  }
  return "no error";
}

// Each field is read only when the line covers all of its columns: every length of the line
// from the serial number on.
TEST(PdbAtomRecord, FieldsNeedTheWholeColumnRange) {
  std::string const full =
      "ATOM      7  CD1ALEU A  12      11.104   6.134  -6.504  0.50 12.00      SEG1 N2-";
  for (std::size_t n = 15; n <= full.size(); ++n) {
    SCOPED_TRACE(n);
    THandle<Atom> const atom = only_atom(full.substr(0, n));
    ASSERT_TRUE(atom);
    EXPECT_EQ(serial_of(atom), 7);
    EXPECT_EQ(atom->label(), n >= 17 ? "CD1A" : n == 16 ? "CD1" : "");
    auto const protein = handle_dynamic_cast<ProteinAtom>(atom);
    EXPECT_EQ(protein ? protein->residue_label() : "-", n >= 26 ? "LEU12" : n >= 20 ? "LEU" : "-");
    EXPECT_EQ(atom->site()->orthogonal(),
              Point(n >= 38 ? 11.104 : 0, n >= 46 ? 6.134 : 0, n >= 54 ? -6.504 : 0));
    EXPECT_EQ(atom->site()->occupancy().value(), n >= 60 ? 0.5 : 1.0);
    EXPECT_EQ(atom->element().symbol(), n >= 78 ? "N" : n >= 16 ? "C" : "");
    EXPECT_EQ(atom->formal_charge(), n >= 80 ? -2 : 0);
    EXPECT_EQ(atom->details()->alt_loc, n >= 17 ? 'A' : ' ');
    EXPECT_EQ(atom->details()->b_factor, n >= 66 ? 12.0 : 0.0);
  }
}

// The element of each mode from the element columns, the atom name and the residue. Rows:
// record|name|residue|element columns|classic element|standard element (- not checked).
TEST(PdbAtomRecord, Elements) {
  for (char const* row : {"ATOM| CA |MOL||C|-", "HETATM|CA  |MOL||Ca|-", "HETATM| CA |MOL||Ca|-",
                          "ATOM|CA  |MOL|CA|C|-", "HETATM|HG12|MOL||Hg|-", "ATOM|1HB |MOL||H|-",
                          "ATOM| C1 |MOL|1C|C|-", "HETATM|ZN  |MOL|XX|Zn|-", "ATOM| XX |MOL|||-",
                          "ATOM| CA |ALA| C|C|C", "HETATM|CA  | CA|CA|Ca|Ca",
                          "ATOM|FE  |HEM|FE|F|Fe", "ATOM|CL1 |LIG|CL|C|Cl", "ATOM|CA  |ALA||C|Ca",
                          "HETATM| CA |LIG||Ca|C", "ATOM|HG21|THR||H|H", "HETATM|HG  | HG||Hg|Hg",
                          "HETATM|CL1 |LIG||Cl|Cl", "HETATM| D1 |LIG| D|D|D"}) {
    std::vector<std::string> const f = fields(row);
    std::string const line =
        record(f[0].c_str(), "1", f[1].c_str(), ' ', f[2].c_str(), "1", 0, 0, 0, 1.0, f[3].c_str());
    SCOPED_TRACE(line);
    EXPECT_EQ(only_atom(line)->element().symbol(), f[4]);
    if (f[5] != "-") {
      EXPECT_EQ(only_atom(line, true)->element().symbol(), f[5]);
    }
  }
}

// Columns 73-80 give the charge in classic reading by loose rules, in standard reading only
// from a valid charge field in 79-80; columns 18-22 hold the residue name and chain.
TEST(PdbAtomRecord, ChargeResidueAndChainColumns) {
  // Rows: columns 73-80|standard charge|classic charge.
  for (char const* row : {"      2+|2|2", "       +|1|0", "      +2|2|0", "1HPV 186|0|8",
                          "      2 |0|2", "     N3-|-3|-3", "SEG1  A+|0|0", "      21|0|2"}) {
    std::vector<std::string> const f = fields(row);
    std::string const line = "HETATM    1 NA    NA A   1       1.000   2.000   3.000  1.00 20.00" +
                             std::string(6, ' ') + f[0];
    EXPECT_EQ(only_atom(line, true)->formal_charge(), std::stoi(f[1])) << line;
    EXPECT_EQ(only_atom(line)->formal_charge(), std::stoi(f[2])) << line;
  }
  for (auto const& [columns_18_22, residue, chain, classic] :
       std::vector<std::tuple<char const*, char const*, char const*, char const*>>{
           {"ALA A", "ALA", "A", "ALA"},
           {"TIP3 ", "TIP3", "", "TIP"},     // four characters, no chain
           {"TIP3B", "TIP", "B", "TIP"}}) {  // column 22 holds a chain
    std::string const line = std::string("HETATM    1  O1  ") + columns_18_22 +
                             "   1       1.000   2.000   3.000  1.00 20.00           O";
    EXPECT_EQ(only_atom(line, true)->details()->residue_name, residue) << line;
    EXPECT_EQ(only_atom(line, true)->details()->chain, chain) << line;
    EXPECT_EQ(only_atom(line)->details()->residue_name, classic) << line;
  }
}

TEST(PdbAtomRecord, BFactorsAndAnisouAreDisplacementParametersInStandardReading) {
  // A monoclinic cell, so that the Cartesian tensor differs from the one on the cell's axes.
  std::string const text =
      "CRYST1   10.000   12.000   14.000  90.00 110.00  90.00 P 1 21 1      2\n" +
      record("ATOM", 1, " N  ", ' ', "GLY", 1, 1.0, 2.0, 3.0) +
      "ANISOU    1  N   GLY A   1     2000   3000   4000    500   -700    300       N\n" +
      record("ATOM", 2, " CA ", ' ', "GLY", 1, 2.4, 2.0, 3.0) +
      "ANISOU    9  CA  GLY A   1     9000   9000   9000      0      0      0       C\n";
  PdbFile const file = read_pdb(text, true);
  std::vector<THandle<Atom>> const atoms = atoms_of(file);
  ASSERT_EQ(atoms.size(), 2U);
  THandle<Cell> const cell = file.cell();  // a copy: kept while it is used
  auto const n = atoms[0]->site()->atomic_displacement_parameters();
  ASSERT_TRUE(n);
  EXPECT_EQ(n->type(), AtomicDisplacementParameters::anisotropic);
  Matrix<double, 3, 3> const u = n->u_orthogonal(*cell);
  double const expected[3][3] = {{0.2, 0.05, -0.07}, {0.05, 0.3, 0.03}, {-0.07, 0.03, 0.4}};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j)
      EXPECT_NEAR(u(i, j), expected[i][j], 1e-12) << i << j;
}

TEST(PdbCryst1, CellSpaceGroupAndMessages) {
  std::string const line = "CRYST1   10.000   20.000   30.000  90.00 100.00  90.00 P 1 21 1";
  THandle<Cell> const cell = read_pdb(line + "\n").cell();
  EXPECT_EQ(cell->c(), 30.0);
  EXPECT_NEAR(cell->beta().degrees(), 100.0, 1e-9);
  EXPECT_EQ(cell->spacegroup().symbol(), "P21");
  EXPECT_EQ(error_of(line.substr(0, 53) + "\n"), "PdbFile::read CRYST1 line is incomplete");

  std::string const hexagonal = "   10.000   10.000   20.000  90.00  90.00 120.00";
  std::string const rhombohedral = "    8.000    8.000    8.000  75.00  75.00  75.00";
  std::string const inconsistent = "PdbFile::read(): Space group and unit cell inconsistent.";
  for (auto const& [cell_columns, symbol, expected] :
       std::vector<std::tuple<std::string, std::string, std::string>>{
           {hexagonal, "R 3", "R3"},
           {rhombohedral, "R 3 2", "R32r"},
           {hexagonal, "H 3", "R3"},
           {"   10.000   10.000   20.000  90.00  90.00  90.00", "R 3r", "R3r"},
           {"    8.000    8.000    8.001  75.00  75.00  75.00", "R 3", inconsistent}}) {
    std::string const text = "CRYST1" + cell_columns + " " + symbol + "\n";
    std::string const error = error_of(text);
    EXPECT_EQ(error == "no error" ? read_pdb(text).cell()->spacegroup().symbol() : error, expected)
        << text;
  }
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
      "ATOM      7  O   ALA A   3       2.900   1.500   0.000\n";
  EXPECT_EQ(bonds_of(read_pdb(text)), (Pairs{{1, 2}, {3, 4}, {5, 6}, {6, 7}}));
  EXPECT_EQ(bonds_of(read_pdb(as_hetatm(text))), (Pairs{{1, 2}, {2, 6}, {3, 4}, {5, 6}, {6, 7}}));
  // CONECT records stand in for the whole-model search.
  EXPECT_EQ(bonds_of(read_pdb(as_hetatm(text) + "CONECT    1    7\n")), (Pairs{{1, 7}}));
}

// Standard reading leaves no bond of an amino acid unknown: guanidinium double at NH2,
// carbonyl double, the rest single. Classic reading types the carbonyl only.
TEST(PdbBonds, AminoAcidBondsAllHaveOrdersInStandardReading) {
  std::string const text =
      "ATOM      1  N   ARG A  10       0.647   1.909   4.005\n"
      "ATOM      2  CA  ARG A  10       1.496   1.609   2.837\n"
      "ATOM      3  C   ARG A  10       0.798   0.609   1.876\n"
      "ATOM      4  O   ARG A  10       0.878   0.778   0.651\n"
      "ATOM      5  CB  ARG A  10       2.847   1.020   3.305\n"
      "ATOM      6  CG  ARG A  10       3.752   0.607   2.149\n"
      "ATOM      7  CD  ARG A  10       4.226   1.699   1.244\n"
      "ATOM      8  NE  ARG A  10       5.143   2.571   2.035\n"
      "ATOM      9  CZ  ARG A  10       5.758   3.609   1.443\n"
      "ATOM     10  NH1 ARG A  10       5.539   3.932   0.158\n"
      "ATOM     11  NH2 ARG A  10       6.601   4.322   2.202\n";
  PdbFile const standard = read_pdb(text, true);
  EXPECT_EQ(
      bonds_of(standard),
      (Pairs{{1, 2}, {2, 3}, {2, 5}, {3, 4}, {5, 6}, {6, 7}, {7, 8}, {8, 9}, {9, 10}, {9, 11}}));
  EXPECT_EQ(bonds_of(standard, double_bond), (Pairs{{3, 4}, {9, 11}}));
  EXPECT_EQ(bonds_of(standard, unknown_bond), Pairs{});
  EXPECT_EQ(bonds_of(read_pdb(text), double_bond), (Pairs{{3, 4}}));
  EXPECT_EQ(bonds_of(read_pdb(text), unknown_bond).size(), 9u);
}

TEST(PdbConect, PartnersReadWhenCompleteAndKnown) {
  std::string atoms;
  for (int i = 1; i <= 6; ++i)
    atoms +=
        record("HETATM", i, (" C" + std::to_string(i)).c_str(), ' ', "MOL", 1, 10 + 5 * i, 0, 0);
  for (auto const& [conect, bonds] : std::vector<std::pair<std::string, int>>{
           {"CONECT    1    2    3    4    5    6", 4},  // four partners at most
           {"CONECT    1    2    3   4", 2},
           {"CONECT    1    2\nCONECT    2    1", 1},  // both ends: one bond
           {"CONECT    1    9    0   -1    2", 1},     // unknown serials skipped
           {"CONECT    1    1", 0}}) {
    EXPECT_EQ(bonds_of(read_pdb(atoms + conect + "\n")).size(), bonds) << conect;
  }
  // In standard reading repeats give the bond order.
  std::string const orders = atoms +
                             "CONECT    1    2    2    3\nCONECT    2    1    1\n"
                             "CONECT    3    1\nCONECT    4    3    3    3\n";
  PdbFile const standard = read_pdb(orders, true);
  EXPECT_EQ(bonds_of(standard, single_bond), (Pairs{{1, 3}}));
  EXPECT_EQ(bonds_of(standard, double_bond), (Pairs{{1, 2}}));
  EXPECT_EQ(bonds_of(standard, triple_bond), (Pairs{{3, 4}}));
  EXPECT_EQ(bonds_of(read_pdb(orders), unknown_bond).size(), 3u);
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
}

// A serine whose side chain has two locations (A at 0.40, B at 0.60, close enough to be
// bonded if nothing kept them apart).
TEST(PdbAlternateLocations, OneLocationPerResidueUnlessAllAreAskedForNeverBondedToEachOther) {
  std::string const text = record("ATOM", 1, " N  ", ' ', "SER", 1, 0.000, 0.000, 0.000) +
                           record("ATOM", 2, " CA ", ' ', "SER", 1, 1.458, 0.000, 0.000) +
                           record("ATOM", 3, " C  ", ' ', "SER", 1, 2.009, 1.420, 0.000) +
                           record("ATOM", 4, " O  ", ' ', "SER", 1, 1.246, 2.390, 0.000) +
                           record("ATOM", 5, " CB ", 'A', "SER", 1, 1.980, -0.780, -1.200, 0.40) +
                           record("ATOM", 6, " CB ", 'B', "SER", 1, 1.980, -1.680, -0.600, 0.60) +
                           record("ATOM", 7, " OG ", 'A', "SER", 1, 3.380, -0.780, -1.400, 0.40) +
                           record("ATOM", 8, " OG ", 'B', "SER", 1, 3.380, -1.680, -0.800, 0.60);
  PdbFile const one = read_pdb(text, true);
  std::vector<int> serials;
  for (THandle<Atom> const& atom : atoms_of(one))
    serials.push_back(serial_of(atom));
  EXPECT_EQ(serials, (std::vector<int>{1, 2, 3, 4, 6, 8}));  // B: the higher occupancy
  EXPECT_EQ(bonds_of(one), (Pairs{{1, 2}, {2, 3}, {2, 6}, {3, 4}, {6, 8}}));
  ReadOptions all_locations = ReadOptions::standard_mode();
  all_locations.all_alternate_locations = true;
  PdbFile const all = read_pdb(text, all_locations);
  EXPECT_EQ(atoms_of(all).size(), 8U);
  EXPECT_EQ(bonds_of(all), (Pairs{{1, 2}, {2, 3}, {2, 5}, {2, 6}, {3, 4}, {5, 7}, {6, 8}}));
}

}  // namespace
