#pragma once

/// \file
/// The MOLECULE record of a Tripos Mol2 file: name, counts, molecule and charge types.

#include <iosfwd>
#include <string>
#include <vector>

#include "kora/kernel/handle.hpp"
#include "kora/kernel/molecule.hpp"

namespace kora {

class Mol2Molecule {
 public:
  Mol2Molecule() = default;
  /// Reads the record from a stream positioned just after its header line.
  explicit Mol2Molecule(std::istream& is) { read(is); }
  /// The record of a molecule: its counts, one substructure, "SMALL", "USER_CHARGES" when an
  /// atom is charged (else "NO_CHARGES"), and the status text of written files.
  Mol2Molecule(Molecule const& molecule, std::string const& name);
  /// The record of a structure written as subsets, one substructure each; an empty list
  /// leaves the record empty.
  Mol2Molecule(std::vector<THandle<MoleculeSubset>> const& subsets, std::string const& name);

  void clear();
  /// The name line, the counts line (an empty counts line is skipped once), then the molecule
  /// and charge types as two words from the stream; the rest of the record stays in the
  /// stream. A counts line without fields throws std::invalid_argument.
  void read(std::istream& is);
  void print(std::ostream& os) const;

  std::string const& name() const { return name_; }
  int number_of_atoms() const { return number_of_atoms_; }
  int number_of_bonds() const { return number_of_bonds_; }
  int number_of_substructures() const { return number_of_substructures_; }
  std::string const& molecule_type() const { return molecule_type_; }
  std::string const& charge_type() const { return charge_type_; }
  std::string const& status_text() const { return status_text_; }

  /// Everything but the status text.
  bool operator==(Mol2Molecule const& other) const;

 private:
  void set_status_text_();

  std::string name_;
  int number_of_atoms_ = 0;
  int number_of_bonds_ = 0;
  int number_of_substructures_ = 0;
  std::string molecule_type_;
  std::string charge_type_;
  std::string status_text_;
};

}  // namespace kora
