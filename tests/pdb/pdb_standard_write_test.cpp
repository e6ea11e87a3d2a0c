// Standard PDB writing: atom records column for column, TER/MODEL/ENDMDL, CONECT rules with
// bond orders, CRYST1 symbols, and round trips through standard reading.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "pdb_test_support.hpp"

namespace {

using namespace kora;
using namespace kora::test;

using DetailsSetup = std::function<void(AtomDetails&)>;

// An atom at `position`; `setup` fills its details.
THandle<Atom> make_atom(std::string const& label, std::string const& element, Point const& position,
                        DetailsSetup const& setup = {}, int charge = 0) {
  auto atom = make_handle<FileOrderedAtom3d>(0, Element(element), label,
                                             make_handle<Site>(Point(), position, 1.0));
  atom->set_formal_charge(charge);
  if (setup) setup(*atom->mutable_details());
  return THandle<Atom>(atom);
}

struct BondSpec {
  int atom1;
  int atom2;
  BondType type;
};

THandle<Molecule> make_molecule(std::vector<THandle<Atom>> atoms,
                                std::vector<BondSpec> const& bonds = {}) {
  std::vector<BondData> list;
  for (BondSpec const& b : bonds)
    list.emplace_back(b.atom1, b.atom2, b.type);
  return THandle<Molecule>(make_handle<Molecule3d>(std::move(atoms), list));
}

DetailsSetup residue(std::string name, int number, std::string chain, bool hetero = false) {
  return [=](AtomDetails& d) {
    d.serial = 1;  // read from a PDB record
    d.residue_name = name;
    d.residue_number = number;
    d.chain = chain;
    d.hetero = hetero;
  };
}

std::string standard_text(PdbFile& file) {
  file.set_write_options(WriteOptions::standard_mode());
  std::ostringstream out;
  file.print(out);
  return out.str();
}

std::string standard_text(Molecule const& molecule) {
  PdbFile file;
  file.add(molecule, DatabaseEntryIdentifier("T"));
  return standard_text(file);
}

// The lines whose record name is one of `names` (by their first six columns).
std::vector<std::string> lines_of(std::string const& text, std::vector<std::string> const& names) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    for (std::string const& name : names) {
      if (line.compare(0, name.size(), name) == 0) {
        lines.push_back(line);
        break;
      }
    }
  }
  return lines;
}

PdbFile read_standard(std::string const& text) {
  std::istringstream in(text);
  PdbFile file;
  file.set_read_options(ReadOptions::standard_mode());
  file.read(in);
  return file;
}

struct AtomLineCase {
  char const* what;
  char const* label;
  char const* element;
  int charge;
  DetailsSetup setup;
  char const* line;
};

TEST(PdbStandardWrite, AtomRecordsColumnForColumn) {
  std::vector<AtomLineCase> const cases{
      {"carbon CA of a residue starts in column 14", "CA", "C", 0,
       [](AtomDetails& d) {
         residue("ALA", 5, "A")(d);
         d.has_b_factor = true;
         d.b_factor = 12.5;
       },
       "ATOM      1  CA  ALA A   5       1.000   2.000   3.000  1.00 12.50           C  "},
      {"calcium CA starts in column 13", "CA", "Ca", 2,
       [](AtomDetails& d) {
         residue("CA", 301, "A", true)(d);
         d.has_b_factor = true;
         d.b_factor = 12.5;
       },
       "HETATM    1 CA    CA A 301       1.000   2.000   3.000  1.00 12.50          CA2+"},
      {"four-character names start in column 13", "HD21", "H", 0,
       [](AtomDetails& d) {
         residue("ASN", 3, "B")(d);
         d.insertion_code = 'A';
       },
       "ATOM      1 HD21 ASN B   3A      1.000   2.000   3.000  1.00  0.00           H  "},
      {"iron of a heme", "FE", "Fe", 3, residue("HEM", 154, "A", true),
       "HETATM    1 FE   HEM A 154       1.000   2.000   3.000  1.00  0.00          FE3+"},
      {"a standard residue read as HETATM stays HETATM", "CA", "C", 0, residue("ALA", 1, "A", true),
       "HETATM    1  CA  ALA A   1       1.000   2.000   3.000  1.00  0.00           C  "},
      {"a non-standard residue read as ATOM becomes HETATM", "O", "O", 0, residue("HOH", 9, "W"),
       "HETATM    1  O   HOH W   9       1.000   2.000   3.000  1.00  0.00           O  "},
      {"the alternate location leaves the name", "CAB", "C", 0,
       [](AtomDetails& d) {
         residue("ALA", 5, "A")(d);
         d.alt_loc = 'B';
       },
       "ATOM      1  CA BALA A   5       1.000   2.000   3.000  1.00  0.00           C  "},
      {"a small molecule's atom",
       "N1",
       "N",
       -1,
       {},
       "HETATM    1  N1  UNL A   1       1.000   2.000   3.000  1.00  0.00           N1-"},
      {"labels are cut to four characters",
       "C12345",
       "C",
       0,
       {},
       "HETATM    1 C123 UNL A   1       1.000   2.000   3.000  1.00  0.00           C  "},
      {"a named residue of another format, no chain", "Cl1", "Cl", 0,
       [](AtomDetails& d) {
         d.residue_name = "LIG";
         d.residue_number = 7;
       },
       "HETATM    1 Cl1  LIG A   7       1.000   2.000   3.000  1.00  0.00          CL  "},
      {"an unknown element leaves the element columns blank",
       "X",
       "",
       0,
       {},
       "HETATM    1  X   UNL A   1       1.000   2.000   3.000  1.00  0.00              "},
  };
  for (AtomLineCase const& c : cases) {
    SCOPED_TRACE(c.what);
    THandle<Molecule> const m =
        make_molecule({make_atom(c.label, c.element, Point(1, 2, 3), c.setup, c.charge)});
    std::vector<std::string> const lines = lines_of(standard_text(*m), {"ATOM", "HETATM"});
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0], c.line);
  }
}

TEST(PdbStandardWrite, BFactorFromDisplacementParameters) {
  Cell const cell(10, 10, 10, Angle::from_degrees(90), Angle::from_degrees(90),
                  Angle::from_degrees(90), Spacegroup());
  auto const iso = make_handle<AtomicDisplacementParameters>(
      UncertainValue(0.05), AtomicDisplacementParameters::isotropic, cell);
  auto const aniso = make_handle<AtomicDisplacementParameters>(
      UncertainValue(0.02), UncertainValue(0.03), UncertainValue(0.04), UncertainValue(0),
      UncertainValue(0), UncertainValue(0));
  std::vector<THandle<Atom>> atoms;
  for (auto const& adp : {iso, aniso}) {
    atoms.push_back(THandle<Atom>(make_handle<FileOrderedAtom3d>(
        0, Element("C"), "C1",
        make_handle<Site>(Point(), Point(), UncertainValue(1.0), nullptr, adp))));
  }
  PdbFile file;
  file.add(CrystalMaker(cell, make_handle<MoleculeList>(MoleculeList{make_molecule(atoms)}),
                        nullptr, nullptr),
           DatabaseEntryIdentifier("B"));
  std::vector<std::string> const lines = lines_of(standard_text(file), {"HETATM"});
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].substr(60, 6), "  3.95");  // 0.05 * 8 pi^2
  EXPECT_EQ(lines[1].substr(60, 6), "  2.37");  // U(eq) 0.03 * 8 pi^2
}

// Two models of a chain of two residues and a water, as a PDB file.
constexpr char two_models[] =
    "MODEL        1\n"
    "ATOM      1  N   ALA A   1       0.000   0.000   0.000  1.00 10.00           N\n"
    "ATOM      2  CA  ALA A   1       1.458   0.000   0.000  1.00 10.00           C\n"
    "ATOM      3  C   ALA A   1       2.009   1.420   0.000  1.00 10.00           C\n"
    "ATOM      4  O   ALA A   1       1.251   2.390   0.000  1.00 10.00           O\n"
    "ATOM      5  N   GLY A   2       3.332   1.536   0.000  1.00 10.00           N\n"
    "ATOM      6  CA  GLY A   2       3.988   2.839   0.000  1.00 10.00           C\n"
    "HETATM    7  O   HOH A 101      10.000  10.000  10.000  1.00 20.00           O\n"
    "ENDMDL\n"
    "MODEL        2\n"
    "ATOM      1  N   ALA A   1       0.100   0.000   0.000  1.00 10.00           N\n"
    "ATOM      2  CA  ALA A   1       1.558   0.000   0.000  1.00 10.00           C\n"
    "ATOM      3  C   ALA A   1       2.109   1.420   0.000  1.00 10.00           C\n"
    "ATOM      4  O   ALA A   1       1.351   2.390   0.000  1.00 10.00           O\n"
    "ATOM      5  N   GLY A   2       3.432   1.536   0.000  1.00 10.00           N\n"
    "ATOM      6  CA  GLY A   2       4.088   2.839   0.000  1.00 10.00           C\n"
    "HETATM    7  O   HOH A 101      10.100  10.000  10.000  1.00 20.00           O\n"
    "ENDMDL\n"
    "END\n";

TEST(PdbStandardWrite, ModelsChainsAndTer) {
  for (bool standard_read : {false, true}) {
    SCOPED_TRACE(standard_read ? "standard reading" : "classic reading");
    PdbFile file = standard_read ? read_standard(two_models) : read_pdb(two_models);
    std::string const text = standard_text(file);
    std::vector<std::string> const records = lines_of(
        text, {"HEADER", "CRYST1", "MODEL", "ATOM", "HETATM", "TER", "ENDMDL", "CONECT", "END"});
    std::vector<std::string> names;
    for (std::string const& line : records)
      names.push_back(line.substr(0, line.find(' ')));
    std::vector<std::string> model{"MODEL", "ATOM", "ATOM", "ATOM",  "ATOM",
                                   "ATOM",  "ATOM", "TER",  "HETATM"};
    std::vector<std::string> expected{"HEADER", "CRYST1"};
    for (int i = 0; i < 2; ++i) {
      expected.insert(expected.end(), model.begin(), model.end());
      expected.push_back("ENDMDL");
    }
    expected.push_back("END");
    EXPECT_EQ(names, expected);
    std::vector<std::string> const ters = lines_of(text, {"TER", "MODEL", "HETATM"});
    ASSERT_EQ(ters.size(), 6U);
    EXPECT_EQ(ters[0], "MODEL        1");
    EXPECT_EQ(ters[1], "TER       7      GLY A   2 ");
    EXPECT_EQ(ters[2].substr(0, 27), "HETATM    8  O   HOH A 101 ");
    EXPECT_EQ(ters[3], "MODEL        2");
    // Serials start again in every model.
    EXPECT_EQ(ters[5].substr(0, 11), "HETATM    8");
    EXPECT_EQ(ters[5].substr(30, 8), "  10.100");
  }
}

struct ConectCase {
  char const* what;
  std::vector<THandle<Atom>> atoms;
  std::vector<BondSpec> bonds;
  std::vector<std::string> conect;
};

TEST(PdbStandardWrite, ConectForBondsReadersCannotDerive) {
  Point const o;
  std::vector<ConectCase> const cases{
      {"peptide bond of consecutive residues",
       {make_atom("C", "C", o, residue("ALA", 1, "A")),
        make_atom("N", "N", o, residue("GLY", 2, "A"))},
       {{0, 1, single_bond}},
       {}},
      {"bond within a residue",
       {make_atom("C", "C", o, residue("ALA", 1, "A")),
        make_atom("O", "O", o, residue("ALA", 1, "A"))},
       {{0, 1, double_bond}},
       {}},
      {"phosphodiester link of consecutive nucleotides",
       {make_atom("O3'", "O", o, residue("DA", 1, "A")),
        make_atom("P", "P", o, residue("DC", 2, "A"))},
       {{0, 1, single_bond}},
       {}},
      {"C-N of residues that do not follow each other",
       {make_atom("C", "C", o, residue("ALA", 1, "A")),
        make_atom("CA", "C", o, residue("ALA", 2, "A")),
        make_atom("N", "N", o, residue("GLY", 3, "A"))},
       {{0, 2, single_bond}},
       {"CONECT    1    3", "CONECT    3    1"}},
      {"C-N across chains (TER takes a serial)",
       {make_atom("C", "C", o, residue("ALA", 1, "A")),
        make_atom("N", "N", o, residue("GLY", 2, "B"))},
       {{0, 1, single_bond}},
       {"CONECT    1    3", "CONECT    3    1"}},
      {"disulfide",
       {make_atom("SG", "S", o, residue("CYS", 2, "A")),
        make_atom("SG", "S", o, residue("CYS", 10, "A"))},
       {{0, 1, single_bond}},
       {"CONECT    1    2", "CONECT    2    1"}},
      {"double bond listed twice, from both atoms",
       {make_atom("C1", "C", o), make_atom("O1", "O", o)},
       {{0, 1, double_bond}},
       {"CONECT    1    2    2", "CONECT    2    1    1"}},
      {"triple bond listed three times",
       {make_atom("C1", "C", o), make_atom("N1", "N", o)},
       {{0, 1, triple_bond}},
       {"CONECT    1    2    2    2", "CONECT    2    1    1    1"}},
      {"aromatic and unknown bonds listed once",
       {make_atom("C1", "C", o), make_atom("C2", "C", o), make_atom("C3", "C", o)},
       {{0, 1, aromatic_bond}, {1, 2, unknown_bond}},
       {"CONECT    1    2", "CONECT    2    1    3", "CONECT    3    2"}},
      {"at most four partners a line",
       {make_atom("C1", "C", o), make_atom("H1", "H", o), make_atom("H2", "H", o),
        make_atom("H3", "H", o), make_atom("H4", "H", o), make_atom("O1", "O", o)},
       {{0, 1, single_bond},
        {0, 2, single_bond},
        {0, 3, single_bond},
        {0, 4, single_bond},
        {0, 5, double_bond}},
       {"CONECT    1    2    3    4    5", "CONECT    1    6    6", "CONECT    2    1",
        "CONECT    3    1", "CONECT    4    1", "CONECT    5    1", "CONECT    6    1    1"}},
      {"bond of a ligand to a residue",
       {make_atom("NZ", "N", o, residue("LYS", 5, "A")),
        make_atom("C4A", "C", o, residue("PLP", 301, "A", true))},
       {{0, 1, double_bond}},
       {"CONECT    1    3    3", "CONECT    3    1    1"}},
  };
  for (ConectCase const& c : cases) {
    SCOPED_TRACE(c.what);
    std::string const text = standard_text(*make_molecule(c.atoms, c.bonds));
    EXPECT_EQ(lines_of(text, {"CONECT"}), c.conect);
  }
}

struct Cryst1Case {
  char const* symbol;
  double a, b, c, alpha, beta, gamma;
  char const* line;
};

TEST(PdbStandardWrite, Cryst1NamesTheSettingAndReadsBack) {
  std::vector<Cryst1Case> const cases{
      {"P21/c", 10, 11, 12, 90, 100, 90,
       "CRYST1  10.0000  11.0000  12.0000  90.00 100.00  90.00 P 1 21/c 1    4"},
      {"P 21", 10, 11, 12, 90, 100, 90,
       "CRYST1  10.0000  11.0000  12.0000  90.00 100.00  90.00 P 1 21 1      2"},
      {"P212121", 5.1234, 6, 7, 90, 90, 90,
       "CRYST1   5.1234   6.0000   7.0000  90.00  90.00  90.00 P 21 21 21    4"},
      {"I41/a:2", 10, 10, 20, 90, 90, 90,
       "CRYST1  10.0000  10.0000  20.0000  90.00  90.00  90.00 I 41/a:2     16"},
      {"R3", 10, 10, 20, 90, 90, 120,
       "CRYST1  10.0000  10.0000  20.0000  90.00  90.00 120.00 H 3           9"},
      {"R3r", 8, 8, 8, 75, 75, 75,
       "CRYST1   8.0000   8.0000   8.0000  75.00  75.00  75.00 R 3           3"},
  };
  for (Cryst1Case const& c : cases) {
    SCOPED_TRACE(c.symbol);
    Cell const cell(c.a, c.b, c.c, Angle::from_degrees(c.alpha), Angle::from_degrees(c.beta),
                    Angle::from_degrees(c.gamma), Spacegroup(c.symbol));
    PdbFile file;
    file.add(CrystalMaker(cell, make_handle<MoleculeList>(), nullptr, nullptr),
             DatabaseEntryIdentifier("X"));
    std::string const text = standard_text(file);
    EXPECT_EQ(lines_of(text, {"CRYST1"}), std::vector<std::string>{c.line});
    EXPECT_EQ(lines_of(text, {"SCALE"}).size(), 3U);
    for (bool standard_read : {false, true}) {
      PdbFile const back = standard_read ? read_standard(text) : read_pdb(text);
      EXPECT_TRUE(back.cell()->spacegroup() == cell.spacegroup());
      EXPECT_NEAR(back.cell()->c(), c.c, 1e-9);
      EXPECT_TRUE(back.details().has_cell);
    }
  }
}

TEST(PdbStandardWrite, EveryTabulatedSettingReadsBack) {
  auto const ends_with = [](std::string const& text, char const* end) {
    return text.size() > 2 && text.compare(text.size() - 2, 2, end) == 0;
  };
  int settings = 0;
  for (std::string const& setting : Spacegroup::tabulated_settings()) {
    SCOPED_TRACE(setting);
    Spacegroup const group(setting);
    // R groups need a cell of their axes; the others take any cell.
    bool const rhombohedral = ends_with(setting, ":R");
    bool const hexagonal = ends_with(setting, ":H");
    double const gamma = rhombohedral ? 75 : hexagonal ? 120 : 90;
    double const alpha = rhombohedral ? 75 : 90;
    Cell const cell(rhombohedral ? 8 : 10, rhombohedral ? 8 : 10, rhombohedral ? 8 : 20,
                    Angle::from_degrees(alpha), Angle::from_degrees(alpha),
                    Angle::from_degrees(gamma), group);
    PdbFile file;
    file.add(CrystalMaker(cell, make_handle<MoleculeList>(), nullptr, nullptr),
             DatabaseEntryIdentifier("X"));
    std::string const text = standard_text(file);
    // Standard and classic reading both take the symbol back.
    ASSERT_TRUE(read_standard(text).cell()->spacegroup() == group) << lines_of(text, {"CRYST1"})[0];
    ASSERT_TRUE(read_pdb(text).cell()->spacegroup() == group) << lines_of(text, {"CRYST1"})[0];
    ++settings;
  }
  EXPECT_GT(settings, 530);
}

TEST(PdbStandardWrite, ScaleOfTheSitesIsKept) {
  // A cell whose SCALE records are not its standard orthogonalisation (older entries):
  // fractional coordinates come from SCALE, and writing keeps it.
  std::string const scale =
      "SCALE1      0.015462  0.002192  0.003698        0.26656\n"
      "SCALE2     -0.001902  0.011771  0.000974        0.16413\n"
      "SCALE3     -0.001062 -0.001721  0.018728        0.75059\n";
  std::string const atoms =
      "HETATM    1  C1  LIG A   1       1.000   2.000   3.000  1.00  0.00           C\n"
      "HETATM    2  C2  LIG A   1      11.000   2.500   3.000  1.00  0.00           C\n"
      "HETATM    3  C3  LIG A   1       1.000  12.000   3.500  1.00  0.00           C\n"
      "HETATM    4  C4  LIG A   1       1.500   2.000  13.000  1.00  0.00           C\n";
  std::string const text =
      "CRYST1  63.1500  83.5900  53.8000  90.00  99.34  90.00 P 1 21 1      2\n" + scale + atoms;
  for (bool with_scale : {true, false}) {
    PdbFile file = read_standard(with_scale ? text : text.substr(0, text.find("SCALE1")) + atoms);
    std::string const written = standard_text(file);
    std::vector<std::string> const lines = lines_of(written, {"SCALE"});
    ASSERT_EQ(lines.size(), 3U);
    if (with_scale) {
      EXPECT_EQ(lines[0] + "\n" + lines[1] + "\n" + lines[2] + "\n", scale);
    } else {
      EXPECT_EQ(lines[0], "SCALE1      0.015835  0.000000  0.002604        0.00000");
    }
    THandle<Molecule> const before = file.molecule();
    THandle<Molecule> const after = read_standard(written).molecule();
    ASSERT_EQ(after->natoms(), 4);
    for (int i = 0; i < 4; ++i) {
      Point const& f = before->atom(i)->site()->fractional();
      Point const& g = after->atom(i)->site()->fractional();
      EXPECT_NEAR(g.x(), f.x(), 1e-5);  // SCALE has six decimals
      EXPECT_NEAR(g.y(), f.y(), 1e-5);  // SCALE has six decimals
      EXPECT_NEAR(g.z(), f.z(), 1e-5);  // SCALE has six decimals
    }
  }
}

TEST(PdbStandardWrite, NoCellWritesThePlaceholder) {
  THandle<Molecule> const m = make_molecule({make_atom("C1", "C", Point(1, 2, 3))});
  StructureDetails no_cell;
  no_cell.has_cell = false;
  Cell const cell(10, 10, 10, Angle::from_degrees(90), Angle::from_degrees(90),
                  Angle::from_degrees(90), Spacegroup());
  CrystalMaker maker(cell, make_handle<MoleculeList>(MoleculeList{m}), nullptr, nullptr);
  maker.mutable_details() = no_cell;
  PdbFile with_details;
  with_details.add(maker, DatabaseEntryIdentifier("M"));
  PdbFile unit_cube;
  unit_cube.add(*m, DatabaseEntryIdentifier("M"));
  for (PdbFile* file : {&with_details, &unit_cube}) {
    std::string const text = standard_text(*file);
    EXPECT_EQ(lines_of(text, {"CRYST1"}),
              std::vector<std::string>{
                  "CRYST1    1.000    1.000    1.000  90.00  90.00  90.00 P 1           1"});
    EXPECT_TRUE(lines_of(text, {"SCALE"}).empty());
    EXPECT_FALSE(read_standard(text).details().has_cell);
  }
}

std::string label_pair(Bond const& bond) {
  std::string a = bond.atom1()->label();
  std::string b = bond.atom2()->label();
  if (b < a) std::swap(a, b);
  return a + "-" + b + ":" + std::to_string(static_cast<int>(bond.type()));
}

TEST(PdbStandardWrite, RoundTripThroughStandardReading) {
  auto const b_factor = [](std::string name, int number, std::string chain, bool hetero,
                           double b) -> DetailsSetup {
    return [=](AtomDetails& d) {
      residue(name, number, chain, hetero)(d);
      d.has_b_factor = true;
      d.b_factor = b;
    };
  };
  std::vector<THandle<Atom>> atoms{
      make_atom("N", "N", Point(0, 0, 0), b_factor("GLY", 1, "A", false, 11)),
      make_atom("CA", "C", Point(1.45, 0, 0), b_factor("GLY", 1, "A", false, 12)),
      make_atom("C", "C", Point(2.0, 1.4, 0), b_factor("GLY", 1, "A", false, 13)),
      make_atom("O", "O", Point(1.3, 2.4, 0), b_factor("GLY", 1, "A", false, 14)),
      make_atom("C1", "C", Point(10, 0, 0), b_factor("LIG", 201, "B", true, 21)),
      make_atom("O1", "O", Point(11.2, 0, 0), b_factor("LIG", 201, "B", true, 22)),
      make_atom("CL1", "Cl", Point(9.2, 1.5, 0), b_factor("LIG", 201, "B", true, 23)),
      make_atom("CA", "Ca", Point(20, 0, 0), b_factor("CA", 301, "B", true, 31), 2),
      make_atom("FE", "Fe", Point(-25.5, 0.125, 7.75), b_factor("FE", 302, "B", true, 32), 3),
  };
  // Bonds within a residue come back from its geometry: the residue bond typing makes C=O
  // double and the rest of an amino acid single; the ligand's come from CONECT with their
  // orders.
  THandle<Molecule> const m = make_molecule(atoms, {{0, 1, single_bond},
                                                    {1, 2, single_bond},
                                                    {2, 3, double_bond},
                                                    {4, 5, double_bond},
                                                    {4, 6, single_bond}});
  std::string const text = standard_text(*m);
  PdbFile const back = read_standard(text);
  THandle<Molecule> const read = back.molecule();
  ASSERT_EQ(read->natoms(), m->natoms());
  for (int i = 0; i < m->natoms(); ++i) {
    THandle<Atom> const x = m->atom(i);
    THandle<Atom> const y = read->atom(i);
    SCOPED_TRACE(x->label());
    EXPECT_EQ(y->label(), x->label());
    EXPECT_EQ(y->element().symbol(), x->element().symbol());
    EXPECT_EQ(y->formal_charge(), x->formal_charge());
    Point const& p = x->site()->orthogonal();
    Point const& q = y->site()->orthogonal();
    EXPECT_NEAR(q.x(), p.x(), 1e-3);
    EXPECT_NEAR(q.y(), p.y(), 1e-3);
    EXPECT_NEAR(q.z(), p.z(), 1e-3);
    AtomDetails const& dx = *x->details();
    AtomDetails const& dy = *y->details();
    EXPECT_EQ(dy.residue_name, dx.residue_name);
    EXPECT_EQ(dy.residue_number, dx.residue_number);
    EXPECT_EQ(dy.chain, dx.chain);
    EXPECT_EQ(dy.hetero, dx.hetero);
    EXPECT_TRUE(dy.has_b_factor);
    EXPECT_DOUBLE_EQ(dy.b_factor, dx.b_factor);
  }
  std::vector<std::string> written;
  std::vector<std::string> found;
  for (THandle<Bond> const& b : m->bonds())
    written.push_back(label_pair(*b));
  for (THandle<Bond> const& b : read->bonds())
    found.push_back(label_pair(*b));
  std::sort(written.begin(), written.end());
  std::sort(found.begin(), found.end());
  EXPECT_EQ(found, written);
  EXPECT_EQ(back.details().source_format, "pdb");
}

TEST(PdbStandardWrite, HundredThousandAtomsUseHybrid36Serials) {
  constexpr int natoms = 100005;
  std::vector<THandle<Atom>> atoms;
  atoms.reserve(natoms);
  for (int i = 0; i < natoms; ++i) {
    // A grid 3 A apart: no two atoms close enough to bond.
    Point const p(3.0 * (i % 50), 3.0 * ((i / 50) % 50), 3.0 * (i / 2500));
    atoms.push_back(make_atom("C" + std::to_string(i % 1000), "C", p));
  }
  // Atoms 99998 and 100001 (serials 99999 and 100002) joined by a double bond: placed
  // next to each other.
  Point const& near = atoms[99998]->site()->orthogonal();
  atoms[100001]->site()->set_orthogonal(Point(near.x() + 1.3, near.y(), near.z()));
  THandle<Molecule> const m = make_molecule(atoms, {{99998, 100001, double_bond}});
  std::string const text = standard_text(*m);
  EXPECT_NE(text.find("\nHETATM99999 C998 UNL A   1 "), std::string::npos);
  EXPECT_NE(text.find("\nHETATMA0000 C999 UNL A   1 "), std::string::npos);
  EXPECT_NE(text.find("\nHETATMA0004  C3  UNL A   1 "), std::string::npos);
  EXPECT_NE(text.find("\nCONECT99999A0002A0002\n"), std::string::npos);
  EXPECT_NE(text.find("\nCONECTA00029999999999\n"), std::string::npos);

  PdbFile const back = read_standard(text);
  THandle<Molecule> const read = back.molecule();
  ASSERT_EQ(read->natoms(), natoms);
  std::vector<std::pair<int, int>> bonds;
  for (int b = 0; b < read->nbonds(); ++b) {
    auto const [i, j] = read->bond_atoms(b);
    bonds.emplace_back(read->atom(i)->details()->serial, read->atom(j)->details()->serial);
    EXPECT_EQ(read->bond(b)->type(), double_bond);
  }
  ASSERT_EQ(bonds.size(), 1U);
  EXPECT_EQ(std::min(bonds[0].first, bonds[0].second), 99999);
  EXPECT_EQ(std::max(bonds[0].first, bonds[0].second), 100002);
  for (int i = 0; i < read->natoms(); ++i) {
    int const serial = read->atom(i)->details()->serial;
    ASSERT_GE(serial, 1);
    Point const& expected = m->atom(serial - 1)->site()->orthogonal();
    ASSERT_NEAR(read->atom(i)->site()->orthogonal().x(), expected.x(), 1e-3);
    ASSERT_NEAR(read->atom(i)->site()->orthogonal().z(), expected.z(), 1e-3);
  }
  // Classic reading knows no HETATM record run into its serial (10000 and beyond).
  EXPECT_EQ(read_pdb(text).molecule()->natoms(), 9999);
}

}  // namespace
