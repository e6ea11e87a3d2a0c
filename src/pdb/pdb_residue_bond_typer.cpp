#include "kora/pdb/pdb_residue_bond_typer.hpp"

#include <algorithm>
#include <array>

#include "kora/kernel/regex.hpp"

namespace kora {

template <class T>
void PdbResidueBondTyper::put_(Keyed<T>& list, std::string const& key, T const& value) {
  for (auto& [k, v] : list) {
    if (k == key) {
      v = value;
      return;
    }
  }
  list.emplace_back(key, value);
}

template <class T>
T const* PdbResidueBondTyper::find_(Keyed<T> const& list, std::string_view key) {
  for (auto const& [k, v] : list) {
    if (k == key) return &v;
  }
  return nullptr;
}

std::string PdbResidueBondTyper::convert_label(std::string const& label) const {
  // A carbon, nitrogen or oxygen with a position letter, and with a branch digit when there
  // is one; what follows (an alternate-location letter, say) is dropped.
  static std::array<Regex, 3> const with_branch{
      Regex("^C[ABDGHEZ][123]"), Regex("^N[ABDGHEZ][123]"), Regex("^O[ABDGHEZ][123]")};
  static std::array<Regex, 3> const without_branch{Regex("^C[ABDGHEZ]"), Regex("^N[ABDGHEZ]"),
                                                   Regex("^O[ABDGHEZ]")};
  for (Regex const& r : with_branch) {
    if (r.search(label)) return label.substr(0, 3);
  }
  for (Regex const& r : without_branch) {
    if (r.search(label)) return label.substr(0, 2);
  }
  return label;
}

std::string const& PdbResidueBondTyper::converted_label_(std::string const& label) {
  auto it = converted_.find(label);
  if (it == converted_.end()) it = converted_.emplace(label, convert_label(label)).first;
  return it->second;
}

void PdbResidueBondTyper::enter_(THandle<Bond> const& bond, std::string const& name1,
                                 std::string const& name2) {
  std::string const& label1 = converted_label_(name1);
  std::string const& label2 = converted_label_(name2);
  bool const first_is_smaller = label1 < label2;
  key_ = first_is_smaller ? label1 : label2;
  key_ += '-';
  key_ += first_is_smaller ? label2 : label1;
  put_(bonds_, key_, bond);
  put_(atoms_, label1, bond->atom1());
  put_(atoms_, label2, bond->atom2());
}

namespace {

// The alternate location of an atom; ' ' for none.
char location_of(Atom const& atom) {
  AtomDetails const* d = atom.details();
  return d ? d->alt_loc : ' ';
}

// The atom's name: its label less the alternate-location letter that reading appends.
std::string name_of(Atom const& atom) {
  std::string name = atom.label();
  char const location = location_of(atom);
  if (location != ' ' && name.size() > 1 && name.back() == location) name.pop_back();
  return name;
}

// What tells the atom's residue from the others of a molecule.
void residue_key(Atom const& atom, ProteinAtom const& protein, std::string& key) {
  key = protein.residue_label();
  if (AtomDetails const* d = atom.details()) {
    key += '\n';
    key += d->chain;
    key += d->insertion_code;
  }
}

}  // namespace

void PdbResidueBondTyper::apply_by_residue_(PolymorphicIterator<THandle<Bond>> begin,
                                            PolymorphicIterator<THandle<Bond>> end) {
  // The bonds within each residue, residues in the order of their first bond.
  std::vector<std::vector<THandle<Bond>>> residues;
  std::unordered_map<std::string, std::size_t> index;
  std::string key1;
  std::string key2;
  for (auto it = begin; it != end; ++it) {
    THandle<Bond> const bond = *it;
    ProteinAtom const* protein1 = bond->atom1()->protein_atom();
    ProteinAtom const* protein2 = bond->atom2()->protein_atom();
    if (!protein1 || !protein2 || protein1->residue_kind() == 0) continue;
    residue_key(*bond->atom1(), *protein1, key1);
    residue_key(*bond->atom2(), *protein2, key2);
    if (key1 != key2) continue;
    auto const [found, added] = index.try_emplace(key1, residues.size());
    if (added) residues.emplace_back();
    residues[found->second].push_back(bond);
  }
  std::vector<char> locations;
  for (std::vector<THandle<Bond>> const& residue : residues) {
    residue_kind_ = residue.front()->atom1()->protein_atom()->residue_kind();
    auto const location = [](Bond const& bond) {
      char const first = location_of(*bond.atom1());
      return first != ' ' ? first : location_of(*bond.atom2());
    };
    locations.clear();
    for (THandle<Bond> const& bond : residue) {
      char const l = location(*bond);
      if (l != ' ' && std::find(locations.begin(), locations.end(), l) == locations.end())
        locations.push_back(l);
    }
    if (locations.empty()) locations.push_back(' ');
    for (char const l : locations) {
      bonds_.clear();
      atoms_.clear();
      for (THandle<Bond> const& bond : residue) {
        char const own = location(*bond);
        if (own == ' ' || own == l) enter_(bond, name_of(*bond->atom1()), name_of(*bond->atom2()));
      }
      type_current_residue();
    }
  }
  bonds_.clear();
  atoms_.clear();
  residue_kind_ = 0;
}

void PdbResidueBondTyper::apply(PolymorphicIterator<THandle<Bond>> begin,
                                PolymorphicIterator<THandle<Bond>> end) {
  if (mode_ == Mode::standard) {
    apply_by_residue_(begin, end);
    return;
  }
  residue_kind_ = 0;
  for (auto it = begin; it != end; ++it) {
    THandle<Bond> const bond = *it;
    THandle<Atom> const& atom1 = bond->atom1();
    THandle<Atom> const& atom2 = bond->atom2();
    ProteinAtom const* protein1 = atom1->protein_atom();
    ProteinAtom const* protein2 = atom2->protein_atom();
    if (!protein1 || !protein2) continue;
    int const kind1 = protein1->residue_kind();
    if (residue_kind_ == 0) residue_kind_ = kind1;
    if (kind1 == residue_kind_) {
      if (protein2->residue_kind() != residue_kind_) continue;
    } else {
      type_current_residue();
      bonds_.clear();
      atoms_.clear();
      residue_kind_ = kind1;
    }
    enter_(bond, atom1->label(), atom2->label());
  }
  type_current_residue();
}

void PdbResidueBondTyper::set_bond_type(std::string const& key, BondType type) {
  if (THandle<Bond> const* bond = find_(bonds_, key)) (*bond)->set_type(type);
}

int PdbResidueBondTyper::connections_(std::string const& label) const {
  THandle<Atom> const* atom = find_(atoms_, label);
  return atom ? (*atom)->connection_count() : -1;
}

bool PdbResidueBondTyper::has_connections_(std::string const& label, int count) const {
  return connections_(label) == count;
}

void PdbResidueBondTyper::type_current_residue() {
  switch (residue_kind_) {
    case 0:
      return;
    case asparagine:
      type_asparagine();
      break;
    case aspartic_acid:
      type_aspartic_acid();
      break;
    case glutamine:
      type_glutamine();
      break;
    case glutamic_acid:
      type_glutamic_acid();
      break;
    case histidine:
      type_histidine();
      break;
    case phenylalanine:
      type_phenylalanine();
      break;
    case tryptophan:
      type_tryptophan();
      break;
    case tyrosine:
      type_tyrosine();
      break;
    default:
      break;
  }
  set_bond_type("C-O", double_bond);  // the backbone carbonyl
}

void PdbResidueBondTyper::type_asparagine() {
  set_bond_type("CG-OD1", double_bond);
}

void PdbResidueBondTyper::type_glutamine() {
  set_bond_type("CD-OE1", double_bond);
}

// The double bond goes to the first oxygen when the second carries a hydrogen (two
// connections); when only the first does, none is set; otherwise it goes to the second.
void PdbResidueBondTyper::type_carboxylate_(char const* oxygen1, char const* oxygen2,
                                            char const* key1, char const* key2) {
  if (has_connections_(oxygen2, 2)) {
    set_bond_type(key1, double_bond);
  } else if (!has_connections_(oxygen1, 2)) {
    set_bond_type(key2, double_bond);
  }
}

void PdbResidueBondTyper::type_aspartic_acid() {
  type_carboxylate_("OD1", "OD2", "CG-OD1", "CG-OD2");
}

void PdbResidueBondTyper::type_glutamic_acid() {
  type_carboxylate_("OE1", "OE2", "CD-OE1", "CD-OE2");
}

void PdbResidueBondTyper::type_histidine() {
  set_bond_type("CD2-CG", double_bond);
  int const nd1 = connections_("ND1");
  int const ne2 = connections_("NE2");
  // Both nitrogens mapped and bonded to more than one atom: the one without a hydrogen
  // takes the double bond to CE1.
  if (nd1 > 1 && ne2 > 1) set_bond_type(ne2 < 3 ? "CE1-NE2" : "CE1-ND1", double_bond);
}

void PdbResidueBondTyper::type_phenylalanine() {
  for (char const* key : {"CD2-CG", "CD1-CE1", "CE2-CZ", "CD1-CG", "CE1-CZ", "CD2-CE2"})
    set_bond_type(key, aromatic_bond);
}

void PdbResidueBondTyper::type_tyrosine() {
  type_phenylalanine();
}

void PdbResidueBondTyper::type_tryptophan() {
  set_bond_type("CD1-CG", double_bond);
  for (char const* key : {"CD2-CE2", "CD2-CE3", "CE3-CZ3", "CE2-CZ2", "CH-CZ2", "CH-CZ3", "CH1-CZ2",
                          "CH1-CZ3", "CH2-CZ2", "CH2-CZ3"})
    set_bond_type(key, aromatic_bond);
}

}  // namespace kora
