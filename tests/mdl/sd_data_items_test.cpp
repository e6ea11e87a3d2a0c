#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "kora/mdl/mol_file.hpp"
#include "mdl_test_support.hpp"

namespace {

using kora::MolFile;
namespace test = kora::test;
using Lines = std::vector<std::string>;

std::string printed(MolFile::TagCollection const& tags) {
  std::ostringstream out;
  tags.print(out);
  return out.str();
}

TEST(SdDataItems, KeyNormalisation) {
  std::pair<char const*, char const*> const cases[] = {
      {"melting point", "> <melting.point>"},
      {"<ID> (3) ", "> <ID> (3)"},
      {" <ID> ", "> <<ID>>"},  // "<" only counts before trimming
      {"DT12", "> DT12"},
      {"DT", "> <DT>"},
      {">  <ID>  (7)", ">  <ID>  (7)"},
  };
  for (auto [name, key] : cases)
    EXPECT_EQ(MolFile::TagCollection().parse_key_in(name), key) << name;
}

TEST(SdDataItems, ReadKeepsItemsByKeyAndStopsAfterTheTerminator) {
  std::istringstream in(
      "stray text\n>  <B>  (1)\n  two  \n lines\n\n> <A>\none\n\n> <empty>\n\n"
      "> <A>\nreplaced\n$$$$\nnext record\n");
  MolFile::TagCollection tags;
  tags.read(in);
  EXPECT_EQ(tags.size(), 3);
  EXPECT_EQ(*tags.values(">  <B>  (1)"), (Lines{"  two  ", " lines"}));
  // Written in key order (">  <B>" sorts first), values trimmed, an empty item as its header.
  EXPECT_EQ(printed(tags), ">  <B>  (1)\ntwo\nlines\n\n> <A>\nreplaced\n\n> <empty>\n\n");
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line, "next record");
}

TEST(SdDataItems, AtTheEndAnOpenItemIsDroppedAndStrayLinesGoBack) {
  std::istringstream open("> <A>\n1\n\n> <B>\nvalue");
  MolFile::TagCollection tags;
  tags.read(open);
  EXPECT_EQ(tags.size(), 1);
  std::string line;
  EXPECT_FALSE(std::getline(open, line));  // its value line is consumed
  std::istringstream stray("> <A>\n1\n\nnot an item\n");
  tags.read(stray);
  std::getline(stray, line);
  EXPECT_EQ(line, "not an item");
}

// Classic reading ends a record at any line with "$$$$" in it; standard reading only at the
// separator line, so a value holding the text is kept, in V2000 and V3000 records alike.
TEST(SdDataItems, DollarsInsideAValue) {
  std::string const v2000 =
      test::header() + test::counts(1, 0) + test::atom_line(0, 0, 0, "C") + "M  END\n";
  std::string const v3000 = test::v3000_record(test::v3000_atom("1 C 0 0 0 0"));
  std::string const items = "> <price>\n5$$$$\n\n> <after>\nyes\n\n$$$$\n";
  for (std::string const& table : {v2000, v3000}) {
    for (bool const standard : {false, true}) {
      std::istringstream in(table + items);
      MolFile file;
      if (standard) file.set_read_options(kora::ReadOptions::standard_mode());
      file.read(in);
      SCOPED_TRACE(std::string(standard ? "standard " : "classic ") + table);
      ASSERT_EQ(file.molecule()->natoms(), 1);
      if (standard) {
        ASSERT_EQ(file.tags()->size(), 2);
        EXPECT_EQ(*file.tags()->values("price"), (Lines{"5$$$$"}));
        EXPECT_EQ(*file.tags()->values("after"), (Lines{"yes"}));
      } else {
        // The item that was open is kept with the values before the line.
        EXPECT_EQ(file.tags()->size(), 1);
        EXPECT_EQ(printed(*file.tags()), "> <price>\n\n");
      }
    }
  }
}

TEST(SdDataItems, AddReplacesAnItemOfTheSameKey) {
  MolFile file;
  file.add_sd_tag("zeta", "z");
  file.add_sd_tag("<id>", "1");
  file.add_sd_tag("> <id>", "2");
  file.add_sd_tag("name", kora::make_handle<Lines>(Lines{"a", "b"}));
  EXPECT_EQ(printed(*file.tags()), "> <id>\n2\n\n> <name>\na\nb\n\n> <zeta>\nz\n\n");
}

}  // namespace
