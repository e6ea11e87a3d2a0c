#pragma once

// SYBYL (Tripos) atom and bond types of a molecule.

#include <string>
#include <vector>

#include "kora/kernel/molecule.hpp"

namespace kora::detail {

struct SybylTypes {
  std::vector<std::string> atoms;  // one per atom, in molecule order
  std::vector<std::string> bonds;  // one per bond, in molecule order
};

// Types every atom and bond. Known bond orders decide hybridisation; unknown ones (type 0)
// are first inferred from bond lengths, angles and ring planarity where the atoms have
// sites, and from valences where the molecule carries explicit hydrogens.
SybylTypes sybyl_types(Molecule const& molecule);

}  // namespace kora::detail
