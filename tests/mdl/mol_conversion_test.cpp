#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "kora/mdl/mol_file.hpp"
#include "kora/mdl/sdfile_database_entry.hpp"
#include "mdl_test_support.hpp"

namespace {

using namespace kora;

THandle<Molecule> chain(int atoms, double x) {
  auto const m = make_handle<Molecule3d>();
  for (int i = 0; i < atoms; ++i) {
    Point const p{x + 1.5 * i, 0, 0};
    m->add_atom(THandle<Atom>(
        make_handle<FileOrderedAtom3d>(i + 1, Element("C"), "C", make_handle<Site>(p, p))));
    if (i > 0) m->add_bond(i - 1, i, single_bond);
  }
  return THandle<Molecule>(m);
}

TEST(MolConversion, MoleculeIsEmptySharedOrMerged) {
  MolFile file;
  ASSERT_TRUE(file.molecule());
  EXPECT_EQ(file.molecule()->natoms(), 0);
  test::read_mol(file,
                 test::header() + test::counts(1, 0) + test::atom_line(0, 0, 0, "C") + "M  END\n");
  EXPECT_EQ(file.molecule(), file.molecule());  // the stored molecule itself
  auto const list =
      make_handle<MoleculeList>(MoleculeList{chain(2, 0), chain(3, 10), chain(1, 20)});
  Cell const cell(5, 6, 7, Angle::from_degrees(90), Angle::from_degrees(90),
                  Angle::from_degrees(90), Spacegroup());
  file.set_version(MolFile::V3000);
  file.add(CrystalMaker(cell, list, {}, {}), DatabaseEntryIdentifier("ABC123"));
  EXPECT_EQ(file.version(), MolFile::V2000);
  EXPECT_EQ(file.molecule_name() + file.dimensional_code(), "ABC1233D");
  EXPECT_EQ(file.molecule()->natoms(), 6);
  EXPECT_EQ(file.molecule()->nbonds(), 3);
  EXPECT_TRUE(file.crystal_maker()->cell() == Cell());  // the maker's cell is not taken over
  EXPECT_NE(file.crystal_maker()->molecule(0), list->front());  // copied
  file.add(CrystalStructureImmediateDatabaseEntry(
      DatabaseEntryIdentifier("E1"), make_handle<CrystalMaker>(cell, list, nullptr, nullptr)));
  EXPECT_EQ(file.molecule_name(), "E1");
  EXPECT_EQ(file.crystal()->nmolecules(), 3);
}

TEST(MolConversion, AddCrystalThrowsAndKeepsTheRecord) {
  MolFile file;
  file.add(*chain(2, 0), DatabaseEntryIdentifier("kept"));
  EXPECT_EQ(test::message_of<std::runtime_error>(
                [&] { file.add(Crystal(Cell(), nullptr), DatabaseEntryIdentifier("lost")); }),
            "MolFile::add(const Crystal& c) is not yet implemented");
  EXPECT_EQ(file.molecule_name(), "kept");
  EXPECT_EQ(file.molecule()->natoms(), 2);
}

TEST(MolConversion, DatabaseEntrySharesTheDataItems) {
  MolFile file;
  file.add(*chain(1, 0), DatabaseEntryIdentifier("x"));
  file.add_sd_tag("logP", "1.5");
  auto const entry = handle_dynamic_cast<SDfileDatabaseEntry>(file.database_entry());
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->tags(), file.tags());
  EXPECT_EQ(entry->crystal_maker()->nmolecules(), 1);
  file.clear();  // a new collection for the file; the entry keeps the old one
  EXPECT_EQ(entry->tags()->size(), 1);
  EXPECT_TRUE(file.tags()->empty());
}

}  // namespace
