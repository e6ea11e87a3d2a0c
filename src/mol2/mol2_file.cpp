#include "kora/mol2/mol2_file.hpp"

#include <istream>
#include <ostream>
#include <stdexcept>

#include "kora/kernel/string_functions.hpp"

namespace kora {

namespace {

template <class T>
std::unique_ptr<T> copy_of(std::unique_ptr<T> const& p) {
  return p ? std::make_unique<T>(*p) : nullptr;
}

bool contains(std::string const& line, char const* text) {
  return line.find(text) != std::string::npos;
}

bool begins_with(std::string const& line, char c) {
  return !line.empty() && line[0] == c;
}

}  // namespace

void Mol2Comment::print(std::ostream& os) const {
  for (std::string const& line : *lines_)
    os << line << '\n';
}

Mol2File::Mol2File(std::string const& file_name) {
  MoleculeFile::read(file_name);
}

Mol2File::Mol2File(Mol2File const& other)
    : molecule_(copy_of(other.molecule_)),
      atoms_(copy_of(other.atoms_)),
      bonds_(copy_of(other.bonds_)),
      substructure_(other.substructure_),
      crysin_(copy_of(other.crysin_)),
      comments_(other.comments_) {}

Mol2File& Mol2File::operator=(Mol2File const& other) {
  if (this != &other) *this = Mol2File(other);
  return *this;
}

void Mol2File::clear() {
  molecule_.reset();
  atoms_.reset();
  bonds_.reset();
  crysin_.reset();
  substructure_.clear();
  comments_.clear();
}

void Mol2File::read(std::istream& is) {
  clear();
  THandle<Mol2Comment> comment;
  bool header_seen = false;
  std::string line;
  while (is.good()) {
    kora::getline(is, line);
    if (line.empty() || begins_with(line, '#') || begins_with(line, '*')) {
      if (comment) comment->append(line);
      continue;
    }
    if (line.find('@') != std::string::npos && comment) {
      comments_.push_back(comment);
      comment.reset();
    }
    if (contains(line, "@<TRIPOS>MOLECULE")) {
      if (header_seen) break;
      molecule_ = std::make_unique<Mol2Molecule>(is);
      header_seen = true;
    } else if (contains(line, "@<TRIPOS>ATOM")) {
      if (!molecule_) throw std::runtime_error("Mol2File::read: ATOM field before MOLECULE.");
      atoms_ = std::make_unique<Mol2Atom>(is, molecule_->number_of_atoms());
    } else if (contains(line, "@<TRIPOS>BOND")) {
      if (!molecule_) throw std::runtime_error("Mol2File::read: BOND field before MOLECULE.");
      bonds_ = std::make_unique<Mol2Bond>(is, molecule_->number_of_bonds());
    } else if (contains(line, "@<TRIPOS>CRYSIN")) {
      crysin_ = std::make_unique<Mol2Crysin>(is);
    } else if (contains(line, "@<TRIPOS>COMMENT")) {
      comment = make_handle<Mol2Comment>();
    } else if (contains(line, "@<TRIPOS>SUBSTRUCTURE")) {
      if (!molecule_) {
        throw std::runtime_error("Mol2File::read: SUBSTRUCTURE field before MOLECULE.");
      }
      get_substructure(is, molecule_->number_of_substructures());
    } else if (comment) {
      comment->append(line);
    }
  }
  if (comment) comments_.push_back(comment);
}

void Mol2File::print(std::ostream& os) const {
  if (molecule_) {
    os << "@<TRIPOS>MOLECULE" << '\n';
    molecule_->print(os);
  }
  if (atoms_ && !atoms_->empty()) {
    os << "\n@<TRIPOS>ATOM" << '\n';
    atoms_->print(os);
  }
  if (bonds_ && !bonds_->empty()) {
    os << "\n@<TRIPOS>BOND" << '\n';
    bonds_->print(os);
  }
  if (!substructure_.empty()) os << "\n@<TRIPOS>SUBSTRUCTURE" << '\n' << substructure_;
  if (crysin_) {
    os << "\n@<TRIPOS>CRYSIN" << '\n';
    crysin_->print(os);
  }
  if (comments_.empty()) {
    os << '\n';
  } else {
    for (THandle<Mol2Comment> const& comment : comments_) {
      os << "\n@<TRIPOS>COMMENT" << '\n';
      comment->print(os);
    }
  }
}

void Mol2File::add(Molecule const& molecule, DatabaseEntryIdentifier const& identifier) {
  clear();
  bool all_placed = true;
  for (THandle<Atom> const& atom : molecule.atoms())
    all_placed = all_placed && atom->has_site();
  Molecule const* source = &molecule;
  Molecule3d placed;
  if (!all_placed) {
    placed = Molecule3d(molecule);
    placed.remove_atoms([](THandle<Atom> const& atom) { return !atom->has_site(); });
    source = &placed;
  }
  molecule_ = std::make_unique<Mol2Molecule>(*source, identifier.str());
  atoms_ = std::make_unique<Mol2Atom>(*source);
  bonds_ = std::make_unique<Mol2Bond>(*source);
}

template <class Structure>
void Mol2File::add_structure_(Structure const& structure, Cell const& cell,
                              DatabaseEntryIdentifier const& identifier) {
  clear();
  std::vector<THandle<MoleculeSubset>> subsets;
  for (int k = 0; k < structure.nmolecules(); ++k) {
    auto subset = make_handle<MoleculeSubset>(structure.molecule(k));
    subset->select_3d();
    subsets.push_back(subset);
  }
  molecule_ = std::make_unique<Mol2Molecule>(subsets, identifier.str());
  atoms_ = std::make_unique<Mol2Atom>(subsets);
  bonds_ = std::make_unique<Mol2Bond>(subsets);
  crysin_ = std::make_unique<Mol2Crysin>(cell);
  append_substructure_(structure);
}

void Mol2File::add(CrystalMaker const& maker, DatabaseEntryIdentifier const& identifier) {
  add_structure_(maker, maker.cell(), identifier);
}

void Mol2File::add(Crystal const& crystal, DatabaseEntryIdentifier const& identifier) {
  add_structure_(crystal, crystal.cell(), identifier);
}

void Mol2File::add(CrystalStructureDatabaseEntry const& entry) {
  THandle<CrystalMaker> const maker = entry.crystal_maker();
  if (!maker) THandleCommon::null_handle_error();
  CrystalMaker placed = *maker;  // the entry's own maker stays as it is
  placed.select_3d();
  add(placed, entry.identifier());
}

template <class Structure>
void Mol2File::append_substructure_(Structure const& structure) {
  int first_atom = 1;
  std::string text;
  for (int k = 0; k < structure.nmolecules(); ++k) {
    std::string line = right_justify(int_to_string(k + 1), 6, ' ');
    line += " RES" + int_to_string(k + 1);
    line += right_justify(int_to_string(first_atom), 8, ' ');
    text += line + "\n";
    MoleculeSubset subset(structure.molecule(k));
    subset.select_3d();
    first_atom += subset.natoms();
  }
  if (!text.empty()) text.pop_back();
  substructure_ += text;
}

void Mol2File::set_substructure(CrystalMaker const& maker) {
  append_substructure_(maker);
}
void Mol2File::set_substructure(Crystal const& crystal) {
  append_substructure_(crystal);
}

void Mol2File::get_substructure(std::istream& is, int count) {
  substructure_.clear();
  std::string line;
  for (int i = 0; i < count && is.good(); ++i) {
    kora::getline(is, line);
    substructure_ += line;
    substructure_ += '\n';
  }
}

std::string Mol2File::molecule_name() const {
  if (!molecule_) throw std::runtime_error("No molecule set");
  return molecule_->name();
}

THandle<Cell> Mol2File::cell() const {
  return crysin_ ? make_handle<Cell>(crysin_->cell()) : make_handle<Cell>();
}

THandle<Molecule> Mol2File::molecule() const {
  if (!molecule_ || !atoms_) {
    throw std::runtime_error(
        "Mol2File::molecule: There is no data from which to construct an object");
  }
  THandle<Cell> const c = cell();
  auto const bonds = bonds_ ? bonds_->bonds() : make_handle<std::vector<THandle<BondData>>>();
  return THandle<Molecule>(make_handle<Molecule3d>(atoms_->atoms(*c), bonds));
}

THandle<CrystalMaker> Mol2File::crystal_maker() const {
  if (!molecule_ || !atoms_) {
    throw std::runtime_error(
        "Mol2File::crystal_maker: There is no data from which to construct an object");
  }
  auto const bonds = bonds_ ? bonds_->bonds() : make_handle<std::vector<THandle<BondData>>>();
  THandle<Cell> const c = cell();
  auto const atoms = atoms_->atoms(*c);
  auto const molecules = create_molecules(*atoms, *bonds);
  return make_handle<CrystalMaker>(*c, molecules, THandle<MoleculeList>(), THandle<MoleculeList>());
}

THandle<Crystal> Mol2File::crystal() const {
  return crystal_maker()->create_crystal();
}

THandle<CrystalStructureDatabaseEntry> Mol2File::database_entry() const {
  DatabaseEntryIdentifier identifier;
  try {
    identifier = DatabaseEntryIdentifier(molecule_name());
  } catch (std::invalid_argument const&) {
    identifier = DatabaseEntryIdentifier("UNKNWN");
  }
  return THandle<CrystalStructureDatabaseEntry>(
      make_handle<CrystalStructureImmediateDatabaseEntry>(identifier, crystal_maker()));
}

bool Mol2File::operator==(Mol2File const& other) const {
  if (molecule_ && other.molecule_ && !(*molecule_ == *other.molecule_)) return false;
  if (atoms_ && other.atoms_ && !(*atoms_ == *other.atoms_)) return false;
  if (bonds_ && other.bonds_ && !(*bonds_ == *other.bonds_)) return false;
  if (!crysin_ || !other.crysin_) return true;
  return *crysin_ == *other.crysin_;
}

}  // namespace kora
