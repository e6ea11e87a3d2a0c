// Mol2 files: reading an entry and its sections, printing and copying, adding structures,
// and the index, identifiers and format descriptor of Mol2 databases.

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "kora/formats.hpp"
#include "kora/framework/flat_file_database.hpp"
#include "kora/mol2/mol2_database_reader.hpp"
#include "kora/mol2/mol2_file.hpp"
#include "kora/mol2/mol2_file_format.hpp"
#include "mol2_test_support.hpp"

namespace {

using namespace kora;
using test::message_of;
using test::read_mol2;
using test::ScratchFile;

// Ethanol with a comment and a cell, then a second molecule.
std::string const water =
    "@<TRIPOS>MOLECULE\nwater\n3 2\nSMALL\nNO_CHARGES\n@<TRIPOS>ATOM\n1 O1 0 0 0 O.3\n"
    "2 H1 0.96 0 0 H\n3 H2 -0.24 0.93 0 H\n@<TRIPOS>BOND\n1 1 2 1\n2 1 3 1\n";
std::string const two_molecules =
    "# written by hand\n@<TRIPOS>MOLECULE\nethanol\n 3 2 1\nSMALL\nNO_CHARGES\n\n"
    "@<TRIPOS>COMMENT\nfirst comment line\n@<TRIPOS>ATOM\n"
    "      1 C1          0.0000    0.0000    0.0000 C.3       1 ETH1        0.0000\n"
    "      2 C2          1.5000    0.0000    0.0000 C.3       1 ETH1        0.0000\n"
    "      3 O3          2.0000    1.4000    0.0000 O.3       1 ETH1        0.0000\n"
    "@<TRIPOS>BOND\n     1     1     2    1\n     2     2     3    1\n"
    "@<TRIPOS>SUBSTRUCTURE\n     1 ETH1        1\n@<TRIPOS>CRYSIN\n"
    "   10.0000   11.0000   12.0000   90.0000   90.0000   90.0000    19     1\n" +
    water;

TEST(Mol2File, ReadsOneEntryAndStopsAfterTheNextHeader) {
  std::istringstream in(two_molecules);
  Mol2File file;
  file.read(in);
  EXPECT_EQ(file.molecule_name(), "ethanol");
  ASSERT_EQ(file.comments().size(), 1u);
  EXPECT_EQ(*file.comments()[0]->lines(), (std::vector<std::string>{"first comment line"}));
  EXPECT_EQ(file.substructure(), "     1 ETH1        1\n");
  ASSERT_TRUE(file.crystal_record());
  EXPECT_EQ(file.cell()->spacegroup().symbol(), "P212121");
  std::string next;
  std::getline(in, next);
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

TEST(Mol2File, ErrorsAndMissingData) {
  for (std::string const section : {"ATOM", "BOND", "SUBSTRUCTURE"}) {
    EXPECT_EQ(message_of<std::runtime_error>(
                  [&] { read_mol2("@<TRIPOS>" + section + "\n1 C 0 0 0 C.3\n"); }),
              "Mol2File::read: " + section + " field before MOLECULE.");
  }
  Mol2File const empty;
  EXPECT_THROW(empty.molecule_name(), std::runtime_error);
  EXPECT_EQ(message_of<std::runtime_error>([&] { empty.molecule(); }),
            "Mol2File::molecule: There is no data from which to construct an object");
  // Bonds naming atoms that are not there fail clearly when the molecule is built.
  Mol2File const dangling = read_mol2(
      "@<TRIPOS>MOLECULE\nm\n2 1\nSMALL\nNO_CHARGES\n@<TRIPOS>ATOM\n1 C 0 0 0 C.3\n2 C 1.5 0 0 "
      "C.3\n@<TRIPOS>BOND\n1 1 9 1\n");
  EXPECT_THROW(dangling.molecule(), std::invalid_argument);
  EXPECT_THROW(dangling.crystal_maker(), std::invalid_argument);
}

TEST(Mol2File, CommentsBlankSectionsAndBadNames) {
  Mol2File const file = read_mol2("@<TRIPOS>MOLECULE\n" + std::string(300, 'x') +
                                  "\n1\nSMALL\nNO_CHARGES\n@<TRIPOS>COMMENT\nkept\n\nalso @ "
                                  "lost\nignored\n@<TRIPOS>ATOM\n1 C 0 0 0 C.3\n");
  ASSERT_EQ(file.comments().size(), 1u);
  EXPECT_EQ(*file.comments()[0]->lines(), (std::vector<std::string>{"kept", ""}));
  EXPECT_EQ(file.molecule()->nbonds(), 0);  // no BOND section
  EXPECT_EQ(file.database_entry()->identifier().str(), "UNKNWN");
}

TEST(Mol2File, PrintReadCopyAndClear) {
  Mol2File const file = read_mol2(two_molecules);
  std::ostringstream out;
  file.print(out);
  std::string const text = out.str();
  EXPECT_EQ(text.substr(0, 45), "@<TRIPOS>MOLECULE\nethanol\n     3     2     1\n");
  EXPECT_NE(text.find("\n@<TRIPOS>COMMENT\nfirst comment line\n"), std::string::npos);
  EXPECT_EQ(text.back(), '\n');
  Mol2File const again = read_mol2(text);
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
  THandle<CrystalMaker> const maker = read_mol2(two_molecules).crystal_maker();
  auto molecules =
      make_handle<MoleculeList>(MoleculeList{maker->molecule(0), read_mol2(water).molecule()});
  Mol2File written;
  written.add(CrystalMaker(maker->cell(), molecules, {}, {}), DatabaseEntryIdentifier("ABCDEF"));
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

TEST(Mol2Database, IndexesEntriesAndGeneratedIdentifiers) {
  ScratchFile const file(two_molecules +
                             "@<TRIPOS>MOLECULE\r\n\r\n1\nSMALL\nNO_CHARGES\n @<TRIPOS>MOLECULE\n"
                             "@<TRIPOS>MOLECULE\nABCDEF01 extra words\n1\nSMALL\nNO_CHARGES\n****\n"
                             "Generated from the VRX\n",
                         ".mol2");
  std::vector<DatabaseEntryIdentifier> ids;
  std::vector<std::streampos> positions;
  Mol2DatabaseReader const reader(file.path());
  reader.parse(ids, positions);
  ASSERT_EQ(ids.size(), 4u);
  EXPECT_EQ(ids[0].str() + '|' + ids[2].str() + '|' + ids[3].str(),
            "ethanol|ENTRY3|ABCDEF01 extra words");  // a 20-character name is not a code
  EXPECT_EQ(positions[0], std::streampos(18));
  EXPECT_EQ(reader.generated(), (std::vector<bool>{false, false, false, false}));

  std::string missing;
  {
    ScratchFile const coded_file(
        "@<TRIPOS>MOLECULE\nABCDEF01\n1\nSMALL\nNO_CHARGES\n****\nGenerated from the VRX\n",
        ".mol2");
    missing = coded_file.path();
    Mol2DatabaseReader const coded(missing);
    ids.clear();
    coded.parse(ids, positions);
    EXPECT_EQ(coded.generated(), (std::vector<bool>{true}));
    EXPECT_EQ(coded.set_entry_identifier(0, "ABCDEF01 and more").str(), "ABCDEF01");
  }
  EXPECT_EQ(message_of<database_error>([&] { Mol2DatabaseReader(missing).parse(ids, positions); }),
            "Mol2DatabaseReader::parse() couldn't retrieve entry " + missing);
}

std::string one_atom_entry(std::string const& name, char const* element) {
  return std::string("@<TRIPOS>MOLECULE\n") + name + "\n1 0\nSMALL\nNO_CHARGES\n@<TRIPOS>ATOM\n" +
         "1 " + element + "1 0 0 0 " + element + " 1 RES 0\n";
}

TEST(Mol2Database, StandardIndexCutsLongNamesAndReadsEveryEntry) {
  // 255 bytes, then a two-byte character that would be cut in two at 256.
  std::string const utf8_name = std::string(255, 'y') + "\xC3\xA9" + "z";
  ScratchFile const file(one_atom_entry("first", "C") + one_atom_entry(std::string(300, 'x'), "N") +
                             one_atom_entry(utf8_name, "O") + one_atom_entry("last", "S"),
                         ".mol2");
  // Classic indexing refuses the file as the identifier refuses the name.
  std::vector<DatabaseEntryIdentifier> ids;
  std::vector<std::streampos> positions;
  EXPECT_THROW(Mol2DatabaseReader(file.path()).parse(ids, positions), std::invalid_argument);

  auto const db =
      Mol2FileFormat().make_database({file.path(), "mol2", ReadOptions::standard_mode()});
  ASSERT_TRUE(db);
  ASSERT_EQ(db->size(), 4);
  std::vector<std::string> const names = {"first", std::string(256, 'x'), std::string(255, 'y'),
                                          "last"};
  char const* elements[] = {"C", "N", "O", "S"};
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(db->identifier(i).str(), names[static_cast<std::size_t>(i)]);
    EXPECT_EQ(db->entry(i)->identifier().str(), names[static_cast<std::size_t>(i)]);
    EXPECT_EQ(db->entry(i)->crystal_maker()->molecule(0)->atom(0)->element().symbol(), elements[i]);
  }
  auto const index = handle_dynamic_cast<FlatFileDatabaseIndex>(db);
  ASSERT_TRUE(index);
  EXPECT_TRUE(index->read_options().standard());
}

TEST(Mol2Database, FormatIdentifiesAndOpensDatabases) {
  Mol2FileFormat const format;
  std::vector<std::string> extensions{"stale"};
  format.all_extensions(extensions);
  EXPECT_EQ(extensions, (std::vector<std::string>{"mol2", "mol"}));
  EXPECT_TRUE(format.examine_line("@<TRIPOS>MOLECULE", 7));
  EXPECT_FALSE(format.examine_line(" @<TRIPOS>MOLECULE", 1));

  ScratchFile const file(two_molecules, ".txt");
  FileFormat::OpenParameters const parameters{file.path(), "txt"};
  EXPECT_TRUE(format.make_molecule_file(parameters));
  auto const db = format.make_database(parameters);
  ASSERT_TRUE(db);
  ASSERT_EQ(db->size(), 2);
  EXPECT_EQ(db->entry(1)->crystal_maker()->molecule(0)->natoms(), 3);
  EXPECT_EQ(db->entry(DatabaseEntryIdentifier("water"))->identifier().str(), "water");
  EXPECT_EQ(find_file_format(parameters)->name(), "Mol2 file");

  ScratchFile const other("HEADER    not a mol2 file\n", ".mol2");
  EXPECT_FALSE(format.make_database({other.path(), "mol2"}));
  EXPECT_FALSE(format.make_molecule_file({other.path(), "mol2"}));
}

}  // namespace
