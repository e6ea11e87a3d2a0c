#include <gtest/gtest.h>

#include <string>

#include "kora/mdl/mol_file.hpp"
#include "mdl_test_support.hpp"

namespace {

using kora::MolFile;
using kora::test::expect_error;
using kora::test::read_mol;

// A record whose root table is `ctab`, followed by `after` before "M  END".
std::string v3000(std::string const& ctab, char const* dimension = "2D",
                  std::string const& after = "") {
  return kora::test::header("v3", dimension) + "  0  0  0     0  0            999 V3000\n" +
         "M  V30 BEGIN CTAB\n" + ctab + "M  V30 END CTAB\n" + after + "M  END\n";
}

std::string const acetate =
    "M  V30 COUNTS 4 3 0 0 0\nM  V30 BEGIN ATOM\n"
    "M  V30 1 C 0.0 0.0 0.0 0\nM  V30 2 C 1.5 0.0 0.0 0\n"
    "M  V30 3 O 2.1 1.1 0.0 0 CHG=-1\nM  V30 4 H -0.5 0.9 0.0 0 MASS=2\nM  V30 END ATOM\n"
    "M  V30 BEGIN BOND\nM  V30 1 1 1 2\nM  V30 2 2 2 3 CFG=2\nM  V30 3 4 1 4\nM  V30 END BOND\n";

TEST(MolV3000, AtomsChargesMassesBondsAndItems) {
  MolFile file;
  read_mol(file, v3000(acetate) + "> <id>\n12\n\n$$$$\n");
  auto const m = file.molecule();
  ASSERT_EQ(m->natoms(), 4);
  ASSERT_EQ(m->nbonds(), 3);
  EXPECT_EQ(m->atom(2)->formal_charge(), -1);
  EXPECT_EQ(m->atom(3)->element().symbol(), "D");
  EXPECT_EQ(m->atom(3)->label(), "D4");
  EXPECT_DOUBLE_EQ(m->atom(2)->site()->orthogonal()[1], 1.1);
  EXPECT_EQ(m->bond(1)->type(), kora::double_bond);
  EXPECT_EQ(m->bond(2)->type(), kora::aromatic_bond);
  EXPECT_TRUE(file.is_2d());
  EXPECT_EQ(*file.tags()->values("id"), std::vector<std::string>{"12"});
}

TEST(MolV3000, ContinuationLinesSparseIndexesAndSkippedBlocks) {
  MolFile file;
  read_mol(file,
           v3000("M  V30 BEGIN ATOM\nM  V30 10 N 1.0 2.0 -\nM  V30 3.5 0 CHG=1\n"
                 "M  V30 20 C 0 0 0 0 -\nM  V30 ATTCHORD=(2 1 2) ALIAS=\"a (b\" CHG=2\n"
                 "M  V30 30 NOT [C,N] 1 1 1 0\nM  V30 END ATOM\nM  V30 BEGIN BOND\n"
                 "M  V30 1 1 30 10\nM  V30 1 3 20 10\nM  V30 END BOND\n"
                 "M  V30 BEGIN SGROUP\nM  V30 1 SUP 0 ATOMS=(1 10)\nM  V30 END SGROUP\n",
                 "3D",
                 "M  V30 BEGIN RGROUP 1\nM  V30 BEGIN CTAB\nM  V30 END CTAB\nM  V30 BEGIN CTAB\n"
                 "M  V30 BEGIN ATOM\nM  V30 1 C 0 0 0 0\nM  V30 END ATOM\nM  V30 END CTAB\n"
                 "M  V30 END RGROUP\n"));
  auto const m = file.molecule();
  ASSERT_EQ(m->natoms(), 3);
  EXPECT_EQ(m->atom(0)->label(), "N10");
  EXPECT_EQ(m->atom(0)->formal_charge(), 1);
  EXPECT_DOUBLE_EQ(m->atom(0)->site()->orthogonal()[2], 3.5);
  EXPECT_EQ(m->atom(1)->formal_charge(), 2);  // after a quoted "(" and a list
  EXPECT_EQ(m->atom(2)->label(), "L30");      // an atom list is a query atom
  EXPECT_FALSE(m->atom(2)->element().is_set());
  ASSERT_EQ(m->nbonds(), 2);  // the repeated bond number does not merge bonds
  EXPECT_EQ(m->bond_atoms(1), (std::pair{1, 0}));
  EXPECT_FALSE(file.is_2d());
}

TEST(MolV3000, ErrorMessages) {
  std::string const atom = "M  V30 BEGIN ATOM\nM  V30 1 C 0 0 0 0\n";
  std::string const bonds = "M  V30 END ATOM\nM  V30 BEGIN BOND\n";
  expect_error(v3000(atom + "M  V30 BEGIN BOND\nM  V30 END BOND\n"),
               "Atom block incomplete - no END ATOM line");
  expect_error(v3000(atom + bonds + "M  V30 1 1 1 1\n"),
               "Bond block incomplete - no END BOND line");
  expect_error(v3000(atom + bonds + "M  V30 1 1 1 2\nM  V30 END BOND\n"),
               "Unable to create bonds - bond to an unknown atom index");
  expect_error(v3000(atom + bonds + "M  V30 1 1 1 1\nM  V30 END BOND\n"),
               "Unable to create bonds - incorrect lines in file");
  expect_error(v3000("M  V30 COUNTS 999 0 0 0 0\n" + atom + "M  V30 END ATOM\n"),
               "Atom block incomplete - not enough atom lines");
  expect_error(v3000("M  V30 COUNTS 1 5 0 0 0\n" + atom + "M  V30 END ATOM\n"),
               "Bond block incomplete - not enough bond lines");
  expect_error(v3000(atom + "M  V30 1 O 1 0 0 0\nM  V30 END ATOM\n"),
               "Atom index repeated in Atom block - incorrect lines in file");
  expect_error(v3000(atom + "M  V30 2 O 1\nM  V30 END ATOM\n"),
               "Unreadable line in Atom block - too few fields");
}

}  // namespace
