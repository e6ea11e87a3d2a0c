// The facade: entries of any input (files, streams), one-line errors and writers. The
// summaries are checked through the command line program (tests/cli), which prints them.

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>

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
  // The record starts on line 15 of the file, after the first of fourteen lines.
  std::string const message =
      kora::test::thrown_message<kora::database_error>([&] { entries.entry(1); });
  EXPECT_EQ(message.rfind(path + ":15: entry 1 (mol1): ", 0), 0u) << message;
  EXPECT_EQ(message.find('\n'), std::string::npos) << message;

  // A PDB whose cell and space group disagree: the cause without the reader's own name.
  std::string const pdb = scratch.write(
      "bad.pdb",
      "HEADER    VRX ENTRY  one\n"
      "CRYST1   10.000   12.000   14.000  90.00  90.00  90.00 R 3           1\n"
      "HETATM    1  C1  UNL A   1       0.000   0.000   0.000  1.00  0.00           C\n"
      "END\n");
  std::string const cause =
      kora::test::thrown_message<std::exception>([&] { kora::open(pdb).entry(0); });
  EXPECT_EQ(cause.find("::"), std::string::npos) << cause;
  EXPECT_NE(cause.find("Space group and unit cell inconsistent"), std::string::npos) << cause;

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

TEST(Facade, WritersTakeTheirFormatFromNameOrAlias) {
  ScratchFolder const scratch;
  kora::Entries const entries = kora::open(scratch.write("in.sdf", sd_text));
  std::ostringstream mol2;
  kora::EntryWriter to_stream(mol2, "MOL2");
  to_stream.write(*entries.entry(0));
  to_stream.close();
  EXPECT_EQ(mol2.str().rfind("@<TRIPOS>MOLECULE\nmol0\n", 0), 0u) << mol2.str();

  std::string const out = (scratch.path() / "out.sd").string();
  kora::EntryWriter to_file(out);
  EXPECT_EQ(to_file.format(), "sdf");
  to_file.write(*entries.entry(2));
  EXPECT_FALSE(std::filesystem::exists(out));  // written in place only by close()
  to_file.close();
  EXPECT_EQ(kora::open(out).identifier(0).str(), "mol2");
  EXPECT_THROW(to_file.write(*entries.entry(0)), kora::output_error);
  EXPECT_THROW(kora::EntryWriter((scratch.path() / "out.xyz").string()), kora::unknown_format);
  EXPECT_THROW(kora::EntryWriter(mol2, "cif"), kora::unknown_format);
}

}  // namespace
