// Standard Mol2 reading: elements of atoms typed by force fields other than SYBYL (GAFF,
// AMBER, CHARMM, GLYCAM, OPLS), partial and formal charges, and identifiers of molecule names
// too long to be identifiers (the index over such names is tested with the Mol2 database).

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "kora/mol2/mol2_file.hpp"
#include "mol2/mol2_standard.hpp"
#include "mol2_test_support.hpp"

namespace {

using namespace kora;
using test::read_mol2;

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
    "@<TRIPOS>MOLECULE\n"
    "LIG\n"
    "    6     4     2\n"
    "SMALL\n"
    "bcc\n"
    "\n"
    "@<TRIPOS>ATOM\n"
    "      1 C1     0.0000    0.0000    0.0000 c3        1 LIG     -0.094100\n"
    "      2 Cl1    1.7700    0.0000    0.0000 cl        1 LIG     -0.123000\n"
    "      3 H1    -0.3600    1.0300    0.0000 hc        1 LIG      0.072367\n"
    "      4 H2    -0.3600   -0.5100    0.8900 hc        1 LIG      0.072367\n"
    "      5 H3    -0.3600   -0.5100   -0.8900 hc        1 LIG      0.072366\n"
    "      6 NA    10.0000    0.0000    0.0000 Na+       2 NA       1.000000\n"
    "@<TRIPOS>BOND\n"
    "     1     1     2 1\n"
    "     2     1     3 1\n"
    "     3     1     4 1\n"
    "     4     1     5 1\n";

TEST(Mol2StandardRead, ForceFieldTypedAtomsGetElementsOnlyInStandardMode) {
  Mol2File const standard = read_mol2(gaff_source, ReadOptions::standard_mode());
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
  Mol2File const file = read_mol2(text, ReadOptions::standard_mode());
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
// Charges

constexpr char const* unity_source =
    "@<TRIPOS>MOLECULE\n"
    "glycine zwitterion\n"
    "5 4\n"
    "SMALL\n"
    "GASTEIGER\n"
    "@<TRIPOS>ATOM\n"
    "1 N1  0.000 0.000 0.000 N.4   1 GLY 0.3500\n"
    "2 C1  1.470 0.000 0.000 C.3   1 GLY 0.1000\n"
    "3 C2  2.000 1.400 0.000 C.2   1 GLY 0.2000\n"
    "4 O1  3.200 1.500 0.000 O.co2 1 GLY -0.3250\n"
    "5 O2  1.300 2.400 0.000 O.co2 1 GLY -0.3250\n"
    "@<TRIPOS>UNITY_ATOM_ATTR\n"
    "1 2\n"
    "charge 1\n"
    "color 3\n"
    "5 1\n"
    "charge -1\n"
    "@<TRIPOS>BOND\n"
    "1 1 2 1\n"
    "2 2 3 1\n"
    "3 3 4 ar\n"
    "4 3 5 ar\n";

TEST(Mol2StandardRead, PartialChargesInBothModesFormalChargesInStandard) {
  for (ReadOptions const& options : {ReadOptions::classic_mode(), ReadOptions::standard_mode()}) {
    bool const standard = options.standard();
    THandle<Molecule> const molecule = read_mol2(unity_source, options).molecule();
    std::vector<double> partial;
    std::vector<int> formal;
    for (int i = 0; i < molecule->natoms(); ++i) {
      AtomDetails const* d = molecule->atom(i)->details();
      ASSERT_TRUE(d && d->has_partial_charge) << i;
      partial.push_back(d->partial_charge);
      formal.push_back(molecule->atom(i)->formal_charge());
    }
    EXPECT_EQ(partial, (std::vector<double>{0.35, 0.1, 0.2, -0.325, -0.325})) << standard;
    EXPECT_EQ(formal, standard ? (std::vector<int>{1, 0, 0, 0, -1}) : std::vector<int>(5, 0));
  }
  // Without charges (in any case) the column is not taken for partial charges.
  std::string text = unity_source;
  text.replace(text.find("GASTEIGER"), 9, "No_CHARGES");
  THandle<Molecule> const none = read_mol2(text, ReadOptions::standard_mode()).molecule();
  EXPECT_FALSE(none->atom(0)->details()->has_partial_charge);
  EXPECT_EQ(none->atom(0)->formal_charge(), 1);
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
  EXPECT_EQ(read_mol2(text, ReadOptions::standard_mode()).database_entry()->identifier().str(),
            std::string(256, 'n'));
  EXPECT_EQ(read_mol2(text, ReadOptions::classic_mode()).database_entry()->identifier().str(),
            "UNKNWN");
}

}  // namespace
