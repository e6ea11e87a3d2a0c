// Writing PDB files in both modes: atom records column for column, TER/MODEL/ENDMDL, CONECT
// rules with bond orders, CRYST1 symbols and SCALE, and round trips through reading.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "pdb_test_support.hpp"

namespace {

using namespace kora;
using namespace kora::test;

// The residue fields of an atom read from a PDB record; no name: an atom of another format.
struct Residue {
  std::string name;
  int number = 1;
  std::string chain = "A";
  bool hetero = false;
  double b_factor = -1;  // none when negative
  char insertion = ' ', alt_loc = ' ';
};

THandle<Atom> make_atom(std::string const& label, std::string const& element, Point const& position,
                        Residue const& r = {}, int charge = 0, double occupancy = 1.0) {
  auto atom = make_handle<FileOrderedAtom3d>(0, Element(element), label,
                                             make_handle<Site>(Point(), position, occupancy));
  atom->set_formal_charge(charge);
  if (!r.name.empty()) {
    AtomDetails& d = *atom->mutable_details();
    d.serial = 1;  // read from a PDB record
    d.residue_name = r.name;
    d.residue_number = r.number;
    d.chain = r.chain;
    d.hetero = r.hetero;
    d.has_b_factor = r.b_factor >= 0;
    d.b_factor = r.b_factor;
    d.insertion_code = r.insertion;
    d.alt_loc = r.alt_loc;
  }
  return THandle<Atom>(atom);
}

struct BondSpec {
  int atom1, atom2;
  BondType type;
};

THandle<Molecule> make_molecule(std::vector<THandle<Atom>> atoms,
                                std::vector<BondSpec> const& bonds = {}) {
  std::vector<BondData> list;
  for (BondSpec const& b : bonds)
    list.emplace_back(b.atom1, b.atom2, b.type);
  return THandle<Molecule>(make_handle<Molecule3d>(std::move(atoms), list));
}

Cell cell_of(double a, double b, double c, double alpha, double beta, double gamma,
             Spacegroup const& group = Spacegroup()) {
  return Cell(a, b, c, Angle::from_degrees(alpha), Angle::from_degrees(beta),
              Angle::from_degrees(gamma), group);
}

CrystalMaker maker(Cell const& cell, MoleculeList const& molecules = {}) {
  return CrystalMaker(cell, make_handle<MoleculeList>(molecules), nullptr, nullptr);
}

std::string printed(PdbFile& file, bool standard = false) {
  if (standard) file.set_write_options(WriteOptions::standard_mode());
  std::ostringstream out;
  file.print(out);
  return out.str();
}

template <class Structure>
std::string printed(Structure const& structure, bool standard) {
  PdbFile file;
  file.add(structure, DatabaseEntryIdentifier("T"));
  return printed(file, standard);
}

// The SCALE records of a cell: its orthogonal-to-fractional matrix, no translation.
std::string scale_lines(Cell const& cell) {
  std::string text;
  for (std::size_t r = 0; r < 3; ++r) {
    Matrix<double, 3, 3> const& m = cell.orthogonal_to_fractional();
    char line[96];
    std::snprintf(line, sizeof line, "SCALE%zu    %10.6f%10.6f%10.6f%15.6f\n", r + 1, m(r, 0),
                  m(r, 1), m(r, 2), 0.0);
    text += line;
  }
  return text;
}

TEST(PdbWrite, ClassicRecordsColumnForColumn) {
  PdbFile empty;
  EXPECT_EQ(printed(empty),
            "HEADER    VRX ENTRY \n"
            "CRYST1   1.0000   1.0000   1.0000  90.00  90.00  90.00        P1\n" +
                scale_lines(Cell()) +
                "MASTER    0    0    0    0    0    0    0    0    3    0    0    0    0\nEND\n");
  Cell const cell = cell_of(10, 11, 12, 90, 100, 90, Spacegroup("P 1 21 1"));
  PdbFile file;
  file.add(
      maker(cell, {make_molecule({make_atom("C1", "C", Point(1, 2, 3)),
                                  make_atom("O2LONG", "O", Point(-1.5, 2.25, -0.0004), {}, 0, 0.5),
                                  make_atom("N3", "N", Point(123.4567, -99.9996, 0), {}, 0, 0.123)},
                                 {{0, 1, double_bond}})}),
      DatabaseEntryIdentifier("TEST1"));
  EXPECT_EQ(printed(file),
            "HEADER    VRX ENTRY TEST1\n"
            "CRYST1  10.0000  11.0000  12.0000  90.00 100.00  90.00       P21\n" +
                scale_lines(cell) +
                "HETATM    1 C1   UNK 0   1       1.000   2.000   3.000  1.00  0.00\n"
                "HETATM    2 O2LONUNK 0   1      -1.500   2.250  -0.000  0.50  0.00\n"
                "HETATM    3 N3   UNK 0   1     123.457-100.000   0.000  0.12  0.00\n"
                "CONECT    1    2\nCONECT    2\nCONECT    3\n"
                "MASTER    0    0    0    0    0    0    0    0    3    3    0    3    0\nEND\n");
}

TEST(PdbWrite, ClassicConectListsHoldAnAtomAndAtMostThreePartners) {
  // Atoms 0-3 each bond three leaves of their own, then atom 4; 0, 1 and 2 go into atom 4's
  // list, which is then full, so the bond 3-4 gets a list of its own after all others.
  std::vector<THandle<Atom>> atoms;
  for (int i = 0; i < 17; ++i)
    atoms.push_back(make_atom("C", "C", Point()));
  std::vector<BondSpec> bonds;
  for (int hub = 0; hub < 4; ++hub) {
    for (int leaf = 0; leaf < 3; ++leaf)
      bonds.push_back({hub, 5 + 3 * hub + leaf, double_bond});
    bonds.push_back({hub, 4, double_bond});
  }
  std::string expected =
      "CONECT    1    6    7    8\nCONECT    2    9   10   11\nCONECT    3   12   13   14\n"
      "CONECT    4   15   16   17\nCONECT    5    1    2    3\n";
  for (int leaf = 6; leaf <= 17; ++leaf)
    expected += (leaf < 10 ? "CONECT    " : "CONECT   ") + std::to_string(leaf) + "\n";
  expected +=
      "CONECT    4    5\n"
      "MASTER    0    0    0    0    0    0    0    0    3   17    0   18    0\nEND\n";
  std::string const text = printed(*make_molecule(atoms, bonds), false);
  EXPECT_EQ(text.substr(text.find("CONECT")), expected);
}

// Each atom at (1, 2, 3): the columns before the position, then the B-factor, then the
// element and charge columns.
TEST(PdbWrite, StandardAtomRecordsColumnForColumn) {
  struct Case {
    char const *label, *element;
    int charge;
    Residue residue;
    char const *columns_1_27, *columns_77_80;
  };
  for (Case const& c : std::vector<Case>{
           // A carbon CA of a residue starts in column 14, calcium in column 13.
           {"CA", "C", 0, {"ALA", 5, "A", false, 12.5}, "ATOM      1  CA  ALA A   5 ", " C  "},
           {"CA", "Ca", 2, {"CA", 301, "A", true, 12.5}, "HETATM    1 CA    CA A 301 ", "CA2+"},
           {"HD21", "H", 0, {"ASN", 3, "B", false, -1, 'A'}, "ATOM      1 HD21 ASN B   3A", " H  "},
           {"FE", "Fe", 3, {"HEM", 154, "A", true}, "HETATM    1 FE   HEM A 154 ", "FE3+"},
           // A standard residue read as HETATM stays so; another read as ATOM becomes HETATM.
           {"CA", "C", 0, {"ALA", 1, "A", true}, "HETATM    1  CA  ALA A   1 ", " C  "},
           {"O", "O", 0, {"HOH", 9, "W"}, "HETATM    1  O   HOH W   9 ", " O  "},
           // The alternate location leaves the name.
           {"CAB",
            "C",
            0,
            {"ALA", 5, "A", false, -1, ' ', 'B'},
            "ATOM      1  CA BALA A   5 ",
            " C  "},
           {"N1", "N", -1, {}, "HETATM    1  N1  UNL A   1 ", " N1-"},
           {"C12345", "C", 0, {}, "HETATM    1 C123 UNL A   1 ", " C  "},  // cut to four
           {"X", "", 0, {}, "HETATM    1  X   UNL A   1 ", "    "}}) {     // no element
    char b_factor[8];
    std::snprintf(b_factor, sizeof b_factor, "%6.2f", std::max(c.residue.b_factor, 0.0));
    EXPECT_EQ(
        lines_of(printed(*make_molecule(
                             {make_atom(c.label, c.element, Point(1, 2, 3), c.residue, c.charge)}),
                         true),
                 {"ATOM", "HETATM"}),
        std::vector<std::string>{std::string(c.columns_1_27) + "      1.000   2.000   3.000  1.00" +
                                 b_factor + std::string(10, ' ') + c.columns_77_80});
  }
  // A named residue of another format, no chain.
  auto atom = make_atom("Cl1", "Cl", Point(1, 2, 3));
  atom->mutable_details()->residue_name = "LIG";
  atom->mutable_details()->residue_number = 7;
  EXPECT_EQ(
      lines_of(printed(*make_molecule({atom}), true), {"HETATM"}),
      std::vector<std::string>{
          "HETATM    1 Cl1  LIG A   7       1.000   2.000   3.000  1.00  0.00          CL  "});
}

TEST(PdbWrite, StandardBFactorFromDisplacementParameters) {
  Cell const cell = cell_of(10, 10, 10, 90, 90, 90);
  std::vector<THandle<Atom>> atoms;
  for (auto const& adp : {make_handle<AtomicDisplacementParameters>(
                              UncertainValue(0.05), AtomicDisplacementParameters::isotropic, cell),
                          make_handle<AtomicDisplacementParameters>(
                              UncertainValue(0.02), UncertainValue(0.03), UncertainValue(0.04),
                              UncertainValue(0), UncertainValue(0), UncertainValue(0))}) {
    atoms.push_back(THandle<Atom>(make_handle<FileOrderedAtom3d>(
        0, Element("C"), "C1",
        make_handle<Site>(Point(), Point(), UncertainValue(1.0), nullptr, adp))));
  }
  std::vector<std::string> const lines =
      lines_of(printed(maker(cell, {make_molecule(atoms)}), true), {"HETATM"});
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].substr(60, 6), "  3.95");  // 0.05 * 8 pi^2
  EXPECT_EQ(lines[1].substr(60, 6), "  2.37");  // U(eq) 0.03 * 8 pi^2
}

TEST(PdbWrite, StandardModelsChainsAndTer) {
  std::string const model =
      "ATOM      1  N   ALA A   1       0.000   0.000   0.000  1.00 10.00           N\n"
      "ATOM      2  CA  ALA A   1       1.458   0.000   0.000  1.00 10.00           C\n"
      "ATOM      3  C   ALA A   1       2.009   1.420   0.000  1.00 10.00           C\n"
      "ATOM      4  O   ALA A   1       1.251   2.390   0.000  1.00 10.00           O\n"
      "ATOM      5  N   GLY A   2       3.332   1.536   0.000  1.00 10.00           N\n"
      "ATOM      6  CA  GLY A   2       3.988   2.839   0.000  1.00 10.00           C\n"
      "HETATM    7  O   HOH A 101      10.000  10.000  10.000  1.00 20.00           O\n";
  std::string const text =
      "MODEL        1\n" + model + "ENDMDL\nMODEL        2\n" + model + "ENDMDL\nEND\n";
  for (bool standard_read : {false, true}) {
    PdbFile file = read_pdb(text, standard_read);
    std::string const written = printed(file, true);
    std::string names;
    for (std::string const& line : lines_of(written, {"HEADER", "CRYST1", "MODEL", "ATOM", "HETATM",
                                                      "TER", "ENDMDL", "CONECT", "END"}))
      names += line.substr(0, line.find(' ')) + " ";
    std::string const one = "MODEL ATOM ATOM ATOM ATOM ATOM ATOM TER HETATM ENDMDL ";
    EXPECT_EQ(names, "HEADER CRYST1 " + one + one + "END ") << standard_read;
    std::vector<std::string> const ters = lines_of(written, {"TER", "MODEL", "HETATM"});
    ASSERT_EQ(ters.size(), 6U);
    EXPECT_EQ(ters[0], "MODEL        1");
    EXPECT_EQ(ters[1], "TER       7      GLY A   2 ");
    EXPECT_EQ(ters[2].substr(0, 27), "HETATM    8  O   HOH A 101 ");
    EXPECT_EQ(ters[3], "MODEL        2");
    EXPECT_EQ(ters[5].substr(0, 11), "HETATM    8");  // serials start again in every model
  }
}

TEST(PdbWrite, StandardConectForBondsReadersCannotDerive) {
  Point const o;
  auto const in = [&](char const* label, char const* element, char const* residue, int number,
                      char const* chain = "A", bool hetero = false) {
    return make_atom(label, element, o, Residue{residue, number, chain, hetero});
  };
  auto const plain = [&](char const* label, char const* element) {
    return make_atom(label, element, o);
  };
  struct Case {
    std::vector<THandle<Atom>> atoms;
    std::vector<BondSpec> bonds;
    std::vector<std::string> conect;
  };
  for (Case const& c : std::vector<Case>{
           // Peptide bonds of consecutive residues, bonds within a residue, phosphodiester links.
           {{in("C", "C", "ALA", 1), in("N", "N", "GLY", 2)}, {{0, 1, single_bond}}, {}},
           {{in("C", "C", "ALA", 1), in("O", "O", "ALA", 1)}, {{0, 1, double_bond}}, {}},
           {{in("O3'", "O", "DA", 1), in("P", "P", "DC", 2)}, {{0, 1, single_bond}}, {}},
           // C-N of residues that do not follow each other, or across chains (TER takes a serial).
           {{in("C", "C", "ALA", 1), in("CA", "C", "ALA", 2), in("N", "N", "GLY", 3)},
            {{0, 2, single_bond}},
            {"CONECT    1    3", "CONECT    3    1"}},
           {{in("C", "C", "ALA", 1), in("N", "N", "GLY", 2, "B")},
            {{0, 1, single_bond}},
            {"CONECT    1    3", "CONECT    3    1"}},
           {{in("SG", "S", "CYS", 2), in("SG", "S", "CYS", 10)},
            {{0, 1, single_bond}},
            {"CONECT    1    2", "CONECT    2    1"}},
           // Double bonds listed twice, triple three times, aromatic and unknown once.
           {{plain("C1", "C"), plain("O1", "O")},
            {{0, 1, double_bond}},
            {"CONECT    1    2    2", "CONECT    2    1    1"}},
           {{plain("C1", "C"), plain("N1", "N")},
            {{0, 1, triple_bond}},
            {"CONECT    1    2    2    2", "CONECT    2    1    1    1"}},
           {{plain("C1", "C"), plain("C2", "C"), plain("C3", "C")},
            {{0, 1, aromatic_bond}, {1, 2, unknown_bond}},
            {"CONECT    1    2", "CONECT    2    1    3", "CONECT    3    2"}},
           // At most four partners a line.
           {{plain("C1", "C"), plain("H1", "H"), plain("H2", "H"), plain("H3", "H"),
             plain("H4", "H"), plain("O1", "O")},
            {{0, 1, single_bond},
             {0, 2, single_bond},
             {0, 3, single_bond},
             {0, 4, single_bond},
             {0, 5, double_bond}},
            {"CONECT    1    2    3    4    5", "CONECT    1    6    6", "CONECT    2    1",
             "CONECT    3    1", "CONECT    4    1", "CONECT    5    1", "CONECT    6    1    1"}},
           // A ligand bonded to a residue.
           {{in("NZ", "N", "LYS", 5), in("C4A", "C", "PLP", 301, "A", true)},
            {{0, 1, double_bond}},
            {"CONECT    1    3    3", "CONECT    3    1    1"}}}) {
    std::string const text = printed(*make_molecule(c.atoms, c.bonds), true);
    EXPECT_EQ(lines_of(text, {"CONECT"}), c.conect) << text;
  }
}

TEST(PdbWrite, Cryst1NamesTheSettingAndReadsBack) {
  struct Case {
    char const* symbol;
    double a, b, c, alpha, beta, gamma;
    char const *standard, *classic;
  };
  for (Case const& c : std::vector<Case>{
           {"P21/c", 10, 11, 12, 90, 100, 90,
            "CRYST1  10.0000  11.0000  12.0000  90.00 100.00  90.00 P 1 21/c 1    4", nullptr},
           {"P 21", 10, 11, 12, 90, 100, 90,
            "CRYST1  10.0000  11.0000  12.0000  90.00 100.00  90.00 P 1 21 1      2",
            "CRYST1  10.0000  11.0000  12.0000  90.00 100.00  90.00       P21"},
           {"P212121", 5.1234, 6, 7, 90, 90, 90,
            "CRYST1   5.1234   6.0000   7.0000  90.00  90.00  90.00 P 21 21 21    4", nullptr},
           {"I41/a:2", 10, 10, 20, 90, 90, 90,
            "CRYST1  10.0000  10.0000  20.0000  90.00  90.00  90.00 I 41/a:2     16", nullptr},
           {"R3", 10, 10, 20, 90, 90, 120,
            "CRYST1  10.0000  10.0000  20.0000  90.00  90.00 120.00 H 3           9",
            "CRYST1  10.0000  10.0000  20.0000  90.00  90.00 120.00        H3"},
           {"R3r", 8, 8, 8, 75, 75, 75,
            "CRYST1   8.0000   8.0000   8.0000  75.00  75.00  75.00 R 3           3",
            "CRYST1   8.0000   8.0000   8.0000  75.00  75.00  75.00        R3"},
           {"R3", 10, 11, 20, 90, 90, 120, nullptr,
            "CRYST1  10.0000  11.0000  20.0000  90.00  90.00 120.00        R3"}}) {
    SCOPED_TRACE(c.symbol);
    Cell const cell = cell_of(c.a, c.b, c.c, c.alpha, c.beta, c.gamma, Spacegroup(c.symbol));
    if (c.classic) {
      EXPECT_EQ(lines_of(printed(maker(cell), false), {"CRYST1"})[0], c.classic);
    }
    if (!c.standard) continue;
    std::string const text = printed(maker(cell), true);
    EXPECT_EQ(lines_of(text, {"CRYST1"}), std::vector<std::string>{c.standard});
    EXPECT_EQ(lines_of(text, {"SCALE"}).size(), 3U);
    for (bool standard_read : {false, true}) {
      PdbFile const back = read_pdb(text, standard_read);
      EXPECT_TRUE(back.cell()->spacegroup() == cell.spacegroup());
      EXPECT_NEAR(back.cell()->c(), c.c, 1e-9);
      EXPECT_TRUE(back.details().has_cell);
    }
  }
}

TEST(PdbWrite, EveryTabulatedSettingReadsBack) {
  int settings = 0;
  for (std::string const& setting : Spacegroup::tabulated_settings()) {
    // R groups need a cell of their axes; the others take any cell.
    bool const rhombohedral = setting.ends_with(":R");
    double const gamma = rhombohedral ? 75 : setting.ends_with(":H") ? 120 : 90;
    double const alpha = rhombohedral ? 75 : 90;
    double const c = rhombohedral ? 8 : 20;
    Spacegroup const group(setting);
    std::string const text = printed(
        maker(cell_of(c < 10 ? 8 : 10, c < 10 ? 8 : 10, c, alpha, alpha, gamma, group)), true);
    ASSERT_TRUE(read_pdb(text, true).cell()->spacegroup() == group) << text;
    ASSERT_TRUE(read_pdb(text).cell()->spacegroup() == group) << text;
    ++settings;
  }
  EXPECT_GT(settings, 530);
}

TEST(PdbWrite, StandardScaleOfTheSitesIsKeptAndNoCellWritesThePlaceholder) {
  // A cell whose SCALE records are not its standard orthogonalisation (older entries):
  // fractional coordinates come from SCALE, and writing keeps it.
  std::string const scale =
      "SCALE1      0.015462  0.002192  0.003698        0.26656\n"
      "SCALE2     -0.001902  0.011771  0.000974        0.16413\n"
      "SCALE3     -0.001062 -0.001721  0.018728        0.75059\n";
  std::string const cryst1 =
      "CRYST1  63.1500  83.5900  53.8000  90.00  99.34  90.00 P 1 21 1      2\n";
  std::string const atoms =
      "HETATM    1  C1  LIG A   1       1.000   2.000   3.000  1.00  0.00           C\n"
      "HETATM    2  C2  LIG A   1      11.000   2.500   3.000  1.00  0.00           C\n"
      "HETATM    3  C3  LIG A   1       1.000  12.000   3.500  1.00  0.00           C\n"
      "HETATM    4  C4  LIG A   1       1.500   2.000  13.000  1.00  0.00           C\n";
  for (bool with_scale : {true, false}) {
    PdbFile file = read_pdb(cryst1 + (with_scale ? scale : "") + atoms, true);
    std::string const written = printed(file, true);
    std::vector<std::string> const lines = lines_of(written, {"SCALE"});
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], with_scale ? scale.substr(0, scale.find('\n'))
                                   : "SCALE1      0.015835  0.000000  0.002604        0.00000");
    THandle<Molecule> const before = file.molecule();
    THandle<Molecule> const after = read_pdb(written, true).molecule();
    ASSERT_EQ(after->natoms(), 4);
    for (int i = 0; i < 4; ++i)  // SCALE has six decimals
      EXPECT_LT(norm(after->atom(i)->site()->fractional() - before->atom(i)->site()->fractional()),
                2e-5);
  }
  // Without a cell: the unit cube, no SCALE, and no cell when read back.
  THandle<Molecule> const m = make_molecule({make_atom("C1", "C", Point(1, 2, 3))});
  CrystalMaker no_cell = maker(cell_of(10, 10, 10, 90, 90, 90), {m});
  no_cell.mutable_details().has_cell = false;
  for (std::string const& text : {printed(no_cell, true), printed(*m, true)}) {
    EXPECT_EQ(lines_of(text, {"CRYST1"}),
              std::vector<std::string>{
                  "CRYST1    1.000    1.000    1.000  90.00  90.00  90.00 P 1           1"});
    EXPECT_TRUE(lines_of(text, {"SCALE"}).empty());
    EXPECT_FALSE(read_pdb(text, true).details().has_cell);
  }
}

TEST(PdbWrite, StandardRoundTripThroughStandardReading) {
  auto const res = [](char const* name, int number, char const* chain, bool hetero, double b) {
    return Residue{name, number, chain, hetero, b};
  };
  std::vector<THandle<Atom>> const atoms{
      make_atom("N", "N", Point(0, 0, 0), res("GLY", 1, "A", false, 11)),
      make_atom("CA", "C", Point(1.45, 0, 0), res("GLY", 1, "A", false, 12)),
      make_atom("C", "C", Point(2.0, 1.4, 0), res("GLY", 1, "A", false, 13)),
      make_atom("O", "O", Point(1.3, 2.4, 0), res("GLY", 1, "A", false, 14)),
      make_atom("C1", "C", Point(10, 0, 0), res("LIG", 201, "B", true, 21)),
      make_atom("O1", "O", Point(11.2, 0, 0), res("LIG", 201, "B", true, 22)),
      make_atom("CL1", "Cl", Point(9.2, 1.5, 0), res("LIG", 201, "B", true, 23)),
      make_atom("CA", "Ca", Point(20, 0, 0), res("CA", 301, "B", true, 31), 2),
      make_atom("FE", "Fe", Point(-25.5, 0.125, 7.75), res("FE", 302, "B", true, 32), 3)};
  // Bonds within a residue come back from its geometry: the residue bond typing makes C=O
  // double and the rest of an amino acid single; the ligand's come from CONECT with their
  // orders.
  THandle<Molecule> const m = make_molecule(atoms, {{0, 1, single_bond},
                                                    {1, 2, single_bond},
                                                    {2, 3, double_bond},
                                                    {4, 5, double_bond},
                                                    {4, 6, single_bond}});
  PdbFile const back = read_pdb(printed(*m, true), true);
  THandle<Molecule> const read = back.molecule();
  ASSERT_EQ(read->natoms(), m->natoms());
  for (int i = 0; i < m->natoms(); ++i) {
    Atom const& x = *m->atom(i);
    Atom const& y = *read->atom(i);
    AtomDetails const& dx = *x.details();
    AtomDetails const& dy = *y.details();
    EXPECT_EQ(std::make_tuple(y.label(), y.element(), dy.residue_name, dy.residue_number, dy.chain,
                              dy.hetero, dy.has_b_factor, dy.b_factor),
              std::make_tuple(x.label(), x.element(), dx.residue_name, dx.residue_number, dx.chain,
                              dx.hetero, dx.has_b_factor, dx.b_factor));
    EXPECT_EQ(y.formal_charge(), x.formal_charge()) << x.label();
    EXPECT_LT(norm(y.site()->orthogonal() - x.site()->orthogonal()), 1e-3) << x.label();
  }
  auto const typed_bonds = [](Molecule const& molecule) {
    std::vector<std::string> bonds;
    for (THandle<Bond> const& b : molecule.bonds())
      bonds.push_back(std::min(b->atom1()->label(), b->atom2()->label()) + "-" +
                      std::max(b->atom1()->label(), b->atom2()->label()) + ":" +
                      std::to_string(int(b->type())));
    std::sort(bonds.begin(), bonds.end());
    return bonds;
  };
  EXPECT_EQ(typed_bonds(*read), typed_bonds(*m));
  EXPECT_EQ(back.details().source_format, "pdb");
}

TEST(PdbWrite, StandardHundredThousandAtomsUseHybrid36Serials) {
  constexpr int natoms = 100005;
  std::vector<THandle<Atom>> atoms;
  atoms.reserve(natoms);
  for (int i = 0; i < natoms; ++i)  // a grid 3 A apart: no two atoms close enough to bond
    atoms.push_back(make_atom("C" + std::to_string(i % 1000), "C",
                              Point(3.0 * (i % 50), 3.0 * ((i / 50) % 50), 3.0 * (i / 2500))));
  // Serials 99999 and 100002 joined by a double bond: placed next to each other.
  Point const& near = atoms[99998]->site()->orthogonal();
  atoms[100001]->site()->set_orthogonal(Point(near.x() + 1.3, near.y(), near.z()));
  THandle<Molecule> const m = make_molecule(atoms, {{99998, 100001, double_bond}});
  std::string const text = printed(*m, true);
  for (char const* line :
       {"\nHETATM99999 C998 UNL A   1 ", "\nHETATMA0000 C999 UNL A   1 ",
        "\nHETATMA0004  C3  UNL A   1 ", "\nCONECT99999A0002A0002\n", "\nCONECTA00029999999999\n"})
    EXPECT_NE(text.find(line), std::string::npos) << line;
  THandle<Molecule> const read = read_pdb(text, true).molecule();
  ASSERT_EQ(read->natoms(), natoms);
  ASSERT_EQ(read->nbonds(), 1);
  EXPECT_EQ(read->bond(0)->type(), double_bond);
  auto const [i, j] = read->bond_atoms(0);
  EXPECT_EQ(read->atom(i)->details()->serial + read->atom(j)->details()->serial, 99999 + 100002);
  EXPECT_EQ(std::min(read->atom(i)->details()->serial, read->atom(j)->details()->serial), 99999);
  for (int k = 0; k < read->natoms(); ++k) {
    int const serial = read->atom(k)->details()->serial;
    ASSERT_GE(serial, 1);
    ASSERT_LT(norm(read->atom(k)->site()->orthogonal() - m->atom(serial - 1)->site()->orthogonal()),
              2e-3);
  }
  // Classic reading knows no HETATM record run into its serial (10000 and beyond).
  EXPECT_EQ(read_pdb(text).molecule()->natoms(), 9999);
}

TEST(PdbModel, AddingStructuresSharesTheirMoleculesWithinOneCell) {
  Cell const cell = cell_of(10, 11, 12, 90, 90, 90, Spacegroup("P 21 21 21"));
  THandle<Molecule> const a = make_molecule({make_atom("C1", "C", Point(0, 0, 0))});
  THandle<Molecule> const b = make_molecule({make_atom("N1", "N", Point(1, 0, 0))});
  PdbFile file;
  EXPECT_EQ(file.molecule()->natoms(), 0);  // an empty molecule, not a null handle
  file.add(maker(cell, {a}), DatabaseEntryIdentifier("A"));
  THandle<Crystal> const crystal = file.crystal();  // shares the molecule list
  file.add(maker(cell, {b}), DatabaseEntryIdentifier("B"));
  EXPECT_EQ(*file.molecules(), (MoleculeList{a, b}));
  EXPECT_EQ(crystal->nmolecules(), 2);
  file.add(*a, DatabaseEntryIdentifier("M"));  // a copy; the cell stays
  EXPECT_NE(file.molecules()->back(), a);
  EXPECT_TRUE(*file.cell() == cell);
  file.add(Crystal(Cell(), make_handle<MoleculeList>(MoleculeList{b})),
           DatabaseEntryIdentifier("C"));
  EXPECT_EQ(*file.molecules(), MoleculeList{b});  // another cell replaces everything
  EXPECT_TRUE(*file.cell() == Cell());
  EXPECT_EQ(file.database_entry()->identifier().str(), "C");
  file.clear();
  EXPECT_TRUE(file.molecules()->empty());
  EXPECT_EQ(file.identifier().str(), "C");
  // molecule() merges all, leaving out atoms without a position; cell() is a copy.
  PdbFile waters = read_pdb(
      "HETATM    1  O1  HOH A   1       0.000   0.000   0.000\n"
      "HETATM    2  O2  HOH A   2       5.000   0.000   0.000\n"
      "HETATM    3  H3  HOH A   2       5.960   0.000   0.000\n");
  ASSERT_EQ(waters.molecules()->size(), 2u);
  waters.molecules()->front()->atom(0)->set_site(THandle<Site>());
  EXPECT_EQ(waters.molecule()->natoms(), 2);
  EXPECT_EQ(waters.molecule()->nbonds(), 1);
  waters.cell()->set_spacegroup(Spacegroup("P 21 21 21"));
  EXPECT_EQ(waters.cell()->spacegroup().symbol(), "P1");
  PdbFile copy;
  copy.add(*waters.database_entry());
  EXPECT_EQ(copy.identifier().str(), "UNKNWN");
  EXPECT_EQ(*copy.molecules(), *waters.molecules());
}

}  // namespace
