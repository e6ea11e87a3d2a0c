#include "kora/mol2/mol2_molecule.hpp"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <iomanip>
#include <istream>
#include <ostream>
#include <stdexcept>

#include "kora/kernel/string_functions.hpp"

namespace kora {

namespace {

// A count as strtol reads it: leading digits (after blanks and a sign); none gives 0.
int leading_integer(std::string const& field) {
  errno = 0;
  long const value = std::strtol(field.c_str(), nullptr, 10);
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int>(value);
}

}  // namespace

Mol2Molecule::Mol2Molecule(Molecule const& molecule, std::string const& name)
    : name_(name),
      number_of_atoms_(molecule.natoms()),
      number_of_bonds_(molecule.nbonds()),
      number_of_substructures_(1),
      molecule_type_("SMALL"),
      charge_type_("NO_CHARGES") {
  for (THandle<Atom> const& atom : molecule.atoms()) {
    if (atom->formal_charge() != 0) {
      charge_type_ = "USER_CHARGES";
      break;
    }
  }
  set_status_text_();
}

Mol2Molecule::Mol2Molecule(std::vector<THandle<MoleculeSubset>> const& subsets,
                           std::string const& name) {
  if (subsets.empty()) return;
  name_ = name;
  number_of_substructures_ = static_cast<int>(subsets.size());
  molecule_type_ = "SMALL";
  charge_type_ = "NO_CHARGES";
  bool charged = false;
  for (THandle<MoleculeSubset> const& subset : subsets) {
    number_of_atoms_ += subset->natoms();
    number_of_bonds_ += subset->nbonds();
    charged = charged || subset->formal_charge() != 0;
  }
  if (charged) charge_type_ = "USER_CHARGES";
  set_status_text_();
}

void Mol2Molecule::set_status_text_() {
  status_text_ = "****\nGenerated from the VRX";
  if (number_of_bonds_ == 0) status_text_ += " - Crystal connectivity not present";
  status_text_ += "\n";
}

void Mol2Molecule::clear() {
  name_.clear();
  number_of_atoms_ = number_of_bonds_ = number_of_substructures_ = 0;
  molecule_type_.clear();
  charge_type_.clear();
  status_text_.clear();
}

void Mol2Molecule::read(std::istream& is) {
  clear();
  std::string line;
  kora::getline(is, line);
  std::string name = trim(line, " \t");
  if (!name.empty()) name_ = std::move(name);
  std::string counts;
  kora::getline(is, counts);
  if (counts.empty()) kora::getline(is, counts);
  std::vector<std::string> fields;
  split(counts, fields, " \t");
  if (fields.empty()) {
    throw std::invalid_argument(
        std::string("Failed to read Mol2 file.") + "The file's number of atoms and bonds line\n" +
        "is corrupt (less than 2 fields)\n\n" + "Offending line in file is: >> " + counts + "<<");
  }
  number_of_atoms_ = leading_integer(fields[0]);
  number_of_bonds_ = fields.size() > 1 ? leading_integer(fields[1]) : 0;
  number_of_substructures_ = fields.size() > 2 ? leading_integer(fields[2]) : 1;
  if (number_of_substructures_ < 1) number_of_substructures_ = 1;
  is >> molecule_type_ >> charge_type_;
}

void Mol2Molecule::print(std::ostream& os) const {
  os << name_ << '\n';
  os << std::setw(6) << number_of_atoms_ << std::setw(6) << number_of_bonds_ << std::setw(6)
     << number_of_substructures_ << '\n';
  os << "SMALL" << '\n';
  os << charge_type_ << '\n';
  os << status_text_;
}

bool Mol2Molecule::operator==(Mol2Molecule const& o) const {
  return name_ == o.name_ && number_of_atoms_ == o.number_of_atoms_ &&
         number_of_bonds_ == o.number_of_bonds_ &&
         number_of_substructures_ == o.number_of_substructures_ &&
         molecule_type_ == o.molecule_type_ && charge_type_ == o.charge_type_;
}

}  // namespace kora
