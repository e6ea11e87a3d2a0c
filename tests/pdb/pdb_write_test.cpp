// Standard PDB writing: atom records column for column, TER/MODEL/ENDMDL, CONECT for the bonds
// readers cannot derive, CRYST1 symbols (also in classic writing) and hybrid-36 serials.

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
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
                        Residue const& r = {}, int charge = 0) {
  auto atom = make_handle<FileOrderedAtom3d>(0, Element(element), label,
                                             make_handle<Site>(Point(), position, 1.0));
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

THandle<Molecule> make_molecule(std::vector<THandle<Atom>> atoms,
                                std::vector<BondData> const& bonds = {}) {
  return THandle<Molecule>(make_handle<Molecule3d>(std::move(atoms), bonds));
}

Cell cell_of(double a, double b, double c, double alpha, double beta, double gamma,
             Spacegroup const& group = Spacegroup()) {
  return Cell(a, b, c, Angle::from_degrees(alpha), Angle::from_degrees(beta),
              Angle::from_degrees(gamma), group);
}

CrystalMaker maker(Cell const& cell) {
  return CrystalMaker(cell, make_handle<MoleculeList>(), nullptr, nullptr);
}

std::string printed(PdbFile& file, bool standard = true) {
  if (standard) file.set_write_options(WriteOptions::standard_mode());
  std::ostringstream out;
  file.print(out);
  return out.str();
}

template <class Structure>
std::string printed(Structure const& structure, bool standard = true) {
  PdbFile file;
  file.add(structure, DatabaseEntryIdentifier("T"));
  return printed(file, standard);
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
           // A residue not of a polymer read as ATOM becomes HETATM.
           {"O", "O", 0, {"HOH", 9, "W"}, "HETATM    1  O   HOH W   9 ", " O  "},
           // The alternate location leaves the name.
           {"CAB",
            "C",
            0,
            {"ALA", 5, "A", false, -1, ' ', 'B'},
            "ATOM      1  CA BALA A   5 ",
            " C  "},
           {"N1", "N", -1, {}, "HETATM    1  N1  UNL A   1 ", " N1-"},
           {"X", "", 0, {}, "HETATM    1  X   UNL A   1 ", "    "}}) {  // no element
    char b_factor[8];
    std::snprintf(b_factor, sizeof b_factor, "%6.2f", std::max(c.residue.b_factor, 0.0));
    THandle<Atom> const atom = make_atom(c.label, c.element, Point(1, 2, 3), c.residue, c.charge);
    EXPECT_EQ(
        lines_of(printed(*make_molecule({atom})), {"ATOM", "HETATM"}),
        std::vector<std::string>{std::string(c.columns_1_27) + "      1.000   2.000   3.000  1.00" +
                                 b_factor + std::string(10, ' ') + c.columns_77_80});
  }
  // Without a B-factor read, B is 8 pi^2 U.
  auto const u = make_handle<AtomicDisplacementParameters>(
      UncertainValue(0.05), AtomicDisplacementParameters::isotropic, Cell());
  THandle<Atom> const atom(make_handle<FileOrderedAtom3d>(
      0, Element("C"), "C1", make_handle<Site>(Point(), Point(), UncertainValue(1.0), nullptr, u)));
  EXPECT_EQ(lines_of(printed(*make_molecule({atom})), {"HETATM"})[0].substr(60, 6), "  3.95");
}

TEST(PdbWrite, StandardModelsChainsAndTer) {
  std::string const model =
      "ATOM      1  N   ALA A   1       0.000   0.000   0.000  1.00 10.00           N\n"
      "ATOM      2  CA  ALA A   1       1.458   0.000   0.000  1.00 10.00           C\n"
      "ATOM      3  N   GLY A   2       3.332   1.536   0.000  1.00 10.00           N\n"
      "HETATM    4  O   HOH A 101      10.000  10.000  10.000  1.00 20.00           O\n";
  std::string const text =
      "MODEL        1\n" + model + "ENDMDL\nMODEL        2\n" + model + "ENDMDL\nEND\n";
  PdbFile file = read_pdb(text, true);
  std::string names;
  for (std::string const& line :
       lines_of(printed(file), {"MODEL", "ATOM", "HETATM", "TER", "ENDMDL", "CONECT", "END"}))
    names += line.substr(0, 27) + "|";
  // Serials start again in every model; TER takes one.
  std::string const one =
      "MODEL        1|ATOM      1  N   ALA A   1 |ATOM      2  CA  ALA A   1 |"
      "ATOM      3  N   GLY A   2 |TER       4      GLY A   2 |HETATM    5  O   HOH A 101 |ENDMDL|";
  std::string two = one;
  two[13] = '2';
  EXPECT_EQ(names, one + two + "END|");
}

TEST(PdbWrite, StandardConectForBondsReadersCannotDerive) {
  auto const in = [](char const* label, char const* element, char const* residue, int number,
                     char const* chain = "A", bool hetero = false) {
    return make_atom(label, element, Point(), Residue{residue, number, chain, hetero});
  };
  auto const plain = [](char const* label, char const* element) {
    return make_atom(label, element, Point());
  };
  struct Case {
    std::vector<THandle<Atom>> atoms;
    std::vector<BondData> bonds;
    std::vector<std::string> conect;
  };
  for (Case const& c : std::vector<Case>{
           // Peptide bonds of consecutive residues need none.
           {{in("C", "C", "ALA", 1), in("N", "N", "GLY", 2)}, {{0, 1, single_bond}}, {}},
           // C-N of residues that do not follow each other.
           {{in("C", "C", "ALA", 1), in("CA", "C", "ALA", 2), in("N", "N", "GLY", 3)},
            {{0, 2, single_bond}},
            {"CONECT    1    3", "CONECT    3    1"}},
           // Triple bonds listed three times.
           {{plain("C1", "C"), plain("N1", "N")},
            {{0, 1, triple_bond}},
            {"CONECT    1    2    2    2", "CONECT    2    1    1    1"}},
           // At most four partners a line; double bonds listed twice.
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
    std::string const text = printed(*make_molecule(c.atoms, c.bonds));
    EXPECT_EQ(lines_of(text, {"CONECT"}), c.conect) << text;
  }
}

TEST(PdbWrite, Cryst1NamesTheSettingAndReadsBack) {
  struct Case {
    char const* symbol;
    double a, b, c, alpha, beta, gamma;
    char const *standard, *classic;
  };
  for (Case const& c :
       std::vector<Case>{{"P 21", 10, 11, 12, 90, 100, 90,
                          "CRYST1  10.0000  11.0000  12.0000  90.00 100.00  90.00 P 1 21 1      2",
                          "CRYST1  10.0000  11.0000  12.0000  90.00 100.00  90.00       P21"},
                         {"R3", 10, 10, 20, 90, 90, 120,
                          "CRYST1  10.0000  10.0000  20.0000  90.00  90.00 120.00 H 3           9",
                          "CRYST1  10.0000  10.0000  20.0000  90.00  90.00 120.00        H3"}}) {
    Cell const cell = cell_of(c.a, c.b, c.c, c.alpha, c.beta, c.gamma, Spacegroup(c.symbol));
    EXPECT_EQ(lines_of(printed(maker(cell), false), {"CRYST1"})[0], c.classic);
    EXPECT_EQ(lines_of(printed(maker(cell)), {"CRYST1"})[0], c.standard);
  }
  // Every tabulated setting reads back in both modes; R groups need a cell of their axes.
  int settings = 0;
  for (std::string const& setting : Spacegroup::tabulated_settings()) {
    bool const rhombohedral = setting.ends_with(":R");
    double const gamma = rhombohedral ? 75 : setting.ends_with(":H") ? 120 : 90;
    double const alpha = rhombohedral ? 75 : 90;
    double const a = rhombohedral ? 8 : 10;
    Spacegroup const group(setting);
    std::string const text =
        printed(maker(cell_of(a, a, rhombohedral ? 8 : 20, alpha, alpha, gamma, group)));
    ASSERT_TRUE(read_pdb(text, true).cell()->spacegroup() == group) << text;
    ASSERT_TRUE(read_pdb(text).cell()->spacegroup() == group) << text;
    ++settings;
  }
  EXPECT_GT(settings, 530);
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
  std::string const text = printed(*m);
  for (char const* line :
       {"\nHETATM99999 C998 UNL A   1 ", "\nHETATMA0000 C999 UNL A   1 ",
        "\nHETATMA0004  C3  UNL A   1 ", "\nCONECT99999A0002A0002\n", "\nCONECTA00029999999999\n"})
    EXPECT_NE(text.find(line), std::string::npos) << line;
  PdbFile const back = read_pdb(text, true);
  ASSERT_EQ(atoms_of(back).size(), std::size_t(natoms));
  EXPECT_EQ(bonds_of(back, double_bond), (Pairs{{99999, 100002}}));
  EXPECT_EQ(bonds_of(back).size(), 1u);
  // Classic reading knows no HETATM record run into its serial (10000 and beyond).
  EXPECT_EQ(read_pdb(text).molecule()->natoms(), 9999);
}

}  // namespace
