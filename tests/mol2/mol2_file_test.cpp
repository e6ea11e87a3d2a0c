// Mol2 files: reading an entry and its sections, printing and copying, adding structures,
// and the index, identifiers and format descriptor of Mol2 databases.

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

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

// Ethanol with a comment and a cell, then water.
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
  EXPECT_EQ(*file.comments().at(0)->lines(), (std::vector<std::string>{"first comment line"}));
  EXPECT_EQ(file.substructure(), "     1 ETH1        1\n");
  EXPECT_EQ(file.cell()->spacegroup().symbol(), "P212121");
  std::string next;
  std::getline(in, next);
  EXPECT_EQ(next, "water");  // the second header was consumed
  EXPECT_NEAR(file.molecule()->atom(1)->site()->fractional()[0], 0.15, 1e-12);
  EXPECT_EQ(file.database_entry()->identifier().str(), "ethanol");
  // Printed, with the comment; a copy is deep; a cleared file prints nothing.
  std::ostringstream out;
  file.print(out);
  EXPECT_EQ(out.str().substr(0, 45), "@<TRIPOS>MOLECULE\nethanol\n     3     2     1\n");
  EXPECT_NE(out.str().find("\n@<TRIPOS>COMMENT\nfirst comment line\n"), std::string::npos);
  Mol2File copy(file);
  EXPECT_NE(copy.atom_section(), file.atom_section());
  EXPECT_EQ(copy, file);
  copy.clear();
  std::ostringstream nothing;
  copy.print(nothing);
  EXPECT_EQ(nothing.str(), "\n");
}

TEST(Mol2File, ErrorsAndMissingData) {
  EXPECT_EQ(message_of<std::runtime_error>([] { read_mol2("@<TRIPOS>BOND\n1 1 2 1\n"); }),
            "Mol2File::read: BOND field before MOLECULE.");
  // Bonds naming atoms that are not there fail clearly when the molecule is built.
  EXPECT_THROW(read_mol2(water.substr(0, water.size() - 4) + "9 1\n").crystal_maker(),
               std::invalid_argument);
  // A blank line ends a comment; a name that cannot be an identifier is "UNKNWN".
  Mol2File const file = read_mol2("@<TRIPOS>MOLECULE\n" + std::string(300, 'x') +
                                  "\n1\nSMALL\nNO_CHARGES\n@<TRIPOS>COMMENT\nkept\n\nalso @ "
                                  "lost\nignored\n@<TRIPOS>ATOM\n1 C 0 0 0 C.3\n");
  EXPECT_EQ(*file.comments().at(0)->lines(), (std::vector<std::string>{"kept", ""}));
  EXPECT_EQ(file.molecule()->nbonds(), 0);  // no BOND section
  EXPECT_EQ(file.database_entry()->identifier().str(), "UNKNWN");
}

TEST(Mol2File, AddingStructuresWritesSubstructuresAndCrystalRecords) {
  THandle<CrystalMaker> const maker = read_mol2(two_molecules).crystal_maker();
  THandle<Molecule> const charged = read_mol2(water).molecule();
  charged->atom(0)->set_formal_charge(-1);
  auto molecules = make_handle<MoleculeList>(MoleculeList{maker->molecule(0), charged});
  Mol2File written;
  written.add(CrystalMaker(maker->cell(), molecules, {}, {}), DatabaseEntryIdentifier("ABCDEF"));
  EXPECT_EQ(written.substructure(), "     1 RES1       1\n     2 RES2       4");
  EXPECT_EQ(written.atom_section()->lines()[2]->type(), "O.3");
  EXPECT_EQ(written.atom_section()->lines()[4]->substructure_name(), "RES2");
  EXPECT_EQ(written.bond_section()->lines()[3]->origin(), 4);
  EXPECT_EQ(written.bond_section()->lines()[3]->target(), 6);
  EXPECT_EQ(written.crystal_record()->spacegroup_number(), 19);
  EXPECT_EQ(written.molecule_record()->status_text(), "****\nGenerated from the VRX\n");
  EXPECT_EQ(written.molecule_record()->charge_type(), "USER_CHARGES");  // a formal charge
  Mol2File from_molecule;
  from_molecule.add(*charged, DatabaseEntryIdentifier("water"));
  EXPECT_FALSE(from_molecule.crystal_record());
  EXPECT_EQ(from_molecule.atom_section()->lines()[2]->type(), "H");
  EXPECT_EQ(from_molecule.molecule_record()->charge_type(), "USER_CHARGES");
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
}

std::string one_atom_entry(std::string const& name, char const* element) {
  return std::string("@<TRIPOS>MOLECULE\n") + name + "\n1 0\nSMALL\nNO_CHARGES\n@<TRIPOS>ATOM\n" +
         "1 " + element + "1 0 0 0 " + element + " 1 RES 0\n";
}

// Classic indexing refuses a name too long to be an identifier; standard indexing cuts it at
// 256 bytes, or before a character that would be cut in two.
TEST(Mol2Database, StandardIndexCutsLongNamesAndReadsEveryEntry) {
  ScratchFile const file(one_atom_entry(std::string(300, 'x'), "N") +
                             one_atom_entry(std::string(255, 'y') + "\xC3\xA9" + "z", "O"),
                         ".mol2");
  std::vector<DatabaseEntryIdentifier> ids;
  std::vector<std::streampos> positions;
  EXPECT_THROW(Mol2DatabaseReader(file.path()).parse(ids, positions), std::invalid_argument);
  auto const db =
      Mol2FileFormat().make_database({file.path(), "mol2", ReadOptions::standard_mode()});
  ASSERT_EQ(db->size(), 2);
  EXPECT_EQ(db->identifier(0).str(), std::string(256, 'x'));
  EXPECT_EQ(db->entry(1)->identifier().str(), std::string(255, 'y'));
  EXPECT_EQ(db->entry(1)->crystal_maker()->molecule(0)->atom(0)->element().symbol(), "O");
}

TEST(Mol2Database, FormatIdentifiesAndOpensDatabases) {
  Mol2FileFormat const format;
  EXPECT_TRUE(format.examine_line("@<TRIPOS>MOLECULE", 7));
  EXPECT_FALSE(format.examine_line(" @<TRIPOS>MOLECULE", 1));
  ScratchFile const file(two_molecules, ".txt");
  FileFormat::OpenParameters const parameters{file.path(), "txt"};
  EXPECT_TRUE(format.make_molecule_file(parameters));
  auto const db = format.make_database(parameters);
  ASSERT_EQ(db->size(), 2);
  EXPECT_EQ(db->entry(DatabaseEntryIdentifier("water"))->crystal_maker()->molecule(0)->natoms(), 3);
  ScratchFile const other("HEADER    not a mol2 file\n", ".mol2");
  EXPECT_FALSE(format.make_database({other.path(), "mol2"}));
  EXPECT_FALSE(format.make_molecule_file({other.path(), "mol2"}));
}

}  // namespace
