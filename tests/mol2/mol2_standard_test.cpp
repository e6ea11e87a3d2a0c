// Standard Mol2 reading and writing. Reading: elements of atoms typed by force fields other
// than SYBYL (GAFF, AMBER, CHARMM, GLYCAM, OPLS), sections whose counts are wrong, partial and
// formal charges, and identifiers of names too long to be identifiers. Writing: what the model
// holds is written so that kora (and other readers) read it back: bond orders, charges,
// deuterium, residues and substructures, crystal data only where there is some, and entries
// without atoms.

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

// ---------------------------------------------------------------------------------------
// Elements from atom types and names

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

INSTANTIATE_TEST_SUITE_P(
    Types, Mol2StandardElement,
    testing::Values(
        // SYBYL types give what classic reading gives, whatever the name.
        ElementCase{"C.ar", "N1", "C"}, ElementCase{"Ca", "CA", "Ca"}, ElementCase{"LP", "C1", ""},
        ElementCase{"S.o2", "S1", "S"}, ElementCase{"N.PL3", "N1", "N"},
        // GAFF: lower-case types; cl and br are the only two-letter elements.
        ElementCase{"ca", "CA", "C"}, ElementCase{"hc", "H22", "H"}, ElementCase{"cl", "Cl1", "Cl"},
        ElementCase{"br", "BR", "Br"}, ElementCase{"c3", "N1", "N"},  // the name contradicts
        // AMBER: upper case element letter and class; ions in element case or looked up.
        ElementCase{"CT", "CA", "C"}, ElementCase{"N*", "N9", "N"}, ElementCase{"HO", "H2*", "H"},
        ElementCase{"CL", "CL1", "Cl"}, ElementCase{"Na+", "Na+", "Na"},
        ElementCase{"Mg2+", "MG", "Mg"}, ElementCase{"C0", "CA", "Ca"},
        ElementCase{"IP", "NA", "Na"},
        // CHARMM: ions by name, CGenFF halogens; "CL" is also a carbonyl carbon of lipids.
        ElementCase{"CLA", "CLA", "Cl"}, ElementCase{"CLGR1", "CL1", "Cl"},
        ElementCase{"CL", "C13", "C"}, ElementCase{"HGA2", "H21", "H"},
        // GLYCAM types that read as rare elements give way to the name.
        ElementCase{"Os", "O5", "O"}, ElementCase{"Ho", "H2O", "H"}, ElementCase{"Pt", "PT1", "Pt"},
        // Types that say nothing: the name decides, protein names staying light elements.
        ElementCase{"opls_404", "Li", "Li"}, ElementCase{"opls_401", "CL", "Cl"},
        ElementCase{"opls_409", "ZN", "Zn"}, ElementCase{"opls_112", "CA", "C"},
        ElementCase{"opls_140", "1HB", "H"}, ElementCase{"23", "HG1", "H"},
        ElementCase{"7", "SE", "Se"}, ElementCase{"7", "Fe1", "Fe"},
        // Deuterium, and types and names without an element.
        ElementCase{"D", "H1", "D"}, ElementCase{"DU", "DU", ""}, ElementCase{"EP", "EP1", ""},
        ElementCase{"X", "Q1", ""}, ElementCase{"", "", ""}));

constexpr char const* gaff_source =
    "@<TRIPOS>MOLECULE\nLIG\n    6     4     2\nSMALL\nbcc\n\n@<TRIPOS>ATOM\n"
    "      1 C1     0.0000    0.0000    0.0000 c3        1 LIG     -0.094100\n"
    "      2 Cl1    1.7700    0.0000    0.0000 cl        1 LIG     -0.123000\n"
    "      3 H1    -0.3600    1.0300    0.0000 hc        1 LIG      0.072367\n"
    "      4 H2    -0.3600   -0.5100    0.8900 hc        1 LIG      0.072367\n"
    "      5 H3    -0.3600   -0.5100   -0.8900 hc        1 LIG      0.072366\n"
    "      6 NA    10.0000    0.0000    0.0000 Na+       2 NA       1.000000\n@<TRIPOS>BOND\n"
    "     1     1     2 1\n     2     1     3 1\n     3     1     4 1\n     4     1     5 1\n";

TEST(Mol2StandardRead, ForceFieldTypedAtomsGetElementsOnlyInStandardMode) {
  Mol2File const standard = read_standard(gaff_source);
  EXPECT_EQ(symbols(*standard.molecule()),
            (std::vector<std::string>{"C", "Cl", "H", "H", "H", "Na"}));
  // The crystal maker's molecules carry the same elements, and the type stays in the details.
  THandle<CrystalMaker> const maker = standard.crystal_maker();
  ASSERT_EQ(maker->nmolecules(), 2);
  EXPECT_EQ(maker->molecule(1)->atom(0)->element().symbol(), "Na");
  EXPECT_EQ(maker->molecule(0)->atom(1)->details()->atom_type, "cl");

  Mol2File const classic = read_mol2(gaff_source, ReadOptions::classic_mode());
  EXPECT_EQ(symbols(*classic.molecule()), (std::vector<std::string>{"?", "?", "?", "?", "?", "?"}));
}

// ---------------------------------------------------------------------------------------
// Sections whose counts are wrong, or with blank and comment lines

struct SectionCase {
  char const* what;
  char const* counts;  // the MOLECULE counts line
  char const* atoms;   // the lines after the ATOM header
  char const* rest;    // BOND and what follows
  int natoms;
  int nbonds;
};

constexpr char const* water_atoms =
    "1 O1 0.0 0.0 0.0 O.3 1 HOH 0\n2 H1 0.96 0.0 0.0 H 1 HOH 0\n3 H2 -0.24 0.93 0.0 H 1 HOH 0\n";
constexpr char const* water_bonds = "@<TRIPOS>BOND\n1 1 2 1\n2 1 3 1\n";

class Mol2StandardSections : public testing::TestWithParam<SectionCase> {};

TEST_P(Mol2StandardSections, EndAtTheNextHeaderAndSkipBlankLines) {
  SectionCase const c = GetParam();
  std::string const text = std::string("@<TRIPOS>MOLECULE\nwater\n") + c.counts +
                           "\nSMALL\nNO_CHARGES\n@<TRIPOS>ATOM\n" + c.atoms + c.rest;
  Mol2File const file = read_standard(text);
  THandle<Molecule> const molecule = file.molecule();
  EXPECT_EQ(molecule->natoms(), c.natoms) << c.what;
  EXPECT_EQ(molecule->nbonds(), c.nbonds) << c.what;
  for (int i = 0; i < molecule->natoms(); ++i)
    EXPECT_TRUE(molecule->atom(i)->element().is_set()) << c.what << " atom " << i;
  if (std::string(c.rest).find("SUBSTRUCTURE") != std::string::npos) {
    EXPECT_EQ(file.substructure(), "1 HOH 1 RESIDUE 1 W HOH 0\n") << c.what;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Counts, Mol2StandardSections,
    testing::Values(
        SectionCase{"atoms over-counted", "4 2 1", water_atoms,
                    "@<TRIPOS>BOND\n1 1 2 1\n2 1 3 1\n@<TRIPOS>SUBSTRUCTURE\n"
                    "1 HOH 1 RESIDUE 1 W HOH 0\n",
                    3, 2},
        SectionCase{"bonds over-counted", "3 5 1", water_atoms,
                    "@<TRIPOS>BOND\n1 1 2 1\n2 1 3 1\n@<TRIPOS>SUBSTRUCTURE\n"
                    "1 HOH 1 RESIDUE 1 W HOH 0\n",
                    3, 2},
        SectionCase{"blank and comment lines", "3 2",
                    "\n1 O1 0.0 0.0 0.0 O.3 1 HOH 0\n   \n# note\n2 H1 0.96 0.0 0.0 H 1 HOH 0\n"
                    "\r\n3 H2 -0.24 0.93 0.0 H 1 HOH 0\n",
                    "@<TRIPOS>BOND\n1 1 2 1\n\n2 1 3 1\n", 3, 2},
        SectionCase{"file cut in the atoms", "3 2", "1 O1 0.0 0.0 0.0 O.3 1 HOH 0\n", "", 1, 0},
        SectionCase{"counts right", "3 2", water_atoms, water_bonds, 3, 2}));

TEST(Mol2StandardRead, ClassicSectionsKeepTheirCounts) {
  // The BOND header read as a fourth atom without element; no bonds.
  std::string const text = std::string("@<TRIPOS>MOLECULE\nwater\n4 2\nSMALL\nNO_CHARGES\n") +
                           "@<TRIPOS>ATOM\n" + water_atoms + water_bonds;
  THandle<Molecule> const molecule = read_mol2(text, ReadOptions::classic_mode()).molecule();
  EXPECT_EQ(molecule->natoms(), 4);
  EXPECT_FALSE(molecule->atom(3)->element().is_set());
  EXPECT_EQ(molecule->nbonds(), 0);
}

// ---------------------------------------------------------------------------------------
// Names too long to be identifiers

TEST(Mol2StandardRead, EntryIdentifiersNeverFail) {
  EXPECT_EQ(detail::mol2_entry_identifier(std::string(256, 'a')).str(), std::string(256, 'a'));
  EXPECT_EQ(detail::mol2_entry_identifier(std::string(257, 'a')).str(), std::string(256, 'a'));
  EXPECT_EQ(detail::mol2_entry_identifier(std::string("a\0b", 3)).str(), "UNKNWN");
  EXPECT_EQ(detail::mol2_entry_identifier("").str(), "");
  // A file object read alone names the entry by its cut name; classic reading "UNKNWN".
  std::string const text = "@<TRIPOS>MOLECULE\n" + std::string(400, 'n') +
                           "\n1 0\nSMALL\nNO_CHARGES\n@<TRIPOS>ATOM\n1 C1 0 0 0 C.3\n";
  EXPECT_EQ(read_standard(text).database_entry()->identifier().str(), std::string(256, 'n'));
  EXPECT_EQ(read_mol2(text, ReadOptions::classic_mode()).database_entry()->identifier().str(),
            "UNKNWN");
}

THandle<Atom> make_atom(char const* symbol, std::string label, double x, double y, double z) {
  Point const p(x, y, z);
  return make_handle<FileOrderedAtom3d>(0, Element(symbol), std::move(label),
                                        make_handle<Site>(p, p, 1.0));
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

// ---------------------------------------------------------------------------------------
// Bond types

struct BondCase {
  BondType type;
  char const* second;  // element of the second atom ("" for none)
  char const* code;
};

class Mol2StandardBond : public testing::TestWithParam<BondCase> {};

TEST_P(Mol2StandardBond, WrittenAsTheModelHasItAndReadBack) {
  BondCase const c = GetParam();
  auto const molecule =
      make_handle<Molecule3d>(std::vector<THandle<Atom>>{make_atom("C", "C1", 0, 0, 0),
                                                         make_atom(c.second, "X2", 1.4, 0, 0)},
                              std::vector<BondData>{BondData(0, 1, c.type)});
  std::string const text = write_standard(maker_of({molecule}));
  std::vector<std::string> const bonds = section(text, "BOND");
  ASSERT_EQ(bonds.size(), 1u) << text;
  EXPECT_EQ(words(bonds[0]), (std::vector<std::string>{"1", "1", "2", c.code}));
  Mol2File const back = read_standard(text);
  ASSERT_EQ(back.molecule()->nbonds(), 1);
  EXPECT_EQ(back.molecule()->bond(0)->type(), c.type);
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

TEST(Mol2Standard, AmideBondIsAmAndAtomTypesComeFromTheSource) {
  // Acetamide without hydrogens: C-C(=O)-N.
  auto const molecule = make_handle<Molecule3d>(
      std::vector<THandle<Atom>>{make_atom("C", "C1", 0, 0, 0), make_atom("C", "C2", 1.5, 0, 0),
                                 make_atom("O", "O3", 2.1, 1.0, 0),
                                 make_atom("N", "N4", 2.2, -1.2, 0)},
      std::vector<BondData>{BondData(0, 1, single_bond), BondData(1, 2, double_bond),
                            BondData(1, 3, single_bond)});
  // A valid SYBYL type of the source wins over the typer; an invalid one (GAFF "c3") or one
  // of another element does not.
  molecule->atom(0)->mutable_details()->atom_type = "c3";
  molecule->atom(1)->mutable_details()->atom_type = "C.cat";
  molecule->atom(2)->mutable_details()->atom_type = "N.3";
  std::string const text = write_standard(maker_of({molecule}));
  std::vector<std::string> const atoms = section(text, "ATOM");
  ASSERT_EQ(atoms.size(), 4u);
  std::vector<std::string> types;
  for (std::string const& line : atoms)
    types.push_back(words(line).at(5));
  EXPECT_EQ(types, (std::vector<std::string>{"C.3", "C.cat", "O.2", "N.am"}));
  std::vector<std::string> const bonds = section(text, "BOND");
  ASSERT_EQ(bonds.size(), 3u);
  EXPECT_EQ(words(bonds[2]).at(3), "am");
  EXPECT_EQ(read_standard(text).molecule()->bond(2)->type(), single_bond);
}

// ---------------------------------------------------------------------------------------
// Charges and deuterium

constexpr char const* charged_source =
    "@<TRIPOS>MOLECULE\nacetate\n4 3 1\nSMALL\nbcc\n\n@<TRIPOS>ATOM\n"
    "1 C1 0.0 0.0 0.0 C.3 1 ACT1 -0.123456\n2 C2 1.5 0.0 0.0 C.2 1 ACT1 0.876543\n"
    "3 O1 2.1 1.0 0.0 O.co2 1 ACT1 -0.87654\n4 O2 2.1 -1.0 0.0 O.co2 1 ACT1 -0.87654\n"
    "@<TRIPOS>UNITY_ATOM_ATTR\n2 2\ncolor 3\ncharge 1\n4 1\ncharge -1\n@<TRIPOS>BOND\n1 1 2 1\n2 2 "
    "3 2\n3 2 4 1\n";

TEST(Mol2Standard, PartialAndFormalChargesRoundTrip) {
  Mol2File const source = read_standard(charged_source);
  ASSERT_EQ(source.unity_charges(), (std::vector<std::pair<int, int>>{{2, 1}, {4, -1}}));
  THandle<CrystalMaker> const maker = source.crystal_maker();
  EXPECT_EQ(maker->details().mol2_charge_type, "bcc");
  std::string const text = write_standard(*maker, "acetate");
  // The source's own charge type, and the charge column holding the partial charges.
  EXPECT_NE(text.find("\nSMALL\nbcc\n"), std::string::npos) << text;
  EXPECT_EQ(words(section(text, "ATOM").at(0)).at(8), "-0.1235");
  EXPECT_EQ(section(text, "UNITY_ATOM_ATTR"),
            (std::vector<std::string>{"2 1", "charge 1", "4 1", "charge -1"}));

  Mol2File const back = read_standard(text);
  THandle<Molecule> const a = source.molecule();
  THandle<Molecule> const b = back.molecule();
  ASSERT_EQ(b->natoms(), 4);
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(b->atom(i)->details()->has_partial_charge);
    EXPECT_NEAR(b->atom(i)->details()->partial_charge, a->atom(i)->details()->partial_charge, 1e-4);
    EXPECT_EQ(b->atom(i)->formal_charge(), i == 3 ? -1 : i == 1 ? 1 : 0);
  }
  // Classic reading keeps formal charges as the classic model has them (none).
  Mol2File classic;
  std::istringstream in(text);
  classic.read(in);
  EXPECT_EQ(classic.molecule()->atom(3)->formal_charge(), 0);
  EXPECT_TRUE(classic.molecule()->atom(3)->details()->has_partial_charge);
  // Without charges (in any case) the column is not taken for partial charges.
  std::string none = charged_source;
  none.replace(none.find("bcc"), 3, "No_CHARGES");
  THandle<Molecule> const uncharged = read_standard(none).molecule();
  EXPECT_FALSE(uncharged->atom(0)->details()->has_partial_charge);
  EXPECT_EQ(uncharged->atom(3)->formal_charge(), -1);
}

TEST(Mol2Standard, NoChargesAndUserCharges) {
  auto const molecule = make_handle<Molecule3d>(
      std::vector<THandle<Atom>>{make_atom("N", "N1", 0, 0, 0)}, std::vector<BondData>{});
  std::string const none = write_standard(maker_of({molecule}));
  EXPECT_NE(none.find("\nSMALL\nNO_CHARGES\n"), std::string::npos) << none;
  EXPECT_FALSE(read_standard(none).molecule()->atom(0)->details()->has_partial_charge);
  molecule->atom(0)->mutable_details()->has_partial_charge = true;
  molecule->atom(0)->mutable_details()->partial_charge = 0.25;
  std::string const user = write_standard(maker_of({molecule}));
  EXPECT_NE(user.find("\nSMALL\nUSER_CHARGES\n"), std::string::npos) << user;
  EXPECT_DOUBLE_EQ(read_standard(user).molecule()->atom(0)->details()->partial_charge, 0.25);
}

TEST(Mol2Standard, DeuteriumReadsBackAsDeuterium) {
  // CH2D2.
  auto const molecule = make_handle<Molecule3d>(
      std::vector<THandle<Atom>>{
          make_atom("C", "C1", -0.00001, 0, 0), make_atom("H", "H1", 1.09, 0, 0),
          make_atom("H", "H2", -0.36, 1.03, 0), make_atom("D", "D1", -0.36, -0.51, 0.89),
          make_atom("D", "D2", -0.36, -0.51, -0.89)},
      std::vector<BondData>{BondData(0, 1, single_bond), BondData(0, 2, single_bond),
                            BondData(0, 3, single_bond), BondData(0, 4, single_bond)});
  std::string const text = write_standard(maker_of({molecule}));
  THandle<Molecule> const back = read_standard(text).molecule();
  std::vector<std::string> symbols;
  for (int i = 0; i < back->natoms(); ++i)
    symbols.push_back(back->atom(i)->element().symbol());
  EXPECT_EQ(symbols, (std::vector<std::string>{"C", "H", "H", "D", "D"})) << text;
  // Fixed columns; a coordinate that rounds to zero is not written as -0.0000.
  EXPECT_EQ(section(text, "ATOM").at(0),
            "      1 C1           0.0000     0.0000     0.0000 C.3          1 RES1         0.0000");
}

TEST(Mol2Standard, WideValuesAndOddNamesStaySeparateFields) {
  auto const molecule = make_handle<Molecule3d>(
      std::vector<THandle<Atom>>{make_atom("C", "C 1", -12345.6789, 99999.9999, -0.5),
                                 make_atom("O", "", 0, 0, 1.2)},
      std::vector<BondData>{BondData(0, 1, double_bond)});
  molecule->atom(0)->mutable_details()->has_partial_charge = true;
  molecule->atom(0)->mutable_details()->partial_charge = -10.12345;
  std::string const text = write_standard(maker_of({molecule}), "two words");
  THandle<Molecule> const back = read_standard(text).molecule();
  ASSERT_EQ(back->natoms(), 2) << text;
  EXPECT_EQ(back->atom(0)->label(), "C_1");
  EXPECT_EQ(back->atom(1)->label(), "O2");  // an empty name would shift every later field
  Point const p = back->atom(0)->site()->orthogonal();
  EXPECT_NEAR(p[0], -12345.6789, 1e-9);
  EXPECT_NEAR(p[1], 99999.9999, 1e-9);
  EXPECT_NEAR(back->atom(0)->details()->partial_charge, -10.1235, 1e-9);
  EXPECT_EQ(back->atom(1)->details()->atom_type, "O.2");
  EXPECT_EQ(read_standard(text).molecule_name(), "two words");
}

// ---------------------------------------------------------------------------------------
// Substructures and residues

TEST(Mol2Standard, ResiduesOfAPdbSourceBecomeSubstructures) {
  struct Residue {
    char const* name;
    int number;
    char insertion;
    char const* chain;
  };
  Residue const residues[] = {
      {"ALA", 1, ' ', "A"}, {"GLY", 2, ' ', "A"}, {"GLY", 2, 'B', "A"}, {"HOH", 101, ' ', "W"}};
  std::vector<THandle<Atom>> atoms;
  for (int r = 0; r < 4; ++r) {
    for (int k = 0; k < (r == 3 ? 1 : 2); ++k) {
      THandle<Atom> atom = make_atom(k == 0 ? "N" : "C", k == 0 ? "N" : "CA", r * 3.0, k * 1.4, 0);
      AtomDetails& d = *atom->mutable_details();
      d.residue_name = residues[r].name;
      d.residue_number = residues[r].number;
      d.insertion_code = residues[r].insertion;
      d.chain = residues[r].chain;
      atoms.push_back(atom);
    }
  }
  auto const chain = make_handle<Molecule3d>(
      std::vector<THandle<Atom>>(atoms.begin(), atoms.begin() + 6),
      std::vector<BondData>{BondData(0, 1, single_bond), BondData(1, 2, single_bond),
                            BondData(2, 3, single_bond), BondData(3, 4, single_bond),
                            BondData(4, 5, single_bond)});
  auto const water =
      make_handle<Molecule3d>(std::vector<THandle<Atom>>{atoms[6]}, std::vector<BondData>{});
  std::string const text = write_standard(maker_of({chain, water}));
  EXPECT_EQ(
      squeezed(section(text, "SUBSTRUCTURE")),
      (std::vector<std::string>{"1 ALA1 1 RESIDUE 1 A ALA 1", "2 GLY2 3 RESIDUE 1 A GLY 2",
                                "3 GLY2B 5 RESIDUE 1 A GLY 1", "4 HOH101 7 RESIDUE 1 W HOH 0"}));
  EXPECT_NE(text.find("\nBIOPOLYMER\n"), std::string::npos);
  // Every atom line names its substructure by id and name.
  std::vector<std::string> const lines = section(text, "ATOM");
  ASSERT_EQ(lines.size(), 7u);
  EXPECT_EQ(words(lines[4]).at(6), "3");
  EXPECT_EQ(words(lines[4]).at(7), "GLY2B");

  THandle<Molecule> const back = read_standard(text).molecule();
  ASSERT_EQ(back->natoms(), 7);
  for (int i = 0; i < 7; ++i) {
    AtomDetails const& d = *back->atom(i)->details();
    Residue const& r = residues[i / 2];
    EXPECT_EQ(d.residue_name, r.name) << i;
    EXPECT_EQ(d.residue_number, r.number) << i;
    EXPECT_EQ(d.insertion_code, r.insertion) << i;
    EXPECT_EQ(d.chain, r.chain) << i;
  }
  EXPECT_EQ(back->atom(4)->details()->substructure_id, 3);
}

TEST(Mol2Standard, ResidueLabelsOfProteinAtomsBecomeSubstructures) {
  std::vector<THandle<Atom>> atoms;
  for (auto [label, residue, x] : {std::tuple{"N", "SER5", 0.0}, std::tuple{"CA", "SER5", 1.4},
                                   std::tuple{"O", "HOH7", 8.0}}) {
    Point const p(x, 0, 0);
    atoms.push_back(make_handle<FileOrderedProteinAtom>(0, Element(label[0] == 'C' ? "C" : label),
                                                        label, residue, make_handle<Site>(p, p)));
  }
  auto const molecule =
      make_handle<Molecule3d>(atoms, std::vector<BondData>{BondData(0, 1, single_bond)});
  std::string const text = write_standard(maker_of({molecule}));
  EXPECT_EQ(
      squeezed(section(text, "SUBSTRUCTURE")),
      (std::vector<std::string>{"1 SER5 1 RESIDUE 1 **** SER 0", "2 HOH7 3 RESIDUE 1 **** HOH 0"}));
  EXPECT_EQ(read_standard(text).molecule()->atom(2)->details()->residue_number, 7);
}

TEST(Mol2Standard, Mol2SubstructuresKeepTheirIdsAndNames) {
  std::string const source =
      "@<TRIPOS>MOLECULE\nx\n4 0 3\nPROTEIN\nNO_CHARGES\n@<TRIPOS>ATOM\n"
      "1 N 0 0 0 N.am 7 LYS3 0\n2 CA 1.4 0 0 C.3 7 LYS3 0\n3 O 9 0 0 O.3 9 HOH12 0\n"
      "4 O 12 0 0 O.3 11 WAT5 0\n@<TRIPOS>SUBSTRUCTURE\n"
      "     7 LYS3        1 RESIDUE           4 B     LYS     1 ROOT\n"
      "     9 HOH12       3 GROUP             0 ****  ****    0\n"
      "    11 WAT5        4 RESIDUE           0 ****  ROOT    0\n";
  Mol2File const file = read_standard(source);
  THandle<Molecule> const m = file.molecule();
  EXPECT_EQ(m->atom(0)->details()->residue_name, "LYS");
  EXPECT_EQ(m->atom(0)->details()->residue_number, 3);
  EXPECT_EQ(m->atom(0)->details()->chain, "B");
  EXPECT_EQ(m->atom(2)->details()->residue_name, "");  // a group, not a residue
  EXPECT_EQ(m->atom(2)->details()->substructure_id, 9);
  // A sub_type that does not begin the name ("ROOT" for WAT5) does not name the residue.
  EXPECT_EQ(m->atom(3)->details()->residue_name, "WAT");
  EXPECT_EQ(m->atom(3)->details()->residue_number, 5);
  EXPECT_EQ(file.crystal_maker()->details().mol2_molecule_type, "PROTEIN");

  std::ostringstream out;
  Mol2File writer(file);
  writer.set_write_options(WriteOptions::standard_mode());
  writer.print(out);  // a file read, not added, writes from its own model
  EXPECT_EQ(squeezed(section(out.str(), "SUBSTRUCTURE")),
            (std::vector<std::string>{"7 LYS3 1 RESIDUE 1 B LYS 0", "9 HOH12 3 GROUP 0 **** **** 0",
                                      "11 WAT5 4 RESIDUE 1 **** WAT 0"}));
  EXPECT_NE(out.str().find("\nPROTEIN\nNO_CHARGES\n"), std::string::npos);
}

// ---------------------------------------------------------------------------------------
// Crystal data and empty entries

TEST(Mol2Standard, CrystalRecordOnlyWithCrystalData) {
  auto const molecule = make_handle<Molecule3d>(
      std::vector<THandle<Atom>>{make_atom("O", "O1", 1, 1, 1)}, std::vector<BondData>{});
  Cell const p21c(5, 6, 7, Angle::from_degrees(90), Angle::from_degrees(101.5),
                  Angle::from_degrees(90), Spacegroup("P 1 21/c 1"));
  struct Case {
    Cell cell;
    bool has_cell;
    char const* crysin;  // "" for no record
  } const cases[] = {
      {Cell(), true, ""},  // the placeholder unit cube
      {p21c, false, ""},   // a cell the source did not have
      {p21c, true, "5.0000 6.0000 7.0000 90.0000 101.5000 90.0000 14 1"},
      {Cell(5, 6, 7, Angle::from_degrees(90), Angle::from_degrees(101.5), Angle::from_degrees(90),
            Spacegroup("P 1 21/n 1")),
       true, "5.0000 6.0000 7.0000 90.0000 101.5000 90.0000 231 1"},
  };
  for (Case const& c : cases) {
    std::string const text = write_standard(maker_of({molecule}, c.cell, c.has_cell));
    // A molecule without bonds still has its BOND section (some readers drop it otherwise).
    EXPECT_NE(text.find("@<TRIPOS>BOND\n"), std::string::npos) << text;
    std::vector<std::string> const crysin = section(text, "CRYSIN");
    if (*c.crysin == '\0') {
      EXPECT_EQ(text.find("CRYSIN"), std::string::npos) << text;
      EXPECT_FALSE(read_standard(text).crystal_maker()->details().has_cell);
    } else {
      ASSERT_EQ(crysin.size(), 1u) << text;
      EXPECT_EQ(words(crysin[0]), words(c.crysin));
      EXPECT_TRUE(read_standard(text).crystal_maker()->details().has_cell);
    }
  }
}

TEST(Mol2Standard, CrystalRecordNeverStatesAnotherSpaceGroup) {
  auto const molecule = make_handle<Molecule3d>(
      std::vector<THandle<Atom>>{make_atom("O", "O1", 1, 1, 1)}, std::vector<BondData>{});
  int written = 0;
  for (std::string const& setting : Spacegroup::tabulated_settings()) {
    Spacegroup const group(setting);
    Cell const cell(7, 8, 9, Angle::from_degrees(90), Angle::from_degrees(90),
                    Angle::from_degrees(90), group);
    std::string const text = write_standard(maker_of({molecule}, cell, true));
    if (text.find("@<TRIPOS>CRYSIN") == std::string::npos) continue;
    ++written;
    EXPECT_TRUE(read_standard(text).cell()->spacegroup() == group) << setting;
  }
  EXPECT_GT(written, 300);
}

TEST(Mol2Standard, EntryWithoutAtomsReadsBack) {
  std::string const text = write_standard(maker_of({}), "nothing here");
  EXPECT_NE(text.find("@<TRIPOS>ATOM"), std::string::npos);
  Mol2File const back = read_standard(text);
  EXPECT_EQ(back.molecule_name(), "nothing here");
  EXPECT_EQ(back.crystal_maker()->nmolecules(), 0);
  EXPECT_EQ(back.database_entry()->identifier().str(), "nothing here");
}

}  // namespace
