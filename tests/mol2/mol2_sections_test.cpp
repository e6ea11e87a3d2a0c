#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <string>

#include "kora/mol2/mol2_atom.hpp"
#include "kora/mol2/mol2_bond.hpp"
#include "kora/mol2/mol2_crysin.hpp"
#include "kora/mol2/mol2_molecule.hpp"
#include "mol2_test_support.hpp"

namespace {

using namespace kora;
using test::message_of;

Mol2AtomLine atom_line(std::string const& text) {
  std::istringstream in(text);
  return Mol2AtomLine(in);
}

std::string printed(auto const& section) {
  std::ostringstream out;
  section.print(out);
  return out.str();
}

TEST(Mol2AtomLine, PrintsTheExampleLineByteForByte) {
  Mol2AtomLine const line(1, " C1\t", 1.234, -0.5, 2.0, "C.ar", 1, "RES1", 0);
  std::ostringstream out;
  line.print(out);
  EXPECT_EQ(out.str(), "     1 C1       1.2340  -0.5000   2.0000   C.ar      1 RES1   0.0000");
  out.str("");
  out << std::setfill('*');
  Mol2AtomLine(12, "LONGNAME", 0, 0, 0, "N.pl3", 2, "", -1).print(out);
  EXPECT_EQ(out.str(), "****12 LONGNAME **0.0000 **0.0000 **0.0000   N.pl3*** *2  *-1.0000");
  EXPECT_EQ(atom_line("     1 C1       1.2340  -0.5000   2.0000   C.ar      1 RES1   0.0000"),
            line);
}

TEST(Mol2AtomLine, ReadingIsLenientFieldByField) {
  Mol2AtomLine const short_line = atom_line("1 C1 0.0 0.0 0.0 C.3");
  EXPECT_EQ(short_line.substructure_id(), 1);
  EXPECT_EQ(short_line.substructure_name(), "");
  EXPECT_EQ(short_line.charge(), 0);
  EXPECT_TRUE(handle_dynamic_cast<ProteinAtom>(short_line.atom()).is_null());

  Mol2AtomLine const protein = atom_line("1 CA 0 0 0 C.3 1 ALA1 0.25\r");
  EXPECT_EQ(protein.charge(), 0);  // partial charges read as whole numbers
  THandle<Atom> const atom = protein.atom();
  ASSERT_TRUE(handle_dynamic_cast<ProteinAtom>(atom));
  EXPECT_EQ(handle_dynamic_cast<ProteinAtom>(atom)->residue_label(), "ALA1");
  EXPECT_EQ(atom->label(), "CA");
  EXPECT_EQ(atom->element().symbol(), "C");

  Mol2AtomLine const partial = atom_line("7 O9 1.5 x 3 O.2 4 SUB 2");
  EXPECT_EQ(partial.x(), 1.5);
  EXPECT_EQ(partial.y(), 0.0);
  EXPECT_EQ(partial.type(), "");  // nothing after the failed field is read
  EXPECT_EQ(partial.substructure_id(), 1);
  EXPECT_EQ(atom_line("3 N 1 2 3 N.4 1 LYS1 1 BACKBONE").charge(), 1);
  EXPECT_EQ(atom_line("").atom_id(), 0);
}

TEST(Mol2AtomLine, SybylTypesToElementsAndSites) {
  Mol2AtomLine const line;
  for (auto [type, symbol] : {std::pair{"C.ar", "C"},
                              {"Du.C", "Du"},
                              {"LP", "Unknown"},
                              {"Du", "Unknown"},
                              {"Any", "Any"},
                              {"Cl", "Cl"}}) {
    EXPECT_EQ(line.sybyl_to_symbol(type), symbol);
  }
  EXPECT_FALSE(atom_line("1 LP1 0 0 0 LP").atom()->element().is_set());
  EXPECT_EQ(atom_line("1 Fe1 0 0 0 Fe").atom()->element().atomic_number(), 26);
  Cell const cell(10, 20, 40, Angle::from_degrees(90), Angle::from_degrees(90),
                  Angle::from_degrees(90));
  THandle<Site> const site = atom_line("1 C1 5 5 10 C.3").sites(cell);
  EXPECT_EQ(site->orthogonal(), Point(5, 5, 10));
  EXPECT_NEAR(site->fractional()[1], 0.25, 1e-12);
  EXPECT_EQ(site->occupancy().value(), 1.0);
}

TEST(Mol2Atom, SectionReadsByCountAndSelectsSubstructures) {
  std::istringstream in(
      "1 C1 0 0 0 C.3 1 RES1\n2 C2 1.5 0 0 C.3 2 RES2\n3 O3 2 1 0 O.3 2 RES2\nnext line\n");
  Mol2Atom const section(in, 3);
  ASSERT_EQ(section.lines().size(), 3u);
  std::string rest;
  std::getline(in, rest);
  EXPECT_EQ(rest, "next line");
  auto const second = section.atoms(Cell(), 1);
  ASSERT_EQ(second->size(), 2u);
  EXPECT_EQ((*second)[0]->index(), 1);  // index in the whole section
  EXPECT_EQ((*second)[1]->site()->orthogonal(), Point(2, 1, 0));

  std::istringstream short_stream("1 C1 0 0 0 C.3\n");
  Mol2Atom const padded(short_stream, 4);
  ASSERT_EQ(padded.lines().size(), 4u);
  EXPECT_EQ(padded.lines()[3]->substructure_id(), 1);
  EXPECT_EQ(padded.lines()[2], padded.lines()[3]);  // lines past the end are one object

  std::istringstream none("1 C1 0 0 0 C.3\n");
  EXPECT_TRUE(Mol2Atom(none, -5).empty());
  EXPECT_NE(
      message_of<std::runtime_error>([&] { Mol2Atom(none, 2'000'000'000); }).find("2000000000"),
      std::string::npos);
}

TEST(Mol2Atom, FromMoleculeNeedsPositions) {
  auto atoms = make_handle<std::vector<THandle<Atom>>>();
  for (int i = 0; i < 3; ++i) {
    THandle<Site> site;
    if (i != 2) site = make_handle<Site>(Point(), Point(i, 0, 0));
    atoms->push_back(THandle<Atom>(make_handle<FileOrderedAtom3d>(i, Element("C"), "C", site)));
  }
  Molecule3d const molecule(atoms, make_handle<std::vector<THandle<BondData>>>());
  EXPECT_EQ(message_of<std::invalid_argument>([&] { Mol2Atom section(molecule); }),
            "Internal error in Mol2Atom: atom 2 does not have position information");
}

// Types given by the caller are used as given, and must be one per atom or bond.
TEST(Mol2Sections, FromSubsetsWithTheirTypes) {
  auto atoms = make_handle<std::vector<THandle<Atom>>>();
  for (int i = 0; i < 2; ++i) {
    auto const site = make_handle<Site>(Point(), Point(1.5 * i, 0, 0));
    atoms->push_back(THandle<Atom>(make_handle<FileOrderedAtom3d>(i, Element("C"), "C", site)));
  }
  auto bonds = make_handle<std::vector<THandle<BondData>>>();
  bonds->push_back(make_handle<BondData>(0, 1, single_bond));
  auto const molecule = make_handle<Molecule3d>(atoms, bonds);
  std::vector<THandle<MoleculeSubset>> const subsets{make_handle<MoleculeSubset>(molecule)};
  Mol2Atom const typed_atoms(subsets, {{"C.1", "C.2"}});
  EXPECT_EQ(typed_atoms.lines()[1]->type(), "C.2");
  EXPECT_EQ(Mol2Bond(subsets, {{"ar"}}).lines()[0]->type(), "ar");
  // The types found by the sections themselves are those given by the molecule.
  EXPECT_EQ(Mol2Atom(subsets).lines()[0]->type(), molecule->sybyl_atom_types()[0]);
  EXPECT_EQ(message_of<std::invalid_argument>([&] { Mol2Atom(subsets, {{"C.3"}}); }),
            "Mol2Atom: 1 types for 2 atoms");
  EXPECT_EQ(message_of<std::invalid_argument>([&] { Mol2Bond(subsets, {}); }),
            "Mol2Bond: 0 types for 1 subsets");
}

TEST(Mol2Bond, LinesTypesAndPrinting) {
  Mol2BondLine const line;
  EXPECT_EQ(line.sybyl_to_symbol("am"), line.sybyl_to_symbol("1"));
  std::pair<char const*, BondType> const codes[] = {
      {"2", double_bond},       {"3", triple_bond},     {"ar", aromatic_bond},
      {"4", quadruple_bond},    {"po", polymeric_bond}, {"de", delocalised_bond},
      {"dl", delocalised_bond}, {"pi", pi_bond},        {"AR", unknown_bond},
      {"du", unknown_bond},     {"nc", unknown_bond}};
  for (auto [code, type] : codes)
    EXPECT_EQ(line.sybyl_to_symbol(code), type) << code;

  Mol2BondLine read;
  std::istringstream in("1 1 2 ar 1\n7 3 4\n");
  read.read(in);
  EXPECT_EQ(printed(read), "     1     1     2   ar");
  read.read(in);
  EXPECT_EQ(read, Mol2BondLine(7, 3, 4, "ar"));  // the type keeps what it held
  EXPECT_EQ(read.bond()->atom1(), 2);
  EXPECT_THROW(Mol2BondLine(1, 0, 2, "1").bond(), std::invalid_argument);

  std::istringstream section_text("1 1 2 1\n2 2 3 2\n");
  Mol2Bond const section(section_text, 2);
  EXPECT_EQ(printed(section), "     1     1     2    1\n     2     2     3    2");
  std::istringstream back(printed(section));
  EXPECT_EQ(Mol2Bond(back, 2), section);
}

Mol2Crysin read_crysin(std::string const& text) {
  std::istringstream in(text);
  return Mol2Crysin(in);
}

Mol2Molecule molecule_record(std::string const& text) {
  std::istringstream in(text);
  return Mol2Molecule(in);
}

TEST(Mol2Molecule, CountsLineRules) {
  Mol2Molecule const twelve = molecule_record("  benzene \n12\nSMALL\nNO_CHARGES\n");
  EXPECT_EQ(twelve.name(), "benzene");
  EXPECT_EQ(twelve.number_of_atoms(), 12);
  EXPECT_EQ(twelve.number_of_bonds(), 0);
  EXPECT_EQ(twelve.number_of_substructures(), 1);
  Mol2Molecule const zero_sub = molecule_record("m\n\n 5 4 0 0 0\nPROTEIN USER_CHARGES\n");
  EXPECT_EQ(zero_sub.number_of_substructures(), 1);
  EXPECT_EQ(zero_sub.number_of_bonds(), 4);
  EXPECT_EQ(zero_sub.molecule_type(), "PROTEIN");
  EXPECT_EQ(zero_sub.charge_type(), "USER_CHARGES");
  EXPECT_EQ(printed(zero_sub), "m\n     5     4     1\nSMALL\nUSER_CHARGES\n");
  EXPECT_EQ(molecule_record("m\n12abc x\nSMALL\n").number_of_bonds(), 0);

  EXPECT_EQ(message_of<std::invalid_argument>([] { molecule_record("name\n\n\nSMALL\n"); }),
            "Failed to read Mol2 file.The file's number of atoms and bonds line\nis corrupt "
            "(less than 2 fields)\n\nOffending line in file is: >> <<");
}

TEST(Mol2Molecule, FromTheModel) {
  auto atoms = make_handle<std::vector<THandle<Atom>>>();
  atoms->push_back(
      THandle<Atom>(make_handle<FileOrderedAtom3d>(1, Element("Na"), "Na", THandle<Site>())));
  atoms->push_back(
      THandle<Atom>(make_handle<FileOrderedAtom3d>(2, Element("Cl"), "Cl", THandle<Site>())));
  (*atoms)[0]->set_formal_charge(1);
  Molecule3d const salt(atoms, make_handle<std::vector<THandle<BondData>>>());
  Mol2Molecule const record(salt, "SALT01");
  EXPECT_EQ(printed(record),
            "SALT01\n     2     0     1\nSMALL\nUSER_CHARGES\n****\nGenerated from the VRX - "
            "Crystal connectivity not present\n");
  EXPECT_EQ(Mol2Molecule(std::vector<THandle<MoleculeSubset>>{}, "x").name(), "");
}

TEST(Mol2Crysin, ConversionsPrintingAndEquality) {
  auto const crysin = [](char const* symbol) {
    return Mol2Crysin(Cell(5, 6, 7, Angle::from_degrees(90), Angle::from_degrees(100),
                           Angle::from_degrees(90), Spacegroup(symbol)));
  };
  std::tuple<char const*, int, int> const cases[] = {
      {"P21/c", 14, 1}, {"P21/a", 14, 2},  {"P1121/b", 14, 3}, {"P21/n", 231, 1},   {"R3", 232, 1},
      {"R3r", 146, 1},  {"R-3cr", 167, 1}, {"Fm-3m", 225, 1},  {"P 1 2/c 1", 13, 1}};
  for (auto [symbol, number, setting] : cases) {
    Mol2Crysin const c = crysin(symbol);
    EXPECT_EQ(c.spacegroup_number(), number) << symbol;
    EXPECT_EQ(c.setting(), setting) << symbol;
    EXPECT_EQ(c.convert_to_kora().symbol(), Spacegroup(symbol).symbol()) << symbol;
  }
  Mol2Crysin const p21c = crysin("P21/c");
  EXPECT_EQ(printed(p21c),
            "    5.0000    6.0000    7.0000   90.0000  100.0000   90.0000    14     1");
  EXPECT_EQ(printed(crysin("P 2/b 1 1")), "");  // a setting of no row: nothing printed
  EXPECT_EQ(read_crysin("5.0009 6 7 90 100 90 14 5").convert_to_kora().symbol(), "...");
  EXPECT_FALSE(read_crysin("5.0009 6 7 90 100 90 14 5") == p21c);  // settings differ
  EXPECT_EQ(read_crysin("5.0009 6 7 90 100 90 14 1"), p21c);
  EXPECT_FALSE(read_crysin("5.001 6 7 90 100 90 14 1") == p21c);
  EXPECT_EQ(read_crysin("5 6 7 90 90 90 3 2").convert_to_kora().symbol(), "---");
  EXPECT_EQ(read_crysin("5 6 7 90 90 90 0 0").cell().spacegroup().number(), 1);
}

TEST(Mol2Crysin, EveryTableEntryConvertsBothWays) {
  auto const& table = Mol2Crysin::setting_table();
  int entries = 0;
  for (int number = 1; number <= 230; ++number) {
    for (int k = 0; k < 6; ++k) {
      std::string const& symbol = table[number][k];
      if (symbol == "---" || symbol == "...") continue;
      ++entries;
      Spacegroup const group =
          read_crysin("10 10 10 90 90 90 " + std::to_string(number) + " " + std::to_string(k + 1))
              .convert_to_kora();
      bool const hexagonal_r = symbol[0] == 'R' && k == 0;
      EXPECT_EQ(group.symbol(), hexagonal_r ? symbol + "r" : symbol) << number << "/" << k + 1;
      // The way back finds the same number and setting.
      Mol2Crysin back(Cell(10, 10, 10, Angle::from_degrees(90), Angle::from_degrees(90),
                           Angle::from_degrees(90), group));
      bool const repeated = number == 118 && k == 1;  // C-42b, the symbol of 117 too
      if (!repeated) {
        EXPECT_EQ(back.spacegroup_number(), number) << symbol;
        EXPECT_EQ(back.setting(), k + 1) << symbol;
      }
    }
  }
  EXPECT_EQ(entries, 495);
}

}  // namespace
