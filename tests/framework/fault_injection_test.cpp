// Databases whose file goes wrong: deleted, truncated, rewritten or replaced after it was
// indexed, unreadable, a directory or a device instead of a file. Every entry read must end
// in a database_error (or the reader's documented exception), never in a crash or in
// whatever now stands at an entry's old position.

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "../mdl/mdl_test_support.hpp"
#include "sample_files.hpp"

namespace {

using namespace kora;
using test::message_of;
using namespace kora::test;
namespace fs = std::filesystem;

// The message of the database_error that reading entry i throws; "(no error)" when the
// entry reads. Any other exception fails the test that asked.
std::string entry_error(EntryDatabase const& db, int i) {
  try {
    db.entry(i);
  } catch (database_error const& e) {
    return e.what();
  }
  return "(no error)";
}

std::string changed_message(int i, std::string const& file) {
  return "FlatFileDatabase::entry: couldn't retrieve entry " + std::to_string(i) + ": " + file +
         " has changed since it was indexed";
}

// The sample with the first character of entry 0's identifier changed: same length, other
// content.
std::string renamed_first_entry(SampleFormat const& f) {
  std::string text = f.text();
  std::size_t const at = text.find(f.identifier(0));
  EXPECT_NE(at, std::string::npos);
  text[at] = text[at] == 'X' ? 'Y' : 'X';
  return text;
}

class ChangedFile : public ::testing::TestWithParam<SampleFormat> {
 protected:
  // The sample written and indexed; every entry is readable at this point.
  THandle<EntryDatabase> indexed() {
    SampleFormat const& f = GetParam();
    file_ = scratch_.write("sample." + f.extension, f.text());
    THandle<EntryDatabase> db = f.open(file_);
    EXPECT_EQ(db->size(), f.entries);
    return db;
  }
  // Every entry fails with the message `message(i)`, and the index still answers.
  template <class Message>
  void expect_every_entry_fails(EntryDatabase const& db, Message message) {
    SampleFormat const& f = GetParam();
    ASSERT_EQ(db.size(), f.entries);
    for (int i = 0; i < db.size(); ++i) {
      EXPECT_EQ(entry_error(db, i), message(i)) << "entry " << i;
      EXPECT_EQ(db.identifier(i).str(), f.identifier(i));
    }
  }
  static void read_every_entry(EntryDatabase const& db) {
    for (int i = 0; i < db.size(); ++i)
      ASSERT_NO_THROW(db.entry(i)) << "entry " << i;
  }
  void expect_every_entry_refused_as_changed(EntryDatabase const& db) {
    expect_every_entry_fails(db, [&](int i) { return changed_message(i, file_); });
  }

  ScratchFolder scratch_;
  std::string file_;
};

// Whether the entries were read before the file went (the file then open, and read ahead)
// or not, a deleted or replaced file is found on the next read.
TEST_P(ChangedFile, DeletedFileCannotBeOpened) {
  for (bool const read_before : {false, true}) {
    SCOPED_TRACE(read_before ? "read before" : "not read before");
    THandle<EntryDatabase> const db = indexed();
    if (read_before) read_every_entry(*db);
    fs::remove(file_);
    expect_every_entry_fails(*db,
                             [](int) { return "FlatFileDatabase::entry(): couldn't open file"; });
  }
}

// The sample with its last line changed: the last indexed bytes differ.
std::string changed_last_line(SampleFormat const& f) {
  std::string text = f.text();
  std::size_t const at = text.size() - 2;  // the last character before the final line end
  text[at] = text[at] == 'X' ? 'Y' : 'X';
  return text;
}

TEST_P(ChangedFile, RewrittenIsRefused) {
  SampleFormat const& f = GetParam();
  // Shorter (down to nothing): the entries after the cut are gone; the same length: other
  // bytes in place; longer: every entry moves on, or the indexed bytes changed before more
  // were written after them.
  for (std::string const& text : {std::string(), f.text().substr(0, f.text().size() / 2),
                                  f.text().substr(0, f.text().size() - 2), renamed_first_entry(f),
                                  std::string("\n\n") + f.text(), renamed_first_entry(f) + f.text(),
                                  changed_last_line(f) + f.text()}) {
    THandle<EntryDatabase> const db = indexed();
    auto const written = fs::last_write_time(file_);
    std::ofstream(file_, std::ios::binary | std::ios::trunc) << text;
    // A later write has a later time, even where the clock ticks more coarsely than this test.
    fs::last_write_time(file_, written + std::chrono::seconds(2));
    expect_every_entry_refused_as_changed(*db);
  }
}

TEST_P(ChangedFile, ReplacedByAnotherFileOfSameSizeAndTimeIsRefused) {
  for (bool const read_before : {false, true}) {
    SCOPED_TRACE(read_before ? "read before" : "not read before");
    THandle<EntryDatabase> const db = indexed();
    if (read_before) read_every_entry(*db);
    std::string const other = scratch_.write("other", renamed_first_entry(GetParam()));
    ASSERT_EQ(fs::file_size(other), fs::file_size(file_));
    fs::last_write_time(other, fs::last_write_time(file_));
    fs::rename(other, file_);  // only the file's identity tells it from the indexed one
    expect_every_entry_refused_as_changed(*db);
  }
}

// Touching a file, or appending to it (another process adding records), leaves the indexed
// bytes as they were: an open database reads on, over the entries it indexed; a new one
// sees the appended entries too.
TEST_P(ChangedFile, TouchedOrAppendedFileReadsOn) {
  SampleFormat const& f = GetParam();
  THandle<EntryDatabase> const db = indexed();
  auto const expect_every_entry_reads = [&](EntryDatabase const& d, char const* when) {
    SCOPED_TRACE(when);
    for (int i = 0; i < d.size(); ++i) {
      THandle<CrystalStructureDatabaseEntry> e;
      ASSERT_NO_THROW(e = d.entry(i)) << "entry " << i;
      int const atoms = e->crystal_maker()->molecule(0)->natoms();
      EXPECT_EQ(atoms, f.name == "RES" ? 2 : chain_length(i % f.entries)) << "entry " << i;
    }
  };
  expect_every_entry_reads(*db, "before");
  fs::last_write_time(file_, fs::last_write_time(file_) + std::chrono::seconds(2));
  expect_every_entry_reads(*db, "touched");
  for (int append = 1; append <= 2; ++append) {
    std::ofstream(file_, std::ios::binary | std::ios::app) << f.text();
    fs::last_write_time(file_, fs::last_write_time(file_) + std::chrono::seconds(2));
    expect_every_entry_reads(*db, "appended");
    EXPECT_EQ(db->size(), f.entries);
  }
  THandle<EntryDatabase> const reopened = f.open(file_);
  int const expected = f.name == "RES" ? 1 : 3 * f.entries;  // RES: one structure per file
  ASSERT_EQ(reopened->size(), expected);
  expect_every_entry_reads(*reopened, "reopened");
  // Changing indexed bytes after an append is still found.
  std::string const rewritten = renamed_first_entry(f) + f.text() + f.text();
  std::ofstream(file_, std::ios::binary | std::ios::trunc) << rewritten;
  expect_every_entry_refused_as_changed(*db);
}

INSTANTIATE_TEST_SUITE_P(Formats, ChangedFile, ::testing::ValuesIn(sample_formats()), format_name);

class UnusableFile : public ::testing::TestWithParam<SampleFormat> {
 protected:
  ScratchFolder scratch_;
};

TEST_P(UnusableFile, DirectoryOrDeviceIsNeitherDatabaseNorFile) {
  SampleFormat const& f = GetParam();
  std::string const dir = (scratch_.path() / ("folder." + f.extension)).string();
  fs::create_directory(dir);
  EXPECT_EQ(message_of<database_error>([&] { f.open(dir); }),
            "FlatFileDatabase: " + dir + " is not a regular file");
  // The descriptor does not take it, so the registry never offers it as a database.
  EXPECT_FALSE(f.descriptor()->make_database({dir, f.extension}));
  // Read by name, it is not an empty structure but a file that cannot be opened.
  EXPECT_EQ(message_of<std::runtime_error>([&] { f.file_object()->read(dir); }),
            "MoleculeFile::read: cannot open file " + dir);
  // Entries are found again by seeking, which a device cannot do.
  EXPECT_EQ(message_of<database_error>([&] { f.open("/dev/null"); }),
            "FlatFileDatabase: /dev/null is not a regular file");
}

TEST_P(UnusableFile, MissingOrUnreadableFileIsReportedByName) {
  SampleFormat const& f = GetParam();
  std::string const file = scratch_.write("sample." + f.extension, f.text());
  THandle<EntryDatabase> const db = f.open(file);
  bool const root = geteuid() == 0;  // permissions do not stop root from reading
  if (!root) fs::permissions(file, fs::perms::none);
  std::string const missing = (scratch_.path() / ("missing." + f.extension)).string();
  for (std::string const& name : root ? std::vector{missing} : std::vector{missing, file}) {
    std::string const message = message_of<std::runtime_error>([&] { f.open(name); });
    EXPECT_NE(message.find("couldn't retrieve entry " + name), std::string::npos) << message;
    EXPECT_EQ(message_of<std::runtime_error>([&] { f.file_object()->read(name); }),
              "MoleculeFile::read: cannot open file " + name);
  }
  if (root) return;
  // Indexed before it became unreadable: its entries cannot be opened.
  EXPECT_EQ(entry_error(*db, 0), "FlatFileDatabase::entry(): couldn't open file");
}

INSTANTIATE_TEST_SUITE_P(Formats, UnusableFile, ::testing::ValuesIn(sample_formats()), format_name);

// An empty file: each index says so in its own way; none yields an entry that reads.
TEST(EmptyFileDatabase, EachFormatRefusesOrListsNothing) {
  ScratchFolder const scratch;
  std::string const sd = scratch.write("empty.sdf", "");
  EXPECT_EQ(message_of<std::runtime_error>([&] { SdDatabase db(sd); }),
            "SDfileDatabase::SDfileDatabase(const std::string& filename): could not read data in "
            "file.");
  EXPECT_EQ(Mol2Database(scratch.write("empty.mol2", "")).size(), 0);
  EXPECT_EQ(PdbDatabase(scratch.write("empty.pdb", "")).size(), 0);
  // A RES file is one entry whatever it holds; reading it finds no cell.
  ResDatabase const res(scratch.write("empty.res", ""));
  ASSERT_EQ(res.size(), 1);
  EXPECT_EQ(res.identifier(0).str(), "ENTRY0");
  EXPECT_EQ(entry_error(res, 0),
            "FlatFileDatabase::entry: couldn't retrieve entry 0\nThe error message was:\n\n"
            "ResFile::read(): No unit cell found.");
}

}  // namespace
