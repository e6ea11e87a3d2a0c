#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "kora/formats.hpp"
#include "kora/framework/flat_file_database.hpp"
#include "kora/pdb/pdb_database_reader.hpp"
#include "kora/pdb/pdb_file.hpp"
#include "kora/pdb/pdb_file_format.hpp"

namespace {

using namespace kora;

using PdbDatabase = FlatFileDatabase<CrystalStructureDatabaseEntry, PdbDatabaseReader, PdbFile>;

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

class PdbIndex : public ::testing::Test {
 protected:
  std::string write(std::string const& text) {
    std::string const path = ::testing::TempDir() + "kora_pdb_" +
                             ::testing::UnitTest::GetInstance()->current_test_info()->name() +
                             std::to_string(paths_.size()) + ".pdb";
    std::ofstream(path, std::ios::binary) << text;
    paths_.push_back(path);
    return path;
  }
  void TearDown() override {
    for (std::string const& p : paths_)
      std::remove(p.c_str());
  }
  std::vector<std::string> paths_;
};

TEST_F(PdbIndex, EntriesRunFromHeaderToEndOrABlankLineOrTheEndOfTheFile) {
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
    PdbDatabase const db(write(text));
    ASSERT_EQ(db.size(), 5);
    std::vector<std::string> const names{"1ABC", "SECOND ONE", "ENTRY3", "2NMR", "4XYZ"};
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(db.identifier(i).str(), names[std::size_t(i)]);
      EXPECT_EQ(db.position(i), std::streampos(starts[std::size_t(i) + 1]));
    }
    EXPECT_EQ(atom_count(db.entry(0)), 2);
    EXPECT_EQ(db.entry(DatabaseEntryIdentifier("SECOND ONE"))->identifier().str(), "SECOND ONE");
    EXPECT_EQ(atom_count(db.entry(3)), 2);  // both models
    EXPECT_EQ(atom_count(db.entry(4)), 3);  // no END needed
  }
}

TEST_F(PdbIndex, EntryWithoutAtomsEndsTheIndex) {
  PdbDatabase const db(write(header("1AAA") + "\n" + atoms(1) + "END\n" + header("2BBB") +
                             "\nEND\n" + header("3CCC") + "\n" + atoms(1) + "END\n"));
  ASSERT_EQ(db.size(), 1);
  EXPECT_EQ(db.identifier(0).str(), "1AAA");
}

TEST_F(PdbIndex, StandardIndexStartsAnEntryAfterEachEnd) {
  struct Case {
    char const* what;
    std::string text;
    std::vector<std::string> names;
    std::vector<int> atoms;
  };
  std::string const cryst1 =
      "CRYST1   15.000   15.000   15.000  90.00  90.00  90.00 P 1           1\n";
  std::vector<Case> const cases{
      {"frames of a trajectory",
       cryst1 + atoms(2) + "END\n" + atoms(3) + "END\n" + atoms(1) + "END\n",
       {"ENTRY1", "ENTRY2", "ENTRY3"},
       {2, 3, 1}},
      {"a last frame without END", atoms(2) + "END\n\n" + atoms(1), {"ENTRY1", "ENTRY2"}, {2, 1}},
      {"a HEADER, then frames",
       header("1ABC") + "\n" + atoms(1) + "END\n" + atoms(2) + "END\n",
       {"1ABC", "ENTRY2"},
       {1, 2}},
      {"models stay one entry",
       header("2NMR") + "\nMODEL 1\n" + atoms(1) + "ENDMDL\nMODEL 2\n" + atoms(1) +
           "ENDMDL\nCONECT    1    1\nEND\n",
       {"2NMR"},
       {2}},
      {"a HEADER entry without atoms is an empty entry",
       header("1AAA") + "\n" + atoms(1) + "END\n" + header("2BBB") + "\nEND\n" + header("3CCC") +
           "\n" + atoms(1) + "END\n",
       {"1AAA", "2BBB", "3CCC"},
       {1, 0, 1}},
      {"a HEADER closes an entry without END",
       header("1AAA") + "\n" + atoms(2) + header("2BBB") + "\n" + atoms(1),
       {"1AAA", "2BBB"},
       {2, 1}},
      {"what follows the last END is no entry",
       atoms(1) + "END\nMASTER\nCONECT    1\nEND\n",
       {"ENTRY1"},
       {1}},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    std::string const path = write(c.text);
    PdbDatabase db(path, ReadOptions::standard_mode());
    db.set_read_options(ReadOptions::standard_mode());
    ASSERT_EQ(db.size(), static_cast<int>(c.names.size()));
    for (int i = 0; i < db.size(); ++i) {
      EXPECT_EQ(db.identifier(i).str(), c.names[std::size_t(i)]);
      EXPECT_EQ(atom_count(db.entry(i)), c.atoms[std::size_t(i)]);
    }
  }
  // Classic indexing is unchanged: entries start at HEADER, END or ENDMDL completes one.
  EXPECT_EQ(PdbDatabase(write(cases[0].text)).size(), 0);
  EXPECT_EQ(PdbDatabase(write(cases[2].text)).size(), 1);
}

TEST_F(PdbIndex, OpenParametersCarryTheReadOptions) {
  std::string const path = write(atoms(2) + "END\n" + atoms(3) + "END\n");
  FileFormat::OpenParameters parameters{path, "pdb"};
  EXPECT_EQ(PdbFileFormat().make_database(parameters)->size(), 0);
  parameters.read_options = ReadOptions::standard_mode();
  THandle<Database<CrystalStructureDatabaseEntry>> const db =
      PdbFileFormat().make_database(parameters);
  ASSERT_EQ(db->size(), 2);
  EXPECT_TRUE(handle_dynamic_cast<FlatFileDatabaseIndex>(db)->read_options().standard());
  EXPECT_EQ(atom_count(db->entry(1)), 3);
}

TEST_F(PdbIndex, Failures) {
  try {
    PdbDatabase const db(write("HEADER    VRX ENTRY " + std::string(300, 'X') + "\n" + atoms(1)));
    ADD_FAILURE() << "no exception";
  } catch (std::invalid_argument const& e) {
    EXPECT_STREQ(e.what(), "PdbDatabase::entry_identifier: invalid VRX identifier.");
  }
  try {
    PdbDatabase const db(::testing::TempDir() + "kora_pdb_no_such_file.pdb");
    ADD_FAILURE() << "no exception";
  } catch (database_error const& e) {
    EXPECT_EQ(std::string(e.what()).rfind("PdbDatabase::parse() couldn't retrieve entry ", 0), 0u);
  }
}

TEST(PdbEntryIdentifier, VrxNameOrIdentifierCodeOrGenerated) {
  PdbDatabaseReader const reader("unused");
  EXPECT_EQ(reader.set_entry_identifier(0, "HEADER    VRX ENTRY LONGER NAME").str(), "LONGER NAME");
  EXPECT_EQ(reader.set_entry_identifier(0, "HEADER    VRX ENTRY ABC\r").str(), "ABC");
  EXPECT_EQ(reader.set_entry_identifier(4, header("1CR")).str(), "1CR");
  EXPECT_EQ(reader.set_entry_identifier(4, header("1CRN") + "      1CRN   2").str(), "1CRN");
  EXPECT_EQ(reader.set_entry_identifier(4, header("    ")).str(), "ENTRY5");
  EXPECT_EQ(reader.set_entry_identifier(0, "HEADER").str(), "ENTRY1");
}

TEST_F(PdbIndex, Descriptor) {
  PdbFileFormat const format;
  EXPECT_EQ(format.name(), "PDB file");
  EXPECT_EQ(format.default_extension(), "ent");
  std::vector<std::string> extensions{"old"};
  format.all_extensions(extensions);
  EXPECT_EQ(extensions, (std::vector<std::string>{"pdb", "ent"}));
  EXPECT_TRUE(format.writeable());
  for (char const* line : {"HEADER", "REMARK   2", "SCALE1", "ATOM      1", "HETATM12345"})
    EXPECT_TRUE(format.examine_line(line, 9)) << line;
  for (char const* line : {"ATOM 1", " HEADER", "header", "CRYST1", "END", "CONECT    1", ""})
    EXPECT_FALSE(format.examine_line(line, 1)) << line;

  std::string const pdb = write(header("1XYZ") + "\n" + atoms(1) + "END\n");
  std::string const other = write("@<TRIPOS>MOLECULE\nx\n");
  auto const file = handle_dynamic_cast<PdbFile>(format.make_molecule_file({pdb, "pdb"}));
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->molecules()->empty());  // nothing read yet
  EXPECT_FALSE(format.make_molecule_file({other, "pdb"}));
  THandle<Database<CrystalStructureDatabaseEntry>> const db = format.make_database({pdb, "pdb"});
  ASSERT_TRUE(db);
  EXPECT_EQ(db->identifier(0).str(), "1XYZ");
  EXPECT_FALSE(format.make_database({other, "pdb"}));
  ASSERT_TRUE(find_file_format({pdb, "pdb"}));
  EXPECT_EQ(find_file_format({pdb, "pdb"})->name(), "PDB file");
}

}  // namespace
