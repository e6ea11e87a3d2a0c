// The flat-file database over SD records: its index, entries read one at a time and from
// any position, files changed at either end, and saved indexes.

#include <gtest/gtest.h>

#include <chrono>
#include <iterator>

#include "sample_files.hpp"

namespace {

using namespace kora;
using namespace kora::test;
using namespace std::chrono_literals;

int atoms(CrystalStructureDatabaseEntry const& entry) {
  return entry.crystal_maker()->molecule(0)->natoms();
}

TEST(FlatFileDatabaseTest, IndexesOnceAndReadsOnlyTheRequestedEntry) {
  ScratchFolder const scratch;
  std::string const text = sd_entries(3, 2);  // of 3, 4 and 5 atoms; the last unreadable
  SdDatabase const db(scratch.write("s.sdf", text), FileFormat::verbatim_identifiers);
  EXPECT_EQ(db.position(2), std::streampos(std::streamoff(text.find("mol2"))));
  EXPECT_EQ(db.index(DatabaseEntryIdentifier("mol1")), 1);
  EXPECT_EQ(db.index(DatabaseEntryIdentifier("MOL1")), 3);

  THandle<CrystalStructureDatabaseEntry> const second = db.entry(DatabaseEntryIdentifier("mol1"));
  EXPECT_EQ(atoms(*second), 4);
  EXPECT_EQ(atoms(*db.entry(0)), 3);
  // The entry returned earlier does not change when the shared file object reads again.
  EXPECT_EQ(atoms(*second), 4);
  for (int bad : {2, -1, 3})
    EXPECT_THROW(db.entry(bad), database_error) << bad;
}

// Lists the positions it is given, whatever the file holds.
class ListedReader : public FlatFileDatabaseReader {
 public:
  ListedReader(std::string const& file_name, std::vector<std::streamoff> positions)
      : FlatFileDatabaseReader(file_name), positions_(std::move(positions)) {}
  void parse(std::vector<DatabaseEntryIdentifier>& identifiers,
             std::vector<std::streampos>& positions) const override {
    for (std::streamoff const at : positions_) {
      identifiers.emplace_back("E");
      positions.emplace_back(at);
    }
  }

 private:
  std::vector<std::streamoff> positions_;
};

using ListedDatabase = FlatFileDatabase<CrystalStructureDatabaseEntry, ListedReader, MolFile>;

// An entry runs to the next entry's start in the file, not to the next position of the
// index: entries indexed at one position (or out of order) each read their whole entry.
TEST(FlatFileDatabaseTest, EntriesAtOnePositionReadToTheEntrysRealEnd) {
  ScratchFolder const scratch;
  std::string const text = sd_entries(2);  // of 3 and 4 atoms
  auto const b = static_cast<std::streamoff>(text.find("mol1"));
  struct Case {
    std::vector<std::streamoff> positions;
    std::vector<int> atoms;  // of each listed entry
  };
  Case const cases[] = {
      {{0, 0, b}, {3, 3, 4}},
      {{0, b, b}, {3, 4, 4}},
      {{b, 0, 0}, {4, 3, 3}},
      // Past the end of the file when it was examined: written while it was indexed.
      {{0, b, static_cast<std::streamoff>(text.size()) + 5}, {3, 4}},
  };
  std::string const path = scratch.write("s.sdf", text);
  for (Case const& c : cases) {
    ListedDatabase const db(path, c.positions);
    std::vector<int> read;
    for (int i = 0; i < db.size(); ++i)
      read.push_back(atoms(*db.entry(i)));
    EXPECT_EQ(read, c.atoms) << ::testing::PrintToString(c.positions);
  }
  EXPECT_EQ(
      thrown_message<database_error>([&] {
        ListedDatabase(path, std::vector<std::streamoff>{0, -1});
      }),
      "FlatFileDatabase: the index of " + path + " has a position before the start of the file");
}

// A file longer than the two blocks whose checksum is kept: touching or appending to it reads
// on, a change in the first or the last indexed block is refused.
TEST(FlatFileDatabaseTest, LargeFileIsCheckedAtBothEnds) {
  ScratchFolder const scratch;
  std::string const text = sd_entries(1000);
  ASSERT_GT(text.size(), 3 * detail::IndexedFile::checked_block);
  std::string const path = scratch.write("s.sdf", text);
  for (std::size_t const at : {std::size_t(0), text.size() - 3}) {
    SdDatabase const db(path, FileFormat::verbatim_identifiers);
    std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) + 2s);
    EXPECT_EQ(atoms(*db.entry(999)), 6);
    std::ofstream(path, std::ios::binary | std::ios::app) << sd_entries(1);
    EXPECT_EQ(atoms(*db.entry(1)), 4);
    std::string changed = text;
    changed[at] = 'X';
    // Longer again, so that the size tells the file was written.
    std::ofstream(path, std::ios::binary | std::ios::trunc) << changed << sd_entries(2);
    EXPECT_EQ(thrown_message<database_error>([&] { db.entry(1); }),
              "FlatFileDatabase::entry: couldn't retrieve entry 1: " + path +
                  " has changed since it was indexed")
        << "byte " << at;
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
  }
}

// A saved index is used only for the bytes and the key it was made for; any other saved
// file, damaged or foreign, is passed over. The names tell which happened: the saved index
// has verbatim identifiers, a fresh one normalised ones ("mol0__").
TEST(FlatFileDatabaseTest, SavedIndexesAreUsedOnlyWhenTheyFit) {
  ScratchFolder const scratch;
  std::string const text = sd_entries(300);
  std::string const path = scratch.write("s.sdf", text);
  std::string const saved = saved_index_name(path);
  SavedIndexKey const key{"sd 1"};
  SdDatabase(key, path, FileFormat::verbatim_identifiers).save_index(key.key);
  auto const first_name = [&](SavedIndexKey const& k) {
    return SdDatabase(k, path).identifier(0).str();
  };
  SdDatabase const loaded(key, path);
  ASSERT_EQ(loaded.size(), 300);
  EXPECT_EQ(loaded.identifier(0).str(), "mol0");
  EXPECT_EQ(loaded.text(299), text.substr(text.find("mol299\n")));
  EXPECT_EQ(loaded.index(DatabaseEntryIdentifier("mol42")), 42);
  EXPECT_EQ(first_name(SavedIndexKey{"sd 2"}), "mol0__");  // made for another key
  EXPECT_EQ(first_name(SavedIndexKey{}), "mol0__");        // saved indexes not asked for

  std::ifstream in(saved, std::ios::binary);
  std::string const bytes((std::istreambuf_iterator<char>(in)), {});
  // The magic and the key padded to 8 bytes, then size, time, checksum and count.
  std::size_t const header = (8 + 4 + key.key.size() + 7) / 8 * 8 + 32;
  std::size_t const names = header + 300 * 16;
  std::pair<char const*, std::string> const damages[] = {
      {"cut short", bytes.substr(0, bytes.size() - 1)},
      {"a count far too large",
       std::string(bytes).replace(header - 8, 8,
                                  std::string("\xff\xff\xff\xff\xff\xff\xff\x0f", 8))},
      {"a line break in a name", std::string(bytes).replace(names + 1, 1, "\n")},
      {"a start past the end", std::string(bytes).replace(header + 8, 4, "\xff\xff\xff\x7f")},
      {"a negative start", std::string(bytes).replace(header + 15, 1, "\x80")},
      {"names ending out of order", std::string(bytes).replace(header + 300 * 8, 8, 8, '\xff')},
      {"another checksum", std::string(bytes).replace(header - 16, 1, "\x01")},
      {"not an index", "mol0\n"},
  };
  for (auto const& [what, damaged] : damages) {
    std::ofstream(saved, std::ios::binary | std::ios::trunc) << damaged;
    EXPECT_EQ(first_name(key), "mol0__") << what;
  }

  // The file appended to: its saved index no longer fits.
  std::ofstream(saved, std::ios::binary | std::ios::trunc) << bytes;
  EXPECT_EQ(first_name(key), "mol0");
  std::ofstream(path, std::ios::binary | std::ios::app) << sd_entries(1);
  EXPECT_EQ(first_name(key), "mol0__");
}

}  // namespace
