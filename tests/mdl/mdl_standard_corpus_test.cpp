// Every record of every MOL and SD file of the real-world corpus ($KORA_CORPUS/sdf), written
// in standard mode and read back, has the same atoms (by file order: element, formal charge,
// isotope, radical, position within 1e-4), the same bonds with the same types, and the same
// data items.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "kora/framework/flat_file_database.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/mdl/mol_file.hpp"
#include "kora/mdl/sdfile_database_reader.hpp"
#include "mdl_test_support.hpp"

namespace {

namespace fs = std::filesystem;
using namespace kora;
using SdDatabase = FlatFileDatabase<CrystalStructureDatabaseEntry, SDfileDatabaseReader, MolFile>;

// The atoms of all molecules of a record, in file order.
std::vector<THandle<Atom>> atoms_of(MolFile const& file) {
  std::vector<THandle<Atom>> atoms;
  auto const maker = file.crystal_maker();
  for (int m = 0; m < maker->nmolecules(); ++m)
    for (THandle<Atom> const& atom : maker->molecule(m)->atoms())
      atoms.push_back(atom);
  std::stable_sort(atoms.begin(), atoms.end(), [](auto const& a, auto const& b) {
    return dynamic_cast<FileOrderedAtom3d const&>(*a).file_order() <
           dynamic_cast<FileOrderedAtom3d const&>(*b).file_order();
  });
  return atoms;
}

// The bonds of a record by the file order of their atoms (smaller first), and their types.
std::vector<std::tuple<int, int, BondType>> bonds_of(MolFile const& file) {
  std::vector<std::tuple<int, int, BondType>> bonds;
  auto const maker = file.crystal_maker();
  for (int m = 0; m < maker->nmolecules(); ++m) {
    auto const molecule = maker->molecule(m);
    for (int i = 0; i < molecule->nbonds(); ++i) {
      auto const [a, b] = molecule->bond_atoms(i);
      int const fa = dynamic_cast<FileOrderedAtom3d const&>(*molecule->atom(a)).file_order();
      int const fb = dynamic_cast<FileOrderedAtom3d const&>(*molecule->atom(b)).file_order();
      bonds.emplace_back(std::min(fa, fb), std::max(fa, fb), molecule->bond(i)->type());
    }
  }
  std::sort(bonds.begin(), bonds.end());
  return bonds;
}

// The element written for an atom: tritium (no element, read from "T") comes back as
// hydrogen.
Element written_element(Atom const& atom) {
  if (!atom.element().is_set() && atom.details()->element_symbol == "T") return Element("H");
  return atom.element();
}

void expect_standard_round_trip(MolFile& file, std::string const& where) {
  file.set_write_options(WriteOptions::standard_mode());
  std::ostringstream out;
  file.print(out);
  MolFile back;
  std::istringstream in(out.str());
  back.read(in);

  auto const a = atoms_of(file);
  auto const b = atoms_of(back);
  ASSERT_EQ(a.size(), b.size()) << where;
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::string const at = where + " atom " + std::to_string(i + 1);
    EXPECT_EQ(written_element(*a[i]), b[i]->element()) << at;
    EXPECT_EQ(a[i]->formal_charge(), b[i]->formal_charge()) << at;
    EXPECT_EQ(a[i]->details()->mass_number, b[i]->details()->mass_number) << at;
    EXPECT_EQ(a[i]->details()->radical, b[i]->details()->radical) << at;
    for (int k = 0; k < 3; ++k)
      EXPECT_NEAR(a[i]->site()->orthogonal()[k], b[i]->site()->orthogonal()[k], 1e-4) << at;
  }
  EXPECT_EQ(bonds_of(file), bonds_of(back)) << where;
  EXPECT_EQ(file.structure_details().dimension, back.structure_details().dimension) << where;
  kora::test::expect_same_tags(file, back, where);
}

TEST(MdlStandardCorpus, EveryRecordRoundTrips) {
  char const* env = std::getenv("KORA_CORPUS");
  fs::path const dir = (env ? fs::path(env) : fs::path(KORA_DEFAULT_CORPUS_DIR)) / "sdf";
  if (!fs::is_directory(dir)) GTEST_SKIP() << "no corpus at " << dir;
  int records = 0;
  int unreadable = 0;
  for (auto const& item : fs::directory_iterator(dir)) {
    fs::path const path = item.path();
    SdDatabase const db(path);
    for (int i = 0; i < db.size(); ++i) {
      std::ifstream in(path, std::ios::binary);
      in.seekg(db.position(i));
      MolFile file;
      try {
        file.read(in);
      } catch (std::runtime_error const&) {
        ++unreadable;  // records the reader refuses have nothing to write
        continue;
      }
      ++records;
      expect_standard_round_trip(file, path.filename().string() + " entry " + std::to_string(i));
    }
  }
  EXPECT_GT(records, 500);
  EXPECT_EQ(unreadable, 1);  // the record whose counts line reads "foo 61"
}

}  // namespace
