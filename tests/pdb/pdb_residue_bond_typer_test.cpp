// The bond orders PDB residues get from their atom names: carbonyls, carboxylates and
// histidines by their protonation, aromatic rings, and nothing for other residues.

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "kora/kernel/molecule.hpp"
#include "kora/pdb/pdb_residue_bond_typer.hpp"

namespace {

using namespace kora;
using Labels = std::vector<std::string>;

// Atoms named `names` in `residue` (plain atoms when it is empty) and bonds "A-B" between the
// first atoms so named, typed; the bonds of each type as "A-B".
struct Typed {
  Typed(std::vector<std::pair<std::string, Labels>> const& groups, Labels const& pairs) {
    auto atoms = make_handle<std::vector<THandle<Atom>>>();
    for (auto const& [residue, names] : groups) {
      for (std::string const& name : names) {
        auto site = make_handle<Site>(Point(), Point());
        if (residue.empty())
          atoms->push_back(make_handle<FileOrderedAtom3d>(0, Element("C"), name, site));
        else
          atoms->push_back(
              make_handle<FileOrderedProteinAtom>(0, Element("C"), name, residue, site));
      }
    }
    auto const find = [&](std::string const& name) {
      for (std::size_t i = 0; i < atoms->size(); ++i)
        if ((*atoms)[i]->label() == name) return int(i);
      ADD_FAILURE() << "no atom " << name;
      return 0;
    };
    auto bonds = make_handle<std::vector<THandle<BondData>>>();
    for (std::string const& pair : pairs) {
      std::size_t const dash = pair.find('-');
      bonds->push_back(make_handle<BondData>(find(pair.substr(0, dash)),
                                             find(pair.substr(dash + 1)), unknown_bond));
    }
    molecule = make_handle<Molecule3d>(atoms, bonds);
    PdbResidueBondTyper().apply(molecule->bonds_begin(), molecule->bonds_end());
  }
  Labels of_type(BondType type) const {
    Labels found;
    for (THandle<Bond> const& b : molecule->bonds())
      if (b->type() == type) found.push_back(b->atom1()->label() + "-" + b->atom2()->label());
    return found;
  }
  THandle<Molecule3d> molecule;
};

Typed backbone(std::string const& residue, Labels side = {}, Labels side_bonds = {}) {
  Labels names{"N", "CA", "C", "O"};
  names.insert(names.end(), side.begin(), side.end());
  Labels bonds{"N-CA", "CA-C", "C-O"};
  bonds.insert(bonds.end(), side_bonds.begin(), side_bonds.end());
  return Typed({{residue, names}}, bonds);
}

// Side chains with their double bonds (after the carbonyl C-O) and aromatic bonds: rings
// also under alternate-location labels, carboxylates and histidines double away from the
// protonated atom, every standard residue its carbonyl, other residues none.
TEST(PdbResidueBondTyper, SideChains) {
  Labels const asp{"CB", "CG", "OD1", "OD2", "H"};
  Labels const asp_bonds{"CA-CB", "CB-CG", "CG-OD1", "CG-OD2"};
  Labels const his{"CG", "ND1", "CD2", "CE1", "NE2", "H"};
  Labels const his_bonds{"CG-ND1", "CG-CD2", "ND1-CE1", "CD2-NE2", "CE1-NE2"};
  auto const with = [](Labels a, Labels const& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
  };
  struct Case {
    std::string residue;
    Labels side, bonds, doubles, aromatic;
  };
  for (Case const& c :
       std::vector<Case>{{"TYR5",
                          {"CBA", "CGA", "CD1A", "CD2A", "CE1A"},
                          {"CA-CBA", "CBA-CGA", "CGA-CD1A", "CGA-CD2A", "CD1A-CE1A"},
                          {},
                          {"CGA-CD1A", "CGA-CD2A", "CD1A-CE1A"}},
                         {"ASP3", asp, asp_bonds, {"CG-OD2"}, {}},
                         {"ASP3", asp, with(asp_bonds, {"OD2-H"}), {"CG-OD1"}, {}},
                         {"ASP3", asp, with(asp_bonds, {"OD1-H"}), {}, {}},
                         {"HIS4", his, with(his_bonds, {"ND1-H"}), {"CG-CD2", "CE1-NE2"}, {}},
                         {"HIS4", his, with(his_bonds, {"NE2-H"}), {"CG-CD2", "ND1-CE1"}, {}},
                         {"TRP6",
                          {"CG", "CD1", "CD2", "NE1", "CE2", "CE3", "CZ2", "CZ3", "CH2"},
                          {"CG-CD1", "CG-CD2", "CD1-NE1", "NE1-CE2", "CD2-CE2", "CD2-CE3",
                           "CE2-CZ2", "CE3-CZ3", "CZ2-CH2", "CZ3-CH2"},
                          {"CG-CD1"},
                          {"CD2-CE2", "CD2-CE3", "CE2-CZ2", "CE3-CZ3", "CZ2-CH2", "CZ3-CH2"}}}) {
    Typed const typed = backbone(c.residue, c.side, c.bonds);
    EXPECT_EQ(typed.of_type(double_bond), with({"C-O"}, c.doubles)) << c.residue;
    EXPECT_EQ(typed.of_type(aromatic_bond), c.aromatic) << c.residue;
  }
  EXPECT_TRUE(backbone("HOH1").of_type(double_bond).empty());
  EXPECT_TRUE(
      Typed({{"", {"C", "O"}}, {"ALA1", {"N"}}}, {"C-O", "C-N"}).of_type(double_bond).empty());
}

}  // namespace
