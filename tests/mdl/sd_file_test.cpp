// MOL/SD files as a whole: the format descriptor, conversion of models into records, the
// data items of a record, and the index of an SD file.

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "kora/formats.hpp"
#include "kora/framework/flat_file_database.hpp"
#include "kora/mdl/mol_file.hpp"
#include "kora/mdl/mol_file_file_format.hpp"
#include "kora/mdl/sdfile_database_entry.hpp"
#include "kora/mdl/sdfile_database_reader.hpp"
#include "mdl_test_support.hpp"

namespace {

using namespace kora;
using test::ScratchFile;
using Lines = std::vector<std::string>;
using SdDatabase = FlatFileDatabase<CrystalStructureDatabaseEntry, SDfileDatabaseReader, MolFile>;

TEST(MolFormat, DescriptionAndExamineLine) {
  MolFileFileFormat format(FileFormat::verbatim_identifiers);
  EXPECT_EQ(format.name() + format.default_extension(), "MOL filemol");
  EXPECT_FALSE(format.writeable());
  std::vector<std::string> extensions{"old"};
  format.all_extensions(extensions);
  EXPECT_EQ(extensions, (std::vector<std::string>{"mol", "sdf", "sd", "mdl"}));

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

THandle<Molecule> chain(int atoms, double x) {
  auto const m = make_handle<Molecule3d>();
  for (int i = 0; i < atoms; ++i) {
    Point const p{x + 1.5 * i, 0, 0};
    m->add_atom(THandle<Atom>(
        make_handle<FileOrderedAtom3d>(i + 1, Element("C"), "C", make_handle<Site>(p, p))));
    if (i > 0) m->add_bond(i - 1, i, single_bond);
  }
  return THandle<Molecule>(m);
}

TEST(MolConversion, MoleculeIsEmptySharedOrMerged) {
  MolFile file;
  ASSERT_TRUE(file.molecule());
  EXPECT_EQ(file.molecule()->natoms(), 0);
  test::read_mol(file,
                 test::header() + test::counts(1, 0) + test::atom_line(0, 0, 0, "C") + "M  END\n");
  EXPECT_EQ(file.molecule(), file.molecule());  // the stored molecule itself
  auto const list =
      make_handle<MoleculeList>(MoleculeList{chain(2, 0), chain(3, 10), chain(1, 20)});
  Cell const cell(5, 6, 7, Angle::from_degrees(90), Angle::from_degrees(90),
                  Angle::from_degrees(90), Spacegroup());
  file.set_version(MolFile::V3000);
  file.add(CrystalMaker(cell, list, {}, {}), DatabaseEntryIdentifier("ABC123"));
  EXPECT_EQ(file.version(), MolFile::V2000);
  EXPECT_EQ(file.molecule_name() + file.dimensional_code(), "ABC1233D");
  EXPECT_EQ(file.molecule()->natoms(), 6);
  EXPECT_EQ(file.molecule()->nbonds(), 3);
  EXPECT_TRUE(file.crystal_maker()->cell() == Cell());  // the maker's cell is not taken over
  EXPECT_NE(file.crystal_maker()->molecule(0), list->front());  // copied
  file.add(CrystalStructureImmediateDatabaseEntry(
      DatabaseEntryIdentifier("E1"), make_handle<CrystalMaker>(cell, list, nullptr, nullptr)));
  EXPECT_EQ(file.molecule_name(), "E1");
  EXPECT_EQ(file.crystal()->nmolecules(), 3);
}

TEST(MolConversion, AddCrystalThrowsAndKeepsTheRecord) {
  MolFile file;
  file.add(*chain(2, 0), DatabaseEntryIdentifier("kept"));
  EXPECT_EQ(test::message_of<std::runtime_error>(
                [&] { file.add(Crystal(Cell(), nullptr), DatabaseEntryIdentifier("lost")); }),
            "MolFile::add(const Crystal& c) is not yet implemented");
  EXPECT_EQ(file.molecule_name(), "kept");
  EXPECT_EQ(file.molecule()->natoms(), 2);
}

TEST(MolConversion, DatabaseEntrySharesTheDataItems) {
  MolFile file;
  file.add(*chain(1, 0), DatabaseEntryIdentifier("x"));
  file.add_sd_tag("logP", "1.5");
  auto const entry = handle_dynamic_cast<SDfileDatabaseEntry>(file.database_entry());
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->tags(), file.tags());
  EXPECT_EQ(entry->crystal_maker()->nmolecules(), 1);
  file.clear();  // a new collection for the file; the entry keeps the old one
  EXPECT_EQ(entry->tags()->size(), 1);
  EXPECT_TRUE(file.tags()->empty());
}

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

// A record named `name` with `atoms` unbonded carbon atoms and one data item.
std::string record(std::string const& name, int atoms) {
  std::string text = name +
                     "\n  KORATEST0101241200"
                     "3D\n\n" +
                     test::counts(atoms, 0);
  for (int i = 0; i < atoms; ++i)
    text += test::atom_line(i * 1.5, 0, 0, "C");
  return text + "M  END\n> <atoms>\n" + std::to_string(atoms) + "\n\n$$$$\n";
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

TEST(SdIndex, OneEntryPerRecordStartingAtItsNameLine) {
  std::string const first = record("ABCDEF01XY", 2);
  std::string const second = "\n\n" + record("second molecule", 3);  // blank lines first
  ScratchFile const file(first + second + record("", 1));            // blank name line
  SdDatabase const db(file.path());
  ASSERT_EQ(db.size(), 3);
  EXPECT_EQ(db.identifier(0).str() + '|' + db.identifier(1).str() + '|' + db.identifier(2).str(),
            "ABCDEF01|second m|KORATEST");
  EXPECT_EQ(db.position(1), std::streampos(first.size() + 2));
  EXPECT_EQ(db.position(2), std::streampos(first.size() + second.size()));
  int const atoms[] = {2, 3, 1};
  for (int i = 0; i < 3; ++i) {
    auto const entry = handle_dynamic_cast<SDfileDatabaseEntry>(db.entry(i));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->identifier(), db.identifier(i));
    EXPECT_EQ(entry->crystal_maker()->nmolecules(), atoms[i]);
    EXPECT_EQ(*entry->tags()->values("atoms"), std::vector<std::string>{std::to_string(atoms[i])});
  }
  SdDatabase const verbatim(file.path(), FileFormat::verbatim_identifiers);
  EXPECT_EQ(verbatim.identifier(1).str(), "second molecule");
  EXPECT_EQ(verbatim.identifier(2).str(),
            "  KORATEST0101241200"
            "3D");  // blanks are kept
}

// The index reads the file in blocks of 1 MiB; record positions must not depend on where
// the blocks end, even when a block ends between the CR and the LF of a line end.
TEST(SdIndex, PositionsHoldAcrossReadBlocksWithCrLf) {
  auto const crlf = [](std::string const& text) {
    std::string out;
    for (char c : text) {
      if (c == '\n') out += '\r';
      out += c;
    }
    return out;
  };
  constexpr std::size_t block = std::size_t(1) << 20;
  std::vector<std::string> records;
  std::size_t size = 0;
  while (size < 3 * block) {
    records.push_back(crlf(record("R" + std::to_string(records.size() + 1), 3)));
    size += records.back().size();
  }
  // Pad the data value of the last record whose value line ends before the first block's
  // end, so that the CR of that line is the block's last byte.
  std::size_t offset = 0;
  for (std::string& r : records) {
    std::size_t const value = r.find("> <atoms>\r\n") + 11;
    std::size_t const cr = offset + r.find('\r', value);
    if (cr < block - 1 && cr + r.size() >= block - 1) {
      r.insert(value, block - 1 - cr, ' ');
      break;
    }
    offset += r.size();
  }
  std::string text;
  std::vector<std::size_t> starts;
  for (std::string const& r : records) {
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
  EXPECT_EQ(db.entry(db.size() - 1)->crystal_maker()->nmolecules(), 3);
}

TEST(SdIndex, MolFileWithoutTerminatorIsOneRecord) {
  std::string text = record("single", 2);
  ScratchFile const file(text.substr(0, text.find("> <atoms>")), ".mol");
  SdDatabase const db(file.path());
  ASSERT_EQ(db.size(), 1);
  EXPECT_EQ(db.entry(0)->crystal_maker()->nmolecules(), 2);
}

TEST(SdIndex, Failures) {
  ScratchFile const empty("");
  EXPECT_EQ(test::message_of<std::runtime_error>([&] { SdDatabase{empty.path()}; }),
            "SDfileDatabase::SDfileDatabase(const std::string& filename): could not read data "
            "in file.");
  std::string const missing = empty.path() + ".missing";
  EXPECT_EQ(test::message_of<std::runtime_error>([&] { SdDatabase{missing}; }),
            "SDfileDatabase::parse() couldn't retrieve entry " + missing);
  ScratchFile const bad(record("good", 1) + "bad\n\n\n" + test::counts(5, 0) + "M  END\n$$$$\n");
  SdDatabase const db(bad.path());
  EXPECT_EQ(test::message_of<database_error>([&] { db.entry(1); }),
            "FlatFileDatabase::entry: couldn't retrieve entry 1\nThe error message was:\n\n"
            "Atom block incomplete - not enough atom lines");
}

}  // namespace
