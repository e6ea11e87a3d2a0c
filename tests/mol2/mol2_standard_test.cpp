// Standard Mol2 reading: elements of atoms typed by force fields other than SYBYL, sections
// whose counts are wrong. Standard writing, read back: bond orders and atom types, charges,
// deuterium, residues and substructures, and crystal data only where there is some.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "kora/mol2/mol2_file.hpp"
#include "mol2/mol2_standard.hpp"
#include "mol2_test_support.hpp"

namespace {

using namespace kora;
using test::read_mol2;
using test::read_standard;
using test::section;
using test::squeezed;
using test::words;

std::vector<std::string> symbols(Molecule const& molecule) {
  std::vector<std::string> out;
  for (int i = 0; i < molecule.natoms(); ++i)
    out.push_back(molecule.atom(i)->element().is_set() ? molecule.atom(i)->element().symbol()
                                                       : "?");
  return out;
}

struct ElementCase {
  char const* type;
  char const* name;
  char const* symbol;  // "" for no element
};

class Mol2StandardElement : public testing::TestWithParam<ElementCase> {};

TEST_P(Mol2StandardElement, FromTypeCheckedAgainstName) {
  ElementCase const c = GetParam();
  Element const e = detail::mol2_standard_element(c.type, c.name);
  EXPECT_EQ(e.is_set() ? e.symbol() : std::string(), c.symbol)
      << "type " << c.type << ", name " << c.name;
}

// One or two types of each rule: SYBYL; GAFF (lower case, cl and br the only two-letter
// elements); AMBER (element letter and class, ions in element case or looked up); CHARMM (ions
// by name, "CL" also a lipid's carbonyl carbon); GLYCAM types that read as rare elements; types
// that say nothing (the name decides, protein names staying light elements); deuterium.
INSTANTIATE_TEST_SUITE_P(
    Types, Mol2StandardElement,
    testing::Values(ElementCase{"C.ar", "N1", "C"}, ElementCase{"LP", "C1", ""},
                    ElementCase{"br", "BR", "Br"}, ElementCase{"c3", "N1", "N"},
                    ElementCase{"CT", "CA", "C"}, ElementCase{"CL", "CL1", "Cl"},
                    ElementCase{"Na+", "Na+", "Na"}, ElementCase{"C0", "CA", "Ca"},
                    ElementCase{"IP", "NA", "Na"}, ElementCase{"CLA", "CLA", "Cl"},
                    ElementCase{"CL", "C13", "C"}, ElementCase{"Os", "O5", "O"},
                    ElementCase{"Pt", "PT1", "Pt"}, ElementCase{"opls_401", "CL", "Cl"},
                    ElementCase{"opls_112", "CA", "C"}, ElementCase{"opls_140", "1HB", "H"},
                    ElementCase{"23", "HG1", "H"}, ElementCase{"D", "H1", "D"},
                    ElementCase{"DU", "DU", ""}));

// Standard reading only; the crystal maker's molecules carry the same elements.
TEST(Mol2StandardRead, ForceFieldTypedAtomsGetElementsOnlyInStandardMode) {
  std::string const gaff =
      "@<TRIPOS>MOLECULE\nLIG\n    4     2     2\nSMALL\nbcc\n\n@<TRIPOS>ATOM\n"
      "      1 C1     0.0000    0.0000    0.0000 c3        1 LIG     -0.094100\n"
      "      2 Cl1    1.7700    0.0000    0.0000 cl        1 LIG     -0.123000\n"
      "      3 H1    -0.3600    1.0300    0.0000 hc        1 LIG      0.072367\n"
      "      4 NA    10.0000    0.0000    0.0000 Na+       2 NA       1.000000\n@<TRIPOS>BOND\n"
      "     1     1     2 1\n     2     1     3 1\n";
  Mol2File const standard = read_standard(gaff);
  EXPECT_EQ(symbols(*standard.molecule()), (std::vector<std::string>{"C", "Cl", "H", "Na"}));
  THandle<CrystalMaker> const maker = standard.crystal_maker();
  EXPECT_EQ(maker->molecule(1)->atom(0)->element().symbol(), "Na");
  EXPECT_EQ(symbols(*read_mol2(gaff).molecule()), (std::vector<std::string>{"?", "?", "?", "?"}));
}

// Standard reading ends each section at the next header, whatever the counts say, and skips
// blank and comment lines.
TEST(Mol2StandardRead, SectionsEndAtTheNextHeaderAndSkipBlankLines) {
  std::string const atoms =
      "1 O1 0.0 0.0 0.0 O.3 1 HOH 0\n2 H1 0.96 0.0 0.0 H 1 HOH 0\n3 H2 -0.24 0.93 0.0 H 1 HOH 0\n";
  std::string const rest =
      "@<TRIPOS>BOND\n1 1 2 1\n2 1 3 1\n@<TRIPOS>SUBSTRUCTURE\n1 HOH 1 RESIDUE 1 W HOH 0\n";
  std::tuple<char const*, std::string, int, int> const cases[] = {
      {"4 2 1", atoms + rest, 3, 2},
      {"3 2",
       "\n1 O1 0.0 0.0 0.0 O.3 1 HOH 0\n   \n# note\n2 H1 0.96 0.0 0.0 H 1 HOH 0\n\r\n"
       "3 H2 -0.24 0.93 0.0 H 1 HOH 0\n@<TRIPOS>BOND\n1 1 2 1\n\n2 1 3 1\n",
       3, 2},
      {"3 2", "1 O1 0.0 0.0 0.0 O.3 1 HOH 0\n", 1, 0},  // the file cut in the atoms
  };
  for (auto const& [counts, body, natoms, nbonds] : cases) {
    std::string const text = "@<TRIPOS>MOLECULE\nwater\n" + std::string(counts) +
                             "\nSMALL\nNO_CHARGES\n@<TRIPOS>ATOM\n" + body;
    SCOPED_TRACE(text);
    Mol2File const file = read_standard(text);
    THandle<Molecule> const molecule = file.molecule();
    EXPECT_EQ(molecule->natoms(), natoms);
    EXPECT_EQ(molecule->nbonds(), nbonds);
    EXPECT_TRUE(molecule->atom(molecule->natoms() - 1)->element().is_set());
    if (body.find("SUBSTRUCTURE") != std::string::npos) {
      EXPECT_EQ(file.substructure(), "1 HOH 1 RESIDUE 1 W HOH 0\n");
    }
  }
}

THandle<Atom> make_atom(char const* symbol, std::string label, double x, double y = 0,
                        double z = 0) {
  Point const p(x, y, z);
  return make_handle<FileOrderedAtom3d>(0, Element(symbol), std::move(label),
                                        make_handle<Site>(p, p, 1.0));
}

THandle<Molecule> molecule_of(std::vector<THandle<Atom>> atoms, std::vector<BondData> bonds = {}) {
  return make_handle<Molecule3d>(std::move(atoms), std::move(bonds));
}

CrystalMaker maker_of(std::vector<THandle<Molecule>> molecules, Cell const& cell = Cell(),
                      bool has_cell = false) {
  auto list = make_handle<MoleculeList>(std::move(molecules));
  CrystalMaker maker(cell, list, THandle<MoleculeList>(), THandle<MoleculeList>());
  maker.mutable_details().has_cell = has_cell;
  return maker;
}

std::string write_standard(CrystalMaker const& maker, std::string const& name = "m") {
  Mol2File file;
  file.set_write_options(WriteOptions::standard_mode());
  file.add(maker, DatabaseEntryIdentifier(name));
  std::ostringstream out;
  file.print(out);
  return out.str();
}

struct BondCase {
  BondType type;
  char const* second;  // element of the second atom ("" for none)
  char const* code;
};

class Mol2StandardBond : public testing::TestWithParam<BondCase> {};

TEST_P(Mol2StandardBond, WrittenAsTheModelHasItAndReadBack) {
  BondCase const c = GetParam();
  std::string const text = write_standard(maker_of(
      {molecule_of({make_atom("C", "C1", 0), make_atom(c.second, "X2", 1.4)}, {{0, 1, c.type}})}));
  std::vector<std::string> const bonds = section(text, "BOND");
  ASSERT_EQ(bonds.size(), 1u) << text;
  EXPECT_EQ(words(bonds[0]), (std::vector<std::string>{"1", "1", "2", c.code}));
  EXPECT_EQ(read_standard(text).molecule()->bond(0)->type(), c.type);
}

INSTANTIATE_TEST_SUITE_P(
    Codes, Mol2StandardBond,
    testing::Values(BondCase{single_bond, "C", "1"}, BondCase{double_bond, "C", "2"},
                    BondCase{triple_bond, "C", "3"}, BondCase{aromatic_bond, "C", "ar"},
                    BondCase{quadruple_bond, "Re", "4"}, BondCase{polymeric_bond, "C", "po"},
                    BondCase{delocalised_bond, "C", "de"}, BondCase{pi_bond, "Fe", "pi"},
                    BondCase{unknown_bond, "C", "un"}, BondCase{unknown_bond, "", "du"},
                    // An element the SYBYL types lack keeps its bond order.
                    BondCase{double_bond, "Ru", "2"}, BondCase{single_bond, "", "1"}));

// Acetamide without hydrogens, C-C(=O)-N, and a deuterium atom as a second molecule, in an
// entry whose name has a blank.
TEST(Mol2Standard, AmideBondIsAmAndAtomTypesComeFromTheSource) {
  auto const molecule =
      molecule_of({make_atom("C", "C 1", 0), make_atom("C", "C2", 1.5),
                   make_atom("O", "O3", 2.1, 1.0), make_atom("N", "", 2.2, -1.2)},
                  {{0, 1, single_bond}, {1, 2, double_bond}, {1, 3, single_bond}});
  // A valid SYBYL type of the source wins over the typer; an invalid one (GAFF "c3") or one
  // of another element does not.
  molecule->atom(0)->mutable_details()->atom_type = "c3";
  molecule->atom(1)->mutable_details()->atom_type = "C.cat";
  molecule->atom(2)->mutable_details()->atom_type = "N.3";
  std::string const text = write_standard(
      maker_of({molecule, molecule_of({make_atom("D", "D5", -0.00001, 0, 5)})}), "two words");
  std::vector<std::string> types;
  for (std::string const& line : section(text, "ATOM"))
    types.push_back(words(line).at(5));
  EXPECT_EQ(types, (std::vector<std::string>{"C.3", "C.cat", "O.2", "N.am", "D"}));
  // Fixed columns; a coordinate that rounds to zero is not written as -0.0000.
  EXPECT_EQ(section(text, "ATOM").at(4),
            "      5 D5           0.0000     0.0000     5.0000 D            2 RES2         0.0000");
  EXPECT_EQ(words(section(text, "BOND").at(2)).at(3), "am");
  Mol2File const file = read_standard(text);
  THandle<Molecule> const back = file.molecule();
  EXPECT_EQ(back->bond(2)->type(), single_bond);
  EXPECT_EQ(symbols(*back), (std::vector<std::string>{"C", "C", "O", "N", "D"}));
  // Blanks in a name, or an empty name, would shift every later field.
  EXPECT_EQ(back->atom(0)->label() + ' ' + back->atom(3)->label() + ' ' + file.molecule_name(),
            "C_1 N4 two words");
}

constexpr char const* charged_source =
    "@<TRIPOS>MOLECULE\nacetate\n4 3 1\nSMALL\nbcc\n\n@<TRIPOS>ATOM\n"
    "1 C1 0.0 0.0 0.0 C.3 1 ACT1 -0.123456\n2 C2 1.5 0.0 0.0 C.2 1 ACT1 0.876543\n"
    "3 O1 2.1 1.0 0.0 O.co2 1 ACT1 -0.87654\n4 O2 2.1 -1.0 0.0 O.co2 1 ACT1 -0.87654\n"
    "@<TRIPOS>UNITY_ATOM_ATTR\n2 2\ncolor 3\ncharge 1\n4 1\ncharge -1\n@<TRIPOS>BOND\n1 1 2 1\n2 2 "
    "3 2\n3 2 4 1\n";

TEST(Mol2Standard, PartialAndFormalCharges) {
  Mol2File const source = read_standard(charged_source);
  ASSERT_EQ(source.unity_charges(), (std::vector<std::pair<int, int>>{{2, 1}, {4, -1}}));
  THandle<CrystalMaker> const maker = source.crystal_maker();
  EXPECT_EQ(maker->details().mol2_charge_type, "bcc");
  std::string const text = write_standard(*maker, "acetate");
  EXPECT_EQ(words(section(text, "ATOM").at(0)).at(8), "-0.1235");
  EXPECT_EQ(section(text, "UNITY_ATOM_ATTR"),
            (std::vector<std::string>{"2 1", "charge 1", "4 1", "charge -1"}));
  THandle<Molecule> const back = read_standard(text).molecule();
  EXPECT_EQ(back->atom(1)->formal_charge() * 10 + back->atom(3)->formal_charge(), 9);
  // Classic reading keeps formal charges as the classic model has them (none).
  THandle<Molecule> const classic = read_mol2(text).molecule();
  EXPECT_EQ(classic->atom(3)->formal_charge(), 0);
  EXPECT_TRUE(classic->atom(3)->details()->has_partial_charge);
  // Without charges (in any case) the column is not taken for partial charges.
  std::string none = charged_source;
  none.replace(none.find("bcc"), 3, "No_CHARGES");
  THandle<Molecule> const uncharged = read_standard(none).molecule();
  EXPECT_FALSE(uncharged->atom(0)->details()->has_partial_charge);
  EXPECT_EQ(uncharged->atom(3)->formal_charge(), -1);
}

// The charge type line: NO_CHARGES without partial charges; with them the source's own type,
// or USER_CHARGES where the source had none or said NO_CHARGES, in any case.
TEST(Mol2Standard, ChargeTypeLine) {
  std::tuple<bool, char const*, char const*> const cases[] = {{false, "bcc", "NO_CHARGES"},
                                                              {true, "", "USER_CHARGES"},
                                                              {true, "no_Charges", "USER_CHARGES"},
                                                              {true, "bcc", "bcc"}};
  for (auto [partial, type, line] : cases) {
    auto const molecule = molecule_of({make_atom("N", "N1", 0)});
    molecule->atom(0)->mutable_details()->has_partial_charge = partial;
    molecule->atom(0)->mutable_details()->partial_charge = 0.25;
    CrystalMaker maker = maker_of({molecule});
    maker.mutable_details().mol2_charge_type = type;
    std::string const text = write_standard(maker);
    EXPECT_NE(text.find("\nSMALL\n" + std::string(line) + "\n"), std::string::npos) << text;
    THandle<Molecule> const read_back = read_standard(text).molecule();
    AtomDetails const& back = *read_back->atom(0)->details();
    EXPECT_EQ(back.has_partial_charge, partial) << type;
    EXPECT_DOUBLE_EQ(back.has_partial_charge ? back.partial_charge : 0.25, 0.25) << type;
  }
}

// Residues told apart by number, insertion code and chain, the water a molecule of its own.
TEST(Mol2Standard, ResiduesOfAPdbSourceBecomeSubstructures) {
  struct Residue {
    char const* name;
    int number;
    char insertion;
    char const* chain;
  } const residues[] = {{"GLY", 2, ' ', "A"}, {"GLY", 2, 'B', "A"}, {"HOH", 101, ' ', "W"}};
  std::vector<THandle<Atom>> atoms;
  for (int i = 0; i < 5; ++i) {  // N and CA of each residue, the water's O
    atoms.push_back(make_atom(i % 2 ? "C" : "N", i % 2 ? "CA" : "N", i * 1.5));
    AtomDetails& d = *atoms.back()->mutable_details();
    d.residue_name = residues[i / 2].name;
    d.residue_number = residues[i / 2].number;
    d.insertion_code = residues[i / 2].insertion;
    d.chain = residues[i / 2].chain;
  }
  std::string const text = write_standard(
      maker_of({molecule_of({atoms[0], atoms[1], atoms[2], atoms[3]},
                            {{0, 1, single_bond}, {1, 2, single_bond}, {2, 3, single_bond}}),
                molecule_of({atoms[4]})}));
  EXPECT_EQ(squeezed(section(text, "SUBSTRUCTURE")),
            (std::vector<std::string>{"1 GLY2 1 RESIDUE 1 A GLY 1", "2 GLY2B 3 RESIDUE 1 A GLY 1",
                                      "3 HOH101 5 RESIDUE 1 W HOH 0"}));
  EXPECT_NE(text.find("\nBIOPOLYMER\n"), std::string::npos);
  std::vector<std::string> const line = words(section(text, "ATOM").at(2));
  EXPECT_EQ(line.at(6) + ' ' + line.at(7), "2 GLY2B");  // atom lines name their substructure
  THandle<Molecule> const back = read_standard(text).molecule();
  ASSERT_EQ(back->natoms(), 5);
  for (int i = 0; i < 5; ++i) {
    AtomDetails const& d = *back->atom(i)->details();
    Residue const& r = residues[i / 2];
    EXPECT_EQ(d.residue_name + std::to_string(d.residue_number) + d.insertion_code + d.chain,
              r.name + std::to_string(r.number) + r.insertion + r.chain);
  }
  EXPECT_EQ(back->atom(2)->details()->substructure_id, 2);
}

TEST(Mol2Standard, Mol2SubstructuresKeepTheirIdsAndNames) {
  std::string const source =
      "@<TRIPOS>MOLECULE\nx\n4 0 3\nPROTEIN\nNO_CHARGES\n@<TRIPOS>ATOM\n"
      "1 N 0 0 0 N.am 7 LYS3 0\n2 CA 1.4 0 0 C.3 7 LYS3 0\n3 O 9 0 0 O.3 9 HOH12 0\n"
      "4 O 12 0 0 O.3 11 WAT5 0\n@<TRIPOS>SUBSTRUCTURE\n"
      "     7 LYS3        1 RESIDUE           4 B     LYS     1 ROOT\n"
      "     9 HOH12       3 GROUP             0 ****  ****    0\n"
      "    11 WAT5        4 RESIDUE           0 ****  ROOT    0\n";
  Mol2File file = read_standard(source);
  THandle<Molecule> const m = file.molecule();
  EXPECT_EQ(m->atom(0)->details()->residue_name + m->atom(0)->details()->chain, "LYSB");
  EXPECT_EQ(m->atom(0)->details()->residue_number, 3);
  EXPECT_EQ(m->atom(2)->details()->residue_name, "");  // a group, not a residue
  EXPECT_EQ(m->atom(2)->details()->substructure_id, 9);
  // A sub_type that does not begin the name ("ROOT" for WAT5) does not name the residue.
  EXPECT_EQ(m->atom(3)->details()->residue_name, "WAT");
  EXPECT_EQ(m->atom(3)->details()->residue_number, 5);
  std::ostringstream out;
  file.set_write_options(WriteOptions::standard_mode());
  file.print(out);  // a file read, not added, writes from its own model
  EXPECT_EQ(squeezed(section(out.str(), "SUBSTRUCTURE")),
            (std::vector<std::string>{"7 LYS3 1 RESIDUE 1 B LYS 0", "9 HOH12 3 GROUP 0 **** **** 0",
                                      "11 WAT5 4 RESIDUE 1 **** WAT 0"}));
  EXPECT_NE(out.str().find("\nPROTEIN\nNO_CHARGES\n"), std::string::npos);
}

// A CRYSIN record only for a cell the source had that is not the placeholder unit cube, and
// only where it states the cell's own group; a BOND section even without bonds (some readers
// drop the entry otherwise).
TEST(Mol2Standard, CrystalRecordOnlyWithCrystalData) {
  auto const molecule = molecule_of({make_atom("O", "O1", 1)});
  std::string const cube = write_standard(maker_of({molecule}, Cell(), true));
  EXPECT_NE(cube.find("@<TRIPOS>BOND\n"), std::string::npos);
  EXPECT_EQ(cube.find("CRYSIN"), std::string::npos);
  Cell const p21c(5, 6, 7, Angle::from_degrees(90), Angle::from_degrees(101.5),
                  Angle::from_degrees(90), Spacegroup("P 1 21/c 1"));
  EXPECT_EQ(write_standard(maker_of({molecule}, p21c, false)).find("CRYSIN"), std::string::npos);
  std::string const text = write_standard(maker_of({molecule}, p21c, true));
  EXPECT_EQ(squeezed(section(text, "CRYSIN")),
            std::vector<std::string>{"5.0000 6.0000 7.0000 90.0000 101.5000 90.0000 14 1"});
  EXPECT_TRUE(read_standard(text).crystal_maker()->details().has_cell);
  EXPECT_FALSE(read_standard(cube).crystal_maker()->details().has_cell);
  int written = 0;
  for (std::string const& setting : Spacegroup::tabulated_settings()) {
    Spacegroup const group(setting);
    Cell const cell(7, 8, 9, Angle::from_degrees(90), Angle::from_degrees(90),
                    Angle::from_degrees(90), group);
    std::string const with_group = write_standard(maker_of({molecule}, cell, true));
    if (with_group.find("@<TRIPOS>CRYSIN") == std::string::npos) continue;
    ++written;
    EXPECT_TRUE(read_standard(with_group).cell()->spacegroup() == group) << setting;
  }
  EXPECT_GT(written, 300);
}

}  // namespace
