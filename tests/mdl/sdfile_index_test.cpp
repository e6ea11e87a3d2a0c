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

// The index reads the file in blocks of 1 MiB; record positions must not depend on where
// the blocks end, even when a block ends between the CR and the LF of a line end.
TEST(SdIndex, PositionsHoldAcrossReadBlocksWithCrLf) {
  auto const crlf = [](std::string const& text) {
    std::string out;
    for (char c : text) {
      if (c == '\n') out += '\r';
      out += c;
    }
    return out;
  };
  constexpr std::size_t block = std::size_t(1) << 20;
  std::vector<std::string> records;
  std::size_t size = 0;
  while (size < 3 * block) {
    records.push_back(crlf(record("R" + std::to_string(records.size() + 1), 3)));
    size += records.back().size();
  }
  // Pad the data value of the last record whose value line ends before the first block's
  // end, so that the CR of that line is the block's last byte.
  std::size_t offset = 0;
  for (std::string& r : records) {
    std::size_t const value = r.find("> <atoms>\r\n") + 11;
    std::size_t const cr = offset + r.find('\r', value);
    if (cr < block - 1 && cr + r.size() >= block - 1) {
      r.insert(value, block - 1 - cr, ' ');
      break;
    }
    offset += r.size();
  }
  std::string text;
  std::vector<std::size_t> starts;
  for (std::string const& r : records) {
    starts.push_back(text.size());
    text += r;
  }
  ASSERT_EQ(text[block - 1], '\r');
  ASSERT_EQ(text[block], '\n');
  ScratchFile const file(text);
  SdDatabase const db(file.path(), FileFormat::verbatim_identifiers);
  ASSERT_EQ(db.size(), static_cast<int>(starts.size()));
  for (std::size_t i = 0; i < starts.size(); ++i) {
    ASSERT_EQ(db.position(static_cast<int>(i)), std::streampos(starts[i])) << i;
    ASSERT_EQ(db.identifier(static_cast<int>(i)).str(), "R" + std::to_string(i + 1));
  }
  EXPECT_EQ(db.entry(db.size() - 1)->crystal_maker()->nmolecules(), 3);
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
