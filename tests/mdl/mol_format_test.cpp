#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kora/formats.hpp"
#include "kora/mdl/mol_file.hpp"
#include "kora/mdl/mol_file_file_format.hpp"
#include "mdl_test_support.hpp"

namespace {

using namespace kora;

TEST(MolFormat, DescriptionAndExamineLine) {
  MolFileFileFormat format(FileFormat::verbatim_identifiers);
  EXPECT_EQ(format.name() + format.default_extension(), "MOL filemol");
  EXPECT_FALSE(format.writeable());
  std::vector<std::string> extensions{"old"};
  format.all_extensions(extensions);
  EXPECT_EQ(extensions, (std::vector<std::string>{"mol", "sdf", "sd", "mdl"}));
  format.set_aser_compliance(FileFormat::normalised_identifiers);
  EXPECT_EQ(format.aser_compliance(), FileFormat::normalised_identifiers);

  std::string const stamp = "  3  2  0  0  0  0  0  0  0  0999 ";
  std::tuple<std::string, unsigned, bool> const cases[] = {
      {stamp + "V2000", 17, true},
      {stamp + "V3000", 1, true},
      {stamp.substr(1) + "V2000", 4, false},
      {"V2000" + stamp + "V2000", 4, false},
      {"M END", 9, true},
      {"M  END", 9, false},
      {" M END", 9, false},
      {"$$$$", 9, true},
      {"  5  4", 4, true},
      {"  5  4", 3, false},
  };
  for (auto const& [line, number, accepted] : cases)
    EXPECT_EQ(format.examine_line(line, number), accepted) << line << " @" << number;
}

TEST(MolFormat, FactoriesAndRegistry) {
  MolFileFileFormat const format(FileFormat::verbatim_identifiers);
  test::ScratchFile const sd("first record\n\n\n" + test::counts(1, 0) +
                             test::atom_line(0, 0, 0, "C") + "M  END\n$$$$\n");
  test::ScratchFile const other("just\ntext\n", ".txt");
  EXPECT_FALSE(format.make_molecule_file({other.path(), "txt"}));
  EXPECT_FALSE(format.make_database({other.path(), "txt"}));
  auto const file = handle_dynamic_cast<MolFile>(format.make_molecule_file({sd.path(), "sdf"}));
  ASSERT_TRUE(file);
  EXPECT_EQ(file->molecule()->natoms(), 0);  // not read yet
  auto const db = format.make_database({sd.path(), "sdf"});
  ASSERT_TRUE(db);
  ASSERT_EQ(db->size(), 1);
  EXPECT_EQ(db->identifier(0).str(), "first record");  // verbatim, as the descriptor says
  EXPECT_EQ(file_formats().at(1)->name(), "MOL file");
  EXPECT_EQ(find_file_format({sd.path(), "sdf"})->name(), "MOL file");
}

}  // namespace
