// Reading on several threads: whatever the threads and the window, the entries, their order,
// the work's results and the failures are those of reading one entry at a time.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "gzip_writer.hpp"
#include "kora/io.hpp"

namespace {

namespace fs = std::filesystem;

// Record k has k % 5 + 2 carbon atoms in a chain; every 97th names a bond to an atom that
// does not exist.
std::string sd_records(int count) {
  std::string text;
  for (int k = 0; k < count; ++k) {
    int const atoms = k % 5 + 2;
    char counts[64];
    std::snprintf(counts, sizeof counts, "%3d%3d  0  0  0  0  0  0  0  0999 V2000\n", atoms,
                  atoms - 1);
    text += "rec" + std::to_string(k) + "\n  test\n\n" + counts;
    for (int a = 0; a < atoms; ++a) {
      char line[96];
      std::snprintf(line, sizeof line,
                    "%10.4f    0.0000    0.0000 C   0  0  0  0  0  0  0  0  0  0  0  0\n", 1.5 * a);
      text += line;
    }
    for (int a = 1; a < atoms; ++a) {
      int const to = k % 97 == 50 ? 40 : a + 1;
      char line[32];
      std::snprintf(line, sizeof line, "%3d%3d  1  0\n", a, to);
      text += line;
    }
    text += "M  END\n> <K>\n" + std::to_string(k) + "\n\n$$$$\n";
  }
  return text;
}

std::string message_of(std::exception_ptr const& error) {
  try {
    std::rethrow_exception(error);
  } catch (std::exception const& e) {
    return e.what();
  }
}

// What reading entry i one at a time gives: its Mol2 text, or the failure's message.
std::string expected(kora::Entries const& entries, int i) {
  try {
    return kora::entry_text(*entries.entry(i), "mol2", kora::WriteOptions::standard_mode());
  } catch (kora::database_error const& e) {
    return std::string("failed: ") + e.what();
  }
}

std::vector<std::string> read_ahead(kora::Entries const& entries, std::vector<int> indices,
                                    kora::ReadAheadOptions const& options) {
  kora::ReadAhead reading(
      entries, indices, options, [](int, kora::CrystalStructureDatabaseEntry const& entry) {
        return kora::entry_text(entry, "mol2", kora::WriteOptions::standard_mode());
      });
  std::vector<std::string> got;
  std::size_t k = 0;
  for (kora::EntryRead read; reading.next(read); ++k) {
    EXPECT_EQ(read.index, indices.at(k));
    got.push_back(read.error ? "failed: " + message_of(read.error) : read.output);
    EXPECT_EQ(read.entry == nullptr, read.error != nullptr);
  }
  return got;
}

std::vector<int> first(int count) {
  std::vector<int> indices(static_cast<std::size_t>(count));
  std::iota(indices.begin(), indices.end(), 0);
  return indices;
}

class ReadAheadTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("kora-read-ahead-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
            "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  std::string write(std::string const& name, std::string const& bytes) {
    fs::path const path = dir_ / name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path.string();
  }
  fs::path dir_;
};

TEST_F(ReadAheadTest, EveryThreadCountAndWindowGivesTheEntriesInOrder) {
  std::string const text = sd_records(1000);
  for (std::string const& path :
       {write("r.sdf", text), write("r.sdf.gz", kora::test::gzip(text))}) {
    kora::Entries const entries(path);
    ASSERT_EQ(entries.size(), 1000);
    std::vector<int> const all = first(1000);
    // Out of order and repeated, as a caller may ask.
    std::vector<int> const some = {999, 3, 3, 50, 0, 147, 998};
    for (std::vector<int> const& indices : {all, some}) {
      std::vector<std::string> want;
      for (int i : indices)
        want.push_back(expected(entries, i));
      for (int threads : {1, 2, 3, 8}) {
        for (int window : {0, 1, 5000}) {
          SCOPED_TRACE(path + ", " + std::to_string(indices.size()) + " entries, " +
                       std::to_string(threads) + " threads, window " + std::to_string(window));
          EXPECT_EQ(read_ahead(entries, indices, {threads, window}), want);
        }
      }
    }
    // The failures are those of reading one at a time, worded the same.
    EXPECT_EQ(expected(entries, 50).rfind("failed: " + path + ":", 0), 0u) << expected(entries, 50);
  }
}

TEST_F(ReadAheadTest, WorkFailuresStayWithTheirEntry) {
  kora::Entries const entries(write("w.sdf", sd_records(300)));
  std::vector<int> const all = first(300);
  kora::ReadAhead reading(entries, all, {2, 0},
                          [](int i, kora::CrystalStructureDatabaseEntry const&) {
                            if (i == 120) throw std::runtime_error("no room");
                            return std::to_string(i);
                          });
  int count = 0;
  for (kora::EntryRead read; reading.next(read); ++count) {
    if (read.index == 120) {
      EXPECT_EQ(message_of(read.error), "no room");
    } else if (read.index % 97 != 50) {
      EXPECT_EQ(read.output, std::to_string(read.index));
    }
  }
  EXPECT_EQ(count, 300);
}

// A reader that stops early: the threads, waiting for room in the window, are stopped.
TEST_F(ReadAheadTest, StoppingEarlyEndsTheThreads) {
  kora::Entries const entries(write("s.sdf", sd_records(2000)));
  std::vector<int> const all = first(2000);
  for (int taken : {0, 1, 100}) {
    kora::ReadAhead reading(entries, all, {4, 10});
    EXPECT_EQ(reading.threads(), 4);
    kora::EntryRead read;
    for (int k = 0; k < taken; ++k)
      ASSERT_TRUE(reading.next(read));
  }
  // Nothing to read starts nothing and ends at once.
  kora::ReadAhead none(entries, {}, {4, 0});
  kora::EntryRead read;
  EXPECT_FALSE(none.next(read));
}

}  // namespace
