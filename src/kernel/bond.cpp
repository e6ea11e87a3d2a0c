#include "kora/kernel/bond.hpp"

#include <stdexcept>
#include <string>

namespace kora {

BondData::BondData(int atom1, int atom2, BondType type) : atom1_(0), atom2_(0), type_(type) {
  set_atoms(atom1, atom2);
}

void BondData::set_atoms(int atom1, int atom2) {
  if (atom1 < 0 || atom2 < 0) {
    throw std::invalid_argument("BondData: negative atom index in bond " + std::to_string(atom1) +
                                "-" + std::to_string(atom2));
  }
  atom1_ = atom1;
  atom2_ = atom2;
}

}  // namespace kora
