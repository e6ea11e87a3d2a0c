// Reading what PDB files following the conventions hold (standard read options), and the
// record details both modes keep.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "kora/kernel/string_functions.hpp"
#include "pdb_test_support.hpp"

namespace {

using namespace kora;
using namespace kora::test;

PdbFile read_with(std::string const& text, bool standard) {
  std::istringstream in(text);
  PdbFile file;
  if (standard) file.set_read_options(ReadOptions::standard_mode());
  file.read(in);
  return file;
}

// An atom record with the given record name and serial field, atom name field (4 columns),
// residue name, residue number field (4 columns) and element columns.
std::string atom_line(std::string const& record, std::string const& serial, std::string const& name,
                      std::string const& residue, std::string const& number,
                      std::string const& element) {
  char line[96];
  std::snprintf(line, sizeof line,
                "%-6s%5s %-4s %3s A%4s    %8.3f%8.3f%8.3f%6.2f%6.2f          %2s\n", record.c_str(),
                serial.c_str(), name.c_str(), residue.c_str(), number.c_str(), 1.0, 2.0, 3.0, 1.0,
                15.0, element.c_str());
  return line;
}

struct ElementCase {
  char const* record;
  char const* name;
  char const* residue;
  char const* element_columns;
  char const* standard;  // element of standard reading
  char const* classic;   // element of classic reading
};

TEST(PdbStandardRead, Elements) {
  std::vector<ElementCase> const cases{
      {"ATOM", " CA ", "ALA", " C", "C", "C"},     {"HETATM", "CA  ", " CA", "CA", "Ca", "Ca"},
      {"HETATM", "FE  ", "HEM", "FE", "Fe", "Fe"}, {"ATOM", "FE  ", "HEM", "FE", "Fe", "F"},
      {"ATOM", "CL1 ", "LIG", "CL", "Cl", "C"},    {"HETATM", "FE  ", "HEM", "Fe", "Fe", "Fe"},
      {"ATOM", " CA ", "ALA", "", "C", "C"},       {"HETATM", "CA  ", " CA", "", "Ca", "Ca"},
      {"ATOM", "CA  ", "ALA", "", "Ca", "C"},      {"HETATM", " CA ", "LIG", "", "C", "Ca"},
      {"ATOM", "HD21", "ASN", "", "H", "H"},       {"ATOM", "HG21", "THR", "", "H", "H"},
      {"HETATM", "HG  ", " HG", "", "Hg", "Hg"},   {"ATOM", "1HB ", "ALA", "", "H", "H"},
      {"HETATM", "CL1 ", "LIG", "", "Cl", "Cl"},   {"HETATM", "CL1 ", "LIG", "CL", "Cl", "Cl"},
      {"HETATM", " D1 ", "LIG", " D", "D", "D"},
  };
  for (ElementCase const& c : cases) {
    std::string const text = atom_line(c.record, "1", c.name, c.residue, "1", c.element_columns);
    SCOPED_TRACE(text);
    for (bool standard : {false, true}) {
      std::vector<THandle<Atom>> const atoms = atoms_of(read_with(text, standard));
      ASSERT_EQ(atoms.size(), 1U);
      EXPECT_EQ(atoms[0]->element().symbol(), standard ? c.standard : c.classic);
    }
  }
}

TEST(PdbStandardRead, RecordNamesByColumnsAndHybrid36Numbers) {
  std::string const text = atom_line("HETATM", "9999", " O  ", "HOH", "9999", " O") +
                           atom_line("HETATM", "10000", " O  ", "HOH", "A000", " O") +
                           atom_line("ATOM", "A0000", " N  ", "ALA", "A001", " N") +
                           atom_line("ATOM", "zzzzz", " CA ", "ALA", "zzzz", " C") +
                           "CONECTA0000"
                           "zzzzz"
                           "zzzzz"
                           "zzzzz\n"
                           "END\n";
  std::vector<THandle<Atom>> const atoms = atoms_of(read_with(text, true));
  ASSERT_EQ(atoms.size(), 4U);
  std::vector<int> serials;
  std::vector<int> residues;
  for (THandle<Atom> const& atom : atoms) {
    serials.push_back(atom->details()->serial);
    residues.push_back(atom->details()->residue_number);
  }
  EXPECT_EQ(serials, (std::vector<int>{9999, 10000, 100000, 87440031}));
  EXPECT_EQ(residues, (std::vector<int>{9999, 10000, 10001, 2436111}));
  PdbFile const standard = read_with(text, true);
  THandle<Molecule> const m = standard.molecule();
  ASSERT_EQ(m->nbonds(), 1);
  EXPECT_EQ(m->bond(0)->type(), triple_bond);
  // Classic reading takes a record name up to its first blank: HETATM10000 is none.
  EXPECT_EQ(atoms_of(read_with(text, false)).size(), 3U);
}

TEST(PdbStandardRead, FarSerialsNeedNoIndexOfTheirSize) {
  // Two atoms whose serials lie far apart are still joined by their CONECT record.
  std::string const text = atom_line("HETATM", "1", " C  ", "LIG", "1", " C") +
                           atom_line("HETATM", "zzzzy", " O  ", "LIG", "1", " O") +
                           "CONECT    1zzzzy\n";
  PdbFile const file = read_with(text, true);
  EXPECT_EQ(bonds_of(file), (std::vector<std::pair<int, int>>{{1, 87440030}}));
}

TEST(PdbStandardRead, ConectRepeatsGiveBondOrders) {
  std::string const text = atom_line("HETATM", "1", " C1 ", "LIG", "1", " C") +
                           atom_line("HETATM", "2", " O1 ", "LIG", "1", " O") +
                           atom_line("HETATM", "3", " N1 ", "LIG", "1", " N") +
                           atom_line("HETATM", "4", " C2 ", "LIG", "1", " C") +
                           "CONECT    1    2    2    3\nCONECT    2    1    1\n"
                           "CONECT    3    1\nCONECT    4    3    3    3\n";
  for (bool standard : {false, true}) {
    THandle<Molecule> const m = read_with(text, standard).molecule();
    ASSERT_EQ(m->nbonds(), 3);
    std::vector<int> types;
    for (THandle<Bond> const& b : m->bonds())
      types.push_back(b->type());
    std::sort(types.begin(), types.end());
    std::vector<int> const expected =
        standard ? std::vector<int>{single_bond, double_bond, triple_bond}
                 : std::vector<int>{unknown_bond, unknown_bond, unknown_bond};
    EXPECT_EQ(types, expected);
  }
}

TEST(PdbStandardRead, AminoAcidBondsAllHaveOrders) {
  // Standard reading leaves no bond of an amino acid unknown: guanidinium double at NH2,
  // carbonyl double, the rest single. Classic reading types the carbonyl only.
  struct Atom {
    char const* name;
    double x, y, z;
  };
  Atom const arginine[] = {
      {" N  ", 0.647, 1.909, 4.005}, {" CA ", 1.496, 1.609, 2.837}, {" C  ", 0.798, 0.609, 1.876},
      {" O  ", 0.878, 0.778, 0.651}, {" CB ", 2.847, 1.020, 3.305}, {" CG ", 3.752, 0.607, 2.149},
      {" CD ", 4.226, 1.699, 1.244}, {" NE ", 5.143, 2.571, 2.035}, {" CZ ", 5.758, 3.609, 1.443},
      {" NH1", 5.539, 3.932, 0.158}, {" NH2", 6.601, 4.322, 2.202}};
  std::string text;
  char line[96];
  int serial = 0;
  for (Atom const& a : arginine) {
    std::snprintf(line, sizeof line, "ATOM  %5d %s ARG A  10    %8.3f%8.3f%8.3f  1.00  5.00\n",
                  ++serial, a.name, a.x, a.y, a.z);
    text += line;
  }
  for (bool standard : {false, true}) {
    SCOPED_TRACE(standard ? "standard" : "classic");
    PdbFile const file = read_with(text, standard);
    std::vector<std::string> orders;
    for (THandle<Molecule> const& m : *file.molecules()) {
      for (THandle<Bond> const& b : m->bonds()) {
        std::string a = trim(b->atom1()->label(), " "), c = trim(b->atom2()->label(), " ");
        if (c < a) std::swap(a, c);
        orders.push_back(a + "-" + c + ":" + std::to_string(b->type()));
      }
    }
    std::sort(orders.begin(), orders.end());
    std::vector<std::string> const expected =
        standard
            ? std::vector<std::string>{"C-CA:1",  "C-O:2",   "CA-CB:1", "CA-N:1",   "CB-CG:1",
                                       "CD-CG:1", "CD-NE:1", "CZ-NE:1", "CZ-NH1:1", "CZ-NH2:2"}
            : std::vector<std::string>{"C-CA:0",  "C-O:2",   "CA-CB:0", "CA-N:0",   "CB-CG:0",
                                       "CD-CG:0", "CD-NE:0", "CZ-NE:0", "CZ-NH1:0", "CZ-NH2:0"};
    EXPECT_EQ(orders, expected);
  }
}

TEST(PdbRecordDetails, BothModesKeepTheRecordFields) {
  std::string const text =
      "CRYST1   10.000   11.000   12.000  90.00  90.00  90.00 P 21 21 21    4\n"
      "MODEL        3\n"
      "ATOM     17  CA BALA B  42C      1.000   2.000   3.000  0.50 27.25           C\n"
      "HETATM   18 ZN    ZN B 301       4.000   5.000   6.000  1.00  9.50          ZN2+\n"
      "ENDMDL\n";
  for (bool standard : {false, true}) {
    SCOPED_TRACE(standard);
    PdbFile const file = read_with(text, standard);
    std::vector<THandle<Atom>> const atoms = atoms_of(file);
    ASSERT_EQ(atoms.size(), 2U);
    AtomDetails const& ca = *atoms[0]->details();
    EXPECT_EQ(ca.serial, 17);
    EXPECT_FALSE(ca.hetero);
    EXPECT_EQ(ca.alt_loc, 'B');
    EXPECT_EQ(ca.residue_name, "ALA");
    EXPECT_EQ(ca.residue_number, 42);
    EXPECT_EQ(ca.insertion_code, 'C');
    EXPECT_EQ(ca.chain, "B");
    EXPECT_EQ(ca.model, 3);
    EXPECT_TRUE(ca.has_b_factor);
    EXPECT_DOUBLE_EQ(ca.b_factor, 27.25);
    AtomDetails const& zn = *atoms[1]->details();
    EXPECT_TRUE(zn.hetero);
    EXPECT_EQ(zn.alt_loc, ' ');
    EXPECT_EQ(zn.residue_name, "ZN");
    EXPECT_EQ(zn.insertion_code, ' ');
    EXPECT_DOUBLE_EQ(zn.b_factor, 9.5);
    EXPECT_EQ(atoms[1]->formal_charge(), 2);
    StructureDetails const& details = file.details();
    EXPECT_EQ(details.source_format, "pdb");
    EXPECT_TRUE(details.has_cell);
    EXPECT_EQ(file.crystal_maker()->details().source_format, "pdb");
  }
}

TEST(PdbRecordDetails, ShortRecordsHaveNoBFactorAndNoCell) {
  PdbFile const file = read_with(
      "ATOM      1  CA  ALA A   1       1.000   2.000   3.000  1.00\n"
      "CRYST1    1.000    1.000    1.000  90.00  90.00  90.00 P 1           1\n",
      false);
  EXPECT_FALSE(atoms_of(file)[0]->details()->has_b_factor);
  EXPECT_EQ(atoms_of(file)[0]->details()->model, 0);
  EXPECT_FALSE(file.details().has_cell);
  EXPECT_FALSE(read_with("END\n", true).details().has_cell);
}

}  // namespace

namespace {

TEST(PdbRecordDetails, ModelNumbers) {
  struct Case {
    char const* what;
    std::string text;
    std::vector<int> models;
  };
  std::string const atom = atom_line("HETATM", "1", " O  ", "HOH", "1", " O");
  std::vector<Case> const cases{
      {"no models", atom + atom, {0, 0}},
      {"numbered models", "MODEL        4\n" + atom + "ENDMDL\nMODEL        7\n" + atom, {4, 7}},
      {"MODEL without a number", "MODEL\n" + atom + "ENDMDL\nMODEL\n" + atom, {1, 2}},
      {"atoms after ENDMDL are the next model", "MODEL\n" + atom + "ENDMDL\n" + atom, {1, 2}},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    for (bool standard : {false, true}) {
      std::vector<int> models;
      PdbFile const file = read_with(c.text, standard);
      for (THandle<Molecule> const& m : *file.molecules())
        for (THandle<Atom> const& a : m->atoms())
          models.push_back(a->details()->model);
      EXPECT_EQ(models, c.models);
    }
  }
}

}  // namespace
