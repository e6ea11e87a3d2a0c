#pragma once

// Helpers shared by the PDB tests: reading text, and looking at what was read by serial
// number.

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kora/pdb/pdb_file.hpp"

namespace kora::test {

inline PdbFile read_pdb(std::string const& text) {
  std::istringstream in(text);
  PdbFile file;
  file.read(in);
  return file;
}

inline int serial_of(THandle<Atom> const& atom) {
  return handle_dynamic_cast<FileOrderedAtom3d>(atom)->file_order();
}

// Every atom of every molecule, in file order.
inline std::vector<THandle<Atom>> atoms_of(PdbFile const& file) {
  std::vector<THandle<Atom>> atoms;
  for (THandle<Molecule> const& m : *file.molecules())
    for (THandle<Atom> const& a : m->atoms())
      atoms.push_back(a);
  std::stable_sort(atoms.begin(), atoms.end(), [](THandle<Atom> const& a, THandle<Atom> const& b) {
    return serial_of(a) < serial_of(b);
  });
  return atoms;
}

// Every bond as a pair of serial numbers, the smaller first, sorted.
inline std::vector<std::pair<int, int>> bonds_of(PdbFile const& file) {
  std::vector<std::pair<int, int>> bonds;
  for (THandle<Molecule> const& m : *file.molecules()) {
    for (THandle<Bond> const& b : m->bonds()) {
      int const x = serial_of(b->atom1());
      int const y = serial_of(b->atom2());
      bonds.emplace_back(std::min(x, y), std::max(x, y));
    }
  }
  std::sort(bonds.begin(), bonds.end());
  return bonds;
}

inline int bond_count(PdbFile const& file) {
  return static_cast<int>(bonds_of(file).size());
}

}  // namespace kora::test
