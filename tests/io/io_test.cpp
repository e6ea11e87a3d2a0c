// The facade: entries of any input (files, streams), one-line errors and writers. The
// summaries are checked through the command line program (tests/cli), which prints them.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "kora/io.hpp"

namespace {

namespace fs = std::filesystem;

std::string mol_block(std::string const& name, int bond_to) {
  return name +
         "\n  test\n\n  2  1  0  0  0  0  0  0  0  0999 V2000\n"
         "    0.0000    0.0000    0.0000 C   0  0  0  0  0  0  0  0  0  0  0  0\n"
         "    1.5000    0.0000    0.0000 O   0  0  0  0  0  0  0  0  0  0  0  0\n"
         "  1  " +
         std::to_string(bond_to) + "  1  0\nM  END\n> <MW>\n30.03\n\n$$$$\n";
}

// Two good records around one whose bond names an atom that does not exist.
std::string const sd_text = mol_block("first", 2) + mol_block("broken", 9) + mol_block("last", 2);

class Facade : public ::testing::Test {
 protected:
  fs::path write(std::string const& name, std::string const& text) {
    fs::path const path = dir_ / name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("kora-io-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  fs::path dir_;
};

TEST_F(Facade, StreamsAndFilesGiveTheSameEntries) {
  std::istringstream in(sd_text);
  kora::Entries const from_stream(in, "stdin");
  kora::Entries const from_file = kora::open(write("x.dat", sd_text).string());
  for (kora::Entries const* e : {&from_stream, &from_file}) {
    EXPECT_EQ(e->format(), "sdf");  // from the content: the names say nothing
    ASSERT_EQ(e->size(), 3);
    EXPECT_EQ(e->identifier(2).str(), "last");
    EXPECT_EQ(e->text(1), mol_block("broken", 9));
    EXPECT_EQ(kora::formula(*e->entry(0)), "CO");
  }
}

TEST_F(Facade, FailuresNameTheInputInOneLine) {
  std::string const path = write("bad.sdf", sd_text).string();
  kora::Entries const entries(path);
  try {
    entries.entry(1);
    FAIL() << "no exception";
  } catch (kora::database_error const& e) {
    std::string const message = e.what();
    // The record starts on line 13 of the file, after the first of twelve lines.
    EXPECT_EQ(message.rfind(path + ":13: entry 1 (broken): ", 0), 0u) << message;
    EXPECT_EQ(message.find('\n'), std::string::npos) << message;
  }
  EXPECT_THROW(entries.entry(3), kora::database_error);

  // A PDB whose cell and space group disagree: the cause without the reader's own name.
  std::string const pdb =
      write("bad.pdb",
            "HEADER    VRX ENTRY  one\n"
            "CRYST1   10.000   12.000   14.000  90.00  90.00  90.00 R 3           1\n"
            "HETATM    1  C1  UNL A   1       0.000   0.000   0.000  1.00  0.00           C\n"
            "END\n")
          .string();
  try {
    kora::open(pdb).entry(0);
    ADD_FAILURE() << "no exception";
  } catch (std::exception const& e) {
    std::string const message = e.what();
    EXPECT_EQ(message.find("::"), std::string::npos) << message;
    EXPECT_NE(message.find("Space group and unit cell inconsistent"), std::string::npos) << message;
  }

  struct Case {
    std::string path;
    char const* message;
  };
  fs::create_directories(dir_ / "folder.sdf");
  Case const cases[] = {
      {(dir_ / "none.sdf").string(), ": no such file"},
      {(dir_ / "folder.sdf").string(), ": is a directory"},
      {write("plain.txt", "no structure here\n").string(), ": unknown format"},
  };
  for (Case const& c : cases) {
    try {
      kora::open(c.path);
      ADD_FAILURE() << c.path;
    } catch (kora::io_error const& e) {
      EXPECT_EQ(std::string(e.what()), c.path + c.message);
    }
  }
}

TEST_F(Facade, WritersTakeTheirFormatFromNameOrAlias) {
  kora::Entries const entries = kora::open(write("in.sdf", sd_text).string());
  std::ostringstream mol2;
  kora::EntryWriter to_stream(mol2, "MOL2");
  to_stream.write(*entries.entry(0));
  to_stream.close();
  EXPECT_EQ(mol2.str().rfind("@<TRIPOS>MOLECULE\nfirst\n", 0), 0u) << mol2.str();

  std::string const out = (dir_ / "out.sd").string();
  kora::EntryWriter to_file(out);
  EXPECT_EQ(to_file.format(), "sdf");
  to_file.write(*entries.entry(2));
  EXPECT_FALSE(fs::exists(out));  // written in place only by close()
  to_file.close();
  EXPECT_EQ(kora::open(out).identifier(0).str(), "last");
  EXPECT_THROW(to_file.write(*entries.entry(0)), kora::output_error);

  EXPECT_THROW(kora::EntryWriter((dir_ / "out.xyz").string()), kora::unknown_format);
  EXPECT_THROW(kora::EntryWriter(mol2, "cif"), kora::unknown_format);
}

}  // namespace
