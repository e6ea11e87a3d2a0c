#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "kora/mdl/mol_file.hpp"
#include "mdl_test_support.hpp"

namespace {

using namespace kora;

THandle<Atom> atom(char const* symbol, double x, double y, double z, int charge = 0,
                   bool placed = true) {
  Point const p{x, y, z};
  auto a = make_handle<FileOrderedAtom3d>(1, Element(symbol), symbol,
                                          placed ? make_handle<Site>(p, p) : THandle<Site>());
  a->set_formal_charge(charge);
  return THandle<Atom>(a);
}

THandle<Molecule> molecule(std::vector<THandle<Atom>> atoms,
                           std::vector<std::tuple<int, int, BondType>> const& bonds) {
  auto list = make_handle<std::vector<THandle<BondData>>>();
  for (auto [a, b, type] : bonds)
    list->push_back(make_handle<BondData>(a, b, type));
  return THandle<Molecule>(
      make_handle<Molecule3d>(make_handle<std::vector<THandle<Atom>>>(std::move(atoms)), list));
}

// Water with a charged oxygen and an atom without element; H-O aromatic, O-* unknown.
MolFile& sample(MolFile::FormatVersion version) {
  static MolFile file;
  file.add(
      *molecule({atom("H", 0, 0, 0), atom("O", 1.5, -2.25, 10, -1), atom("Xx", -12.3456, 0, 0)},
                {{0, 1, aromatic_bond}, {1, 2, unknown_bond}}),
      DatabaseEntryIdentifier("w"));
  file.set_version(version);
  return file;
}

std::string table(MolFile const& file) {
  std::ostringstream out;
  file.initialise_print();
  file.version() == MolFile::V3000 ? file.print_V3000(out) : file.print_V2000(out);
  return out.str();
}

TEST(MolWrite, V2000Table) {
  EXPECT_EQ(table(MolFile()), "  0  0  0  0  0  0  0  0  0  0999 V2000\nM  END\n");
  EXPECT_EQ(table(sample(MolFile::V2000)),
            "  3  2  0  0  0  0  0  0  0  0999 V2000\n"
            "    0.0000    0.0000    0.0000 H      0\n"
            "    1.5000   -2.2500   10.0000 O     -1\n"
            "  -12.3456    0.0000    0.0000 *      0\n"
            "  1  2  4\n"
            "  2  3  1\n"
            "M  END\n");
}

TEST(MolWrite, V3000Table) {
  EXPECT_EQ(table(sample(MolFile::V3000)),
            "  0  0  0     0  0            999 V3000\n"
            "M  V30 BEGIN CTAB\n"
            "M  V30 COUNTS 3 2  0  0  0\n"
            "M  V30 BEGIN ATOM\n"
            "M  V30 1 H     0.0000    0.0000    0.0000\n"
            "M  V30 2 O     1.5000   -2.2500   10.0000 CHG=-1\n"
            "M  V30 3 *   -12.3456    0.0000    0.0000\n"
            "M  V30 END ATOM\n"
            "M  V30 BEGIN BOND\n"
            "M  V30 1     4    1    2\n"
            "M  V30 1     1    2    3\n"
            "M  V30 END BOND\n"
            "M  V30 END CTAB\n"
            "M  END\n");
}

TEST(MolWrite, AtomsAreNumberedAcrossMoleculesAndUnplacedAtomsDropped) {
  auto const first =
      molecule({atom("C", 0, 0, 0), atom("C", 1, 0, 0, 0, false), atom("O", 2, 0, 0)},
               {{0, 1, single_bond}, {0, 2, double_bond}});
  auto const second = molecule({atom("N", 5, 0, 0), atom("N", 6, 0, 0)}, {{0, 1, triple_bond}});
  MolFile file;
  file.add(CrystalMaker(Cell(), make_handle<MoleculeList>(MoleculeList{first, second}), {}, {}),
           DatabaseEntryIdentifier("pair"));
  std::string const text = table(file);
  EXPECT_EQ(text.substr(0, 6), "  4  2");
  EXPECT_NE(text.find("\n  1  2  2\n  3  4  3\nM  END\n"), std::string::npos) << text;
}

TEST(MolWrite, BondCodes) {
  std::pair<BondType, int> const codes[] = {
      {unknown_bond, 1},   {single_bond, 1},      {double_bond, 2},
      {triple_bond, 3},    {quadruple_bond, 1},   {aromatic_bond, 4},
      {polymeric_bond, 1}, {delocalised_bond, 4}, {pi_bond, 1}};
  for (auto [type, code] : codes)
    EXPECT_EQ(MolFile().sd_bond_type(type), code) << int(type);
}

TEST(MolWrite, RecordIsHeaderTableItemsTerminator) {
  MolFile file;
  file.add(*molecule({atom("Ne", 0, 0, 0)}, {}), DatabaseEntryIdentifier("neon gas"));
  file.add_sd_tag("melting point", "  24.56 K ");
  std::ostringstream out;
  file.print(out);
  std::string const text = out.str();
  EXPECT_EQ(text.substr(0, 19), "neon gas\n  --KORA--");
  EXPECT_EQ(text.substr(25), "    3D" + std::string(30, ' ') + "\n\n" +
                                 "  1  0  0  0  0  0  0  0  0  0999 V2000\n"
                                 "    0.0000    0.0000    0.0000 Ne     0\n"
                                 "M  END\n> <melting.point>\n24.56 K\n\n$$$$\n");
}

TEST(MolWrite, V3000RoundTripKeepsAtomsChargesBondsAndItems) {
  MolFile& file = sample(MolFile::V3000);
  file.add_sd_tag("a", make_handle<std::vector<std::string>>(std::vector<std::string>{"x", "y"}));
  std::ostringstream out;
  file.print(out);
  MolFile back;
  test::read_mol(back, out.str());
  EXPECT_EQ(back.version(), MolFile::V3000);
  auto const r = back.molecule();
  ASSERT_EQ(r->natoms(), 3);
  ASSERT_EQ(r->nbonds(), 2);
  EXPECT_EQ(r->atom(1)->formal_charge(), -1);
  EXPECT_FALSE(r->atom(2)->element().is_set());
  EXPECT_DOUBLE_EQ(r->atom(2)->site()->orthogonal()[0], -12.3456);
  EXPECT_EQ(r->bond(0)->type(), aromatic_bond);
  EXPECT_EQ(r->bond_atoms(1), (std::pair{1, 2}));
  EXPECT_EQ(*back.tags()->values("a"), (std::vector<std::string>{"x", "y"}));
}

}  // namespace
