#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "kora/framework/flat_file_database.hpp"
#include "kora/mdl/mol_file.hpp"
#include "kora/mdl/sdfile_database_entry.hpp"
#include "kora/mdl/sdfile_database_reader.hpp"
#include "mdl_test_support.hpp"

namespace {

using namespace kora;
using test::ScratchFile;
using SdDatabase = FlatFileDatabase<CrystalStructureDatabaseEntry, SDfileDatabaseReader, MolFile>;

// A record named `name` with `atoms` unbonded carbon atoms and one data item.
std::string record(std::string const& name, int atoms) {
  std::string text = name +
                     "\n  KORATEST0101241200"
                     "3D\n\n" +
                     test::counts(atoms, 0);
  for (int i = 0; i < atoms; ++i)
    text += test::atom_line(i * 1.5, 0, 0, "C");
  return text + "M  END\n> <atoms>\n" + std::to_string(atoms) + "\n\n$$$$\n";
}

TEST(SdIndex, NormalisedIdentifiers) {
  std::tuple<char const*, char const*, bool> const cases[] = {
      {"ABCDEF01XY", "ABCDEF01", true},   {"ABCDEF00XY", "ABCDEF", true},
      {" benzene\t", "benzene", true},    {"ab", "ab____", true},
      {"abcdefghijkl", "abcdefgh", true}, {"ABCDE1F0XY", "ABCDE1F0", true},
      {"  \r", "UNKNWN", false},          {"cost $5", "UNKNWN", false},
  };
  for (auto [line, expected, found] : cases) {
    std::string id = "old";
    EXPECT_EQ(SDfileDatabaseReader::set_entry_identifier(line, id, false), found) << line;
    EXPECT_EQ(id, expected) << line;
  }
  std::string id;
  EXPECT_FALSE(SDfileDatabaseReader::set_entry_identifier("benzene", id, true));
  EXPECT_EQ(id, "UNKNWN");
}

TEST(SdIndex, OneEntryPerRecordStartingAtItsNameLine) {
  std::string const first = record("ABCDEF01XY", 2);
  std::string const second = "\n\n" + record("second molecule", 3);  // blank lines first
  ScratchFile const file(first + second + record("", 1));            // blank name line
  SdDatabase const db(file.path());
  ASSERT_EQ(db.size(), 3);
  EXPECT_EQ(db.identifier(0).str() + '|' + db.identifier(1).str() + '|' + db.identifier(2).str(),
            "ABCDEF01|second m|KORATEST");
  EXPECT_EQ(db.position(1), std::streampos(first.size() + 2));
  EXPECT_EQ(db.position(2), std::streampos(first.size() + second.size()));
  int const atoms[] = {2, 3, 1};
  for (int i = 0; i < 3; ++i) {
    auto const entry = handle_dynamic_cast<SDfileDatabaseEntry>(db.entry(i));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->identifier(), db.identifier(i));
    EXPECT_EQ(entry->crystal_maker()->nmolecules(), atoms[i]);
    EXPECT_EQ(*entry->tags()->values("atoms"), std::vector<std::string>{std::to_string(atoms[i])});
  }
  SdDatabase const verbatim(file.path(), FileFormat::verbatim_identifiers);
  EXPECT_EQ(verbatim.identifier(1).str(), "second molecule");
  EXPECT_EQ(verbatim.identifier(2).str(),
            "  KORATEST0101241200"
            "3D");  // blanks are kept
}

TEST(SdIndex, MolFileWithoutTerminatorIsOneRecord) {
  std::string text = record("single", 2);
  ScratchFile const file(text.substr(0, text.find("> <atoms>")), ".mol");
  SdDatabase const db(file.path());
  ASSERT_EQ(db.size(), 1);
  EXPECT_EQ(db.entry(0)->crystal_maker()->nmolecules(), 2);
}

TEST(SdIndex, Failures) {
  ScratchFile const empty("");
  EXPECT_EQ(test::message_of<std::runtime_error>([&] { SdDatabase{empty.path()}; }),
            "SDfileDatabase::SDfileDatabase(const std::string& filename): could not read data "
            "in file.");
  std::string const missing = empty.path() + ".missing";
  EXPECT_EQ(test::message_of<std::runtime_error>([&] { SdDatabase{missing}; }),
            "SDfileDatabase::parse() couldn't retrieve entry " + missing);
  ScratchFile const bad(record("good", 1) + "bad\n\n\n" + test::counts(5, 0) + "M  END\n$$$$\n");
  SdDatabase const db(bad.path());
  EXPECT_EQ(test::message_of<database_error>([&] { db.entry(1); }),
            "FlatFileDatabase::entry: couldn't retrieve entry 1\nThe error message was:\n\n"
            "Atom block incomplete - not enough atom lines");
}

}  // namespace
