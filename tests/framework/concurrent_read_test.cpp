// Two databases over the same file, each read from its own thread, give what one thread
// reads. Built with -DKORA_TSAN=ON (make test-tsan), these tests also let ThreadSanitizer
// look for data races in the state the readers share (tables, caches, the format registry).

#include <gtest/gtest.h>

#include <cstdio>
#include <exception>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "kora/formats.hpp"
#include "sample_files.hpp"

namespace {

using namespace kora;
using namespace kora::test;

// What the tests compare of an entry: its printed description (identifier, counts, cell),
// then every atom of every molecule with its element, SYBYL type and coordinates.
std::string describe(CrystalStructureDatabaseEntry const& entry) {
  std::ostringstream text;
  entry.print(text);
  THandle<CrystalMaker> const maker = entry.crystal_maker();
  for (int m = 0; m < maker->nmolecules(); ++m) {
    THandle<Molecule> const molecule = maker->molecule(m);
    for (int i = 0; i < molecule->natoms(); ++i) {
      THandle<Atom> const atom = molecule->atom(i);
      Point const p = atom->site()->orthogonal();
      char coordinates[96];
      std::snprintf(coordinates, sizeof coordinates, " %.6f %.6f %.6f\n", p[0], p[1], p[2]);
      text << atom->label() << ' ' << atom->element().symbol() << ' '
           << molecule->atom_sybyl_type(i) << coordinates;
    }
  }
  return text.str();
}

// Opens its own database over the file and reads every entry `passes` times, forwards or
// backwards; the descriptions are listed in entry order for each pass.
std::vector<std::string> read_all(SampleFormat const& f, std::string const& file, int passes,
                                  bool backwards) {
  THandle<EntryDatabase> const db = f.open(file);
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

// Runs `work` on two threads at once; an exception on either fails the test.
template <class Work>
void on_two_threads(Work work) {
  std::exception_ptr errors[2];
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&work, &errors, t] {
      try {
        work(t);
      } catch (...) {
        errors[t] = std::current_exception();
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  for (std::exception_ptr const& error : errors) {
    if (!error) continue;
    try {
      std::rethrow_exception(error);
    } catch (std::exception const& e) {
      ADD_FAILURE() << "a thread threw: " << e.what();
    }
  }
}

class ConcurrentRead : public ::testing::TestWithParam<SampleFormat> {
 protected:
  ScratchFolder scratch_;
};

TEST_P(ConcurrentRead, TwoDatabasesOnTwoThreadsReadWhatOneThreadReads) {
  SampleFormat const& f = GetParam();
  std::string const file = scratch_.write("sample." + f.extension, f.text());
  int const passes = 4;
  std::vector<std::string> const expected = read_all(f, file, passes, false);
  ASSERT_EQ(expected.size(), static_cast<std::size_t>(f.entries * passes));
  // A description with no atoms would make the comparison say little.
  EXPECT_NE(expected.front().find(f.identifier(0)), std::string::npos);
  EXPECT_NE(expected.back().find(f.name == "RES" ? " C " : " O "), std::string::npos);

  std::vector<std::string> read[2];
  // One thread reads forwards, the other backwards, so they are at different entries.
  on_two_threads([&](int t) { read[t] = read_all(f, file, passes, t == 1); });
  EXPECT_EQ(read[0], expected);
  EXPECT_EQ(read[1], expected);
}

// Both threads find the format through the registry and open the file at the same time.
TEST_P(ConcurrentRead, RegistryOpensTheSameFileOnTwoThreads) {
  SampleFormat const& f = GetParam();
  std::string const file = scratch_.write("sample." + f.extension, f.text());
  auto const identifiers = [&file, &f] {
    FileFormat::OpenParameters const parameters{file, f.extension};
    THandle<FileFormat> const format = find_file_format(parameters);
    if (!format) throw std::runtime_error("no format takes " + file);
    THandle<EntryDatabase> const db = format->make_database(parameters);
    std::vector<std::string> names;
    for (int i = 0; i < db->size(); ++i)
      names.push_back(db->entry(i)->identifier().str());
    return names;
  };
  std::vector<std::string> read[2];
  on_two_threads([&](int t) { read[t] = identifiers(); });
  std::vector<std::string> const expected = identifiers();
  EXPECT_EQ(expected.size(), static_cast<std::size_t>(f.entries));
  EXPECT_EQ(read[0], expected);
  EXPECT_EQ(read[1], expected);
}

INSTANTIATE_TEST_SUITE_P(Formats, ConcurrentRead, ::testing::ValuesIn(sample_formats()),
                         format_name);

}  // namespace
