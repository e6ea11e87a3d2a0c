// How SD files whose MOL blocks are not each closed by "$$$$" are cut into entries: older
// files without the V2000 stamp or "M  END", blocks without "$$$$" between them, blocks cut
// short at the end of the file, and MOL text quoted inside data items.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "kora/framework/flat_file_database.hpp"
#include "kora/mdl/mol_file.hpp"
#include "kora/mdl/mol_file_file_format.hpp"
#include "kora/mdl/sdfile_database_entry.hpp"
#include "mdl_test_support.hpp"

namespace {

using namespace kora;
using test::atoms_of;
using test::block;
using test::ScratchFile;

// The block with a comment on its third line, so that none of its lines is empty.
std::string with_comment(std::string text) {
  return text.insert(text.find("\n\n") + 1, "comment");
}

std::string item(std::string const& name, std::string const& value) {
  return "> <" + name + ">\n" + value + "\n\n";
}

// What each mode makes of a text: each entry as "identifier atoms" and the value of data item
// "n" where it has one ("!" where reading the entry fails), entries separated by "|".
struct Case {
  char const* what;
  std::string text;
  char const* classic;
  char const* standard;
};

std::vector<Case> cases() {
  std::string const marked = block("first", 3) + item("n", "1");
  std::string const cut = block("second", 6).substr(0, block("second", 6).find("    6.0000"));
  return {
      {"records closed by $$$$", marked + "$$$$\n" + block("second", 4) + item("n", "2") + "$$$$\n",
       "first 3 1|second 4 2", "first 3 1|second 4 2"},
      {"unstamped counts lines, no M  END, data items after the bonds",
       block("first", 3, false, false) + item("n", "1") + "$$$$\n" +
           block("second", 4, false, false) + item("n", "2") + "$$$$\n",
       "", "first 3 1|second 4 2"},
      {"two MOL blocks without $$$$ between them", block("first", 3) + block("second", 4),
       "first 3", "first 3|second 4"},
      {"two blocks with data items and no $$$$ between them (the later item replaces the earlier)",
       marked + block("second", 4) + item("n", "2") + "$$$$\n", "first 3 2",
       "first 3 1|second 4 2"},
      {"blank titles are told apart in standard reading",
       block("", 3) + "$$$$\n" + block("", 4) + "$$$$\n",
       "  KORATEST01012412003D 3|  KORATEST01012412003D 4", "ENTRY1 3|ENTRY2 4"},
      {"a blank name line right after M  END", block("first", 3) + block("", 4) + "$$$$\n",
       "first 3", "first 3|ENTRY2 4"},
      {"a last block without M  END", marked + "$$$$\n" + block("second", 4, true, false),
       "first 3 1", "first 3 1|second 4"},
      {"a block cut short in its atoms", marked + "$$$$\n" + cut, "first 3 1",
       "first 3 1|second 4"},
      {"a molfile quoted whole inside a data value",
       block("first", 3) + "> <mol>\n" + with_comment(block("inner", 2)) + "\n" + item("n", "1") +
           "$$$$\n" + block("second", 4) + "$$$$\n",
       "first 3 1|second 4", "first 3 1|second 4"},
      {"$$$$ as a data value ends the record",
       block("first", 3) + "> <note>\n$$$$\nM  END\n\n" + block("second", 4) + "$$$$\n",
       "first 3|M  END !", "first 3|second 4"},
  };
}

class SdBlocks : public ::testing::TestWithParam<Mode> {};

TEST_P(SdBlocks, EachModeFindsItsEntriesAtDistinctPositions) {
  ReadOptions options;
  options.mode = GetParam();
  for (Case const& c : cases()) {
    ScratchFile const file(c.text);
    auto const db = MolFileFileFormat(FileFormat::verbatim_identifiers)
                        .make_database({file.path(), "sdf", options});
    auto const index = handle_dynamic_cast<FlatFileDatabaseIndex>(db);
    EXPECT_EQ(index->read_options().mode, options.mode);
    std::string found;
    for (int i = 0; i < db->size(); ++i) {
      if (i > 0) {
        EXPECT_LT(index->position(i - 1), index->position(i)) << c.what;
        found += '|';
      }
      found += db->identifier(i).str();
      try {
        auto const entry = handle_dynamic_cast<SDfileDatabaseEntry>(db->entry(i));
        EXPECT_EQ(entry->identifier(), db->identifier(i)) << c.what;
        auto const n = entry->tags()->values("n");
        found += ' ' + std::to_string(atoms_of(*entry)) + (n ? ' ' + n->front() : "");
      } catch (database_error const&) {
        found += " !";
      }
    }
    EXPECT_EQ(found, options.standard() ? c.standard : c.classic) << c.what;
  }
}

INSTANTIATE_TEST_SUITE_P(Modes, SdBlocks, ::testing::Values(Mode::classic, Mode::standard),
                         [](::testing::TestParamInfo<Mode> const& info) {
                           return info.param == Mode::classic ? "Classic" : "Standard";
                         });

// A MOL file whose only block ends before "M  END": classic finds no record; standard reads
// what there is.
TEST(SdBlocks, BlockCutShortAtTheEndOfTheFile) {
  ScratchFile const file(block("only", 5, true, false), ".mol");
  MolFileFileFormat const format(FileFormat::verbatim_identifiers);
  EXPECT_EQ(test::message_of<std::runtime_error>([&] {
              format.make_database({file.path(), "mol"});
            }),
            "SDfileDatabase::SDfileDatabase(const std::string& filename): could not read data "
            "in file.");
  auto const db = format.make_database({file.path(), "mol", ReadOptions::standard_mode()});
  ASSERT_EQ(db->size(), 1);
  EXPECT_EQ(atoms_of(*db->entry(0)), 5);
}

}  // namespace
