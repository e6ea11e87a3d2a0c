// The PDB index: where entries start and end in both modes, their names, its messages, and
// the format's descriptor.

#include <gtest/gtest.h>

#include <stdexcept>
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

TEST(PdbIndex, EntriesRunFromHeaderToEndOrABlankLineOrTheEndOfTheFile) {
  ScratchFolder const folder;
  std::vector<std::string> const parts{
      "REMARK before any entry\n" + atoms(1) + "END\n",
      header("1ABC") + "\n" + atoms(2) + "TER\nEND\n",
      "HEADER    VRX ENTRY SECOND ONE\n" + atoms(1) + "END\n",
      header("    ") + "\n" + atoms(1) + "\nREMARK outside\n",
      header("2NMR") + "\nMODEL 1\n" + atoms(1) + "ENDMDL\nMODEL 2\n" + atoms(1) + "ENDMDL\nEND\n",
      header("4XYZ") + "\n" + atoms(3)};
  for (char const* end : {"\n", "\r\n"}) {
    std::string text;
    std::vector<std::streamoff> starts;
    for (std::string const& part : parts) {
      starts.push_back(std::streamoff(text.size()));
      for (char c : part)
        text += c == '\n' ? std::string(end) : std::string(1, c);
    }
    PdbDatabase const db(folder.write("entries.pdb", text));
    ASSERT_EQ(db.size(), 5);
    std::vector<std::string> const names{"1ABC", "SECOND ONE", "ENTRY3", "2NMR", "4XYZ"};
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(db.identifier(i).str(), names[std::size_t(i)]);
      EXPECT_EQ(db.position(i), std::streampos(starts[std::size_t(i) + 1]));
    }
    EXPECT_EQ(atom_count(db.entry(0)), 2);
    EXPECT_EQ(atom_count(db.entry(3)), 2);  // both models
    EXPECT_EQ(atom_count(db.entry(4)), 3);  // no END needed
  }
}

// Standard indexing starts an entry after each END; classic indexing starts entries at
// HEADER, ends them with END or ENDMDL, and stops at an entry without atoms.
TEST(PdbIndex, EntriesOfEachMode) {
  struct Case {
    std::string text;
    std::vector<std::string> standard_names, classic_names;
    std::vector<int> standard_atoms;
  };
  ScratchFolder const folder;
  for (Case const& c :
       std::vector<Case>{{header("1ABC") + "\n" + atoms(1) + "END\n" + atoms(2) + "END\n",
                          {"1ABC", "ENTRY2"},
                          {"1ABC"},
                          {1, 2}},
                         {header("1AAA") + "\n" + atoms(1) + "END\n" + header("2BBB") + "\nEND\n" +
                              header("3CCC") + "\n" + atoms(1) + "END\n",
                          {"1AAA", "2BBB", "3CCC"},
                          {"1AAA"},
                          {1, 0, 1}},
                         {atoms(1) + "END\nMASTER\nCONECT    1\nEND\n", {"ENTRY1"}, {}, {1}}}) {
    SCOPED_TRACE(c.text);
    std::string const path = folder.write("entries.pdb", c.text);
    PdbDatabase db(path, ReadOptions::standard_mode());
    db.set_read_options(ReadOptions::standard_mode());
    std::vector<std::string> names;
    std::vector<int> counts;
    for (int i = 0; i < db.size(); ++i) {
      names.push_back(db.identifier(i).str());
      counts.push_back(atom_count(db.entry(i)));
    }
    EXPECT_EQ(names, c.standard_names);
    EXPECT_EQ(counts, c.standard_atoms);
    PdbDatabase const classic(path);
    names.clear();
    for (int i = 0; i < classic.size(); ++i)
      names.push_back(classic.identifier(i).str());
    EXPECT_EQ(names, c.classic_names);
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
