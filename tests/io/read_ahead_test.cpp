// Reading on several threads: whatever the threads and the window, the entries, their order,
// the work's results and the failures (of reading and of the work) are those of reading one
// entry at a time.

#include <gtest/gtest.h>

#include <numeric>

#include "../framework/sample_files.hpp"
#include "gzip_writer.hpp"
#include "kora/io.hpp"

namespace {

using kora::test::ScratchFolder;

// 1000 SD records; record 50 cannot be read.
std::string sd_records() {
  return kora::test::sd_entries(1000, 50);
}

std::string mol2_text(kora::CrystalStructureDatabaseEntry const& entry) {
  return kora::entry_text(entry, "mol2", kora::WriteOptions::standard_mode());
}

// What reading entry i one at a time gives: its Mol2 text, or the failure's message.
std::string expected(kora::Entries const& entries, int i) {
  try {
    return mol2_text(*entries.entry(i));
  } catch (kora::database_error const& e) {
    return std::string("failed: ") + e.what();
  }
}

// What reading ahead gives, with work that fails for entry 147.
std::vector<std::string> read_ahead(kora::Entries const& entries, std::vector<int> indices,
                                    kora::ReadAheadOptions const& options) {
  kora::ReadAhead reading(entries, indices, options,
                          [](int i, kora::CrystalStructureDatabaseEntry const& e) {
                            if (i == 147) throw std::runtime_error("no room");
                            return mol2_text(e);
                          });
  std::vector<std::string> got;
  for (kora::EntryRead read; reading.next(read);) {
    EXPECT_EQ(read.index, indices.at(got.size()));
    EXPECT_EQ(read.entry == nullptr, read.error != nullptr && read.index != 147);
    got.push_back(read.error ? "failed: " + kora::test::thrown_message<std::exception>(
                                                [&] { std::rethrow_exception(read.error); })
                             : read.output);
  }
  return got;
}

std::vector<int> first(int count) {
  std::vector<int> indices(static_cast<std::size_t>(count));
  std::iota(indices.begin(), indices.end(), 0);
  return indices;
}

TEST(ReadAheadTest, EveryThreadCountAndWindowGivesTheEntriesInOrder) {
  ScratchFolder const scratch;
  std::string const text = sd_records();
  for (std::string const& path :
       {scratch.write("r.sdf", text), scratch.write("r.sdf.gz", kora::test::gzip(text))}) {
    kora::Entries const entries(path);
    ASSERT_EQ(entries.size(), 1000);
    // The failures are those of reading one at a time, worded the same.
    EXPECT_EQ(expected(entries, 50).rfind("failed: " + path + ":", 0), 0u) << expected(entries, 50);
    // All, and out of order and repeated, as a caller may ask.
    for (std::vector<int> const& indices : {first(1000), std::vector<int>{999, 3, 3, 50, 0, 147}}) {
      std::vector<std::string> want;
      for (int i : indices)
        want.push_back(i == 147 ? "failed: no room" : expected(entries, i));
      for (int threads : {1, 2, 3, 8}) {
        for (int window : {0, 1, 5000}) {
          SCOPED_TRACE(path + ", " + std::to_string(indices.size()) + " entries, " +
                       std::to_string(threads) + " threads, window " + std::to_string(window));
          EXPECT_EQ(read_ahead(entries, indices, {threads, window}), want);
        }
      }
    }
  }
}

// A reader that stops early: the threads, waiting for room in the window, are stopped.
TEST(ReadAheadTest, StoppingEarlyEndsTheThreads) {
  ScratchFolder const scratch;
  kora::Entries const entries(scratch.write("s.sdf", sd_records()));
  for (int taken : {0, 1, 100}) {
    kora::ReadAhead reading(entries, first(1000), {4, 10});
    EXPECT_EQ(reading.threads(), 4);
    kora::EntryRead read;
    for (int k = 0; k < taken; ++k)
      ASSERT_TRUE(reading.next(read));
  }
}

}  // namespace
