#pragma once

/// \file
/// Bonds: the bond-order code, bonds between atom indexes, and model bonds between atoms.

#include "kora/kernel/atom.hpp"
#include "kora/kernel/handle.hpp"

namespace kora {

enum BondType : int {
  unknown_bond = 0,
  single_bond = 1,
  double_bond = 2,
  triple_bond = 3,
  quadruple_bond = 4,
  aromatic_bond = 5,
  polymeric_bond = 6,
  delocalised_bond = 7,
  pi_bond = 9
};

/// A bond between two atoms given by their 0-based indexes in the atom list that travels
/// with it.
class BondData {
 public:
  /// Throws std::invalid_argument when an index is negative.
  BondData(int atom1, int atom2, BondType type);

  int atom1() const { return atom1_; }
  int atom2() const { return atom2_; }
  BondType type() const { return type_; }
  void set_type(BondType type) { type_ = type; }
  /// Throws std::invalid_argument when an index is negative.
  void set_atoms(int atom1, int atom2);

 private:
  int atom1_;
  int atom2_;
  BondType type_;
};

/// A bond of a molecule.
class Bond {
 public:
  Bond(THandle<Atom> atom1, THandle<Atom> atom2, BondType type)
      : atom1_(std::move(atom1)), atom2_(std::move(atom2)), type_(type) {}

  THandle<Atom> const& atom1() const { return atom1_; }
  THandle<Atom> const& atom2() const { return atom2_; }
  BondType type() const { return type_; }
  void set_type(BondType type) { type_ = type; }

 private:
  THandle<Atom> atom1_;
  THandle<Atom> atom2_;
  BondType type_;
};

}  // namespace kora
