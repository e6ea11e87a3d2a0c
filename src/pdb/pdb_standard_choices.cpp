// What standard PDB reading decides once a model's atoms are read: which alternate location
// each residue keeps, and the bond orders the residue typer leaves open in the standard amino
// acids.

#include <algorithm>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "kora/kernel/bond.hpp"
#include "kora/kernel/details.hpp"
#include "pdb/pdb_reading.hpp"

namespace kora::detail {

namespace {

constexpr int arginine = 2;  // residue kinds count the twenty amino acids alphabetically

// The atom's name as the file gave it, without the alternate location the label ends with.
std::string_view atom_name(Atom const& atom) {
  std::string_view name = atom.label();
  AtomDetails const* d = atom.details();
  if (d && d->alt_loc != ' ' && !name.empty() && name.back() == d->alt_loc) name.remove_suffix(1);
  return name;
}

}  // namespace

void complete_residue_bond_orders(Molecule& molecule) {
  for (auto it = molecule.bonds_begin(); it != molecule.bonds_end(); ++it) {
    THandle<Bond> const bond = *it;
    if (bond->type() != unknown_bond) continue;
    ProteinAtom const* first = bond->atom1()->protein_atom();
    ProteinAtom const* second = bond->atom2()->protein_atom();
    if (!first || !second || first->residue_kind() == 0 || second->residue_kind() == 0) continue;
    bool guanidinium = false;
    if (first->residue_kind() == arginine && first->residue_label() == second->residue_label()) {
      std::string_view const a = atom_name(*bond->atom1());
      std::string_view const b = atom_name(*bond->atom2());
      guanidinium = (a == "CZ" && b == "NH2") || (a == "NH2" && b == "CZ");
    }
    bond->set_type(guanidinium ? double_bond : single_bond);
  }
}

std::vector<THandle<Atom>> one_location_per_residue(std::vector<THandle<Atom>> const& atoms) {
  bool const any = std::any_of(atoms.begin(), atoms.end(), [](THandle<Atom> const& atom) {
    return atom->details()->alt_loc != ' ';
  });
  if (!any) return atoms;
  struct Location {
    char letter;
    double occupancy;  // the sum over the letter's atoms
    int count;
  };
  std::unordered_map<std::string, std::vector<Location>> residues;
  auto const key_of = [](AtomDetails const& d) {
    std::string key = d.chain;
    key += '\n';
    key += std::to_string(d.residue_number);
    key += d.insertion_code;
    return key;
  };
  for (THandle<Atom> const& atom : atoms) {
    AtomDetails const& d = *atom->details();
    if (d.alt_loc == ' ') continue;
    std::vector<Location>& locations = residues[key_of(d)];
    auto found = std::find_if(locations.begin(), locations.end(),
                              [&d](Location const& l) { return l.letter == d.alt_loc; });
    if (found == locations.end()) found = locations.insert(locations.end(), {d.alt_loc, 0.0, 0});
    found->occupancy += atom->site()->occupancy().value();
    ++found->count;
  }
  std::unordered_map<std::string, char> chosen;
  for (auto const& [key, locations] : residues) {
    Location const* best = &locations.front();
    for (Location const& l : locations) {
      if (l.occupancy / l.count > best->occupancy / best->count + 1e-9) best = &l;
    }
    chosen.emplace(key, best->letter);
  }
  std::vector<THandle<Atom>> kept;
  kept.reserve(atoms.size());
  for (THandle<Atom> const& atom : atoms) {
    AtomDetails const& d = *atom->details();
    if (d.alt_loc == ' ' || chosen[key_of(d)] == d.alt_loc) kept.push_back(atom);
  }
  return kept;
}

}  // namespace kora::detail
