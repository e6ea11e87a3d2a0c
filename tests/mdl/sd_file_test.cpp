// MOL/SD files as a whole: the format descriptor, conversion of models into records, the
// data items of a record, and the index of an SD file.

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "kora/framework/flat_file_database.hpp"
#include "kora/mdl/mol_file.hpp"
#include "kora/mdl/mol_file_file_format.hpp"
#include "kora/mdl/sdfile_database_entry.hpp"
#include "kora/mdl/sdfile_database_reader.hpp"
#include "mdl_test_support.hpp"

namespace {

using namespace kora;
using test::message_of;
using test::ScratchFile;
using Lines = std::vector<std::string>;
using SdDatabase = FlatFileDatabase<CrystalStructureDatabaseEntry, SDfileDatabaseReader, MolFile>;

TEST(MolFormat, ExamineLine) {
  MolFileFileFormat const format(FileFormat::verbatim_identifiers);
  std::string const stamp = "  3  2  0  0  0  0  0  0  0  0999 ";
  std::tuple<std::string, unsigned, bool> const cases[] = {
      {stamp + "V3000", 1, true}, {stamp.substr(1) + "V2000", 4, false},
      {"M END", 9, true},         {"M  END", 9, false},
      {"$$$$", 9, true},          {"  5  4", 4, true},
      {"  5  4", 3, false},
  };
  for (auto const& [line, number, accepted] : cases)
    EXPECT_EQ(format.examine_line(line, number), accepted) << line << " @" << number;
}

// A chain of `atoms` carbon atoms, read from MOL text.
THandle<Molecule> chain(int atoms) {
  MolFile file;
  test::read_mol(file, test::block("c", atoms));
  return file.molecule();
}

// Adding a model merges its molecules into the record's molecule, takes the entry's name and
// resets the version and dimension.
TEST(MolConversion, AddedModelsAreMerged) {
  MolFile file;
  EXPECT_EQ(file.molecule()->natoms(), 0);
  auto const list = make_handle<MoleculeList>(MoleculeList{chain(2), chain(3), chain(1)});
  Cell const cell(5, 6, 7, Angle::from_degrees(90), Angle::from_degrees(90),
                  Angle::from_degrees(90), Spacegroup());
  file.set_version(MolFile::V3000);
  file.add(CrystalMaker(cell, list, {}, {}), DatabaseEntryIdentifier("ABC123"));
  EXPECT_EQ(file.version(), MolFile::V2000);
  EXPECT_EQ(file.molecule_name() + file.dimensional_code(), "ABC1233D");
  EXPECT_EQ(file.molecule()->natoms(), 6);
  EXPECT_EQ(file.molecule()->nbonds(), 3);
  EXPECT_TRUE(file.crystal_maker()->cell() == Cell());  // the maker's cell is not taken over
  file.add(CrystalStructureImmediateDatabaseEntry(
      DatabaseEntryIdentifier("E1"), make_handle<CrystalMaker>(cell, list, nullptr, nullptr)));
  EXPECT_EQ(file.crystal()->nmolecules(), 3);
  EXPECT_EQ(file.molecule_name(), "E1");
}

std::string printed(MolFile::TagCollection const& tags) {
  std::ostringstream out;
  tags.print(out);
  return out.str();
}

TEST(SdDataItems, ReadKeepsItemsByKeyAndStopsAfterTheTerminator) {
  std::istringstream in(
      "stray text\n>  <B>  (1)\n  two  \n lines\n\n> <A>\none\n\n> <empty>\n\n"
      "> <A>\nreplaced\n$$$$\nnext record\n");
  MolFile::TagCollection tags;
  tags.read(in);
  EXPECT_EQ(*tags.values(">  <B>  (1)"), (Lines{"  two  ", " lines"}));
  // Written in key order (">  <B>" sorts first), values trimmed, an empty item as its header.
  EXPECT_EQ(printed(tags), ">  <B>  (1)\ntwo\nlines\n\n> <A>\nreplaced\n\n> <empty>\n\n");
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line, "next record");
}

// Classic reading ends a record at any line with "$$$$" in it, keeping the open item with the
// values before the line; standard reading only at the separator line, so a value holding the
// text is kept, in V2000 and V3000 records alike.
TEST(SdDataItems, DollarsInsideAValue) {
  std::string const items = "> <price>\n5$$$$\n\n> <after>\nyes\n\n$$$$\n";
  for (std::string const& table :
       {test::block("m", 1), test::v3000_record(test::v3000_atom("1 C 0 0 0 0"))}) {
    for (bool const standard : {false, true}) {
      std::istringstream in(table + items);
      MolFile file;
      if (standard) file.set_read_options(kora::ReadOptions::standard_mode());
      file.read(in);
      EXPECT_EQ(file.molecule()->natoms(), 1);
      EXPECT_EQ(printed(*file.tags()),
                standard ? "> <after>\nyes\n\n> <price>\n5$$$$\n\n" : "> <price>\n\n")
          << table;
    }
  }
}

// Keys are normalised ("<" only counts before trimming) and an item replaces one of the same key.
TEST(SdDataItems, AddNormalisesKeysAndReplacesItems) {
  MolFile file;
  file.add_sd_tag("zeta", "z");
  file.add_sd_tag("<id>", "1");
  file.add_sd_tag("> <id>", "2");
  file.add_sd_tag("melting point", "3");
  file.add_sd_tag(" <x> ", "4");
  file.add_sd_tag("DT12", "5");
  file.add_sd_tag("name", kora::make_handle<Lines>(Lines{"a", "b"}));
  EXPECT_EQ(printed(*file.tags()),
            "> <<x>>\n4\n\n> <id>\n2\n\n> <melting.point>\n3\n\n> <name>\na\nb\n\n> <zeta>\nz\n\n"
            "> DT12\n5\n\n");
}

// A record named `name` with a chain of `atoms` atoms and one data item.
std::string record(std::string const& name, int atoms) {
  return test::block(name, atoms) + "> <atoms>\n" + std::to_string(atoms) + "\n\n$$$$\n";
}

TEST(SdIndex, NormalisedIdentifiers) {
  std::tuple<char const*, char const*, bool> const cases[] = {
      {"ABCDEF01XY", "ABCDEF01", true},   {"ABCDEF00XY", "ABCDEF", true},
      {" benzene\t", "benzene", true},    {"ab", "ab____", true},
      {"abcdefghijkl", "abcdefgh", true}, {"ABCDE1F0XY", "ABCDE1F0", true},
      {"  \r", "UNKNWN", false},          {"cost $5", "UNKNWN", false},
  };
  for (auto [line, expected, found] : cases) {
    std::string id = "old";
    EXPECT_EQ(SDfileDatabaseReader::set_entry_identifier(line, id, false), found) << line;
    EXPECT_EQ(id, expected) << line;
  }
  std::string id;
  EXPECT_FALSE(SDfileDatabaseReader::set_entry_identifier("benzene", id, true));
  EXPECT_EQ(id, "UNKNWN");
}

// The index reads the file in blocks of 1 MiB; record positions must not depend on where
// the blocks end, even when a block ends between the CR and the LF of a line end.
TEST(SdIndex, PositionsHoldAcrossReadBlocksWithCrLf) {
  constexpr std::size_t block = std::size_t(1) << 20;
  std::string text;
  std::vector<std::size_t> starts;
  while (text.size() < 3 * block) {
    std::string r;
    for (char c : record("R" + std::to_string(starts.size() + 1), 3))
      r += c == '\n' ? std::string("\r\n") : std::string(1, c);
    // The record whose data value line ends across the first block's end is padded there, so
    // that the CR of that line is the block's last byte.
    std::size_t const value = r.find("> <atoms>\r\n") + 11;
    std::size_t const cr = text.size() + r.find('\r', value);
    if (cr < block - 1 && cr + r.size() >= block - 1) r.insert(value, block - 1 - cr, ' ');
    starts.push_back(text.size());
    text += r;
  }
  ASSERT_EQ(text[block - 1], '\r');
  ASSERT_EQ(text[block], '\n');
  ScratchFile const file(text);
  SdDatabase const db(file.path(), FileFormat::verbatim_identifiers);
  ASSERT_EQ(db.size(), static_cast<int>(starts.size()));
  for (std::size_t i = 0; i < starts.size(); ++i) {
    ASSERT_EQ(db.position(static_cast<int>(i)), std::streampos(starts[i])) << i;
    ASSERT_EQ(db.identifier(static_cast<int>(i)).str(), "R" + std::to_string(i + 1));
  }
  EXPECT_EQ(test::atoms_of(*db.entry(db.size() - 1)), 3);
}

// An entry that cannot be read fails with the reader's message.
TEST(SdIndex, Failures) {
  ScratchFile const bad(record("good", 1) + "bad\n\n\n" + test::counts(5, 0) + "M  END\n$$$$\n");
  SdDatabase const db(bad.path());
  EXPECT_EQ(message_of<database_error>([&] { db.entry(1); }),
            "FlatFileDatabase::entry: couldn't retrieve entry 1\nThe error message was:\n\n"
            "Atom block incomplete - not enough atom lines");
}

}  // namespace
