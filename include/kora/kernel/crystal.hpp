#pragma once

/// \file
/// Crystals (a cell and its molecules) and crystal makers (the description a crystal is
/// made from).

#include <vector>

#include "kora/kernel/cell.hpp"
#include "kora/kernel/details.hpp"
#include "kora/kernel/handle.hpp"
#include "kora/kernel/molecule.hpp"

namespace kora {

using MoleculeList = std::vector<THandle<Molecule>>;

class Crystal {
 public:
  /// A null list means no molecules.
  Crystal(Cell const& cell, THandle<MoleculeList> const& molecules);

  Cell const& cell() const { return cell_; }
  int nmolecules() const { return static_cast<int>(molecules_->size()); }
  /// Molecule i; throws std::out_of_range outside 0..nmolecules()-1.
  THandle<Molecule> molecule(int i) const;

 private:
  Cell cell_;
  THandle<MoleculeList> molecules_;
};

/// A cell and three lists of molecules: those of the structure with 3-d coordinates, those
/// generated from them by symmetry, and those whose coordinates may be 2-d or missing (as
/// MOL files give them). Any list may be null. The molecules are numbered through the three
/// lists in that order.
class CrystalMaker {
 public:
  CrystalMaker(Cell const& cell, THandle<MoleculeList> const& structure,
               THandle<MoleculeList> const& generated, THandle<MoleculeList> const& other);

  Cell const& cell() const { return cell_; }
  int nmolecules() const { return static_cast<int>(molecules_.size()); }
  /// Molecule i; throws std::out_of_range outside 0..nmolecules()-1.
  THandle<Molecule> molecule(int i) const;
  /// Restricts every molecule to its atoms with positions (copies), dropping molecules left
  /// without atoms.
  void select_3d();
  /// A crystal of the cell and all the molecules.
  THandle<Crystal> create_crystal() const;

  /// What the source said of the structure beyond cell and molecules.
  StructureDetails const& details() const { return details_; }
  StructureDetails& mutable_details() { return details_; }

 private:
  Cell cell_;
  MoleculeList molecules_;
  StructureDetails details_;
};

}  // namespace kora
