#include "kora/kernel/crystal.hpp"

#include <stdexcept>
#include <string>

namespace kora {

namespace {

THandle<Molecule> molecule_at(MoleculeList const& list, int i, char const* where) {
  if (i < 0 || i >= static_cast<int>(list.size())) {
    throw std::out_of_range(std::string(where) + ": molecule " + std::to_string(i) +
                            " outside 0.." + std::to_string(int(list.size()) - 1));
  }
  return list[static_cast<std::size_t>(i)];
}

}  // namespace

Crystal::Crystal(Cell const& cell, THandle<MoleculeList> const& molecules)
    : cell_(cell), molecules_(molecules ? molecules : make_handle<MoleculeList>()) {}

THandle<Molecule> Crystal::molecule(int i) const {
  return molecule_at(*molecules_, i, "Crystal::molecule");
}

CrystalMaker::CrystalMaker(Cell const& cell, THandle<MoleculeList> const& structure,
                           THandle<MoleculeList> const& generated,
                           THandle<MoleculeList> const& other)
    : cell_(cell) {
  for (THandle<MoleculeList> const* list : {&structure, &generated, &other}) {
    if (!*list) continue;
    for (THandle<Molecule> const& m : **list) {
      if (m) molecules_.push_back(m);
    }
  }
}

THandle<Molecule> CrystalMaker::molecule(int i) const {
  return molecule_at(molecules_, i, "CrystalMaker::molecule");
}

void CrystalMaker::select_3d() {
  MoleculeList kept;
  for (THandle<Molecule> const& m : molecules_) {
    bool all_3d = true;
    for (THandle<Atom> const& atom : m->atoms())
      all_3d = all_3d && atom->has_site();
    if (all_3d) {
      if (m->natoms() > 0) kept.push_back(m);
      continue;
    }
    MoleculeSubset subset(m);
    subset.select_3d();
    if (subset.natoms() > 0) kept.push_back(subset.create_molecule());
  }
  molecules_ = std::move(kept);
}

THandle<Crystal> CrystalMaker::create_crystal() const {
  return make_handle<Crystal>(cell_, make_handle<MoleculeList>(molecules_));
}

}  // namespace kora
