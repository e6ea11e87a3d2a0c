// Writing the connection table in V2000 or V3000 form.

#include <ostream>
#include <string>
#include <vector>

#include "kernel/text_format.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/mdl/mol_file.hpp"

namespace kora {

namespace {

using detail::append_fixed;
using detail::append_int;
using detail::append_left;

// The element symbol in 3 columns, "*" for an atom without element.
void append_symbol(std::string& out, Atom const& atom) {
  Element const element = atom.element();
  append_left(out, element.is_set() ? std::string_view(element.symbol()) : "*", 3);
}

}  // namespace

int MolFile::sd_bond_type(BondType type) const {
  switch (type) {
    case double_bond:
      return 2;
    case triple_bond:
      return 3;
    case aromatic_bond:
    case delocalised_bond:
      return 4;
    default:
      return 1;
  }
}

void MolFile::initialise_print() const {
  atoms_ = make_handle<std::vector<THandle<Atom>>>();
  bonds_ = make_handle<std::vector<THandle<BondData>>>();
  natoms_ = 0;
  nbonds_ = 0;
  std::vector<int> numbers;  // 1-based number of each atom of a molecule, 0 when not written
  for (THandle<Molecule> const& molecule : *molecules_) {
    numbers.assign(static_cast<std::size_t>(molecule->natoms()), 0);
    int position = 0;
    for (THandle<Atom> const& atom : molecule->atoms()) {
      if (atom->has_site()) {
        numbers[static_cast<std::size_t>(position)] = ++natoms_;
        atoms_->push_back(atom);
      }
      ++position;
    }
    for (int i = 0; i < molecule->nbonds(); ++i) {
      auto const [first, second] = molecule->bond_atoms(i);
      int const a = numbers[static_cast<std::size_t>(first)];
      int const b = numbers[static_cast<std::size_t>(second)];
      if (a == 0 || b == 0) continue;
      ++nbonds_;
      bonds_->push_back(make_handle<BondData>(a, b, molecule->bond(i)->type()));
    }
  }
}

void MolFile::print_V2000(std::ostream& os) const {
  std::string out;
  append_int(out, natoms_, 3);
  append_int(out, nbonds_, 3);
  out += "  0  0  0  0  0  0  0  0999 V2000\n";
  for (THandle<Atom> const& atom : *atoms_) {
    Point const& p = atom->site()->orthogonal();
    append_fixed(out, p[0], 4, 10);
    append_fixed(out, p[1], 4, 10);
    append_fixed(out, p[2], 4, 10);
    out += ' ';
    append_symbol(out, *atom);
    out += "  ";
    // The charge itself, not the MDL charge code.
    append_int(out, atom->formal_charge(), 3);
    out += '\n';
  }
  for (THandle<BondData> const& bond : *bonds_) {
    append_int(out, bond->atom1(), 3);
    append_int(out, bond->atom2(), 3);
    append_int(out, sd_bond_type(bond->type()), 3);
    out += '\n';
  }
  out += "M  END\n";
  os << out;
}

void MolFile::print_V3000(std::ostream& os) const {
  std::string out = "  0  0  0     0  0            999 V3000\n";
  out += "M  V30 BEGIN CTAB\nM  V30 COUNTS ";
  out += int_to_string(natoms_);
  out += ' ';
  out += int_to_string(nbonds_);
  out += "  0  0  0\nM  V30 BEGIN ATOM\n";
  int number = 0;
  for (THandle<Atom> const& atom : *atoms_) {
    out += "M  V30 ";
    out += int_to_string(++number);
    out += ' ';
    append_symbol(out, *atom);
    Point const& p = atom->site()->orthogonal();
    append_fixed(out, p[0], 4, 9);
    out += ' ';
    append_fixed(out, p[1], 4, 9);
    out += ' ';
    append_fixed(out, p[2], 4, 9);
    if (int const charge = atom->formal_charge(); charge != 0) {
      out += " CHG=";
      out += int_to_string(charge);
    }
    out += '\n';
  }
  out += "M  V30 END ATOM\nM  V30 BEGIN BOND\n";
  // Every bond line carries the number 1; readers number bonds by their order.
  int const bond_number = 1;
  for (THandle<BondData> const& bond : *bonds_) {
    out += "M  V30 ";
    out += int_to_string(bond_number);
    out += ' ';
    append_int(out, sd_bond_type(bond->type()), 5);
    append_int(out, bond->atom1(), 5);
    append_int(out, bond->atom2(), 5);
    out += '\n';
  }
  out += "M  V30 END BOND\nM  V30 END CTAB\nM  END\n";
  os << out;
}

}  // namespace kora
