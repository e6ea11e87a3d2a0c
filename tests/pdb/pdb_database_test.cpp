// The PDB index: the entries of each mode with their names and atoms, and the read options
// the format passes on to it.

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "../framework/sample_files.hpp"
#include "kora/formats.hpp"
#include "pdb_test_support.hpp"

namespace {

using namespace kora;
using namespace kora::test;

// A HEADER line with the identifier code in columns 63-66, without its line end.
std::string header(std::string const& code) {
  std::string line = "HEADER    CLASSIFICATION";
  line.resize(62, ' ');
  return line + code;
}

std::string atoms(int count) {
  std::string text;
  for (int i = 1; i <= count; ++i)
    text += "ATOM      " + std::to_string(i) + "  C   GLY A   1    " + std::to_string(10 * i) +
            ".000   0.000   0.000\n";
  return text;
}

int atom_count(THandle<CrystalStructureDatabaseEntry> const& entry) {
  int n = 0;
  for (int i = 0; i < entry->crystal_maker()->nmolecules(); ++i)
    n += entry->crystal_maker()->molecule(i)->natoms();
  return n;
}

// Each entry of the index as "name:atoms ".
std::string entries_of(PdbDatabase const& db) {
  std::string out;
  for (int i = 0; i < db.size(); ++i)
    out += db.identifier(i).str() + ":" + std::to_string(atom_count(db.entry(i))) + " ";
  return out;
}

// Standard indexing starts an entry after each END; classic indexing starts entries at
// HEADER, ends them with END or ENDMDL, and stops at an entry without atoms.
TEST(PdbIndex, EntriesOfEachMode) {
  ScratchFolder const folder;
  for (auto const& [text, standard, classic] :
       std::vector<std::tuple<std::string, char const*, char const*>>{
           {header("1ABC") + "\n" + atoms(1) + "END\n" + atoms(2) + "END\n", "1ABC:1 ENTRY2:2 ",
            "1ABC:1 "},
           {header("1AAA") + "\n" + atoms(1) + "END\n" + header("2BBB") + "\nEND\n" +
                header("3CCC") + "\n" + atoms(1) + "END\n",
            "1AAA:1 2BBB:0 3CCC:1 ", "1AAA:1 "},
           {atoms(1) + "END\nMASTER\nCONECT    1\nEND\n", "ENTRY1:1 ", ""}}) {
    std::string const path = folder.write("entries.pdb", text);
    PdbDatabase db(path, ReadOptions::standard_mode());
    db.set_read_options(ReadOptions::standard_mode());
    EXPECT_EQ(entries_of(db), standard) << text;
    EXPECT_EQ(entries_of(PdbDatabase(path)), classic) << text;
  }
  // The open parameters carry the read options.
  FileFormat::OpenParameters parameters{
      folder.write("frames.pdb", atoms(2) + "END\n" + atoms(3) + "END\n"), "pdb"};
  EXPECT_EQ(PdbFileFormat().make_database(parameters)->size(), 0);
  parameters.read_options = ReadOptions::standard_mode();
  THandle<EntryDatabase> const db = PdbFileFormat().make_database(parameters);
  ASSERT_EQ(db->size(), 2);
  EXPECT_EQ(atom_count(db->entry(1)), 3);
}

}  // namespace
