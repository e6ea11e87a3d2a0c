// The facade: entries of any input (files, streams) and one-line errors. The summaries and
// writers are checked through the command line program (tests/cli).

#include <gtest/gtest.h>

#include "../framework/sample_files.hpp"
#include "kora/io.hpp"

namespace {

using kora::test::ScratchFolder;

// Three records of 3, 4 and 5 atoms; the second cannot be read.
std::string const sd_text = kora::test::sd_entries(3, 1);

TEST(Facade, StreamsAndFilesGiveTheSameEntries) {
  ScratchFolder const scratch;
  std::istringstream in(sd_text);
  kora::Entries const from_stream(in, "stdin");
  kora::Entries const from_file = kora::open(scratch.write("x.dat", sd_text));
  for (kora::Entries const* e : {&from_stream, &from_file}) {
    EXPECT_EQ(e->format(), "sdf");  // from the content: the names say nothing
    ASSERT_EQ(e->size(), 3);
    EXPECT_EQ(e->identifier(2).str(), "mol2");
    EXPECT_EQ(e->text(0) + e->text(1) + e->text(2), sd_text);
    EXPECT_EQ(kora::formula(*e->entry(0)), "C2O");
  }
}

TEST(Facade, FailuresNameTheInputInOneLine) {
  ScratchFolder const scratch;
  std::string const path = scratch.write("bad.sdf", sd_text);
  kora::Entries const entries(path);
  std::string const message =
      kora::test::thrown_message<kora::database_error>([&] { entries.entry(1); });
  // The record starts on line 15; the cause is the last line of the reader's message.
  EXPECT_EQ(message,
            path + ":15: entry 1 (mol1): Unable to create bonds - incorrect lines in file");

  std::filesystem::create_directories(scratch.path() / "folder.sdf");
  std::pair<std::string, char const*> const cases[] = {
      {(scratch.path() / "none.sdf").string(), ": no such file"},
      {(scratch.path() / "folder.sdf").string(), ": is a directory"},
      {scratch.write("plain.txt", "no structure here\n"), ": unknown format"},
  };
  for (auto const& [file, error] : cases) {
    EXPECT_EQ(kora::test::thrown_message<kora::io_error>([&] { kora::open(file); }), file + error);
  }
}

}  // namespace
