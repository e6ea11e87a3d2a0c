// How SD files whose MOL blocks are not each closed by "$$$$" are cut into entries: older
// files without the V2000 stamp or "M  END", blocks without "$$$$" between them, blocks cut
// short at the end of the file, and MOL text quoted inside data items.

#include <gtest/gtest.h>

#include <cstdio>
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
using test::ScratchFile;

// A chain of `atoms` carbon atoms named `name`: header, counts line (stamped V2000, or in
// the older form without the stamp), atom and bond lines, and "M  END" unless left out.
std::string block(std::string const& name, int atoms, bool stamped = true, bool end = true) {
  char counts[64];
  std::snprintf(
      counts, sizeof counts,
      stamped ? "%3d%3d  0  0  0  0  0  0  0  0999 V2000\n" : "%3d%3d  0  0  0  0  0  0  0  0  1\n",
      atoms, atoms - 1);
  std::string text = name + "\n  KORATEST0101241200" + "3D\n\n" + counts;
  for (int i = 0; i < atoms; ++i)
    text += test::atom_line(1.5 * i, 0, 0, "C");
  for (int i = 1; i < atoms; ++i) {
    char bond[32];
    std::snprintf(bond, sizeof bond, "%3d%3d  1  0\n", i, i + 1);
    text += bond;
  }
  return end ? text + "M  END\n" : text;
}

// The block with a comment on its third line, so that none of its lines is empty.
std::string with_comment(std::string text) {
  return text.insert(text.find("\n\n") + 1, "comment");
}

std::string item(std::string const& name, std::string const& value) {
  return "> <" + name + ">\n" + value + "\n\n";
}

// What one mode makes of a text: the identifier and atom count of each entry, in order, and
// the value of data item "n" where the entry has one. An empty list: the index lists none.
struct Entry {
  std::string identifier;
  int atoms;  // -1: reading the entry fails
  std::string n = "";
};

struct Case {
  char const* what;
  std::string text;
  std::vector<Entry> classic;
  std::vector<Entry> standard;
};

std::vector<Case> cases() {
  std::string const marked = block("first", 3) + item("n", "1");
  return {
      {"records closed by $$$$",
       marked + "$$$$\n" + block("second", 4) + item("n", "2") + "$$$$\n",
       {{"first", 3, "1"}, {"second", 4, "2"}},
       {{"first", 3, "1"}, {"second", 4, "2"}}},
      {"counts lines without the V2000 stamp",
       block("first", 3, false) + "$$$$\n" + block("second", 4, false) + "$$$$\n",
       {{"first", 3}, {"second", 4}},
       {{"first", 3}, {"second", 4}}},
      {"unstamped counts lines, no M  END, data items after the bonds",
       block("first", 3, false, false) + item("n", "1") + "$$$$\n" +
           block("second", 4, false, false) + item("n", "2") + "$$$$\n",
       {},
       {{"first", 3, "1"}, {"second", 4, "2"}}},
      {"two MOL blocks without $$$$ between them",
       block("first", 3) + block("second", 4),
       {{"first", 3}},
       {{"first", 3}, {"second", 4}}},
      {"two blocks with data items and no $$$$ between them",
       marked + block("second", 4) + item("n", "2") + "$$$$\n",
       {{"first", 3, "2"}},  // the record's later item replaces the earlier
       {{"first", 3, "1"}, {"second", 4, "2"}}},
      {"blank titles are told apart in standard reading",
       block("", 3) + "$$$$\n" + block("", 4) + "$$$$\n",
       {{"  KORATEST01012412003D", 3}, {"  KORATEST01012412003D", 4}},
       {{"ENTRY1", 3}, {"ENTRY2", 4}}},
      {"a blank name line right after M  END",
       block("first", 3) + block("", 4) + "$$$$\n",
       {{"first", 3}},
       {{"first", 3}, {"ENTRY2", 4}}},
      {"a last block without M  END",
       marked + "$$$$\n" + block("second", 4, true, false),
       {{"first", 3, "1"}},
       {{"first", 3, "1"}, {"second", 4}}},
      {"a block cut short in its atoms",
       marked + "$$$$\n" + block("second", 6).substr(0, block("second", 6).find("    6.0000")),
       {{"first", 3, "1"}},
       {{"first", 3, "1"}, {"second", 4}}},
      {"a molfile quoted whole inside a data value",
       block("first", 3) + "> <mol>\n" + with_comment(block("inner", 2)) + "\n" + item("n", "1") +
           "$$$$\n" + block("second", 4) + "$$$$\n",
       {{"first", 3, "1"}, {"second", 4}},
       {{"first", 3, "1"}, {"second", 4}}},
      {"a quoted molfile whose blank comment line closes the data item",
       block("first", 3) + "> <mol>\n" + block("inner", 2) + "\n" + item("n", "1") + "$$$$\n",
       {{"first", 3, "1"}},
       {{"first", 3, "1"}}},
      {"M  END as a data value",
       block("first", 3) + item("note", "M  END") + item("n", "1") + "$$$$\n" + block("second", 4) +
           "$$$$\n",
       {{"first", 3, "1"}, {"second", 4}},
       {{"first", 3, "1"}, {"second", 4}}},
      {"$$$$ as a data value ends the record",
       block("first", 3) + "> <note>\n$$$$\nM  END\n\n" + block("second", 4) + "$$$$\n",
       {{"first", 3}, {"M  END", -1}},
       {{"first", 3}, {"second", 4}}},
      {"numbers outside the data items",
       marked + "stray\nlines\nhere\n  3  2\nnot an atom line\n$$$$\n",
       {{"first", 3, "1"}},
       {{"first", 3, "1"}}},
  };
}

int atoms_of(CrystalStructureDatabaseEntry const& entry) {
  THandle<CrystalMaker> const maker = entry.crystal_maker();
  int atoms = 0;
  for (int m = 0; m < maker->nmolecules(); ++m)
    atoms += maker->molecule(m)->natoms();
  return atoms;
}

class SdBlocks : public ::testing::TestWithParam<Mode> {};

TEST_P(SdBlocks, EachModeFindsItsEntriesAtDistinctPositions) {
  ReadOptions options;
  options.mode = GetParam();
  for (Case const& c : cases()) {
    SCOPED_TRACE(c.what);
    ScratchFile const file(c.text);
    MolFileFileFormat const format(FileFormat::verbatim_identifiers);
    std::vector<Entry> const& expected = options.standard() ? c.standard : c.classic;
    if (expected.empty()) {
      // Classic: no record ended by "$$$$" and "M  END" alike; the index lists none.
      auto const db = format.make_database({file.path(), "sdf", options});
      ASSERT_TRUE(db);
      EXPECT_EQ(db->size(), 0);
      continue;
    }
    auto const db = format.make_database({file.path(), "sdf", options});
    ASSERT_TRUE(db);
    auto const index = handle_dynamic_cast<FlatFileDatabaseIndex>(db);
    ASSERT_TRUE(index);
    EXPECT_EQ(index->read_options().mode, options.mode);
    ASSERT_EQ(db->size(), static_cast<int>(expected.size()));
    for (int i = 0; i < db->size(); ++i) {
      if (i > 0) {
        EXPECT_LT(index->position(i - 1), index->position(i)) << i;
      }
      Entry const& e = expected[static_cast<std::size_t>(i)];
      EXPECT_EQ(db->identifier(i).str(), e.identifier) << i;
      if (e.atoms < 0) {
        EXPECT_THROW(db->entry(i), database_error) << i;
        continue;
      }
      auto const entry = handle_dynamic_cast<SDfileDatabaseEntry>(db->entry(i));
      ASSERT_TRUE(entry);
      EXPECT_EQ(entry->identifier().str(), e.identifier) << i;
      EXPECT_EQ(atoms_of(*entry), e.atoms) << i;
      auto const n = entry->tags()->values("n");
      EXPECT_EQ(n ? n->front() : "", e.n) << i;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Modes, SdBlocks, ::testing::Values(Mode::classic, Mode::standard),
                         [](::testing::TestParamInfo<Mode> const& info) {
                           return info.param == Mode::classic ? "Classic" : "Standard";
                         });

// A MOL file whose only block ends before "M  END": classic finds no record; standard reads
// what there is, also of a V3000 table cut short.
TEST(SdBlocks, BlockCutShortAtTheEndOfTheFile) {
  std::string const v3000 =
      "cut\n  KORATEST01012412003D\n\n  0  0  0     0  0            999 V3000\n"
      "M  V30 BEGIN CTAB\nM  V30 COUNTS 3 2 0 0 0\nM  V30 BEGIN ATOM\n"
      "M  V30 1 C 0 0 0 0\nM  V30 2 O 1.2 0 0 0\n";
  for (auto const& [text, atoms] : {std::pair{block("only", 5, true, false), 5}, {v3000, 2}}) {
    ScratchFile const file(text, ".mol");
    MolFileFileFormat const format(FileFormat::verbatim_identifiers);
    EXPECT_EQ(test::message_of<std::runtime_error>([&] {
                format.make_database({file.path(), "mol"});
              }),
              "SDfileDatabase::SDfileDatabase(const std::string& filename): could not read data "
              "in file.");
    auto const db = format.make_database({file.path(), "mol", ReadOptions::standard_mode()});
    ASSERT_EQ(db->size(), 1);
    EXPECT_EQ(atoms_of(*db->entry(0)), atoms);
  }
}

}  // namespace
