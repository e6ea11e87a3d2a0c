// ResFile: construction, the model the file holds (cell, crystal, molecules, database
// entry) and adding structures to it. Reading is in res_file_read.cpp, writing in
// res_file_write.cpp.

#include "kora/shelx/res_file.hpp"

#include <string>
#include <vector>

namespace kora {

ResFile::ResFile()
    : cell_(make_handle<Cell>()),
      molecules_(make_handle<std::vector<THandle<Molecule>>>()),
      asymmetric_unit_(make_handle<std::vector<THandle<Atom>>>()) {}

ResFile::ResFile(std::string const& file_name) : ResFile() {
  MoleculeFile::read(file_name);
}

void ResFile::clear() {
  molecules_ = make_handle<std::vector<THandle<Molecule>>>();
  asymmetric_unit_ = make_handle<std::vector<THandle<Atom>>>();
  cell_ = make_handle<Cell>();
  details_ = StructureDetails();
  molecules_read_ = false;
}

// Model conversion

THandle<Cell> ResFile::cell() const {
  return make_handle<Cell>(*cell_);
}

THandle<Crystal> ResFile::crystal() const {
  return make_handle<Crystal>(*cell_, molecules_);
}

THandle<CrystalMaker> ResFile::crystal_maker() const {
  auto maker = make_handle<CrystalMaker>(*cell_, molecules_, THandle<MoleculeList>(),
                                         THandle<MoleculeList>());
  maker->mutable_details() = details_;
  return maker;
}

THandle<CrystalStructureDatabaseEntry> ResFile::database_entry() const {
  return THandle<CrystalStructureDatabaseEntry>(
      make_handle<CrystalStructureImmediateDatabaseEntry>(identifier_, crystal_maker()));
}

THandle<Molecule> ResFile::molecule() const {
  std::vector<THandle<Molecule>> const& list = *molecules_;
  if (list.empty()) return THandle<Molecule>(make_handle<Molecule3d>());
  auto const placed = [](THandle<Molecule> const& m) {
    MoleculeSubset subset(m);
    subset.select_3d();
    return subset.create_molecule();
  };
  THandle<Molecule> result = placed(list[0]);
  for (std::size_t i = 1; i < list.size(); ++i)
    result->add(*placed(list[i]));
  return result;
}

void ResFile::add(Molecule const& molecule, DatabaseEntryIdentifier const& identifier) {
  identifier_ = identifier;
  molecules_read_ = false;
  molecules_->push_back(THandle<Molecule>(make_handle<Molecule3d>(molecule)));
}

template <class Structure>
void ResFile::add_structure_(Structure const& structure, Cell const& cell,
                             DatabaseEntryIdentifier const& identifier) {
  identifier_ = identifier;
  molecules_read_ = false;
  if (!(cell == *cell_)) {
    clear();
    cell_ = make_handle<Cell>(cell);
  }
  for (int i = 0; i < structure.nmolecules(); ++i)
    molecules_->push_back(structure.molecule(i));
}

void ResFile::add(CrystalMaker const& maker, DatabaseEntryIdentifier const& identifier) {
  add_structure_(maker, maker.cell(), identifier);
  details_ = maker.details();
}

void ResFile::add(Crystal const& crystal, DatabaseEntryIdentifier const& identifier) {
  add_structure_(crystal, crystal.cell(), identifier);
}

void ResFile::add(CrystalStructureDatabaseEntry const& entry) {
  THandle<CrystalMaker> const maker = entry.crystal_maker();
  add(*maker, entry.identifier());
}

}  // namespace kora
