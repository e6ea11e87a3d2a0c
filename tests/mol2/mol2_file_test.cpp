#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "kora/formats.hpp"
#include "kora/framework/flat_file_database.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/mol2/mol2_database_reader.hpp"
#include "kora/mol2/mol2_file.hpp"
#include "kora/mol2/mol2_file_format.hpp"

namespace {

using namespace kora;

// Ethanol with a comment and a cell, then a second molecule.
constexpr char const* two_molecules =
    "# written by hand\n"
    "@<TRIPOS>MOLECULE\n"
    "ethanol\n"
    " 3 2 1\n"
    "SMALL\n"
    "NO_CHARGES\n"
    "\n"
    "@<TRIPOS>COMMENT\n"
    "first comment line\n"
    "@<TRIPOS>ATOM\n"
    "      1 C1          0.0000    0.0000    0.0000 C.3       1 ETH1        0.0000\n"
    "      2 C2          1.5000    0.0000    0.0000 C.3       1 ETH1        0.0000\n"
    "      3 O3          2.0000    1.4000    0.0000 O.3       1 ETH1        0.0000\n"
    "@<TRIPOS>BOND\n"
    "     1     1     2    1\n"
    "     2     2     3    1\n"
    "@<TRIPOS>SUBSTRUCTURE\n"
    "     1 ETH1        1\n"
    "@<TRIPOS>CRYSIN\n"
    "   10.0000   11.0000   12.0000   90.0000   90.0000   90.0000    19     1\n"
    "@<TRIPOS>MOLECULE\n"
    "water\n"
    "3 2\n"
    "SMALL\n"
    "NO_CHARGES\n"
    "@<TRIPOS>ATOM\n"
    "1 O1 0 0 0 O.3\n"
    "2 H1 0.96 0 0 H\n"
    "3 H2 -0.24 0.93 0 H\n"
    "@<TRIPOS>BOND\n"
    "1 1 2 1\n"
    "2 1 3 1\n";

Mol2File read_text(std::string const& text, std::istream** rest = nullptr) {
  static std::istringstream in;
  in.clear();
  in.str(text);
  Mol2File file;
  file.read(in);
  if (rest) *rest = &in;
  return file;
}

TEST(Mol2File, ReadsOneEntryAndStopsAfterTheNextHeader) {
  std::istream* rest = nullptr;
  Mol2File const file = read_text(two_molecules, &rest);
  EXPECT_EQ(file.molecule_name(), "ethanol");
  ASSERT_EQ(file.comments().size(), 1u);
  EXPECT_EQ(*file.comments()[0]->lines(), (std::vector<std::string>{"first comment line"}));
  EXPECT_EQ(file.substructure(), "     1 ETH1        1\n");
  ASSERT_TRUE(file.crystal_record());
  EXPECT_EQ(file.cell()->spacegroup().symbol(), "P212121");
  std::string next;
  std::getline(*rest, next);
  EXPECT_EQ(next, "water");  // the second header was consumed

  THandle<Molecule> const m = file.molecule();
  EXPECT_EQ(m->natoms(), 3);
  EXPECT_EQ(m->nbonds(), 2);
  EXPECT_EQ(handle_dynamic_cast<ProteinAtom>(m->atom(0))->residue_label(), "ETH1");
  EXPECT_NEAR(m->atom(1)->site()->fractional()[0], 0.15, 1e-12);
  THandle<CrystalStructureDatabaseEntry> const entry = file.database_entry();
  EXPECT_EQ(entry->identifier().str(), "ethanol");
  EXPECT_EQ(entry->crystal_maker()->nmolecules(), 1);
}

TEST(Mol2File, SectionErrorsAndMissingData) {
  for (auto [section, message] :
       {std::pair{"ATOM", "Mol2File::read: ATOM field before MOLECULE."},
        std::pair{"BOND", "Mol2File::read: BOND field before MOLECULE."},
        std::pair{"SUBSTRUCTURE", "Mol2File::read: SUBSTRUCTURE field before MOLECULE."}}) {
    try {
      read_text(std::string("@<TRIPOS>") + section + "\n1 C 0 0 0 C.3\n");
      ADD_FAILURE() << section;
    } catch (std::runtime_error const& e) {
      EXPECT_STREQ(e.what(), message);
    }
  }
  Mol2File const empty;
  EXPECT_THROW(empty.molecule_name(), std::runtime_error);
  try {
    empty.molecule();
    ADD_FAILURE();
  } catch (std::runtime_error const& e) {
    EXPECT_STREQ(e.what(),
                 "Mol2File::molecule: There is no data from which to construct an object");
  }
  // Bonds naming atoms that are not there fail clearly when the molecule is built.
  Mol2File const dangling = read_text(
      "@<TRIPOS>MOLECULE\nm\n2 1\nSMALL\nNO_CHARGES\n@<TRIPOS>ATOM\n1 C 0 0 0 C.3\n2 C 1.5 0 0 "
      "C.3\n@<TRIPOS>BOND\n1 1 9 1\n");
  EXPECT_THROW(dangling.molecule(), std::invalid_argument);
  EXPECT_THROW(dangling.crystal_maker(), std::invalid_argument);
}

TEST(Mol2File, CommentsBlankSectionsAndBadNames) {
  Mol2File const file = read_text("@<TRIPOS>MOLECULE\n" + std::string(300, 'x') +
                                  "\n1\nSMALL\nNO_CHARGES\n@<TRIPOS>COMMENT\nkept\n\nalso @ "
                                  "lost\nignored\n@<TRIPOS>ATOM\n1 C 0 0 0 C.3\n");
  ASSERT_EQ(file.comments().size(), 1u);
  EXPECT_EQ(*file.comments()[0]->lines(), (std::vector<std::string>{"kept", ""}));
  EXPECT_EQ(file.molecule()->nbonds(), 0);  // no BOND section
  EXPECT_EQ(file.database_entry()->identifier().str(), "UNKNWN");
}

TEST(Mol2File, PrintReadRoundTrip) {
  Mol2File const file = read_text(two_molecules);
  std::ostringstream out;
  file.print(out);
  std::string const text = out.str();
  EXPECT_EQ(text.substr(0, 45), "@<TRIPOS>MOLECULE\nethanol\n     3     2     1\n");
  EXPECT_NE(text.find("\n@<TRIPOS>COMMENT\nfirst comment line\n"), std::string::npos);
  EXPECT_EQ(text.back(), '\n');
  Mol2File const again = read_text(text);
  EXPECT_EQ(again, file);
  EXPECT_EQ(*again.atom_section(), *file.atom_section());
  EXPECT_EQ(*again.crystal_record(), *file.crystal_record());

  Mol2File copy(file);
  EXPECT_NE(copy.atom_section(), file.atom_section());  // deep copy
  EXPECT_EQ(copy, file);
  copy.clear();
  EXPECT_FALSE(copy.molecule_record());
  std::ostringstream nothing;
  copy.print(nothing);
  EXPECT_EQ(nothing.str(), "\n");
}

TEST(Mol2File, AddingStructuresWritesSubstructuresAndCrystalRecords) {
  Mol2File const source = read_text(two_molecules);
  THandle<CrystalMaker> const maker = source.crystal_maker();
  auto molecules = make_handle<MoleculeList>();
  molecules->push_back(maker->molecule(0));
  molecules->push_back(
      read_text(std::string(two_molecules)
                    .substr(std::string(two_molecules).find("@<TRIPOS>MOLECULE\nwater")))
          .molecule());
  CrystalMaker const two(maker->cell(), molecules, {}, {});
  Mol2File written;
  written.add(two, DatabaseEntryIdentifier("ABCDEF"));
  EXPECT_EQ(written.substructure(), "     1 RES1       1\n     2 RES2       4");
  EXPECT_EQ(written.atom_section()->lines()[4]->atom_id(), 5);
  EXPECT_EQ(written.atom_section()->lines()[4]->substructure_name(), "RES2");
  EXPECT_EQ(written.bond_section()->lines()[3]->origin(), 4);
  EXPECT_EQ(written.bond_section()->lines()[3]->target(), 6);
  EXPECT_EQ(written.crystal_record()->spacegroup_number(), 19);
  EXPECT_EQ(written.molecule_record()->status_text(), "****\nGenerated from the VRX\n");

  Mol2File from_molecule;
  from_molecule.add(*maker->molecule(0), DatabaseEntryIdentifier("ethanol"));
  EXPECT_FALSE(from_molecule.crystal_record());
  EXPECT_EQ(from_molecule.atom_section()->lines()[2]->type(), "O.3");
  EXPECT_EQ(from_molecule.bond_section()->lines()[1]->type(), "1");
}

class Mol2DatabaseTest : public ::testing::Test {
 protected:
  std::string write(std::string const& text) {
    path_ = ::testing::TempDir() + "kora_mol2_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".mol2";
    std::ofstream(path_, std::ios::binary) << text;
    return path_;
  }
  void TearDown() override { std::remove(path_.c_str()); }
  std::string path_;
};

TEST_F(Mol2DatabaseTest, IndexesEntriesAndGeneratedIdentifiers) {
  std::string const text = std::string(two_molecules) +
                           "@<TRIPOS>MOLECULE\r\n\r\n1\nSMALL\nNO_CHARGES\n"
                           " @<TRIPOS>MOLECULE\n"
                           "@<TRIPOS>MOLECULE\nABCDEF01 extra words\n1\nSMALL\nNO_CHARGES\n****\n"
                           "Generated from the VRX\n";
  Mol2DatabaseReader const reader(write(text));
  std::vector<DatabaseEntryIdentifier> ids;
  std::vector<std::streampos> positions;
  reader.parse(ids, positions);
  ASSERT_EQ(ids.size(), 4u);
  EXPECT_EQ(ids[0].str(), "ethanol");
  EXPECT_EQ(ids[2].str(), "ENTRY3");
  EXPECT_EQ(ids[3].str(), "ABCDEF01 extra words");  // a 20-character name is not a code
  EXPECT_EQ(positions[0], std::streampos(18));
  EXPECT_EQ(reader.generated(), (std::vector<bool>{false, false, false, false}));

  Mol2DatabaseReader const coded(
      write("@<TRIPOS>MOLECULE\nABCDEF01\n1\nSMALL\nNO_CHARGES\n****\nGenerated from the VRX\n"));
  ids.clear();
  coded.parse(ids, positions);
  EXPECT_EQ(coded.generated(), (std::vector<bool>{true}));
  EXPECT_EQ(coded.set_entry_identifier(0, "ABCDEF01 and more").str(), "ABCDEF01");

  std::remove(path_.c_str());
  try {
    coded.parse(ids, positions);
    ADD_FAILURE();
  } catch (database_error const& e) {
    EXPECT_EQ(std::string(e.what()),
              "Mol2DatabaseReader::parse() couldn't retrieve entry " + path_);
  }
}

std::string one_atom_entry(std::string const& name, char const* element) {
  return std::string("@<TRIPOS>MOLECULE\n") + name + "\n1 0\nSMALL\nNO_CHARGES\n@<TRIPOS>ATOM\n" +
         "1 " + element + "1 0 0 0 " + element + " 1 RES 0\n";
}

TEST_F(Mol2DatabaseTest, StandardIndexCutsLongNamesAndReadsEveryEntry) {
  std::string const long_name = std::string(300, 'x');
  // 255 bytes, then a two-byte character that would be cut in two at 256.
  std::string const utf8_name = std::string(255, 'y') + "\xC3\xA9" + "z";
  std::string const path = write(one_atom_entry("first", "C") + one_atom_entry(long_name, "N") +
                                 one_atom_entry(utf8_name, "O") + one_atom_entry("last", "S"));
  // Classic indexing refuses the file as the identifier refuses the name.
  std::vector<DatabaseEntryIdentifier> ids;
  std::vector<std::streampos> positions;
  EXPECT_THROW(Mol2DatabaseReader(path).parse(ids, positions), std::invalid_argument);

  THandle<Database<CrystalStructureDatabaseEntry>> const db =
      Mol2FileFormat().make_database({path, "mol2", ReadOptions::standard_mode()});
  ASSERT_TRUE(db);
  ASSERT_EQ(db->size(), 4);
  EXPECT_EQ(db->identifier(0).str(), "first");
  EXPECT_EQ(db->identifier(1).str(), std::string(256, 'x'));
  EXPECT_EQ(db->identifier(2).str(), std::string(255, 'y'));
  EXPECT_EQ(db->identifier(3).str(), "last");
  auto const index = handle_dynamic_cast<FlatFileDatabaseIndex>(db);
  ASSERT_TRUE(index);
  EXPECT_TRUE(index->read_options().standard());
  std::vector<std::string> elements;
  for (int i = 0; i < db->size(); ++i)
    elements.push_back(db->entry(i)->crystal_maker()->molecule(0)->atom(0)->element().symbol());
  EXPECT_EQ(elements, (std::vector<std::string>{"C", "N", "O", "S"}));
  EXPECT_EQ(db->entry(1)->identifier().str(), std::string(256, 'x'));
}

TEST_F(Mol2DatabaseTest, FormatIdentifiesAndOpensDatabases) {
  Mol2FileFormat const format;
  std::vector<std::string> extensions{"stale"};
  format.all_extensions(extensions);
  EXPECT_EQ(extensions, (std::vector<std::string>{"mol2", "mol"}));
  EXPECT_TRUE(format.examine_line("@<TRIPOS>MOLECULE", 7));
  EXPECT_FALSE(format.examine_line(" @<TRIPOS>MOLECULE", 1));

  std::string const path = write(two_molecules);
  FileFormat::OpenParameters const parameters{path, "txt"};
  EXPECT_TRUE(format.make_molecule_file(parameters));
  auto const db = format.make_database(parameters);
  ASSERT_TRUE(db);
  ASSERT_EQ(db->size(), 2);
  EXPECT_EQ(db->entry(1)->crystal_maker()->molecule(0)->natoms(), 3);
  EXPECT_EQ(db->entry(DatabaseEntryIdentifier("water"))->identifier().str(), "water");
  EXPECT_EQ(find_file_format(parameters)->name(), "Mol2 file");

  std::string const other = write("HEADER    not a mol2 file\n");
  EXPECT_FALSE(format.make_database({other, "mol2"}));
  EXPECT_FALSE(format.make_molecule_file({other, "mol2"}));
}

std::filesystem::path corpus() {
  char const* env = std::getenv("KORA_CORPUS");
  return env ? std::filesystem::path(env) : std::filesystem::path(KORA_DEFAULT_CORPUS_DIR);
}

// Counts the MOLECULE records of a file and their announced atoms, independently.
std::vector<std::pair<int, int>> announced_counts(std::filesystem::path const& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<std::pair<int, int>> counts;
  std::string line;
  while (kora::getline(in, line)) {
    if (line.rfind("@<TRIPOS>MOLECULE", 0) != 0) continue;
    kora::getline(in, line);
    do
      kora::getline(in, line);
    while (in && line.empty());
    std::istringstream fields(line);
    int atoms = 0, bonds = 0;
    fields >> atoms >> bonds;
    counts.emplace_back(atoms, bonds);
  }
  return counts;
}

// What a print and a second read keep of a file. Two things are lost by design of the
// record layout: the molecule type (always written as SMALL) and, for an atom line without
// a substructure name, its charge (the empty name leaves two blanks, and the charge is then
// read back as the name).
void expect_same_content(Mol2File const& a, Mol2File const& b, std::string const& where) {
  Mol2Molecule const& ma = *a.molecule_record();
  Mol2Molecule const& mb = *b.molecule_record();
  EXPECT_TRUE(ma.name() == mb.name() && ma.number_of_atoms() == mb.number_of_atoms() &&
              ma.number_of_bonds() == mb.number_of_bonds() &&
              ma.number_of_substructures() == mb.number_of_substructures() &&
              ma.charge_type() == mb.charge_type())
      << where;
  auto const& la = a.atom_section()->lines();
  auto const& lb = b.atom_section()->lines();
  ASSERT_EQ(la.size(), lb.size()) << where;
  for (std::size_t i = 0; i < la.size(); ++i) {
    Mol2AtomLine const& x = *la[i];
    Mol2AtomLine const& y = *lb[i];
    bool const same = x.substructure_name().empty()
                          ? Mol2AtomLine(x.atom_id(), x.name(), x.x(), x.y(), x.z(), x.type(),
                                         x.substructure_id(), "", 0) ==
                                Mol2AtomLine(y.atom_id(), y.name(), y.x(), y.y(), y.z(), y.type(),
                                             y.substructure_id(), "", 0)
                          : x == y;
    EXPECT_TRUE(same) << where << " atom " << i;
  }
  if (a.bond_section() && !a.bond_section()->empty()) {
    ASSERT_TRUE(b.bond_section()) << where;
    EXPECT_EQ(*a.bond_section(), *b.bond_section()) << where;
  }
  if (a.crystal_record() && a.crystal_record()->setting() != 0) {
    ASSERT_TRUE(b.crystal_record()) << where;
    EXPECT_EQ(*a.crystal_record(), *b.crystal_record()) << where;
  }
}

TEST(Mol2Corpus, EveryFileReadsCountsAndRoundTrips) {
  std::filesystem::path const dir = corpus() / "mol2";
  if (!std::filesystem::is_directory(dir)) GTEST_SKIP() << "no corpus at " << dir;
  int files = 0;
  for (auto const& item : std::filesystem::directory_iterator(dir)) {
    if (item.path().extension() != ".mol2") continue;
    ++files;
    std::string const path = item.path().string();
    std::vector<std::pair<int, int>> const counts = announced_counts(item.path());
    std::vector<DatabaseEntryIdentifier> ids;
    std::vector<std::streampos> positions;
    ASSERT_NO_THROW(Mol2DatabaseReader(path).parse(ids, positions)) << path;
    ASSERT_EQ(positions.size(), counts.size()) << path;
    std::ifstream in(path, std::ios::binary);
    for (std::size_t k = 0; k < counts.size(); ++k) {
      in.clear();
      in.seekg(positions[k]);
      Mol2File file;
      ASSERT_NO_THROW(file.read(in)) << path << " entry " << k;
      ASSERT_TRUE(file.atom_section()) << path;
      EXPECT_EQ(int(file.atom_section()->lines().size()), counts[k].first) << path;
      int const bonds = file.bond_section() ? int(file.bond_section()->lines().size()) : 0;
      EXPECT_EQ(bonds, counts[k].second) << path;
      EXPECT_NO_THROW(file.database_entry()) << path << " entry " << k;
      std::ostringstream out;
      file.print(out);
      std::istringstream back(out.str());
      Mol2File again;
      again.read(back);
      expect_same_content(file, again, path + " entry " + std::to_string(k));
    }
  }
  EXPECT_GT(files, 10);
}

}  // namespace
