#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "kora/mdl/mol_file.hpp"
#include "mdl_test_support.hpp"

namespace {

using namespace kora::test;
using kora::MolFile;

std::string const three_atoms =
    atom_line(0, 0, 0, "C") + atom_line(1.4, 0, 0, "O") + atom_line(-0.5, 0.9, 0, "H");
std::string const methanol = three_atoms + "  1  2  1  0\n  1  3  1  0\n";

TEST(MolV2000, ChargeAndBondCodeTables) {
  int const charges[] = {0, 3, 2, 1, 0, -1, -2, 0, 0};  // by code 0..8
  kora::BondType const types[] = {kora::unknown_bond, kora::single_bond,   kora::double_bond,
                                  kora::triple_bond,  kora::aromatic_bond, kora::unknown_bond,
                                  kora::unknown_bond, kora::unknown_bond,  kora::unknown_bond};
  for (int code = 0; code <= 8; ++code) {
    MolFile file;
    read_mol(file, header() + counts(2, 1) + atom_line(0, 0, 0, "N", 0, code) +
                       atom_line(1.5, 0, 0, "C") + "  1  2" + std::to_string(code) + "\nM  END\n");
    EXPECT_EQ(file.molecule()->atom(0)->formal_charge(), charges[code]) << code;
    EXPECT_EQ(file.molecule()->bond(0)->type(), types[code]) << code;
  }
}

TEST(MolV2000, AtomsFromTheirColumns) {
  MolFile file;
  read_mol(file, header() + counts(6, 0) + "-1234.5678-2345.6789   12.5000 Cl  0  0\n" +
                     atom_line(0, 0, 0, "H", 1) + atom_line(0, 0, 0, "H", 2) +
                     atom_line(0, 0, 0, "H", -1) + atom_line(0, 0, 0, "Q") +
                     atom_line(0, 0, 0, "LP") + "M  END\n");
  auto const m = file.molecule();
  ASSERT_EQ(m->natoms(), 6);
  auto const p = m->atom(0)->site()->orthogonal();
  EXPECT_EQ(std::vector<double>({p[0], p[1], p[2]}),
            std::vector<double>({-1234.5678, -2345.6789, 12.5}));
  char const* labels[] = {"Cl1", "D2", "H3", "H4", "Q5", "LP6"};
  char const* symbols[] = {"Cl", "D", "H", "H", "", ""};
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(m->atom(i)->label(), labels[i]);
    EXPECT_EQ(m->atom(i)->element().symbol(), symbols[i]);
  }
}

TEST(MolV2000, ChargeAndIsotopeLines) {
  MolFile file;
  // N has charge code 3 (+1); CHG names it with 0, which does not reset it. The second CHG
  // line names atom 3 twice, so the reader goes on to a third entry (atom 2, +2). ISO makes
  // the mass-2 hydrogen deuterium and leaves the mass-3 one and the carbon alone.
  read_mol(file, header() + counts(6, 0) + atom_line(0, 0, 0, "N", 0, 3) + atom_line(2, 0, 0, "O") +
                     atom_line(4, 0, 0, "O") + atom_line(6, 0, 0, "H") + atom_line(8, 0, 0, "H") +
                     atom_line(10, 0, 0, "C") +
                     "M  CHG  2   1   0   2  -1\nM  CHG  2   3   1   3   2   2   2\n"
                     "M  ISO  3   4   2   5   3   6   2\nM  END\n");
  auto const m = file.molecule();
  EXPECT_EQ(m->atom(0)->formal_charge(), 1);
  EXPECT_EQ(m->atom(1)->formal_charge(), 2);
  EXPECT_EQ(m->atom(2)->formal_charge(), 2);
  EXPECT_EQ(m->atom(3)->element().symbol() + m->atom(4)->element().symbol() +
                m->atom(5)->element().symbol(),
            "DHC");
}

TEST(MolV2000, TwoDimensionalWhenEveryZIsZeroAndTheHeaderDoesNotSay3D) {
  for (auto [dimension, flat] : {std::pair{"2D", true}, std::pair{"  ", true},
                                 std::pair{"3D", false}, std::pair{"3d", false}}) {
    MolFile file;
    read_mol(file, header("m", dimension) + counts(3, 2) + methanol + "M  END\n");
    EXPECT_EQ(file.is_2d(), flat) << dimension;
  }
  // z is compared in single precision: 1e-50 is zero there; 1e300 has no float value.
  MolFile file;
  read_mol(file, header() + counts(2, 0) + atom_line(0, 0, 0, "C").replace(20, 10, "   1.0e-50") +
                     atom_line(0, 0, 1e-3, "C") + "M  END\n");
  EXPECT_FALSE(file.is_2d());
  read_mol(file, header() + counts(1, 0) + atom_line(0, 0, 0, "C").replace(20, 10, "   1.0e-50") +
                     "M  END\n");
  EXPECT_TRUE(file.is_2d());
  read_mol(file, header() + counts(1, 0) + atom_line(0, 0, 0, "C").replace(20, 10, "  1.0e300 ") +
                     "M  END\n");
  EXPECT_FALSE(file.is_2d());
}

TEST(MolV2000, ErrorMessages) {
  expect_error(header() + counts(999, 2) + methanol + "M  END\n",
               "Atom block incomplete - not enough atom lines");
  expect_error(header() + counts(3, 2, 1) + methanol + "M  ALS   1  1 F C\nM  END\n",
               "Atom lists present, unable to process these");
  expect_error(header() + counts(3, 2, 0, 1) + methanol + "M  END\n",
               "Stext entries present, unable to process these");
  expect_error(header() + counts(3, 1) + methanol + "M  END\n",
               "Unexpected additional line in Bond block");
  expect_error(header() + counts(3, 1) + three_atoms + "  0  2  1\nM  END\n",
               "Unable to create bonds - incorrect lines in file");
  expect_error(header() + counts(3, 1) + three_atoms + "  1  9  1\nM  END\n",
               "Unable to create bonds - incorrect lines in file");
  // Short lines, and later lines with digits in columns 1-3, are ignored after the bonds.
  MolFile file;
  read_mol(file, header() + counts(3, 2) + methanol +
                     "  1\nA    1\n  1 alias\nM  RAD  1   1   2\n" + "M  END\n");
  EXPECT_EQ(file.molecule()->nbonds(), 2);
}

TEST(MolV2000, RecordsEndAtTheTerminator) {
  // The first record ends inside its table (no data items read); the second after them.
  std::istringstream in(header("first") + counts(3, 2) + methanol + "$$$$\n" + header("second") +
                        counts(1, 0) + atom_line(0, 0, 0, "Ar") +
                        "M  END\n> <id>\n7\n\n$$$$\nnext\n");
  MolFile file;
  file.read(in);
  EXPECT_EQ(file.molecule()->natoms(), 3);
  EXPECT_TRUE(file.tags()->empty());
  file.read(in);
  EXPECT_EQ(file.molecule_name(), "second");
  EXPECT_EQ(*file.tags()->values("id"), std::vector<std::string>{"7"});
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line, "next");
}

TEST(MolV2000, BadInputGivesErrorsOrLenientResultsOnly) {
  std::string const junk[] = {
      "",
      std::string("\0\xff\x01\n\x80\x80\n\n\xfe 1.\n", 13),
      header() + counts(3, 2),  // truncated after the counts line
      header() + "999999999999999999\n" + std::string(50, '.') + "\n",
      "\r\r\r\r\r\r",
  };
  for (std::string const& text : junk) {
    MolFile file;
    try {
      read_mol(file, text);
    } catch (std::runtime_error const&) {
    }
  }
  MolFile file;  // short atom and bond lines: missing columns read as 0
  read_mol(file, header() + counts(2, 1) + "1.5\n-2.\n  1  2\n");
  ASSERT_EQ(file.molecule()->natoms(), 2);
  EXPECT_DOUBLE_EQ(file.molecule()->atom(0)->site()->orthogonal()[0], 1.5);
  EXPECT_EQ(file.molecule()->bond(0)->type(), kora::unknown_bond);
}

}  // namespace
