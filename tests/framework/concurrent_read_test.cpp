// Two databases over the same file, each read from its own thread, give what one thread
// reads. Built with -DKORA_TSAN=ON (make test-tsan), these tests also let ThreadSanitizer
// look for data races in the state the readers share (tables, caches, the format registry).

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

#include "kora/formats.hpp"
#include "sample_files.hpp"

namespace {

using namespace kora;
using namespace kora::test;

// Every entry read `passes` times, forwards or backwards, through a database of its own found
// through the registry; listed in entry order for each pass.
std::vector<std::string> read_all(SampleFormat const& f, std::string const& file, int passes,
                                  bool backwards) {
  FileFormat::OpenParameters const parameters{file, f.extension};
  THandle<FileFormat> const format = find_file_format(parameters);
  if (!format) throw std::runtime_error("no format takes " + file);
  THandle<EntryDatabase> const db = format->make_database(parameters);
  int const n = db->size();
  std::vector<std::string> descriptions(static_cast<std::size_t>(n * passes));
  for (int pass = 0; pass < passes; ++pass) {
    for (int k = 0; k < n; ++k) {
      int const i = backwards ? n - 1 - k : k;
      descriptions[static_cast<std::size_t>(pass * n + i)] = describe(*db->entry(i));
    }
  }
  return descriptions;
}

class ConcurrentRead : public ::testing::TestWithParam<SampleFormat> {
 protected:
  ScratchFolder scratch_;
};

// Both threads find the format through the registry and open the file at the same time; one
// reads forwards, the other backwards, so they are at different entries.
TEST_P(ConcurrentRead, TwoDatabasesOnTwoThreadsReadWhatOneThreadReads) {
  SampleFormat const& f = GetParam();
  std::string const file = scratch_.write("sample." + f.extension, f.text());
  int const passes = 4;
  auto forwards = std::async(std::launch::async, read_all, f, file, passes, false);
  auto backwards = std::async(std::launch::async, read_all, f, file, passes, true);
  std::vector<std::string> const expected = read_all(f, file, passes, false);
  ASSERT_EQ(expected.size(), static_cast<std::size_t>(f.entries * passes));
  EXPECT_EQ(forwards.get(), expected);
  EXPECT_EQ(backwards.get(), expected);
}

INSTANTIATE_TEST_SUITE_P(Formats, ConcurrentRead, ::testing::ValuesIn(sample_formats()),
                         format_name);

}  // namespace
