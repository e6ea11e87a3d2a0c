#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <istream>
#include <string>
#include <vector>

#include "kora/formats.hpp"
#include "kora/framework/file_format.hpp"
#include "kora/framework/flat_file_database.hpp"
#include "kora/kernel/string_functions.hpp"

namespace {

using namespace kora;

// A tiny format for these tests: an entry starts with "BEGIN name" and holds one line per
// atom; a line "FAIL" makes reading throw.
class ToyFile : public MoleculeFile {
 public:
  void read(std::istream& is) override {
    std::string line;
    while (kora::getline(is, line)) {
      if (line.rfind("BEGIN ", 0) == 0) {
        if (!name_.empty()) return;  // the next entry starts
        name_ = line.substr(6);
      } else if (line == "FAIL") {
        throw std::runtime_error("ToyFile::read: bad line");
      } else if (!line.empty()) {
        atoms_.push_back(line);
      }
    }
  }
  void print(std::ostream&) const override {}
  void clear() override {
    name_.clear();
    atoms_.clear();
  }
  void add(Molecule const&, DatabaseEntryIdentifier const&) override {}
  void add(CrystalStructureDatabaseEntry const&) override {}
  void add(Crystal const&, DatabaseEntryIdentifier const&) override {}
  void add(CrystalMaker const&, DatabaseEntryIdentifier const&) override {}
  THandle<CrystalStructureDatabaseEntry> database_entry() const override {
    return THandle<CrystalStructureDatabaseEntry>(
        make_handle<CrystalStructureImmediateDatabaseEntry>(DatabaseEntryIdentifier(name_),
                                                            crystal_maker()));
  }
  // One atom per atom line, named by the line; the tests count them.
  THandle<Molecule> molecule() const override {
    auto m = make_handle<Molecule3d>();
    for (std::string const& a : atoms_)
      m->add_atom(THandle<Atom>(make_handle<FileOrderedAtom3d>(0, Element(), a, THandle<Site>())));
    return THandle<Molecule>(m);
  }
  THandle<Cell> cell() const override { return make_handle<Cell>(); }
  THandle<Crystal> crystal() const override { return crystal_maker()->create_crystal(); }
  THandle<CrystalMaker> crystal_maker() const override {
    return make_handle<CrystalMaker>(Cell(), make_handle<MoleculeList>(1, molecule()),
                                     THandle<MoleculeList>(), THandle<MoleculeList>());
  }

 private:
  std::string name_;
  std::vector<std::string> atoms_;
};

// Indexes "BEGIN" lines; the identifier is the name, or a generated one when it is empty.
class ToyReader : public FlatFileDatabaseReader {
 public:
  explicit ToyReader(std::string const& file_name, std::string prefix = "")
      : FlatFileDatabaseReader(file_name), prefix_(std::move(prefix)) {}
  void parse(std::vector<DatabaseEntryIdentifier>& identifiers,
             std::vector<std::streampos>& positions) const override {
    std::ifstream in(file_name(), std::ios::binary);
    if (!in) throw std::runtime_error("ToyReader: cannot open " + file_name());
    std::string line;
    std::streampos position = in.tellg();
    while (kora::getline(in, line)) {
      if (line.rfind("BEGIN ", 0) == 0) {
        std::string const name = line.substr(6);
        identifiers.push_back(name.empty()
                                  ? generate_identifier_from_index(int(identifiers.size()) + 1)
                                  : DatabaseEntryIdentifier(prefix_ + name));
        positions.push_back(position);
      }
      position = in.tellg();
    }
  }

 private:
  std::string prefix_;
};

using ToyDatabase = FlatFileDatabase<CrystalStructureDatabaseEntry, ToyReader, ToyFile>;

class FlatFileDatabaseTest : public ::testing::Test {
 protected:
  std::string write(std::string const& text) {
    std::string const path = ::testing::TempDir() + "kora_toy_" +
                             ::testing::UnitTest::GetInstance()->current_test_info()->name();
    std::ofstream(path, std::ios::binary) << text;
    paths_.push_back(path);
    return path;
  }
  void TearDown() override {
    for (std::string const& p : paths_)
      std::remove(p.c_str());
  }
  std::vector<std::string> paths_;
};

TEST_F(FlatFileDatabaseTest, IndexesOnceAndReadsOnlyTheRequestedEntry) {
  std::string const path =
      write("BEGIN first\r\nC 0 0 0\r\nO 1.2 0 0\r\nBEGIN second\nN 0 0 1\nBEGIN \nFAIL\n");
  ToyDatabase const db(path);
  ASSERT_EQ(db.size(), 3);
  EXPECT_EQ(db.identifier(0).str(), "first");
  EXPECT_EQ(db.identifier(2).str(), "ENTRY3");
  EXPECT_EQ(db.position(1), std::streampos(33));
  EXPECT_EQ(db.index(DatabaseEntryIdentifier("second")), 1);
  EXPECT_EQ(db.index(DatabaseEntryIdentifier("SECOND")), 3);
  EXPECT_FALSE(db.identifier_exists(DatabaseEntryIdentifier("third")));

  THandle<CrystalStructureDatabaseEntry> const second = db.entry(DatabaseEntryIdentifier("second"));
  EXPECT_EQ(second->identifier().str(), "second");
  ASSERT_EQ(second->crystal_maker()->nmolecules(), 1);
  EXPECT_EQ(second->crystal_maker()->molecule(0)->natoms(), 1);
  THandle<CrystalStructureDatabaseEntry> const first = db.entry(0);
  EXPECT_EQ(first->crystal_maker()->molecule(0)->natoms(), 2);
  // The entry returned earlier does not change when the shared file object reads again.
  EXPECT_EQ(second->crystal_maker()->molecule(0)->natoms(), 1);

  try {
    db.entry(2);
    ADD_FAILURE() << "no exception";
  } catch (database_error const& e) {
    EXPECT_STREQ(e.what(),
                 "FlatFileDatabase::entry: couldn't retrieve entry 2\nThe error message was:\n\n"
                 "ToyFile::read: bad line");
  }
  for (int bad : {-1, 3})
    EXPECT_THROW(db.entry(bad), database_error) << bad;
  EXPECT_EQ(ToyDatabase(path, std::string("X-")).identifier(0).str(), "X-first");
  EXPECT_THROW(db.entry(DatabaseEntryIdentifier("missing")), database_error);
  EXPECT_THROW(db.identifier(3), database_error);
}

// Lists the positions it is given, whatever the file holds, naming entries "E0", "E1", ...
class ListedReader : public FlatFileDatabaseReader {
 public:
  ListedReader(std::string const& file_name, std::vector<std::streamoff> positions)
      : FlatFileDatabaseReader(file_name), positions_(std::move(positions)) {}
  void parse(std::vector<DatabaseEntryIdentifier>& identifiers,
             std::vector<std::streampos>& positions) const override {
    for (std::streamoff const at : positions_) {
      identifiers.emplace_back("E" + std::to_string(identifiers.size()));
      positions.emplace_back(at);
    }
  }

 private:
  std::vector<std::streamoff> positions_;
};

using ListedDatabase = FlatFileDatabase<CrystalStructureDatabaseEntry, ListedReader, ToyFile>;

// An entry runs to the next entry's start in the file, not to the next position of the
// index: entries indexed at one position (or out of order) each read their whole entry.
TEST_F(FlatFileDatabaseTest, EntriesAtOnePositionReadToTheEntrysRealEnd) {
  std::string const text = "BEGIN a\nC 0 0 0\nO 1 0 0\nBEGIN b\nN 0 0 0\n";
  std::streamoff const b = static_cast<std::streamoff>(text.find("BEGIN b"));
  struct Case {
    std::vector<std::streamoff> positions;
    std::vector<int> atoms;  // of each listed entry
  };
  Case const cases[] = {
      {{0, 0, b}, {2, 2, 1}},
      {{0, b, b}, {2, 1, 1}},
      {{b, 0, 0}, {1, 2, 2}},
      // Past the end of the file when it was examined: written while it was indexed.
      {{0, b, static_cast<std::streamoff>(text.size()) + 5}, {2, 1}},
  };
  std::string const path = write(text);
  for (Case const& c : cases) {
    ListedDatabase const db(path, c.positions);
    ASSERT_EQ(db.size(), static_cast<int>(c.atoms.size()));
    for (int i = 0; i < db.size(); ++i) {
      auto const maker = db.entry(i)->crystal_maker();
      EXPECT_EQ(maker->molecule(0)->natoms(), c.atoms[static_cast<std::size_t>(i)])
          << "entry " << i << " of " << ::testing::PrintToString(c.positions);
    }
  }
  try {
    ListedDatabase const db(path, std::vector<std::streamoff>{0, -1});
    ADD_FAILURE() << "no exception";
  } catch (database_error const& e) {
    EXPECT_EQ(std::string(e.what()), "FlatFileDatabase: the index of " + path +
                                         " has a position before the start of "
                                         "the file");
  }
}

// A file longer than the two blocks whose checksum is kept: appending reads on, a change in
// the first or the last indexed block is refused.
TEST_F(FlatFileDatabaseTest, LargeFileIsCheckedAtBothEnds) {
  std::string text;
  int entries = 0;
  while (text.size() < 3 * detail::IndexedFile::checked_block) {
    text += "BEGIN m" + std::to_string(entries++) + "\nC 0 0 0\nO 1.2 0 0\n";
  }
  std::string const path = write(text);
  std::string const changed = "FlatFileDatabase::entry: couldn't retrieve entry 1: " + path +
                              " has changed since it was indexed";
  auto const entry_error = [](ToyDatabase const& db, int i) {
    try {
      db.entry(i);
    } catch (database_error const& e) {
      return std::string(e.what());
    }
    return std::string("(no error)");
  };
  auto const rewrite = [&](std::size_t at, char c) {
    std::string t = text;
    t[at] = c;
    std::ofstream(path, std::ios::binary | std::ios::trunc) << t << "BEGIN more\n";
  };
  for (std::size_t const at : {std::size_t(0), text.size() - 3}) {
    ToyDatabase const db(path);
    ASSERT_EQ(db.size(), entries);
    std::ofstream(path, std::ios::binary | std::ios::app) << "BEGIN appended\nC 0 0 0\n";
    EXPECT_EQ(entry_error(db, 1), "(no error)");
    EXPECT_EQ(entry_error(db, entries - 1), "(no error)");
    rewrite(at, 'X');
    EXPECT_EQ(entry_error(db, 1), changed) << "byte " << at;
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
  }
}

TEST_F(FlatFileDatabaseTest, DefaultsOfAReadOnlyDatabase) {
  ToyDatabase db(write("BEGIN a\n"));
  EXPECT_FALSE(db.writable());
  EXPECT_FALSE(db.has_expiry_date());
  EXPECT_EQ(db.identifier_maximum_length(), 256);
  EXPECT_EQ(db.normalise_identifier(DatabaseEntryIdentifier("aB ")).str(), "aB ");
  auto const message = [](auto&& call) {
    try {
      call();
    } catch (database_error const& e) {
      return std::string(e.what());
    }
    return std::string("no exception");
  };
  std::pair<std::string, std::string> const refusals[] = {
      {message([&] { db.expiry_date(); }), "expiry_date: no expiry date available"},
      {message([&] { db.append({}); }), "append: database is not opened for writing"},
      {message([&] { db.replace({}); }), "replace: database is not opened for writing"},
      {message([&] { db.remove(DatabaseEntryIdentifier("a")); }),
       "remove: database is not opened for writing"}};
  for (auto const& [got, expected] : refusals)
    EXPECT_EQ(got, "Database::" + expected);
  db.flush();
}

TEST_F(FlatFileDatabaseTest, NearestEntry) {
  using Match = Database<CrystalStructureDatabaseEntry>::IdentifierMatch;
  struct Case {
    char const* text;
    char const* query;
    int index;
    Match match;
  };
  Case const cases[] = {
      {"BEGIN ABC1\nBEGIN abc1\n", "abc1", 1, Match::exact},
      {"BEGIN ABC1\n", "abc1", 0, Match::equal_ignoring_case},
      {"BEGIN x\nBEGIN Abc1\nBEGIN ABC1\n", "abc1", 1, Match::equal_ignoring_case},
      {"BEGIN AAA\nBEGIN DDD\nBEGIN CCC\n", "BBB", 2, Match::nearest_only},
      {"BEGIN AAA\nBEGIN aab\n", "ZZZ", 1, Match::nearest_only},
      {"", "abc", -1, Match::nearest_only},
  };
  for (Case const& c : cases) {
    ToyDatabase const db(write(c.text));
    Match match = Match::exact;
    EXPECT_EQ(db.nearest_entry(DatabaseEntryIdentifier(c.query), match), c.index) << c.text;
    EXPECT_EQ(match, c.match) << c.text;
  }
}

// Accepts a line "MAGIC" at line 3 only, and records the numbers it was shown.
class ToyFormat : public TextIdentifiedFileFormat {
 public:
  THandle<Database<CrystalStructureDatabaseEntry>> make_database(
      OpenParameters const&) const override {
    return {};
  }
  THandle<MoleculeFile> make_molecule_file(OpenParameters const&) const override { return {}; }
  std::string name() const override { return "toy"; }
  std::string default_extension() const override { return "toy"; }
  void all_extensions(std::vector<std::string>& e) const override { e = {"toy"}; }
  bool writeable() const override { return false; }
  bool examine_line(std::string const& line, unsigned int number) const override {
    seen.push_back(number);
    return line == "MAGIC" && number == 3;
  }
  mutable std::vector<unsigned int> seen;
};

TEST_F(FlatFileDatabaseTest, IdentifyCountsLinesFromOneAndStopsAtTheFirstAcceptedLine) {
  ToyFormat format;
  EXPECT_TRUE(format.identify(write("a\r\nb\rMAGIC\nMAGIC\n")));
  EXPECT_EQ(format.seen, (std::vector<unsigned int>{1, 2, 3}));
  format.seen.clear();
  EXPECT_FALSE(format.identify(write("MAGIC\nx\ny\n")));
  EXPECT_EQ(format.seen, (std::vector<unsigned int>{1, 2, 3}));
  format.seen.clear();
  EXPECT_FALSE(format.identify(::testing::TempDir() + "kora_no_such_file"));
  EXPECT_FALSE(format.identify(::testing::TempDir()));  // a directory
  EXPECT_TRUE(format.seen.empty());
  std::string many;
  for (int i = 0; i < 2000; ++i)
    many += "line\n";
  EXPECT_FALSE(format.identify(write(many)));
  EXPECT_EQ(format.seen.size(), TextIdentifiedFileFormat::identify_line_limit);
  // Files are read in blocks of 64 KiB: lines across a block's end, and a "\r\n" split by
  // it, are whole lines.
  for (std::size_t first : {std::size_t(65535), std::size_t(65534), std::size_t(100000)}) {
    format.seen.clear();
    EXPECT_TRUE(format.identify(write(std::string(first, 'a') + "\r\nb\r\nMAGIC\n"))) << first;
    EXPECT_EQ(format.seen, (std::vector<unsigned int>{1, 2, 3})) << first;
  }
}

}  // namespace

// A saved index is used only for the bytes and the key it was made for; any other saved
// file, damaged or foreign, is passed over and the file indexed afresh. The reader's prefix
// tells which happened: the saved index was made without one.
TEST_F(FlatFileDatabaseTest, SavedIndexesAreUsedOnlyWhenTheyFit) {
  std::string text;
  for (int k = 0; k < 300; ++k)
    text += "BEGIN e" + std::to_string(k) + "\nC " + std::to_string(k) + " 0 0\n";
  std::string const path = write(text);
  std::string const saved = saved_index_name(path);
  paths_.push_back(saved);
  SavedIndexKey const key{"toy 1"};
  ToyDatabase(key, path).save_index(key.key);
  auto const first_name = [&](SavedIndexKey const& k) {
    return ToyDatabase(k, path, "fresh-").identifier(0).str();
  };
  ToyDatabase const loaded(key, path, "fresh-");
  ASSERT_EQ(loaded.size(), 300);
  EXPECT_EQ(loaded.identifier(299).str(), "e299");  // from the saved index
  EXPECT_EQ(loaded.position(150), ToyDatabase(path).position(150));
  EXPECT_EQ(loaded.entry(150)->crystal_maker()->molecule(0)->natoms(), 1);
  EXPECT_EQ(loaded.text(299), "BEGIN e299\nC 299 0 0\n");
  EXPECT_EQ(loaded.index(DatabaseEntryIdentifier("e42")), 42);
  EXPECT_EQ(first_name(SavedIndexKey{"toy 2"}), "fresh-e0");  // made for another key
  EXPECT_EQ(first_name(SavedIndexKey{}), "fresh-e0");         // saved indexes not asked for

  std::string bytes;
  {
    std::ifstream in(saved, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), {});
  }
  // The magic and the key padded to 8 bytes, then size, time, checksum and count.
  std::size_t const header = (8 + 4 + key.key.size() + 7) / 8 * 8 + 32;
  std::size_t const names = header + 300 * 16;
  auto const with = [&](std::size_t at, std::string const& replacement, std::size_t length) {
    std::string changed = bytes;
    changed.replace(at, length, replacement);
    return changed;
  };
  struct Damage {
    char const* what;
    std::string bytes;
  };
  Damage const damages[] = {
      {"cut short", bytes.substr(0, bytes.size() - 1)},
      {"cut in the starts", bytes.substr(0, header + 100)},
      {"a count far too large",
       with(header - 8, std::string("\xff\xff\xff\xff\xff\xff\xff\x0f", 8), 8)},
      {"a line break in a name", with(names + 1, "\n", 1)},
      {"a start past the end", with(header + 8, std::string("\xff\xff\xff\x7f", 4), 4)},
      {"a negative start", with(header + 15, "\x80", 1)},
      {"names ending out of order", with(header + 300 * 8, std::string(8, '\xff'), 8)},
      {"another checksum", with(header - 16, "\x01", 1)},
      {"not an index", "BEGIN e0\n"},
      {"empty", ""},
  };
  for (Damage const& d : damages) {
    SCOPED_TRACE(d.what);
    std::ofstream(saved, std::ios::binary | std::ios::trunc) << d.bytes;
    EXPECT_EQ(first_name(key), "fresh-e0");
  }

  // The file touched, or appended to: its saved index no longer fits.
  std::ofstream(saved, std::ios::binary | std::ios::trunc) << bytes;
  EXPECT_EQ(first_name(key), "e0");
  std::ofstream(path, std::ios::binary | std::ios::app) << "BEGIN last\nC 0 0 0\n";
  ToyDatabase const appended(key, path, "fresh-");
  EXPECT_EQ(appended.size(), 301);
  EXPECT_EQ(appended.identifier(0).str(), "fresh-e0");
}
