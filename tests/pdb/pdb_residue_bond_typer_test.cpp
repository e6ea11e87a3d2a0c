#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "kora/kernel/molecule.hpp"
#include "kora/pdb/pdb_residue_bond_typer.hpp"

namespace {

using namespace kora;

// A molecule built from labels; positions do not matter to the typer.
class Residues {
 public:
  // Atoms "name" in the residue, or plain atoms (no residue) when it is empty.
  Residues& atoms(std::string const& residue, std::vector<std::string> const& names) {
    for (std::string const& name : names) {
      auto site = make_handle<Site>(Point(), Point());
      if (residue.empty()) {
        atoms_->push_back(make_handle<FileOrderedAtom3d>(0, Element("C"), name, site));
      } else {
        atoms_->push_back(
            make_handle<FileOrderedProteinAtom>(0, Element("C"), name, residue, site));
      }
    }
    return *this;
  }
  // Bonds "A-B" between the first atoms so named at or after position `from`.
  Residues& bonds(std::vector<std::string> const& pairs, int from = 0) {
    for (std::string const& pair : pairs) {
      std::size_t const dash = pair.find('-');
      bonds_->push_back(make_handle<BondData>(find(pair.substr(0, dash), from),
                                              find(pair.substr(dash + 1), from), unknown_bond));
    }
    return *this;
  }
  THandle<Molecule> typed() const {
    auto const m = make_handle<Molecule3d>(atoms_, bonds_);
    PdbResidueBondTyper().apply(m->bonds_begin(), m->bonds_end());
    return THandle<Molecule>(m);
  }

 private:
  int find(std::string const& name, int from) const {
    for (int i = from; i < int(atoms_->size()); ++i)
      if ((*atoms_)[std::size_t(i)]->label() == name) return i;
    ADD_FAILURE() << "no atom " << name;
    return 0;
  }
  THandle<std::vector<THandle<Atom>>> atoms_ = make_handle<std::vector<THandle<Atom>>>();
  THandle<std::vector<THandle<BondData>>> bonds_ = make_handle<std::vector<THandle<BondData>>>();
};

// The bonds of each type, as "A-B" in bond order.
std::vector<std::string> bonds_of_type(Molecule const& m, BondType type) {
  std::vector<std::string> found;
  for (THandle<Bond> const& b : m.bonds())
    if (b->type() == type) found.push_back(b->atom1()->label() + "-" + b->atom2()->label());
  return found;
}

using Labels = std::vector<std::string>;

Residues backbone(std::string const& residue, Labels side = {}, Labels side_bonds = {}) {
  Labels names{"N", "CA", "C", "O"};
  names.insert(names.end(), side.begin(), side.end());
  Labels bonds{"N-CA", "CA-C", "C-O"};
  bonds.insert(bonds.end(), side_bonds.begin(), side_bonds.end());
  Residues r;
  r.atoms(residue, names).bonds(bonds);
  return r;
}

TEST(PdbResidueBondTyper, ConvertLabelKeepsTheBaseAtomName) {
  PdbResidueBondTyper const typer;
  for (auto const& [label, base] :
       std::vector<std::pair<std::string, std::string>>{{"CD1A", "CD1"},
                                                        {"CGB", "CG"},
                                                        {"OD1B", "OD1"},
                                                        {"NE2", "NE2"},
                                                        {"OH", "OH"},
                                                        {"C", "C"},
                                                        {"OXT", "OXT"},
                                                        {"HB1", "HB1"},
                                                        {"CX1", "CX1"},
                                                        {"XCD1", "XCD1"},
                                                        {"cd1", "cd1"},
                                                        {"", ""}})
    EXPECT_EQ(typer.convert_label(label), base) << label;
}

Labels const ring{"CB", "CG", "CD1", "CD2", "CE1", "CE2", "CZ"};
Labels const ring_bonds{"CA-CB",   "CB-CG",   "CG-CD1", "CG-CD2",
                        "CD1-CE1", "CD2-CE2", "CE1-CZ", "CE2-CZ"};

TEST(PdbResidueBondTyper, RingsAreAromaticAlsoWithAlternateLocationLabels) {
  EXPECT_EQ(bonds_of_type(*backbone("PHE5", ring, ring_bonds).typed(), aromatic_bond),
            (Labels{"CG-CD1", "CG-CD2", "CD1-CE1", "CD2-CE2", "CE1-CZ", "CE2-CZ"}));
  Labels alternate = ring;
  for (std::string& name : alternate)
    name += "A";
  Labels alternate_bonds{"CA-CBA", "CBA-CGA", "CGA-CD1A", "CGA-CD2A", "CD1A-CE1A"};
  THandle<Molecule> const m = backbone("TYR5", alternate, alternate_bonds).typed();
  EXPECT_EQ(bonds_of_type(*m, aromatic_bond), (Labels{"CGA-CD1A", "CGA-CD2A", "CD1A-CE1A"}));
  EXPECT_EQ(bonds_of_type(*m, double_bond), (Labels{"C-O"}));
}

TEST(PdbResidueBondTyper, CarboxylateDoubleBondAvoidsTheProtonatedOxygen) {
  Labels const side{"CB", "CG", "OD1", "OD2", "H"};
  Labels const bonds{"CA-CB", "CB-CG", "CG-OD1", "CG-OD2"};
  auto const doubles = [&](std::string const& residue, Labels extra) {
    extra.insert(extra.begin(), bonds.begin(), bonds.end());
    return bonds_of_type(*backbone(residue, side, extra).typed(), double_bond);
  };
  EXPECT_EQ(doubles("ASP3", {}), (Labels{"C-O", "CG-OD2"}));
  EXPECT_EQ(doubles("ASP3", {"OD2-H"}), (Labels{"C-O", "CG-OD1"}));
  EXPECT_EQ(doubles("ASP3", {"OD1-H"}), (Labels{"C-O"}));
  EXPECT_EQ(doubles("ASN3", {}), (Labels{"C-O", "CG-OD1"}));
  THandle<Molecule> const glu =
      backbone("GLU3", {"CD", "OE1", "OE2", "H"}, {"CD-OE1", "CD-OE2", "OE2-H"}).typed();
  EXPECT_EQ(bonds_of_type(*glu, double_bond), (Labels{"C-O", "CD-OE1"}));
}

TEST(PdbResidueBondTyper, HistidineDoubleBondAvoidsTheProtonatedNitrogen) {
  Labels const side{"CG", "ND1", "CD2", "CE1", "NE2", "H"};
  Labels const bonds{"CG-ND1", "CG-CD2", "ND1-CE1", "CD2-NE2", "CE1-NE2"};
  auto const doubles = [&](Labels extra) {
    extra.insert(extra.begin(), bonds.begin(), bonds.end());
    return bonds_of_type(*backbone("HIS4", side, extra).typed(), double_bond);
  };
  EXPECT_EQ(doubles({"ND1-H"}), (Labels{"C-O", "CG-CD2", "CE1-NE2"}));
  EXPECT_EQ(doubles({"NE2-H"}), (Labels{"C-O", "CG-CD2", "ND1-CE1"}));
  EXPECT_EQ(doubles({}), (Labels{"C-O", "CG-CD2", "CE1-NE2"}));
}

TEST(PdbResidueBondTyper, TryptophanHasOneDoubleAndABenzeneRing) {
  THandle<Molecule> const m =
      backbone("TRP6", {"CG", "CD1", "CD2", "NE1", "CE2", "CE3", "CZ2", "CZ3", "CH2"},
               {"CG-CD1", "CG-CD2", "CD1-NE1", "NE1-CE2", "CD2-CE2", "CD2-CE3", "CE2-CZ2",
                "CE3-CZ3", "CZ2-CH2", "CZ3-CH2"})
          .typed();
  EXPECT_EQ(bonds_of_type(*m, double_bond), (Labels{"C-O", "CG-CD1"}));
  EXPECT_EQ(bonds_of_type(*m, aromatic_bond),
            (Labels{"CD2-CE2", "CD2-CE3", "CE2-CZ2", "CE3-CZ3", "CZ2-CH2", "CZ3-CH2"}));
}

TEST(PdbResidueBondTyper, ResiduesAreToldApartByKindOnly) {
  // Every standard residue gets its carbonyl, even when its rule finds no keys; others none.
  for (std::string const residue : {"GLY1", "ALA1", "ASP1", "HIS1", "TRP1", "TYR1"})
    EXPECT_EQ(bonds_of_type(*backbone(residue, {"CB"}, {"CA-CB"}).typed(), double_bond),
              (Labels{"C-O"}))
        << residue;
  EXPECT_TRUE(bonds_of_type(*backbone("HOH1").typed(), double_bond).empty());
  Residues plain;
  plain.atoms("", {"C", "O"}).atoms("ALA1", {"N"}).bonds({"C-O", "C-N"});
  EXPECT_TRUE(bonds_of_type(*plain.typed(), double_bond).empty());
}

}  // namespace
