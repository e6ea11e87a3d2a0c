// Databases whose file goes wrong: deleted, truncated, rewritten or replaced after it was
// indexed, a directory or a device instead of a file. Every entry read must end in a
// database_error, never in a crash or in whatever now stands at an entry's old position.

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>

#include "sample_files.hpp"

namespace {

using namespace kora;
using namespace kora::test;
namespace fs = std::filesystem;

// The message of the database_error that reading entry i throws; "(no error)" when it reads.
std::string entry_error(EntryDatabase const& db, int i) {
  return thrown_message<database_error>([&] { db.entry(i); });
}

// The sample with its first identifier's first character, or its last character, changed.
std::string changed_sample(SampleFormat const& f, bool last) {
  std::string text = f.text();
  std::size_t const at = last ? text.size() - 2 : text.find(f.identifier(0));
  text[at] = text[at] == 'X' ? 'Y' : 'X';
  return text;
}

// A later write has a later time, even where the clock ticks more coarsely than the test.
void touch(std::string const& file) {
  fs::last_write_time(file, fs::last_write_time(file) + std::chrono::seconds(2));
}

class ChangedFile : public ::testing::TestWithParam<SampleFormat> {
 protected:
  // The sample indexed, its entries read (the file then open, and read ahead) or not.
  THandle<EntryDatabase> indexed(bool read_before = false) {
    SampleFormat const& f = GetParam();
    file_ = scratch_.write("sample." + f.extension, f.text());
    THandle<EntryDatabase> db = f.open(file_);
    for (int i = 0; read_before && i < db->size(); ++i)
      EXPECT_EQ(entry_error(*db, i), "(no error)");
    return db;
  }
  // Every entry fails with `message` (by default as changed), and the index still answers.
  void expect_every_entry_fails(EntryDatabase const& db, std::string const& message = "") {
    SampleFormat const& f = GetParam();
    ASSERT_EQ(db.size(), f.entries);
    for (int i = 0; i < db.size(); ++i) {
      std::string const changed = "FlatFileDatabase::entry: couldn't retrieve entry " +
                                  std::to_string(i) + ": " + file_ +
                                  " has changed since it was indexed";
      EXPECT_EQ(entry_error(db, i), message.empty() ? changed : message) << "entry " << i;
      EXPECT_EQ(db.identifier(i).str(), f.identifier(i));
    }
  }

  ScratchFolder scratch_;
  std::string file_;
};

TEST_P(ChangedFile, DeletedFileCannotBeOpened) {
  for (bool const read_before : {false, true}) {
    THandle<EntryDatabase> const db = indexed(read_before);
    fs::remove(file_);
    expect_every_entry_fails(*db, "FlatFileDatabase::entry(): couldn't open file");
  }
}

TEST_P(ChangedFile, RewrittenIsRefused) {
  SampleFormat const& f = GetParam();
  // Shorter (down to nothing), the same length with other bytes, or the first or the last
  // indexed bytes changed before more were written after them.
  for (std::string const& text :
       {std::string(), f.text().substr(0, f.text().size() / 2), changed_sample(f, false),
        changed_sample(f, false) + f.text(), changed_sample(f, true) + f.text()}) {
    THandle<EntryDatabase> const db = indexed();
    std::ofstream(file_, std::ios::binary | std::ios::trunc) << text;
    touch(file_);
    expect_every_entry_fails(*db);
  }
}

TEST_P(ChangedFile, ReplacedByAnotherFileOfSameSizeAndTimeIsRefused) {
  for (bool const read_before : {false, true}) {
    THandle<EntryDatabase> const db = indexed(read_before);
    std::string const other = scratch_.write("other", changed_sample(GetParam(), false));
    fs::last_write_time(other, fs::last_write_time(file_));
    fs::rename(other, file_);  // only the file's identity tells it from the indexed one
    expect_every_entry_fails(*db);
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, ChangedFile, ::testing::ValuesIn(sample_formats()), format_name);

class UnusableFile : public ChangedFile {};

TEST_P(UnusableFile, DirectoryOrDeviceIsNeitherDatabaseNorFile) {
  SampleFormat const& f = GetParam();
  std::string const dir = (scratch_.path() / ("folder." + f.extension)).string();
  fs::create_directory(dir);
  EXPECT_EQ(thrown_message<database_error>([&] { f.open(dir); }),
            "FlatFileDatabase: " + dir + " is not a regular file");
  // The descriptor does not take it, so the registry never offers it as a database.
  EXPECT_FALSE(f.descriptor()->make_database({dir, f.extension}));
  // Read by name, it is not an empty structure but a file that cannot be opened.
  EXPECT_EQ(thrown_message<std::runtime_error>([&] { f.file_object()->read(dir); }),
            "MoleculeFile::read: cannot open file " + dir);
  // Entries are found again by seeking, which a device cannot do.
  EXPECT_EQ(thrown_message<database_error>([&] { f.open("/dev/null"); }),
            "FlatFileDatabase: /dev/null is not a regular file");
  // A missing file is no empty database.
  std::string const missing = scratch_.path().string() + "/missing." + f.extension;
  EXPECT_THROW(f.open(missing), std::runtime_error);
}

INSTANTIATE_TEST_SUITE_P(Formats, UnusableFile, ::testing::ValuesIn(sample_formats()), format_name);

}  // namespace
